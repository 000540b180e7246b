#pragma once

#include "core/Options.h"
#include "delivery/SmtpSender.h"

#include <QString>

namespace kestrova::delivery {

// Where mail for an SMTP server goes, as far as its name tells.
struct SmtpEndpoint
{
    QString host;
    quint16 port = 587;
    MailSecurity security = MailSecurity::StartTls;
    bool wellKnown = false; // the host is a mail provider's submission server we know
};

// The submission port every provider offers today, with STARTTLS.
constexpr quint16 kSubmissionPort = 587;
// The port of SMTP over TLS from the first byte.
constexpr quint16 kImplicitTlsPort = 465;

// The port and security for a server as typed: a provider's known submission server
// gets the port and security it documents ("smtp.gmail.com": 587, STARTTLS;
// "smtp.mail.yahoo.com": 465, TLS); "host:port" (or "[v6 address]:port") names the port,
// whose security follows it (465 TLS, any other STARTTLS); anything else is port 587 with
// STARTTLS. Blanks around the text are dropped.
SmtpEndpoint smtpEndpointFor(const QString& server);

// The submission server of a provider known by the domain of an e-mail address
// ("me@gmail.com": "smtp.gmail.com"); empty for any other address.
QString smtpServerForAddress(const QString& address);

// One mail with the server, sender, recipient and log-on of the SMTP options (the body and
// date left for the caller): what every mail the program sends is addressed with.
SmtpMail smtpMailFor(const core::SmtpOptions& options);

} // namespace kestrova::delivery
