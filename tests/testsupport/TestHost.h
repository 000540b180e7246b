#pragma once

#include "support/Host.h"

#include <QStringList>

#include <deque>
#include <functional>

namespace kestrova::support {
class MockClock;
}

namespace kestrova::testing {

// A Host for tests: records everything shown, answers message and input boxes from a
// script (default: Ok/No/empty), and yields by processing real events for a moment and
// then moving the MockClock on, so long waits finish fast while real peers (a pty, a
// socket) still get to answer.
class TestHost : public support::Host
{
public:
    explicit TestHost(support::MockClock* clock = nullptr) : m_clock(clock) {}

    void appendStatusLine(const QString& line) override { statusLines << line; }
    void setStatusText(const QString& text) override { statusTexts << text; }
    void setProgress(const QString& percent, const QString& text) override { progress << percent + u'|' + text; }
    void terminalEcho(const QString& text) override { terminal += text; }
    support::MsgAnswer messageBox(const QString& text, support::MsgButtons buttons, support::MsgIcon icon) override;
    QString inputBox(const QString& prompt, const QString& defaultText) override;
    void reportFailure(const QString& text) override { failures << text; }
    void setBusy(bool busy) override { busyCalls << busy; }
    bool openUrl(const QString& url) override
    {
        openedUrls << url;
        return true;
    }
    void yield(int maxWaitMs) override;

    // How long a yield really waits for events (ms) and how far it moves the mock clock.
    int realWaitMs = 5;
    qint64 clockStepMs = 100;
    // Called on every yield (after the clock moved): lets a test cancel mid-operation.
    std::function<void()> onYield;

    std::deque<support::MsgAnswer> answers;
    std::deque<QString> inputs;

    QStringList statusLines;
    QStringList statusTexts;
    QStringList progress;
    QStringList messages;
    QStringList failures;
    QStringList prompts;
    QString terminal;
    QList<bool> busyCalls;
    QStringList openedUrls;
    int yields = 0;

private:
    support::MockClock* m_clock;
};

} // namespace kestrova::testing
