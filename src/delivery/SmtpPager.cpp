#include "delivery/SmtpPager.h"

#include "delivery/MailServers.h"
#include "delivery/WinsockErrors.h"
#include "net/InternetConnection.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Host.h"
#include "support/Services.h"
#include "support/VbError.h"

namespace kestrova::delivery {

namespace {
constexpr int kRounds = 4;
constexpr qint16 kDirect = 1;
} // namespace

SmtpPager::SmtpPager(const support::Services& services, const core::Options& options, SmtpSender& sender,
                     net::InternetConnection* connection)
    : m_services(services), m_options(options), m_sender(sender), m_connection(connection)
{}

bool SmtpPager::sendSmtpMessage(const QString& text, const QString& recipient)
{
    const support::Services& s = m_services;
    s.host.setStatusText(QStringLiteral("Connecting to SMTP Server"));
    if (m_options.connection.type != kDirect && m_connection && !m_connection->connect()) {
        return false;
    }

    const core::SmtpOptions& o = m_options.smtp;
    SmtpMail mail = smtpMailFor(o);
    if (!recipient.isEmpty()) {
        mail.recipient = recipient;
    }

    try {
        m_pages = splitPages(text, o.maxLength, false);
    } catch (const support::VbError& e) {
        // More pieces than the page table holds: nothing is sent.
        m_pages = {};
        s.log.LogMessage(QStringLiteral("SendSMTPMessage: ") + support::VbError::standardText(e.number()));
        return false;
    }

    // Set once and never cleared: a failure in any round makes all four rounds run and
    // ends in the failure line, even when a later round got every piece through.
    int failed = 0;
    QStringList reported; // each cause once per message, however many rounds meet it
    for (int round = 1; round <= kRounds; ++round) {
        s.StatusMessage(QStringLiteral("Connecting to SMTP Server"));
        for (int i = 1; i <= m_pages.count(); ++i) {
            if (s.cancelled()) {
                return false;
            }
            mail.body = m_pages.pages[i - 1];
            mail.date = s.clock.now();
            s.StatusMessage(QStringLiteral("Sending Message #") + QString::number(i));
            const int rc = m_sender.send(mail, this);
            if (rc == 0) {
                s.StatusMessage(QStringLiteral("Message #") + QString::number(i) +
                                QStringLiteral(" sent successfully"));
                s.log.LogMessage(QStringLiteral("SMTP Message #") + QString::number(i) +
                                 QStringLiteral(" sent successfully"));
            } else {
                failed = 1;
                const QString why = m_sender.lastFailure();
                if (!why.isEmpty() && !s.cancelled() && !reported.contains(why)) {
                    reported << why;
                    s.Failure(why);
                }
            }
            s.host.yield(0);
        }
        if (failed == 0) {
            return true;
        }
        if (round == kRounds) {
            s.StatusMessage(QStringLiteral("Unable to send message"));
            s.log.LogMessage(QStringLiteral("Unable to send message: Error") + QString::number(failed));
        }
    }
    return false;
}

QString SmtpPager::mailPageText(const core::MailRecord& record, const core::MailOptions& mail, bool* stop)
{
    *stop = false;
    if (mail.mode == 1) {
        return record.date.trimmed() + u':' + record.text;
    }
    if (!mail.pageHeaders) {
        *stop = true;
        return {};
    }
    return record.date.trimmed() + QStringLiteral("|From:") + record.sender + QStringLiteral("|Subject:") +
           record.subject;
}

void SmtpPager::sendEmailMessages(const core::MailBox& box)
{
    if (!m_options.paging.forwardMail || box.messageCount < 1) {
        return;
    }
    const int last = std::min<int>(box.messageCount, core::MailBox::kMaxRecords);
    for (int n = 1; n <= last; ++n) {
        if (m_services.cancelled()) {
            return;
        }
        const core::MailRecord& r = box.records[static_cast<size_t>(n)];
        if (!r.isNew) {
            continue;
        }
        bool stop = false;
        const QString text = mailPageText(r, m_options.mail, &stop);
        if (stop) {
            return;
        }
        m_services.StatusMessage(QStringLiteral("Sending E-Mail Messages"));
        sendSmtpMessage(text);
    }
}

void SmtpPager::smtpDataReceived(const QString& data)
{
    m_services.host.terminalEcho(QStringLiteral("SMTP Recv: ") + data + QStringLiteral("\r\n"));
}

void SmtpPager::smtpSocketClosed(const QString& detail)
{
    m_services.host.terminalEcho(QStringLiteral("SMTP Socket Closed: ") + detail + QStringLiteral("\r\n"));
}

void SmtpPager::smtpSocketError(int winsockNumber)
{
    const QString text = winsockErrorText(winsockNumber);
    m_services.host.terminalEcho(QStringLiteral("SMTP Winsock Error ") + QString::number(winsockNumber) + u' ' + text +
                                 QStringLiteral("\r\n"));
    m_services.log.LogMessage(QStringLiteral("Winsock Error using SMTP: ") + text);
}

} // namespace kestrova::delivery
