#pragma once

#include <QDateTime>
#include <QString>

namespace kestrova::delivery {

// What the SMTP client reports while it talks to the server; the pager turns these into
// terminal lines and log lines.
class SmtpEvents
{
public:
    virtual ~SmtpEvents() = default;
    // One reply line from the server (without its CR LF). Never called for anything that
    // belongs to the log-on exchange.
    virtual void smtpDataReceived(const QString& data) = 0;
    virtual void smtpSocketClosed(const QString& detail) = 0;
    // A socket failure in the Winsock numbering (see WinsockErrors.h).
    virtual void smtpSocketError(int winsockNumber) = 0;
};

enum class MailSecurity : int { Plain = 0, StartTls = 1, ImplicitTls = 2 };

// One mail to send: where to, from whom, and the body text.
struct SmtpMail
{
    QString server; // host name or address
    quint16 port = 25;
    QString from;
    QString recipient;
    QString domain; // announced in EHLO
    QString body;
    MailSecurity security = MailSecurity::Plain;
    QString user;     // AUTH only when not empty
    QString password; // never logged, never echoed
    QDateTime date;   // the Date header
};

// Sends one mail at a time. The call looks synchronous to the caller but keeps the user
// interface running while it waits. Returns 0 when the server accepted the mail, else an
// error number: the server's reply code when it refused, a Winsock number for a socket
// failure, otherwise a small transfer error number.
class SmtpSender
{
public:
    virtual ~SmtpSender() = default;
    virtual int send(const SmtpMail& mail, SmtpEvents* events) = 0;
    // Why the last send failed, in plain words naming the server and quoting its reply
    // ("SMTP server host:25 refused the mail: 550 ..."); empty after a success or a cancel.
    virtual QString lastFailure() const { return {}; }
};

} // namespace kestrova::delivery
