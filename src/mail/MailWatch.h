#pragma once

#include "core/MailRecords.h"
#include "core/Options.h"
#include "mail/PopClient.h"

#include <functional>

namespace kestrova::support {
struct Services;
}

namespace kestrova::mail {

// The program-wide preferences the mail check reads (the settings store keeps them).
struct MailWatchSettings
{
    bool checkMail = true;
    int mailSizeKb = 20; // MailSize
};

// Looks into the POP mailbox: counts the messages, reads each one's headers with TOP,
// decides which are new since the previous check and downloads those below the size
// limit. The mail records live in the MailBox it is given and persist between checks.
class MailWatch final : public PopEvents
{
public:
    MailWatch(const support::Services& services, const core::MailOptions& options, const MailWatchSettings& settings,
              core::MailBox& box, PopClient& client);

    void checkMail(bool download);
    bool connectToMailServer();
    bool getHeaders(int message, int lines);
    void receiveMessage(int message);
    bool isNewMessage(const QString& reply) const;

    // Header value: the whole reply is lower-cased, the value starts a fixed distance after
    // the key and runs to the next CR.
    static QString headerField(const QString& reply, const QString& key);
    static QString messageIdOf(const QString& reply) { return headerField(reply, QStringLiteral("message-id:")); }
    static QString senderOf(const QString& reply) { return headerField(reply, QStringLiteral("from:")); }
    static QString subjectOf(const QString& reply) { return headerField(reply, QStringLiteral("subject: ")); }
    static QString dateOf(const QString& reply) { return headerField(reply, QStringLiteral("date: ")); }
    static qint64 sizeOf(const QString& reply);
    // The e-mail marker put in front of a page text while mail is waiting.
    static QString addEmailMarker(const QString& pageText, const core::MailBox& box, const core::MailOptions& options);

    bool popError() const { return m_popError; }

    // Called when the count and the mail-waiting flag have changed, so the face can
    // refresh its e-mail display.
    std::function<void()> mailDisplayChanged;

    // PopEvents
    void popDataReceived(const QByteArray& data) override;
    void popPacketSent() override;
    void popSocketClosed() override;
    void popSocketError(int winsockNumber) override;

private:
    // One failure line: "POP3 server rejected WHAT: <its -ERR line>" when the server said
    // no, else the transport's reason and the command it broke off.
    void reportFailure(const QString& what, const QString& command);

    const support::Services& m_services;
    const core::MailOptions& m_options;
    const MailWatchSettings& m_settings;
    core::MailBox& m_box;
    PopClient& m_client;
    bool m_popError = false;
    bool m_closed = false;
    int m_previousCount = 0;
    QString m_lastData;
};

} // namespace kestrova::mail
