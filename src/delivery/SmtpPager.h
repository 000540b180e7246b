#pragma once

#include "core/MailRecords.h"
#include "core/Options.h"
#include "delivery/PageTable.h"
#include "delivery/SmtpSender.h"

namespace kestrova::support {
struct Services;
}
namespace kestrova::net {
class InternetConnection;
}

namespace kestrova::delivery {

// Pages by e-mail: splits the text into mail-sized pieces and mails each piece, in up to
// four rounds, through an SMTP client.
class SmtpPager final : public SmtpEvents
{
public:
    // connection may be null when there is nothing to bring up (tests, a direct line).
    SmtpPager(const support::Services& services, const core::Options& options, SmtpSender& sender,
              net::InternetConnection* connection = nullptr);

    // send SMTP message. Returns true when every piece went through in the first round.
    // A recipient, when given, replaces the configured one for this call only.
    bool sendSmtpMessage(const QString& text, const QString& recipient = {});
    // send e-mail messages: forwards the headers of new mail.
    void sendEmailMessages(const core::MailBox& box);

    // The page text for one mail record, as both paging routes build it. An empty result
    // with *stop set means no further record is to be paged.
    static QString mailPageText(const core::MailRecord& record, const core::MailOptions& mail, bool* stop);

    const PageTable& pages() const { return m_pages; }

    // SmtpEvents
    void smtpDataReceived(const QString& data) override;
    void smtpSocketClosed(const QString& detail) override;
    void smtpSocketError(int winsockNumber) override;

private:
    const support::Services& m_services;
    const core::Options& m_options;
    SmtpSender& m_sender;
    net::InternetConnection* m_connection;
    PageTable m_pages;
};

} // namespace kestrova::delivery
