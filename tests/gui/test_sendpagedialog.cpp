// The send-a-page dialog: typing, the addressee, and sends through the pty modem simulator.
#include "GuiRig.h"

#include "gui/SendPageDialog.h"
#include "sim/ModemSimulator.h"

#include <QClipboard>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

using namespace kestrova;
using testing::child;
using testing::GuiRig;

namespace {

// A rig whose modem is the simulator, with an alphanumeric pager configured.
struct ModemGuiRig : GuiRig
{
    sim::ModemSimulator modem;

    explicit ModemGuiRig(sim::ModemScript script = {}) : modem(std::move(script))
    {
        start();
        core::Options& o = app->state().options;
        o.paging.pagerId = QStringLiteral("7654321");
        o.paging.phone = QStringLiteral("5551000");
        o.paging.retries = 1;
        app->state().prefs.modemDevice = modem.slavePath();
        app->setUpSerial();
    }
};

} // namespace

class TestSendPageDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { testing::clearSettingsStore(); }

    void typingStaysOneLine()
    {
        GuiRig rig;
        rig.start();
        gui::SendPageDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        auto* text = child<QPlainTextEdit>(&dlg, "txtMessage");
        auto* count = child<QLabel>(&dlg, "lblChar");
        auto* send = child<QPushButton>(&dlg, "cmdSend");
        QCOMPARE(count->text(), QStringLiteral("Number of Characters: 0"));
        QVERIFY(!send->isEnabled());
        QTest::keyClicks(text, QStringLiteral("call me"));
        QCOMPARE(count->text(), QStringLiteral("Number of Characters: 7"));
        QTest::keyClick(text, Qt::Key_Return); // beeps and becomes a blank
        QTest::keyClick(text, Qt::Key_Enter);
        QTest::keyClicks(text, QStringLiteral("now"));
        QCOMPARE(text->toPlainText(), QStringLiteral("call me  now"));
        QCOMPARE(count->text(), QStringLiteral("Number of Characters: 12"));
        QVERIFY(dlg.isVisible()); // Enter in the text did not send or close anything
        QApplication::clipboard()->setText(QStringLiteral("a\nb"));
        QTest::keyClick(text, Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(text->toPlainText(), QStringLiteral("call me  nowa b"));
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdClear"), Qt::LeftButton);
        QCOMPARE(count->text(), QStringLiteral("Number of Characters: 0"));
        QVERIFY(!send->isEnabled());
    }

    void addressee_data()
    {
        QTest::addColumn<bool>("smtp");
        QTest::addColumn<QString>("shown");
        QTest::newRow("e-mail paging") << true << "pat@pager.example";
        QTest::newRow("modem paging: the user field as stored") << false << QString("Pat Doe").leftJustified(25);
    }
    void addressee()
    {
        QFETCH(bool, smtp);
        QFETCH(QString, shown);
        GuiRig rig;
        rig.start();
        rig.app->state().options.smtp.enabled = smtp;
        rig.app->state().options.smtp.recipient = QStringLiteral("pat@pager.example");
        rig.app->state().options.paging.user = QString("Pat Doe").leftJustified(25);
        gui::SendPageDialog dlg(nullptr, *rig.app, rig.host);
        QCOMPARE(child<QLabel>(&dlg, "lblUser")->text(), shown);
    }

    void alphanumericPageGoesOut()
    {
        ModemGuiRig rig;
        QVERIFY2(rig.modem.isValid(), qPrintable(rig.modem.error()));
        gui::SendPageDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        QTest::keyClicks(child<QPlainTextEdit>(&dlg, "txtMessage"), QStringLiteral("Back at 5, call Sam"));
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdSend"), Qt::LeftButton);
        QCOMPARE(rig.modem.pages.size(), 1);
        QCOMPARE(rig.modem.pages[0].pagerId, QStringLiteral("7654321"));
        QCOMPARE(rig.modem.pages[0].text, QStringLiteral("Back at 5, call Sam"));
        QVERIFY(dlg.lastResult().startsWith(QStringLiteral("Pager: Message Sent")));
        QCOMPARE(dlg.result(), int(QDialog::Accepted));
        QVERIFY(!rig.app->serial().isOpen());
    }

    void numericPageDialsCommasFirst()
    {
        sim::ModemScript script;
        script.numeric = {QStringLiteral("5552000")};
        ModemGuiRig rig(script);
        rig.app->state().options.paging.numeric = true;
        rig.app->state().options.paging.phone = QStringLiteral("5552000");
        rig.app->state().options.paging.numericWait = 10;
        gui::SendPageDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        QTest::keyClicks(child<QPlainTextEdit>(&dlg, "txtMessage"), QStringLiteral("4155551212"));
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdSend"), Qt::LeftButton);
        QCOMPARE(rig.modem.calls.size(), 1);
        QCOMPARE(rig.modem.calls[0].digits, QStringLiteral(",,,,,4155551212"));
        QCOMPARE(dlg.lastResult(), QStringLiteral("Digital Pager: Message 1 Sent"));
    }

    void cancelStopsTheSend()
    {
        sim::ModemScript script;
        script.silent = {QStringLiteral("5551000")};
        ModemGuiRig rig(script);
        gui::SendPageDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        QTest::keyClicks(child<QPlainTextEdit>(&dlg, "txtMessage"), QStringLiteral("never arrives"));
        bool wasSending = false;
        QTimer::singleShot(50, &dlg, [&] {
            wasSending = dlg.sending();
            QTest::keyClick(&dlg, Qt::Key_Escape); // Cancel while the modem waits for a carrier
        });
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdSend"), Qt::LeftButton);
        QVERIFY(wasSending);
        QCOMPARE(dlg.lastResult(), QStringLiteral("Pager: User Cancelled"));
        QVERIFY(dlg.isVisible()); // the cancel stopped the send, not the dialog
        QVERIFY(rig.modem.pages.isEmpty());
        QVERIFY(!rig.app->serial().isOpen());
        QTest::keyClick(&dlg, Qt::Key_Escape);
        QCOMPARE(dlg.result(), int(QDialog::Rejected));
    }
};

QTEST_MAIN(TestSendPageDialog)
#include "test_sendpagedialog.moc"
