#include "SoakRun.h"

#include "app/Application.h"
#include "core/ModemProfiles.h"
#include "core/PortfolioFile.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "sim/DemoMarket.h"
#include "sim/ModemSimulator.h"
#include "support/Clock.h"
#include "support/EventWait.h"
#include "support/Format.h"
#include "support/Host.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QTemporaryDir>

#include <unistd.h>

namespace kestrova::bench {

namespace {

// The market's clock, read from the market's own thread: it follows the program's mock
// clock from one tick to the next, so its news is dated on the program's day.
class SharedClock final : public support::Clock
{
public:
    QDateTime now() const override
    {
        QMutexLocker lock(&m_mutex);
        return m_now;
    }
    void set(const QDateTime& t)
    {
        QMutexLocker lock(&m_mutex);
        m_now = t;
    }

private:
    mutable QMutex m_mutex;
    QDateTime m_now;
};

// The daemon's face without a terminal: it keeps nothing of what it is shown (a month of
// status lines would look like a leak), and a yield lets the peers answer for a moment and
// then moves the mock clock on.
class SoakHost final : public support::Host
{
public:
    explicit SoakHost(support::MockClock& clock) : m_clock(clock) {}
    void appendStatusLine(const QString&) override {}
    void setStatusText(const QString&) override {}
    void setProgress(const QString&, const QString&) override {}
    void terminalEcho(const QString&) override {}
    support::MsgAnswer messageBox(const QString&, support::MsgButtons, support::MsgIcon) override
    {
        ++boxes;
        return support::MsgAnswer::Ok;
    }
    QString inputBox(const QString&, const QString&) override { return {}; }
    void setBusy(bool) override {}
    bool openUrl(const QString&) override { return false; }
    void yield(int maxWaitMs) override
    {
        support::waitForEvents(qMin(5, maxWaitMs));
        m_clock.advanceMs(100);
    }
    int boxes = 0;

private:
    support::MockClock& m_clock;
};

QString timeText(const QTime& t)
{
    return support::formatDate(QDateTime(QDate(2026, 1, 1), t), u"h:mm am/pm");
}

bool within(const QTime& t, const QTime& moment)
{
    return t > moment && t < moment.addSecs(5 * 60);
}

} // namespace

qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLongLong() * sysconf(_SC_PAGESIZE) : 0;
}

int expectedUpdatesPerDay(const SoakConfig& config)
{
    int intervals = 0;
    for (QTime t = config.start.addSecs(60); t < config.stop && t >= config.start;
         t = t.addSecs(config.intervalMinutes * 60)) {
        ++intervals;
    }
    return intervals + 3;
}

SoakResult runSoak(const SoakConfig& config, const std::function<void(const SoakDay&)>& dayDone)
{
    SoakResult result;
    QTemporaryDir dir;
    support::MockClock clock(QDateTime(config.firstDay, QTime(0, 0, 30)));
    SharedClock marketClock;
    marketClock.set(clock.now());
    SoakHost host(clock);
    sim::DemoMarketThread market(marketClock, 5);
    sim::ModemSimulator modem;
    if (!market.start(0) || !modem.isValid()) {
        result.error = QStringLiteral("the demo market or the modem simulator did not start: ") + modem.error();
        return result;
    }

    const QString dataDir = dir.filePath(QStringLiteral("data"));
    QDir().mkpath(dataDir);
    const QString installed = QStringLiteral(KESTROVA_SOURCE_DATA);
    if (!news::installServerFiles(dataDir, installed) || !news::retargetDemoMarket(dataDir, market.port())) {
        result.error = QStringLiteral("server files could not be installed");
        return result;
    }

    core::PortfolioTable table;
    for (const QString& ticker : config.tickers) {
        core::PortfolioRecord& r = table.records[static_cast<size_t>(table.count++)];
        r.ticker = ticker;
        r.toPager = 1;
        r.news = config.news ? 1 : 0;
        r.server = quotes::BuiltInServers::kDemoMarket;
    }
    core::Options o;
    core::setBuiltInModemProfiles(o.modem);
    o.connection.type = 1;
    o.quotes.server = quotes::BuiltInServers::kDemoMarket;
    o.quotes.marketSummary = true;
    o.quotes.marketUrl = market.baseUrl() + QStringLiteral("/index");
    // The demo market alone: the shipped failure order asks sources on the Internet first.
    o.sources.order = QStringLiteral("servers.dat");
    o.news.retrieve = config.news;
    o.news.purgeDays = 3;
    o.paging.enabled = true;
    o.paging.pagerId = QStringLiteral("7654321");
    o.paging.phone = QStringLiteral("5550100");
    o.paging.retries = 1;
    o.paging.maxLength = 200;
    // Alarm-only paging and no limit set: nothing but a market moment pages.
    o.alarms.select = true;
    o.alarms.selectMode = 1;
    o.schedule.enabled = true;
    o.schedule.marketOpen = o.schedule.midday = o.schedule.marketClose = o.schedule.interval = true;
    o.schedule.intervalMinutes = static_cast<qint16>(config.intervalMinutes);
    o.schedule.openTime = timeText(config.open);
    o.schedule.middayTime = timeText(config.midday);
    o.schedule.closeTime = timeText(config.close);
    o.schedule.startTime = timeText(config.start);
    o.schedule.stopTime = timeText(config.stop);
    const QString pgr = dir.filePath(QStringLiteral("soak.pgr"));
    if (!core::PortfolioFile::write(pgr, table, o).ok()) {
        result.error = QStringLiteral("the portfolio file could not be written");
        return result;
    }

    app::Application application(clock, host, dataDir);
    application.startup(pgr);
    application.state().prefs.checkMail = false;
    application.state().prefs.modemDevice = modem.slavePath();
    application.setUpSerial();
    if (application.state().currentFile != pgr) {
        result.error = QStringLiteral("the portfolio file did not open");
        return result;
    }

    SoakDay day;
    day.date = config.firstDay;
    QObject::connect(&modem, &sim::ModemSimulator::pageReceived, [&](const QString&, const QString&) {
        const QTime t = clock.now().time();
        ++day.pages;
        if (within(t, config.open)) {
            ++day.openPages;
        } else if (within(t, config.midday)) {
            ++day.middayPages;
        } else if (within(t, config.close)) {
            ++day.closePages;
        } else {
            ++day.otherPages;
        }
    });

    const int perUpdate =
        static_cast<int>(config.tickers.size()) * (config.news ? 2 : 1) + 1; // quotes, news, the index page
    int requestsAtDayStart = market.market()->requestCount();
    int tradingDays = 0;
    QElapsedTimer wall;
    wall.start();
    app::MinuteCycle& cycle = application.minuteCycle();
    for (;;) {
        marketClock.set(clock.now());
        cycle.tick();
        ++result.ticks;
        // The timer is re-armed when a tick returns; a tick that falls due during a long one is
        // not run twice. Ticks come half a minute past each minute.
        QDateTime next(clock.now().date(), QTime(clock.now().time().hour(), clock.now().time().minute(), 30));
        if (next <= clock.now()) {
            next = next.addSecs(60);
        }
        if (next.date() != day.date) {
            const int requests = market.market()->requestCount();
            day.updates = (requests - requestsAtDayStart) / perUpdate;
            day.strayRequests = (requests - requestsAtDayStart) % perUpdate;
            requestsAtDayStart = requests;
            day.rssBytes = residentBytes();
            result.days << day;
            if (dayDone) {
                dayDone(day);
            }
            if (day.date.dayOfWeek() <= 5) {
                ++tradingDays;
            }
            if (tradingDays == config.tradingDays) {
                break;
            }
            day = SoakDay();
            day.date = next.date();
        }
        clock.set(next);
    }
    result.seconds = double(wall.nsecsElapsed()) / 1e9;
    result.ticksIgnored = cycle.ticksIgnored();
    result.started = true;
    QFile log(QDir(dataDir).filePath(QStringLiteral("activity.txt")));
    if (log.open(QIODevice::ReadOnly)) {
        const QByteArray all = log.readAll();
        result.activityTail = QString::fromLatin1(all.right(3000));
    }
    return result;
}

} // namespace kestrova::bench
