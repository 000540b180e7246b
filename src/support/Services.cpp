#include "support/Services.h"

#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/Secrets.h"
#include "support/StatusLine.h"

#include <algorithm>

namespace kestrova::support {

void Services::StatusMessage(const QString& message) const
{
    const QString shown = redactSecrets(message);
    host.appendStatusLine(statusLine(shown, clock.now()));
    log.LogMessage(shown);
}

void Services::Failure(const QString& message) const
{
    StatusMessage(message);
    host.reportFailure(redactSecrets(message));
}

void Services::pause(double seconds) const
{
    const qint64 whole = roundHalfEven(seconds);
    if (whole <= 0) {
        return;
    }
    const QDateTime deadline = clock.now().addSecs(whole);
    while (clock.now() < deadline && !cancel.isSet()) {
        const qint64 left = clock.now().msecsTo(deadline);
        host.yield(static_cast<int>(std::clamp<qint64>(left, 1, 100)));
    }
}

bool Services::cancelled() const
{
    return cancel.isSet();
}

} // namespace kestrova::support
