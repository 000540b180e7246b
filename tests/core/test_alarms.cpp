#include "core/Quote.h"
#include "core/Quotes.h"

#include <QTest>

using namespace kestrova::core;

class TestAlarms : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void priceAlarms_data()
    {
        QTest::addColumn<float>("high");
        QTest::addColumn<float>("low");
        QTest::addColumn<bool>("lowBefore"); // LowAlarm set explicitly before the write
        QTest::addColumn<QString>("last");
        QTest::addColumn<bool>("highAlarm");
        QTest::addColumn<bool>("lowAlarm");
        QTest::addColumn<bool>("newLimit");
        QTest::newRow("no limits") << 0.0F << 0.0F << false << "50" << false << false << false;
        QTest::newRow("high inclusive") << 50.0F << 0.0F << false << "50" << true << false << true;
        QTest::newRow("below high") << 50.0F << 0.0F << false << "49.99" << false << false << false;
        QTest::newRow("low inclusive") << 0.0F << 40.0F << false << "40" << false << true << true;
        QTest::newRow("fraction reaches low") << 0.0F << 40.5F << false << "40 1/2" << false << true << true;
        QTest::newRow("zero keeps low on") << 0.0F << 40.0F << true << "0" << false << true << false;
        QTest::newRow("n/a keeps low off") << 0.0F << 40.0F << false << "n/a" << false << false << false;
        QTest::newRow("price clears low") << 0.0F << 40.0F << true << "41" << false << false << false;
        QTest::newRow("preset low is not new") << 0.0F << 40.0F << true << "39" << false << true << false;
        QTest::newRow("both fire") << 50.0F << 60.0F << false << "55" << true << true << true;
        QTest::newRow("negative price vs low") << 0.0F << -1.0F << false << "-1 1/4" << false << true << true;
        QTest::newRow("zero high limit never fires at 0") << 0.0F << 0.0F << false << "0" << false << false << false;
    }
    void priceAlarms()
    {
        QFETCH(float, high);
        QFETCH(float, low);
        QFETCH(bool, lowBefore);
        QFETCH(QString, last);
        QFETCH(bool, highAlarm);
        QFETCH(bool, lowAlarm);
        QFETCH(bool, newLimit);
        Quote q;
        q.setDigits(2);
        q.setHighLimit(high);
        q.setLowLimit(low);
        q.setLowAlarm(lowBefore);
        q.setLast(last);
        QCOMPARE(q.highAlarm(), highAlarm);
        QCOMPARE(q.lowAlarm(), lowAlarm);
        QCOMPARE(q.newLimit(), newLimit);
    }

    void percentAlarms_data()
    {
        QTest::addColumn<int>("digits");
        QTest::addColumn<float>("high");
        QTest::addColumn<float>("low");
        QTest::addColumn<QString>("percent");
        QTest::addColumn<bool>("highAlarm");
        QTest::addColumn<bool>("lowAlarm");
        QTest::newRow("high inclusive") << 2 << 5.0F << 0.0F << "5%" << true << false;
        QTest::newRow("just below high") << 2 << 5.0F << 0.0F << "4.99%" << false << false;
        QTest::newRow("rounded text decides") << 0 << 5.0F << 0.0F << "4.6%" << true << false;
        QTest::newRow("unset low at zero") << 2 << 0.0F << 0.0F << "0" << false << false;
        QTest::newRow("low inclusive") << 2 << 0.0F << -2.0F << "-2%" << false << true;
        QTest::newRow("zero is no exemption") << 2 << 0.0F << 1.0F << "0%" << false << true;
        QTest::newRow("leading percent reads 0") << 2 << 0.0F << 0.5F << "%7" << false << true;
        QTest::newRow("n/a reads 0") << 2 << 0.0F << -0.5F << "n/a" << false << false;
    }
    void percentAlarms()
    {
        QFETCH(int, digits);
        QFETCH(float, high);
        QFETCH(float, low);
        QFETCH(QString, percent);
        QFETCH(bool, highAlarm);
        QFETCH(bool, lowAlarm);
        Quote q;
        q.setDigits(qint16(digits));
        q.setHighChgLimit(high);
        q.setLowChgLimit(low);
        q.setPercentChg(percent);
        QCOMPARE(q.highChgAlarm(), highAlarm);
        QCOMPARE(q.lowChgAlarm(), lowAlarm);
        QCOMPARE(q.newLimit(), highAlarm || lowAlarm);
    }

    void volumeAlarm_data()
    {
        QTest::addColumn<float>("limit");
        QTest::addColumn<QString>("volume");
        QTest::addColumn<bool>("alarm");
        QTest::newRow("exactly the limit") << 1e6F << "1,000,000" << true;
        QTest::newRow("one short") << 1e6F << "999,999" << false;
        QTest::newRow("unset limit, largest volume") << 0.0F << "2147483647" << false;
        QTest::newRow("unreadable is 0") << 1.0F << "n/a" << false;
        QTest::newRow("overflow is 0") << 1.0F << "3000000000" << false;
    }
    void volumeAlarm()
    {
        QFETCH(float, limit);
        QFETCH(QString, volume);
        QFETCH(bool, alarm);
        Quote q;
        q.setVolumeLimit(limit);
        q.setVolume(volume);
        QCOMPARE(q.volumeAlarm(), alarm);
        QCOMPARE(q.newLimit(), alarm);
    }

    void newLimitOnlyOnSwitchOn()
    {
        Quote q;
        q.setDigits(2);
        q.setHighLimit(50);
        q.setLast(QStringLiteral("60"));
        QVERIFY(q.highAlarm());
        QVERIFY(q.newLimit());
        q.setLast(QStringLiteral("61"));
        QVERIFY(q.highAlarm());
        QVERIFY(q.newLimit()); // never cleared by a test

        q.setNewLimit(false);
        q.setLast(QStringLiteral("62"));
        QVERIFY(q.highAlarm());
        QVERIFY(!q.newLimit()); // still on: nothing new

        q.setLast(QStringLiteral("10"));
        QVERIFY(!q.highAlarm());
        QVERIFY(!q.newLimit());
        q.setLast(QStringLiteral("50"));
        QVERIFY(q.newLimit()); // off -> on again
    }

    void newLimitPage()
    {
        Quotes set;
        QVERIFY(!set.NewLimitPage());
        auto a = std::make_shared<Quote>();
        auto b = std::make_shared<Quote>();
        set.Add(a, QStringLiteral("A"));
        set.Add(b, QStringLiteral("B"));
        QVERIFY(!set.NewLimitPage());
        a->setNewLimit(true);
        QVERIFY(set.NewLimitPage()); // a later member without a new alarm does not reset it
        a->setNewLimit(false);
        QVERIFY(!set.NewLimitPage());
        b->setVolumeLimit(5);
        b->setVolume(QStringLiteral("5"));
        QVERIFY(set.NewLimitPage());
    }
};

QTEST_GUILESS_MAIN(TestAlarms)
#include "test_alarms.moc"
