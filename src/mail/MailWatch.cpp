#include "mail/MailWatch.h"

#include "delivery/WinsockErrors.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/Services.h"
#include "support/VbError.h"

#include <functional>
#include <limits>

namespace kestrova::mail {

namespace {
constexpr int kCountWaitSeconds = 60;
}

MailWatch::MailWatch(const support::Services& services, const core::MailOptions& options,
                     const MailWatchSettings& settings, core::MailBox& box, PopClient& client)
    : m_services(services), m_options(options), m_settings(settings), m_box(box), m_client(client)
{
    m_client.setEvents(this);
}

QString MailWatch::headerField(const QString& reply, const QString& key)
{
    const QString lower = reply.toLower();
    const qsizetype at = lower.indexOf(key);
    if (at < 0) {
        return {};
    }
    qsizetype offset = 6;
    if (key == QLatin1String("message-id:")) {
        offset = 12;
    } else if (key == QLatin1String("subject: ")) {
        offset = 9;
    }
    const qsizetype start = at + offset;
    const qsizetype end = lower.indexOf(u'\r', start);
    if (end < 0) {
        return {};
    }
    return lower.mid(start, end - start);
}

qint64 MailWatch::sizeOf(const QString& reply)
{
    const qsizetype ok = reply.indexOf(QStringLiteral("+OK"));
    if (ok < 0) {
        return 0;
    }
    const qsizetype octets = reply.indexOf(QStringLiteral("octets"), ok + 3);
    if (octets < 0) {
        return 0;
    }
    // The number that leads the text in between counts; what follows it does not, so a bare
    // "+OK 77" line still gives 77 when the word turns up only in a later header. A size no
    // message can have (negative, or past what a qint64 holds) counts as not stated.
    const double stated = support::leadingNumber(QStringView(reply).mid(ok + 3, octets - ok - 3));
    return support::wholeNumberIn(stated, 0, std::numeric_limits<qint64>::max()).value_or(0);
}

QString MailWatch::addEmailMarker(const QString& pageText, const core::MailBox& box, const core::MailOptions& options)
{
    const QChar after = options.markerComma ? u',' : u' ';
    if (options.mode < 2) {
        return QStringLiteral("<EMAIL> ") + (options.markerComma ? QStringLiteral(",") : QString()) + pageText;
    }
    return QStringLiteral("<EMAIL") + QString::number(box.messageCount) + u'>' + after + pageText;
}

bool MailWatch::isNewMessage(const QString& reply) const
{
    const QString id = messageIdOf(reply);
    for (int r = 1; r <= core::MailBox::kMaxRecords; ++r) {
        if (m_box.records[static_cast<size_t>(r)].messageId == id) {
            return false;
        }
        if (r == m_previousCount) {
            break;
        }
    }
    return true;
}

bool MailWatch::connectToMailServer()
{
    m_box.countKnown = false;
    m_closed = false;
    m_services.StatusMessage(QStringLiteral("Connecting to Mail Server"));
    const int socket = m_client.open(m_options.server, static_cast<quint16>(m_options.port),
                                     static_cast<PopSecurity>(std::clamp<int>(m_options.security, 0, 2)));
    if (socket < 1) {
        m_services.log.LogMessage(QStringLiteral("Invalid socket number"));
        reportFailure(QStringLiteral("the connection"), {});
        m_client.close();
        return false;
    }
    if (m_popError) {
        m_client.close();
        return false;
    }
    int count = 0;
    struct Step
    {
        const char* what;
        const char* command;
        std::function<int()> run;
    };
    const Step steps[] = {
        {"the user name", "USER", [&] { return m_client.user(m_options.user); }},
        {"the password", "PASS", [&] { return m_client.pass(m_options.password); }},
        {"STAT", "STAT", [&] { return m_client.stat(&count); }},
    };
    for (const Step& step : steps) {
        if (step.run() != 0 || m_popError) {
            reportFailure(QString::fromLatin1(step.what), QString::fromLatin1(step.command));
            m_client.close();
            return false;
        }
    }
    // The message count is known.
    m_box.messageCount = static_cast<qint16>(std::min(count, 32767));
    m_box.countKnown = true;
    return true;
}

bool MailWatch::getHeaders(int message, int lines)
{
    if (message < 1 || message > core::MailBox::kMaxRecords) {
        throw support::VbError(support::VbError::Subscript);
    }
    QByteArray raw;
    const int rc = m_client.rawCommand("TOP " + QByteArray::number(message) + ' ' + QByteArray::number(lines), true, &raw);
    const QString reply = QString::fromLatin1(raw);
    core::MailRecord& r = m_box.records[static_cast<size_t>(message)];
    r.isNew = isNewMessage(reply);
    r.messageId = messageIdOf(reply);
    r.date = dateOf(reply);
    r.sender = senderOf(reply);
    r.subject = subjectOf(reply);
    r.size = sizeOf(reply);
    if (r.size == 0 && reply.startsWith(QLatin1String("+OK"))) {
        // Not every server states the size on its TOP line; ask for it.
        qint64 octets = 0;
        if (m_client.list(message, &octets) == 0) {
            r.size = octets;
        }
    }
    r.headerText = reply;
    // A reply cut off by a hang-up still starts "+OK": what came of it is kept above.
    if (rc != 0 || !reply.startsWith(QLatin1String("+OK"))) {
        const QString top = QStringLiteral("TOP ") + QString::number(message);
        reportFailure(top, top);
        return false;
    }
    return true;
}

void MailWatch::reportFailure(const QString& what, const QString& command)
{
    const QString why = m_client.failure();
    if (why.isEmpty() || m_services.cancelled()) {
        return;
    }
    if (m_client.rejected()) {
        m_services.Failure(QStringLiteral("POP3 server rejected ") + what + QStringLiteral(": ") + why);
    } else {
        m_services.Failure(command.isEmpty() ? why : why + QStringLiteral(" during ") + command);
    }
}

void MailWatch::receiveMessage(int message)
{
    m_services.StatusMessage(QStringLiteral("Receiving Message #") + QString::number(message));
    QByteArray text;
    if (m_client.retrieve(message, &text) == 0) {
        m_box.records[static_cast<size_t>(message)].text = QString::fromLatin1(text);
    } else {
        m_services.log.LogMessage(QStringLiteral("Failed to receive message #") + QString::number(message));
    }
}

void MailWatch::checkMail(bool download)
{
    m_popError = false;
    if (!m_settings.checkMail) {
        return;
    }
    const support::Services& s = m_services;
    m_previousCount = m_box.messageCount;
    s.log.LogMessage(QStringLiteral("Checking Mail..."));
    if (connectToMailServer()) {
        const QDateTime deadline = s.clock.now().addSecs(kCountWaitSeconds);
        while (!m_box.countKnown && !m_closed && !s.cancelled() && !m_popError && s.clock.now() < deadline) {
            s.host.yield(100);
        }
    }
    if (m_box.countKnown) {
        if (m_box.messageCount < 1) {
            s.StatusMessage(QStringLiteral("No Mail Waiting"));
            s.log.LogMessage(download ? QStringLiteral("Internet: No Mail Retrieved")
                                      : QStringLiteral("Internet: No Mail Waiting"));
            m_box.mailWaiting = false;
        } else {
            s.StatusMessage(QStringLiteral("Messages Waiting = ") + QString::number(m_box.messageCount));
            s.log.LogMessage(download ? QStringLiteral("Internet: Mail Retrieved")
                                      : QStringLiteral("Internet: Mail Waiting"));
            m_box.mailWaiting = true;
        }
        if (mailDisplayChanged) {
            mailDisplayChanged();
        }
        if (download) {
            try {
                for (int n = 1; n <= m_box.messageCount; ++n) {
                    if (s.cancelled()) {
                        break;
                    }
                    // After a hang-up every further TOP would fail the same way.
                    if (!getHeaders(n, 0) && !m_client.isOpen()) {
                        break;
                    }
                    const core::MailRecord& r = m_box.records[static_cast<size_t>(n)];
                    if (!r.isNew) {
                        continue;
                    }
                    if (r.size >= static_cast<qint64>(m_settings.mailSizeKb) * 1024) {
                        s.log.LogMessage(QStringLiteral("Message #") + QString::number(n) +
                                         QStringLiteral(" was skipped due to size."));
                    } else {
                        receiveMessage(n);
                    }
                }
            } catch (const support::VbError& e) {
                s.log.LogMessage(QStringLiteral("Check Mail: ") + support::VbError::standardText(e.number()));
            }
        }
    }
    m_client.close();
}

void MailWatch::popDataReceived(const QByteArray& data)
{
    m_lastData = QString::fromLatin1(data);
    m_services.host.terminalEcho(QStringLiteral("POP Recv: ") + m_lastData + QStringLiteral("\r\n"));
}

void MailWatch::popPacketSent()
{
    m_services.host.terminalEcho(QStringLiteral("POP Packet Sent: \r\n"));
}

void MailWatch::popSocketClosed()
{
    m_closed = true;
    m_services.host.terminalEcho(QStringLiteral("POP Socket Closed...: \r\n"));
}

void MailWatch::popSocketError(int winsockNumber)
{
    const QString text = delivery::winsockErrorText(winsockNumber);
    m_services.log.LogMessage(QStringLiteral("Winsock Error using POP: ") + text);
    m_services.host.terminalEcho(QStringLiteral("POP Winsock Error ") + QString::number(winsockNumber) + u' ' + text +
                                 QStringLiteral("\r\n"));
    m_popError = true;
}

} // namespace kestrova::mail
