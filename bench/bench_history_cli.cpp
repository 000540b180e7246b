// `kestrova-cli history SYMBOL --csv` (and --json) over one and five years of one-minute
// quotes, against `sqlite3 -csv` running the same query on the same file, in interleaved
// rounds: wall time (min and median) and peak resident memory of each process. Fails when
// the listing's peak RSS reaches 40 MB.
//
//   bench_history_cli [rounds] [years ...]      (defaults: 5, then 1 and 5 years)

#include "history/HistoryStore.h"
#include "support/Clock.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace kestrova;

namespace {

constexpr int kMinutesPerDay = 390;
constexpr int kTradingDaysPerYear = 252;

// Two symbols' one-minute quotes over the years, written a day per transaction as the
// update run writes them; the symbol listed is IBM.
int writeStore(const QString& path, int years)
{
    support::MockClock clock;
    history::HistoryStore store(path, clock);
    if (!store.open()) {
        std::fprintf(stderr, "cannot open %s: %s\n", qPrintable(path), qPrintable(store.lastError()));
        return -1;
    }
    QDate day(2021, 11, 22);
    double price = 150;
    int rows = 0;
    for (int d = 0; d < years * kTradingDaysPerYear; day = day.addDays(1)) {
        if (day.dayOfWeek() > 5) {
            continue;
        }
        ++d;
        history::CycleRecord dayRows;
        for (int m = 0; m < kMinutesPerDay; ++m) {
            // UTC on purpose: making a year of local times here would be the slow part.
            const QDateTime at(day, QTime(14, 30).addSecs(60 * m), Qt::UTC);
            price += 0.05 * std::sin(double(rows) / 37.0);
            for (const char* symbol : {"IBM", "MSFT"}) {
                history::QuoteRow r;
                r.symbol = QLatin1String(symbol);
                r.fetchedAt = at;
                r.quotedAt = at.addSecs(-15);
                r.last = std::round(price * 100) / 100;
                r.change = 0.25;
                r.percentChange = 0.17;
                r.volume = 1000LL * m;
                r.bid = *r.last - 0.01;
                r.ask = *r.last + 0.01;
                r.high = *r.last + 1;
                r.low = *r.last - 1;
                r.source = QStringLiteral("Demo Market");
                dayRows.quotes << r;
            }
            ++rows;
        }
        if (!store.append(dayRows)) {
            std::fprintf(stderr, "cannot write: %s\n", qPrintable(store.lastError()));
            return -1;
        }
    }
    return rows;
}

struct Run
{
    double ms = 0;
    double rssMb = 0;
    int code = -1;
};

// Runs a program with its standard output going to outPath, timing it to its end.
Run spawn(const QStringList& args, const QString& outPath)
{
    std::vector<QByteArray> owned;
    for (const QString& a : args) {
        owned.push_back(a.toLocal8Bit());
    }
    std::vector<char*> argv;
    for (QByteArray& a : owned) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.toLocal8Bit().constData(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    Run run;
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return run;
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    run.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    run.rssMb = double(usage.ru_maxrss) / 1024;
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -2;
    posix_spawn_file_actions_destroy(&actions);
    return run;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

double minimum(const std::vector<double>& v)
{
    return *std::min_element(v.begin(), v.end());
}

qint64 lineCount(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        return -1;
    }
    qint64 n = 0;
    while (!f.atEnd()) {
        n += f.read(1 << 20).count('\n');
    }
    return n;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 5;
    QList<int> yearList;
    for (int i = 2; i < argc; ++i) {
        yearList << std::max(1, atoi(argv[i]));
    }
    if (yearList.isEmpty()) {
        yearList = {1, 5};
    }
    const QString cli = QStringLiteral(KESTROVA_CLI_PATH);
    const QString sqlite = QStandardPaths::findExecutable(QStringLiteral("sqlite3"));
    if (sqlite.isEmpty()) {
        std::fprintf(stderr, "sqlite3 is not installed (scripts/install-deps.sh --test)\n");
        return 2;
    }
    QTemporaryDir dir;
    // The listing must not read or change the settings of whoever runs the bench.
    qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toLocal8Bit());
    const QString sink = dir.filePath(QStringLiteral("out"));

    struct Range
    {
        int years;
        QString data;
        int rows;
        std::vector<double> base, csv, json, baseRss, csvRss, jsonRss;
    };
    std::vector<Range> ranges;
    for (int years : yearList) {
        Range r;
        r.years = years;
        r.data = dir.filePath(QStringLiteral("data%1").arg(years));
        QDir().mkpath(r.data);
        std::printf("writing %d year(s) of one-minute quotes of two symbols...\n", years);
        std::fflush(stdout);
        r.rows = writeStore(QDir(r.data).filePath(history::HistoryStore::defaultFileName()), years);
        if (r.rows < 0) {
            return 2;
        }
        ranges.push_back(r);
    }
    // The listing's own query, as sqlite3 runs it (times stay numbers there).
    const QString query = QStringLiteral(
        "SELECT symbol, fetched_at, quoted_at, last, change, percent_change, volume, bid, ask, high, low, open, "
        "source, imported FROM quotes WHERE symbol = 'IBM' AND fetched_at >= -9223372036854775808 AND "
        "fetched_at <= 9223372036854775807 ORDER BY fetched_at, id");
    bool failed = false;
    for (int round = 0; round < rounds; ++round) {
        for (Range& r : ranges) {
            const QString db = QDir(r.data).filePath(history::HistoryStore::defaultFileName());
            const Run base = spawn({sqlite, QStringLiteral("-csv"), db, query}, sink);
            const Run csv = spawn({cli, QStringLiteral("--data-dir"), r.data, QStringLiteral("history"),
                                   QStringLiteral("IBM"), QStringLiteral("--csv")},
                                  sink);
            if (round == 0 && lineCount(sink) != r.rows + 1) {
                std::fprintf(stderr, "the CSV listing has %lld lines, expected %d\n", lineCount(sink), r.rows + 1);
                failed = true;
            }
            const Run json = spawn({cli, QStringLiteral("--data-dir"), r.data, QStringLiteral("history"),
                                    QStringLiteral("IBM"), QStringLiteral("--json")},
                                   sink);
            if (base.code != 0 || csv.code != 0 || json.code != 0) {
                std::fprintf(stderr, "a run failed: sqlite3 %d, csv %d, json %d\n", base.code, csv.code, json.code);
                return 2;
            }
            r.base.push_back(base.ms);
            r.csv.push_back(csv.ms);
            r.json.push_back(json.ms);
            r.baseRss.push_back(base.rssMb);
            r.csvRss.push_back(csv.rssMb);
            r.jsonRss.push_back(json.rssMb);
        }
    }
    std::printf("\n%-8s %8s | %-22s | %-22s %-14s | %-22s %-14s | %s\n", "range", "rows", "sqlite3 -csv ms min/med",
                "history --csv min/med", "x sqlite3", "history --json min/med", "x sqlite3",
                "peak RSS MB sqlite3/csv/json");
    for (const Range& r : ranges) {
        const double csvRss = *std::max_element(r.csvRss.begin(), r.csvRss.end());
        const double jsonRss = *std::max_element(r.jsonRss.begin(), r.jsonRss.end());
        std::printf(
            "%d year%s  %8d | %9.0f / %-10.0f | %9.0f / %-10.0f %5.2f / %-6.2f | %9.0f / %-10.0f %5.2f / %-6.2f | "
            "%.1f / %.1f / %.1f\n",
            r.years, r.years == 1 ? " " : "s", r.rows, minimum(r.base), median(r.base), minimum(r.csv), median(r.csv),
            minimum(r.csv) / minimum(r.base), median(r.csv) / median(r.base), minimum(r.json), median(r.json),
            minimum(r.json) / minimum(r.base), median(r.json) / median(r.base),
            *std::max_element(r.baseRss.begin(), r.baseRss.end()), csvRss, jsonRss);
        if (csvRss >= 40 || jsonRss >= 40) {
            failed = true;
        }
    }
    std::printf("(%d interleaved rounds; the listing's peak RSS must stay under 40 MB whatever the range)\n", rounds);
    return failed ? 1 : 0;
}
