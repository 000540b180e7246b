#include "cli/ConsoleHost.h"
#include "support/EventWait.h"
#include "support/StatusLine.h"

#include <cstdio>

namespace kestrova::cli {

ConsoleHost::ConsoleHost() : m_out(stdout), m_err(stderr) {}

void ConsoleHost::appendStatusLine(const QString& line)
{
    if (!quiet) {
        QString l = line;
        l.remove(u'\r');
        m_out << l;
        m_out.flush();
        // A pipe (journald, a supervising process) gets every line as it happens.
        std::fflush(stdout);
    }
}

void ConsoleHost::setStatusText(const QString& text)
{
    if (showStatusTexts && !text.isEmpty()) {
        m_err << "  " << text << '\n';
        m_err.flush();
    }
}

void ConsoleHost::setProgress(const QString& percent, const QString& text)
{
    if (showStatusTexts) {
        m_err << "  " << percent << ' ' << text << '\n';
        m_err.flush();
    }
}

void ConsoleHost::terminalEcho(const QString& text)
{
    if (showTerminal) {
        QString t = support::controlNames(text);
        t.replace(u'\r', u'\n');
        m_err << t;
        m_err.flush();
    }
}

support::MsgAnswer ConsoleHost::messageBox(const QString& text, support::MsgButtons buttons, support::MsgIcon)
{
    m_err << text << '\n';
    m_err.flush();
    switch (buttons) {
    case support::MsgButtons::YesNo:
    case support::MsgButtons::YesNoCancel:
        return yesNoAnswer;
    case support::MsgButtons::RetryCancel:
    case support::MsgButtons::OkCancel:
        return support::MsgAnswer::Cancel;
    default:
        return support::MsgAnswer::Ok;
    }
}

QString ConsoleHost::inputBox(const QString&, const QString&)
{
    return {};
}

void ConsoleHost::reportFailure(const QString& text)
{
    m_err << "kestrova-cli: " << text << '\n';
    m_err.flush();
    ++failuresReported;
}

bool ConsoleHost::openUrl(const QString& url)
{
    m_err << url << '\n';
    m_err.flush();
    return false;
}

void ConsoleHost::yield(int maxWaitMs)
{
    support::waitForEvents(maxWaitMs);
}

} // namespace kestrova::cli
