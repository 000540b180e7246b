#include "support/Browser.h"

#include "support/Host.h"

namespace kestrova::support {

QString browserFailureMessage(const QString& url)
{
    return QStringLiteral("No web browser could be started. Open this address yourself:\n\n") + url;
}

bool openInBrowser(Host& host, const QString& url)
{
    if (host.openUrl(url)) {
        return true;
    }
    host.messageBox(browserFailureMessage(url), MsgButtons::Ok, MsgIcon::Exclamation);
    return false;
}

} // namespace kestrova::support
