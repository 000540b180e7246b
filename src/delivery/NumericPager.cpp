#include "delivery/NumericPager.h"

#include "core/ModemProfiles.h"
#include "core/Options.h"
#include "delivery/ModemLine.h"
#include "delivery/SerialLine.h"
#include "support/CancelFlag.h"
#include "support/Host.h"

namespace kestrova::delivery {

NumericPager::NumericPager(ModemLine& modem, const core::Options& options) : m_modem(modem), m_options(options) {}

int NumericPager::holdSeconds(const QString& prefix)
{
    if (prefix.isEmpty()) {
        return 5;
    }
    return 2 * static_cast<int>(prefix.count(u',')) + 5;
}

void NumericPager::note(const QString& text)
{
    m_outcomes << text;
    m_modem.services().StatusMessage(text);
}

bool NumericPager::SendDigitalPage(const PageTable& pages)
{
    const support::Services& s = m_modem.services();
    SerialLine& line = m_modem.serial();
    m_outcomes.clear();
    if (m_options.paging.phone.isEmpty()) {
        s.host.messageBox(QStringLiteral("You must define your paging service phone #."));
        return false;
    }
    bool allSent = true;
    for (int p = 1; p <= pages.count(); ++p) {
        bool stopPage = false;
        for (int attempt = 1; attempt <= m_options.paging.retries; ++attempt) {
            if (attempt > 1) {
                m_modem.showStatus(QStringLiteral("Retrying"));
                m_modem.pause(m_options.paging.retrySeconds);
                if (s.cancel.isSet()) {
                    m_modem.setResult(ResultCancelled);
                }
            }
            if (line.isOpen()) {
                return false;
            }
            line.setSettings(m_options.modem.settings);
            line.setPort(m_options.modem.port);
            const QString init = core::selectedModemProfile(m_options.modem).pagerInit;
            if (m_modem.initialize(init) == ResultOk &&
                m_modem.dialDigital(m_options.paging.phone + pages.pages.at(p - 1), m_options.paging.numericWait) ==
                    ResultOk) {
                break;
            }
            switch (m_modem.result()) {
            case ResultInitFailed:
                note(QStringLiteral("Pager: Could Not Initialize Modem"));
                break;
            case ResultNoConnection:
                note(QStringLiteral("Pager: Could not connect w/ Service"));
                break;
            case ResultNoDialtone:
                note(QStringLiteral("Digital Pager: No Dialtone"));
                break;
            case ResultBusy:
                note(QStringLiteral("Digital Pager: Busy"));
                break;
            case ResultCancelled:
                note(QStringLiteral("Digital Pager: User Cancelled"));
                stopPage = true;
                break;
            case ResultPortUnavailable:
                note(QStringLiteral("Comm Port Unavailable"));
                return false;
            default:
                break;
            }
            if (stopPage) {
                break;
            }
            m_modem.hangUp();
        }
        // The service takes the digits while the line is held; hanging up sooner cuts
        // them off.
        m_modem.pause(holdSeconds(m_options.paging.numericPrefix));
        if (m_modem.result() == ResultOk) {
            note(QStringLiteral("Digital Pager: Message ") + QString::number(p) + QStringLiteral(" Sent"));
        } else {
            allSent = false;
        }
        m_modem.hangUp();
        if (m_modem.result() == ResultCancelled) {
            return false;
        }
    }
    return allSent && pages.count() > 0;
}

} // namespace kestrova::delivery
