#include "app/Schedule.h"

#include "support/Clock.h"

#include <QTest>

using namespace kestrova;
using app::ScheduleState;

namespace {

// 2026-11-23 is a Monday; 2026-11-28 a Saturday.
QDateTime at(int day, int h, int m, int s = 0)
{
    return QDateTime(QDate(2026, 11, day), QTime(h, m, s));
}

struct Recorder
{
    QList<bool> updates; // market-moment argument of each update
    QStringList status;
    bool internet = true;
    app::ScheduleHooks hooks()
    {
        return {[this](bool moment) { updates << moment; }, [this] { return internet; },
                [this](const QString& s) { status << s; }};
    }
};

core::ScheduleOptions everything()
{
    core::ScheduleOptions o;
    o.marketOpen = o.midday = o.marketClose = o.interval = true;
    o.intervalMinutes = 15;
    return o;
}

} // namespace

class TestSchedule : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void timeText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QTime>("expected");
        QTest::newRow("am") << "9:30 am" << QTime(9, 30);
        QTest::newRow("noon") << "12:00 pm" << QTime(12, 0);
        QTest::newRow("midnight") << "12:00 am" << QTime(0, 0);
        QTest::newRow("seconds pm") << "03:42:00 pm" << QTime(15, 42);
        QTest::newRow("24 hour") << "16:05" << QTime(16, 5);
        QTest::newRow("upper case") << "4:00 PM" << QTime(16, 0);
        QTest::newRow("garbage") << "soon" << QTime();
        QTest::newRow("13 pm") << "13:00 pm" << QTime();
    }
    void timeText()
    {
        QFETCH(QString, text);
        QFETCH(QTime, expected);
        const auto t = app::parseTimeText(text);
        QCOMPARE(t.value_or(QTime()), expected);
    }

    void windows_data()
    {
        QTest::addColumn<QTime>("now");
        QTest::addColumn<bool>("reached");
        QTest::newRow("exactly at the moment") << QTime(9, 30) << false;
        QTest::newRow("one second after") << QTime(9, 30, 1) << true;
        QTest::newRow("four minutes after") << QTime(9, 34, 59) << true;
        QTest::newRow("five minutes after") << QTime(9, 35) << false;
    }
    void windows()
    {
        QFETCH(QTime, now);
        QFETCH(bool, reached);
        QCOMPARE(app::TimeReached(now, QTime(9, 30)), reached);
    }

    void nextUpdateCarries()
    {
        QCOMPARE(app::NextUpdateTime(QTime(9, 50, 40), 15), QTime(10, 5, 0));
        QVERIFY(app::IntervalDue(QTime(10, 5, 1), QTime(10, 5)));
        QVERIFY(!app::IntervalDue(QTime(10, 5, 0), QTime(10, 5)));
    }

    void saturdayNeverUpdates()
    {
        Recorder r;
        ScheduleState state;
        support::MockClock clock(at(28, 9, 0));
        for (int i = 0; i < 8 * 60; ++i) { // 9:00 to 17:00, one tick a minute
            clock.advanceSecs(60);
            app::CheckSchedule(everything(), state, clock, r.hooks());
        }
        QVERIFY(r.updates.isEmpty());
        QVERIFY(r.status.isEmpty());
    }

    void fullWeekday()
    {
        Recorder r;
        ScheduleState state;
        auto o = everything();
        o.intervalMinutes = 60;
        support::MockClock clock(at(23, 8, 59, 30));
        for (int i = 0; i < 8 * 60; ++i) {
            clock.advanceSecs(60);
            app::CheckSchedule(o, state, clock, r.hooks());
        }
        // Interval updates at 9:00:30 (first tick after start), 10:00:30, ... 15:00:30 and the
        // three market moments, each once.
        QCOMPARE(r.updates.count(true), 3);
        QCOMPARE(r.updates.count(false), 7);
        QVERIFY(state.openDone && state.middayDone && state.closeDone);
        QCOMPARE(r.status.first(), QStringLiteral("Next scheduled update at 10:00:00 AM"));
    }

    void lateStartMissesTheOpen()
    {
        Recorder r;
        ScheduleState state;
        auto o = everything();
        o.interval = false;
        support::MockClock clock(at(23, 9, 40));
        app::CheckSchedule(o, state, clock, r.hooks());
        QVERIFY(r.updates.isEmpty());
        QVERIFY(!state.openDone);
    }

    void firstTickAfterStartUpdatesAtOnce()
    {
        Recorder r;
        ScheduleState state;
        auto o = everything();
        o.marketOpen = o.midday = o.marketClose = false;
        support::MockClock clock(at(23, 9, 0, 20));
        app::CheckSchedule(o, state, clock, r.hooks());
        QCOMPARE(r.updates, QList<bool>{false});
        QCOMPARE(state.nextUpdate, QStringLiteral("9:15:00 AM"));
        clock.advanceSecs(60);
        app::CheckSchedule(o, state, clock, r.hooks());
        QCOMPARE(r.updates.size(), 1);
    }

    void startEqualStopGivesNoIntervals()
    {
        Recorder r;
        ScheduleState state;
        auto o = everything();
        o.marketOpen = o.midday = o.marketClose = false;
        o.startTime = o.stopTime = QStringLiteral("10:00 am");
        core::ScheduleOptions saved;
        QVERIFY(app::saveSchedule(saved, o, QStringLiteral("15")).saved);
        support::MockClock clock(at(23, 9, 0));
        for (int i = 0; i < 120; ++i) {
            clock.advanceSecs(60);
            app::CheckSchedule(o, state, clock, r.hooks());
        }
        QVERIFY(r.updates.isEmpty());
    }

    void weekdayChangeRearms()
    {
        Recorder r;
        ScheduleState state;
        auto o = everything();
        o.interval = false;
        support::MockClock clock(at(23, 9, 31));
        app::CheckSchedule(o, state, clock, r.hooks());
        clock.set(at(23, 9, 33));
        app::CheckSchedule(o, state, clock, r.hooks());
        QCOMPARE(r.updates.size(), 1);
        clock.set(at(24, 9, 31)); // Tuesday
        app::CheckSchedule(o, state, clock, r.hooks());
        QCOMPARE(r.updates.size(), 2);
        QCOMPARE(state.lastWeekday, 3);
    }

    void untickedWeekdaySkips()
    {
        Recorder r;
        ScheduleState state;
        auto o = everything();
        o.days = {true, false, true, true, true}; // no Tuesday
        support::MockClock clock(at(24, 9, 31));
        app::CheckSchedule(o, state, clock, r.hooks());
        QVERIFY(r.updates.isEmpty());
    }

    void modemServiceAdvancesWithoutUpdating()
    {
        Recorder r;
        r.internet = false;
        ScheduleState state;
        support::MockClock clock(at(23, 9, 31));
        app::CheckSchedule(everything(), state, clock, r.hooks());
        QVERIFY(r.updates.isEmpty());
        QVERIFY(state.openDone);
        QCOMPARE(r.status, QStringList{QStringLiteral("Next scheduled update at 9:46:00 AM")});
    }

    void dialogRules()
    {
        core::ScheduleOptions current;
        current.enabled = true;
        auto edited = current;
        edited.startTime = QStringLiteral("4:00 pm");
        edited.stopTime = QStringLiteral("9:00 am");
        auto refused = app::saveSchedule(current, edited, QStringLiteral("15"));
        QVERIFY(!refused.saved);
        QCOMPARE(refused.error, QStringLiteral("Start time must be less than Stop time."));
        QCOMPARE(current.startTime, QStringLiteral("9:00 am"));

        edited = current;
        edited.intervalMinutes = 99;
        auto warned = app::saveSchedule(current, edited, QStringLiteral("3.9"));
        QVERIFY(warned.saved);
        QCOMPARE(current.intervalMinutes, qint16(3));
        QVERIFY(current.enabled);
        QCOMPARE(warned.warning, QStringLiteral("It is not recommended to update less than 5 minutes..."));

        QCOMPARE(app::validateTimeEntry(app::TimeField::Start, QStringLiteral("25:00")),
                 QStringLiteral("Invalid Time: ex. 03:42:00 pm"));
        QCOMPARE(app::validateTimeEntry(app::TimeField::Close, QStringLiteral("4 pm")),
                 QStringLiteral("Invalid Time:4 pm"));
        QCOMPARE(app::validateTimeEntry(app::TimeField::Open, QStringLiteral("9:30 am")), QString());
    }
};

QTEST_GUILESS_MAIN(TestSchedule)
#include "test_schedule.moc"
