#include "TestHost.h"

#include "support/Clock.h"
#include "support/EventWait.h"


namespace kestrova::testing {

support::MsgAnswer TestHost::messageBox(const QString& text, support::MsgButtons buttons, support::MsgIcon)
{
    messages << text;
    if (!answers.empty()) {
        const auto a = answers.front();
        answers.pop_front();
        return a;
    }
    switch (buttons) {
    case support::MsgButtons::YesNo:
    case support::MsgButtons::YesNoCancel:
        return support::MsgAnswer::No;
    case support::MsgButtons::RetryCancel:
    case support::MsgButtons::OkCancel:
        return support::MsgAnswer::Cancel;
    default:
        return support::MsgAnswer::Ok;
    }
}

QString TestHost::inputBox(const QString& prompt, const QString&)
{
    prompts << prompt;
    if (inputs.empty()) {
        return {};
    }
    QString s = inputs.front();
    inputs.pop_front();
    return s;
}

void TestHost::yield(int maxWaitMs)
{
    ++yields;
    const int wait = m_clock ? qMin(realWaitMs, maxWaitMs) : maxWaitMs;
    support::waitForEvents(wait);
    if (m_clock) {
        m_clock->advanceMs(clockStepMs);
    }
    if (onYield) {
        onYield();
    }
}

} // namespace kestrova::testing
