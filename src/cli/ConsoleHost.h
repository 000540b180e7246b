#pragma once

#include "support/Host.h"

#include <QTextStream>

namespace kestrova::cli {

// The headless face: status lines and texts to stdout, terminal traffic to stderr when
// asked for (--verbose), message boxes printed with a default answer, and a yield that
// blocks on the event loop (sockets, the serial line, timers) for at most the given time.
class ConsoleHost : public support::Host
{
public:
    ConsoleHost();

    void appendStatusLine(const QString& line) override;
    void setStatusText(const QString& text) override;
    void setProgress(const QString& percent, const QString& text) override;
    void terminalEcho(const QString& text) override;
    support::MsgAnswer messageBox(const QString& text, support::MsgButtons buttons, support::MsgIcon icon) override;
    QString inputBox(const QString& prompt, const QString& defaultText) override;
    void setBusy(bool) override {}
    bool openUrl(const QString& url) override;
    void reportFailure(const QString& text) override;
    void yield(int maxWaitMs) override;

    // Answers for the questions a headless run cannot ask (Yes/No boxes).
    support::MsgAnswer yesNoAnswer = support::MsgAnswer::No;
    bool showStatusTexts = false;
    bool showTerminal = false;
    bool quiet = false;
    // Failures written to the error output so far: a command that has said why it failed
    // does not add a vaguer line of its own.
    int failuresReported = 0;

private:
    QTextStream m_out;
    QTextStream m_err;
};

} // namespace kestrova::cli
