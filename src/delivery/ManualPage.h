#pragma once

#include <QString>

#include <functional>

namespace kestrova::core {
struct MailBox;
struct Options;
} // namespace kestrova::core

namespace kestrova::delivery {

class ModemLine;
class PushNotifier;

// The outcome of a manual page: the text shown to the user and whether it went out.
struct ManualPageResult
{
    QString text;
    bool sent = false;
    // The push route's status line for the mirror of this page; empty when it was not tried.
    QString pushOutcome;
};

// The free-text page the user sends on demand, by whichever route is configured:
// numeric pager, else SMTP, else the alphanumeric service.
class ManualPage
{
public:
    // Sends one text by e-mail; returns the outcome. Plugged in by the e-mail route.
    using SmtpSender = std::function<ManualPageResult(const QString& text)>;

    ManualPage(ModemLine& modem, const core::Options& options, const core::MailBox* mail = nullptr);

    void setSmtpSender(SmtpSender sender) { m_smtp = std::move(sender); }
    // The push route that mirrors every manual page, when one is set up.
    void setPush(PushNotifier* push) { m_push = push; }

    // A page of nothing but blanks is no page: every face refuses it with this message.
    static const QString kNoText;
    static bool hasText(const QString& text);

    // The commas a numeric page starts with, one for each k while k is at most half the
    // wait after dialling, so the digits are not dialled before the service answers.
    static QString commaPrefix(int waitAfterDial);
    // The dialog refuses Enter: a manual page is always one line.
    static QString acceptTyped(const QString& text);
    static QString characterCountText(const QString& text);
    // Who the page goes to, as lblUser shows it: the e-mail recipient when pages go by
    // e-mail, else the pager user field as stored (its padding blanks included).
    static QString addressee(const core::Options& options);
    // The options dialog's numeric test page: the pause commas, the characters that precede
    // a numeric page, and a fixed digit string the user recognises on the pager.
    static QString testPageText(const core::Options& options);

    // Refuses a text of blanks (kNoText); otherwise sends it by the configured route and
    // then, unless the user cancelled, mirrors it to the push route. The push goes after the
    // page and whether or not the page got through: a second route is most useful exactly
    // when the first fails.
    ManualPageResult send(const QString& text);

private:
    ManualPageResult sendByRoute(const QString& text);

    ModemLine& m_modem;
    const core::Options& m_options;
    const core::MailBox* m_mail;
    SmtpSender m_smtp;
    PushNotifier* m_push = nullptr;
};

} // namespace kestrova::delivery
