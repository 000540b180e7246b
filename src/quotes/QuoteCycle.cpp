#include "quotes/QuoteCycle.h"

#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/VbError.h"

#include <QElapsedTimer>
#include <QTcpSocket>

#include <algorithm>

#include <exception>
#include <memory>
#include <vector>

namespace kestrova::quotes {

namespace {

struct Job
{
    std::shared_ptr<core::Quote> quote;
    QString ticker;       // key in the quote set, and what the progress shows
    QString serverTicker; // what the server is asked for
    int serverIndex = 0;
    bool option = false;
    int position = 0; // 1-based within its own list
    int listLength = 0;
    std::shared_ptr<Qserver> server; // null when the definition is missing
    QString error;                   // the definition lookup's failure
    QString url;
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

} // namespace

int pricingServer(const core::Quote& quote, int defaultServer)
{
    const int index = quote.securityType() != 1 && quote.serverID() == 0 ? defaultServer : quote.serverID();
    return std::clamp(index, 0, BuiltInServers::kCount - 1);
}

QString optionTicker(const QString& symbol, int serverIndex)
{
    QString s = symbol;
    s.remove(u' ');
    if (serverIndex == BuiltInServers::kSignByPercent1 || serverIndex == BuiltInServers::kLabelledPage)
        return QStringLiteral("%2b") + s;
    return u'.' + s;
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
        job.ticker = job.option ? QString(r.ticker).remove(u' ') : r.ticker.trimmed();
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
    for (auto* list : {&stocks, &options}) {
        for (size_t i = 0; i < list->size(); ++i) {
            (*list)[i].position = int(i) + 1;
            (*list)[i].listLength = int(list->size());
        }
    }
    result.requested = int(stocks.size() + options.size());

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

    // Request URLs are worked out up front: every security of one service shares that
    // service's Qserver, whose Ticker the URL is built from.
    std::vector<Job*> order;
    QStringList urls;
    for (auto* list : {&stocks, &options}) {
        for (Job& job : *list) {
            try {
                const QServers& col = job.option ? ctx.servers.option : ctx.servers.stock;
                job.server = col.Item(ctx.builtIn.at(job.serverIndex).name);
                job.serverTicker = job.option ? optionTicker(job.ticker, job.serverIndex) : job.ticker;
                job.server->setTicker(job.serverTicker);
                job.url = job.server->requestUrl(ctx.fetcher);
            } catch (const std::exception& e) {
                job.server.reset();
                job.error = errorText(e);
            }
            order.push_back(&job);
            // A security without a usable definition is still a place in the list; its
            // empty URL is never fetched.
            if (job.server)
                urls << job.url;
        }
    }

    std::vector<int> urlIndex(order.size(), -1);
    {
        int u = 0;
        for (size_t i = 0; i < order.size(); ++i) {
            if (order[i]->server)
                urlIndex[i] = u++;
        }
    }
    std::vector<bool> arrived(size_t(urls.size()), false);
    QStringList bodies;
    bodies.resize(urls.size());

    const ScrapeContext scrape{ctx.fetcher, ctx.builtIn, sv.clock, sv.host};
    size_t next = 0; // the next security to fill, in list order
    bool stopped = false;
    bool optionsAnnounced = false;

    auto announce = [&](const QString& text) {
        sv.host.setStatusText(text);
        sv.StatusMessage(text);
    };
    auto stopRequested = [&] { return sv.cancel.isSet() || (ctx.stop && *ctx.stop); };

    // Fills every security whose page (or failure) is known, in list order, until one is
    // still on its way. False when the user called a halt.
    auto drain = [&]() -> bool {
        while (next < order.size()) {
            const int u = urlIndex[next];
            if (u >= 0 && !arrived[size_t(u)])
                return true;
            Job& job = *order[next];
            if (job.option && !optionsAnnounced) {
                optionsAnnounced = true;
                announce(QStringLiteral("Getting Option Quotes"));
            }
            sv.host.setProgress(
                support::formatNumber(double(job.position) / job.listLength, u"###%"),
                (job.option ? QStringLiteral("Getting Options - ") : QStringLiteral("Getting Stocks - ")) + job.ticker);
            try {
                if (!job.server)
                    throw support::VbError(support::VbError::InvalidCall, job.error);
                job.server->setTicker(job.serverTicker);
                sv.host.setBusy(true);
                const bool filled = job.server->fillQuote(*job.quote, bodies[u], scrape);
                sv.host.setBusy(false);
                if (filled)
                    (job.option ? optionSet : stockSet).Add(job.quote, job.ticker);
            } catch (const std::exception& e) {
                sv.host.setBusy(false);
                sv.StatusMessage(QStringLiteral("GetQuotes:: ") + job.ticker + QStringLiteral(": ") + errorText(e));
            }
            if (u >= 0)
                bodies[u].clear();
            ++next;
            if (stopRequested()) {
                stopped = true;
                return false;
            }
        }
        return true;
    };

    announce(QStringLiteral("Getting Stock Quotes"));
    if (drain() && !urls.isEmpty()) {
        ctx.fetcher.getMany(urls, ctx.maxParallel, [&](int index, const QString& body) {
            bodies[index] = body;
            arrived[size_t(index)] = true;
            return drain();
        });
    }
    if (stopped)
        return result;
    if (!optionsAnnounced)
        announce(QStringLiteral("Getting Option Quotes"));
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
