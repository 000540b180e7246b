#pragma once

#include "quotes/Qserver.h"
#include "support/Host.h"

#include <QString>

#include <memory>

namespace kestrova::bench {

// The definition of the demo market's pages (stock or option).

// A demo-market stock page grown to about `bytes` with the markup a portal page carries
// around its quote table (navigation, scripts, comments, news rows).
QString largeQuotePage(int bytes);

// A face that shows nothing and waits on the event loop.
class QuietHost final : public support::Host
{
public:
    void appendStatusLine(const QString&) override {}
    void setStatusText(const QString&) override {}
    void setProgress(const QString&, const QString&) override {}
    void terminalEcho(const QString&) override {}
    support::MsgAnswer messageBox(const QString&, support::MsgButtons, support::MsgIcon) override
    {
        return support::MsgAnswer::Ok;
    }
    QString inputBox(const QString&, const QString&) override { return {}; }
    void setBusy(bool) override {}
    bool openUrl(const QString&) override { return false; }
    void yield(int maxWaitMs) override;
};

} // namespace kestrova::bench
