#include "app/MinuteCycle.h"

#include "support/Clock.h"

#include "TestHost.h"

#include <QTest>

using namespace kestrova;

class TestMinuteCycle : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void gates()
    {
        support::MockClock clock(QDateTime(QDate(2026, 11, 23), QTime(9, 0, 30)));
        testing::TestHost host(&clock);
        host.clockStepMs = 0;
        core::ScheduleOptions options;
        options.interval = true;
        bool enabled = false;
        bool portOpen = false;
        int updates = 0;
        QString label;
        app::MinuteCycle::Hooks hooks;
        hooks.scheduleEnabled = [&] { return enabled; };
        hooks.portOpen = [&] { return portOpen; };
        hooks.setClockLabel = [&](const QString& s) { label = s; };
        hooks.options = [&]() -> const core::ScheduleOptions& { return options; };
        hooks.schedule = {[&](bool) { ++updates; }, [] { return true; }, [](const QString&) {}};
        app::MinuteCycle cycle(clock, host, hooks);

        // Schedule off: the clock still moves, nothing else happens.
        cycle.tick();
        QCOMPARE(label, QStringLiteral("11/23/26  9:00 am"));
        QCOMPARE(updates, 0);

        // Port held open by a page in progress: no check this minute...
        enabled = true;
        portOpen = true;
        clock.advanceSecs(60);
        cycle.tick();
        QCOMPARE(label, QStringLiteral("11/23/26  9:01 am"));
        QCOMPARE(updates, 0);
        QCOMPARE(cycle.state().lastWeekday, 0);

        // ...and the next one resumes normally.
        portOpen = false;
        clock.advanceSecs(60);
        cycle.tick();
        QCOMPARE(updates, 1);
    }

    void overlappingTickIsIgnored()
    {
        support::MockClock clock(QDateTime(QDate(2026, 11, 23), QTime(9, 0, 30)));
        testing::TestHost host(&clock);
        core::ScheduleOptions options;
        options.interval = true;
        options.intervalMinutes = 1;
        int updates = 0;
        app::MinuteCycle* self = nullptr;
        app::MinuteCycle::Hooks hooks;
        hooks.scheduleEnabled = [] { return true; };
        hooks.portOpen = [] { return false; };
        hooks.options = [&]() -> const core::ScheduleOptions& { return options; };
        // An update that lasts several minutes and lets timer ticks in while it yields.
        hooks.schedule = {[&](bool) {
                              ++updates;
                              for (int i = 0; i < 3; ++i) {
                                  clock.advanceSecs(60);
                                  self->tick();
                              }
                          },
                          [] { return true; }, [](const QString&) {}};
        app::MinuteCycle cycle(clock, host, hooks);
        self = &cycle;
        cycle.tick();
        QCOMPARE(updates, 1);
        QCOMPARE(cycle.ticksIgnored(), 3);
        QVERIFY(!cycle.busy());
    }

    void timerDrivesTicks()
    {
        support::MockClock clock(QDateTime(QDate(2026, 11, 28), QTime(9, 0)));
        testing::TestHost host(&clock);
        QStringList labels;
        core::ScheduleOptions options;
        app::MinuteCycle::Hooks hooks;
        hooks.scheduleEnabled = [] { return false; };
        hooks.portOpen = [] { return false; };
        hooks.setClockLabel = [&](const QString& s) { labels << s; };
        hooks.options = [&]() -> const core::ScheduleOptions& { return options; };
        hooks.schedule = {[](bool) {}, [] { return true; }, [](const QString&) {}};
        app::MinuteCycle cycle(clock, host, hooks);
        cycle.start(5);
        QTRY_VERIFY_WITH_TIMEOUT(labels.size() >= 3, 5000);
        cycle.stop();
    }
};

QTEST_GUILESS_MAIN(TestMinuteCycle)
#include "test_minutecycle.moc"
