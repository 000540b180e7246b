#pragma once

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QTime>

#include <functional>

namespace kestrova::bench {

// The daemon's minute cycle run for many trading days on a mock clock, against the demo
// market on loopback (quotes, the index page, news) and the pty modem simulator (pages).
// The program is the real one: Application with its portfolio file, servers.dat, news.dat
// and activity log in a temporary data folder. Pages go out only at the three market
// moments (alarm-only paging with no limit reached), so every page received tells which
// moment ran, and every update asks the market for each ticker once.
struct SoakConfig
{
    int tradingDays = 120;
    // A Thursday: the first weekend comes on the third day.
    QDate firstDay{2026, 11, 26};
    int intervalMinutes = 30;
    QTime start{9, 0};
    QTime stop{16, 0};
    QTime open{9, 30};
    QTime midday{12, 0};
    QTime close{16, 0};
    QStringList tickers{QStringLiteral("IBM"), QStringLiteral("MSFT"), QStringLiteral("ACME"), QStringLiteral("KO")};
    bool news = true;
};

struct SoakDay
{
    QDate date;
    // Updates, counted by the market: each asks once for every ticker's quote and news page
    // and once for the index page. Requests that do not make up a whole update are strays.
    int updates = 0;
    int strayRequests = 0;
    int pages = 0; // pages the paging terminal received
    int openPages = 0;
    int middayPages = 0;
    int closePages = 0;
    int otherPages = 0;  // pages outside every market moment's five minutes
    qint64 rssBytes = 0; // resident memory at the end of the day
};

struct SoakResult
{
    bool started = false;
    QString error;
    QList<SoakDay> days; // every calendar day, weekends included
    int ticks = 0;
    int ticksIgnored = 0;
    double seconds = 0;   // wall time of the whole run
    QString activityTail; // the end of the activity log, for a failure report
};

// Updates an interval of this many minutes gives on a trading day: one at the first tick
// after the start time and then every interval minutes while before the stop time, plus the
// three market moments.
int expectedUpdatesPerDay(const SoakConfig& config);

// Runs the soak; dayDone is called after each calendar day.
SoakResult runSoak(const SoakConfig& config, const std::function<void(const SoakDay&)>& dayDone = {});

// The resident set size of this process.
qint64 residentBytes();

} // namespace kestrova::bench
