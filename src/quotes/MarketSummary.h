#pragma once

#include "core/Options.h"

#include <QString>

namespace kestrova::support {
struct Services;
}

namespace kestrova::quotes {

class PageFetcher;
struct SourceSetup;

// The "Markets" panel: level and change of the three indices as display texts, and the
// panel caption. These texts are the only store of the market figures.
struct MarketSummary
{
    QString caption; // "Markets at hh:mm"
    QString lblDow;
    QString lblDowChg;
    QString lblNASDAQ;
    QString lblNASDAQChg;
    QString lblSP500;
    QString lblSP500Chg;
};

// The indices as the quote sources know them (^DJI, ^IXIC, ^GSPC; each source's aliases
// turn them into its own spelling).
inline constexpr const char* kMarketIndexTickers[3] = {"^DJI", "^IXIC", "^GSPC"};

// Reads the three indices the way quotes are read: each place of the failure order of
// `sources` in turn is asked for the indices still without a level, and the servers.dat
// place stands for the classic market page at `url` (Options.quotes.marketUrl), read by
// cells. Without `sources` the page is the only place. An index that no place gave reads
// "n/a". When no index got a level at all the result is false and the summary is left as
// it was; a page on which a cell search runs out of tabs is reported as
// "GetMarketData: ..." and counts as that page giving nothing.
bool GetMarketData(MarketSummary& summary, PageFetcher& fetcher, const QString& url, const support::Services& services,
                   const SourceSetup* sources = nullptr);

// "DOW 10345.21+12.5, NASD 2890.11-3.2, " for the indices switched on in the options. An
// index without a level is left out, and so is a change that is not a number: a page is
// paid for by the character, and "DOW , " tells nobody anything.
QString MarketSummaryPageText(const MarketSummary& summary, const core::QuoteOptions& options);

} // namespace kestrova::quotes
