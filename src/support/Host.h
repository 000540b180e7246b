#pragma once

#include <QString>

namespace kestrova::support {

enum class MsgButtons { Ok, OkCancel, YesNo, YesNoCancel, RetryCancel };
enum class MsgIcon { None, Critical, Question, Exclamation, Information };
enum class MsgAnswer { Ok, Cancel, Yes, No, Retry };

// Everything the engine asks of a face. The GUI implements it with widgets, the CLI
// with stdout/stderr and default answers, tests with scripted answers and a yield that
// advances a MockClock.
class Host
{
public:
    virtual ~Host() = default;

    // Appends one already formatted line (see statusLine()) to the main status list.
    virtual void appendStatusLine(const QString& line) = 0;
    // The status window's one-line display ("Dialing 555", "Getting Market Data").
    virtual void setStatusText(const QString& text) = 0;
    // Progress of a long operation: a percent text such as " 40%" and what is being done.
    virtual void setProgress(const QString& percent, const QString& text) = 0;
    // Raw modem/socket traffic for the terminal window (already in display form).
    virtual void terminalEcho(const QString& text) = 0;
    virtual MsgAnswer messageBox(const QString& text, MsgButtons buttons = MsgButtons::Ok,
                                 MsgIcon icon = MsgIcon::None) = 0;
    // An input box; an empty answer means the user gave none.
    virtual QString inputBox(const QString& prompt, const QString& defaultText = {}) = 0;
    // Asks where to save a file (empty: the user gave no name). A face without a file
    // chooser asks with an input box whose default is the file pattern ("*.PGR").
    virtual QString saveFileName(const QString& title, const QString& filter, const QString& defaultSuffix)
    {
        Q_UNUSED(filter);
        return inputBox(title, QStringLiteral("*.") + defaultSuffix.toUpper());
    }
    // A failure the user must hear of, in plain words ("POP3 server rejected the password:
    // -ERR ..."). It has already gone to the status list and the log; a face whose status
    // list nobody watches (the console) shows it where errors go.
    virtual void reportFailure(const QString& text) { Q_UNUSED(text); }
    virtual void setBusy(bool busy) = 0;
    virtual bool openUrl(const QString& url) = 0;

    // Lets the rest of the program run while a wait loop polls the clock: processes
    // pending events and blocks for at most maxWaitMs until something happens (a file
    // descriptor becomes readable, a timer fires). Must never spin.
    virtual void yield(int maxWaitMs = 100) = 0;
};

} // namespace kestrova::support
