#include "ModemRig.h"

#include <QtTest>

using namespace kestrova;
using kestrova::testing::ModemRig;

class TestModemLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initCommand_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("volume");
        QTest::addColumn<QString>("command");
        QTest::newRow("mode 2, volume 0") << 2 << 0 << "ATZ M2 L1";
        QTest::newRow("off, loudest") << 0 << 2 << "ATZ M0 L3";
        QTest::newRow("mode 3, medium") << 3 << 1 << "ATZ M3 L2";
        QTest::newRow("volume out of range") << 1 << 3 << "ATZ M1";
        QTest::newRow("mode out of range") << 4 << 1 << "ATZ L2";
        QTest::newRow("negative values") << -1 << -1 << "ATZ";
    }
    void initCommand()
    {
        QFETCH(int, mode);
        QFETCH(int, volume);
        QFETCH(QString, command);
        ModemRig rig;
        rig.options.modem.speakerMode = static_cast<qint16>(mode);
        rig.options.modem.speakerVolume = static_cast<qint16>(volume);
        QCOMPARE(rig.modem.initCommand(QStringLiteral("ATZ")), command);
    }

    void commEventText_data()
    {
        QTest::addColumn<int>("event");
        QTest::addColumn<bool>("cd");
        QTest::addColumn<QString>("text");
        QTest::newRow("send") << 1 << false << "";
        QTest::newRow("receive") << 2 << false << "";
        QTest::newRow("cts") << 3 << false << "Change in CTS Detected";
        QTest::newRow("dsr") << 4 << false << "Change in DSR Detected";
        QTest::newRow("cd up") << 5 << true << "Change in CD DetectedTrue";
        QTest::newRow("cd down") << 5 << false << "Change in CD DetectedFalse";
        QTest::newRow("ring") << 6 << false << "The Phone is Ringing";
        QTest::newRow("eof") << 7 << false << "End of File Detected";
        QTest::newRow("break") << 1001 << false << "Break Received";
        QTest::newRow("cts timeout") << 1002 << false << "CTS Timeout";
        QTest::newRow("dsr timeout") << 1003 << false << "DSR Timeout";
        QTest::newRow("frame") << 1004 << false << "Framing Error";
        QTest::newRow("overrun") << 1006 << false << "Overrun Error";
        QTest::newRow("cd timeout") << 1007 << false << "Carrier Detect Timeout";
        QTest::newRow("rx over") << 1008 << false << "Receive Buffer Overflow";
        QTest::newRow("parity ignored") << 1009 << false << "";
        QTest::newRow("tx full") << 1010 << false << "Transmit Buffer Full";
        QTest::newRow("1005 is unknown") << 1005 << false << "Unknown error or event";
        QTest::newRow("zero is unknown") << 0 << false << "Unknown error or event";
    }
    void commEventText()
    {
        QFETCH(int, event);
        QFETCH(bool, cd);
        QFETCH(QString, text);
        QCOMPARE(delivery::commEventText(event, cd), text);
    }

    void portSettings_data()
    {
        QTest::addColumn<QString>("settings");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("baud");
        QTest::addColumn<QString>("parity");
        QTest::addColumn<int>("dataBits");
        QTest::addColumn<double>("stopBits");
        QTest::newRow("default") << "9600,N,8,1" << true << 9600 << "N" << 8 << 1.0;
        QTest::newRow("even, seven bits") << "19200,e,7,2" << true << 19200 << "E" << 7 << 2.0;
        QTest::newRow("one and a half") << "300,O,7,1.5" << true << 300 << "O" << 7 << 1.5;
        QTest::newRow("spaces") << " 2400 , N , 8 , 1 " << true << 2400 << "N" << 8 << 1.0;
        QTest::newRow("bad parity") << "9600,X,8,1" << false << 9600 << "N" << 8 << 1.0;
        QTest::newRow("bad data bits") << "9600,N,9,1" << false << 9600 << "N" << 9 << 1.0;
        QTest::newRow("bad stop bits") << "9600,N,8,3" << false << 9600 << "N" << 8 << 3.0;
        QTest::newRow("too few parts") << "9600,N,8" << false << 9600 << "N" << 8 << 1.0;
        QTest::newRow("empty") << "" << false << 9600 << "N" << 8 << 1.0;
    }
    void portSettings()
    {
        QFETCH(QString, settings);
        QFETCH(bool, ok);
        QFETCH(int, baud);
        QFETCH(QString, parity);
        QFETCH(int, dataBits);
        QFETCH(double, stopBits);
        const delivery::PortSettings s = delivery::parsePortSettings(settings);
        QCOMPARE(s.ok, ok);
        if (ok) {
            QCOMPARE(s.baud, baud);
            QCOMPARE(QString(s.parity), parity);
            QCOMPARE(s.dataBits, dataBits);
            QCOMPARE(s.stopBits, stopBits);
        }
    }

    void comPortDevices()
    {
        QCOMPARE(delivery::deviceForPort(1), QStringLiteral("/dev/ttyS0"));
        QCOMPARE(delivery::deviceForPort(8), QStringLiteral("/dev/ttyS7"));
    }

    void initializeResults_data()
    {
        QTest::addColumn<QString>("scriptText");
        QTest::addColumn<bool>("badDevice");
        QTest::addColumn<bool>("cancelled");
        QTest::addColumn<int>("result");
        QTest::newRow("modem answers") << "" << false << false << 0;
        QTest::newRow("modem mute") << "fault mute" << false << false << 1;
        QTest::newRow("user cancelled") << "fault mute" << false << true << 6;
        QTest::newRow("no such port") << "" << true << false << 9;
    }
    void initializeResults()
    {
        QFETCH(QString, scriptText);
        QFETCH(bool, badDevice);
        QFETCH(bool, cancelled);
        QFETCH(int, result);
        ModemRig rig(sim::ModemScript::parse(scriptText));
        if (badDevice) {
            rig.line->setDevice(QStringLiteral("/nonexistent/tty"));
        }
        if (cancelled) {
            rig.cancel.set();
        }
        QCOMPARE(int(rig.modem.initialize(QStringLiteral("ATZ"))), result);
        QCOMPARE(int(rig.modem.result()), result);
        QCOMPARE(rig.line->isOpen(), !badDevice);
        QTest::qWait(50); // lets the simulator read what was sent last
        QCOMPARE(rig.host.statusTexts.value(0), QStringLiteral("Initializing Modem..."));
        if (!badDevice) {
            // The wake-up "AT" first, then the init command.
            QCOMPARE(rig.sim.commands.value(0), QStringLiteral("AT"));
            QCOMPARE(rig.sim.commands.value(1), QStringLiteral("ATZ M1 L2"));
            QVERIFY2(rig.host.terminal.startsWith(QStringLiteral("-->AT\r")), qPrintable(rig.host.terminal.left(40)));
        }
    }

    void dialResults_data()
    {
        QTest::addColumn<QString>("scriptText");
        QTest::addColumn<bool>("pulse");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("minSeconds");
        QTest::addColumn<bool>("exceeded");
        QTest::newRow("connect") << "" << false << 0 << 1 << false;
        QTest::newRow("pulse connect") << "" << true << 0 << 1 << false;
        QTest::newRow("busy") << "busy 555" << false << 8 << 1 << false;
        QTest::newRow("no dialtone") << "no-dialtone 555" << false << 7 << 1 << false;
        QTest::newRow("no carrier waits out the minute") << "no-carrier 555" << false << 2 << 60 << false;
        QTest::newRow("silence waits out the minute") << "silent 555" << false << 2 << 60 << false;
        // Noise ends the wait with the box but leaves the result as it was.
        QTest::newRow("noise") << "noise 555" << false << 0 << 1 << true;
    }
    void dialResults()
    {
        QFETCH(QString, scriptText);
        QFETCH(bool, pulse);
        QFETCH(int, result);
        QFETCH(int, minSeconds);
        QFETCH(bool, exceeded);
        ModemRig rig(sim::ModemScript::parse(scriptText));
        rig.options.modem.pulse = pulse;
        QVERIFY(rig.line->open());
        const QDateTime start = rig.clock.now();
        QCOMPARE(int(rig.modem.dial(QStringLiteral("5551000"))), result);
        QVERIFY(rig.clock.now() >= start.addSecs(minSeconds));
        QVERIFY(rig.clock.now() < start.addSecs(62));
        QCOMPARE(rig.sim.commands.value(0), pulse ? QStringLiteral("ATDP5551000") : QStringLiteral("ATDT5551000"));
        QCOMPARE(rig.host.statusTexts.value(0), QStringLiteral("Dialing 5551000"));
        QCOMPARE(rig.host.statusTexts.contains(QStringLiteral("Connected")), result == 0);
        QCOMPARE(rig.host.messages.contains(QStringLiteral("COMM input exceeded 5000 char")), exceeded);
    }

    void replyAlreadyReceivedNeedsNoWait()
    {
        ModemRig rig;
        QVERIFY(rig.line->open());
        QString received = QStringLiteral("\r\nOK\r\n");
        const int yields = rig.host.yields;
        QVERIFY(rig.modem.waitForText(QStringLiteral("OK"), 10, received));
        QCOMPARE(rig.host.yields, yields);
        QVERIFY(rig.host.terminal.endsWith(QStringLiteral("<--:")));
        // Matching is case-sensitive.
        received = QStringLiteral("ok");
        QVERIFY(!rig.modem.waitForText(QStringLiteral("OK"), 1, received));
    }

    void silenceTimesOut()
    {
        ModemRig rig;
        QVERIFY(rig.line->open());
        QString received;
        const QDateTime start = rig.clock.now();
        QVERIFY(!rig.modem.waitForText(QStringLiteral("OK"), 3, received));
        const qint64 waited = start.msecsTo(rig.clock.now());
        QVERIFY2(waited >= 3000 && waited <= 3200, qPrintable(QString::number(waited)));
        QVERIFY(received.isEmpty());
    }

    void talkingModemIsNotTimedOut()
    {
        // A terminal that keeps sending noise: the 2-second silence limit never runs out,
        // only the 5000-character limit ends the wait.
        sim::ModemScript script;
        script.noise = {QStringLiteral("555")};
        script.noiseChars = 8000;
        ModemRig rig(script);
        QVERIFY(rig.line->open());
        rig.modem.sendText(QStringLiteral("ATDT555\r"));
        QString received;
        QVERIFY(!rig.modem.waitForText(QStringLiteral("CONNECT"), 2, received));
        QVERIFY(received.size() > 5000);
        QCOMPARE(rig.host.messages, QStringList{QStringLiteral("COMM input exceeded 5000 char")});
    }

    void hangUpEndsTheCall()
    {
        ModemRig rig;
        QCOMPARE(int(rig.modem.initialize(QStringLiteral("ATZ"))), 0);
        QCOMPARE(int(rig.modem.dial(QStringLiteral("5551000"))), 0);
        QVERIFY(rig.line->isOpen());
        rig.modem.hangUp();
        QVERIFY(!rig.line->isOpen());
        QTest::qWait(50); // lets the simulator read what was sent last
        QVERIFY2(rig.sim.hangUps == 1, qPrintable(rig.sim.commands.join(u'|') + " / " + rig.host.terminal));
        QVERIFY(rig.sim.commands.contains(QStringLiteral("ATH0")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("-->+++")));
        QCOMPARE(rig.host.statusTexts.constLast(), QString());
        QVERIFY(rig.host.statusTexts.contains(QStringLiteral("Hanging Up")));
        // A second hang-up on the closed port does nothing.
        const int texts = static_cast<int>(rig.host.statusTexts.size());
        rig.modem.hangUp();
        QCOMPARE(rig.host.statusTexts.size(), texts);
    }
};

QTEST_GUILESS_MAIN(TestModemLine)
#include "test_modemline.moc"
