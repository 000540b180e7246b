#pragma once

#include "support/Host.h"

#include <QString>

namespace kestrova::support {

// The secrets this process holds (quote source keys, the push token, mail and log-on
// passwords), so that no text the program shows or logs carries one: a service that quotes
// the request back ("bad request /q?s=IBM&apikey=...") or a server that echoes a log-on
// gets "***" in its place, on the console, in the status list, the terminal window and the
// activity log alike. Secrets shorter than kMinSecretLength are not looked for: they would
// blank out ordinary words of every line.
constexpr int kMinSecretLength = 4;

// Remembers a secret (and its percent-encoded form, as it travels in a URL) for the rest
// of the process. Empty and short texts are ignored. Thread-safe.
void rememberSecret(const QString& secret);
// The text with every remembered secret replaced by "***", longest first.
QString redactSecrets(const QString& text);
// For tests that need a fresh start.
void forgetSecrets();

// A face as the engine talks to it: every text passes redactSecrets before the face
// behind it shows it.
class RedactingHost final : public Host
{
public:
    explicit RedactingHost(Host& face) : m_face(face) {}

    void appendStatusLine(const QString& line) override;
    void setStatusText(const QString& text) override;
    void setProgress(const QString& percent, const QString& text) override;
    void terminalEcho(const QString& text) override;
    MsgAnswer messageBox(const QString& text, MsgButtons buttons, MsgIcon icon) override;
    QString inputBox(const QString& prompt, const QString& defaultText) override;
    QString saveFileName(const QString& title, const QString& filter, const QString& defaultSuffix) override;
    void reportFailure(const QString& text) override;
    void setBusy(bool busy) override;
    bool openUrl(const QString& url) override;
    void yield(int maxWaitMs) override;

    Host& face() { return m_face; }

private:
    Host& m_face;
};

} // namespace kestrova::support
