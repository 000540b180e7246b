// The symbol look-up of the set-up assistant and the entry form: ten symbols asked of the
// demo market's sources, each request answered after a fixed latency, against one single
// request to the same market in the same round (interleaved, so the machine's load falls
// on both alike).
//
//   bench_lookup [latency-ms] [rounds]      (defaults: 100, 7)
//
// For each failure order: the time until the first symbol is reported and until all ten
// are, from the moment they are asked (a new look-up each round, its thread and first
// connection included), as milliseconds and as a ratio to the single request; min and
// median over the rounds.

#include "BenchPages.h"

#include "quotes/CurlFetcher.h"
#include "quotes/SymbolLookup.h"
#include "sim/DemoMarket.h"
#include "support/Clock.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace kestrova;

namespace {

quotes::SourceFile shippedSourcesAt(const QString& base)
{
    QFile f(QStringLiteral(KESTROVA_SOURCE_DIR "/data/sources.json"));
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QString text = QString::fromUtf8(f.readAll());
    text.replace(QLatin1String("http://127.0.0.1:8099"), base);
    return quotes::parseSourcesJson(text.toUtf8());
}

double oneRequestMs(quotes::CurlFetcher& fetcher, const QString& url)
{
    QElapsedTimer t;
    t.start();
    quotes::HttpRequest request;
    request.url = url;
    const auto r = fetcher.fetch({request});
    return r.front().status == 200 ? double(t.nsecsElapsed()) / 1e6 : -1;
}

struct Times
{
    double first = -1;
    double all = -1;
};

Times lookUpTen(const quotes::LookupSetup& setup, int round)
{
    QStringList symbols;
    for (int i = 0; i < 10; ++i)
        symbols << QStringLiteral("R%1S%2").arg(round).arg(i);
    quotes::SymbolLookup lookup(setup);
    Times t;
    QElapsedTimer clock;
    QEventLoop loop;
    int got = 0;
    QObject::connect(&lookup, &quotes::SymbolLookup::resolved, [&](const quotes::LookupResult& r) {
        if (!r.known)
            std::fprintf(stderr, "%s: not priced\n", qPrintable(r.symbol));
        const double ms = double(clock.nsecsElapsed()) / 1e6;
        if (got++ == 0)
            t.first = ms;
        t.all = ms;
    });
    QObject::connect(&lookup, &quotes::SymbolLookup::idle, &loop, &QEventLoop::quit);
    clock.start();
    lookup.lookUp(symbols);
    loop.exec();
    return t;
}

double minOf(std::vector<double> v)
{
    return *std::min_element(v.begin(), v.end());
}

double medianOf(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int latency = argc > 1 ? std::atoi(argv[1]) : 100;
    const int rounds = argc > 2 ? std::max(5, std::atoi(argv[2])) : 7;

    support::SystemClock clock;
    sim::DemoMarketThread market(clock, 11, latency);
    if (!market.start()) {
        std::fprintf(stderr, "the demo market did not start\n");
        return 1;
    }
    const quotes::SourceFile file = shippedSourcesAt(market.baseUrl());
    const quotes::SourceDefinition* csv = file.find(QStringLiteral("Demo CSV"));
    if (!csv) {
        std::fprintf(stderr, "no Demo CSV source in data/sources.json\n");
        return 1;
    }
    bench::QuietHost host;
    quotes::CurlFetcher fetcher(host);
    const QString single = quotes::sourceRequestUrl(*csv, {QStringLiteral("one.us")}, {});

    struct Order
    {
        const char* title;
        QStringList names;
    };
    const Order orders[] = {
        {"batch CSV first (one request for all ten)", {QStringLiteral("Demo CSV"), QStringLiteral("Demo JSON")}},
        {"chart JSON (one request a symbol)", {QStringLiteral("Demo JSON")}},
    };
    std::printf("latency %d ms, %d rounds; one request is the baseline of its round\n", latency, rounds);
    for (const Order& order : orders) {
        quotes::LookupSetup setup;
        setup.sources = file;
        setup.order = order.names;
        std::vector<double> one, first, all, firstRatio, allRatio;
        for (int r = 0; r < rounds; ++r) {
            const double base = oneRequestMs(fetcher, single);
            const Times t = lookUpTen(setup, r);
            if (base <= 0 || t.first < 0) {
                std::fprintf(stderr, "round %d failed\n", r);
                return 1;
            }
            one.push_back(base);
            first.push_back(t.first);
            all.push_back(t.all);
            firstRatio.push_back(t.first / base);
            allRatio.push_back(t.all / base);
        }
        std::printf("%s\n", order.title);
        std::printf("  one request     min %7.1f ms  median %7.1f ms\n", minOf(one), medianOf(one));
        std::printf("  first of ten    min %7.1f ms  median %7.1f ms   x one request: min %.2f median %.2f\n",
                    minOf(first), medianOf(first), minOf(firstRatio), medianOf(firstRatio));
        std::printf("  all ten         min %7.1f ms  median %7.1f ms   x one request: min %.2f median %.2f\n",
                    minOf(all), medianOf(all), minOf(allRatio), medianOf(allRatio));
    }
    return 0;
}
