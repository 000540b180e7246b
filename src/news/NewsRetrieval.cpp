#include "news/NewsRetrieval.h"

#include "core/PortfolioEntries.h"

#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "core/Quotes.h"
#include "news/NewsServer.h"
#include "news/NewsStories.h"
#include "quotes/BuiltInServers.h"
#include "quotes/PageFetcher.h"
#include "support/CLogFile.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/Services.h"
#include "support/VbError.h"

#include <QStringList>

namespace kestrova::news {

namespace {

constexpr int kFileAccessError = 75;

NewsServers::Ptr serverFor(const core::PortfolioRecord& record, const core::QuoteOptions& quoteOptions,
                           const quotes::BuiltInServers& builtIn, const NewsServers& servers)
{
    const int index = record.server != 0 ? record.server : quoteOptions.server;
    if (index >= 0 && index < quotes::BuiltInServers::kCount) {
        const QString name = builtIn.at(index).name;
        if (servers.contains(name)) {
            return servers.Item(name);
        }
    }
    return servers.Item(1);
}

} // namespace

QString newsPageUrl(const core::PortfolioTable& portfolio, const core::QuoteOptions& quoteOptions,
                    const quotes::BuiltInServers& builtIn, const NewsServers& servers, const QString& ticker)
{
    if (servers.Count() == 0) {
        return {};
    }
    // A story of a ticker no longer in the portfolio comes from the default service's server.
    core::PortfolioRecord record;
    const int slot = core::findEntry(portfolio, ticker);
    if (slot >= 0) {
        record = portfolio.records[static_cast<size_t>(slot)];
    }
    return serverFor(record, quoteOptions, builtIn, servers)->requestUrl(ticker.trimmed());
}

NewsRetrievalResult RetrieveNews(const core::PortfolioTable& portfolio, const core::QuoteOptions& quoteOptions,
                                 const quotes::BuiltInServers& builtIn, const NewsServers& servers,
                                 quotes::PageFetcher& fetcher, NewsStories& stories, const support::Services& services,
                                 qint16 purgeDays, core::Quotes* stockQuotes)
{
    NewsRetrievalResult result;
    if (servers.Count() == 0) {
        return result;
    }
    services.host.setStatusText(QStringLiteral("Getting News"));

    QStringList tickers;
    QStringList urls;
    QList<NewsServers::Ptr> chosen;
    const int inUse = std::min<int>(portfolio.count, core::PortfolioTable::kSlots);
    for (int i = 0; i < inUse; ++i) {
        const core::PortfolioRecord& record = portfolio.records[static_cast<size_t>(i)];
        if (record.news == 0) {
            continue;
        }
        QString ticker = record.ticker.trimmed();
        if (record.effectiveType() == 1) {
            ticker.remove(u' ');
        }
        if (ticker.isEmpty() || tickers.contains(ticker)) {
            continue;
        }
        chosen << serverFor(record, quoteOptions, builtIn, servers);
        tickers << ticker;
        urls << chosen.last()->requestUrl(ticker);
    }
    result.tickers = static_cast<int>(tickers.size());
    if (tickers.isEmpty()) {
        return result;
    }

    const QStringList pages =
        fetcher.getMany(urls, 8, [&services](int, const QString&) { return !services.cancelled(); });

    const QDate today = services.clock.today();
    const QString todayText = support::formatDate(QDateTime(today, QTime(0, 0)), u"mm/dd/yyyy");
    for (qsizetype i = 0; i < tickers.size() && i < pages.size(); ++i) {
        if (pages[i].isEmpty()) {
            continue;
        }
        ++result.pages;
        const QString& ticker = tickers[i];
        for (const ScrapedStory& found : chosen[i]->ExtractStories(pages[i])) {
            if (stories.FindStory(found.headline) != 0) {
                continue;
            }
            auto story = std::make_shared<News>();
            story->setTicker(ticker);
            story->setNewsLine(found.headline);
            story->setNewsSource(found.source);
            const QDate date = NewsStories::storyDate(found.date);
            story->setSDate(date.isValid() ? support::formatDate(QDateTime(date, QTime(0, 0)), u"mm/dd/yyyy")
                                           : todayText);
            story->setBNew(!date.isValid() || date == today);
            story->setTime(found.time);
            story->setPaged(false);
            stories.Add(story);
            ++result.added;
        }
    }

    if (stockQuotes) {
        markFreshNews(*stockQuotes, stories);
    }
    // The purge rides on the save the retrieval makes anyway, so news.dat never grows past
    // the kept days by more than one update's headlines.
    stories.PurgeNews(purgeDays);
    if (!stories.WriteNews()) {
        // Named: on a full disk the user has to know which file kept its old stories.
        throw support::VbError(kFileAccessError,
                               QStringLiteral("Path/File access error (") + stories.fileName() + u')');
    }
    services.log.LogMessage(QStringLiteral("Internet: News Retrieved"));
    return result;
}

void markFreshNews(core::Quotes& quotes, const NewsStories& stories)
{
    for (const core::Quotes::Ptr& q : quotes) {
        q->setNews(stories.IsNewsOut(q->ticker()) ? qint16(-1) : qint16(0));
    }
}

} // namespace kestrova::news
