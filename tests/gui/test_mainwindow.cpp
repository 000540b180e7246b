#include "DesktopRig.h"
#include "GuiRig.h"

#include "core/Quote.h"
#include "core/Quotes.h"
#include "gui/PortfolioDialog.h"
#include "gui/PriceChart.h"
#include "gui/QuoteTableModel.h"
#include "gui/SecurityDialog.h"
#include "gui/StatusWindow.h"
#include "news/ServerFiles.h"
#include "sim/ModemSimulator.h"

#include <QAction>
#include <QCheckBox>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTableView>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QToolBar>
#include <QtTest>

using namespace kestrova;
using kestrova::testing::DesktopRig;
using kestrova::testing::writePortfolio;

class TestMainWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void startupLabels_data()
    {
        QTest::addColumn<QStringList>("prefs");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("labels"); // lblPaging, lblConnection, lblEmail, lblServer

        QTest::newRow("defaults") << QStringList{} << QStringList{}
                                  << QStringList{"None", "Internet: Direct", "Download Messages", "PCQuote"};
        QTest::newRow("smtp, dial-up, fastest, mail off")
            << QStringList{"CheckMail=0"}
            << QStringList{"paging.enabled=1", "smtp.enabled=1", "connection.type=0", "connection.entry=Work ISP",
                           "quotes.fastest=1"}
            << QStringList{"SMTP Paging", "Internet: Work ISP", "Not checked", "(Fastest)"};
        QTest::newRow("modem quotes: notify only, no fastest")
            << QStringList{}
            << QStringList{"paging.enabled=1", "pager.phone=5550100", "modem.quote_service=1", "modem.port=2",
                           "quotes.fastest=1"}
            << QStringList{"Direct Dial", "Modem: COM2:9600,N,8,1", "Notify Only", "PCQuote"};
        QTest::newRow("external dialer, headers paged")
            << QStringList{}
            << QStringList{"paging.enabled=1", "pager.phone=5550100", "connection.type=2", "mail.page_headers=1",
                           "quotes.server=4"}
            << QStringList{"Direct Dial", "Internet: External Dialer", "Download, Page MSG Header", "Yahoo"};
        QTest::newRow("download and notify; not downloaded; no pager number")
            << QStringList{"GetMail=0"} << QStringList{"paging.enabled=1"}
            << QStringList{"Desktop Only", "Internet: Direct", "Notify Only", "PCQuote"};
        QTest::newRow("push, no pager number")
            << QStringList{} << QStringList{"paging.enabled=1", "push.enabled=1", "push.url=https://ntfy.sh/x"}
            << QStringList{"Push", "Internet: Direct", "Download and Notify", "PCQuote"};
    }

    void startupLabels()
    {
        QFETCH(QStringList, prefs);
        QFETCH(QStringList, options);
        QFETCH(QStringList, labels);
        QTemporaryDir files;
        const QString file = writePortfolio(files.filePath(QStringLiteral("SETUP.PGR")), options);
        DesktopRig rig(prefs << QStringLiteral("DefaultFile=") + file);
        rig.window->startup();

        // The log is open before the first line, which is the start-up line with its stamp after it.
        const QStringList lines = rig.host.statusListText().split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
        QVERIFY(!lines.isEmpty());
        QVERIFY2(lines.first().startsWith(QStringLiteral("Kestrova started on   ")), qPrintable(lines.first()));
        QVERIFY(testing::readFile(rig.app->log().fullPath()).startsWith("Kestrova started on "));
        QVERIFY(QRegularExpression(QStringLiteral("^\\d{1,2}/\\d{1,2}/\\d\\d  \\d{1,2}:\\d\\d [ap]m$"))
                    .match(rig.child<QLabel>("lblTime")->text())
                    .hasMatch());

        QCOMPARE(rig.window->windowTitle(), QStringLiteral("Kestrova - ") + file);
        const QStringList shown{rig.child<QLabel>("lblPaging")->text(), rig.child<QLabel>("lblConnection")->text(),
                                rig.child<QLabel>("lblEmail")->text(), rig.child<QLabel>("lblServer")->text()};
        QCOMPARE(shown, labels);
        QVERIFY(rig.window->findChild<QTimer*>(QStringLiteral("tmrMinute"))->isActive());
    }

    void startupFile_data()
    {
        QTest::addColumn<QString>("defaultFile"); // name in the data folder; "-" none set
        QTest::addColumn<QString>("commandLine");
        QTest::addColumn<QString>("opened"); // empty: no file open
        QTest::addColumn<bool>("boxShown");

        QTest::newRow("command line wins") << "A.PGR"
                                           << "B.PGR"
                                           << "B.PGR" << false;
        QTest::newRow("startup file") << "A.PGR"
                                      << ""
                                      << "A.PGR" << false;
        QTest::newRow("missing startup file: quietly none") << "MISSING.PGR"
                                                            << ""
                                                            << "" << false;
        QTest::newRow("no setting: DEFAULT.PGR, missing") << "-"
                                                          << ""
                                                          << "" << false;
        QTest::newRow("missing command-line file is told") << "A.PGR"
                                                           << "MISSING.PGR"
                                                           << "" << true;
    }

    void startupFile()
    {
        QFETCH(QString, defaultFile);
        QFETCH(QString, commandLine);
        QFETCH(QString, opened);
        QFETCH(bool, boxShown);
        QTemporaryDir data;
        writePortfolio(data.filePath(QStringLiteral("A.PGR")), {}, {QStringLiteral("AAA")});
        writePortfolio(data.filePath(QStringLiteral("B.PGR")), {}, {QStringLiteral("BBB"), QStringLiteral("BB2")});
        QStringList prefs;
        if (defaultFile != QLatin1String("-")) {
            prefs << QStringLiteral("DefaultFile=") + data.filePath(defaultFile);
        }
        DesktopRig rig(prefs, data.path());
        rig.window->startup(commandLine.isEmpty() ? QString() : data.filePath(commandLine));

        const auto& state = rig.app->state();
        QCOMPARE(state.currentFile, opened.isEmpty() ? QString() : data.filePath(opened));
        QCOMPARE(rig.window->windowTitle(),
                 opened.isEmpty() ? QStringLiteral("Kestrova") : QStringLiteral("Kestrova - ") + data.filePath(opened));
        QCOMPARE(state.portfolio.count, opened == QLatin1String("B.PGR") ? 2 : opened.isEmpty() ? 0 : 1);
        // Without a file the menus that work on one are off, and so are their toolbar keys.
        for (const char* menu : {"mnuEdit", "mnuPaging", "mnuSettings"}) {
            QCOMPARE(rig.child<QMenu>(menu)->isEnabled(), !opened.isEmpty());
        }
        QCOMPARE(rig.window->toolbarAction(QStringLiteral("portfolio"))->isEnabled(), !opened.isEmpty());
        QCOMPARE(rig.window->toolbarAction(QStringLiteral("open"))->isEnabled(), true);
        QCOMPARE(!rig.host.shownMessages.isEmpty(), boxShown);
        // The table shows the setup's securities before any update, their prices blank...
        const QAbstractItemModel* table = rig.child<QTableView>("grdQuotes")->model();
        QCOMPARE(table->rowCount(), int(state.portfolio.count));
        if (table->rowCount() > 0) {
            QCOMPARE(table->index(0, gui::QuoteTableModel::Symbol).data().toString(),
                     state.portfolio.records[0].ticker);
            QCOMPARE(table->index(0, gui::QuoteTableModel::Last).data().toString(), QString());
        }
        // ...and, empty and without a file, says why the menus are off.
        auto* hint = rig.child<QLabel>("lblSetupHint");
        QCOMPARE(hint->isVisibleTo(rig.window.get()), opened.isEmpty());
        if (opened.isEmpty()) {
            QCOMPARE(hint->text(), QStringLiteral("Save your setup with File \u25B8 Save As\u2026 to start"));
        }
    }

    // Securities saved in the portfolio editor are in the table at once.
    void savedPortfolioShownAtOnce()
    {
        DesktopRig rig;
        rig.window->startup(writePortfolio(rig.path(QStringLiteral("P.PGR")), {}));
        QCOMPARE(rig.child<QLabel>("lblSetupHint")->text(),
                 QStringLiteral("Add the securities to watch with Edit \u25B8 Portfolio\u2026"));
        auto edited = testing::onModal<gui::PortfolioDialog>([](gui::PortfolioDialog* dlg) {
            auto form = testing::onModal<gui::SecurityDialog>([](gui::SecurityDialog* entry) {
                testing::retype(entry, QStringLiteral("txtTicker"), QStringLiteral("IBM"));
                entry->accept();
            });
            QTest::mouseClick(dlg->findChild<QPushButton*>(QStringLiteral("cmdAdd")), Qt::LeftButton);
            QVERIFY(*form);
            dlg->accept();
        });
        rig.child<QAction>("mnuPortfolio")->trigger();
        QVERIFY(*edited);
        const QAbstractItemModel* table = rig.child<QTableView>("grdQuotes")->model();
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(table->index(0, gui::QuoteTableModel::Symbol).data().toString(), QStringLiteral("IBM"));
        QVERIFY(!rig.child<QLabel>("lblSetupHint")->isVisibleTo(rig.window.get()));
    }

    // Made as small as it goes, the window still shows a few quotes and every toolbar key.
    void smallestWindowKeepsQuotesAndKeys()
    {
        DesktopRig rig;
        QStringList tickers;
        for (int i = 0; i < 12; ++i) {
            tickers << QStringLiteral("T%1").arg(i);
        }
        rig.window->startup(writePortfolio(rig.path(QStringLiteral("P.PGR")), {}, tickers));
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        // The layout holds it at its minimum (asked twice: a narrow toolbar needs less room).
        for (int i = 0; i < 2; ++i) {
            rig.window->resize(1, 1);
            QTest::qWait(50);
        }
        QCOMPARE(rig.window->size(), rig.window->minimumSizeHint());

        auto* table = rig.child<QTableView>("grdQuotes");
        const int rows = table->viewport()->height() / std::max(1, table->verticalHeader()->defaultSectionSize());
        QVERIFY2(rows >= 4, qPrintable(QStringLiteral("%1 rows in view").arg(rows)));
        auto* toolbar = rig.child<QToolBar>("tlbMain");
        for (QAction* key : toolbar->actions()) {
            if (!key->isSeparator()) {
                QWidget* button = toolbar->widgetForAction(key);
                QVERIFY2(button && button->isVisible() && toolbar->rect().contains(button->geometry()),
                         qPrintable(key->objectName()));
            }
        }
    }

    // File > New after an update: no rows of the old setup, paging and the schedule off.
    void newShowsAnEmptySetup()
    {
        DesktopRig rig;
        rig.window->startup(writePortfolio(
            rig.path(QStringLiteral("P.PGR")),
            {QStringLiteral("paging.enabled=true"), QStringLiteral("schedule.enabled=true")}, {QStringLiteral("IBM")}));
        auto quote = std::make_shared<core::Quote>();
        quote->setTicker(QStringLiteral("IBM"));
        quote->setLast(QStringLiteral("151.25"));
        rig.app->stockQuotes().Add(quote, QStringLiteral("IBM"));
        rig.window->quoteModel().reload();
        QVERIFY(rig.child<QCheckBox>("chkPageEnable")->isChecked());

        rig.child<QAction>("mnuNew")->trigger();

        QCOMPARE(rig.child<QTableView>("grdQuotes")->model()->rowCount(), 0);
        for (const char* flag : {"chkPageEnable", "chkScheduleEnable"}) {
            QVERIFY2(!rig.child<QCheckBox>(flag)->isChecked(), flag);
        }
        for (const char* flag : {"mnuEnablePaging", "mnuEnableSchedule"}) {
            QVERIFY2(!rig.child<QAction>(flag)->isChecked(), flag);
        }
        QCOMPARE(rig.child<QLabel>("lblPaging")->text(), QStringLiteral("None"));
        QVERIFY(rig.child<QLabel>("lblSetupHint")->isVisibleTo(rig.window.get()));
    }

    void damagedFileLeavesSetup()
    {
        DesktopRig rig;
        const QString good = writePortfolio(rig.path(QStringLiteral("GOOD.PGR")), {QStringLiteral("paging.enabled=1")},
                                            {QStringLiteral("IBM"), QStringLiteral("MSFT")});
        // A file that starts like a portfolio and turns into garbage part-way.
        QByteArray bytes = testing::readFile(good);
        bytes.truncate(bytes.indexOf("\r\n") + 2);
        bytes += "abc,def,ghi,jkl\r\n";
        testing::writeFile(rig.path(QStringLiteral("BAD.PGR")), bytes);
        rig.window->startup(good);
        const core::PortfolioTable before = rig.app->state().portfolio;

        rig.host.scriptedFiles.push_back(rig.path(QStringLiteral("BAD.PGR")));
        rig.child<QAction>("mnuOpen")->trigger();

        QCOMPARE(rig.host.shownPrompts.last(), QStringLiteral("Open File"));
        QCOMPARE(rig.host.shownMessages.size(), 1); // why it failed
        QCOMPARE(rig.app->state().currentFile, good);
        QCOMPARE(rig.window->windowTitle(), QStringLiteral("Kestrova - ") + good);
        QVERIFY(rig.app->state().portfolio.records == before.records);
        QVERIFY(rig.app->state().options.paging.enabled);
    }

    void enableFlagsInStep_data()
    {
        QTest::addColumn<QString>("control"); // what the user clicks
        QTest::addColumn<QString>("mirror");  // what must follow it
        QTest::addColumn<bool>("paging");     // the paging flag (else the schedule flag)

        QTest::newRow("paging menu") << "mnuEnablePaging"
                                     << "chkPageEnable" << true;
        QTest::newRow("paging box") << "chkPageEnable"
                                    << "mnuEnablePaging" << true;
        QTest::newRow("schedule menu") << "mnuEnableSchedule"
                                       << "chkScheduleEnable" << false;
        QTest::newRow("schedule box") << "chkScheduleEnable"
                                      << "mnuEnableSchedule" << false;
    }

    void enableFlagsInStep()
    {
        QFETCH(QString, control);
        QFETCH(QString, mirror);
        QFETCH(bool, paging);
        DesktopRig rig;
        rig.window->startup(writePortfolio(rig.path(QStringLiteral("P.PGR")), {"pager.phone=5550100"}));
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        QVERIFY(!rig.app->state().fileModified);

        auto checked = [&](const QString& name) {
            if (auto* a = rig.window->findChild<QAction*>(name)) {
                return a->isChecked();
            }
            return rig.window->findChild<QCheckBox*>(name)->isChecked();
        };
        auto click = [&](const QString& name) {
            if (auto* a = rig.window->findChild<QAction*>(name)) {
                a->trigger();
            } else {
                QTest::mouseClick(rig.window->findChild<QCheckBox*>(name), Qt::LeftButton);
            }
        };
        auto flag = [&] {
            return paging ? rig.app->state().options.paging.enabled : rig.app->state().options.schedule.enabled;
        };

        for (const bool expected : {true, false}) {
            click(control);
            QCOMPARE(flag(), expected);
            QCOMPARE(checked(control), expected);
            QCOMPARE(checked(mirror), expected);
            QVERIFY(rig.app->state().fileModified);
            if (paging) {
                QCOMPARE(rig.child<QLabel>("lblPaging")->text(),
                         expected ? QStringLiteral("Direct Dial") : QStringLiteral("None"));
            }
        }
    }

    void exitQuestion_data()
    {
        QTest::addColumn<bool>("modified");
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("exits");
        QTest::addColumn<bool>("saved");
        QTest::addColumn<QString>("chosen"); // a setup with no file yet: the name the save dialog gives

        QTest::newRow("unmodified: no question") << false << -1 << true << false << "";
        QTest::newRow("Yes saves") << true << int(support::MsgAnswer::Yes) << true << true << "";
        QTest::newRow("No leaves") << true << int(support::MsgAnswer::No) << true << false << "";
        QTest::newRow("Cancel stays") << true << int(support::MsgAnswer::Cancel) << false << false << "";
        // Leaving saves where the dialog says and asks nothing more (no startup-file question).
        QTest::newRow("no file: Yes saves as chosen")
            << true << int(support::MsgAnswer::Yes) << true << true << "CHOSEN.PGR";
        QTest::newRow("no file: save dialog cancelled stays")
            << true << int(support::MsgAnswer::Yes) << false << false << "-";
    }

    void exitQuestion()
    {
        QFETCH(bool, modified);
        QFETCH(int, answer);
        QFETCH(bool, exits);
        QFETCH(bool, saved);
        QFETCH(QString, chosen);
        DesktopRig rig;
        QString file = chosen.isEmpty() ? writePortfolio(rig.path(QStringLiteral("P.PGR")), {}) : QString();
        rig.window->startup(file);
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        if (!chosen.isEmpty()) {
            // A first start: no file yet, and something set up that is worth keeping.
            QVERIFY(rig.app->state().currentFile.isEmpty());
            rig.app->markModified();
            file = chosen == QLatin1String("-") ? QString() : rig.path(chosen);
            rig.host.scriptedFiles.push_back(file);
        } else if (modified) {
            rig.child<QAction>("mnuEnableSchedule")->trigger();
        }
        if (answer >= 0) {
            rig.host.scriptedAnswers.push_back(support::MsgAnswer(answer));
        }
        const QByteArray before = file.isEmpty() ? QByteArray() : testing::readFile(file);
        QSignalSpy exited(rig.window.get(), &gui::MainWindow::exitAccepted);
        rig.host.shownMessages.clear();

        rig.child<QAction>("mnuExit")->trigger();

        QCOMPARE(rig.host.shownMessages,
                 modified ? QStringList{QStringLiteral("Save File Before Exiting?")} : QStringList());
        if (!chosen.isEmpty()) {
            QCOMPARE(rig.app->state().caption,
                     saved ? QStringLiteral("Kestrova - ") + file : QStringLiteral("Kestrova"));
            QVERIFY(rig.app->state().prefs.defaultFile != file);
            if (!saved) {
                QCOMPARE(exited.size(), 0);
                QVERIFY(rig.window->isVisible());
                QVERIFY(rig.app->state().fileModified);
                return;
            }
        }
        QCOMPARE(exited.size(), exits ? 1 : 0);
        QCOMPARE(rig.window->isVisible(), !exits);
        QCOMPARE(testing::readFile(file) != before, saved);
        QCOMPARE(rig.app->state().exitCancelled, !exits);
        if (!exits) {
            // Nothing changed: the same file, still modified, the minute timer still running.
            QCOMPARE(rig.app->state().currentFile, file);
            QVERIFY(rig.app->state().fileModified);
            QVERIFY(rig.app->state().options.schedule.enabled);
            QVERIFY(rig.window->findChild<QTimer*>(QStringLiteral("tmrMinute"))->isActive());
        }
    }

    void trayOnMinimise_data()
    {
        QTest::addColumn<QString>("systemTray");
        QTest::addColumn<bool>("toTray");

        QTest::newRow("SystemTray on") << "1" << true;
        QTest::newRow("SystemTray off") << "0" << false;
    }

    void trayOnMinimise()
    {
        QFETCH(QString, systemTray);
        QFETCH(bool, toTray);
        DesktopRig rig({QStringLiteral("SystemTray=") + systemTray});
        rig.window->trayAvailable = [] { return true; };
        rig.window->startup();
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        QSystemTrayIcon* tray = rig.window->trayIcon();
        QCOMPARE(tray->toolTip(), QStringLiteral("Kestrova 2.0"));
        QVERIFY(!tray->isVisible());

        rig.window->setWindowState(Qt::WindowMinimized);
        QTest::qWait(50);
        QCOMPARE(rig.window->isVisible(), !toTray);
        QCOMPARE(tray->isVisible(), toTray);
        QCOMPARE(rig.child<QToolBar>("tlbMain")->isVisible(), !toTray);

        // Show in the tray's menu restores the window and takes the icon away.
        rig.child<QAction>("mnuShowPopup")->trigger();
        QVERIFY(rig.window->isVisible());
        QVERIFY(!tray->isVisible());
        QVERIFY(rig.child<QToolBar>("tlbMain")->isVisible());
    }

    void blinkUntilActivated()
    {
        DesktopRig rig;
        rig.window->startup();
        auto* pager = rig.child<QLabel>("picPager");
        auto* blink = rig.window->findChild<QTimer*>(QStringLiteral("tmrBlink"));

        rig.window->raiseNotice();
        QVERIFY(blink->isActive());
        rig.window->blinkTick();
        QVERIFY(!pager->isHidden());
        rig.window->blinkTick();
        QVERIFY(pager->isHidden());

        // The user looks: the window is activated and the notice is over.
        rig.window->show();
        rig.window->activateWindow();
        QTRY_VERIFY(!blink->isActive());
        QVERIFY(pager->isHidden());
    }

    void openInBrowser_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("url");  // a pattern
        QTest::addColumn<bool>("browser"); // whether a browser can be started

        QTest::newRow("help key: the user guide") << "help"
                                                  << "^file:///.*/user-guide\\.html$" << true;
        QTest::newRow("known problems: its section") << "mnuKnownProblems"
                                                     << "^file:///.*/user-guide\\.html#known-problems$" << true;
        QTest::newRow("web-site button") << "cmdYahoo"
                                         << "^https://finance\\.yahoo\\.com/$" << true;
        // Without a browser the user is told, and given the address to copy.
        QTest::newRow("help key, no browser") << "help"
                                              << "^file:///.*/user-guide\\.html$" << false;
        QTest::newRow("web-site button, no browser") << "cmdCBOE"
                                                     << "^https://www\\.cboe\\.com/$" << false;
    }

    void openInBrowser()
    {
        QFETCH(QString, control);
        QFETCH(QString, url);
        QFETCH(bool, browser);
        DesktopRig rig;
        rig.host.scriptedBrowserOpens = browser;
        rig.window->startup();
        if (auto* a = rig.window->findChild<QAction*>(control)) {
            a->trigger();
        } else {
            rig.window->findChild<QPushButton*>(control)->click();
        }
        QCOMPARE(rig.host.openedUrls.size(), 1);
        QVERIFY2(QRegularExpression(url).match(rig.host.openedUrls.first()).hasMatch(),
                 qPrintable(rig.host.openedUrls.first()));
        if (url.startsWith(QLatin1String("^file"))) {
            QVERIFY(QFileInfo::exists(QUrl(rig.host.openedUrls.first()).toLocalFile()));
        }
        if (browser) {
            QVERIFY(rig.host.shownMessages.isEmpty());
        } else {
            QCOMPARE(rig.host.shownMessages.size(), 1);
            QVERIFY2(rig.host.shownMessages.first().startsWith(QStringLiteral("No web browser could be started")) &&
                         rig.host.shownMessages.first().endsWith(u'\n' + rig.host.openedUrls.first()),
                     qPrintable(rig.host.shownMessages.first()));
        }
    }

    // An update fills the quote table; the chart opened from a row of it follows the next one.
    void updateFillsQuoteTableAndChart()
    {
        testing::DemoDesktop d;
        QVERIFY2(d.start(), qPrintable(d.why));
        DesktopRig& rig = d.open();
        QSignalSpy finished(rig.window.get(), &gui::MainWindow::updateFinished);

        rig.window->toolbarAction(QStringLiteral("update"))->trigger();

        QCOMPARE(finished.size(), 1);
        const int quotes = rig.app->stockQuotes().Count() + rig.app->optionQuotes().Count();
        QVERIFY(quotes > 0);
        QTableView* table = rig.child<QTableView>("grdQuotes");
        QCOMPARE(table->model()->rowCount(), quotes);
        // The rows are the engine's quotes: the first stock's last price as the page gave it.
        const auto ibm = rig.app->stockQuotes().Item(QStringLiteral("IBM"));
        bool alarmMarked = false;
        for (int row = 0; row < quotes; ++row) {
            const QModelIndex symbol = table->model()->index(row, gui::QuoteTableModel::Symbol);
            if (symbol.data().toString() == QLatin1String("IBM")) {
                QCOMPARE(table->model()->index(row, gui::QuoteTableModel::Last).data().toString(), ibm->last());
            }
            // An alarm is shown by an icon and words, not by colour alone.
            if (symbol.data(gui::QuoteTableModel::AlarmedRole).toBool()) {
                alarmMarked = true;
                QVERIFY(!symbol.data(Qt::DecorationRole).value<QIcon>().isNull());
                QVERIFY(!table->model()->index(row, gui::QuoteTableModel::Alarm).data().toString().isEmpty());
            }
        }
        QVERIFY(alarmMarked);
        // The offline demo asks the demo market, never a source on the Internet first.
        QVERIFY2(
            rig.statusMessages().filter(QRegularExpression(QStringLiteral("^Quotes from Demo CSV: .*IBM"))).size() == 1,
            qPrintable(rig.statusMessages().join(u'\n')));
        QVERIFY(rig.child<QLabel>("lblDow")->text() != QLatin1String("-"));
        QVERIFY(!d.demo.modem().pages.isEmpty());

        const QModelIndexList ibmRow =
            table->model()->match(table->model()->index(0, gui::QuoteTableModel::Symbol), Qt::DisplayRole,
                                  QStringLiteral("IBM"), 1, Qt::MatchExactly);
        QCOMPARE(ibmRow.size(), 1);
        table->setCurrentIndex(ibmRow.first());
        rig.child<QAction>("mnuPriceChart")->trigger();
        gui::PriceChart* chart = rig.window->priceChart();
        QVERIFY(chart);
        QVERIFY(chart->isWindow());
        QCOMPARE(chart->symbol(), QStringLiteral("IBM"));
        // The portfolio's limits for IBM (140 and 95, no volume limit) become the chart's lines.
        QCOMPARE(chart->limits().high, std::optional<double>(140.0));
        QCOMPARE(chart->limits().low, std::optional<double>(95.0));
        QVERIFY(!chart->limits().volume);
        // The update run wrote its cycle to the store the chart reads.
        QTRY_VERIFY(!chart->isLoading());
        QCOMPARE(chart->data().times.size(), 1);
        // The open chart follows the next update, and stays one window.
        rig.window->runUpdate();
        QTRY_COMPARE(chart->data().times.size(), 2);
        QCOMPARE(rig.window->findChildren<gui::PriceChart*>().size(), 1);
    }

    void closeDuringUpdate()
    {
        testing::DemoDesktop d;
        QVERIFY2(d.start(), qPrintable(d.why));
        // The paging service never answers: the update sits in a 60-second dial wait.
        d.demo.modem().script().silent << QStringLiteral("5551234");
        DesktopRig& rig = d.open();
        rig.app->state().options.paging.phone = QStringLiteral("5551234");
        rig.app->markModified();
        rig.window->show();
        rig.host.scriptedAnswers.push_back(support::MsgAnswer::No);
        QSignalSpy exited(rig.window.get(), &gui::MainWindow::exitAccepted);
        connect(&d.demo.modem(), &sim::ModemSimulator::commandReceived, rig.window.get(), [&](const QString& command) {
            if (command.startsWith(QLatin1String("ATDT"))) {
                rig.window->close();
            }
        });
        QElapsedTimer took;
        took.start();

        rig.window->runUpdate();

        QVERIFY(took.elapsed() < 30000);
        QVERIFY(rig.statusMessages().contains(QStringLiteral("Operation Cancelled")));
        QTRY_COMPARE(exited.size(), 1);
        QVERIFY(rig.host.shownMessages.contains(QStringLiteral("Save File Before Exiting?")));
        QVERIFY(!rig.window->isVisible());
    }

    // The status window belongs to work in progress: it goes when the work ends, and Cancel
    // ends the work within a second even when the other side never answers. Commands with
    // nobody to ask say so instead of showing it.
    void statusWindowGoesWithTheWork_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("silent"); // the peer that never answers: "", "pop" or "quotes"
        QTest::addColumn<QString>("box");

        QTest::newRow("check for newer version") << "mnuCheckUpdates"
                                                 << "" << app::kNoUpdateServer;
        QTest::newRow("update server files") << "mnuUpdateServers"
                                             << "" << app::kNoUpdateServer;
        QTest::newRow("check mail, cancelled") << "mnuCheckMail"
                                               << "pop" << QString();
        QTest::newRow("update, cancelled") << "update"
                                           << "quotes" << QString();
    }

    void statusWindowGoesWithTheWork()
    {
        QFETCH(QString, command);
        QFETCH(QString, silent);
        QFETCH(QString, box);
        // Takes the connection and keeps it open without a word.
        QTcpServer peer;
        QVERIFY(peer.listen(QHostAddress::LocalHost));
        QList<QTcpSocket*> held;
        connect(&peer, &QTcpServer::newConnection, this, [&] { held << peer.nextPendingConnection(); });

        testing::DemoDesktop d;
        QVERIFY2(d.start(), qPrintable(d.why));
        if (silent == QLatin1String("quotes")) {
            QVERIFY(news::retargetDemoMarket(d.demo.dataDir(), peer.serverPort()));
        }
        DesktopRig& rig = d.open();
        core::Options& o = rig.app->state().options;
        o.connection.type = 1; // direct
        o.quotes.marketSummary = false;
        o.sources.order = QStringLiteral("servers.dat");
        o.paging.enabled = false;
        o.mail.server = QStringLiteral("127.0.0.1");
        o.mail.port = static_cast<qint16>(silent == QLatin1String("pop") ? peer.serverPort() : testing::freePort());
        rig.window->show();
        gui::StatusWindow* window = rig.host.statusWindow();

        bool shown = false;
        QElapsedTimer sinceCancel;
        QTimer watch;
        connect(&watch, &QTimer::timeout, this, [&] {
            if (window->isVisible() && !sinceCancel.isValid()) {
                shown = true;
                if (!silent.isEmpty() && !held.isEmpty()) {
                    sinceCancel.start();
                    QTest::mouseClick(window->findChild<QPushButton*>(QStringLiteral("cmdCancel")), Qt::LeftButton);
                }
            }
        });
        watch.start(20);
        QAction* action = command == QLatin1String("update") ? rig.window->toolbarAction(command)
                                                             : rig.child<QAction>(qPrintable(command));
        action->trigger();
        const qint64 afterCancel = sinceCancel.isValid() ? sinceCancel.elapsed() : -1;
        watch.stop();

        if (silent.isEmpty()) {
            QCOMPARE(rig.host.shownMessages, QStringList{box});
            QVERIFY(!shown);
            return;
        }
        QVERIFY2(afterCancel >= 0, "the work never showed the status window while the peer waited");
        QVERIFY2(afterCancel < 1000, qPrintable(QString::number(afterCancel)));
        QTRY_VERIFY_WITH_TIMEOUT(!window->isVisible(), 1000);
        qDeleteAll(held);
    }

    // The desktop names a failed fetch in the status list with the line the command line prints.
    void failedFetchInStatusList()
    {
        testing::DemoDesktop d;
        QVERIFY2(d.start(), qPrintable(d.why));
        // Nothing listens there: every quote page is refused.
        const quint16 closed = testing::freePort();
        QVERIFY(news::retargetDemoMarket(d.demo.dataDir(), closed));
        DesktopRig& rig = d.open();
        rig.app->state().options.quotes.marketSummary = false;
        rig.app->state().options.sources.order = QStringLiteral("servers.dat");

        rig.window->runUpdate();

        const QRegularExpression line(
            QStringLiteral(R"(^Could not fetch http://127\.0\.0\.1:%1/\S+: refused$)").arg(closed));
        const QStringList shown = rig.statusMessages().filter(line);
        QVERIFY2(shown.size() == 1, qPrintable(rig.statusMessages().join(u'\n')));
    }
};

QTEST_MAIN(TestMainWindow)
#include "test_mainwindow.moc"
