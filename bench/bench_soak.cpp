// The daemon's minute cycle through half a year of trading on a mock clock, against the
// demo market and the pty modem simulator (see SoakRun.h). Prints each day's updates, pages
// and resident memory, then the totals; fails when an update or a market moment is missing
// or doubled, or when resident memory grew by 256 KB or more after the first day.
//
//   bench_soak [trading-days] [interval-minutes]      (defaults: 120, 30)

#include "SoakRun.h"

#include <QCoreApplication>

#include <cstdio>

using namespace kestrova;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    bench::SoakConfig config;
    if (argc > 1) {
        config.tradingDays = std::max(1, atoi(argv[1]));
    }
    if (argc > 2) {
        config.intervalMinutes = std::max(1, atoi(argv[2]));
    }
    const int expected = bench::expectedUpdatesPerDay(config);
    std::printf("%d trading days from %s, interval %d min: %d updates and 3 pages per trading day expected\n",
                config.tradingDays, qPrintable(config.firstDay.toString(Qt::ISODate)), config.intervalMinutes,
                expected);
    std::printf("%-10s %-3s %7s %5s %13s %9s\n", "day", "", "updates", "pages", "open/mid/close", "rss MB");
    int wrongDays = 0;
    const bench::SoakResult r = bench::runSoak(config, [&](const bench::SoakDay& d) {
        const bool trading = d.date.dayOfWeek() <= 5;
        const bool right =
            d.strayRequests == 0 && d.otherPages == 0 &&
            (trading ? d.updates == expected && d.openPages == 1 && d.middayPages == 1 && d.closePages == 1
                     : d.updates == 0 && d.pages == 0);
        wrongDays += right ? 0 : 1;
        std::printf("%-10s %-3s %7d %5d %6d/%d/%d %9.2f%s\n", qPrintable(d.date.toString(Qt::ISODate)),
                    qPrintable(d.date.toString(QStringLiteral("ddd"))), d.updates, d.pages, d.openPages, d.middayPages,
                    d.closePages, double(d.rssBytes) / (1 << 20), right ? "" : "  <-- wrong");
        std::fflush(stdout);
    });
    if (!r.started) {
        std::fprintf(stderr, "soak did not start: %s\n", qPrintable(r.error));
        return 2;
    }
    int updates = 0;
    int pages = 0;
    for (const bench::SoakDay& d : r.days) {
        updates += d.updates;
        pages += d.pages;
    }
    const qint64 afterFirst = r.days.first().rssBytes;
    qint64 peak = 0;
    for (const bench::SoakDay& d : r.days) {
        peak = std::max(peak, d.rssBytes);
    }
    const qint64 growth = r.days.last().rssBytes - afterFirst;
    std::printf("\n%lld calendar days, %d ticks (%d ignored), %d updates (expected %d), %d pages (expected %d), "
                "%d wrong days\n",
                static_cast<long long>(r.days.size()), r.ticks, r.ticksIgnored, updates, expected * config.tradingDays,
                pages, 3 * config.tradingDays, wrongDays);
    std::printf("resident memory: %.2f MB after the first day, %.2f MB at the end, peak %.2f MB, growth %+.0f KB\n",
                double(afterFirst) / (1 << 20), double(r.days.last().rssBytes) / (1 << 20), double(peak) / (1 << 20),
                double(growth) / 1024);
    std::printf("wall time %.1f s\n", r.seconds);
    if (wrongDays > 0) {
        std::fprintf(stderr, "activity log ends:\n%s\n", qPrintable(r.activityTail));
        return 1;
    }
    return growth < 256 * 1024 ? 0 : 1;
}
