#pragma once

#include <QString>

namespace kestrova::support {

// The data directory (the program directory of old): --data-dir, else $KESTROVA_HOME,
// else the XDG data location (~/.local/share/kestrova). Created when missing.
QString resolveDataDir(const QString& commandLineDir = {});

// Where the installed data/ files (servers.dat, server.dat, demo portfolio) live: next to
// the binary's source tree in a build, or the install prefix's share/kestrova.
QString installedDataDir();

} // namespace kestrova::support
