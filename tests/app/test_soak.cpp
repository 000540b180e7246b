#include "SoakRun.h"

#include <QTest>

using namespace kestrova;

// Three trading days of the daemon's minute cycle on a mock clock, across a weekend,
// against the demo market and the pty modem simulator: every scheduled update runs once,
// every market moment pages once on its trading day, and nothing runs on Saturday and Sunday.
// (The month-long run with its memory figures is bench/bench_soak.)
class TestSoak : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void threeTradingDays()
    {
        bench::SoakConfig config;
        config.tradingDays = 3;
        const int expected = bench::expectedUpdatesPerDay(config);
        // 9:01 and every 30 minutes before 16:00, plus open, midday and close.
        QCOMPARE(expected, 17);
        const bench::SoakResult r = bench::runSoak(config);
        QVERIFY2(r.started, qPrintable(r.error));
        QStringList days;
        for (const bench::SoakDay& d : r.days) {
            days << d.date.toString(QStringLiteral("ddd"));
        }
        QCOMPARE(days, QStringList({"Thu", "Fri", "Sat", "Sun", "Mon"}));
        for (const bench::SoakDay& d : r.days) {
            const QByteArray where = d.date.toString(Qt::ISODate).toLatin1() + "\n" + r.activityTail.toLatin1();
            const bool trading = d.date.dayOfWeek() <= 5;
            QVERIFY2(d.updates == (trading ? expected : 0), where.constData());
            QVERIFY2(d.strayRequests == 0, where.constData());
            QVERIFY2(d.openPages == (trading ? 1 : 0), where.constData());
            QVERIFY2(d.middayPages == (trading ? 1 : 0), where.constData());
            QVERIFY2(d.closePages == (trading ? 1 : 0), where.constData());
            QVERIFY2(d.otherPages == 0, where.constData());
        }
        QCOMPARE(r.ticks, 5 * 24 * 60);
    }
};

QTEST_GUILESS_MAIN(TestSoak)
#include "test_soak.moc"
