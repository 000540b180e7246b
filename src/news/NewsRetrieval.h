#pragma once

#include <QString>

namespace kestrova::core {
struct PortfolioTable;
struct QuoteOptions;
class Quotes;
} // namespace kestrova::core
namespace kestrova::quotes {
class PageFetcher;
class BuiltInServers;
} // namespace kestrova::quotes
namespace kestrova::support {
struct Services;
}

namespace kestrova::news {

class NewsServers;
class NewsStories;

struct NewsRetrievalResult
{
    int tickers = 0; // tickers asked for
    int pages = 0;   // pages that came back with a body
    int added = 0;   // headlines new to the store
};

// Fetches the news page of every ticker whose portfolio entry asks for news, adds the
// headlines the store does not know yet (FindStory), marks the stock quotes that now have
// fresh news, purges stories older than purgeDays (PurgeNews; 0 keeps everything) and
// saves news.dat.
//
// The news server of a ticker is the one named like the quote service the ticker is
// fetched from (its own server when set, else the default stock server); when server.dat
// has none of that name, the first news server is used. Pages are fetched side by side;
// stories are added in portfolio order, then page order. A story gets the page's date
// (written "mm/dd/yyyy") when the page gives one that reads as a date, else today's, and is
// new when that date is today.
//
// Raises support::VbError 75 when news.dat cannot be written; the quote cycle logs that and
// goes on.
NewsRetrievalResult RetrieveNews(const core::PortfolioTable& portfolio, const core::QuoteOptions& quoteOptions,
                                 const quotes::BuiltInServers& builtIn, const NewsServers& servers,
                                 quotes::PageFetcher& fetcher, NewsStories& stories, const support::Services& services,
                                 qint16 purgeDays, core::Quotes* stockQuotes = nullptr);

// The news page a ticker's headlines come from (the same server choice as RetrieveNews);
// empty when server.dat has no news server.
QString newsPageUrl(const core::PortfolioTable& portfolio, const core::QuoteOptions& quoteOptions,
                    const quotes::BuiltInServers& builtIn, const NewsServers& servers, const QString& ticker);

// News = true (-1) on every quote of the set whose ticker has fresh news, 0 on the others.
void markFreshNews(core::Quotes& quotes, const NewsStories& stories);

} // namespace kestrova::news
