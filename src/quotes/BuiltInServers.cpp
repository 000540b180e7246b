#include "quotes/BuiltInServers.h"

#include "support/VbError.h"

namespace kestrova::quotes {

namespace {

struct Row
{
    const char* name;
    const char* host;
    qint16 test;
};

// The display names are the ServerName values of data/servers.dat; renaming one here
// means renaming it there. Services that need a paid log-on stay out of the speed test.
constexpr Row kRows[BuiltInServers::kCount] = {
    {"PCQuote", "www.pcquote.com", 1},
    {"ESI (U.K. Mkt)", "www.esi.co.uk", 1},
    {"Quote.com", "www.quote.com", 1},
    {"DBC Online", "www.dbc.com", 1},
    {"Yahoo", "quote.yahoo.com", 1},
    {"Stockpoint", "www.stockpoint.com", 1},
    {"Yahoo (Toronto)", "ca.finance.yahoo.com", 1},
    {"MarketSmart (RT)", "www.marketsmart.com", 0},
    {"Thomson Investors", "www.thomsoninvest.net", 1},
    {"Stockpoint (RT)", "www.stockpoint.com", 0},
    {"Fidelity(Mutuals)", "www.fidelity.com", 1},
    {"CBOE", "www.cboe.com", 1},
    {"Demo Market", "127.0.0.1", 0},
};

} // namespace

BuiltInServers::BuiltInServers()
{
    for (int i = 0; i < kCount; ++i) {
        m_entries[size_t(i)].name = QString::fromUtf8(kRows[i].name);
        m_entries[size_t(i)].probeHost = QString::fromUtf8(kRows[i].host);
        m_entries[size_t(i)].testFlag = kRows[i].test;
    }
}

BuiltInServers::BuiltInServers(const core::QuoteOptions& options) : BuiltInServers()
{
    for (int i = 0; i < kCount; ++i) {
        m_entries[size_t(i)].user = options.logons[size_t(i)].user;
        m_entries[size_t(i)].password = options.logons[size_t(i)].password;
    }
}

const BuiltInServer& BuiltInServers::at(int index) const
{
    if (index < 0 || index >= kCount)
        throw support::VbError(support::VbError::Subscript);
    return m_entries[size_t(index)];
}

BuiltInServer& BuiltInServers::at(int index)
{
    if (index < 0 || index >= kCount)
        throw support::VbError(support::VbError::Subscript);
    return m_entries[size_t(index)];
}

int BuiltInServers::indexOfName(const QString& name) const
{
    for (int i = 0; i < kCount; ++i) {
        if (m_entries[size_t(i)].name == name)
            return i;
    }
    return -1;
}

} // namespace kestrova::quotes
