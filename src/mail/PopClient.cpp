#include "mail/PopClient.h"

#include "mail/PopReplies.h"

#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Host.h"
#include "support/Services.h"

#include <QSslConfiguration>
#include <QSslSocket>

namespace kestrova::mail {

namespace {

constexpr int kFailed = 1;

} // namespace

PopClient::PopClient(const support::Services& services, QObject* parent) : QObject(parent), m_services(services) {}

PopClient::~PopClient()
{
    m_events = nullptr;
    if (m_socket) {
        m_socket->abort();
    }
}

QSslSocket& PopClient::socket()
{
    if (m_socket) {
        return *m_socket;
    }
    m_socket = new QSslSocket(this);
    connect(m_socket, &QSslSocket::readyRead, this, &PopClient::onReadyRead);
    connect(m_socket, &QAbstractSocket::errorOccurred, this, &PopClient::onError);
    connect(m_socket, &QAbstractSocket::disconnected, this, [this] {
        if (!m_closedReported && m_events) {
            m_closedReported = true;
            m_events->popSocketClosed();
        }
    });
    connect(m_socket, &QAbstractSocket::bytesWritten, this, [this](qint64) {
        if (m_events) {
            m_events->popPacketSent();
        }
    });
    return *m_socket;
}

bool PopClient::isOpen() const
{
    return m_socket && m_socket->state() == QAbstractSocket::ConnectedState;
}

bool PopClient::waitFor(const std::function<bool()>& done)
{
    const QDateTime deadline = m_services.clock.now().addSecs(m_timeoutSeconds);
    while (!done()) {
        if (m_socketError != 0 || m_services.cancelled() || m_services.clock.now() >= deadline ||
            m_socket->state() == QAbstractSocket::UnconnectedState) {
            return done();
        }
        m_services.host.yield(100);
    }
    return true;
}

void PopClient::noteUnfinished()
{
    if (m_services.cancelled()) {
        m_failure.clear();
    } else if (m_socketError != 0) {
        m_failure = QStringLiteral("POP3 server ") + m_server + QStringLiteral(": ") + m_socketErrorText;
    } else if (!m_socket || m_socket->state() == QAbstractSocket::UnconnectedState) {
        m_failure = QStringLiteral("POP3 server ") + m_server + QStringLiteral(" closed the connection");
    } else {
        m_failure = QStringLiteral("POP3 server ") + m_server + QStringLiteral(" did not answer within ") +
                    QString::number(m_timeoutSeconds) + QStringLiteral(" s");
    }
}

int PopClient::open(const QString& host, quint16 port, PopSecurity security)
{
    m_server = host + u':' + QString::number(port);
    m_failure.clear();
    m_rejected = false;
    m_socketErrorText.clear();
    m_socketError = 0;
    m_closing = false;
    m_closedReported = false;
    m_buffer.clear();
    socket();
    if (!m_caFile.isEmpty()) {
        QSslConfiguration conf = m_socket->sslConfiguration();
        conf.setCaCertificates(QSslCertificate::fromPath(m_caFile));
        m_socket->setSslConfiguration(conf);
    }
    if (security == PopSecurity::ImplicitTls) {
        m_socket->connectToHostEncrypted(host, port);
        if (!waitFor([this] { return m_socket->isEncrypted(); })) {
            noteUnfinished();
            m_socket->abort();
            return 0;
        }
    } else {
        m_socket->connectToHost(host, port);
        if (!waitFor([this] { return m_socket->state() == QAbstractSocket::ConnectedState; })) {
            noteUnfinished();
            m_socket->abort();
            return 0;
        }
    }
    QByteArray greeting;
    if (command({}, false, &greeting) != 0) {
        m_socket->abort();
        return 0;
    }
    if (security == PopSecurity::StartTls) {
        QByteArray reply;
        if (command("STLS", false, &reply) != 0) {
            m_socket->abort();
            return 0;
        }
        m_socket->startClientEncryption();
        if (!waitFor([this] { return m_socket->isEncrypted(); })) {
            noteUnfinished();
            m_socket->abort();
            return 0;
        }
    }
    return static_cast<int>(m_socket->socketDescriptor());
}

int PopClient::command(const QByteArray& line, bool multiLine, QByteArray* reply)
{
    reply->clear();
    m_failure.clear();
    m_rejected = false;
    if (!isOpen()) {
        noteUnfinished();
        return m_socketError != 0 ? m_socketError : 10057; // WSAENOTCONN
    }
    if (!line.isEmpty()) {
        m_buffer.clear();
        m_socket->write(line + "\r\n");
    }
    const bool complete = waitFor([this, multiLine] { return popReplyComplete(m_buffer, multiLine); });
    *reply = m_buffer;
    m_lastReply = m_buffer;
    m_buffer.clear();
    if (!complete) {
        noteUnfinished();
        return m_socketError != 0 ? m_socketError : kFailed;
    }
    if (reply->startsWith("+OK")) {
        return 0;
    }
    // The server's own words; its first line is all a status line can hold.
    m_failure = QString::fromLatin1(reply->left(reply->indexOf('\n'))).trimmed();
    m_rejected = true;
    return kFailed;
}

int PopClient::user(const QString& name)
{
    QByteArray reply;
    return command("USER " + name.toUtf8(), false, &reply);
}

int PopClient::pass(const QString& password)
{
    QByteArray reply;
    return command("PASS " + password.toUtf8(), false, &reply);
}

int PopClient::stat(int* count, qint64* octets)
{
    QByteArray reply;
    const int rc = command("STAT", false, &reply);
    if (rc == 0) {
        popStatReply(reply, count, octets);
    }
    return rc;
}

int PopClient::list(int message, qint64* octets)
{
    QByteArray reply;
    const int rc = command("LIST " + QByteArray::number(message), false, &reply);
    if (rc == 0) {
        *octets = popListSize(reply);
    }
    return rc;
}

int PopClient::retrieve(int message, QByteArray* text)
{
    QByteArray reply;
    const int rc = command("RETR " + QByteArray::number(message), true, &reply);
    text->clear();
    if (rc != 0) {
        return rc;
    }
    *text = popMessageText(reply);
    return 0;
}

int PopClient::rawCommand(const QByteArray& line, bool multiLine, QByteArray* reply)
{
    return command(line, multiLine, reply);
}

void PopClient::close()
{
    if (isOpen()) {
        m_closing = true;
        // A server that stopped answering should not hold the close for a full time-out.
        const int timeout = m_timeoutSeconds;
        m_timeoutSeconds = std::min(timeout, 5);
        QByteArray reply;
        command("QUIT", false, &reply);
        m_timeoutSeconds = timeout;
    }
    m_closing = true;
    if (m_socket) {
        m_socket->disconnectFromHost();
        if (m_socket->state() != QAbstractSocket::UnconnectedState) {
            waitFor([this] { return m_socket->state() == QAbstractSocket::UnconnectedState; });
        }
        m_socket->abort();
    }
    if (!m_closedReported && m_events) {
        m_closedReported = true;
        m_events->popSocketClosed();
    }
}

void PopClient::onReadyRead()
{
    const QByteArray data = m_socket->readAll();
    m_buffer += data;
    if (m_events) {
        m_events->popDataReceived(data);
    }
}

void PopClient::onError(QAbstractSocket::SocketError error)
{
    // The server closing after QUIT, or closing at all, is reported as a closed socket.
    if (error == QAbstractSocket::RemoteHostClosedError && m_closing) {
        return;
    }
    m_socketError = winsockFor(error);
    m_socketErrorText = error == QAbstractSocket::HostNotFoundError
                            ? QStringLiteral("could not resolve ") + m_server.section(u':', 0, 0)
                            : describe(error, m_socket->errorString());
    if (m_events) {
        m_events->popSocketError(m_socketError);
    }
}

QString PopClient::describe(QAbstractSocket::SocketError error, const QString& detail)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return QStringLiteral("connection refused");
    case QAbstractSocket::RemoteHostClosedError:
        return QStringLiteral("the connection was closed or reset");
    case QAbstractSocket::SocketTimeoutError:
        return QStringLiteral("timed out");
    case QAbstractSocket::SslHandshakeFailedError:
        return QStringLiteral("TLS handshake failed (") + detail + u')';
    default:
        return detail;
    }
}

int PopClient::winsockFor(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return 10061;
    case QAbstractSocket::RemoteHostClosedError:
        return 10054;
    case QAbstractSocket::HostNotFoundError:
        return 11001;
    case QAbstractSocket::SocketAccessError:
        return 10013;
    case QAbstractSocket::SocketResourceError:
        return 10055;
    case QAbstractSocket::SocketTimeoutError:
        return 10060;
    case QAbstractSocket::NetworkError:
        return 10050;
    case QAbstractSocket::AddressInUseError:
        return 10048;
    case QAbstractSocket::SocketAddressNotAvailableError:
        return 10049;
    case QAbstractSocket::UnsupportedSocketOperationError:
        return 10045;
    // A failed TLS hand-shake ends the connection from our side.
    case QAbstractSocket::SslHandshakeFailedError:
    case QAbstractSocket::SslInternalError:
    case QAbstractSocket::SslInvalidUserDataError:
        return 10053;
    default:
        return 10053;
    }
}

} // namespace kestrova::mail
