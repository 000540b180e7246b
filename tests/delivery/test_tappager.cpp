#include "ModemRig.h"
#include "core/MailRecords.h"
#include "delivery/PageTable.h"
#include "delivery/TapPager.h"

#include <QtTest>

#include <memory>

using namespace kestrova;
using kestrova::testing::ModemRig;

namespace {
const QChar kCr(13);
const QChar kBs(8);

core::MailBox twoMessages()
{
    core::MailBox box;
    box.messageCount = 2;
    box.mailWaiting = true;
    box.records[1].date = QStringLiteral(" Mon, 23 Nov 2026 09:00 ");
    box.records[1].sender = QStringLiteral("alice smith");
    box.records[1].subject = QStringLiteral("lunch");
    box.records[1].isNew = true;
    box.records[2].date = QStringLiteral("Mon, 23 Nov 2026 09:30");
    box.records[2].sender = QStringLiteral("bob");
    box.records[2].subject = QStringLiteral("old");
    for (int i : {1, 2})
        box.records[i].size = 100;
    return box;
}
} // namespace

class TestTapPager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sendsPagesWhole_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("maxLength");
        QTest::addColumn<QStringList>("expectedPages");
        QTest::addColumn<QString>("result");

        // clang-format off
        QTest::newRow("one page") << "IBM 101.25 +1.50" << 80 << QStringList{"IBM 101.25 +1.50"} << "Pager: Message Sent";
        const QString three = QString(20, u'a') + QString(20, u'b') + QStringLiteral("ccc");
        QTest::newRow("three pages") << three << 20 << QStringList{QString(20, u'a'), QString(20, u'b'), "ccc"} << "Pager: Message Sent (3 Pages)";
        QTest::newRow("line break kept in place") << "AB\r\nCD" << 80 << QStringList{QStringLiteral("AB ") + kBs + "CD"} << "Pager: Message Sent";
        // clang-format on
    }
    void sendsPagesWhole()
    {
        QFETCH(QString, message);
        QFETCH(int, maxLength);
        QFETCH(QStringList, expectedPages);
        QFETCH(QString, result);

        ModemRig rig;
        QVERIFY2(rig.sim.isValid(), qPrintable(rig.sim.error()));
        rig.options.paging.maxLength = static_cast<qint16>(maxLength);
        rig.options.modem.speakerMode = 2;
        rig.options.modem.speakerVolume = 0;
        delivery::TapPager pager(rig.modem, rig.options);
        QCOMPARE(pager.SendPage(message), result);
        QCOMPARE(pager.result(), qint16(delivery::ResultOk));

        QCOMPARE(rig.sim.pages.size(), expectedPages.size());
        for (int i = 0; i < expectedPages.size(); ++i) {
            QCOMPARE(rig.sim.pages[i].pagerId, QStringLiteral("1234567"));
            QCOMPARE(rig.sim.pages[i].text, expectedPages[i]);
        }
        QCOMPARE(rig.sim.calls.size(), 1);
        QCOMPARE(rig.sim.calls[0].number, QStringLiteral("5551000"));
        // The selected profile's pager init string, with the speaker settings appended.
        QVERIFY(rig.sim.commands.contains(QStringLiteral("AT&F E0 V1 &D2 &C1 &Q0 M2 L1")));
        QTest::qWait(50); // lets the simulator read what was sent last
        QCOMPARE(rig.sim.hangUps, 1);
        QVERIFY(!rig.line->isOpen());
        QCOMPARE(rig.statusMessages(), QStringList{result});
        QVERIFY(rig.host.statusTexts.contains(QStringLiteral("Dialing 5551000")));
        QVERIFY(rig.host.statusTexts.contains(QStringLiteral("Message Sent - Page %1").arg(expectedPages.size())));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("-->") + QChar(27) + "PG1" + kCr));
        QVERIFY(rig.host.messages.isEmpty());
    }

    void failedAttemptsAreRetried_data()
    {
        QTest::addColumn<QString>("scriptText");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("calls");
        QTest::addColumn<int>("logonCrs"); // per attempt, -1: not checked

        // clang-format off
        QTest::newRow("busy") << "busy 5551000" << QStringLiteral("Pager: Busy") << 0 << -1;
        QTest::newRow("no dial tone") << "no-dialtone 5551000" << QStringLiteral("Pager: No Dialtone") << 0 << -1;
        QTest::newRow("no answer") << "silent 5551000" << QStringLiteral("Pager: Could not connect w/ Service") << 0 << -1;
        // The dial waits for CONNECT alone, so a NO CARRIER runs out the minute; 5000
        // characters of noise end the dial as if connected, and the logon finds no ID.
        QTest::newRow("NO CARRIER on dial") << "no-carrier 5551000" << QStringLiteral("Pager: Could not connect w/ Service") << 0 << -1;
        QTest::newRow("noise on dial") << "noise 5551000" << QStringLiteral("Pager: Unable to logon.") << 0 << -1;
        QTest::newRow("ID never sent") << "fault never-id" << QStringLiteral("Pager: Unable to logon.") << 2 << 6;
        QTest::newRow("NO CARRIER at logon") << "fault no-carrier-at-logon" << QStringLiteral("Pager: Could not connect w/ Service") << 2 << 1;
        QTest::newRow("logon refused") << "fault refuse-logon" << QStringLiteral("Pager: Logon was not accepted.") << 2 << -1;
        QTest::newRow("NAK on every block") << "fault nak" << QStringLiteral("Pager: Message was not sent.") << 2 << -1;
        QTest::newRow("RS on every block") << "fault rs" << QStringLiteral("Pager: Message was not sent.") << 2 << -1;
        QTest::newRow("ESC EOT on every block") << "fault esc-eot" << QStringLiteral("Pager: Message was not sent.") << 2 << -1;
        QTest::newRow("block never answered") << "fault silence" << QStringLiteral("Pager: Message was not sent.") << 2 << -1;
        QTest::newRow("modem never says OK") << "fault mute" << QStringLiteral("Pager: Could Not Initialize Modem") << 0 << -1;
        // clang-format on
    }
    void failedAttemptsAreRetried()
    {
        QFETCH(QString, scriptText);
        QFETCH(QString, expected);
        QFETCH(int, calls);
        QFETCH(int, logonCrs);

        QString problem;
        ModemRig rig(sim::ModemScript::parse(scriptText, &problem));
        QVERIFY(problem.isEmpty());
        delivery::TapPager pager(rig.modem, rig.options);
        const QDateTime start = rig.clock.now();
        QCOMPARE(pager.SendPage(QStringLiteral("MSFT 300.10")), expected);
        QVERIFY(pager.result() != delivery::ResultOk);
        QVERIFY(rig.sim.pages.isEmpty());
        // Two attempts, each logged, each ended by a hang-up, with the pause between them.
        QCOMPARE(rig.statusMessages(), (QStringList{expected, expected}));
        QCOMPARE(rig.countStatus(QStringLiteral("Retrying")), 1);
        QCOMPARE(rig.countStatus(QStringLiteral("Hanging Up")), 2);
        QVERIFY(rig.clock.now() >= start.addSecs(rig.options.paging.retrySeconds));
        QCOMPARE(rig.sim.calls.size(), calls);
        if (logonCrs >= 0) {
            QCOMPARE(rig.sim.logonCrs, 2 * logonCrs);
        }
        QVERIFY(!rig.line->isOpen());
    }

    void noiseAbortsTheWait_data()
    {
        QTest::addColumn<bool>("idAfterNoise");
        QTest::addColumn<QString>("result");
        QTest::addColumn<int>("pages");
        // The flood ends the first wait for the ID at once; the CR that follows gets the
        // prompt from a terminal that recovered, or nothing from one that did not.
        QTest::newRow("terminal recovers") << true << "Pager: Message Sent" << 1;
        QTest::newRow("terminal stays dumb") << false << "Pager: Unable to logon." << 0;
    }
    void noiseAbortsTheWait()
    {
        QFETCH(bool, idAfterNoise);
        QFETCH(QString, result);
        QFETCH(int, pages);
        sim::ModemScript script;
        script.noiseAfterConnect = true;
        script.noiseChars = 6000;
        script.neverSendId = !idAfterNoise;
        ModemRig rig(script);
        rig.options.paging.retries = 1;
        delivery::TapPager pager(rig.modem, rig.options);
        QCOMPARE(pager.SendPage(QStringLiteral("noise")), result);
        QVERIFY(rig.host.messages.contains(QStringLiteral("COMM input exceeded 5000 char")));
        QCOMPARE(rig.sim.pages.size(), pages);
        QVERIFY(!rig.line->isOpen());
    }

    void cancelMidSession()
    {
        ModemRig rig;
        rig.options.paging.maxLength = 10;
        rig.host.onYield = [&rig] {
            if (rig.sim.pages.size() == 1) {
                rig.cancel.set();
            }
        };
        delivery::TapPager pager(rig.modem, rig.options);
        QCOMPARE(pager.SendPage(QString(35, u'z')), QStringLiteral("Pager: User Cancelled"));
        QCOMPARE(pager.result(), qint16(delivery::ResultCancelled));
        QVERIFY(rig.sim.pages.size() < 4);
        // Cancelled sends are not retried, but the line is still hung up.
        QCOMPARE(rig.sim.calls.size(), 1);
        QCOMPARE(rig.countStatus(QStringLiteral("Retrying")), 0);
        QCOMPARE(rig.countStatus(QStringLiteral("Hanging Up")), 1);
        QCOMPARE(rig.statusMessages(), QStringList{QStringLiteral("Pager: User Cancelled")});
        QVERIFY(!rig.line->isOpen());
    }

    void vanishingModemEndsTheAttempt()
    {
        ModemRig rig;
        auto* modem = new sim::ModemSimulator;
        rig.line->setDevice(modem->slavePath());
        // The modem is unplugged once the logon has begun.
        rig.host.onYield = [&modem] {
            if (modem && modem->logonCrs > 0) {
                delete modem;
                modem = nullptr;
            }
        };
        delivery::TapPager pager(rig.modem, rig.options);
        QCOMPARE(pager.SendPage(QStringLiteral("x")), QStringLiteral("Comm Port Unavailable"));
        QVERIFY(modem == nullptr);
        QCOMPARE(rig.statusMessages(),
                 (QStringList{QStringLiteral("Pager: Unable to logon."), QStringLiteral("Comm Port Unavailable")}));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("End of File Detected")));
        QVERIFY(!rig.line->isOpen());
    }

    // Nothing is dialled when a setting is missing or the port cannot be had: the user is
    // asked, or told once, and no attempt is retried or hung up.
    void nothingDialled_data()
    {
        QTest::addColumn<QString>("pagerId");
        QTest::addColumn<QString>("phone");
        QTest::addColumn<QString>("port"); // "missing", "open" (by someone else), or "" for the simulator
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("asked");
        // clang-format off
        QTest::newRow("no pager id") << "" << "5551000" << "" << "" << "You must define your pager ID #.";
        QTest::newRow("no phone") << "1234567" << "" << "" << "" << "You must define your paging service phone #.";
        QTest::newRow("neither") << "" << "" << "" << "" << "You must define your pager ID #.";
        QTest::newRow("port missing") << "1234567" << "5551000" << "missing" << "Comm Port Unavailable" << "";
        QTest::newRow("port already open") << "1234567" << "5551000" << "open" << "" << "";
        // clang-format on
    }
    void nothingDialled()
    {
        QFETCH(QString, pagerId);
        QFETCH(QString, phone);
        QFETCH(QString, port);
        QFETCH(QString, result);
        QFETCH(QString, asked);
        ModemRig rig;
        rig.options.paging.pagerId = pagerId;
        rig.options.paging.phone = phone;
        rig.options.paging.retries = 3;
        if (port == QLatin1String("missing"))
            rig.line->setDevice(QStringLiteral("/nonexistent/kestrova-modem"));
        if (port == QLatin1String("open"))
            QVERIFY(rig.line->open());
        delivery::TapPager pager(rig.modem, rig.options);
        QCOMPARE(pager.SendPage(QStringLiteral("x")), result);
        if (!result.isEmpty())
            QCOMPARE(pager.result(), qint16(delivery::ResultPortUnavailable));
        QCOMPARE(rig.host.messages, asked.isEmpty() ? QStringList() : QStringList{asked});
        QCOMPARE(rig.statusMessages(), result.isEmpty() ? QStringList() : QStringList{result});
        QCOMPARE(rig.countStatus(QStringLiteral("Retrying")), 0);
        QCOMPARE(rig.countStatus(QStringLiteral("Hanging Up")), 0);
        QCOMPARE(rig.line->isOpen(), port == QLatin1String("open"));
        rig.host.yield(5);
        QVERIFY(rig.sim.commands.isEmpty());
    }

    // A page that finds the modem in use by another line (another page of this program, or
    // another process) waits for it, up to two minutes of the clock, and then goes out; a
    // line that stays busy, or a cancel, ends the wait with the classic result.
    void waitsForABusyLine_data()
    {
        QTest::addColumn<int>("releaseAfter"); // seconds of the clock; -1: never
        QTest::addColumn<bool>("cancel");      // the user cancels after 30 s
        QTest::addColumn<QString>("result");
        QTest::newRow("free after 40 s") << 40 << false << "Pager: Message Sent";
        QTest::newRow("busy past two minutes") << -1 << false << "Comm Port Unavailable";
        QTest::newRow("cancelled while waiting") << -1 << true << "Pager: User Cancelled";
    }
    void waitsForABusyLine()
    {
        QFETCH(int, releaseAfter);
        QFETCH(bool, cancel);
        QFETCH(QString, result);
        ModemRig rig;
        QVERIFY2(rig.sim.isValid(), qPrintable(rig.sim.error()));
        const std::unique_ptr<delivery::SerialLine> other = delivery::createSerialLine();
        other->setDevice(rig.sim.slavePath());
        QVERIFY(other->open());
        const QDateTime start = rig.clock.now();
        rig.host.onYield = [&] {
            const qint64 waited = start.secsTo(rig.clock.now());
            if (releaseAfter >= 0 && waited >= releaseAfter && other->isOpen())
                other->close();
            if (cancel && waited >= 30)
                rig.cancel.set();
        };
        delivery::TapPager pager(rig.modem, rig.options);
        QCOMPARE(pager.SendPage(QStringLiteral("IBM 101.25")), result);
        const qint64 waited = start.secsTo(rig.clock.now());
        const QStringList said = rig.statusMessages();
        QVERIFY(!said.isEmpty());
        QCOMPARE(said.first(), QStringLiteral("The modem line is in use by another page; waiting up to 2 minutes"));
        QCOMPARE(said.last(), result);
        if (releaseAfter >= 0) {
            QCOMPARE(rig.sim.pages.size(), 1);
            QCOMPARE(rig.sim.pages[0].text, QStringLiteral("IBM 101.25"));
            QVERIFY2(waited >= releaseAfter, qPrintable(QString::number(waited)));
        } else {
            QVERIFY(rig.sim.pages.isEmpty());
            QVERIFY(rig.sim.calls.isEmpty());
            // Given up at the bound (or at the cancel), not before and not long after.
            const qint64 bound = cancel ? 30 : delivery::ModemLine::kLineWaitSeconds;
            QVERIFY2(waited >= bound && waited <= bound + 2, qPrintable(QString::number(waited)));
        }
        QVERIFY(!rig.line->isOpen());
    }

    void tooManyPagesReportTheSubscriptError()
    {
        ModemRig rig;
        rig.options.paging.maxLength = 2;
        rig.options.paging.retries = 1;
        delivery::TapPager pager(rig.modem, rig.options);
        const QString expected = QStringLiteral("Pager::SendPage:Subscript out of range");
        QCOMPARE(pager.SendPage(QString(101, u'q')), expected);
        QCOMPARE(rig.statusMessages(), QStringList{expected});
        QVERIFY(rig.sim.pages.isEmpty());
        QVERIFY(!rig.line->isOpen());
    }

    void mailHeadersFollowTheQuotePages()
    {
        ModemRig rig;
        rig.options.paging.forwardMail = true;
        rig.options.mail.mode = 2;
        rig.options.mail.pageHeaders = true;
        const core::MailBox box = twoMessages();
        delivery::TapPager pager(rig.modem, rig.options, &box);
        QCOMPARE(pager.SendPage(QStringLiteral("DOW +12")), QStringLiteral("Pager: Message Sent"));
        QCOMPARE(rig.sim.pages.size(), 2);
        QCOMPARE(rig.sim.pages[0].text, QStringLiteral("DOW +12"));
        // Only the new record is paged.
        QCOMPARE(rig.sim.pages[1].text, QStringLiteral("Mon, 23 Nov 2026 09:00|From:alice smith|Subject:lunch"));
        QVERIFY(rig.host.statusTexts.contains(QStringLiteral("EMail Message #1 Sent")));
    }

    void emailPageSendsOnlyMail()
    {
        ModemRig rig;
        rig.options.mail.mode = 1;
        core::MailBox box = twoMessages();
        box.records[1].text = QStringLiteral("see you at noon");
        delivery::TapPager pager(rig.modem, rig.options, &box);
        QCOMPARE(pager.SendEmailPage(), QStringLiteral("Pager: Email Message Sent"));
        QCOMPARE(rig.sim.pages.size(), 1);
        QCOMPARE(rig.sim.pages[0].text, QStringLiteral("Mon, 23 Nov 2026 09:00:see you at noon"));
        QVERIFY(rig.host.statusTexts.contains(QStringLiteral("Sending Mail Message - Page 1")));
    }
};

QTEST_GUILESS_MAIN(TestTapPager)
#include "test_tappager.moc"
