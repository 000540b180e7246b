// The same action through kestrova-cli and through the desktop's own widgets, each face on
// a copy of the same setup: what they save, what they say and what they send must agree,
// because both ask the engine.
#include "CliRun.h"
#include "DesktopRig.h"
#include "GuiRig.h"
#include "PushPeer.h"
#include "TestUtil.h"

#include "gui/OptionsDialog.h"
#include "gui/PortfolioDialog.h"
#include "gui/SecurityDialog.h"
#include "gui/SendPageDialog.h"
#include "history/HistoryStore.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "sim/DemoMarket.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QtTest>

using namespace kestrova;
using testing::CliRun;
using testing::DesktopRig;
using testing::readFile;

namespace {

// Two faces on one setup: each gets its own data folder and its own copy of the file.
struct Faces
{
    QTemporaryDir home;
    QString cliData = home.filePath(QStringLiteral("cli-data"));
    QString guiData = home.filePath(QStringLiteral("gui-data"));
    QString cliFile = home.filePath(QStringLiteral("cli.pgr"));
    QString guiFile = home.filePath(QStringLiteral("gui.pgr"));
    QByteArray start;

    explicit Faces(const QStringList& options, const QStringList& tickers = {})
    {
        QDir().mkpath(cliData);
        QDir().mkpath(guiData);
        testing::writePortfolio(cliFile, options, tickers);
        QFile::copy(cliFile, guiFile);
        start = readFile(cliFile);
    }

    CliRun cli(const QStringList& args, const QByteArray& input = {}) const
    {
        return testing::runCli(home, QStringList{"--data-dir", cliData, "--portfolio", cliFile} + args, 120000, input);
    }
};

// Types or ticks a value into the options dialog's field for an option, on its tab.
void enter(gui::OptionsDialog& dlg, const QString& option, const QString& value)
{
    auto* w = dlg.findChild<QWidget*>(option);
    QVERIFY2(w, qPrintable(option));
    for (int i = 0; i < dlg.tabs()->count(); ++i) {
        if (dlg.tabs()->widget(i)->isAncestorOf(w)) {
            dlg.tabs()->setCurrentIndex(i);
        }
    }
    if (auto* box = qobject_cast<QCheckBox*>(w)) {
        if (box->isChecked() != (value == QLatin1String("true"))) {
            testing::toggle(box);
        }
    } else if (auto* combo = qobject_cast<QComboBox*>(w)) {
        combo->setCurrentIndex(value.toInt());
    } else {
        QVERIFY2(w->isEnabled(), qPrintable(option));
        testing::retype(&dlg, option, value);
    }
}

QString firstLine(const QString& text)
{
    return text.section(u'\n', 0, 0).trimmed();
}

} // namespace

class TestBothFaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariable("KESTROVA_CLI").isEmpty()) {
            QSKIP("KESTROVA_CLI does not name the program");
        }
    }

    // options set and the options dialog's Save: the same refusal of the same option, or
    // the same file.
    void optionsAgree_data()
    {
        QTest::addColumn<QStringList>("entered"); // name=value, in this order
        QTest::addColumn<QString>("option");      // the option named in the refusal; empty: saved
        QTest::addColumn<QString>("message");     // without the option's name or label
        // clang-format off
        QTest::newRow("dashes in the pager ID") << QStringList{"pager.id=555-1234"} << "pager.id" << "Please enter Pager ID without dashes";
        QTest::newRow("page length zero") << QStringList{"pager.max_length=0"} << "pager.max_length" << "You must enter a non-zero maximum page length.";
        QTest::newRow("e-mail paging without a recipient") << QStringList{"smtp.enabled=true", "smtp.host=mail.example.com"} << "smtp.recipient" << "You must enter a valid recipient email address";
        QTest::newRow("proxy without a host") << QStringList{"proxy.enabled=true"} << "proxy.host" << "You must enter either a host name or host address for the proxy server.";
        QTest::newRow("port out of range") << QStringList{"smtp.port=70000"} << "smtp.port" << "must be between 1 and 65535";
        QTest::newRow("e-mail paging with what it needs") << QStringList{"smtp.enabled=true", "smtp.host=mail.example.com", "smtp.recipient=pager@example.com"} << "" << "";
        QTest::newRow("proxy by its address") << QStringList{"proxy.enabled=true", "proxy.address=10.0.0.8", "proxy.port=3128"} << "" << "";
        // clang-format on
    }
    void optionsAgree()
    {
        QFETCH(QStringList, entered);
        QFETCH(QString, option);
        QFETCH(QString, message);
        Faces faces({QStringLiteral("pager.id=5551234")});

        QStringList pairs;
        for (const QString& e : entered) {
            pairs << e.section(u'=', 0, 0) << e.section(u'=', 1);
        }
        const CliRun cli = faces.cli(QStringList{"options", "set"} + pairs);

        DesktopRig rig({}, faces.guiData);
        rig.window->startup(faces.guiFile);
        gui::OptionsDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        for (const QString& e : entered) {
            enter(dlg, e.section(u'=', 0, 0), e.section(u'=', 1));
        }
        rig.host.shownMessages.clear();
        QTest::mouseClick(dlg.findChild<QPushButton*>(QStringLiteral("cmdSave")), Qt::LeftButton);

        if (option.isEmpty()) {
            QCOMPARE(cli.code, 0);
            QCOMPARE(rig.host.shownMessages, QStringList());
            QCOMPARE(dlg.result(), int(QDialog::Accepted));
            QVERIFY(rig.app->save());
            QCOMPARE(readFile(faces.guiFile), readFile(faces.cliFile));
            QVERIFY(readFile(faces.cliFile) != faces.start);
            return;
        }
        QCOMPARE(cli.code, 2);
        QCOMPARE(cli.err.trimmed(), option + QStringLiteral(": ") + message);
        QCOMPARE(rig.host.shownMessages.size(), 1);
        QVERIFY2(rig.host.shownMessages.first().endsWith(message), qPrintable(rig.host.shownMessages.first()));
        QVERIFY(dlg.isVisible());
        QCOMPARE(dlg.focusWidget() ? dlg.focusWidget()->objectName() : QString(), option);
        QCOMPARE(readFile(faces.cliFile), faces.start);
    }

    // portfolio add and the entry form: blanks around a ticker are never part of it.
    void tickerAgrees_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("refusal"); // the end of both faces' message; empty: stored
        QTest::newRow("blanks both sides") << " MSFT "
                                           << "";
        QTest::newRow("a tab before") << "\tIBM"
                                      << "";
        QTest::newRow("blanks after an option symbol") << "IBM 250117C00150000  "
                                                       << "";
        QTest::newRow("only blanks") << "   "
                                     << "a ticker is needed";
    }
    void tickerAgrees()
    {
        QFETCH(QString, typed);
        QFETCH(QString, refusal);
        Faces faces({});
        // The switches that match the entry form's defaults: paged, with news.
        const CliRun cli = faces.cli({"portfolio", "add", typed, "--news"});

        DesktopRig rig({}, faces.guiData);
        rig.window->startup(faces.guiFile);
        gui::PortfolioDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        QString formMessage;
        auto filled = testing::onModal<gui::SecurityDialog>([&](gui::SecurityDialog* form) {
            auto* ticker = testing::child<QLineEdit>(form, QStringLiteral("txtTicker"));
            ticker->setFocus();
            QTest::keyClicks(ticker, typed);
            auto* box = form->findChild<QDialogButtonBox*>();
            rig.host.shownMessages.clear();
            QTest::mouseClick(box->button(QDialogButtonBox::Ok), Qt::LeftButton);
            if (form->isVisible()) {
                formMessage = rig.host.shownMessages.value(0);
                QTest::keyClick(form, Qt::Key_Escape);
            }
        });
        QTest::mouseClick(testing::child<QPushButton>(&dlg, QStringLiteral("cmdAdd")), Qt::LeftButton);
        QVERIFY(*filled);
        QTest::mouseClick(testing::child<QPushButton>(&dlg, QStringLiteral("cmdSave")), Qt::LeftButton);

        if (!refusal.isEmpty()) {
            QCOMPARE(cli.code, 2);
            QVERIFY2(firstLine(cli.err).endsWith(refusal), qPrintable(cli.err));
            QVERIFY2(formMessage.endsWith(refusal), qPrintable(formMessage));
            QCOMPARE(readFile(faces.cliFile), faces.start);
            QCOMPARE(rig.app->state().portfolio.count, qint16(0));
            return;
        }
        QCOMPARE(cli.code, 0);
        QCOMPARE(formMessage, QString());
        QVERIFY(rig.app->save());
        QCOMPARE(readFile(faces.guiFile), readFile(faces.cliFile));
        QCOMPARE(rig.app->state().portfolio.records[0].ticker, typed.trimmed());
    }

    // kestrova-cli page and Send a Page: a text of blanks is refused by both with the same
    // words; a text goes by the paging route and then to the push route from both.
    void manualPageAgrees_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("sent"); // offered to the routes at all
        QTest::newRow("only blanks") << "   " << false;
        QTest::newRow("a message") << "Call the office" << true;
    }
    void manualPageAgrees()
    {
        QFETCH(QString, text);
        QFETCH(bool, sent);
        testing::PushPeer cliPush;
        testing::PushPeer guiPush;
        QVERIFY(cliPush.start(QStringLiteral("accept")));
        QVERIFY(guiPush.start(QStringLiteral("accept")));
        // Paging by a modem that is not there: the page fails fast and the push still goes.
        const QStringList setup{"pager.id=1234567", "pager.phone=5551234", "pager.retries=1", "pager.retry_seconds=0",
                                "push.enabled=true"};
        Faces faces(setup);
        const QString noModem = faces.home.filePath(QStringLiteral("no-modem"));
        QCOMPARE(faces.cli({"options", "set", "push.url", cliPush.url(), "modem.device", noModem}).code, 0);
        const CliRun cli = faces.cli({"page", text});

        DesktopRig rig({QStringLiteral("ModemDevice=") + noModem}, faces.guiData);
        rig.window->startup(faces.guiFile);
        rig.app->state().options.push.url = guiPush.url();
        gui::SendPageDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        auto* message = testing::child<QPlainTextEdit>(&dlg, QStringLiteral("txtMessage"));
        message->setFocus();
        QTest::keyClicks(message, text);
        auto* send = testing::child<QPushButton>(&dlg, QStringLiteral("cmdSend"));

        if (!sent) {
            QCOMPARE(cli.code, 2);
            const QString refusal = cli.err.trimmed().section(QStringLiteral(": "), 1);
            QVERIFY(!refusal.isEmpty());
            // The button says why it cannot be pressed; the engine refuses the same text with
            // the same words, however it is handed over.
            QVERIFY(!send->isEnabled());
            QCOMPARE(send->toolTip(), refusal);
            QCOMPARE(rig.app->sendManualPage(text).text, refusal);
            QCOMPARE(cliPush.requests().size(), 0);
            QCOMPARE(guiPush.requests().size(), 0);
            return;
        }
        QTest::mouseClick(send, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!guiPush.requests().isEmpty(), 20000);
        QCOMPARE(cli.code, 1); // no modem: the page itself did not go out
        QCOMPARE(firstLine(cli.out), testing::child<QLabel>(&dlg, QStringLiteral("lblResult"))->text());
        const QList<QJsonObject> fromCli = cliPush.requests();
        const QList<QJsonObject> fromGui = guiPush.requests();
        QCOMPARE(fromCli.size(), 1);
        QCOMPARE(fromGui.size(), 1);
        for (const char* field : {"method", "body"}) {
            QCOMPARE(fromGui[0].value(QLatin1String(field)), fromCli[0].value(QLatin1String(field)));
        }
        for (const char* h : {"Title", "Priority", "Tags"}) {
            QCOMPARE(testing::header(fromGui[0], QLatin1String(h)), testing::header(fromCli[0], QLatin1String(h)));
        }
        QCOMPARE(fromGui[0].value(QStringLiteral("body")).toString(), text);
    }

    // A retrieval cycle keeps its quotes in the history whichever command ran it: the
    // desktop's update, kestrova-cli update, and kestrova-cli quotes.
    void historyAgrees_data()
    {
        QTest::addColumn<QString>("command");
        QTest::newRow("quotes") << "quotes";
        QTest::newRow("update") << "update";
    }
    void historyAgrees()
    {
        QFETCH(QString, command);
        const testing::ScopedUmask umask(022); // the desktop's own files, under a lax umask
        support::SystemClock clock;
        sim::DemoMarketThread market(clock, 7);
        QVERIFY(market.start(0));
        const QStringList tickers{"IBM", "MSFT", "CSCO"};
        Faces faces({QStringLiteral("connection.type=1"),
                     QStringLiteral("quotes.server=%1").arg(quotes::BuiltInServers::kDemoMarket),
                     QStringLiteral("quotes.market_summary=false"), QStringLiteral("sources.order=servers.dat")},
                    tickers);
        for (const QString& data : {faces.cliData, faces.guiData}) {
            QVERIFY(news::installServerFiles(data, qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data"));
            QVERIFY(news::retargetDemoMarket(data, market.port()));
        }
        QCOMPARE(faces.cli({"options", "set", "prefs.check_mail", "false"}).code, 0);
        const CliRun cli = faces.cli({command});
        QVERIFY2(cli.code == 0, qPrintable(cli.err));

        DesktopRig rig({QStringLiteral("CheckMail=0")}, faces.guiData);
        rig.window->startup(faces.guiFile);
        rig.window->findChild<QAction*>(QStringLiteral("update"))->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(!rig.app->updating(), 60000);
        QVERIFY(rig.app->state().quotesAvailable);

        QStringList kept[2]; // per face: ticker and source of every row
        for (int face = 0; face < 2; ++face) {
            const QString data = face == 0 ? faces.cliData : faces.guiData;
            history::HistoryStore store(QDir(data).filePath(history::HistoryStore::defaultFileName()), clock);
            QVERIFY2(store.open(), qPrintable(data + QStringLiteral(": ") + store.lastError()));
            for (const QString& t : tickers) {
                for (const history::QuoteRow& row : store.quotes(t)) {
                    kept[face] << row.symbol + QStringLiteral(" from ") + row.source;
                }
            }
        }
        QCOMPARE(kept[0], kept[1]);
        QCOMPARE(kept[0].size(), tickers.size());
        // What either face keeps in its data folder is the user's alone.
        for (const QString& data : {faces.cliData, faces.guiData}) {
            QCOMPARE(testing::fileMode(QDir(data).filePath(history::HistoryStore::defaultFileName())),
                     QStringLiteral("600"));
            QCOMPARE(testing::filesNotInMode(data, QStringLiteral("600")), QStringList());
        }
        market.stop();
    }
};

QTEST_MAIN(TestBothFaces)
#include "test_bothfaces.moc"
