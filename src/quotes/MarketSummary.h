#pragma once

#include "core/Options.h"

#include <QString>

namespace kestrova::support {
struct Services;
}

namespace kestrova::quotes {

class PageFetcher;

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

// Fetches the market page (url: Options.quotes.marketUrl) and fills the summary; false,
// with the summary untouched, when the page came back empty. A page on which a cell search
// runs out of tabs is reported as "GetMarketData: ..." and also gives false.
bool GetMarketData(MarketSummary& summary, PageFetcher& fetcher, const QString& url, const support::Services& services);

// "DOW 10345.21+12.5, NASD 2890.11-3.2, " for the indices switched on in the options. A
// change that is not a number stands as it is.
QString MarketSummaryPageText(const MarketSummary& summary, const core::QuoteOptions& options);

} // namespace kestrova::quotes
