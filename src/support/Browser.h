#pragma once

#include <QString>

namespace kestrova::support {

class Host;

// What the user is told when no browser could be started for a page: the address, so it
// can be copied into a browser by hand.
QString browserFailureMessage(const QString& url);

// Opens a web page or a local document (the user guide) in the user's browser through the
// face; when none can be started, says so in a box with the address. True when it opened.
bool openInBrowser(Host& host, const QString& url);

} // namespace kestrova::support
