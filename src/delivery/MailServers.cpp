#include "delivery/MailServers.h"

#include <QRegularExpression>

#include <algorithm>

namespace kestrova::delivery {

namespace {

// Submission servers of the common mail providers, with the port and security their
// help pages give for mail programs, and the address domains they serve.
struct Provider
{
    const char* host;
    quint16 port;
    MailSecurity security;
    const char* domains; // blank-separated
};

constexpr Provider kProviders[] = {
    {"smtp.gmail.com", 587, MailSecurity::StartTls, "gmail.com googlemail.com"},
    {"smtp-mail.outlook.com", 587, MailSecurity::StartTls, "outlook.com hotmail.com live.com msn.com"},
    {"smtp.office365.com", 587, MailSecurity::StartTls, ""},
    {"smtp.mail.yahoo.com", 465, MailSecurity::ImplicitTls, "yahoo.com ymail.com"},
    {"smtp.mail.me.com", 587, MailSecurity::StartTls, "icloud.com me.com mac.com"},
    {"smtp.aol.com", 465, MailSecurity::ImplicitTls, "aol.com"},
    {"smtp.fastmail.com", 465, MailSecurity::ImplicitTls, "fastmail.com fastmail.fm"},
    {"smtp.zoho.com", 465, MailSecurity::ImplicitTls, "zoho.com zohomail.com"},
    {"smtp.mailbox.org", 465, MailSecurity::ImplicitTls, "mailbox.org"},
    {"mail.gmx.net", 587, MailSecurity::StartTls, "gmx.net gmx.de gmx.com gmx.at gmx.ch"},
    {"smtp.web.de", 587, MailSecurity::StartTls, "web.de"},
    {"smtp.comcast.net", 587, MailSecurity::StartTls, "comcast.net"},
};

MailSecurity securityForPort(quint16 port)
{
    return port == kImplicitTlsPort ? MailSecurity::ImplicitTls : MailSecurity::StartTls;
}

} // namespace

SmtpEndpoint smtpEndpointFor(const QString& server)
{
    SmtpEndpoint e;
    QString text = server.trimmed();
    // "host:port", or "[v6 address]:port"; a bare IPv6 address has colons of its own.
    static const QRegularExpression withPort(QStringLiteral("^(\\[[^\\]]*\\]|[^:\\[\\]]*):(\\d{1,5})$"));
    if (const QRegularExpressionMatch m = withPort.match(text); m.hasMatch()) {
        const int port = m.captured(2).toInt();
        if (port >= 1 && port <= 65535) {
            QString host = m.captured(1);
            if (host.startsWith(u'[')) {
                host = host.mid(1, host.size() - 2);
            }
            e.host = host;
            e.port = quint16(port);
            e.security = securityForPort(e.port);
            return e;
        }
    }
    e.host = text;
    const QString lower = text.toLower();
    const auto* known = std::find_if(std::begin(kProviders), std::end(kProviders),
                                     [&](const Provider& p) { return lower == QLatin1String(p.host); });
    if (known != std::end(kProviders)) {
        e.port = known->port;
        e.security = known->security;
        e.wellKnown = true;
    }
    return e;
}

QString smtpServerForAddress(const QString& address)
{
    const qsizetype at = address.trimmed().lastIndexOf(u'@');
    if (at < 0) {
        return {};
    }
    const QString domain = address.trimmed().mid(at + 1).toLower();
    for (const Provider& p : kProviders) {
        if (QString::fromLatin1(p.domains).split(u' ', Qt::SkipEmptyParts).contains(domain)) {
            return QString::fromLatin1(p.host);
        }
    }
    return {};
}

SmtpMail smtpMailFor(const core::SmtpOptions& o)
{
    SmtpMail mail;
    mail.server = o.hostName.trimmed().isEmpty() ? o.hostAddress.trimmed() : o.hostName.trimmed();
    mail.port = static_cast<quint16>(o.port);
    mail.from = o.from;
    mail.recipient = o.recipient;
    mail.domain = o.domain;
    mail.security = static_cast<MailSecurity>(std::clamp<int>(o.security, 0, 2));
    mail.user = o.user;
    mail.password = o.password;
    return mail;
}

} // namespace kestrova::delivery
