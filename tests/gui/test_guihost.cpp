#include "DesktopRig.h"

#include "core/ModemProfiles.h"
#include "core/Options.h"
#include "delivery/ModemLine.h"
#include "delivery/SerialLine.h"
#include "gui/StatusWindow.h"
#include "gui/TerminalWindow.h"
#include "settings/SettingsStore.h"
#include "sim/ModemSimulator.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Services.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QtTest>

using namespace kestrova;

class TestGuiHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void statusListCap_data()
    {
        QTest::addColumn<int>("before"); // characters already in the list
        QTest::addColumn<int>("dropped");

        QTest::newRow("one below the limit") << 16383 << 0;
        QTest::newRow("at the limit") << 16384 << 4096;
        QTest::newRow("past the limit") << 20000 << 4096;
    }

    void statusListCap()
    {
        QFETCH(int, before);
        QFETCH(int, dropped);
        testing::DesktopRig rig;
        // Lines of 100 characters with a running number, then a tail to reach the count.
        QString text;
        for (int i = 0; text.size() + 100 <= before; ++i) {
            text += QStringLiteral("line %1").arg(i, 5, 10, QLatin1Char('0')).leftJustified(98, u'.') +
                    QStringLiteral("\r\n");
        }
        text += QString(before - text.size(), u'x');
        rig.host.appendStatusLine(text);
        const QString line = QStringLiteral("Internet: Quotes Retrieved   11/23/2026 10:00:00 AM\r\n");

        rig.host.appendStatusLine(line);

        QCOMPARE(rig.host.statusListText(), text.mid(dropped) + line);
        auto* list = rig.child<QPlainTextEdit>("txtStatus");
        QCOMPARE(list->toPlainText(), gui::displayText(text.mid(dropped) + line));
    }

    void terminalEcho_data()
    {
        QTest::addColumn<QStringList>("pieces");
        QTest::addColumn<QString>("shown");

        QTest::newRow("line feeds dropped, CR ends a line") << QStringList{"AT\r\n", "OK\r\n"} << "AT\nOK\n";
        QTest::newRow("backspace within the piece") << QStringList{"ATZ\bH0\r"} << "ATH0\n";
        QTest::newRow("leading backspace eats shown text") << QStringList{"ATZ\r", "\bOK\r\n"} << "ATZOK\n";
        // A TAP block as the paging terminal sees it: the controls read as their names.
        QTest::newRow("control characters by name") << QStringList{QStringLiteral("-->\x02"
                                                                                  "5551234\rHello\r\x03"
                                                                                  "1B3\r"),
                                                                   QStringLiteral("<--:\x1b\x04\x06")}
                                                    << "--><STX>5551234\nHello\n<ETX>1B3\n<--:<ESC><EOT><ACK>";
        QTest::newRow("a capped redraw keeps the names")
            << QStringList{QString(16383, u'a') + QChar(0x1e), QStringLiteral("x")}
            << QString(12287, u'a') + QStringLiteral("<RS>x");
        QTest::newRow("cap drops the oldest 4096") << QStringList{QString(16384, u'a'), QStringLiteral("<--:")}
                                                   << QString(12288, u'a') + QStringLiteral("<--:");
    }

    void terminalEcho()
    {
        QFETCH(QStringList, pieces);
        QFETCH(QString, shown);
        gui::GuiHost host;
        for (const QString& p : pieces) {
            host.terminalEcho(p);
        }
        // Created on first use and still hidden: echoing does not need the window on screen.
        gui::TerminalWindow* terminal = host.terminalWindow();
        QVERIFY(!terminal->isVisible());
        QCOMPARE(terminal->textBox()->toPlainText(), shown);
    }

    void cancelEndsModemWait()
    {
        testing::resetSettings({});
        sim::ModemScript script;
        script.silent << QStringLiteral("5550000"); // the call never produces a result
        sim::ModemSimulator modemSim(script);
        QVERIFY2(modemSim.isValid(), qPrintable(modemSim.error()));
        support::SystemClock clock;
        gui::GuiHost host;
        host.scripted = true;
        support::CancelFlag cancel;
        support::CLogFile log(clock, host);
        support::Services services{clock, host, cancel, log};
        host.setCancelFlag(&cancel);
        core::Options options;
        core::setBuiltInModemProfiles(options.modem);
        auto line = delivery::createSerialLine();
        line->setDevice(modemSim.slavePath());
        delivery::ModemLine modem(services, *line, options.modem);
        QCOMPARE(int(modem.initialize(QStringLiteral("ATZ"))), 0);
        // As every piece of work of the engine does, the dial runs between two setBusy calls.
        host.setBusy(true);

        QElapsedTimer sinceClick;
        bool windowUp = false;
        QTimer::singleShot(300, &host, [&] {
            gui::StatusWindow* w = host.statusWindow();
            windowUp = w->isVisible() && w->statusText() == QLatin1String("Dialing 5550000");
            sinceClick.start();
            QTest::mouseClick(w->findChild<QPushButton*>(QStringLiteral("cmdCancel")), Qt::LeftButton);
        });

        const qint16 result = modem.dial(QStringLiteral("5550000"));
        host.setBusy(false);

        QVERIFY(windowUp);
        // The wait ends as the user's cancel, not as a call that never connected.
        QCOMPARE(int(result), int(delivery::ResultCancelled));
        QVERIFY(sinceClick.isValid());
        // A 60-second wait that the Cancel button ends at its next round.
        QVERIFY2(sinceClick.elapsed() < 1000, qPrintable(QString::number(sinceClick.elapsed())));
        modem.hangUp();
    }

    void statusWindowFollowsWork()
    {
        testing::resetSettings({});
        gui::GuiHost host;
        host.setBusy(true);
        host.setProgress(QStringLiteral(" 40%"), QStringLiteral("IBM"));
        gui::StatusWindow* w = host.statusWindow();
        QVERIFY(w->isVisible());
        QCOMPARE(w->progressValue(), 40);
        w->move(123, 145);
        host.setBusy(false);
        // It goes a moment after the work ends, and its place is kept for the next time.
        QTRY_VERIFY(!w->isVisible());
        settings::SettingsStore store;
        QCOMPARE(store.get(settings::kSettingsSection, QStringLiteral("StatusLeft")), QStringLiteral("123"));
        QCOMPARE(store.get(settings::kSettingsSection, QStringLiteral("StatusTop")), QStringLiteral("145"));

        host.setShowStatus(false);
        host.setBusy(true);
        QTest::qWait(50);
        QVERIFY(!w->isVisible());
        host.setBusy(false);
    }

    // Work that ends with its last status text still standing ("Connecting") does not
    // leave the window behind; the next step's progress starts from nothing.
    void statusWindowShowsTheCurrentStep()
    {
        testing::resetSettings({});
        gui::GuiHost host;
        host.setBusy(true);
        host.setStatusText(QStringLiteral("Getting Option Quotes"));
        host.setProgress(QStringLiteral("100%"), QStringLiteral("Getting Options - CSCOAE"));
        gui::StatusWindow* w = host.statusWindow();
        QCOMPARE(w->progressValue(), 100);
        host.setStatusText(QStringLiteral("Initializing Modem..."));
        QCOMPARE(w->statusText(), QStringLiteral("Initializing Modem..."));
        QCOMPARE(w->findChild<QLabel*>(QStringLiteral("lblProgress"))->text(), QString());
        QCOMPARE(w->progressValue(), 0);
        host.setStatusText(QStringLiteral("Connecting"));
        host.setBusy(false);
        QTRY_VERIFY_WITH_TIMEOUT(!w->isVisible(), 1000);
        // A text set with no work running shows nothing, and Cancel has nothing to wait for.
        host.setStatusText(QStringLiteral("Connecting"));
        QTest::qWait(50);
        QVERIFY(!w->isVisible());
    }
};

QTEST_MAIN(TestGuiHost)
#include "test_guihost.moc"
