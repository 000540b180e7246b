#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "cli/QuoteJson.h"
#include "cli/QuoteTable.h"
#include "cli/SignalWatcher.h"
#include "history/HistoryRecorder.h"
#include "news/NewsRetrieval.h"
#include "news/NewsServer.h"
#include "news/NewsStories.h"
#include "news/ServerFiles.h"
#include "quotes/CurlFetcher.h"
#include "quotes/MarketSummary.h"
#include "quotes/QuoteCycle.h"
#include "quotes/ServersDat.h"
#include "quotes/SourceHealth.h"

#include "support/Secrets.h"
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <QTextStream>
#include <QUrl>

namespace kestrova::cli {

namespace {

const QString kServersUsage = QStringLiteral("Usage: kestrova-cli [global options] servers\n"
                                             "Loads server.dat and servers.dat from the data directory and lists\n"
                                             "the stock and option quote servers they define.\n");

const QString kQuotesUsage =
    QStringLiteral("Usage: kestrova-cli [global options] quotes [--json]\n"
                   "Runs one retrieval cycle for the portfolio (with the market summary and news\n"
                   "when the portfolio switches them on) and prints the quotes with their alarm\n"
                   "marks. --json prints every field of every quote, each figure as its text and\n"
                   "as a number (see docs/quotes-json.md). Exits with 1 when no quote at all could\n"
                   "be fetched.\n");

bool loadDefinitions(CliContext& ctx, const quotes::BuiltInServers& builtIn, quotes::ServerDefinitions& defs,
                     news::NewsServers& newsServers)
{
    return news::loadServerDefinitions(ctx.global.dataDir, newsServers, defs, builtIn, ctx.shownHost);
}

void listServers(QTextStream& out, const QString& title, const quotes::QServers& servers,
                 const quotes::BuiltInServers& builtIn)
{
    out << title << " (" << servers.Count() << "):\n";
    for (const auto& s : servers) {
        const bool known = s->serverIndex() >= 0 && s->serverIndex() < quotes::BuiltInServers::kCount;
        out << "  " << QString::number(s->serverIndex()).rightJustified(2) << "  " << s->serverName().leftJustified(20)
            << ' ' << quotes::CurlFetcher::redactUrl(s->url())
            << (known && !builtIn.at(s->serverIndex()).user.isEmpty() ? QStringLiteral("  (log-on)") : QString())
            << '\n';
    }
}

int serversCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kServersUsage;
        return kExitOk;
    }
    if (!args.isEmpty())
        return usageError(kServersUsage, QStringLiteral("unexpected argument ") + args.first());
    CliContext ctx(g);
    // Log-ons live in the portfolio; without one the list is still worth showing.
    if (!ctx.portfolioPath.isEmpty())
        ctx.loadPortfolio();
    const quotes::BuiltInServers builtIn(ctx.options.quotes);
    quotes::ServerDefinitions defs;
    news::NewsServers newsServers;
    const bool ok = loadDefinitions(ctx, builtIn, defs, newsServers);
    QTextStream out(stdout);
    out << "servers.dat version: " << defs.version << '\n';
    listServers(out, QStringLiteral("Stock quote servers"), defs.stock, builtIn);
    listServers(out, QStringLiteral("Option quote servers"), defs.option, builtIn);
    return ok ? kExitOk : kExitFailure;
}

int quotesCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kQuotesUsage;
        return kExitOk;
    }
    bool json = false;
    for (const QString& a : args) {
        if (a == QLatin1String("--json"))
            json = true;
        else
            return usageError(kQuotesUsage, QStringLiteral("unexpected argument ") + a);
    }
    CliContext ctx(g);
    // Status lines would break the JSON document on stdout; the log still has them.
    ctx.host.quiet = json;
    if (!ctx.loadPortfolio())
        return kExitFailure;
    const quotes::BuiltInServers builtIn(ctx.options.quotes);
    quotes::ServerDefinitions defs;
    news::NewsServers newsServers;
    loadDefinitions(ctx, builtIn, defs, newsServers);

    quotes::CurlFetcher fetcher(ctx.shownHost, ctx.options.proxy);
    fetcher.setHostConnections(ctx.prefs.hostConnections);
    // Ctrl-C and SIGTERM drop the transfers in flight at once.
    SignalWatcher stop([&ctx](int) { ctx.cancel.set(); });
    fetcher.setCancelCheck([&ctx] { return ctx.cancel.isSet(); });
    fetcher.setMaxBodyBytes(qint64(ctx.prefs.maxPageKb) * 1024);
    QSet<QString> shown; // one line per host and cause, however many tickers meet it
    fetcher.setErrorCallback([&ctx, &shown](const QString& url, const QString& message) {
        ctx.log.LogMessage(QStringLiteral("GetQuote: ") + url + QStringLiteral(": ") + message);
        const QString key = QUrl(url).host() + u'|' + message;
        if (!ctx.cancel.isSet() && !shown.contains(key)) {
            shown.insert(key);
            ctx.services.Failure(QStringLiteral("Could not fetch ") + url + QStringLiteral(": ") + message);
        }
    });

    // sources.json was installed with the other definition files. The market summary and
    // the quotes ask its sources in the same order.
    const quotes::SourceFile sourceFile =
        quotes::loadSourcesJson(news::serverFilePath(g.dataDir, QStringLiteral("sources.json")));
    for (const QString& problem : sourceFile.problems)
        ctx.services.StatusMessage(problem);
    quotes::SourceHealth health;
    const QString healthPath = QDir(g.dataDir).filePath(QStringLiteral("sources.state"));
    health.load(healthPath);
    const quotes::SourceSetup sources{sourceFile, quotes::effectiveOrder(ctx.options.sources.order, sourceFile),
                                      &CliContext::sourceKey, &health};

    quotes::MarketSummary market;
    bool haveMarket = false;
    if (ctx.options.quotes.marketSummary)
        haveMarket = quotes::GetMarketData(market, fetcher, ctx.options.quotes.marketUrl, ctx.services, &sources);

    if (ctx.options.quotes.fastest && ctx.options.gateFlag == 0) {
        const QString host = quotes::FastestServer(
            true, builtIn, ctx.services,
            [&ctx](const QString& h) { return quotes::ResponseTime(h, 80, 3000, ctx.services); },
            ctx.options.quotes.server);
        ctx.log.LogMessage(QStringLiteral("Connecting to: ") + host);
    }

    news::NewsStories stories(ctx.clock, QDir(g.dataDir).filePath(QStringLiteral("news.dat")));
    if (ctx.options.news.retrieve)
        stories.ReadNews();
    quotes::CycleContext cycle{ctx.services, fetcher, builtIn, defs, ctx.options, ctx.portfolio, {}};
    cycle.sources = &sources;
    cycle.retrieveNews = [&] {
        news::RetrieveNews(ctx.portfolio, ctx.options.quotes, builtIn, newsServers, fetcher, stories, ctx.services,
                           ctx.options.news.purgeDays);
    };
    core::Quotes stocks;
    core::Quotes options;
    const QDateTime fetchedAt = ctx.clock.now();
    const quotes::CycleResult result = quotes::GetQuotes(cycle, stocks, options);
    if (const support::SaveResult saved = health.save(healthPath, ctx.clock.today()); !saved)
        ctx.services.Failure(quotes::SourceHealth::saveFailure(healthPath, saved));
    if (ctx.options.news.retrieve)
        news::markFreshNews(stocks, stories);
    // A cycle from cron fills the chart like one of the program's own updates.
    history::HistoryRecorder history(ctx.services, QDir(g.dataDir).filePath(history::HistoryStore::defaultFileName()));
    history.recordCycle(
        result.completed, stocks, options, fetchedAt,
        [&](const core::Quote& q) { return quotes::sourceName(q, builtIn, ctx.options.quotes.server); }, false);
    if (ctx.cancel.isSet()) {
        ctx.services.StatusMessage(QStringLiteral("Operation Cancelled"));
        return stop.exitStatus(kExitFailure);
    }

    const int got = stocks.Count() + options.Count();
    // What the services sent is printed as the rest of the program shows text: without a secret.
    QString text;
    QTextStream out(&text);
    if (json) {
        auto toJson = [&](const core::Quote& q) {
            const int source = quotes::pricingServer(q, ctx.options.quotes.server);
            const QString page = builtIn.at(source).name;
            // A quote priced by a source of sources.json names that source and no service number.
            if (!q.source().isEmpty() && q.source().compare(page, Qt::CaseInsensitive) != 0)
                return quoteJson(q, QJsonValue(QJsonValue::Null), q.source());
            return quoteJson(q, source, page);
        };
        QJsonArray s;
        for (const auto& q : stocks)
            s.append(toJson(*q));
        QJsonArray o;
        for (const auto& q : options)
            o.append(toJson(*q));
        QJsonObject doc{{QStringLiteral("requested"), result.requested},
                        {QStringLiteral("retrieved"), got},
                        {QStringLiteral("completed"), result.completed},
                        {QStringLiteral("stocks"), s},
                        {QStringLiteral("options"), o}};
        if (haveMarket) {
            doc.insert(
                QStringLiteral("market"),
                QJsonObject{{QStringLiteral("caption"), market.caption},
                            {QStringLiteral("dow"), market.lblDow},
                            {QStringLiteral("dowChange"), market.lblDowChg},
                            {QStringLiteral("nasdaq"), market.lblNASDAQ},
                            {QStringLiteral("nasdaqChange"), market.lblNASDAQChg},
                            {QStringLiteral("sp500"), market.lblSP500},
                            {QStringLiteral("sp500Change"), market.lblSP500Chg},
                            {QStringLiteral("pageText"), quotes::MarketSummaryPageText(market, ctx.options.quotes)}});
        }
        out << QJsonDocument(doc).toJson(QJsonDocument::Indented);
    } else {
        printQuoteTable(out, QStringLiteral("Stocks"), stocks);
        printQuoteTable(out, QStringLiteral("Options"), options);
        if (haveMarket) {
            out << market.caption << ": DOW " << market.lblDow << ' ' << market.lblDowChg << ", NASDAQ "
                << market.lblNASDAQ << ' ' << market.lblNASDAQChg << ", S&P 500 " << market.lblSP500 << ' '
                << market.lblSP500Chg << '\n';
        }
        out << got << " of " << result.requested << " quotes retrieved\n";
    }
    out.flush();
    QTextStream(stdout) << support::redactSecrets(text);
    return got > 0 ? kExitOk : kExitFailure;
}

} // namespace

void registerQuotesCommands(Registry& r)
{
    r.add(
        {QStringLiteral("servers"), QStringLiteral("list the stock and option quote servers loaded"), serversCommand});
    r.add({QStringLiteral("quotes"), QStringLiteral("run one quote retrieval cycle and print the quotes"),
           quotesCommand});
}

} // namespace kestrova::cli
