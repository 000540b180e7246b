#include "quotes/QuoteCycle.h"

#include "core/OptionRegistry.h"
#include "quotes/SourceAnswer.h"
#include "quotes/SourceFill.h"
#include "quotes/SourceHealth.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/VbError.h"

#include <QElapsedTimer>
#include <QHash>
#include <QTcpSocket>

#include <algorithm>

#include <exception>
#include <memory>
#include <vector>

namespace kestrova::quotes {

namespace {

struct Job
{
    std::shared_ptr<core::Quote> quote; // the portfolio's settings; every source fills a copy
    QString ticker;                     // key in the quote set, and what the progress shows
    QString serverTicker;               // what the servers.dat server is asked for
    int serverIndex = 0;
    bool option = false;
    int position = 0; // 1-based within its own list
    int listLength = 0;
    std::shared_ptr<Qserver> server;       // null when the definition is missing
    QString error;                         // the definition lookup's or the fill's failure
    std::shared_ptr<core::Quote> result;   // what goes into the set
    std::shared_ptr<core::Quote> fallback; // a servers.dat page without a price, kept in case
                                           // no later source prices the security
};

std::shared_ptr<core::Quote> quoteFor(const core::PortfolioRecord& r, int slot, const QString& ticker)
{
    auto q = std::make_shared<core::Quote>();
    q->setTicker(ticker);
    // The holding makes the quote's market value and gain meaningful.
    q->setShares(r.shares);
    q->setCostBasis(r.costBasis);
    q->setHighLimit(r.highLimit);
    q->setLowLimit(r.lowLimit);
    q->setPageCloseOnly(r.marketOnly != 0);
    q->setToPager(r.toPager != 0);
    q->setSecurityType(r.effectiveType());
    q->setHighChgLimit(r.highChgLimit);
    q->setLowChgLimit(r.lowChgLimit);
    q->setVolumeLimit(float(r.volumeLimit));
    q->setDigits(r.digits);
    q->setServerID(r.server);
    q->setSecurityIndex(qint16(slot));
    return q;
}

QString errorText(const std::exception& e)
{
    if (const auto* vb = dynamic_cast<const support::VbError*>(&e))
        return vb->description();
    return QString::fromLocal8Bit(e.what());
}

// Services that say "not now" without saying for how long are left alone for a minute;
// one that asks for more than an hour is asked again after the hour.
constexpr int kDefaultRestSeconds = 60;
constexpr int kLongestRestSeconds = 3600;

} // namespace

namespace {

// The set key a portfolio entry is fetched under: options without blanks.
QString cycleTicker(const core::PortfolioRecord& r)
{
    return r.effectiveType() == 1 ? QString(r.ticker).remove(u' ') : r.ticker.trimmed();
}

} // namespace

std::vector<std::shared_ptr<const core::Quote>> tableRows(const core::PortfolioTable& portfolio,
                                                          const core::Quotes& stockSet, const core::Quotes& optionSet)
{
    std::vector<std::shared_ptr<const core::Quote>> rows;
    QHash<QString, std::shared_ptr<const core::Quote>> priced[2];
    QList<std::shared_ptr<const core::Quote>> unclaimed;
    for (int set = 0; set < 2; ++set) {
        for (const auto& q : set == 0 ? stockSet : optionSet) {
            priced[set].insert(q->ticker().toLower(), q);
            unclaimed << q;
        }
    }
    const int used = qBound(0, int(portfolio.count), core::PortfolioTable::kMaxInUse);
    for (int set = 0; set < 2; ++set) {
        for (int slot = 0; slot < used; ++slot) {
            const core::PortfolioRecord& r = portfolio.records[size_t(slot)];
            const QString ticker = cycleTicker(r);
            if ((r.effectiveType() == 1) != (set == 1) || ticker.isEmpty()) {
                continue;
            }
            if (const auto q = priced[set].value(ticker.toLower())) {
                rows.push_back(q);
                unclaimed.removeOne(q);
                continue;
            }
            auto blank = quoteFor(r, slot, ticker);
            blank->setName(r.name);
            rows.push_back(std::move(blank));
        }
    }
    for (const auto& q : std::as_const(unclaimed)) {
        rows.push_back(q);
    }
    return rows;
}

int pricingServer(const core::Quote& quote, int defaultServer)
{
    const int index = quote.securityType() != 1 && quote.serverID() == 0 ? defaultServer : quote.serverID();
    return std::clamp(index, 0, BuiltInServers::kCount - 1);
}

QString sourceName(const core::Quote& quote, const BuiltInServers& builtIn, int defaultServer)
{
    if (!quote.source().isEmpty()) {
        return quote.source();
    }
    return builtIn.at(pricingServer(quote, defaultServer)).name;
}

QString optionTicker(const QString& symbol, int serverIndex)
{
    QString s = symbol;
    s.remove(u' ');
    if (serverIndex == BuiltInServers::kSignByPercent1 || serverIndex == BuiltInServers::kLabelledPage)
        return QStringLiteral("%2b") + s;
    return u'.' + s;
}

QStringList effectiveOrder(const QString& portfolioOrder, const SourceFile& file)
{
    QStringList order;
    for (const QString& name : portfolioOrder.split(u',', Qt::SkipEmptyParts)) {
        if (!name.trimmed().isEmpty())
            order << name.trimmed();
    }
    if (order.isEmpty())
        order = file.order;
    if (order.isEmpty())
        order << kServersDatEntry;
    return order;
}

std::vector<SourceStage> sourceStages(const SourceSetup* sources, const support::Services& sv, bool report)
{
    auto note = [&](const QString& line) {
        if (report)
            sv.log.LogMessage(line);
    };
    std::vector<SourceStage> stages;
    const QStringList order = sources ? sources->order : QStringList{kServersDatEntry};
    QStringList taken;
    for (const QString& entry : order) {
        if (taken.contains(entry, Qt::CaseInsensitive))
            continue;
        taken << entry;
        if (entry.compare(kServersDatEntry, Qt::CaseInsensitive) == 0) {
            stages.push_back({});
            continue;
        }
        const SourceDefinition* source = sources->file.find(entry);
        if (!source) {
            note(QStringLiteral("Quote source %1 is not defined in sources.json").arg(entry));
            continue;
        }
        const QString key = sources->key ? sources->key(source->name) : QString();
        if (source->needsKey() && key.isEmpty()) {
            note(QStringLiteral("Quote source %1 needs a key: kestrova-cli options set %2 -")
                     .arg(source->name, core::OptionRegistry::sourceKeyOption(source->name)));
            continue;
        }
        const QDateTime rest = sources->health ? sources->health->restedUntil(source->name) : QDateTime();
        if (rest.isValid() && rest > sv.clock.now()) {
            note(QStringLiteral("Quote source %1 is resting until %2")
                     .arg(source->name, support::formatDate(rest, u"hh:mm")));
            continue;
        }
        stages.push_back({source, key});
    }
    return stages;
}

QStringList askSource(const SourceStage& stage, const std::vector<SourceItem>& items, PageFetcher& fetcher,
                      const support::Services& sv, SourceHealth* health, bool countPrices,
                      const std::function<bool()>& keepGoing,
                      const std::function<void(size_t item, const SymbolAnswer& answer)>& priced)
{
    const SourceDefinition& src = *stage.source;
    const QDate today = sv.clock.today();
    QStringList warnings;
    auto warn = [&](const QString& warning) {
        if (!warning.isEmpty())
            warnings << warning;
    };
    struct Request
    {
        std::vector<size_t> items;
        QStringList symbols;
    };
    std::vector<Request> requests;
    for (size_t i = 0; i < items.size(); ++i) {
        const qint16 type = items[i].type;
        if (type < 0 || type > 3 || !src.types[size_t(type)])
            continue;
        if (requests.empty() || int(requests.back().items.size()) >= (src.batch ? src.batchSize : 1))
            requests.emplace_back();
        requests.back().items.push_back(i);
        requests.back().symbols << sourceSymbol(src, items[i].ticker);
    }
    if (requests.empty())
        return warnings;
    std::vector<HttpRequest> http;
    for (const Request& r : requests)
        http.push_back(sourceHttpRequest(src, r.symbols, stage.key));
    sv.host.setStatusText(QStringLiteral("Getting quotes from ") + src.name);
    auto rest = [&](int seconds, const QString& why) {
        const int wait = seconds > 0 ? qMin(seconds, kLongestRestSeconds) : kDefaultRestSeconds;
        const QDateTime until = sv.clock.now().addSecs(wait);
        if (health)
            health->rest(src.name, until);
        sv.StatusMessage(QStringLiteral("Quote source %1 asked to wait (%2): resting until %3")
                             .arg(src.name, why, support::formatDate(until, u"hh:mm")));
    };
    fetcher.fetch(http, [&](int index, const HttpResponse& r) {
        const Request& req = requests[size_t(index)];
        if (r.status == 429 || (r.status == 503 && r.retryAfterSeconds > 0)) {
            rest(r.retryAfterSeconds, QStringLiteral("HTTP %1").arg(r.status));
            return false; // the rest of its requests go to the next source
        }
        if (!r.error.isEmpty() || r.status == 0) {
            sv.log.LogMessage(
                QStringLiteral("Quote source %1: %2: %3").arg(src.name, http[size_t(index)].shownUrl, r.error));
            return keepGoing();
        }
        const SourceAnswer answer = parseSourceAnswer(src, r.body, req.symbols);
        if (answer.rateLimited) {
            rest(r.retryAfterSeconds, answer.failure);
            return false;
        }
        const bool httpError = r.status >= 400;
        for (size_t k = 0; k < req.items.size(); ++k) {
            const QString& ticker = items[req.items[k]].ticker;
            const SymbolAnswer* sa =
                answer.failure.isEmpty() && k < answer.symbols.size() ? &answer.symbols[k] : nullptr;
            if (!httpError && sa && sa->priced) {
                priced(req.items[k], *sa);
                if (health && countPrices)
                    warn(health->priced(src.name, ticker, sa->missingFields, today));
                continue;
            }
            QString why = answer.failure.isEmpty() ? (sa ? sa->failure : QString()) : answer.failure;
            if (httpError)
                why = QStringLiteral("HTTP %1").arg(r.status) + (why.isEmpty() ? QString() : u": " + why);
            sv.log.LogMessage(QStringLiteral("Quote source %1: %2: %3").arg(src.name, ticker, why));
            // An answer came and held no price: that counts towards the health check; a
            // server error does not.
            if (health && countPrices && r.status < 500)
                warn(health->noPrice(src.name, ticker, today));
        }
        return keepGoing();
    });
    return warnings;
}

CycleResult GetQuotes(CycleContext& ctx, core::Quotes& stockSet, core::Quotes& optionSet)
{
    const support::Services& sv = ctx.services;
    CycleResult result;
    stockSet.Clear();
    optionSet.Clear();

    std::vector<Job> stocks;
    std::vector<Job> options;
    const int used = qBound(0, int(ctx.portfolio.count), core::PortfolioTable::kMaxInUse);
    for (int slot = 0; slot < used; ++slot) {
        const core::PortfolioRecord& r = ctx.portfolio.records[size_t(slot)];
        Job job;
        job.option = r.effectiveType() == 1;
        job.ticker = cycleTicker(r);
        if (job.ticker.isEmpty())
            continue;
        job.quote = quoteFor(r, slot, job.ticker);
        if (job.option) {
            job.serverIndex = r.server;
        } else {
            // A security names its own service by a non-zero index; 0 means "the default".
            job.serverIndex = r.server != 0 ? r.server : ctx.options.quotes.server;
        }
        (job.option ? options : stocks).push_back(std::move(job));
    }
    std::vector<Job*> all;
    for (auto* list : {&stocks, &options}) {
        for (size_t i = 0; i < list->size(); ++i) {
            (*list)[i].position = int(i) + 1;
            (*list)[i].listLength = int(list->size());
            all.push_back(&(*list)[i]);
        }
    }
    result.requested = int(all.size());

    if (ctx.options.news.retrieve && ctx.retrieveNews) {
        try {
            ctx.retrieveNews();
        } catch (const support::VbError& e) {
            sv.log.LogMessage(QStringLiteral("RetrieveNews: Error ") + QString::number(e.number()) +
                              QStringLiteral(": ") + e.description());
        } catch (const std::exception& e) {
            sv.log.LogMessage(QStringLiteral("RetrieveNews: ") + QString::fromLocal8Bit(e.what()));
        }
    }

    auto announce = [&](const QString& text) {
        sv.host.setStatusText(text);
        sv.StatusMessage(text);
    };
    auto stopRequested = [&] { return sv.cancel.isSet() || (ctx.stop && *ctx.stop); };
    announce(QStringLiteral("Getting Stock Quotes"));

    const std::vector<SourceStage> stages = sourceStages(ctx.sources, sv);
    // An order that names more than servers.dat says in the status list who priced what.
    bool modern = false;
    for (const QString& entry : ctx.sources ? ctx.sources->order : QStringList())
        modern = modern || entry.compare(kServersDatEntry, Qt::CaseInsensitive) != 0;

    const ScrapeContext scrape{ctx.fetcher, ctx.builtIn, sv.clock, sv.host};
    auto warn = [&](const QString& warning) {
        if (!warning.isEmpty())
            result.healthWarnings << warning;
    };

    // servers.dat: one page per security, scraped by its server's keys and offsets. Not the
    // last stage, a page without a price lets the next source try.
    auto runServersDat = [&](const std::vector<Job*>& pending, bool lastStage) {
        // Request URLs are worked out up front: every security of one service shares that
        // service's Qserver, whose Ticker the URL is built from.
        std::vector<Job*> fetched;
        QStringList urls;
        for (Job* job : pending) {
            try {
                const QServers& col = job->option ? ctx.servers.option : ctx.servers.stock;
                job->server = col.Item(ctx.builtIn.at(job->serverIndex).name);
                job->serverTicker = job->option ? optionTicker(job->ticker, job->serverIndex) : job->ticker;
                job->server->setTicker(job->serverTicker);
                urls << job->server->requestUrl(ctx.fetcher);
                fetched.push_back(job);
            } catch (const std::exception& e) {
                job->server.reset();
                job->error = errorText(e);
            }
        }
        std::vector<PageBody> bodies;
        if (!urls.isEmpty()) {
            bodies =
                ctx.fetcher.getPages(urls, ctx.maxParallel, [&](int, const PageBody&) { return !stopRequested(); });
        }
        for (size_t i = 0; i < fetched.size(); ++i) {
            Job& job = *fetched[i];
            if (bodies[i].isEmpty())
                continue;
            auto q = std::make_shared<core::Quote>(*job.quote);
            try {
                job.server->setTicker(job.serverTicker);
                sv.host.setBusy(true);
                const bool filled = job.server->fillQuote(*q, bodies[i], scrape);
                sv.host.setBusy(false);
                if (!filled)
                    continue;
                q->setSource(job.server->serverName());
                if (lastStage || q->lastValue() != 0)
                    job.result = q;
                else
                    job.fallback = q;
            } catch (const std::exception& e) {
                sv.host.setBusy(false);
                job.error = errorText(e);
            }
            bodies[i] = PageBody();
        }
    };

    // A modern source: what it prices is filled at once, the rest waits for the next.
    auto runSource = [&](const SourceStage& stage, const std::vector<Job*>& pending) {
        std::vector<SourceItem> items;
        for (const Job* job : pending)
            items.push_back({job->ticker, job->quote->securityType()});
        const QStringList warnings = askSource(
            stage, items, ctx.fetcher, sv, ctx.sources->health, true, [&] { return !stopRequested(); },
            [&](size_t i, const SymbolAnswer& answer) {
                Job& job = *pending[i];
                auto q = std::make_shared<core::Quote>(*job.quote);
                fillFromSource(*q, answer.values, stage.source->name);
                job.result = q;
                job.fallback.reset();
            });
        for (const QString& w : warnings)
            warn(w);
    };

    bool stopped = false;
    for (size_t s = 0; s < stages.size() && !stopped; ++s) {
        std::vector<Job*> pending;
        for (Job* job : all) {
            if (!job->result)
                pending.push_back(job);
        }
        if (pending.empty())
            break;
        if (stages[s].source)
            runSource(stages[s], pending);
        else
            runServersDat(pending, s + 1 == stages.size());
        stopped = stopRequested();
    }

    // Into the sets in list order, with the progress and messages of a one-by-one cycle. A
    // halt during the fetching keeps what had come in up to the first security still
    // without an outcome.
    bool optionsAnnounced = false;
    QStringList pricedBy;
    QHash<QString, QStringList> tickersBy;
    bool halted = false;
    for (Job* job : all) {
        if (!job->result && job->fallback)
            job->result = job->fallback;
        if (stopped && !job->result && job->error.isEmpty()) {
            halted = true;
            break;
        }
        if (job->option && !optionsAnnounced) {
            optionsAnnounced = true;
            announce(QStringLiteral("Getting Option Quotes"));
        }
        sv.host.setProgress(support::formatNumber(double(job->position) / job->listLength, u"###%"),
                            (job->option ? QStringLiteral("Getting Options - ") : QStringLiteral("Getting Stocks - ")) +
                                job->ticker);
        if (job->result) {
            (job->option ? optionSet : stockSet).Add(job->result, job->ticker);
            const QString by = job->result->source();
            if (!tickersBy.contains(by))
                pricedBy << by;
            tickersBy[by] << job->ticker;
        } else if (!job->error.isEmpty()) {
            sv.StatusMessage(QStringLiteral("GetQuotes:: ") + job->ticker + QStringLiteral(": ") + job->error);
        }
        if (stopRequested()) {
            halted = true;
            break;
        }
    }
    if (halted || stopped)
        return result;
    if (!optionsAnnounced)
        announce(QStringLiteral("Getting Option Quotes"));
    // With more than one kind of source, the status list tells which one priced what.
    if (modern) {
        for (const QString& by : pricedBy)
            sv.StatusMessage(
                QStringLiteral("Quotes from %1: %2").arg(by, tickersBy.value(by).join(QStringLiteral(", "))));
    }
    for (const QString& w : result.healthWarnings)
        sv.StatusMessage(w);
    sv.log.LogMessage(QStringLiteral("Internet: Quotes Retrieved"));
    result.completed = true;
    result.quotesAvailable = true;
    return result;
}

QString FastestServer(bool apply, const BuiltInServers& builtIn, const support::Services& services,
                      const std::function<double(const QString& host)>& responseTime, qint16& defaultServer,
                      int* chosenIndex)
{
    services.host.setStatusText(QStringLiteral("Determining Fastest Server..."));
    double best = 99999999;
    int chosen = -1;
    for (int i = 0; i < BuiltInServers::kCount && !services.cancel.isSet(); ++i) {
        const BuiltInServer& entry = builtIn.at(i);
        if (entry.testFlag != 1)
            continue;
        const double t = responseTime(entry.probeHost);
        if (t != -1 && t < best) {
            best = t;
            chosen = i;
        }
    }
    if (chosenIndex)
        *chosenIndex = chosen;
    if (apply && chosen > 0)
        defaultServer = qint16(chosen);
    return builtIn.at(chosen >= 0 ? chosen : 0).probeHost;
}

double ResponseTime(const QString& host, quint16 port, int timeoutMs, const support::Services& services)
{
    QTcpSocket socket;
    QElapsedTimer elapsed;
    elapsed.start();
    socket.connectToHost(host, port);
    const QDateTime deadline = services.clock.now().addMSecs(timeoutMs);
    while (socket.state() != QAbstractSocket::ConnectedState) {
        if (socket.state() == QAbstractSocket::UnconnectedState || services.clock.now() >= deadline ||
            services.cancel.isSet()) {
            socket.abort();
            return -1;
        }
        services.host.yield(10);
    }
    const double ms = double(elapsed.nsecsElapsed()) / 1e6;
    socket.abort();
    return ms;
}

} // namespace kestrova::quotes
