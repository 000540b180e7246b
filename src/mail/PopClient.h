#pragma once

#include <QAbstractSocket>
#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>

class QSslSocket;

namespace kestrova::support {
struct Services;
}

namespace kestrova::mail {

// What the POP connection reports as it goes; the mail watch turns these into terminal
// lines, log lines and its error flag.
class PopEvents
{
public:
    virtual ~PopEvents() = default;
    virtual void popDataReceived(const QByteArray& data) = 0;
    // Something was sent. What was sent is deliberately not passed: it may be the password.
    virtual void popPacketSent() = 0;
    virtual void popSocketClosed() = 0;
    virtual void popSocketError(int winsockNumber) = 0;
};

enum class PopSecurity : int { Plain = 0, StartTls = 1, ImplicitTls = 2 };

// A POP3 client over one socket. Every command waits for its complete reply while the
// face keeps running (Host::yield); a reply, a closed socket, a socket error, the user's
// cancel or the time-out ends the wait. Replies are kept exactly as they came, status
// line included, so the header text of a message is the raw server answer.
class PopClient : public QObject
{
    Q_OBJECT
public:
    explicit PopClient(const support::Services& services, QObject* parent = nullptr);
    ~PopClient() override;

    void setEvents(PopEvents* events) { m_events = events; }
    void setCaFile(const QString& path) { m_caFile = path; }
    void setTimeoutSeconds(int seconds) { m_timeoutSeconds = seconds; }

    // Connects and reads the greeting; the socket number, or 0 when it failed.
    int open(const QString& host, quint16 port, PopSecurity security);
    // Each returns 0 on a "+OK" reply, else a non-zero error number (the Winsock number
    // when the socket failed, 1 for a "-ERR" reply or a time-out).
    int user(const QString& name);
    int pass(const QString& password);
    int stat(int* count, qint64* octets = nullptr);
    int list(int message, qint64* octets);
    int retrieve(int message, QByteArray* text);
    // Sends one raw command line (CR LF added) and reads a reply; a multi-line reply runs
    // to the terminating dot line. The reply is returned as received.
    int rawCommand(const QByteArray& line, bool multiLine, QByteArray* reply);
    // QUIT (when still connected) and close.
    void close();

    bool isOpen() const;
    QByteArray lastReply() const { return m_lastReply; }
    // Why the last open or command failed: the server's own "-ERR" line when it said no
    // (rejected() is then true), else the transport's failure naming the server ("POP3
    // server host:110: connection refused", "... did not answer within 60 s"). Empty after
    // a success or a cancel.
    QString failure() const { return m_failure; }
    bool rejected() const { return m_rejected; }

private:
    // The socket, made on first use: a QSslSocket loads Qt's TLS back-end and the TLS
    // library, which a start-up that never checks mail should not pay for.
    QSslSocket& socket();
    int command(const QByteArray& line, bool multiLine, QByteArray* reply);
    bool waitFor(const std::function<bool()>& done);
    void onReadyRead();
    void onError(QAbstractSocket::SocketError error);
    static int winsockFor(QAbstractSocket::SocketError error);
    static QString describe(QAbstractSocket::SocketError error, const QString& detail);
    // Sets failure() for a wait that ended without its reply.
    void noteUnfinished();

    const support::Services& m_services;
    QSslSocket* m_socket = nullptr;
    PopEvents* m_events = nullptr;
    QString m_caFile;
    int m_timeoutSeconds = 60;
    QByteArray m_buffer;
    QByteArray m_lastReply;
    QString m_server; // "host:port", for the failure texts
    QString m_failure;
    QString m_socketErrorText;
    bool m_rejected = false;
    int m_socketError = 0;
    bool m_closing = false;
    bool m_closedReported = false;
};

} // namespace kestrova::mail
