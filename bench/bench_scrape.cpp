#include "BenchPages.h"
#include "sim/DemoMarketServer.h"

#include "core/Quote.h"
#include "quotes/CurlFetcher.h"
#include "quotes/MarkupText.h"
#include "support/Clock.h"

#include <benchmark/benchmark.h>

using namespace kestrova;

namespace {

constexpr int kPageBytes = 250 * 1024;

// Bytes are counted as the page's UTF-16 size in memory, the data the conversion reads.
void BM_MarkupToTabs(benchmark::State& state)
{
    const QString page = bench::largeQuotePage(kPageBytes / 2);
    for (auto _ : state) {
        QString text = quotes::markupToTabs(page);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.size() * 2);
    state.counters["page_bytes_utf16"] = double(page.size() * 2);
}

// The same page measured as the 8-bit bytes that came over the wire (one per character).
void BM_MarkupToTabsWireBytes(benchmark::State& state)
{
    const QString page = bench::largeQuotePage(kPageBytes);
    for (auto _ : state) {
        QString text = quotes::markupToTabs(page);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.size());
    state.counters["page_chars"] = double(page.size());
}

// Prepare (sup/sub, &nbsp;, tags) and every FindKey of a stock definition, into a quote.
void BM_QuoteFill(benchmark::State& state)
{
    const QString page = bench::largeQuotePage(kPageBytes);
    bench::QuietHost host;
    support::MockClock clock;
    quotes::CurlFetcher fetcher(host);
    const quotes::BuiltInServers builtIn;
    const quotes::ScrapeContext ctx{fetcher, builtIn, clock, host};
    const auto server = sim::demoMarketServer(QStringLiteral("http://127.0.0.1:1"), false);
    for (auto _ : state) {
        core::Quote q;
        q.setDigits(2);
        const bool ok = server->fillQuote(q, page, ctx);
        if (!ok || q.last().toDouble() <= 0) {
            state.SkipWithError("the fill found no price");
            break;
        }
        benchmark::DoNotOptimize(q);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.size());
}

// The two halves of a fill, to see where its time goes.
void BM_PreparePage(benchmark::State& state)
{
    const QString page = bench::largeQuotePage(kPageBytes);
    bench::QuietHost host;
    quotes::CurlFetcher fetcher(host);
    for (auto _ : state) {
        QString text = quotes::Qserver::preparePage(page, fetcher);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.size());
}

void BM_FindKeys(benchmark::State& state)
{
    bench::QuietHost host;
    quotes::CurlFetcher fetcher(host);
    const QString text = quotes::Qserver::preparePage(bench::largeQuotePage(kPageBytes), fetcher);
    const auto server = sim::demoMarketServer(QStringLiteral("http://127.0.0.1:1"), false);
    for (auto _ : state) {
        for (int f = 0; f < quotes::Qserver::kFieldCount; ++f) {
            QString v = server->FindKey(quotes::Qserver::Field(f), text);
            benchmark::DoNotOptimize(v);
        }
    }
}

// What the fill does instead: every key placed in one pass, then each value read.
void BM_FindKeysOnePass(benchmark::State& state)
{
    bench::QuietHost host;
    quotes::CurlFetcher fetcher(host);
    const QString text = quotes::Qserver::preparePage(bench::largeQuotePage(kPageBytes), fetcher);
    const auto server = sim::demoMarketServer(QStringLiteral("http://127.0.0.1:1"), false);
    std::vector<QString> owned;
    std::vector<QStringView> keys;
    for (int f = 0; f < quotes::Qserver::kFieldCount; ++f)
        owned.push_back(server->offset(quotes::Qserver::Field(f)) == -1 ? QString()
                                                                        : server->key(quotes::Qserver::Field(f)));
    for (const QString& k : owned)
        keys.emplace_back(k);
    for (auto _ : state) {
        const std::vector<qsizetype> at = quotes::Qserver::keyPositions(text, keys);
        for (int f = 0; f < quotes::Qserver::kFieldCount; ++f) {
            const qint16 o = server->offset(quotes::Qserver::Field(f));
            if (o == -1)
                continue;
            QString v = quotes::Qserver::valueAfterKey(at[size_t(f)] + 1, o, text);
            benchmark::DoNotOptimize(v);
        }
    }
}

} // namespace

BENCHMARK(BM_PreparePage)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FindKeys)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FindKeysOnePass)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MarkupToTabs)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MarkupToTabsWireBytes)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_QuoteFill)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
