#include "delivery/ManualPage.h"

#include "core/Options.h"
#include "delivery/ModemLine.h"
#include "delivery/NumericPager.h"
#include "delivery/PushNotifier.h"
#include "delivery/TapPager.h"

namespace kestrova::delivery {

const QString ManualPage::kNoText = QStringLiteral("There is no text to send.");

bool ManualPage::hasText(const QString& text)
{
    return !text.trimmed().isEmpty();
}

ManualPage::ManualPage(ModemLine& modem, const core::Options& options, const core::MailBox* mail)
    : m_modem(modem), m_options(options), m_mail(mail)
{}

QString ManualPage::commaPrefix(int waitAfterDial)
{
    QString commas;
    for (int k = 1; k <= waitAfterDial / 2.0; ++k) {
        commas += u',';
    }
    return commas;
}

QString ManualPage::acceptTyped(const QString& text)
{
    QString out = text;
    out.replace(u'\r', u' ');
    out.replace(u'\n', u' ');
    return out;
}

QString ManualPage::characterCountText(const QString& text)
{
    return QStringLiteral("Number of Characters: ") + QString::number(text.size());
}

QString ManualPage::addressee(const core::Options& options)
{
    return options.smtp.enabled ? options.smtp.recipient : options.paging.user;
}

QString ManualPage::testPageText(const core::Options& options)
{
    return commaPrefix(options.paging.numericWait) + options.paging.numericPrefix + QStringLiteral("01*2*1234#");
}

ManualPageResult ManualPage::send(const QString& text)
{
    if (!hasText(text)) {
        return {kNoText, false, {}};
    }
    ManualPageResult result = sendByRoute(text);
    if (m_push && m_options.push.enabled && !m_options.push.url.isEmpty() && !m_modem.services().cancelled()) {
        m_push->notify(text, PushKind::Manual);
        result.pushOutcome = m_push->lastOutcome();
    }
    return result;
}

ManualPageResult ManualPage::sendByRoute(const QString& text)
{
    if (m_options.paging.numeric) {
        PageTable table;
        table.pages << commaPrefix(m_options.paging.numericWait) + text;
        NumericPager pager(m_modem, m_options);
        const bool ok = pager.SendDigitalPage(table);
        return {pager.outcomes().isEmpty() ? QString() : pager.outcomes().constLast(), ok, {}};
    }
    if (m_options.smtp.enabled) {
        if (!m_smtp) {
            return {QStringLiteral("SMTP paging is not available"), false, {}};
        }
        return m_smtp(text);
    }
    TapPager pager(m_modem, m_options, m_mail);
    const QString result = pager.SendPage(text);
    return {result,
            !result.isEmpty() && pager.result() == ResultOk && result.startsWith(QStringLiteral("Pager: Message Sent")),
            {}};
}

} // namespace kestrova::delivery
