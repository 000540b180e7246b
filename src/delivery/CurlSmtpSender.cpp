#include "delivery/CurlSmtpSender.h"

#include "delivery/WinsockErrors.h"
#include "support/Host.h"

#include <QLocale>
#include <QUrl>

#include <curl/curl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace kestrova::delivery {

namespace {

// State shared with curl's callbacks for the length of one send.
struct Transfer
{
    QByteArray payload;
    qsizetype offset = 0;
    SmtpEvents* events = nullptr;
    QByteArray replyBuffer;
    QByteArray lastRefusal; // the server's last 4xx or 5xx reply line that may be shown
    bool inAuth = false;
    // Texts that must never reach the echo: the password and every base64 form of the
    // credentials a SASL mechanism could send or a server could reflect.
    QList<QByteArray> secrets;
    curl_socket_t socket = CURL_SOCKET_BAD; // the connection's socket while it is open
};

size_t readPayload(char* buffer, size_t size, size_t count, void* userData)
{
    auto* t = static_cast<Transfer*>(userData);
    const qsizetype room = static_cast<qsizetype>(size * count);
    const qsizetype n = std::min(room, t->payload.size() - t->offset);
    if (n > 0) {
        memcpy(buffer, t->payload.constData() + t->offset, static_cast<size_t>(n));
        t->offset += n;
    }
    return static_cast<size_t>(n);
}

bool carriesSecret(const Transfer& t, const QByteArray& line)
{
    for (const QByteArray& s : t.secrets) {
        if (!s.isEmpty() && line.contains(s)) {
            return true;
        }
    }
    return false;
}

void echoReplies(Transfer& t)
{
    qsizetype eol;
    while ((eol = t.replyBuffer.indexOf("\r\n")) >= 0) {
        const QByteArray line = t.replyBuffer.left(eol);
        t.replyBuffer.remove(0, eol + 2);
        // Challenges of the log-on exchange (334) are base64 and may reflect what we sent.
        if (t.inAuth && line.startsWith("334")) {
            continue;
        }
        if (t.inAuth && !line.startsWith("334")) {
            t.inAuth = false;
        }
        if (carriesSecret(t, line)) {
            continue;
        }
        if (line.startsWith('4') || line.startsWith('5')) {
            t.lastRefusal = line;
        }
        if (t.events) {
            t.events->smtpDataReceived(QString::fromUtf8(line));
        }
    }
}

int debugCallback(CURL*, curl_infotype type, char* data, size_t size, void* userData)
{
    auto* t = static_cast<Transfer*>(userData);
    if (type == CURLINFO_HEADER_OUT) {
        // Only watched to know when the log-on exchange starts; never echoed.
        if (QByteArray::fromRawData(data, static_cast<qsizetype>(size)).startsWith("AUTH ")) {
            t->inAuth = true;
        }
    } else if (type == CURLINFO_HEADER_IN) {
        t->replyBuffer.append(data, static_cast<qsizetype>(size));
        echoReplies(*t);
    }
    return 0;
}

int noteSocket(void* userData, curl_socket_t socket, curlsocktype)
{
    static_cast<Transfer*>(userData)->socket = socket;
    return CURL_SOCKOPT_OK;
}

int closeSocket(void* userData, curl_socket_t socket)
{
    auto* t = static_cast<Transfer*>(userData);
    if (t->socket == socket) {
        t->socket = CURL_SOCKET_BAD;
    }
    const int rc = ::close(socket);
    if (t->events) {
        t->events->smtpSocketClosed(QStringLiteral("Connection closed"));
    }
    return rc;
}

QString rfc2822Date(const QDateTime& when)
{
    const QDateTime t = when.isValid() ? when : QDateTime::currentDateTime();
    const int offsetSecs = t.offsetFromUtc();
    const int offsetMin = std::abs(offsetSecs) / 60;
    const QString zone = QString::asprintf("%c%02d%02d", offsetSecs < 0 ? '-' : '+', offsetMin / 60, offsetMin % 60);
    return QLocale::c().toString(t, QStringLiteral("ddd, d MMM yyyy HH:mm:ss ")) + zone;
}

// The failure of one send in plain words, naming the server: what a user reads on the
// error output or the status list. The server's own reply wherever it gave one.
QString describeFailure(CURLcode result, long responseCode, long osErrno, const Transfer& t, const QString& server,
                        int timeoutSeconds, const char* detail)
{
    const QString reply = QString::fromUtf8(t.lastRefusal).trimmed();
    const QString smtp = QStringLiteral("SMTP server ") + server;
    if (responseCode >= 400) {
        return smtp + QStringLiteral(" refused the mail: ") + (reply.isEmpty() ? QString::number(responseCode) : reply);
    }
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return QStringLiteral("could not resolve ") + server.section(u':', 0, 0);
    case CURLE_COULDNT_CONNECT:
        return QStringLiteral("could not connect to ") + smtp + QStringLiteral(": ") +
               (osErrno == ECONNREFUSED ? QStringLiteral("connection refused") : QString::fromLocal8Bit(detail));
    case CURLE_OPERATION_TIMEDOUT:
        return smtp + QStringLiteral(" timed out after ") + QString::number(timeoutSeconds) + QStringLiteral(" s");
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
        return QStringLiteral("TLS handshake with ") + smtp + QStringLiteral(" failed: ") +
               QString::fromLocal8Bit(detail);
    case CURLE_USE_SSL_FAILED:
        return smtp + QStringLiteral(" does not offer STARTTLS");
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_PARTIAL_FILE:
        return smtp + QStringLiteral(" closed or reset the connection") +
               (t.offset > 0 ? QStringLiteral(" while the mail was sent") : QString());
    default:
        return smtp + QStringLiteral(": ") +
               (*detail ? QString::fromLocal8Bit(detail) : QString::fromLatin1(curl_easy_strerror(result)));
    }
}

struct CurlEasyDeleter
{
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
struct CurlMultiDeleter
{
    void operator()(CURLM* m) const { curl_multi_cleanup(m); }
};
struct SlistDeleter
{
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

} // namespace

CurlSmtpSender::CurlSmtpSender(support::Host& host) : m_host(host) {}

QByteArray CurlSmtpSender::composeMessage(const SmtpMail& mail, const QString& messageId)
{
    QByteArray out;
    out += "Date: " + rfc2822Date(mail.date).toLatin1() + "\r\n";
    out += "From: " + mail.from.toUtf8() + "\r\n";
    out += "To: " + mail.recipient.toUtf8() + "\r\n";
    out += "Message-ID: " + messageId.toUtf8() + "\r\n";
    bool ascii = true;
    for (QChar c : mail.body) {
        if (c.unicode() > 0x7e) {
            ascii = false;
            break;
        }
    }
    if (!ascii) {
        out += "MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n";
    }
    out += "\r\n";
    // The piece is the mail's one line; the line end is its own, not the terminator's.
    out += mail.body.toUtf8() + "\r\n";
    return out;
}

int CurlSmtpSender::send(const SmtpMail& mail, SmtpEvents* events)
{
    Transfer t;
    t.events = events;
    const QString idDomain = mail.domain.isEmpty() ? QStringLiteral("localhost") : mail.domain;
    const QDateTime stamp = mail.date.isValid() ? mail.date : QDateTime::currentDateTime();
    const QString messageId =
        QStringLiteral("<%1.%2.%3@%4>").arg(stamp.toMSecsSinceEpoch()).arg(::getpid()).arg(++m_sequence).arg(idDomain);
    t.payload = composeMessage(mail, messageId);
    if (!mail.password.isEmpty()) {
        const QByteArray pw = mail.password.toUtf8();
        const QByteArray user = mail.user.toUtf8();
        t.secrets << pw << pw.toBase64() << QByteArray(user + '\0' + pw).toBase64()
                  << QByteArray('\0' + user + '\0' + pw).toBase64();
    }

    std::unique_ptr<CURL, CurlEasyDeleter> easy(curl_easy_init());
    std::unique_ptr<CURLM, CurlMultiDeleter> multi(curl_multi_init());
    if (!easy || !multi) {
        return 10093;
    }
    const QString scheme =
        mail.security == MailSecurity::ImplicitTls ? QStringLiteral("smtps") : QStringLiteral("smtp");
    QUrl url;
    url.setScheme(scheme);
    url.setHost(mail.server);
    url.setPort(mail.port);
    // curl announces the URL's path in EHLO.
    url.setPath(u'/' + (mail.domain.isEmpty() ? QStringLiteral("localhost") : mail.domain));
    const QByteArray urlBytes = url.toEncoded();
    const QByteArray from = '<' + mail.from.toUtf8() + '>';
    std::unique_ptr<curl_slist, SlistDeleter> rcpt(
        curl_slist_append(nullptr, QByteArray('<' + mail.recipient.toUtf8() + '>').constData()));
    const QByteArray user = mail.user.toUtf8();
    const QByteArray password = mail.password.toUtf8();
    const QByteArray caFile = m_caFile.toLocal8Bit();

    CURL* c = easy.get();
    curl_easy_setopt(c, CURLOPT_URL, urlBytes.constData());
    curl_easy_setopt(c, CURLOPT_MAIL_FROM, from.constData());
    curl_easy_setopt(c, CURLOPT_MAIL_RCPT, rcpt.get());
    curl_easy_setopt(c, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(c, CURLOPT_READFUNCTION, &readPayload);
    curl_easy_setopt(c, CURLOPT_READDATA, &t);
    curl_easy_setopt(c, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(t.payload.size()));
    curl_easy_setopt(c, CURLOPT_VERBOSE, 1L);
    curl_easy_setopt(c, CURLOPT_DEBUGFUNCTION, &debugCallback);
    curl_easy_setopt(c, CURLOPT_DEBUGDATA, &t);
    curl_easy_setopt(c, CURLOPT_CLOSESOCKETFUNCTION, &closeSocket);
    curl_easy_setopt(c, CURLOPT_CLOSESOCKETDATA, &t);
    curl_easy_setopt(c, CURLOPT_SOCKOPTFUNCTION, &noteSocket);
    curl_easy_setopt(c, CURLOPT_SOCKOPTDATA, &t);
    curl_easy_setopt(c, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, 30L);
    curl_easy_setopt(c, CURLOPT_TIMEOUT, static_cast<long>(m_timeoutSeconds));
    if (mail.security == MailSecurity::StartTls) {
        curl_easy_setopt(c, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    }
    if (!caFile.isEmpty()) {
        curl_easy_setopt(c, CURLOPT_CAINFO, caFile.constData());
    }
    if (!user.isEmpty()) {
        curl_easy_setopt(c, CURLOPT_USERNAME, user.constData());
        curl_easy_setopt(c, CURLOPT_PASSWORD, password.constData());
    }

    char errorText[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, errorText);

    m_failure.clear();
    curl_multi_add_handle(multi.get(), c);
    CURLcode result = CURLE_OK;
    for (;;) {
        int running = 0;
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
            result = CURLE_FAILED_INIT;
            break;
        }
        int queued = 0;
        bool done = false;
        while (CURLMsg* msg = curl_multi_info_read(multi.get(), &queued)) {
            if (msg->msg == CURLMSG_DONE) {
                result = msg->data.result;
                done = true;
            }
        }
        if (done || running == 0) {
            break;
        }
        curl_multi_poll(multi.get(), nullptr, 0, 100, nullptr);
        m_host.yield(0);
        if (m_cancelled && m_cancelled()) {
            result = CURLE_ABORTED_BY_CALLBACK;
            break;
        }
    }
    long responseCode = 0;
    long osErrno = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &responseCode);
    curl_easy_getinfo(c, CURLINFO_OS_ERRNO, &osErrno);
    if (result == CURLE_ABORTED_BY_CALLBACK) {
        // Removing the handle says QUIT and waits for the answer, blocking, up to the
        // transfer time-out: a server that never answers held a cancelled page for 30 s.
        // With the socket shut down that wait ends at once.
        if (t.socket != CURL_SOCKET_BAD) {
            ::shutdown(t.socket, SHUT_RDWR);
        }
    }
    curl_multi_remove_handle(multi.get(), c);
    easy.reset(); // closes the connection, which reports the socket closed
    if (!t.replyBuffer.isEmpty()) {
        t.replyBuffer.append("\r\n");
        echoReplies(t);
    }

    if (result == CURLE_OK) {
        return 0;
    }
    if (result != CURLE_ABORTED_BY_CALLBACK) {
        m_failure = describeFailure(result, responseCode, osErrno, t, mail.server + u':' + QString::number(mail.port),
                                    m_timeoutSeconds, errorText);
    }
    if (responseCode >= 400) {
        return static_cast<int>(responseCode);
    }
    if (const int ws = winsockFromCurl(result, osErrno); ws != 0) {
        if (events) {
            events->smtpSocketError(ws);
        }
        return ws;
    }
    return static_cast<int>(result);
}

} // namespace kestrova::delivery
