// A new user's first session, with nothing but the desktop program: from an empty start to
// one security, paging by e-mail through a real SMTP server (aiosmtpd on loopback) and the
// schedule on; then the program is started again and the setup is all there.
#include "DesktopRig.h"
#include "GuiRig.h"
#include "PeerProcess.h"
#include "TestUtil.h"

#include "gui/OptionsDialog.h"
#include "gui/PortfolioDialog.h"
#include "gui/ScheduleDialog.h"
#include "gui/SecurityDialog.h"
#include "gui/SendPageDialog.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QTabWidget>
#include <QtTest>

using namespace kestrova;
using testing::DesktopRig;
using testing::onModal;
using testing::retype;

namespace {

void click(QWidget* dialog, const char* button)
{
    QTest::mouseClick(dialog->findChild<QPushButton*>(QString::fromLatin1(button)), Qt::LeftButton);
}

// A menu command as a click on the menu item would run it.
void menu(DesktopRig& rig, const char* item)
{
    auto* action = rig.window->findChild<QAction*>(QString::fromLatin1(item));
    QVERIFY2(action, item);
    QVERIFY2(action->isEnabled(), item);
    action->trigger();
}

} // namespace

class TestWalkthrough : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyStartToWorkingSetup()
    {
        if (QProcess::execute(testing::systemPython(), {QStringLiteral("-c"), QStringLiteral("import aiosmtpd")}) !=
            0) {
            QSKIP("python3-aiosmtpd is not installed");
        }
        QTemporaryDir mailDir;
        const quint16 port = testing::freePort();
        testing::PeerProcess smtp;
        QVERIFY2(smtp.start(testing::systemPython(),
                            {QStringLiteral(KESTROVA_PEERS_DIR "/smtp_peer.py"), QString::number(port), mailDir.path(),
                             QStringLiteral("accept")},
                            QStringLiteral("READY")),
                 smtp.log().constData());

        QTemporaryDir home;
        const QString pgr = home.filePath(QStringLiteral("my-watch.pgr"));
        {
            DesktopRig rig({}, home.filePath(QStringLiteral("data")));
            rig.window->show();
            rig.window->startup();
            // Nothing set up yet: only the File menu is open to a new user.
            QVERIFY(!rig.window->findChild<QAction*>(QStringLiteral("mnuPortfolio"))->isEnabled());

            // 1. File > Save As gives the setup a file, which becomes the startup file.
            rig.host.scriptedFiles.push_back(pgr);
            rig.host.scriptedAnswers.push_back(support::MsgAnswer::Yes);
            menu(rig, "mnuSaveAs");
            QCOMPARE(rig.window->windowTitle(), QStringLiteral("Kestrova - ") + pgr);
            QCOMPARE(rig.host.shownMessages, QStringList{QStringLiteral("Do you want this to be your startup file?")});
            rig.host.shownMessages.clear();

            // 2. Edit > Portfolio: one security with a high price alarm.
            auto portfolio = onModal<gui::PortfolioDialog>([](gui::PortfolioDialog* dlg) {
                auto form = onModal<gui::SecurityDialog>([](gui::SecurityDialog* entry) {
                    retype(entry, QStringLiteral("txtTicker"), QStringLiteral("IBM"));
                    retype(entry, QStringLiteral("txtShares"), QStringLiteral("50"));
                    retype(entry, QStringLiteral("txtCostBasis"), QStringLiteral("140"));
                    retype(entry, QStringLiteral("txtHighLimit"), QStringLiteral("160"));
                    QTest::mouseClick(entry->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok),
                                      Qt::LeftButton);
                });
                click(dlg, "cmdAdd");
                QVERIFY(*form);
                click(dlg, "cmdSave");
            });
            menu(rig, "mnuPortfolio");
            QVERIFY(*portfolio);

            // 3. Settings > Options, E-mail Paging: the SMTP server and the pager's address.
            auto options = onModal<gui::OptionsDialog>([port](gui::OptionsDialog* dlg) {
                dlg->tabs()->setCurrentIndex(1);
                testing::toggle(dlg->findChild<QCheckBox*>(QStringLiteral("smtp.enabled")));
                retype(dlg, QStringLiteral("smtp.address"), QStringLiteral("127.0.0.1"));
                retype(dlg, QStringLiteral("smtp.port"), QString::number(port));
                retype(dlg, QStringLiteral("smtp.from"), QStringLiteral("kestrova@example.com"));
                retype(dlg, QStringLiteral("smtp.recipient"), QStringLiteral("5551234@pager.example.net"));
                click(dlg, "cmdSave");
            });
            menu(rig, "mnuOptions");
            QVERIFY(*options);
            QVERIFY2(rig.host.shownMessages.isEmpty(), qPrintable(rig.host.shownMessages.join(u'|')));

            // 4. Paging > Enable Paging.
            menu(rig, "mnuEnablePaging");
            QCOMPARE(rig.child<QLabel>("lblPaging")->text(), QStringLiteral("SMTP Paging"));

            // 5. Settings > Schedule: every 15 minutes and at the close; Settings > Enable Schedule.
            auto schedule = onModal<gui::ScheduleDialog>([](gui::ScheduleDialog* dlg) {
                testing::toggle(dlg->findChild<QCheckBox*>(QStringLiteral("chkOther")));
                testing::toggle(dlg->findChild<QCheckBox*>(QStringLiteral("chkMktClose")));
                retype(dlg, QStringLiteral("txtFrequency"), QStringLiteral("15"));
                click(dlg, "cmdSave");
            });
            menu(rig, "mnuSchedule");
            QVERIFY(*schedule);
            menu(rig, "mnuEnableSchedule");

            // 6. Paging > Send a Page: a first page goes out by e-mail.
            auto page = onModal<gui::SendPageDialog>([](gui::SendPageDialog* dlg) {
                QTest::keyClicks(dlg->findChild<QPlainTextEdit*>(QStringLiteral("txtMessage")),
                                 QStringLiteral("Kestrova is watching IBM"));
                click(dlg, "cmdSend");
            });
            menu(rig, "mnuSend");
            QVERIFY(*page);
            const QString mail = QString::fromUtf8(testing::readFile(mailDir.filePath(QStringLiteral("mail-1.eml"))));
            QVERIFY2(mail.contains(QStringLiteral("Kestrova is watching IBM")), qPrintable(mail));

            // 7. File > Save.
            menu(rig, "mnuSave");
            QVERIFY(!rig.app->state().fileModified);
        }

        // The next start opens the same setup by itself.
        DesktopRig again({}, home.filePath(QStringLiteral("data")), true);
        again.window->startup();
        const app::AppState& s = again.app->state();
        QCOMPARE(s.currentFile, pgr);
        QCOMPARE(s.portfolio.count, qint16(1));
        QCOMPARE(s.portfolio.records[0].ticker, QStringLiteral("IBM"));
        QCOMPARE(s.portfolio.records[0].highLimit, 160.0f);
        QCOMPARE(s.portfolio.records[0].shares, 50.0f);
        QVERIFY(s.options.paging.enabled);
        QVERIFY(s.options.smtp.enabled);
        QCOMPARE(s.options.smtp.recipient, QStringLiteral("5551234@pager.example.net"));
        QVERIFY(s.options.schedule.enabled);
        QVERIFY(s.options.schedule.interval);
        QVERIFY(s.options.schedule.marketClose);
        QCOMPARE(s.options.schedule.intervalMinutes, qint16(15));
        QCOMPARE(again.child<QLabel>("lblPaging")->text(), QStringLiteral("SMTP Paging"));
    }
};

QTEST_MAIN(TestWalkthrough)
#include "test_walkthrough.moc"
