#include "delivery/ModemProfiles.h"

#include "core/ModemProfiles.h"
#include "support/Host.h"

namespace kestrova::delivery {

ModemProfiles::ModemProfiles(core::ModemOptions& modem, support::Host& host) : m_modem(modem), m_host(host) {}

QStringList ModemProfiles::names() const
{
    QStringList out;
    for (int i = 0; i < count() && i < core::kModemSlots; ++i) {
        out << m_modem.profiles.at(static_cast<std::size_t>(i)).name;
    }
    return out;
}

const core::ModemProfile& ModemProfiles::profile(int index) const
{
    return m_modem.profiles.at(static_cast<std::size_t>(qBound(0, index, core::kModemSlots - 1)));
}

bool ModemProfiles::select(int index)
{
    if (index < 0 || index >= count()) {
        return false;
    }
    m_modem.selected = static_cast<qint16>(index);
    return true;
}

bool ModemProfiles::add(const QString& shownInit, const QString& shownPagerInit)
{
    if (count() >= kMaxProfiles) {
        m_host.messageBox(QStringLiteral("20 Modems Max"));
        return false;
    }
    const QString name = m_host.inputBox(QStringLiteral("Enter name for new modem"));
    if (name.isEmpty()) {
        return false;
    }
    const int index = m_modem.lastIndex + 1;
    m_modem.profiles[static_cast<std::size_t>(index)] = {name, shownInit, shownPagerInit};
    m_modem.lastIndex = static_cast<qint16>(index);
    m_modem.selected = static_cast<qint16>(index);
    m_changed = true;
    return true;
}

bool ModemProfiles::canRemove(int index) const
{
    return index >= core::kBuiltInModemProfiles && index < count();
}

bool ModemProfiles::remove()
{
    const int index = m_modem.selected;
    if (!canRemove(index)) {
        return false;
    }
    const QString question = QStringLiteral("Delete ") + profile(index).name + u'?';
    if (m_host.messageBox(question, support::MsgButtons::YesNo, support::MsgIcon::Exclamation) !=
        support::MsgAnswer::Yes) {
        return false;
    }
    for (int i = index; i < m_modem.lastIndex; ++i) {
        m_modem.profiles[static_cast<std::size_t>(i)] = m_modem.profiles[static_cast<std::size_t>(i + 1)];
    }
    m_modem.profiles[static_cast<std::size_t>(m_modem.lastIndex)] = {};
    --m_modem.lastIndex;
    if (m_modem.selected > m_modem.lastIndex) {
        m_modem.selected = m_modem.lastIndex;
    }
    m_changed = true;
    return true;
}

void ModemProfiles::store(const QString& init, const QString& pagerInit)
{
    core::ModemProfile& p =
        m_modem.profiles[static_cast<std::size_t>(qBound(0, int(m_modem.selected), core::kModemSlots - 1))];
    if (p.init != init || p.pagerInit != pagerInit) {
        p.init = init;
        p.pagerInit = pagerInit;
        m_changed = true;
    }
}

} // namespace kestrova::delivery
