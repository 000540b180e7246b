#pragma once

#include "core/Options.h"

#include <QString>
#include <QtGlobal>

#include <array>

namespace kestrova::quotes {

// One entry of the fixed list of quote services the program knows by name: the options
// dialog offers it, the fastest-server test probes it, and servers.dat records point at
// it by position (ServerIndex) to share its log-on.
struct BuiltInServer
{
    QString name;        // display name, equal to the ServerName of its servers.dat records
    QString probeHost;   // host whose connect time the fastest-server test measures
    qint16 testFlag = 0; // 1: takes part in the fastest-server test
    QString user;
    QString password;
};

class BuiltInServers
{
public:
    static constexpr int kCount = core::kBuiltInServers;
    // Positions whose pages need handling of their own when scraped.
    static constexpr int kSignByText = 8;     // drops the minus; compare Last with Open as text
    static constexpr int kSignByPercent1 = 5; // drops the minus; the percent change keeps it
    static constexpr int kSignByPercent2 = 9;
    static constexpr int kLabelledPage = 11; // labelled page instead of cells
    static constexpr int kDemoMarket = 12;

    // The list without log-ons.
    BuiltInServers();
    // The list with the user's log-ons from the options.
    explicit BuiltInServers(const core::QuoteOptions& options);

    // Raises VbError 9 for an index outside 0..12.
    const BuiltInServer& at(int index) const;
    BuiltInServer& at(int index);
    // Position of a display name (exact text), -1 when none.
    int indexOfName(const QString& name) const;
    // True when name is the display name of the entry at index.
    bool isEntry(const QString& name, int index) const { return at(index).name == name; }

private:
    std::array<BuiltInServer, kCount> m_entries;
};

} // namespace kestrova::quotes
