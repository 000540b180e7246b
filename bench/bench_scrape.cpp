// Page preparation and a whole quote fill on a 250 KB old-style quote page, from the bytes
// a fetch hands over (Windows-1252, as most of these servers send) to the filled quote.
// The named baseline is BM_WidenPage, Qt's own widening of the page to UTF-16: the least
// any fill that starts by decoding the whole page could cost. Run with
// --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true for min and median.
#include "BenchPages.h"
#include "sim/DemoMarketServer.h"

#include "core/Quote.h"
#include "quotes/CurlFetcher.h"
#include "quotes/MarkupText.h"
#include "support/Clock.h"
#include "support/Cp1252.h"

#include <benchmark/benchmark.h>

#include <algorithm>

using namespace kestrova;

namespace {

constexpr int kPageBytes = 250 * 1024;

double smallest(const std::vector<double>& v)
{
    return *std::min_element(v.begin(), v.end());
}

// The page as it comes over the wire.
const QByteArray& wirePage()
{
    static const QByteArray page = support::encodeCp1252(bench::largeQuotePage(kPageBytes));
    return page;
}

void BM_WidenPage(benchmark::State& state)
{
    const QByteArray& page = wirePage();
    for (auto _ : state) {
        QString text = QString::fromLatin1(page);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.size());
}

// Bytes to filled quote: the Windows-1252 decode of what is kept, markup to tabs, every key
// placed and every field read.
void BM_QuoteFill(benchmark::State& state)
{
    const quotes::PageBody page{wirePage(), quotes::PageCharset::Cp1252};
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
    state.SetBytesProcessed(int64_t(state.iterations()) * page.bytes.size());
}

// The two halves of a fill, to see where its time goes.
void BM_PreparePage(benchmark::State& state)
{
    const quotes::PageBody page{wirePage(), quotes::PageCharset::Cp1252};
    for (auto _ : state) {
        QString text = quotes::Qserver::preparePage(page);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.bytes.size());
}

// What the fill does after preparing: every key placed in one pass, then each value read.
void BM_FindKeysOnePass(benchmark::State& state)
{
    const QString text = quotes::Qserver::preparePage({wirePage(), quotes::PageCharset::Cp1252});
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
    state.counters["prepared_chars"] = double(text.size());
}

// Tag-to-tab conversion of text already in UTF-16 (news pages, the market summary), counted
// as the UTF-16 bytes it reads.
void BM_MarkupToTabs(benchmark::State& state)
{
    const QString page = bench::largeQuotePage(kPageBytes / 2);
    for (auto _ : state) {
        QString text = quotes::markupToTabs(page);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.size() * 2);
}

// The same from the page's bytes, decoding only the text kept.
void BM_MarkupToTabsWireBytes(benchmark::State& state)
{
    const QByteArray& page = wirePage();
    for (auto _ : state) {
        QString text = quotes::markupToTabs(page, quotes::PageCharset::Cp1252);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * page.size());
}

} // namespace

BENCHMARK(BM_WidenPage)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", smallest);
BENCHMARK(BM_QuoteFill)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", smallest);
BENCHMARK(BM_PreparePage)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", smallest);
BENCHMARK(BM_FindKeysOnePass)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", smallest);
BENCHMARK(BM_MarkupToTabs)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", smallest);
BENCHMARK(BM_MarkupToTabsWireBytes)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", smallest);
BENCHMARK_MAIN();
