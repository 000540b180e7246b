#include "app/Schedule.h"
#include "core/ScheduleRules.h"

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

    // Minute ticks from `from` (the first at that moment), then one more at `then` if given.
    void runs_data()
    {
        QTest::addColumn<QString>("setup"); // what differs from everything(), see runs()
        QTest::addColumn<QDateTime>("from");
        QTest::addColumn<int>("ticks");
        QTest::addColumn<QDateTime>("then");
        QTest::addColumn<int>("moments");    // market-moment updates
        QTest::addColumn<int>("intervals");  // interval updates
        QTest::addColumn<QString>("done");   // moments marked done today (o, m, c); "-" not checked
        QTest::addColumn<QString>("status"); // one of the status lines; "-" none at all
        const QDateTime none;
        const QString next = QStringLiteral("Next scheduled update at ");
        // clang-format off
        QTest::newRow("saturday never updates") << "" << at(28, 9, 1) << 8 * 60 << none << 0 << 0 << "-" << "-";
        // Intervals at 9:00:30 (the first tick after start), 10:00:30 ... 15:00:30; each moment once.
        QTest::newRow("full weekday") << "interval=60" << at(23, 9, 0, 30) << 8 * 60 << none << 3 << 7 << "omc" << next + "10:00:00 AM";
        QTest::newRow("late start misses the open") << "interval=0" << at(23, 9, 40) << 1 << none << 0 << 0 << "" << "";
        QTest::newRow("first tick after start updates") << "moments=0" << at(23, 9, 0, 20) << 2 << none << 0 << 1 << "-" << next + "9:15:00 AM";
        QTest::newRow("start equal to stop: no intervals") << "moments=0,start=10:00 am,stop=10:00 am" << at(23, 9, 1) << 120 << none << 0 << 0 << "-" << "";
        // 23:00:30 ... 23:45:30; the 00:00 that follows belongs to tomorrow, which starts again.
        QTest::newRow("no wrap past midnight") << "moments=0,start=11:00 pm,stop=11:59:59 pm" << at(23, 23, 0, 30) << 60 << at(24, 23, 0, 30) << 0 << 5 << "-" << next + "12:00:00 AM";
        QTest::newRow("weekday change rearms") << "interval=0" << at(23, 9, 31) << 3 << at(24, 9, 31) << 2 << 0 << "o" << "";
        QTest::newRow("unticked weekday skips") << "days=10111" << at(24, 9, 31) << 1 << none << 0 << 0 << "-" << "";
        QTest::newRow("modem service advances only") << "online=0" << at(23, 9, 31) << 1 << none << 0 << 0 << "o" << next + "9:46:00 AM";
        // clang-format on
    }
    void runs()
    {
        QFETCH(QString, setup);
        QFETCH(QDateTime, from);
        QFETCH(int, ticks);
        QFETCH(QDateTime, then);
        QFETCH(int, moments);
        QFETCH(int, intervals);
        QFETCH(QString, done);
        QFETCH(QString, status);
        Recorder r;
        ScheduleState state;
        core::ScheduleOptions o = everything();
        for (const QString& change : setup.split(u',', Qt::SkipEmptyParts)) {
            const QString key = change.section(u'=', 0, 0);
            const QString value = change.section(u'=', 1);
            if (key == QLatin1String("interval")) {
                o.interval = value != QLatin1String("0");
                o.intervalMinutes = qint16(value.toInt());
            } else if (key == QLatin1String("moments")) {
                o.marketOpen = o.midday = o.marketClose = false;
            } else if (key == QLatin1String("start")) {
                o.startTime = value;
            } else if (key == QLatin1String("stop")) {
                o.stopTime = value;
            } else if (key == QLatin1String("days")) {
                for (int d = 0; d < 5; ++d) {
                    o.days[d] = value[d] == u'1';
                }
            } else if (key == QLatin1String("online")) {
                r.internet = false;
            }
        }
        support::MockClock clock(from);
        for (int i = 0; i < ticks; ++i) {
            app::CheckSchedule(o, state, clock, r.hooks());
            clock.advanceSecs(60);
        }
        if (then.isValid()) {
            clock.set(then);
            app::CheckSchedule(o, state, clock, r.hooks());
        }
        QCOMPARE(r.updates.count(true), moments);
        QCOMPARE(r.updates.count(false), intervals);
        if (done != QLatin1String("-")) {
            const QString got =
                QString(state.openDone ? "o" : "") + (state.middayDone ? "m" : "") + (state.closeDone ? "c" : "");
            QCOMPARE(got, done);
        }
        if (status == QLatin1String("-")) {
            QCOMPARE(r.status, QStringList());
        } else if (!status.isEmpty()) {
            QVERIFY2(r.status.contains(status), qPrintable(r.status.join(u'\n')));
        }
    }

    void dialogRules_data()
    {
        QTest::addColumn<QStringList>("fields"); // open, midday, close, start, stop, interval
        QTest::addColumn<int>("failed");
        QTest::addColumn<QString>("error");
        QTest::addColumn<int>("interval");
        QTest::addColumn<bool>("warned");
        using F = core::ScheduleField;
        const QString ex = core::kInvalidTimeExample;
        const QString order = core::kStartAfterStop;
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
        const core::ScheduleEntry entry{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
        const core::ScheduleVerdict v = core::validateSchedule(entry);
        QCOMPARE(int(v.field), failed);
        QCOMPARE(v.ok(), failed == int(core::ScheduleField::None));
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
        core::storeSchedule(stored, entry, v);
        QCOMPARE(stored.startTime, fields[3]);
        QCOMPARE(stored.closeTime, fields[2]);
        QCOMPARE(int(stored.intervalMinutes), interval);
        QVERIFY(stored.enabled && stored.interval);
    }
};

QTEST_GUILESS_MAIN(TestSchedule)
#include "test_schedule.moc"
