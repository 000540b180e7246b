// Modern quote sources and polite fetching against loopback peers that answer each request
// after a fixed latency (KESTROVA_BENCH_LATENCY_MS, default 100):
//
//   BM_BatchCycle50     a 50-security cycle through the demo market's batch CSV source
//   BM_Http2Pages60     60 pages from one HTTP/2 host (tests/peers/h2_peer.py, hypercorn),
//                       with the fetcher's default transfers at once and with 50 at once
//   BM_Http11Pages60    60 pages from one HTTP/1.1 host with the default connection limit
//   BM_HttpsCpu50       the CPU time of 50 HTTPS requests to one host against that of one,
//                       each with a fetcher of its own, trusting a bundle the size of the
//                       system's; against the HTTP/2 peer and against an HTTP/1.1 peer over
//                       TLS that closes every connection (50 connections, 50 handshakes)
//   BM_SourceFill       reading a 250 KB chart JSON answer and filling the quote from it
//
// "x_one_request" is the wall time of an iteration divided by that of one request to the
// same peer, with its min and median over the iterations (each iteration times its own one
// request first); "connections" is what the peer saw (or the fetcher opened) over the run.

#include "BenchPages.h"
#include "PeerProcess.h"
#include "sim/DemoMarketServer.h"

#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "core/Quote.h"
#include "core/Quotes.h"
#include "quotes/CurlFetcher.h"
#include "quotes/QuoteCycle.h"
#include "quotes/SourceAnswer.h"
#include "quotes/SourceDefinition.h"
#include "quotes/SourceFill.h"
#include "sim/DemoMarket.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <curl/curl.h>

#include <sys/resource.h>

#include <algorithm>

using namespace kestrova;

namespace {

int latencyMs()
{
    bool ok = false;
    const int ms = qEnvironmentVariableIntValue("KESTROVA_BENCH_LATENCY_MS", &ok);
    return ok && ms >= 0 ? ms : 100;
}

quotes::SourceFile shippedSourcesAt(const QString& base)
{
    QFile f(QStringLiteral(KESTROVA_SOURCE_DIR "/data/sources.json"));
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QString text = QString::fromUtf8(f.readAll());
    text.replace(QLatin1String("http://127.0.0.1:8099"), base);
    return quotes::parseSourcesJson(text.toUtf8());
}

// Median wall time of a few single requests, in seconds.
double oneRequestSeconds(quotes::CurlFetcher& fetcher, const QString& url)
{
    std::vector<double> times;
    for (int i = 0; i < 5; ++i) {
        QElapsedTimer t;
        t.start();
        quotes::HttpRequest request;
        request.url = url;
        const auto r = fetcher.fetch({request});
        times.push_back(double(t.nsecsElapsed()) / 1e9);
        if (r.front().status != 200)
            return 0;
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

double oneRequestOnce(quotes::CurlFetcher& fetcher, const QString& url)
{
    QElapsedTimer t;
    t.start();
    quotes::HttpRequest request;
    request.url = url;
    const auto r = fetcher.fetch({request});
    return r.front().status == 200 ? double(t.nsecsElapsed()) / 1e9 : 0;
}

double minOf(const std::vector<double>& v)
{
    return v.empty() ? 0 : *std::min_element(v.begin(), v.end());
}

double medianOf(std::vector<double> v)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

double processCpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// The HTTP/2 peer (or, with http1Close, an HTTP/1.1 server over TLS that closes every
// connection) on a free loopback port with a throw-away certificate in dir.
struct TlsPeer
{
    QString cert;
    QString base;
    testing::PeerProcess process;

    bool start(const QTemporaryDir& dir, bool http1Close)
    {
        cert = dir.filePath(QStringLiteral("cert.pem"));
        const QString key = dir.filePath(QStringLiteral("key.pem"));
        if (!QFile::exists(cert) && !testing::makeLoopbackCertificate(cert, key))
            return false;
        quint16 port = 0;
        {
            QTcpServer probe;
            probe.listen(QHostAddress::LocalHost, 0);
            port = probe.serverPort();
        }
        QStringList args{QStringLiteral(KESTROVA_SOURCE_DIR "/tests/peers/h2_peer.py"),
                         QStringLiteral("--port"),
                         QString::number(port),
                         QStringLiteral("--cert"),
                         cert,
                         QStringLiteral("--key"),
                         key,
                         QStringLiteral("--latency-ms"),
                         QString::number(latencyMs())};
        if (http1Close)
            args << QStringLiteral("--http1-close");
        process.terminateOnStop = true;
        base = QStringLiteral("https://127.0.0.1:%1").arg(port);
        return process.start(QStringLiteral("/usr/bin/python3"), args, QStringLiteral("ready"));
    }
};

QStringList stockUrls(const QString& base, int n)
{
    QStringList urls;
    for (int i = 0; i < n; ++i)
        urls << base + QStringLiteral("/stock?t=S%1").arg(i, 2, 10, QLatin1Char('0'));
    return urls;
}

void BM_BatchCycle50(benchmark::State& state)
{
    support::SystemClock clock;
    sim::DemoMarketThread market(clock, 11, latencyMs());
    if (!market.start()) {
        state.SkipWithError("the demo market did not start");
        return;
    }
    const quotes::SourceFile file = shippedSourcesAt(market.baseUrl());
    const quotes::SourceDefinition* demo = file.find(QStringLiteral("Demo CSV"));
    if (!demo) {
        state.SkipWithError("no Demo CSV source in data/sources.json");
        return;
    }
    bench::QuietHost host;
    support::CancelFlag cancel;
    support::CLogFile log(clock, host); // never enabled: nothing is written
    const support::Services services{clock, host, cancel, log};
    quotes::CurlFetcher fetcher(host);
    const quotes::BuiltInServers builtIn;
    const quotes::ServerDefinitions defs;
    core::Options options;
    core::PortfolioTable portfolio;
    portfolio.count = 50;
    for (int i = 0; i < portfolio.count; ++i) {
        core::PortfolioRecord& r = portfolio.records[size_t(i)];
        r = {};
        r.ticker = QStringLiteral("S%1").arg(i, 2, 10, QLatin1Char('0'));
        r.digits = 2;
    }
    const double one = oneRequestSeconds(fetcher, quotes::sourceRequestUrl(*demo, {QStringLiteral("s00.us")}, {}));
    const quotes::SourceSetup setup{file, {demo->name}, [](const QString&) { return QString(); }, nullptr};
    quotes::CycleContext ctx{services, fetcher, builtIn, defs, options, portfolio, {}};
    ctx.sources = &setup;

    const int before = market.market()->requestCount();
    double total = 0;
    for (auto _ : state) {
        core::Quotes stocks;
        core::Quotes opts;
        QElapsedTimer t;
        t.start();
        quotes::GetQuotes(ctx, stocks, opts);
        const double seconds = double(t.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        total += seconds;
        if (stocks.Count() != 50) {
            state.SkipWithError("the batch source did not price all 50");
            return;
        }
    }
    state.counters["requests_per_cycle"] =
        double(market.market()->requestCount() - before) / double(std::max<int64_t>(1, state.iterations()));
    state.counters["one_request_ms"] = one * 1000;
    state.counters["x_one_request"] = one > 0 ? total / double(state.iterations()) / one : 0;
    state.counters["connections"] = market.market()->connectionCount();
}

void BM_Http2Pages60(benchmark::State& state)
{
    QTemporaryDir dir;
    TlsPeer peer;
    if (!peer.start(dir, false)) {
        state.SkipWithError("the HTTP/2 peer (python3-hypercorn) did not start");
        return;
    }
    bench::QuietHost host;
    quotes::CurlFetcher fetcher(host);
    fetcher.setCaFile(peer.cert);
    // 0: the fetcher's default, which lets all 60 go out at once; 50 was the old default,
    // a full portfolio, which takes two rounds for 60 pages.
    const int atOnce = int(state.range(0));
    if (atOnce > 0)
        fetcher.setParallelLimit(atOnce);
    const QStringList urls = stockUrls(peer.base, 60);
    std::vector<double> ones;
    std::vector<double> ratios;
    for (auto _ : state) {
        const double one = oneRequestOnce(fetcher, urls.first());
        QElapsedTimer t;
        t.start();
        const QStringList pages = fetcher.getMany(urls);
        const double seconds = double(t.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        ones.push_back(one);
        ratios.push_back(one > 0 ? seconds / one : 0);
        if (std::count_if(pages.begin(), pages.end(), [](const QString& p) { return !p.isEmpty(); }) != 60) {
            state.SkipWithError("not every page arrived");
            return;
        }
    }
    const QJsonObject stats =
        QJsonDocument::fromJson(fetcher.get(peer.base + QStringLiteral("/stats")).toUtf8()).object();
    state.counters["one_request_ms"] = medianOf(ones) * 1000;
    state.counters["x_one_request_min"] = minOf(ratios);
    state.counters["x_one_request_median"] = medianOf(ratios);
    state.counters["max_in_flight"] = stats.value(QLatin1String("max_in_flight")).toInt();
    state.counters["connections"] = stats.value(QLatin1String("connections")).toInt();
    state.counters["opened_by_fetcher"] = double(fetcher.connectionsOpened());
    state.SetLabel(QStringLiteral("HTTP versions seen: %1")
                       .arg(stats.value(QLatin1String("versions")).toVariant().toStringList().join(u','))
                       .toStdString());
}

// A trust list the size of the system's (libcurl's default bundle) with the peer's
// certificate added, so that reading it costs what a real run pays.
QString systemSizedBundle(const QTemporaryDir& dir, const QString& cert)
{
    QByteArray bundle;
    if (CURL* e = curl_easy_init()) {
        char* path = nullptr;
        if (curl_easy_getinfo(e, CURLINFO_CAINFO, &path) == CURLE_OK && path) {
            QFile system(QFile::decodeName(path));
            if (system.open(QIODevice::ReadOnly))
                bundle = system.readAll();
        }
        curl_easy_cleanup(e);
    }
    QFile own(cert);
    if (!own.open(QIODevice::ReadOnly))
        return {};
    bundle += own.readAll();
    QFile out(dir.filePath(QStringLiteral("bundle.pem")));
    if (!out.open(QIODevice::WriteOnly) || out.write(bundle) != bundle.size())
        return {};
    return out.fileName();
}

void BM_HttpsCpu50(benchmark::State& state)
{
    QTemporaryDir dir;
    TlsPeer peer;
    const bool closing = state.range(0) == 1;
    if (!peer.start(dir, closing)) {
        state.SkipWithError("the TLS peer (python3-hypercorn) did not start");
        return;
    }
    const QString bundle = systemSizedBundle(dir, peer.cert);
    if (bundle.isEmpty()) {
        state.SkipWithError("could not write the trust list");
        return;
    }
    bench::QuietHost host;
    // One fetcher per batch, as one run of the program has.
    auto batchCpu = [&](int n, qint64* opened) {
        quotes::CurlFetcher fetcher(host);
        fetcher.setCaFile(bundle);
        const double before = processCpuSeconds();
        const QStringList pages = fetcher.getMany(stockUrls(peer.base, n));
        const double cpu = processCpuSeconds() - before;
        *opened = fetcher.connectionsOpened();
        return std::count_if(pages.begin(), pages.end(), [](const QString& p) { return !p.isEmpty(); }) == n ? cpu
                                                                                                             : -1.0;
    };
    std::vector<double> ones;
    std::vector<double> fifties;
    std::vector<double> ratios;
    qint64 opened = 0;
    for (auto _ : state) {
        qint64 unused = 0;
        const double one = batchCpu(1, &unused);
        const double fifty = batchCpu(50, &opened);
        if (one < 0 || fifty < 0) {
            state.SkipWithError("not every page arrived");
            return;
        }
        state.SetIterationTime(fifty);
        ones.push_back(one);
        fifties.push_back(fifty);
        ratios.push_back(one > 0 ? fifty / one : 0);
    }
    state.counters["cpu_one_ms_min"] = minOf(ones) * 1000;
    state.counters["cpu_one_ms_median"] = medianOf(ones) * 1000;
    state.counters["cpu_50_ms_min"] = minOf(fifties) * 1000;
    state.counters["cpu_50_ms_median"] = medianOf(fifties) * 1000;
    state.counters["x_one_min"] = minOf(ratios);
    state.counters["x_one_median"] = medianOf(ratios);
    state.counters["connections_per_batch"] = double(opened);
    state.SetLabel(closing ? "HTTP/1.1 over TLS, every connection closed" : "HTTP/2");
}

void BM_Http11Pages60(benchmark::State& state)
{
    support::SystemClock clock;
    sim::DemoMarketThread market(clock, 11, latencyMs());
    if (!market.start()) {
        state.SkipWithError("the demo market did not start");
        return;
    }
    bench::QuietHost host;
    quotes::CurlFetcher fetcher(host); // the default limit of connections to one host
    const QStringList urls = stockUrls(market.baseUrl(), 60);
    const double one = oneRequestSeconds(fetcher, urls.first());
    double total = 0;
    for (auto _ : state) {
        QElapsedTimer t;
        t.start();
        const QStringList pages = fetcher.getMany(urls);
        const double seconds = double(t.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        total += seconds;
        if (std::count_if(pages.begin(), pages.end(), [](const QString& p) { return !p.isEmpty(); }) != 60) {
            state.SkipWithError("not every page arrived");
            return;
        }
    }
    state.counters["one_request_ms"] = one * 1000;
    state.counters["x_one_request"] = one > 0 ? total / double(state.iterations()) / one : 0;
    state.counters["host_limit"] = fetcher.hostConnections();
    state.counters["connections"] = market.market()->connectionCount();
    state.counters["opened_by_fetcher"] = double(fetcher.connectionsOpened());
    state.counters["max_waiting_at_server"] = market.market()->maxPending();
}

// A chart answer of about 250 KB: one day of minute bars, as the service sends for a
// wider range, with the fields the definition reads at the front.
QByteArray largeChartAnswer(int bytes)
{
    QByteArray stamps;
    QByteArray closes;
    for (int i = 0; stamps.size() + closes.size() < bytes - 600; ++i) {
        if (i) {
            stamps += ',';
            closes += ',';
        }
        stamps += QByteArray::number(1763649000 + 60 * i);
        closes += QByteArray::number(150.0 + (i % 97) * 0.013, 'f', 6);
    }
    return R"({"chart":{"result":[{"meta":{"currency":"USD","symbol":"IBM","longName":"International Business Machines",)"
           R"("regularMarketPrice":151.23,"previousClose":150.1,"regularMarketDayHigh":152.0,"regularMarketDayLow":149.8,)"
           R"("regularMarketVolume":4213000,"regularMarketTime":1763672400,"fiftyTwoWeekHigh":180.5,"fiftyTwoWeekLow":120.25},)"
           R"("timestamp":[)" +
           stamps + R"(],"indicators":{"quote":[{"open":[150.5],"close":[)" + closes + R"(]}]}}],"error":null}})";
}

void BM_SourceFill(benchmark::State& state)
{
    const quotes::SourceFile file = shippedSourcesAt(QStringLiteral("http://127.0.0.1:1"));
    const quotes::SourceDefinition* yahoo = file.find(QStringLiteral("Yahoo"));
    if (!yahoo) {
        state.SkipWithError("no Yahoo source in data/sources.json");
        return;
    }
    const QByteArray body = largeChartAnswer(250 * 1024);
    const QStringList symbols{QStringLiteral("IBM")};
    for (auto _ : state) {
        const quotes::SourceAnswer answer = quotes::parseSourceAnswer(*yahoo, body, symbols);
        if (answer.symbols.empty() || !answer.symbols.front().priced) {
            state.SkipWithError("the answer gave no price");
            return;
        }
        core::Quote q;
        q.setDigits(2);
        quotes::fillFromSource(q, answer.symbols.front().values, yahoo->name);
        benchmark::DoNotOptimize(q);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * body.size());
    state.counters["answer_bytes"] = double(body.size());
}

} // namespace

BENCHMARK(BM_BatchCycle50)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_Http2Pages60)
    ->ArgName("at_once")
    ->Arg(0)
    ->Arg(50)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_HttpsCpu50)
    ->ArgName("closing")
    ->Arg(0)
    ->Arg(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_Http11Pages60)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_SourceFill)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // libcurl is loaded by a process's first transfer; that is start-up, not a request.
    quotes::CurlFetcher::libraryVersion();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
