// A new user's first minute: the desktop program started with nothing to open shows the
// set-up assistant, and a dozen clicks and typed fields later an alarm arrives on the
// phone. Real widgets, real peers on loopback: the demo market behind the quote sources,
// a push topic (push_peer.py) and an SMTP server with STARTTLS (aiosmtpd).
#include "DesktopRig.h"
#include "GuiRig.h"
#include "PeerProcess.h"
#include "PushPeer.h"
#include "TestUtil.h"

#include "app/MarketHours.h"
#include "core/PortfolioFile.h"
#include "delivery/CurlSmtpSender.h"
#include "delivery/PushNotifier.h"
#include "gui/LookupLabel.h"
#include "gui/Mnemonics.h"
#include "gui/SecurityDialog.h"
#include "gui/SetupWizard.h"
#include "settings/SettingsStore.h"
#include "sim/DemoMarket.h"

#include <QAbstractButton>
#include <QAction>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QStyleOptionButton>
#include <QWizard>
#include <QtTest>

#include <map>

using namespace kestrova;
using testing::DesktopRig;
using testing::onModal;

namespace {

// What a person does, counted: a click, a press of Enter or Tab, a field typed.
struct Actions
{
    int count = 0;
    void click(QWidget* w)
    {
        QVERIFY(w && w->isVisible() && w->isEnabled());
        QTest::mouseClick(w, Qt::LeftButton, {}, where(w));
        ++count;
    }
    // A check box takes a click on its box or its text, not anywhere in the row it spans.
    static QPoint where(QWidget* w)
    {
        if (auto* box = qobject_cast<QCheckBox*>(w)) {
            QStyleOptionButton option;
            option.initFrom(box);
            option.text = box->text();
            return box->style()->subElementRect(QStyle::SE_CheckBoxClickRect, &option, box).center();
        }
        return w->rect().center();
    }
    void type(QWidget* w, const QString& text)
    {
        QTest::keyClicks(w, text);
        ++count;
    }
    void press(QWidget* w, Qt::Key key)
    {
        QTest::keyClick(w, key);
        ++count;
    }
};

// The quote sources of the data folder, asked of the demo market: the shipped
// definitions, every service's address replaced by the market's.
void writeSources(const QString& dataDir, const QString& base)
{
    QString text =
        QString::fromUtf8(testing::readFile(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data/sources.json"));
    for (const char* host : {"https://stooq.com", "https://query1.finance.yahoo.com", "https://www.alphavantage.co",
                             "https://finnhub.io", "http://127.0.0.1:8099"}) {
        text.replace(QLatin1String(host), base);
    }
    text.replace(QRegularExpression(QStringLiteral("\"order\": \\[[^\\]]*\\]")),
                 QStringLiteral("\"order\": [\"Stooq\", \"Yahoo\"]"));
    QDir().mkpath(dataDir);
    testing::writeFile(QDir(dataDir).filePath(QStringLiteral("sources.json")), text.toUtf8());
}

// The letters of what the wizard shows now: labels, buttons (its own included); two
// sharing one, a button without one, or a letter leading nowhere is a failure.
QString keyClash(QWizard* w)
{
    std::map<QChar, QString> taken;
    for (QWidget* c : w->findChildren<QWidget*>()) {
        if (!c->isVisible()) {
            continue;
        }
        QString text;
        if (auto* label = qobject_cast<QLabel*>(c)) {
            text = label->text();
            if (!gui::mnemonicOf(text).isNull() && !label->buddy()) {
                return text + QStringLiteral(" leads nowhere");
            }
        } else if (auto* button = qobject_cast<QAbstractButton*>(c)) {
            text = button->text();
            if (gui::mnemonicOf(text).isNull() && !text.isEmpty()) {
                return text + QStringLiteral(" has no letter");
            }
        }
        const QChar key = gui::mnemonicOf(text);
        if (key.isNull()) {
            continue;
        }
        const auto [at, fresh] = taken.emplace(key, text);
        if (!fresh) {
            return at->second + QStringLiteral(" and ") + text + QStringLiteral(" share ") + key;
        }
    }
    return {};
}

} // namespace

class TestSetupWizard : public QObject
{
    Q_OBJECT

    support::SystemClock m_clock;
    QTemporaryDir m_home;

private Q_SLOTS:
    void initTestCase()
    {
        // The documents folder a new setup is proposed in.
        qputenv("HOME", m_home.path().toLocal8Bit());
    }
    void init()
    {
        testing::clearSettingsStore();
        QDir(m_home.filePath(QStringLiteral("Documents"))).removeRecursively();
    }

    void firstStartToTheFirstAlarm()
    {
        if (QProcess::execute(testing::systemPython(), {QStringLiteral("-c"), QStringLiteral("import aiosmtpd")}) !=
            0) {
            QSKIP("python3-aiosmtpd is not installed");
        }
        sim::DemoMarketThread market(m_clock, 7);
        QVERIFY(market.start());
        testing::PushPeer push;
        QVERIFY2(push.start(QStringLiteral("accept")), push.process.log().constData());
        QTemporaryDir mailDir;
        const QString cert = mailDir.filePath(QStringLiteral("cert.pem"));
        const QString key = mailDir.filePath(QStringLiteral("key.pem"));
        QVERIFY(testing::makeLoopbackCertificate(cert, key));
        const quint16 smtpPort = testing::freePort();
        testing::PeerProcess smtp;
        QVERIFY2(smtp.start(testing::systemPython(),
                            {QStringLiteral(KESTROVA_PEERS_DIR "/smtp_peer.py"), QString::number(smtpPort),
                             mailDir.path(), QStringLiteral("accept"), QStringLiteral("--tls"), cert, key},
                            QStringLiteral("READY")),
                 smtp.log().constData());

        QTemporaryDir data;
        writeSources(data.path(), market.baseUrl());
        // From the program's start (its engine and window made) to the alarm on the phone.
        QElapsedTimer wall;
        wall.start();
        DesktopRig rig({}, data.path());
        // The one thing this test does that a user does not: trust its own mail server's
        // certificate.
        rig.app->smtpSender().setCaFile(cert);

        Actions act;
        QString testOutcome;
        QStringList lookups;
        bool warned = false;
        auto drive = [&](gui::SetupWizard* w) {
            // What to watch: three symbols, one no source knows; a high price IBM is past.
            auto* symbols = w->findChild<QPlainTextEdit*>(QStringLiteral("txtSymbols"));
            QCOMPARE(w->focusWidget(), symbols);
            act.type(symbols, QStringLiteral("IBM MSFT NODATA1"));
            // A row for each symbol once the typing pauses.
            QTRY_VERIFY(w->findChild<gui::LookupLabel*>(QStringLiteral("lookup_NODATA1")));
            auto* high = w->findChild<QLineEdit*>(QStringLiteral("high_IBM"));
            QTRY_VERIFY(high->isVisible());
            act.click(high);
            act.type(high, QStringLiteral("1"));
            for (const char* t : {"IBM", "MSFT", "NODATA1"}) {
                auto* found = w->findChild<gui::LookupLabel*>(QStringLiteral("lookup_") + QLatin1String(t));
                QTRY_VERIFY(!found->text().contains(QStringLiteral("asking")));
                lookups << found->text();
            }
            warned = w->findChild<gui::LookupLabel*>(QStringLiteral("lookup_NODATA1"))->warning();
            act.click(w->button(QWizard::NextButton));

            // How to tell you: the push topic, and e-mail as well; one test sends both.
            QCOMPARE(w->currentId(), int(gui::SetupWizard::NotifyPageId));
            // Typing goes where the focus is; the suggested topic is selected, so it is replaced.
            auto* url = w->findChild<QLineEdit*>(QStringLiteral("push.url"));
            QTRY_COMPARE(w->focusWidget(), url);
            QCOMPARE(url->selectedText(), url->text());
            act.type(url, push.url(QStringLiteral("/kestrova-test")));
            act.click(w->findChild<QCheckBox*>(QStringLiteral("chkEmail")));
            auto* address = w->findChild<QLineEdit*>(QStringLiteral("smtp.recipient"));
            QTRY_COMPARE(w->focusWidget(), address);
            act.type(address, QStringLiteral("me@example.com"));
            act.press(address, Qt::Key_Tab);
            auto* server = w->findChild<QLineEdit*>(QStringLiteral("smtp.host"));
            QCOMPARE(w->focusWidget(), server);
            act.type(server, QStringLiteral("127.0.0.1:%1").arg(smtpPort));
            act.click(w->findChild<QPushButton*>(QStringLiteral("cmdSendTest")));
            testOutcome = w->findChild<QLabel*>(QStringLiteral("lblTestResult"))->text();
            act.click(w->button(QWizard::NextButton));

            // When: the market's hours, as proposed; Finish.
            QCOMPARE(w->currentId(), int(gui::SetupWizard::WhenPageId));
            QVERIFY(w->findChild<QRadioButton*>(QStringLiteral("optMarketHours"))->isChecked());
            act.click(w->button(QWizard::FinishButton));
        };
        auto ran = onModal<gui::SetupWizard>([&](gui::SetupWizard* w) {
            drive(w);
            if (QTest::currentTestFailed()) {
                w->reject(); // a failed step must not leave the window waiting
            }
        });
        // The shipped market summary page is on the Internet: the run after Finish leaves
        // it out (no traffic beyond loopback).
        connect(&rig.host, &gui::GuiHost::statusLineAppended, this, [&](const QString& line) {
            if (line.startsWith(QStringLiteral("New setup saved as"))) {
                rig.app->state().options.quotes.marketSummary = false;
            }
        });
        rig.window->setFirstRunAssistant(true);
        rig.window->show();
        rig.window->startup();
        // The alarm: after the test notification, the update that Finish runs pushes IBM.
        auto alarmed = [&] {
            const QList<QJsonObject> got = push.requests();
            return got.size() >= 2 && testing::header(got[1], QStringLiteral("Title")) ==
                                          delivery::PushNotifier::title(delivery::PushKind::Alarm);
        };
        QTRY_VERIFY_WITH_TIMEOUT(*ran && (alarmed() || QTest::currentTestFailed()), 120000);
        if (QTest::currentTestFailed()) {
            return;
        }
        const qint64 ms = wall.elapsed();
        qInfo("user actions: %d; first start to the alarm on the phone: %.2f s", act.count, double(ms) / 1000);
        QVERIFY2(act.count <= 12, qPrintable(QString::number(act.count)));

        // What the user saw on the way.
        QCOMPARE(lookups.size(), 3);
        QVERIFY2(QRegularExpression(QStringLiteral("^IBM \u2014 Demo .+, \\d+\\.\\d\\d \\(Stooq\\)$"))
                     .match(lookups[0])
                     .hasMatch(),
                 qPrintable(lookups[0]));
        QCOMPARE(lookups[2], QStringLiteral("NODATA1: no source knows this symbol"));
        QVERIFY(warned);
        QCOMPARE(testOutcome,
                 QStringLiteral("Push: Sent \u2014 check your phone\nE-mail: Sent \u2014 check your mailbox"));

        // The test notifications, then the alarm by both routes.
        const QList<QJsonObject> pushed = push.requests();
        QVERIFY(pushed[0].value(QStringLiteral("body")).toString().startsWith(QStringLiteral("Kestrova test")));
        QVERIFY2(pushed[1].value(QStringLiteral("body")).toString().startsWith(QStringLiteral("+IBM ")),
                 qPrintable(pushed[1].value(QStringLiteral("body")).toString()));
        QVERIFY(!pushed[1].value(QStringLiteral("body")).toString().contains(QStringLiteral("MSFT")));
        QVERIFY(testing::readFile(mailDir.filePath(QStringLiteral("mail-1.eml"))).contains("Kestrova test"));
        QTRY_VERIFY(QFileInfo::exists(mailDir.filePath(QStringLiteral("mail-2.eml"))));
        QVERIFY(testing::readFile(mailDir.filePath(QStringLiteral("mail-2.eml"))).contains("+IBM "));

        // The saved setup: the file in the documents folder, private, the startup file.
        const QString pgr = m_home.filePath(QStringLiteral("Documents/Kestrova.pgr"));
        QCOMPARE(rig.app->state().currentFile, pgr);
        QCOMPARE(QFile::permissions(pgr) & (QFile::ReadGroup | QFile::ReadOther), QFile::Permissions());
        QCOMPARE(settings::SettingsStore().get(settings::kSettingsSection, QStringLiteral("DefaultFile")), pgr);
        core::PortfolioTable table;
        core::Options o;
        QVERIFY(core::PortfolioFile::read(pgr, table, o).ok());
        QCOMPARE(table.count, qint16(3));
        QCOMPARE(table.records[0].ticker, QStringLiteral("IBM"));
        QCOMPARE(table.records[0].highLimit, 1.0f);
        QCOMPARE(table.records[2].ticker, QStringLiteral("NODATA1")); // a warning, not a refusal
        QVERIFY(o.paging.enabled && o.push.enabled && o.smtp.enabled && o.alarms.select);
        QCOMPARE(o.push.url, push.url(QStringLiteral("/kestrova-test")));
        QCOMPARE(o.smtp.hostAddress, QStringLiteral("127.0.0.1"));
        QCOMPARE(o.smtp.port, qint16(smtpPort));
        QCOMPARE(o.smtp.security, qint16(1));
        QCOMPARE(o.smtp.recipient, QStringLiteral("me@example.com"));
        QCOMPARE(o.smtp.from, QStringLiteral("me@example.com"));
        const auto hours = app::marketHoursIn(QDate::currentDate(), QTimeZone::systemTimeZone());
        QVERIFY(hours);
        const core::ScheduleOptions s = app::marketHoursSchedule({}, *hours);
        QVERIFY(o.schedule.enabled && o.schedule.marketOpen && o.schedule.marketClose && o.schedule.interval);
        QCOMPARE(o.schedule.openTime, s.openTime);
        QCOMPARE(o.schedule.closeTime, s.closeTime);
        QCOMPARE(o.schedule.intervalMinutes, qint16(15));
        // The window shows the new setup with its quotes.
        QCOMPARE(rig.window->windowTitle(), QStringLiteral("Kestrova - ") + pgr);
        QCOMPARE(rig.child<QLabel>("lblPaging")->text(), QStringLiteral("SMTP Paging"));
        QCOMPARE(rig.app->stockQuotes().Count(), 2);
    }

    // Cancel: nothing written, the program as it was (an empty setup, the file menus).
    void cancelLeavesAnEmptySetup()
    {
        QTemporaryDir data;
        DesktopRig rig({}, data.path());
        auto ran = onModal<gui::SetupWizard>([](gui::SetupWizard* w) {
            QTest::keyClicks(w->findChild<QPlainTextEdit*>(QStringLiteral("txtSymbols")), QStringLiteral("IBM"));
            QTest::mouseClick(w->button(QWizard::NextButton), Qt::LeftButton);
            QTest::mouseClick(w->button(QWizard::CancelButton), Qt::LeftButton);
        });
        rig.window->setFirstRunAssistant(true);
        rig.window->startup();
        QTRY_VERIFY(*ran);
        QTRY_VERIFY(!QApplication::activeModalWidget());
        QVERIFY(rig.app->state().currentFile.isEmpty());
        QCOMPARE(rig.app->state().portfolio.count, qint16(0));
        QVERIFY(!rig.app->state().menusEnabled);
        QVERIFY(!QFileInfo::exists(m_home.filePath(QStringLiteral("Documents"))));
        QVERIFY(settings::SettingsStore().get(settings::kSettingsSection, QStringLiteral("DefaultFile")).isEmpty());
        // File > New Setup... opens it again.
        auto again = onModal<gui::SetupWizard>([](gui::SetupWizard* w) { w->reject(); });
        rig.window->findChild<QAction*>(QStringLiteral("mnuNewSetup"))->trigger();
        QVERIFY(*again);
    }

    // With a setup to open, the program opens it and no assistant comes up.
    void aSetupToOpenNoAssistant()
    {
        QTemporaryDir data;
        DesktopRig rig({}, data.path());
        rig.window->setFirstRunAssistant(true);
        rig.window->startup(testing::writePortfolio(rig.path(QStringLiteral("W.PGR")), {}));
        QTest::qWait(100);
        QVERIFY(!QApplication::activeModalWidget());
    }

    // A page that is not right keeps the user on it and names the field.
    void problemsKeepThePage_data()
    {
        QTest::addColumn<int>("page");
        QTest::addColumn<QString>("message");
        QTest::newRow("a move that is no number")
            << int(gui::SetupWizard::WatchPageId) << "IBM: Move in a day: expects a number of percent such as 5";
        QTest::newRow("e-mail without an address")
            << int(gui::SetupWizard::NotifyPageId) << "You must enter a valid recipient email address";
    }
    void problemsKeepThePage()
    {
        QFETCH(int, page);
        QFETCH(QString, message);
        QTemporaryDir data;
        DesktopRig rig({}, data.path());
        rig.window->startup();
        gui::SetupWizard w(rig.window.get(), *rig.app, rig.host);
        w.show();
        QTest::keyClicks(w.findChild<QPlainTextEdit*>(QStringLiteral("txtSymbols")), QStringLiteral("IBM "));
        QTRY_VERIFY(w.findChild<QLineEdit*>(QStringLiteral("move_IBM")));
        if (page == gui::SetupWizard::WatchPageId) {
            QTest::keyClicks(w.findChild<QLineEdit*>(QStringLiteral("move_IBM")), QStringLiteral("lots"));
        } else {
            w.next();
            auto* email = w.findChild<QCheckBox*>(QStringLiteral("chkEmail"));
            QTest::mouseClick(email, Qt::LeftButton, {}, Actions::where(email));
            QVERIFY(email->isChecked());
        }
        w.next();
        QCOMPARE(w.currentId(), page);
        QCOMPARE(rig.host.shownMessages, QStringList{message});
    }

    // Every page answers to its letters: none shared, none leading nowhere, every button
    // (the wizard's own included) with one.
    void lettersOnEveryPage()
    {
        QTemporaryDir data;
        DesktopRig rig({}, data.path());
        rig.window->startup();
        gui::SetupWizard w(rig.window.get(), *rig.app, rig.host);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QTest::keyClicks(w.findChild<QPlainTextEdit*>(QStringLiteral("txtSymbols")), QStringLiteral("IBM MSFT "));
        QTRY_VERIFY(w.findChild<QLineEdit*>(QStringLiteral("high_MSFT")));
        for (int page : {gui::SetupWizard::WatchPageId, gui::SetupWizard::NotifyPageId, gui::SetupWizard::WhenPageId}) {
            QCOMPARE(w.currentId(), page);
            const QString clash = keyClash(&w);
            QVERIFY2(clash.isEmpty(), qPrintable(w.currentPage()->title() + QStringLiteral(": ") + clash));
            if (page != gui::SetupWizard::WhenPageId) {
                w.next(); // never past the last: that would save
            }
        }
    }

    // The entry form asks the sources when the ticker field is left: the name and price,
    // or a warning that still lets the entry be kept.
    void entryFormLooksTheTickerUp()
    {
        sim::DemoMarket market(m_clock, 7);
        QVERIFY(market.listen());
        testing::GuiRig rig;
        writeSources(rig.dir.path(), market.baseUrl());
        rig.start();
        core::PortfolioTable table;
        gui::SecurityDialog dlg(nullptr, *rig.app, rig.host, table, -1);
        dlg.show();
        QApplication::setActiveWindow(&dlg);
        QVERIFY(QTest::qWaitForWindowActive(&dlg));
        auto* ticker = dlg.findChild<QLineEdit*>(QStringLiteral("txtTicker"));
        auto* found = dlg.findChild<gui::LookupLabel*>(QStringLiteral("lblLookup"));
        QTest::keyClicks(ticker, QStringLiteral("IBM"));
        QTest::keyClick(ticker, Qt::Key_Tab);
        QTRY_VERIFY2(found->text().endsWith(QStringLiteral("(Stooq)")), qPrintable(found->text()));
        QVERIFY(!found->warning());
        // The name field was empty: it takes the name the source gave.
        QVERIFY(dlg.findChild<QLineEdit*>(QStringLiteral("txtName"))->text().startsWith(QStringLiteral("Demo ")));

        testing::retype(&dlg, QStringLiteral("txtTicker"), QStringLiteral("NODATA1"));
        QTest::keyClick(ticker, Qt::Key_Tab);
        QTRY_COMPARE(found->text(), QStringLiteral("NODATA1: no source knows this symbol"));
        QVERIFY(found->warning());
        QTest::mouseClick(dlg.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok), Qt::LeftButton);
        QCOMPARE(dlg.result(), int(QDialog::Accepted));
        QCOMPARE(table.records[0].ticker, QStringLiteral("NODATA1"));
    }
};

QTEST_MAIN(TestSetupWizard)
#include "test_setupwizard.moc"
