#include "ModemRig.h"
#include "delivery/NumericPager.h"

#include <QtTest>

using namespace kestrova;
using kestrova::testing::ModemRig;

class TestNumericPager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdSeconds_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<int>("seconds");
        QTest::newRow("empty") << "" << 5;
        QTest::newRow("three commas") << ",,," << 11;
        QTest::newRow("no commas") << "99" << 5;
        QTest::newRow("commas among digits") << "9,1,2" << 9;
    }
    void holdSeconds()
    {
        QFETCH(QString, prefix);
        QFETCH(int, seconds);
        QCOMPARE(delivery::NumericPager::holdSeconds(prefix), seconds);
    }

    void oneCallPerPageHeldForTheDigits()
    {
        sim::ModemScript script;
        script.numeric = {QStringLiteral("5559")};
        ModemRig rig(script);
        rig.options.paging.phone = QStringLiteral("5559");
        rig.options.paging.numericWait = 2;
        rig.options.paging.numericPrefix = QStringLiteral(",,,");

        // When each call came in and when the line was hung up, on the program's clock.
        QList<QDateTime> callTimes;
        QList<QDateTime> hangUpTimes;
        connect(&rig.sim, &sim::ModemSimulator::callReceived, this, [&] { callTimes << rig.clock.now(); });
        connect(&rig.sim, &sim::ModemSimulator::commandReceived, this, [&](const QString& c) {
            if (c.startsWith(QStringLiteral("ATH"))) {
                hangUpTimes << rig.clock.now();
            }
        });

        delivery::PageTable pages;
        pages.pages = {QStringLiteral("101*2"), QStringLiteral("202*3"), QStringLiteral("303*4")};
        delivery::NumericPager pager(rig.modem, rig.options);
        QVERIFY(pager.SendDigitalPage(pages));
        QTest::qWait(50); // lets the simulator read the last hang-up

        QCOMPARE(rig.sim.calls.size(), 3);
        for (int i = 0; i < 3; ++i) {
            QVERIFY(rig.sim.calls[i].numeric);
            QCOMPARE(rig.sim.calls[i].digits, pages.pages[i]);
        }
        QCOMPARE(rig.sim.commands.count(QStringLiteral("ATDT5559101*2")), 1);
        const QStringList expected{QStringLiteral("Digital Pager: Message 1 Sent"),
                                   QStringLiteral("Digital Pager: Message 2 Sent"),
                                   QStringLiteral("Digital Pager: Message 3 Sent")};
        QCOMPARE(rig.statusMessages(), expected);
        QCOMPARE(pager.outcomes(), expected);
        QCOMPARE(rig.countStatus(QStringLiteral("Page Sent")), 3);

        // Each call: 5 s after dialling, the 2 s window, the 11 s hold, then the hang-up's
        // own 1 s pause before "+++".
        QCOMPARE(callTimes.size(), 3);
        QCOMPARE(hangUpTimes.size(), 3);
        for (int i = 0; i < 3; ++i) {
            const qint64 held = callTimes[i].msecsTo(hangUpTimes[i]);
            QVERIFY2(held >= 19000 && held <= 21500, qPrintable(QString::number(held)));
        }
        QVERIFY(!rig.line->isOpen());
    }

    void failuresAreRetriedWithTheirTexts_data()
    {
        QTest::addColumn<QString>("scriptText");
        QTest::addColumn<QString>("text");
        QTest::newRow("busy") << "busy 5559" << QStringLiteral("Digital Pager: Busy");
        QTest::newRow("no dial tone") << "no-dialtone 5559" << QStringLiteral("Digital Pager: No Dialtone");
        QTest::newRow("modem mute") << "fault mute" << QStringLiteral("Pager: Could Not Initialize Modem");
    }
    void failuresAreRetriedWithTheirTexts()
    {
        QFETCH(QString, scriptText);
        QFETCH(QString, text);
        ModemRig rig(sim::ModemScript::parse(scriptText));
        rig.options.paging.phone = QStringLiteral("5559");
        rig.options.paging.numericWait = 3;
        delivery::PageTable pages;
        pages.pages = {QStringLiteral("1"), QStringLiteral("2")};
        delivery::NumericPager pager(rig.modem, rig.options);
        QVERIFY(!pager.SendDigitalPage(pages));
        // Two attempts for each of the two pages, none of them sent.
        QCOMPARE(rig.statusMessages(), (QStringList{text, text, text, text}));
        QCOMPARE(rig.countStatus(QStringLiteral("Retrying")), 2);
        QVERIFY(!rig.line->isOpen());
    }

    void missingPhoneNumberDialsNothing()
    {
        ModemRig rig;
        rig.options.paging.phone.clear();
        delivery::PageTable pages;
        pages.pages = {QStringLiteral("1")};
        delivery::NumericPager pager(rig.modem, rig.options);
        QVERIFY(!pager.SendDigitalPage(pages));
        QCOMPARE(rig.host.messages, QStringList{QStringLiteral("You must define your paging service phone #.")});
        QVERIFY(rig.sim.commands.isEmpty());
    }

    void unavailablePortStopsEverything()
    {
        ModemRig rig;
        rig.line->setDevice(QStringLiteral("/nonexistent/tty"));
        delivery::PageTable pages;
        pages.pages = {QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")};
        delivery::NumericPager pager(rig.modem, rig.options);
        QVERIFY(!pager.SendDigitalPage(pages));
        QCOMPARE(rig.statusMessages(), QStringList{QStringLiteral("Comm Port Unavailable")});
        QCOMPARE(rig.countStatus(QStringLiteral("Hanging Up")), 0);
    }

    void cancelStopsThePages()
    {
        sim::ModemScript script;
        script.numeric = {QStringLiteral("5559")};
        ModemRig rig(script);
        rig.options.paging.phone = QStringLiteral("5559");
        rig.options.paging.numericWait = 10;
        rig.host.onYield = [&rig] {
            if (!rig.sim.calls.isEmpty()) {
                rig.cancel.set();
            }
        };
        delivery::PageTable pages;
        pages.pages = {QStringLiteral("1"), QStringLiteral("2")};
        delivery::NumericPager pager(rig.modem, rig.options);
        QVERIFY(!pager.SendDigitalPage(pages));
        QCOMPARE(rig.sim.calls.size(), 1);
        QCOMPARE(rig.statusMessages(), QStringList{QStringLiteral("Digital Pager: User Cancelled")});
        QVERIFY(!rig.line->isOpen());
    }
};

QTEST_GUILESS_MAIN(TestNumericPager)
#include "test_numericpager.moc"
