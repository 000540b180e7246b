#include "delivery/TapPager.h"

#include "core/MailRecords.h"
#include "core/ModemProfiles.h"
#include "core/Options.h"
#include "delivery/ModemLine.h"
#include "delivery/SerialLine.h"
#include "support/CancelFlag.h"
#include "support/Host.h"
#include "support/VbError.h"

namespace kestrova::delivery {

namespace {
constexpr QChar kStx(2);
constexpr QChar kEtx(3);
constexpr QChar kEot(4);
constexpr QChar kAck(6);
constexpr QChar kEsc(27);
constexpr QChar kCr(13);
constexpr int kMaxBlock = 256;
constexpr int kLogonTries = 6;

QString resultText(qint16 code)
{
    switch (code) {
    case ResultInitFailed:
        return QStringLiteral("Pager: Could Not Initialize Modem");
    case ResultNoConnection:
        return QStringLiteral("Pager: Could not connect w/ Service");
    case ResultCancelled:
        return QStringLiteral("Pager: User Cancelled");
    case ResultNoDialtone:
        return QStringLiteral("Pager: No Dialtone");
    case ResultBusy:
        return QStringLiteral("Pager: Busy");
    case ResultPortUnavailable:
        return QStringLiteral("Comm Port Unavailable");
    case ResultNoLogon:
        return QStringLiteral("Pager: Unable to logon.");
    case ResultNotAcknowledged:
        return QStringLiteral("Pager: Message was not sent.");
    case ResultLogonRefused:
        return QStringLiteral("Pager: Logon was not accepted.");
    default:
        return {};
    }
}
} // namespace

TapPager::TapPager(ModemLine& modem, const core::Options& options, const core::MailBox* mail)
    : m_modem(modem), m_options(options), m_mail(mail)
{}

qint16 TapPager::result() const
{
    return m_modem.result();
}

QString TapPager::buildBlock(const QString& pagerId, const QString& text)
{
    QString block = kStx + pagerId + kCr + text + kCr + kEtx;
    return block + tapChecksum(block) + kCr;
}

QString TapPager::mailPageText(const core::Options& options, const core::MailBox& mail, int record)
{
    const core::MailRecord& r = mail.records.at(static_cast<std::size_t>(record));
    if (options.mail.mode == 1) {
        return r.date.trimmed() + u':' + r.text;
    }
    if (!options.mail.pageHeaders) {
        return {};
    }
    return r.date.trimmed() + QStringLiteral("|From:") + r.sender + QStringLiteral("|Subject:") + r.subject;
}

QString TapPager::SendPage(const QString& message)
{
    return send(message, false);
}

QString TapPager::SendEmailPage()
{
    return send(QString(), true);
}

QString TapPager::send(const QString& message, bool mailOnly)
{
    const support::Services& s = m_modem.services();
    SerialLine& line = m_modem.serial();
    if (m_options.paging.pagerId.isEmpty()) {
        s.host.messageBox(QStringLiteral("You must define your pager ID #."));
        return {};
    }
    if (m_options.paging.phone.isEmpty()) {
        s.host.messageBox(QStringLiteral("You must define your paging service phone #."));
        return {};
    }
    try {
        QString last;
        for (int attempt = 1; attempt <= m_options.paging.retries; ++attempt) {
            if (attempt > 1) {
                m_modem.showStatus(QStringLiteral("Retrying"));
                m_modem.pause(m_options.paging.retrySeconds);
                if (s.cancel.isSet()) {
                    m_modem.setResult(ResultCancelled);
                }
            }
            // A send that is already talking to the modem (a timer re-entering us during
            // one of its waits) owns the port; leave it alone.
            if (line.isOpen()) {
                return {};
            }
            line.setSettings(m_options.modem.settings);
            line.setPort(m_options.modem.port);
            const QString init = core::selectedModemProfile(m_options.modem).pagerInit;
            if (m_modem.initialize(init) == ResultOk) {
                m_modem.pause(2);
                if (m_modem.dial(m_options.paging.phone) == ResultOk) {
                    m_modem.setResult(session(message, mailOnly));
                }
            }
            const qint16 code = m_modem.result();
            if (code == ResultOk) {
                QString text =
                    mailOnly ? QStringLiteral("Pager: Email Message Sent") : QStringLiteral("Pager: Message Sent");
                if (!mailOnly && m_pages.count() >= 2) {
                    text += QStringLiteral(" (") + QString::number(m_pages.count()) + QStringLiteral(" Pages)");
                }
                s.StatusMessage(text);
                return text;
            }
            switch (code) {
            case ResultPortUnavailable:
                // Nothing was opened, so there is nothing to hang up, and another try would
                // find the port just as busy.
                s.StatusMessage(resultText(code));
                return resultText(code);
            case ResultCancelled:
                s.StatusMessage(resultText(code));
                m_modem.hangUp();
                return resultText(code);
            default:
                last = resultText(code);
                if (!last.isEmpty()) {
                    s.StatusMessage(last);
                }
                m_modem.hangUp();
                break;
            }
        }
        return last;
    } catch (const support::VbError& e) {
        const QString text = QStringLiteral("Pager::SendPage:") + e.description();
        s.StatusMessage(text);
        if (line.isOpen()) {
            line.close();
        }
        return text;
    }
}

qint16 TapPager::failed(qint16 code) const
{
    return m_modem.services().cancel.isSet() ? qint16(ResultCancelled) : code;
}

qint16 TapPager::logon(QString& received)
{
    int crCount = 0;
    for (;;) {
        m_modem.pause(0.5);
        if (m_modem.waitForText(QStringLiteral("ID"), 3, received)) {
            m_modem.showStatus(QStringLiteral("Logging On"));
            m_modem.clearInput();
            m_modem.sendText(kEsc + QStringLiteral("PG1") + kCr);
            return ResultOk;
        }
        m_modem.sendText(QString(kCr));
        ++crCount;
        if (received.contains(QStringLiteral("NO CARRIER"))) {
            return failed(ResultNoConnection);
        }
        if (crCount == kLogonTries) {
            return failed(ResultNoLogon);
        }
    }
}

qint16 TapPager::sendPages(const PageTable& pages, const QString& statusPrefix, QString& received)
{
    for (int n = 1; n <= pages.count(); ++n) {
        m_modem.showStatus(statusPrefix + QString::number(n));
        const QString block = buildBlock(m_options.paging.pagerId, pages.pages.at(n - 1));
        if (block.size() > kMaxBlock) {
            return failed(ResultBlockTooLong);
        }
        m_modem.clearInput();
        m_modem.sendText(block);
        m_modem.pause(1);
        received.clear();
        if (!m_modem.waitForText(QString(kAck), 10, received)) {
            return failed(ResultNotAcknowledged);
        }
        if (statusPrefix.startsWith(QStringLiteral("Sending Message"))) {
            m_modem.showStatus(QStringLiteral("Message Sent - Page ") + QString::number(n));
        }
    }
    return ResultOk;
}

qint16 TapPager::session(const QString& message, bool mailOnly)
{
    m_modem.showStatus(QStringLiteral("Connected to Paging Service"));
    if (!mailOnly) {
        m_pages = splitPages(message, m_options.paging.maxLength, true);
    }
    QString received;
    if (const qint16 r = logon(received); r != ResultOk) {
        return r;
    }
    m_modem.pause(1);
    received.clear();
    if (!m_modem.waitForText(kEsc + QStringLiteral("[p"), 10, received)) {
        return failed(ResultLogonRefused);
    }
    if (!mailOnly) {
        if (const qint16 r = sendPages(m_pages, QStringLiteral("Sending Message - Page "), received); r != ResultOk) {
            return r;
        }
    }
    const bool forward = mailOnly || m_options.paging.forwardMail;
    if (forward && m_mail && m_mail->mailWaiting && m_mail->messageCount > 0) {
        const int count = std::min<int>(m_mail->messageCount, core::MailBox::kMaxRecords);
        for (int rec = 1; rec <= count; ++rec) {
            if (!m_mail->records.at(static_cast<std::size_t>(rec)).isNew) {
                continue;
            }
            const QString text = mailPageText(m_options, *m_mail, rec);
            if (text.isEmpty()) {
                break;
            }
            const PageTable mailPages = splitPages(text, m_options.paging.maxLength, true);
            if (const qint16 r = sendPages(mailPages, QStringLiteral("Sending Mail Message - Page "), received);
                r != ResultOk) {
                return r;
            }
            m_modem.showStatus(QStringLiteral("EMail Message #") + QString::number(rec) + QStringLiteral(" Sent"));
        }
    }
    m_modem.sendText(QString(kEot) + kCr);
    m_modem.pause(1);
    m_modem.hangUp();
    return ResultOk;
}

} // namespace kestrova::delivery
