// A new user's first session, with nothing but the desktop program: the first steps of the
// user guide, taken in the guide's order from an empty start, pages by e-mail through a real
// SMTP server (aiosmtpd on loopback); then the program is started again and the setup is
// all there. A guide that names a menu command the program does not offer at that point
// fails here.
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
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTabWidget>
#include <QtTest>

#include <functional>
#include <map>

using namespace kestrova;
using testing::DesktopRig;
using testing::onModal;
using testing::retype;

namespace {

void click(QWidget* dialog, const char* button)
{
    QTest::mouseClick(dialog->findChild<QPushButton*>(QString::fromLatin1(button)), Qt::LeftButton);
}

// A menu or item text as the guide writes it: no mnemonic marks, "..." for an ellipsis.
QString plain(QString text)
{
    text.remove(u'&');
    text.replace(QChar(0x2026), QStringLiteral("..."));
    return text.trimmed();
}

// The menu command a guide step names ("File > Save As..."), found by its texts.
QAction* menuCommand(DesktopRig& rig, const QString& path)
{
    const QString menuTitle = path.section(QStringLiteral(" > "), 0, 0);
    const QString item = path.section(QStringLiteral(" > "), 1);
    for (QAction* top : rig.window->menuBar()->actions()) {
        if (plain(top->text()) != menuTitle || !top->menu()) {
            continue;
        }
        for (QAction* a : top->menu()->actions()) {
            if (plain(a->text()) == item) {
                return a;
            }
        }
    }
    return nullptr;
}

// The numbered first steps of the guide's "Getting started", each led by the menu command
// in bold.
QStringList guideSteps()
{
    const QString guide =
        QString::fromUtf8(testing::readFile(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/docs/user-guide.md"));
    const qsizetype from = guide.indexOf(QLatin1String("\n## Getting started\n"));
    const QString section = guide.mid(from, guide.indexOf(QLatin1String("\n## "), from + 5) - from);
    QStringList steps;
    static const QRegularExpression step(QStringLiteral("^\\d+\\. \\*\\*([^*]+)\\*\\*"),
                                         QRegularExpression::MultilineOption);
    for (auto it = step.globalMatch(section); it.hasNext();) {
        steps << it.next().captured(1);
    }
    return steps;
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
            std::shared_ptr<bool> opened; // a dialog the step opens was there and was answered

            // What each command of the guide asks of the user, as the guide says it.
            const std::map<QString, std::function<void()>> steps{
                {QStringLiteral("File > Save As..."),
                 [&] {
                     rig.host.scriptedFiles.push_back(pgr);
                     rig.host.scriptedAnswers.push_back(support::MsgAnswer::Yes);
                 }},
                {QStringLiteral("Edit > Portfolio..."),
                 [&] {
                     opened = onModal<gui::PortfolioDialog>([](gui::PortfolioDialog* dlg) {
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
                 }},
                {QStringLiteral("Settings > Options..."),
                 [&] {
                     opened = onModal<gui::OptionsDialog>([port](gui::OptionsDialog* dlg) {
                         dlg->tabs()->setCurrentIndex(1);
                         testing::toggle(dlg->findChild<QCheckBox*>(QStringLiteral("smtp.enabled")));
                         retype(dlg, QStringLiteral("smtp.address"), QStringLiteral("127.0.0.1"));
                         retype(dlg, QStringLiteral("smtp.port"), QString::number(port));
                         retype(dlg, QStringLiteral("smtp.from"), QStringLiteral("kestrova@example.com"));
                         retype(dlg, QStringLiteral("smtp.recipient"), QStringLiteral("5551234@pager.example.net"));
                         click(dlg, "cmdSave");
                     });
                 }},
                {QStringLiteral("Paging > Enable Paging"), [] {}},
                {QStringLiteral("Settings > Schedule..."),
                 [&] {
                     opened = onModal<gui::ScheduleDialog>([](gui::ScheduleDialog* dlg) {
                         testing::toggle(dlg->findChild<QCheckBox*>(QStringLiteral("chkOther")));
                         testing::toggle(dlg->findChild<QCheckBox*>(QStringLiteral("chkMktClose")));
                         retype(dlg, QStringLiteral("txtFrequency"), QStringLiteral("15"));
                         click(dlg, "cmdSave");
                     });
                 }},
                {QStringLiteral("Settings > Enable Schedule"), [] {}},
                {QStringLiteral("Paging > Send a Page..."),
                 [&] {
                     opened = onModal<gui::SendPageDialog>([](gui::SendPageDialog* dlg) {
                         QTest::keyClicks(dlg->findChild<QPlainTextEdit*>(QStringLiteral("txtMessage")),
                                          QStringLiteral("Kestrova is watching IBM"));
                         click(dlg, "cmdSend");
                     });
                 }},
                {QStringLiteral("File > Save"), [] {}},
                {QStringLiteral("File > New"), [] {}},
            };
            const QStringList guide = guideSteps();
            QVERIFY2(guide.size() >= 4, qPrintable(guide.join(u'|')));
            for (const QString& step : guide) {
                const auto it = steps.find(step);
                QVERIFY2(it != steps.end(),
                         qPrintable(QStringLiteral("the guide's step %1 is not known here").arg(step)));
                QAction* command = menuCommand(rig, step);
                QVERIFY2(command, qPrintable(QStringLiteral("no menu command %1").arg(step)));
                QVERIFY2(command->isEnabled(), qPrintable(QStringLiteral("%1 is not open at this point").arg(step)));
                opened.reset();
                it->second();
                command->trigger();
                if (opened) {
                    QVERIFY2(*opened, qPrintable(step));
                }
                QVERIFY2(!QTest::currentTestFailed(), qPrintable(step));
            }

            QCOMPARE(rig.window->windowTitle(), QStringLiteral("Kestrova - ") + pgr);
            QCOMPARE(rig.host.shownMessages, QStringList{QStringLiteral("Do you want this to be your startup file?")});
            QCOMPARE(rig.child<QLabel>("lblPaging")->text(), QStringLiteral("SMTP Paging"));
            const QString mail = QString::fromUtf8(testing::readFile(mailDir.filePath(QStringLiteral("mail-1.eml"))));
            QVERIFY2(mail.contains(QStringLiteral("Kestrova is watching IBM")), qPrintable(mail));
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
