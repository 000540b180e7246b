// The history store's two hot paths: one cycle's write, and a year of one symbol read
// for the chart.
#include "history/ChartSeries.h"
#include "history/HistoryStore.h"
#include "support/Clock.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace kestrova;

namespace {

const QDateTime kStart(QDate(2025, 11, 24), QTime(9, 30, 0));

history::QuoteRow row(const QString& symbol, const QDateTime& at, double last, qint64 volume)
{
    history::QuoteRow r;
    r.symbol = symbol;
    r.fetchedAt = at;
    r.quotedAt = at.addSecs(-15);
    r.last = last;
    r.change = 0.25;
    r.percentChange = 0.17;
    r.volume = volume;
    r.bid = last - 0.01;
    r.ask = last + 0.01;
    r.high = last + 1;
    r.low = last - 1;
    r.source = QStringLiteral("Demo Market");
    return r;
}

// A 60-security portfolio's cycle, three alarms among them, written as the update run
// writes it: one transaction on the file in its data folder.
void BM_AppendCycle60(benchmark::State& state)
{
    QTemporaryDir dir;
    support::MockClock clock;
    history::HistoryStore store(dir.filePath(QStringLiteral("history.sqlite")), clock);
    if (!store.open()) {
        state.SkipWithError("cannot open the store");
        return;
    }
    history::CycleRecord cycle;
    for (int i = 0; i < 60; ++i) {
        cycle.quotes << row(QStringLiteral("SYM%1").arg(i), kStart, 100 + i, 1000000 + i);
    }
    for (int i = 0; i < 3; ++i) {
        cycle.alarms << history::AlarmRow{
            cycle.quotes[i].symbol, history::AlarmKind::High, 99, 100.0 + i, kStart, true};
    }
    qint64 minute = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const QDateTime at = kStart.addSecs(60 * ++minute);
        for (auto& q : cycle.quotes) {
            q.fetchedAt = at;
        }
        state.ResumeTiming();
        if (!store.append(cycle)) {
            state.SkipWithError("the write failed");
            break;
        }
    }
    state.counters["quotes_per_cycle"] = 60;
}

// One symbol's year of one-minute quotes (252 trading days of 390 minutes) in a store that
// holds a second symbol's year as well, read the way the chart reads it.
struct YearStore
{
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("history.sqlite"));
    QDateTime end;
    int rows = 0;

    YearStore()
    {
        support::MockClock clock;
        history::HistoryStore store(path, clock);
        store.open();
        QDate day = kStart.date();
        double price = 150;
        for (int d = 0; d < 252; day = day.addDays(1)) {
            if (day.dayOfWeek() > 5) {
                continue;
            }
            ++d;
            history::CycleRecord dayRows;
            for (int m = 0; m < 390; ++m) {
                const QDateTime at(day, QTime(9, 30).addSecs(60 * m));
                price += 0.05 * std::sin(double(rows) / 37.0);
                dayRows.quotes << row(QStringLiteral("IBM"), at, price, 1000L * m)
                               << row(QStringLiteral("MSFT"), at, price / 2, 2000L * m);
                ++rows;
                end = at;
            }
            store.append(dayRows);
        }
    }
};

void BM_ReadYearForChart(benchmark::State& state)
{
    static YearStore year;
    qsizetype got = 0;
    for (auto _ : state) {
        const history::ChartData data =
            history::loadChartData(year.path, QStringLiteral("IBM"), year.end.addYears(-1), year.end);
        got = data.times.size();
        benchmark::DoNotOptimize(data);
    }
    if (got != year.rows) {
        state.SkipWithError("the read did not return the whole year");
    }
    state.counters["rows"] = double(got);
}

// The floor for the chart's read: the same query on a connection of its own, stepped
// through SQLite's C interface straight into the arrays, nothing in between.
void BM_ReadYearRawSqlite(benchmark::State& state)
{
    static YearStore year;
    const QByteArray path = year.path.toUtf8();
    const qint64 lo = year.end.addYears(-1).toMSecsSinceEpoch();
    const qint64 hi = year.end.toMSecsSinceEpoch();
    size_t got = 0;
    for (auto _ : state) {
        sqlite3* db = nullptr;
        sqlite3_stmt* st = nullptr;
        if (sqlite3_open_v2(path.constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
            sqlite3_prepare_v2(db,
                               "SELECT fetched_at, last, volume FROM quotes WHERE symbol = ? AND fetched_at >= ? AND "
                               "fetched_at <= ? AND last > 0 ORDER BY fetched_at",
                               -1, &st, nullptr) != SQLITE_OK) {
            sqlite3_close(db);
            state.SkipWithError("cannot open the store");
            break;
        }
        sqlite3_bind_text(st, 1, "IBM", 3, SQLITE_STATIC);
        sqlite3_bind_int64(st, 2, lo);
        sqlite3_bind_int64(st, 3, hi);
        std::vector<qint64> times;
        std::vector<double> prices;
        std::vector<double> volumes;
        while (sqlite3_step(st) == SQLITE_ROW) {
            times.push_back(sqlite3_column_int64(st, 0));
            prices.push_back(sqlite3_column_double(st, 1));
            volumes.push_back(sqlite3_column_double(st, 2));
        }
        sqlite3_finalize(st);
        sqlite3_close(db);
        got = times.size();
        benchmark::DoNotOptimize(times);
    }
    if (got != size_t(year.rows)) {
        state.SkipWithError("the read did not return the whole year");
    }
    state.counters["rows"] = double(got);
}

// What the window's own thread does with the year once it has arrived: thin it to two
// points per pixel column of a 1600-pixel-wide chart.
void BM_DecimateYear(benchmark::State& state)
{
    static YearStore year;
    const history::ChartData data =
        history::loadChartData(year.path, QStringLiteral("IBM"), year.end.addYears(-1), year.end);
    for (auto _ : state) {
        QList<QPointF> points = history::decimate(data.times, data.prices, 1600);
        benchmark::DoNotOptimize(points);
    }
    state.counters["rows"] = double(data.times.size());
}

} // namespace

BENCHMARK(BM_AppendCycle60)->Unit(benchmark::kMillisecond);
// With --benchmark_repetitions=N --benchmark_enable_random_interleaving=true the chart's
// read and its floor take turns; the minimum is the figure least disturbed by other load.
double smallest(const std::vector<double>& v)
{
    return *std::min_element(v.begin(), v.end());
}
BENCHMARK(BM_ReadYearRawSqlite)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", smallest);
BENCHMARK(BM_ReadYearForChart)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", smallest);
BENCHMARK(BM_DecimateYear)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // Qt SQL finds its SQLite driver through the application's plugin paths.
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
