#include "app/Schedule.h"
#include "app/ScheduleRules.h"

#include "support/Clock.h"
#include "support/Format.h"

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
        const auto t = support::parseTimeOfDay(text);
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
        QVERIFY(app::validateSchedule(app::ScheduleEntry::from(o)).ok());
        support::MockClock clock(at(23, 9, 0));
        for (int i = 0; i < 120; ++i) {
            clock.advanceSecs(60);
            app::CheckSchedule(o, state, clock, r.hooks());
        }
        QVERIFY(r.updates.isEmpty());
    }

    void intervalDoesNotWrapPastMidnight()
    {
        Recorder r;
        ScheduleState state;
        auto o = everything();
        o.marketOpen = o.midday = o.marketClose = false;
        o.startTime = QStringLiteral("11:00 pm");
        o.stopTime = QStringLiteral("11:59:59 pm");
        support::MockClock clock(at(23, 22, 59, 30));
        for (int i = 0; i < 60; ++i) { // 23:00:30 to 23:59:30
            clock.advanceSecs(60);
            app::CheckSchedule(o, state, clock, r.hooks());
        }
        // 23:00:30, 23:15:30, 23:30:30 and 23:45:30; the 00:00 that follows belongs to tomorrow.
        QCOMPARE(r.updates.size(), 4);
        QCOMPARE(r.status.last(), QStringLiteral("Next scheduled update at 12:00:00 AM"));
        clock.set(at(24, 23, 0, 30)); // Tuesday starts again from its start time
        app::CheckSchedule(o, state, clock, r.hooks());
        QCOMPARE(r.updates.size(), 5);
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

    void dialogRules_data()
    {
        QTest::addColumn<QStringList>("fields"); // open, midday, close, start, stop, interval
        QTest::addColumn<int>("failed");
        QTest::addColumn<QString>("error");
        QTest::addColumn<int>("interval");
        QTest::addColumn<bool>("warned");
        using F = app::ScheduleField;
        const QString ex = app::kInvalidTimeExample;
        const QString order = app::kStartAfterStop;
        // clang-format off
        QTest::newRow("defaults") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "15"} << int(F::None) << "" << 15 << false;
        QTest::newRow("bad open") << QStringList{"25:00", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "15"} << int(F::OpenTime) << ex << 0 << false;
        QTest::newRow("bad midday") << QStringList{"9:30 am", "noon", "4:00 pm", "9:00 am", "4:00 pm", "15"} << int(F::MiddayTime) << ex << 0 << false;
        QTest::newRow("bad close shows the text") << QStringList{"9:30 am", "12:00 pm", "4 pm", "9:00 am", "4:00 pm", "15"} << int(F::CloseTime) << "Invalid Time:4 pm" << 0 << false;
        QTest::newRow("bad start") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9", "4:00 pm", "15"} << int(F::StartTime) << ex << 0 << false;
        QTest::newRow("empty stop") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "", "15"} << int(F::StopTime) << ex << 0 << false;
        QTest::newRow("start after stop") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "4:00 pm", "9:00 am", "15"} << int(F::StartTime) << order << 0 << false;
        QTest::newRow("start a second after stop") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "16:00:01", "4:00 pm", "15"} << int(F::StartTime) << order << 0 << false;
        QTest::newRow("start equal to stop") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "10:00 am", "10:00:00", "15"} << int(F::None) << "" << 15 << false;
        QTest::newRow("first failure wins") << QStringList{"9.30", "12:00 pm", "4:00 pm", "4:00 pm", "9:00 am", "x"} << int(F::OpenTime) << ex << 0 << false;
        QTest::newRow("integer part") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "7.9"} << int(F::None) << "" << 7 << false;
        QTest::newRow("short interval warns") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "3"} << int(F::None) << "" << 3 << true;
        QTest::newRow("4.99 is 4") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "4.99"} << int(F::None) << "" << 4 << true;
        QTest::newRow("five does not warn") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", " 5 "} << int(F::None) << "" << 5 << false;
        QTest::newRow("zero") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "0.5"} << int(F::Interval) << "" << 0 << false;
        QTest::newRow("not a number") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "often"} << int(F::Interval) << "" << 0 << false;
        QTest::newRow("over a day") << QStringList{"9:30 am", "12:00 pm", "4:00 pm", "9:00 am", "4:00 pm", "1441"} << int(F::Interval) << "" << 0 << false;
        // clang-format on
    }
    void dialogRules()
    {
        QFETCH(QStringList, fields);
        QFETCH(int, failed);
        QFETCH(QString, error);
        QFETCH(int, interval);
        QFETCH(bool, warned);
        const app::ScheduleEntry entry{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
        const app::ScheduleVerdict v = app::validateSchedule(entry);
        QCOMPARE(int(v.field), failed);
        QCOMPARE(v.ok(), failed == int(app::ScheduleField::None));
        if (!error.isEmpty()) {
            QCOMPARE(v.error, error);
        }
        if (!v.ok()) {
            return;
        }
        QCOMPARE(int(v.intervalMinutes), interval);
        QCOMPARE(v.shortInterval, warned);
        core::ScheduleOptions stored;
        stored.enabled = stored.interval = true;
        app::storeSchedule(stored, entry, v);
        QCOMPARE(stored.startTime, fields[3]);
        QCOMPARE(stored.closeTime, fields[2]);
        QCOMPARE(int(stored.intervalMinutes), interval);
        QVERIFY(stored.enabled && stored.interval);
    }
};

QTEST_GUILESS_MAIN(TestSchedule)
#include "test_schedule.moc"
