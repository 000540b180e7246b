#pragma once

#include "core/Options.h"

#include <QString>
#include <QStringList>

namespace kestrova::support {
class Host;
}

namespace kestrova::delivery {

// The modem profile list of the modem dialog: add, delete and select over the profile
// table kept in the options (which the portfolio file saves).
class ModemProfiles
{
public:
    // The table holds indices 0..20, but the dialog stops at twenty profiles.
    static constexpr int kMaxProfiles = 20;

    ModemProfiles(core::ModemOptions& modem, support::Host& host);

    // The names of the profiles in use, in table order.
    QStringList names() const;
    int count() const { return m_modem.lastIndex + 1; }
    int selected() const { return m_modem.selected; }
    const core::ModemProfile& profile(int index) const;

    // Selects a profile; returns false for an index not in use.
    bool select(int index);
    // Asks for a name and adds a profile with the init strings currently shown; it
    // becomes the selected one. Returns true when one was added.
    bool add(const QString& shownInit, const QString& shownPagerInit);
    // The built-in profiles stay, so every setup offers them first.
    bool canRemove(int index) const;
    // Asks before removing the selected profile. Returns true when it was removed.
    bool remove();
    // Writes the two shown init strings back into the selected profile.
    void store(const QString& init, const QString& pagerInit);

    // Set whenever the table changed, so the portfolio file is saved.
    bool changed() const { return m_changed; }

private:
    core::ModemOptions& m_modem;
    support::Host& m_host;
    bool m_changed = false;
};

} // namespace kestrova::delivery
