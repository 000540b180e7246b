// Wall time of one retrieval cycle of 50 stocks and 10 options against the demo market,
// each page answered after a fixed latency: fetched side by side, then one at a time.
//
//   bench_cycle [latency-ms] [parallel ...]      (defaults: 100, 50)

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

#include <cstdio>

using namespace kestrova;

namespace {

struct Run
{
    double seconds = 0;
    int quotes = 0;
    int maxPending = 0;
};

Run runCycle(int latencyMs, int parallel)
{
    support::SystemClock clock;
    sim::DemoMarketThread market(clock, 11, latencyMs);
    if (!market.start())
        return {};
    bench::QuietHost host;
    support::CancelFlag cancel;
    support::CLogFile log(clock, host); // never enabled: nothing is written
    const support::Services services{clock, host, cancel, log};
    quotes::CurlFetcher fetcher(host);
    fetcher.setParallelLimit(parallel);
    const quotes::BuiltInServers builtIn;
    quotes::ServerDefinitions defs;
    defs.stock.Add(sim::demoMarketServer(market.baseUrl(), false), QStringLiteral("Demo Market"));
    defs.option.Add(sim::demoMarketServer(market.baseUrl(), true), QStringLiteral("Demo Market"));
    core::Options options;
    options.quotes.server = 12;
    // A portfolio holds at most 50 entries, so the 60 securities are two cycles back to
    // back: 50 stocks, then 10 options.
    core::PortfolioTable portfolio;
    quotes::CycleContext ctx{services, fetcher, builtIn, defs, options, portfolio, {}};
    ctx.maxParallel = parallel;

    core::Quotes stocks;
    core::Quotes opts;
    QElapsedTimer timer;
    timer.start();
    for (int part = 0; part < 2; ++part) {
        portfolio.count = part == 0 ? 50 : 10;
        for (int i = 0; i < portfolio.count; ++i) {
            core::PortfolioRecord& r = portfolio.records[size_t(i)];
            r = {};
            r.ticker =
                part == 0 ? QStringLiteral("S%1").arg(i, 2, 10, QLatin1Char('0')) : QStringLiteral("OPT %1").arg(i);
            r.securityType = part == 0 ? 0 : 1;
            r.server = part == 0 ? 0 : 12;
        }
        core::Quotes& target = part == 0 ? stocks : opts;
        core::Quotes ignored;
        quotes::GetQuotes(ctx, part == 0 ? target : ignored, part == 0 ? ignored : target);
    }
    Run run;
    run.seconds = double(timer.nsecsElapsed()) / 1e9;
    run.quotes = stocks.Count() + opts.Count();
    run.maxPending = market.market()->maxPending();
    return run;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int latency = argc > 1 ? atoi(argv[1]) : 100;
    QList<int> parallels;
    for (int i = 2; i < argc; ++i)
        parallels << atoi(argv[i]);
    if (parallels.isEmpty())
        parallels << quotes::CurlFetcher::kMaxParallel;

    std::printf("cycle: 50 stocks + 10 options, demo market latency %d ms per page\n", latency);
    const Run seq = runCycle(latency, 1);
    std::printf("sequential (1 at a time): %8.3f s  quotes %d  max waiting at server %d\n", seq.seconds, seq.quotes,
                seq.maxPending);
    for (int p : parallels) {
        const Run par = runCycle(latency, p);
        std::printf("concurrent (%2d at once): %8.3f s  quotes %d  max waiting at server %d  speed-up %.1fx\n", p,
                    par.seconds, par.quotes, par.maxPending, seq.seconds / par.seconds);
    }
    return 0;
}
