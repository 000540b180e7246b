#pragma once

#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "core/Quotes.h"
#include "quotes/BuiltInServers.h"
#include "quotes/PageFetcher.h"
#include "quotes/ServersDat.h"
#include "quotes/SourceDefinition.h"
#include "support/Services.h"

#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace kestrova::quotes {

class SourceHealth;
struct SymbolAnswer;

// The modern quote sources a cycle may ask before, after or instead of servers.dat.
struct SourceSetup
{
    const SourceFile& file;
    // Source names and kServersDatEntry, first asked first; a security that one could not
    // price goes to the next. Names that sources.json does not define are skipped.
    QStringList order;
    // The API key stored for a source (empty: none).
    std::function<QString(const QString& sourceName)> key;
    // Resting and health state kept between cycles; may be null.
    SourceHealth* health = nullptr;
};

// The failure order in force: the portfolio's own (comma-separated) when it has one, else
// the order sources.json recommends, else servers.dat alone.
QStringList effectiveOrder(const QString& portfolioOrder, const SourceFile& file);

// One place of the failure order that is asked: a source of sources.json with its key, or,
// without a source, the servers.dat entry.
struct SourceStage
{
    const SourceDefinition* source = nullptr;
    QString key;
};

// The places of the order (servers.dat alone without a setup), first asked first. A source
// that is not defined, lacks its key or rests after a "too many requests" is passed over,
// with a line in the log when report is set (once an update is enough).
std::vector<SourceStage> sourceStages(const SourceSetup* sources, const support::Services& services,
                                      bool report = true);

// One security asked of a source: the ticker as the portfolio writes it, and its type.
struct SourceItem
{
    QString ticker;
    qint16 type = 0;
};

// Asks a source for the items of the types it serves, in as few requests as its batch size
// allows and within its connection and spacing limits. priced(i, answer) is called for every
// item the source priced; why any other item got no price goes to the log. A "too many
// requests" rests the source (in health, when given) and leaves its other requests unasked;
// keepGoing is asked after every answer. With countPrices, health also counts prices and
// missing prices, and the warnings that gives are returned.
QStringList askSource(const SourceStage& stage, const std::vector<SourceItem>& items, PageFetcher& fetcher,
                      const support::Services& services, SourceHealth* health, bool countPrices,
                      const std::function<bool()>& keepGoing,
                      const std::function<void(size_t item, const SymbolAnswer& answer)>& priced);

// Everything one retrieval cycle works with.
struct CycleContext
{
    const support::Services& services;
    PageFetcher& fetcher;
    const BuiltInServers& builtIn;
    const ServerDefinitions& servers;
    const core::Options& options;
    const core::PortfolioTable& portfolio;
    // News retrieval, run first when switched on. A VbError (or other exception) it throws
    // is logged and the cycle goes on.
    std::function<void()> retrieveNews;
    // The main window's stop flag, read like the cancel flag after every security.
    const bool* stop = nullptr;
    // Pages fetched side by side (all of them, up to the fetcher's bound); 1 gives the
    // one-page-at-a-time cycle.
    int maxParallel = PageFetcher::kMaxTransfers;
    // Null: the quote servers of servers.dat alone, as always.
    const SourceSetup* sources = nullptr;
};

struct CycleResult
{
    bool completed = false; // false: cancelled or stopped part-way
    bool quotesAvailable = false;
    int requested = 0; // securities the portfolio asked for
    // The health warnings this cycle gave (each also a status line), for the paging route.
    QStringList healthWarnings;
};

// One quote for every included security: stocks (every type but options) into stockSet,
// options into optionSet, each set cleared first. Each source of the order in turn is
// asked for the securities still without a price (a batch source for many at once);
// pages are fetched side by side, but the quotes go into the sets strictly in list order,
// so the sets, progress, status lines and log are those of a cycle that fetched one page
// after the other. A security no source could price is simply absent; one whose page or
// definition raises an error is reported as "GetQuotes:: ..." and skipped, and the cycle
// goes on with the next. Each quote carries the name of the source that priced it.
CycleResult GetQuotes(CycleContext& ctx, core::Quotes& stockSet, core::Quotes& optionSet);

// The rows a quote table shows between updates: every security of the portfolio in the
// order a cycle fetches them (stocks, then options), with the quote of the last update
// when the sets hold one and otherwise an unpriced quote of the entry's own settings
// (its name, holding and limits; every price blank), followed by the quotes of the sets
// that no entry names any more. A new portfolio therefore shows its rows at once.
std::vector<std::shared_ptr<const core::Quote>> tableRows(const core::PortfolioTable& portfolio,
                                                          const core::Quotes& stockSet, const core::Quotes& optionSet);

// The built-in service whose page priced a quote of the cycle: an option always asks its
// own service, a stock its own when it names one, else the default service.
int pricingServer(const core::Quote& quote, int defaultServer);
// The name of the source that priced a quote, as the history and --json name it: the
// source it carries, else (never priced yet) the built-in service the cycle would ask.
QString sourceName(const core::Quote& quote, const BuiltInServers& builtIn, int defaultServer);

// The ticker form a server wants for an option symbol ("%2b" + symbol for built-in
// servers 5 and 11, "." + symbol for the others); blanks are dropped from the symbol.
QString optionTicker(const QString& symbol, int serverIndex);

// Fastest server: the probe host of the test-flagged built-in entry with the smallest
// response time (-1 = no answer), the first entry's host when none answered. When apply
// is set and an entry other than the first won, its index becomes defaultServer.
// responseTime measures one host; tests pass their own.
QString FastestServer(bool apply, const BuiltInServers& builtIn, const support::Services& services,
                      const std::function<double(const QString& host)>& responseTime, qint16& defaultServer,
                      int* chosenIndex = nullptr);

// Response time of a host: milliseconds until a TCP connection to host:port stands, -1
// when none within timeoutMs (measured on the program clock).
double ResponseTime(const QString& host, quint16 port, int timeoutMs, const support::Services& services);

} // namespace kestrova::quotes
