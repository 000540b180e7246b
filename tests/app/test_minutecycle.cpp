#include "app/MinuteCycle.h"

#include "support/Clock.h"

#include "TestHost.h"

#include <QTest>

using namespace kestrova;

namespace {

// A minute cycle whose hooks the test steers: the schedule switch, a page holding the port,
// and what an update does while it runs.
struct Cycle
{
    support::MockClock clock;
    testing::TestHost host{&clock};
    core::ScheduleOptions options;
    bool enabled = true;
    bool portOpen = false;
    int updates = 0;
    QStringList labels;
    std::function<void()> duringUpdate = [] {};
    app::MinuteCycle cycle{clock, host, hooks()};

    explicit Cycle(const QDateTime& at) : clock(at) { options.interval = true; }

    app::MinuteCycle::Hooks hooks()
    {
        app::MinuteCycle::Hooks h;
        h.scheduleEnabled = [this] { return enabled; };
        h.portOpen = [this] { return portOpen; };
        h.setClockLabel = [this](const QString& s) { labels << s; };
        h.options = [this]() -> const core::ScheduleOptions& { return options; };
        h.schedule = {[this](bool) {
                          ++updates;
                          duringUpdate();
                      },
                      [] { return true; }, [](const QString&) {}};
        return h;
    }
};

} // namespace

class TestMinuteCycle : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void gates()
    {
        Cycle c(QDateTime(QDate(2026, 11, 23), QTime(9, 0, 30)));
        c.host.clockStepMs = 0;
        c.enabled = false;

        // Schedule off: the clock still moves, nothing else happens.
        c.cycle.tick();
        QCOMPARE(c.labels.last(), QStringLiteral("11/23/26  9:00 am"));
        QCOMPARE(c.updates, 0);

        // Port held open by a page in progress: no check this minute...
        c.enabled = true;
        c.portOpen = true;
        c.clock.advanceSecs(60);
        c.cycle.tick();
        QCOMPARE(c.labels.last(), QStringLiteral("11/23/26  9:01 am"));
        QCOMPARE(c.updates, 0);
        QCOMPARE(c.cycle.state().lastWeekday, 0);

        // ...and the next one resumes normally.
        c.portOpen = false;
        c.clock.advanceSecs(60);
        c.cycle.tick();
        QCOMPARE(c.updates, 1);
    }

    void overlappingTickIsIgnored()
    {
        Cycle c(QDateTime(QDate(2026, 11, 23), QTime(9, 0, 30)));
        c.options.intervalMinutes = 1;
        // An update that lasts several minutes and lets timer ticks in while it yields.
        c.duringUpdate = [&c] {
            for (int i = 0; i < 3; ++i) {
                c.clock.advanceSecs(60);
                c.cycle.tick();
            }
        };
        c.cycle.tick();
        QCOMPARE(c.updates, 1);
        QCOMPARE(c.cycle.ticksIgnored(), 3);
        QVERIFY(!c.cycle.busy());
    }

    void timerDrivesTicks()
    {
        Cycle c(QDateTime(QDate(2026, 11, 28), QTime(9, 0)));
        c.enabled = false;
        c.cycle.start(5);
        QTRY_VERIFY_WITH_TIMEOUT(c.labels.size() >= 3, 5000);
        c.cycle.stop();
    }
};

QTEST_GUILESS_MAIN(TestMinuteCycle)
#include "test_minutecycle.moc"
