#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

namespace kestrova::testing {

// A fixture file under tests/data.
QString dataPath(const QString& relative);
QByteArray readFile(const QString& path);
void writeFile(const QString& path, const QByteArray& bytes);
// A TCP port on 127.0.0.1 that nothing listens on right now.
quint16 freePort();
// The Debian interpreter that carries python3-aiosmtpd and python3-dbusmock.
QString systemPython();

} // namespace kestrova::testing
