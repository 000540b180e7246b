// "Modem Settings" driven through its widgets.
#include "GuiRig.h"

#include "gui/Dialogs.h"
#include "gui/ModemDialog.h"

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QtTest>

using namespace kestrova;
using testing::child;
using testing::GuiRig;
using testing::retype;

namespace {

QStringList names(QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i) {
        out << list->item(i)->text();
    }
    return out;
}

void pick(QComboBox* box, int presses)
{
    box->setFocus();
    QTest::keyClick(box, Qt::Key_Home);
    for (int i = 0; i < presses; ++i) {
        QTest::keyClick(box, Qt::Key_Down);
    }
}

const QStringList kBuiltIn{QStringLiteral("Stored Profile"), QStringLiteral("Factory Settings"),
                           QStringLiteral("Hayes Compatible")};

} // namespace

class TestModemDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { testing::clearSettingsStore(); }

    void builtInsFirstAndTheirStrings()
    {
        GuiRig rig;
        rig.start();
        core::Options edited = rig.app->state().options;
        gui::ModemDialog dlg(nullptr, rig.host, edited, true);
        dlg.show();
        QCOMPARE(dlg.windowTitle(), QStringLiteral("Non-Internet Modem Settings"));
        auto* list = child<QListWidget>(&dlg, "lstModems");
        QCOMPARE(names(list), kBuiltIn);
        QCOMPARE(list->currentRow(), 2);
        list->setFocus();
        QTest::keyClick(list, Qt::Key_Home);
        QCOMPARE(child<QLineEdit>(&dlg, "txtInit")->text(), QStringLiteral("ATZ"));
        QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(child<QLineEdit>(&dlg, "txtPagerInit")->text(), QStringLiteral("AT&F"));
        QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(child<QLineEdit>(&dlg, "txtPagerInit")->text(), QStringLiteral("AT&F E0 V1 &D2 &C1 &Q0"));
        QVERIFY(!child<QPushButton>(&dlg, "cmdDelete")->isEnabled()); // built-ins stay
    }

    void addProfile_data()
    {
        QTest::addColumn<int>("existing");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<int>("after");
        QTest::addColumn<QStringList>("messages");
        QTest::newRow("named") << 3 << "USR Courier" << 4 << QStringList{};
        QTest::newRow("no name") << 3 << "" << 3 << QStringList{};
        QTest::newRow("the twentieth") << 19 << "Last one" << 20 << QStringList{};
        QTest::newRow("twenty in use") << 20 << "One too many" << 20 << QStringList{"20 Modems Max"};
    }
    void addProfile()
    {
        QFETCH(int, existing);
        QFETCH(QString, answer);
        QFETCH(int, after);
        QFETCH(QStringList, messages);
        GuiRig rig;
        rig.start();
        core::Options edited = rig.app->state().options;
        for (int i = 3; i < existing; ++i) {
            edited.modem.profiles[static_cast<size_t>(i)] = {QStringLiteral("m%1").arg(i), QStringLiteral("AT"),
                                                             QStringLiteral("AT")};
        }
        edited.modem.lastIndex = static_cast<qint16>(existing - 1);
        const core::ModemOptions before = edited.modem;
        gui::ModemDialog dlg(nullptr, rig.host, edited, false);
        dlg.show();
        rig.host.scriptedInputs.push_back(answer);
        retype(&dlg, "txtInit", QStringLiteral("AT&F1"));
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdAdd"), Qt::LeftButton);
        QCOMPARE(rig.host.shownMessages, messages);
        auto* list = child<QListWidget>(&dlg, "lstModems");
        QCOMPARE(list->count(), after);
        QCOMPARE(names(list).mid(0, 3), kBuiltIn);
        if (after > existing) {
            QCOMPARE(list->currentItem()->text(), answer); // the new one is selected
            QCOMPARE(child<QLineEdit>(&dlg, "txtInit")->text(), QStringLiteral("AT&F1"));
        }
        QCOMPARE(edited.modem.lastIndex, before.lastIndex); // only Save writes back
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdSave"), Qt::LeftButton);
        QCOMPARE(edited.modem.lastIndex, qint16(after - 1));
    }

    void addedProfileSurvivesRestart()
    {
        QTemporaryDir keep;
        const QString pgr = keep.filePath(QStringLiteral("modems.pgr"));
        {
            GuiRig rig;
            rig.start();
            QVERIFY(rig.app->saveAs(pgr));
            gui::Dialogs dialogs(nullptr, *rig.app, rig.host);
            rig.host.scriptedInputs.push_back(QStringLiteral("My Modem"));
            auto acted = testing::onModal<gui::ModemDialog>([](gui::ModemDialog* dlg) {
                retype(dlg, "txtInit", QStringLiteral("ATZ4"));
                retype(dlg, "txtPagerInit", QStringLiteral("ATZ4 &Q0"));
                QTest::mouseClick(child<QPushButton>(dlg, "cmdAdd"), Qt::LeftButton);
                pick(child<QComboBox>(dlg, "cboPort"), 2);
                pick(child<QComboBox>(dlg, "cboFlow"), 2);
                pick(child<QComboBox>(dlg, "cboDialing"), 1);
                pick(child<QComboBox>(dlg, "cboSpeaker"), 3);
                retype(dlg, "txtRetrySeconds", QStringLiteral("12"));
                QTest::mouseClick(child<QPushButton>(dlg, "cmdSave"), Qt::LeftButton);
            });
            QVERIFY(dialogs.modem(false));
            QVERIFY(*acted);
            QVERIFY(rig.app->state().fileModified);
            QVERIFY(rig.app->save());
        }
        GuiRig again;
        again.start(pgr);
        const core::ModemOptions& m = again.app->state().options.modem;
        QCOMPARE(m.lastIndex, qint16(3));
        QCOMPARE(m.profiles[0].name, kBuiltIn[0]);
        QCOMPARE(m.profiles[3].name, QStringLiteral("My Modem"));
        QCOMPARE(m.profiles[3].pagerInit, QStringLiteral("ATZ4 &Q0"));
        QCOMPARE(m.selected, qint16(3));
        QCOMPARE(m.port, qint16(3));
        QCOMPARE(m.flowControl, qint16(2));
        QVERIFY(m.pulse);
        QCOMPARE(m.speakerMode, qint16(3));
        QCOMPARE(again.app->state().options.paging.retrySeconds, qint16(12));
    }

    void deleteAsksFirst_data()
    {
        QTest::addColumn<bool>("yes");
        QTest::newRow("confirmed") << true;
        QTest::newRow("declined") << false;
    }
    void deleteAsksFirst()
    {
        QFETCH(bool, yes);
        GuiRig rig;
        rig.start();
        core::Options edited = rig.app->state().options;
        edited.modem.profiles[3] = {QStringLiteral("Mine"), QStringLiteral("ATZ1"), QStringLiteral("ATZ1")};
        edited.modem.lastIndex = 3;
        edited.modem.selected = 3;
        gui::ModemDialog dlg(nullptr, rig.host, edited, false);
        dlg.show();
        rig.host.scriptedAnswers.push_back(yes ? support::MsgAnswer::Yes : support::MsgAnswer::No);
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdDelete"), Qt::LeftButton);
        QCOMPARE(rig.host.shownMessages, QStringList{QStringLiteral("Delete Mine?")});
        QCOMPARE(child<QListWidget>(&dlg, "lstModems")->count(), yes ? 3 : 4);
        QTest::keyClick(&dlg, Qt::Key_Escape); // Cancel: the caller's options keep the profile
        QCOMPARE(edited.modem.lastIndex, qint16(3));
    }

    void badRetryCountNamed()
    {
        GuiRig rig;
        rig.start();
        core::Options edited = rig.app->state().options;
        gui::ModemDialog dlg(nullptr, rig.host, edited, false);
        dlg.show();
        retype(&dlg, "txtRetries", QStringLiteral("many"));
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdSave"), Qt::LeftButton);
        QCOMPARE(rig.host.shownMessages,
                 QStringList{QStringLiteral("No. of Retries: expects a whole number, not \"many\"")});
        QVERIFY(dlg.isVisible());
        QCOMPARE(edited.paging.retries, rig.app->state().options.paging.retries);
    }
};

QTEST_MAIN(TestModemDialog)
#include "test_modemdialog.moc"
