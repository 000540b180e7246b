// Wall time of one retrieval cycle of 50 stocks and 10 options against the demo market,
// each page answered after a fixed latency, against two kinds of server:
//
//   keep-alive   an HTTP/1.1 server that keeps its connections open
//   closing      an old HTTP/1.0 server that closes every connection after its answer
//
// With at most 6 connections to one host, 50 + 10 pages (a portfolio holds at most 50, so
// they are two cycles back to back) need ceil(50/6) + ceil(10/6) = 11 rounds of one page
// each. The baseline is a one-stock cycle against the same server in the same round; the
// ratio is the cycle over (rounds x one page), target <= 1.3. Rounds alternate between the
// servers so that the machine's load falls on both alike.
//
//   bench_cycle [latency-ms] [rounds] [--sequential]     (defaults: 100, 5)
//
// --sequential also times the cycle one page at a time once per server (some 6 s each).

#include "BenchPages.h"
#include "sim/DemoMarketServer.h"

#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "core/Quotes.h"
#include "quotes/CurlFetcher.h"
#include "quotes/QuoteCycle.h"
#include "sim/DemoMarket.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace kestrova;

namespace {

struct Run
{
    double seconds = 0;
    int quotes = 0;
    int maxPending = 0;
    int connections = 0;
};

// The cycle's pages in portfolio-sized parts: stocks, then options.
const std::vector<int> kParts{50, 10};

Run runCycle(int latencyMs, bool closing, const std::vector<int>& parts, int parallel)
{
    support::SystemClock clock;
    sim::DemoMarketThread market(clock, 11, latencyMs);
    if (!market.start())
        return {};
    market.market()->setCloseEveryConnection(closing);
    bench::QuietHost host;
    support::CancelFlag cancel;
    support::CLogFile log(clock, host); // never enabled: nothing is written
    const support::Services services{clock, host, cancel, log};
    quotes::CurlFetcher fetcher(host);
    const quotes::BuiltInServers builtIn;
    quotes::ServerDefinitions defs;
    defs.stock.Add(sim::demoMarketServer(market.baseUrl(), false), QStringLiteral("Demo Market"));
    defs.option.Add(sim::demoMarketServer(market.baseUrl(), true), QStringLiteral("Demo Market"));
    core::Options options;
    options.quotes.server = 12;
    core::PortfolioTable portfolio;
    quotes::CycleContext ctx{services, fetcher, builtIn, defs, options, portfolio, {}};
    if (parallel > 0)
        ctx.maxParallel = parallel;

    Run run;
    QElapsedTimer timer;
    timer.start();
    for (size_t part = 0; part < parts.size(); ++part) {
        const bool option = part == 1;
        portfolio.count = parts[part];
        for (int i = 0; i < portfolio.count; ++i) {
            core::PortfolioRecord& r = portfolio.records[size_t(i)];
            r = {};
            r.ticker = option ? QStringLiteral("OPT %1").arg(i) : QStringLiteral("S%1").arg(i, 2, 10, QLatin1Char('0'));
            r.securityType = option ? 1 : 0;
            r.server = option ? 12 : 0;
        }
        core::Quotes stocks;
        core::Quotes opts;
        quotes::GetQuotes(ctx, stocks, opts);
        run.quotes += stocks.Count() + opts.Count();
    }
    run.seconds = double(timer.nsecsElapsed()) / 1e9;
    run.maxPending = market.market()->maxPending();
    run.connections = market.market()->connectionCount();
    return run;
}

double minOf(std::vector<double> v)
{
    return *std::min_element(v.begin(), v.end());
}

double medianOf(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    int latency = 100;
    int rounds = 5;
    bool sequential = false;
    int positional = 0;
    for (int i = 1; i < argc; ++i) {
        if (QByteArray(argv[i]) == "--sequential")
            sequential = true;
        else if (positional++ == 0)
            latency = atoi(argv[i]);
        else
            rounds = std::max(1, atoi(argv[i]));
    }
    // libcurl is loaded by a process's first transfer; that is start-up, not a cycle.
    quotes::CurlFetcher::libraryVersion();
    const int hostConnections = quotes::CurlFetcher::kDefaultHostConnections;
    int pages = 0;
    int needed = 0;
    for (int n : kParts) {
        pages += n;
        needed += (n + hostConnections - 1) / hostConnections;
    }
    std::printf("cycle: %d pages (50 stocks + 10 options), latency %d ms a page, %d connections to a host: "
                "%d rounds; %d rounds of measurement\n",
                pages, latency, hostConnections, needed, rounds);

    const char* names[] = {"keep-alive", "closing"};
    std::vector<double> one[2], cycle[2], ratio[2];
    for (int r = 0; r < rounds; ++r) {
        for (int kind = 0; kind < 2; ++kind) {
            const Run single = runCycle(latency, kind == 1, {1}, 0);
            const Run all = runCycle(latency, kind == 1, kParts, 0);
            if (single.quotes != 1 || all.quotes != pages) {
                std::printf("%s: round %d lost quotes (%d of 1, %d of %d)\n", names[kind], r + 1, single.quotes,
                            all.quotes, pages);
                return 1;
            }
            one[kind].push_back(single.seconds);
            cycle[kind].push_back(all.seconds);
            ratio[kind].push_back(all.seconds / (needed * single.seconds));
            std::printf("round %d %-10s one page %7.1f ms  cycle %7.1f ms  %.2fx of %d rounds  connections %d  "
                        "max waiting at server %d\n",
                        r + 1, names[kind], single.seconds * 1000, all.seconds * 1000, ratio[kind].back(), needed,
                        all.connections, all.maxPending);
        }
    }
    for (int kind = 0; kind < 2; ++kind) {
        std::printf("%-10s one page min/median %.1f/%.1f ms; cycle %.1f/%.1f ms; cycle / (%d x one page) "
                    "min/median %.2f/%.2f (target <= 1.3)\n",
                    names[kind], minOf(one[kind]) * 1000, medianOf(one[kind]) * 1000, minOf(cycle[kind]) * 1000,
                    medianOf(cycle[kind]) * 1000, needed, minOf(ratio[kind]), medianOf(ratio[kind]));
    }
    if (sequential) {
        for (int kind = 0; kind < 2; ++kind) {
            const Run seq = runCycle(latency, kind == 1, kParts, 1);
            std::printf("%-10s one page at a time: %.3f s, %.1fx the side-by-side median\n", names[kind], seq.seconds,
                        seq.seconds / medianOf(cycle[kind]));
        }
    }
    return 0;
}
