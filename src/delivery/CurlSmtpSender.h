#pragma once

#include "delivery/SmtpSender.h"

#include <functional>

namespace kestrova::support {
class Host;
}

namespace kestrova::delivery {

// SMTP over libcurl's multi interface: the transfer advances in rounds of at most 100 ms
// of socket waiting, each followed by a yield to the face, so the status window stays
// alive during a slow server.
class CurlSmtpSender final : public SmtpSender
{
public:
    explicit CurlSmtpSender(support::Host& host);

    int send(const SmtpMail& mail, SmtpEvents* events) override;
    QString lastFailure() const override { return m_failure; }

    // Certificate authorities for TLS (PEM file); empty uses the system's.
    void setCaFile(const QString& path) { m_caFile = path; }
    // Bounds a whole mail transfer so a server that stops answering cannot hold us.
    void setTimeoutSeconds(int seconds) { m_timeoutSeconds = seconds; }
    // Asked between polls: true drops the transfer at once (a Cancel, a signal).
    void setCancelCheck(std::function<bool()> cancelled) { m_cancelled = std::move(cancelled); }

    // The complete message text handed to the server: headers, a blank line, the body.
    static QByteArray composeMessage(const SmtpMail& mail, const QString& messageId);

private:
    support::Host& m_host;
    QString m_caFile;
    int m_timeoutSeconds = 60;
    int m_sequence = 0;
    std::function<bool()> m_cancelled;
    QString m_failure;
};

} // namespace kestrova::delivery
