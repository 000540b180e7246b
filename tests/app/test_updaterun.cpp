#include "app/Application.h"
#include "core/ModemProfiles.h"
#include "core/PortfolioFile.h"
#include "core/Quote.h"
#include "delivery/PushNotifier.h"
#include "history/HistoryStore.h"
#include "news/NewsStories.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "sim/DemoMarket.h"
#include "sim/ModemSimulator.h"
#include "support/Clock.h"

#include "../peers/PeerProcess.h"
#include "../peers/PushPeer.h"
#include "TestHost.h"
#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrova;

namespace {

core::PortfolioRecord entry(const QString& ticker, float high = 0, float low = 0)
{
    core::PortfolioRecord r;
    r.ticker = ticker;
    r.highLimit = high;
    r.lowLimit = low;
    r.toPager = 1;
    r.server = quotes::BuiltInServers::kDemoMarket;
    return r;
}

// A link that is up or down as the test says: a dropped line is a fault no loopback peer
// can produce (dial-up failures themselves are tested against NetworkManager's mock).
struct SwitchedLink : net::InternetConnection
{
    explicit SwitchedLink(const bool& up) : m_up(up) {}
    bool connect() override { return m_up; }
    void hangUp() override {}
    const bool& m_up;
};

// The update run against real peers: the demo market on loopback for quotes and a pty
// modem with a TAP terminal for pages. The program's clock is a MockClock that every
// yield moves on, so the modem's pauses and time-outs pass in a few real milliseconds.
struct Rig
{
    QTemporaryDir dir;
    // The market dates its news by its own clock: the same day as the program's.
    support::MockClock marketClock{QDateTime(QDate(2026, 11, 23), QTime(9, 0, 0))};
    support::MockClock clock{QDateTime(QDate(2026, 11, 23), QTime(10, 0, 0))};
    testing::TestHost host{&clock};
    sim::DemoMarketThread market{marketClock, 7};
    sim::ModemSimulator modem;
    std::unique_ptr<app::Application> app;
    QString dataDir;
    QString pgr;
    bool online = true;

    bool start(const QList<core::PortfolioRecord>& records, const std::function<void(core::Options&)>& tune)
    {
        if (!market.start(0) || !modem.isValid()) {
            return false;
        }
        dataDir = dir.filePath(QStringLiteral("data"));
        QDir().mkpath(dataDir);
        const QString installed = qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/data");
        if (!news::installServerFiles(dataDir, installed) || !news::retargetDemoMarket(dataDir, market.port())) {
            return false;
        }
        core::PortfolioTable table;
        for (const auto& r : records) {
            table.records[static_cast<size_t>(table.count++)] = r;
        }
        core::Options o;
        core::setBuiltInModemProfiles(o.modem);
        o.connection.type = 1;
        o.quotes.server = quotes::BuiltInServers::kDemoMarket;
        o.sources.order = QStringLiteral("servers.dat");
        o.quotes.marketSummary = false;
        o.paging.enabled = true;
        o.paging.pagerId = QStringLiteral("7654321");
        o.paging.phone = QStringLiteral("5550100");
        o.paging.retries = 1;
        o.paging.maxLength = 200;
        tune(o);
        pgr = dir.filePath(QStringLiteral("watch.pgr"));
        if (!core::PortfolioFile::write(pgr, table, o).ok()) {
            return false;
        }
        return restart();
    }

    // A fresh start on the same files, as the next one-shot update or the next daemon start.
    bool restart()
    {
        app.reset();
        app::Transports transports;
        transports.connection = std::make_unique<SwitchedLink>(online);
        app = std::make_unique<app::Application>(clock, host, dataDir, std::move(transports));
        app->startup(pgr);
        app->state().prefs.checkMail = false;
        app->state().prefs.modemDevice = modem.slavePath();
        app->setUpSerial();
        return app->state().currentFile == pgr;
    }

    int storedStories() const
    {
        news::NewsStories stored(clock, QDir(dataDir).filePath(QStringLiteral("news.dat")));
        stored.ReadNews();
        return stored.Count();
    }

    QByteArray activity() const { return testing::readFile(QDir(dataDir).filePath(QStringLiteral("activity.txt"))); }
};

} // namespace

class TestUpdateRun : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void pagesEveryQuoteByModem()
    {
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM")), entry(QStringLiteral("MSFT"))}, [](core::Options&) {}));
        rig.app->update(true, false);
        QCOMPARE(rig.app->stockQuotes().Count(), 2);
        QVERIFY2(rig.modem.pages.size() == 1, rig.activity().constData());
        const QString page = rig.modem.pages.first().text;
        QCOMPARE(rig.modem.pages.first().pagerId, QStringLiteral("7654321"));
        QVERIFY2(page.startsWith(QStringLiteral("IBM ")) && page.contains(QStringLiteral(", MSFT ")), qPrintable(page));
        const QByteArray log = rig.activity();
        QVERIFY(log.contains("Internet: Connection established..."));
        QVERIFY(log.contains("Getting Stock Quotes"));
        QVERIFY(log.contains("Pager: Message Sent"));
        QVERIFY(!rig.app->portOpen());
    }

    void alarmOnlyPagesOnAlarmOrMarketMoment_data()
    {
        QTest::addColumn<float>("highLimit");
        QTest::addColumn<bool>("marketMoment");
        QTest::addColumn<qint16>("mode");
        QTest::addColumn<bool>("paged");
        QTest::addColumn<QString>("mark");
        // The demo market prices IBM near 150; a high limit of 1 always fires.
        QTest::newRow("no alarm, interval update") << 0.0f << false << qint16(0) << false << QString();
        QTest::newRow("no alarm, market moment") << 0.0f << true << qint16(0) << true << QString();
        QTest::newRow("alarm, mode 0") << 1.0f << false << qint16(0) << true << QStringLiteral("+IBM ");
        QTest::newRow("alarm, mode 1") << 1.0f << false << qint16(1) << true << QStringLiteral("+IBM ");
        QTest::newRow("new alarm, mode 2") << 1.0f << false << qint16(2) << true << QStringLiteral("+IBM ");
    }
    void alarmOnlyPagesOnAlarmOrMarketMoment()
    {
        QFETCH(float, highLimit);
        QFETCH(bool, marketMoment);
        QFETCH(qint16, mode);
        QFETCH(bool, paged);
        QFETCH(QString, mark);
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM"), highLimit), entry(QStringLiteral("MSFT"))},
                          [mode](core::Options& o) {
                              o.alarms.select = true;
                              o.alarms.selectMode = 1;
                              o.alarms.mode = mode;
                          }));
        rig.app->update(true, marketMoment);
        QCOMPARE(rig.app->stockQuotes().Count(), 2);
        QCOMPARE(rig.modem.pages.isEmpty(), !paged);
        if (!mark.isEmpty()) {
            // Only the alarmed member is selected.
            QCOMPARE(rig.modem.pages.size(), 1);
            QVERIFY2(rig.modem.pages.first().text.startsWith(mark), qPrintable(rig.modem.pages.first().text));
            QVERIFY(!rig.modem.pages.first().text.contains(QStringLiteral("MSFT")));
        }
        if (marketMoment) {
            // A market moment pages every member meant for the pager.
            QVERIFY(rig.modem.pages.first().text.contains(QStringLiteral("MSFT")));
        }
    }

    // A setup without a paging service to dial (the assistant's push or desktop route):
    // the modem route is not tried (it would ask for the service's number in a box at every
    // update and count the page as sent); the push, when there is one, carries the alarm
    // page, and the outcome tells the face of the alarm either way.
    void noPagerServiceNoModem_data()
    {
        QTest::addColumn<bool>("push");
        QTest::addColumn<bool>("sent");
        QTest::addColumn<QString>("label");
        QTest::newRow("push alone") << true << true << "Push";
        QTest::newRow("desktop only") << false << false << "Desktop Only";
    }
    void noPagerServiceNoModem()
    {
        QFETCH(bool, push);
        QFETCH(bool, sent);
        QFETCH(QString, label);
        testing::PushPeer peer;
        QVERIFY2(peer.start(QStringLiteral("accept")), peer.process.log().constData());
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM"), 1.0f), entry(QStringLiteral("MSFT"))}, [&](core::Options& o) {
            o.paging.phone.clear();
            o.alarms.select = true;
            o.alarms.selectMode = 1;
            o.push = {push, 0, peer.url(), QString(), 1};
        }));
        QCOMPARE(rig.app->state().labels.paging, label);
        rig.app->update(true, false);
        QVERIFY(rig.modem.pages.isEmpty());
        // No box asks for a paging service's number at every update.
        QCOMPARE(rig.host.messages, QStringList{});
        QVERIFY(rig.app->lastOutcome().alarms);
        QCOMPARE(rig.app->lastOutcome().alarmPageSent, sent);
        const QList<QJsonObject> got = peer.requests();
        QCOMPARE(got.size(), push ? 1 : 0);
        if (push) {
            QVERIFY(got.first().value(QStringLiteral("body")).toString().startsWith(QStringLiteral("+IBM ")));
            QCOMPARE(testing::header(got.first(), QStringLiteral("Title")),
                     delivery::PushNotifier::title(delivery::PushKind::Alarm));
        }
    }

    void pagedNewsIsNotPagedAgain()
    {
        Rig rig;
        auto ibm = entry(QStringLiteral("IBM"));
        ibm.news = 1;
        QVERIFY(rig.start({ibm}, [](core::Options& o) {
            o.news.retrieve = true;
            o.paging.pageNews = true;
            o.paging.maxLength = 1000; // quotes and news in one page
        }));
        rig.app->update(true, false);
        QCOMPARE(rig.modem.pages.size(), 1);
        QVERIFY2(rig.modem.pages.first().text.contains(QStringLiteral("<IBM ")), qPrintable(rig.modem.pages[0].text));
        QVERIFY(rig.restart());
        rig.app->update(true, false);
        QCOMPARE(rig.modem.pages.size(), 2);
        QVERIFY2(!rig.modem.pages.last().text.contains(QStringLiteral("<IBM ")), qPrintable(rig.modem.pages[1].text));
    }

    // The demo market's news page has two stories of today, one of yesterday and one ten days old.
    void oldNewsIsPurged_data()
    {
        QTest::addColumn<qint16>("purgeDays");
        QTest::addColumn<int>("kept");
        QTest::newRow("purge off") << qint16(0) << 4;
        QTest::newRow("a week") << qint16(7) << 3;
        QTest::newRow("nine days") << qint16(9) << 3;
        QTest::newRow("ten days keeps ten days old") << qint16(10) << 4;
    }
    void oldNewsIsPurged()
    {
        QFETCH(qint16, purgeDays);
        QFETCH(int, kept);
        Rig rig;
        auto ibm = entry(QStringLiteral("IBM"));
        ibm.news = 1;
        QVERIFY(rig.start({ibm}, [purgeDays](core::Options& o) {
            o.news.retrieve = true;
            o.news.purgeDays = purgeDays;
            o.paging.enabled = false;
        }));
        rig.app->update(false, false);
        QCOMPARE(rig.storedStories(), kept);
    }

    void noPopServerNoMailCheck()
    {
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM"))}, [](core::Options& o) { o.paging.enabled = false; }));
        rig.app->state().prefs.checkMail = true; // the default of a fresh settings store
        rig.app->update(false, false);
        const QByteArray log = rig.activity();
        QVERIFY2(log.contains("Getting Stock Quotes"), log.constData());
        QVERIFY2(!log.contains("Checking Mail") && !log.contains("POP"), log.constData());
    }

    // No quote at all pages "Quotes unavailable..."; so does an offline update after a good
    // one, instead of repeating the quotes it had before.
    void quotesUnavailable_data()
    {
        QTest::addColumn<QStringList>("tickers");
        QTest::addColumn<bool>("goodUpdateFirst");
        QTest::newRow("no source answers") << QStringList{"ERR500", "EMPTY"} << false;
        QTest::newRow("offline after a good update") << QStringList{"IBM"} << true;
    }
    void quotesUnavailable()
    {
        QFETCH(QStringList, tickers);
        QFETCH(bool, goodUpdateFirst);
        Rig rig;
        QList<core::PortfolioRecord> records;
        for (const QString& t : tickers) {
            records << entry(t);
        }
        QVERIFY(rig.start(records, [](core::Options&) {}));
        if (goodUpdateFirst) {
            rig.app->update(true, false);
            QCOMPARE(rig.modem.pages.size(), 1);
            QVERIFY(rig.modem.pages.first().text.startsWith(QStringLiteral("IBM ")));
            rig.online = false;
        }
        rig.app->update(true, false);
        QCOMPARE(rig.modem.pages.size(), goodUpdateFirst ? 2 : 1);
        QCOMPARE(rig.modem.pages.last().text, QStringLiteral("Quotes unavailable..."));
        if (goodUpdateFirst) {
            QVERIFY(rig.activity().contains("Internet: Connection was not established..."));
        } else {
            QCOMPARE(rig.app->stockQuotes().Count(), 0);
        }
    }

    void cancelMidRun()
    {
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM"))}, [](core::Options&) {}));
        // Cancel once the modem is being dialled: the page never goes out.
        rig.host.onYield = [&] {
            if (!rig.modem.commands.isEmpty()) {
                rig.app->cancelFlag().set();
            }
        };
        rig.app->update(true, false);
        QVERIFY(rig.modem.pages.isEmpty());
        QVERIFY(rig.host.statusLines.last().startsWith(QStringLiteral("Operation Cancelled   ")));
        QVERIFY(rig.activity().contains("Pager: User Cancelled"));
        QVERIFY(!rig.app->portOpen());
    }

    // The indices come through the quote sources in the failure order, the classic market
    // page last, as quotes do. When nothing gives a level the page leaves the summary out
    // instead of paging "DOW , NASD , SP500 , " before the quotes.
    void marketSummaryHeadsThePage_data()
    {
        QTest::addColumn<bool>("sourcesAnswer");
        QTest::addColumn<bool>("marketPage");
        QTest::addColumn<QString>("from"); // the request target that gave the indices; empty: none did
        QTest::newRow("from the CSV source") << true << true << "/q/l/?s=%5Edji+%5Endq+%5Espx&";
        QTest::newRow("the market page last") << false << true << "/cgi-bin/getquote.dll?ticker=csco";
        QTest::newRow("nothing answers") << false << false << QString();
    }
    void marketSummaryHeadsThePage()
    {
        QFETCH(bool, sourcesAnswer);
        QFETCH(bool, marketPage);
        QFETCH(QString, from);
        Rig rig;
        const QString gone =
            QStringLiteral("http://127.0.0.1:%1/cgi-bin/getquote.dll?ticker=csco").arg(testing::freePort());
        QVERIFY(rig.start({entry(QStringLiteral("IBM"))}, [&](core::Options& o) {
            // A source without its key is passed over, and said so once.
            o.sources.order = QStringLiteral("Finnhub,Demo CSV,servers.dat");
            o.quotes.marketSummary = true;
            o.quotes.marketUrl =
                marketPage ? rig.market.baseUrl() + QStringLiteral("/cgi-bin/getquote.dll?ticker=csco") : gone;
        }));
        rig.market.market()->setSourcesSilent(!sourcesAnswer);
        rig.app->update(true, false);
        QVERIFY2(rig.modem.pages.size() == 1, rig.activity().constData());
        const QString page = rig.modem.pages.first().text;
        const auto& m = rig.app->state().market;
        const QStringList targets = rig.market.market()->targets();
        QCOMPARE(rig.activity().count("Quote source Finnhub needs a key"), 1);
        if (from.isEmpty()) {
            QVERIFY2(page.startsWith(QStringLiteral("IBM ")), qPrintable(page));
            QVERIFY(m.lblDow.isEmpty() && m.caption.isEmpty());
            return;
        }
        static const QRegularExpression summary(QStringLiteral(
            R"(^DOW \d+\.\d\d[+-]\d+\.\d, NASD \d+\.\d\d[+-]\d+\.\d, SP500 \d+\.\d\d[+-]\d+\.\d, IBM \d+\.\d\d$)"));
        QVERIFY2(summary.match(page).hasMatch(), qPrintable(page));
        QVERIFY2(m.lblDow.toDouble() > 5000 && m.lblNASDAQ.toDouble() > 1000 && m.lblSP500.toDouble() > 500,
                 qPrintable(m.lblDow + u' ' + m.lblNASDAQ + u' ' + m.lblSP500));
        QVERIFY(m.caption.startsWith(QStringLiteral("Markets at ")));
        // The panel shows each change with its sign, whichever place gave it.
        for (const QString& change : {m.lblDowChg, m.lblNASDAQChg, m.lblSP500Chg})
            QVERIFY2(change.startsWith(u'+') || change.startsWith(u'-'), qPrintable(change));
        // One place gave all three: asked once, and the places after it not at all.
        QCOMPARE(targets.filter(from).size(), 1);
        if (sourcesAnswer)
            QVERIFY2(targets.filter(QStringLiteral("getquote.dll")).isEmpty(), qPrintable(targets.join(u' ')));
    }

    void sourceHealthPagesOnceADay_data()
    {
        QTest::addColumn<bool>("pageHealth");
        QTest::addColumn<bool>("pagedToday");
        QTest::addColumn<bool>("paged");
        QTest::newRow("asked for") << true << false << true;
        QTest::newRow("already paged today") << true << true << false;
        QTest::newRow("not asked for") << false << false << false;
    }

    void sourceHealthPagesOnceADay()
    {
        QFETCH(bool, pageHealth);
        QFETCH(bool, pagedToday);
        QFETCH(bool, paged);
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM"))}, [pageHealth](core::Options& o) {
            o.sources.order = QStringLiteral("Demo CSV,servers.dat");
            o.sources.pageHealth = pageHealth;
        }));
        // Demo CSV priced IBM before and has said nothing for two updates; the third is now.
        const QByteArray state = R"({"sources":{"demo csv":{"securities":{"IBM":{"priced":true,"misses":2}}}})" +
                                 QByteArray(pagedToday ? R"(,"lastPaged":"2026-11-23"})" : "}");
        testing::writeFile(QDir(rig.dataDir).filePath(QStringLiteral("sources.state")), state);
        rig.market.market()->setSourcesSilent(true);
        rig.app->update(true, false);
        const QString warning = QStringLiteral(
            "Quote source Demo CSV gave no price for IBM in the last 3 updates: its format may have changed");
        QVERIFY(rig.activity().contains(warning.toUtf8()));
        QCOMPARE(rig.app->stockQuotes().Item(1)->source(), QStringLiteral("Demo Market"));
        QStringList texts;
        for (const auto& page : rig.modem.pages)
            texts << page.text;
        QCOMPARE(texts.filter(warning).size(), paged ? 1 : 0);
        QVERIFY(texts.first().startsWith(QStringLiteral("IBM "))); // the quotes went out as always
        QCOMPARE(rig.app->sourceHealth().pagedOn(QDate(2026, 11, 23)), paged || pagedToday);
    }

    void smtpRouteMailsThePage()
    {
        const QString script =
            qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/tests/peers/smtp_peer.py");
        Rig rig;
        const quint16 port = testing::freePort();
        QTemporaryDir mails;
        testing::PeerProcess peer;
        QVERIFY2(peer.start(testing::systemPython(),
                            {script, QString::number(port), mails.path(), QStringLiteral("accept")},
                            QStringLiteral("READY")),
                 peer.log().constData());
        QVERIFY(rig.start({entry(QStringLiteral("IBM"), 1.0f)}, [port](core::Options& o) {
            o.smtp.enabled = true;
            o.smtp.hostAddress = QStringLiteral("127.0.0.1");
            o.smtp.port = static_cast<qint16>(port);
            o.smtp.from = QStringLiteral("kestrova@example.test");
            o.smtp.recipient = QStringLiteral("pager@example.test");
            o.smtp.domain = QStringLiteral("example.test");
            o.smtp.maxLength = 500;
            o.alarms.select = true;
            o.alarms.selectMode = 1;
        }));
        rig.app->update(true, false);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(mails.filePath(QStringLiteral("mail-1.eml"))), 10000);
        const QByteArray mail = testing::readFile(mails.filePath(QStringLiteral("mail-1.eml")));
        QVERIFY2(mail.contains("\r\n\r\n+IBM "), mail.constData());
        QVERIFY(rig.modem.commands.isEmpty()); // nothing went by modem
        QVERIFY(rig.activity().contains("SMTP Message #1 sent successfully"));
    }

    void historyKeepsEveryCycle()
    {
        Rig rig;
        core::PortfolioRecord msft = entry(QStringLiteral("MSFT"));
        msft.toPager = 0;
        msft.volumeLimit = 1; // any volume fires
        QVERIFY(rig.start({entry(QStringLiteral("IBM"), 1.0f), msft, entry(QStringLiteral("ERR500"))},
                          [](core::Options&) {}));
        struct Seen
        {
            QDateTime before;
            QDateTime after;
            QHash<QString, QPair<QString, QString>> lastAndVolume;
        };
        QList<Seen> cycles;
        for (int i = 0; i < 3; ++i) {
            Seen seen;
            seen.before = rig.clock.now();
            rig.app->update(true, false);
            seen.after = rig.clock.now();
            for (const auto& q : rig.app->stockQuotes()) {
                seen.lastAndVolume.insert(q->ticker(), {q->last(), q->volume()});
            }
            QCOMPARE(seen.lastAndVolume.size(), 2);
            cycles << seen;
            rig.clock.advanceSecs(15 * 60);
        }
        QCOMPARE(rig.modem.pages.size(), 3);

        history::HistoryStore store(rig.app->historyPath(), rig.clock);
        QVERIFY2(store.open(), qPrintable(store.lastError()));
        QVERIFY(store.quotes(QStringLiteral("ERR500")).isEmpty());
        for (const QString& symbol : {QStringLiteral("IBM"), QStringLiteral("MSFT")}) {
            const QList<history::QuoteRow> rows = store.quotes(symbol);
            QCOMPARE(rows.size(), 3);
            for (int i = 0; i < 3; ++i) {
                const history::QuoteRow& r = rows[i];
                QVERIFY(r.fetchedAt >= cycles[i].before && r.fetchedAt <= cycles[i].after);
                QCOMPARE(QString::number(r.last.value_or(-1), 'f', 2), cycles[i].lastAndVolume[symbol].first);
                QCOMPARE(QString::number(r.volume.value_or(-1)), cycles[i].lastAndVolume[symbol].second);
                QVERIFY(r.change && r.percentChange && r.high && r.low && r.bid && r.ask);
                QCOMPARE(r.source, QStringLiteral("Demo Market"));
                QVERIFY(!r.imported);
            }
        }
        // IBM crossed its high limit and was paged; MSFT's volume alarm had no pager to go to.
        const QList<history::AlarmRow> alarms = store.alarms();
        QCOMPARE(alarms.size(), 6);
        for (int k = 0; k < alarms.size(); ++k) {
            const history::AlarmRow& a = alarms[k];
            const Seen& cycle = cycles[k / 2]; // a cycle's alarms in list order: IBM, MSFT
            const bool ibm = a.symbol == QLatin1String("IBM");
            QCOMPARE(a.symbol, ibm ? QStringLiteral("IBM") : QStringLiteral("MSFT"));
            QCOMPARE(a.kind, ibm ? history::AlarmKind::High : history::AlarmKind::Volume);
            QCOMPARE(a.limit, 1.0);
            QCOMPARE(a.paged, ibm);
            QCOMPARE(a.firedAt, store.quotes(a.symbol)[k / 2].fetchedAt);
            QCOMPARE(ibm ? QString::number(a.value, 'f', 2) : QString::number(qint64(a.value)),
                     ibm ? cycle.lastAndVolume[a.symbol].first : cycle.lastAndVolume[a.symbol].second);
        }
    }

    void pushMirrorsThePageAfterIt_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("requests");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("push server takes it") << "accept" << 2 << "Push: Message Sent";
        // Both pushes (the page's and the mail header's) are tried three times.
        QTest::newRow("push server hangs") << "hang" << 6 << "Push: Unable to send to ";
    }
    void pushMirrorsThePageAfterIt()
    {
        QFETCH(QString, mode);
        QFETCH(int, requests);
        QFETCH(QString, outcome);
        testing::PushPeer peer;
        QVERIFY2(peer.start(mode), peer.process.log().constData());
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM"), 1.0f)}, [&](core::Options& o) {
            o.push = {true, 0, peer.url(), QString(), 1};
            o.paging.forwardMail = true;
            o.mail.pageHeaders = true;
        }));
        // A mail check found one new message; its header goes out in the same call.
        core::MailBox& box = rig.app->state().mailBox;
        box.mailWaiting = true;
        box.messageCount = 1;
        box.records[1] = core::MailRecord{QStringLiteral("23 Nov 2026"),
                                          QStringLiteral("<1@x>"),
                                          {},
                                          QStringLiteral("broker@example.test"),
                                          QStringLiteral("Margin call"),
                                          {},
                                          true,
                                          100};
        rig.app->update(true, false);

        QCOMPARE(rig.modem.pages.size(), 2);
        const QList<QJsonObject> got = peer.requests();
        QCOMPARE(got.size(), requests);
        QCOMPARE(got.first().value(QStringLiteral("body")).toString(), rig.modem.pages.first().text);
        QCOMPARE(testing::header(got.first(), QStringLiteral("Title")),
                 delivery::PushNotifier::title(delivery::PushKind::Alarm));
        if (mode == QLatin1String("accept")) {
            QCOMPARE(got.last().value(QStringLiteral("body")).toString(),
                     QStringLiteral("23 Nov 2026|From:broker@example.test|Subject:Margin call"));
            QCOMPARE(testing::header(got.last(), QStringLiteral("Title")),
                     delivery::PushNotifier::title(delivery::PushKind::Mail));
        }
        // The page went first; the push, whatever became of it, came after, and the run
        // finished with its history written.
        const QByteArray log = rig.activity();
        const qsizetype paged = log.indexOf("Pager: Message Sent");
        const qsizetype pushed = log.indexOf(outcome.toUtf8());
        QVERIFY2(paged >= 0 && pushed > paged, log.constData());
        history::HistoryStore store(rig.app->historyPath(), rig.clock);
        QVERIFY(store.open());
        QCOMPARE(store.quotes(QStringLiteral("IBM")).size(), 1);
    }

    // The labels and the exit question's answers through the window are test_mainwindow's;
    // here: a Yes saves the change itself, and New leaves no file behind.
    void saveOnExitThenNew()
    {
        Rig rig;
        QVERIFY(rig.start({entry(QStringLiteral("IBM"))}, [](core::Options&) {}));
        auto& s = rig.app->state();
        QCOMPARE(s.caption, QStringLiteral("Kestrova - ") + rig.pgr);
        QVERIFY(rig.app->queryExit()); // nothing changed: no question
        QVERIFY(rig.host.messages.isEmpty());

        s.portfolio.records[0].highLimit = 99;
        rig.app->markModified();
        rig.host.answers = {support::MsgAnswer::Cancel};
        QVERIFY(!rig.app->queryExit());
        QVERIFY(s.exitCancelled);
        QVERIFY(s.fileModified);
        QCOMPARE(rig.host.messages.last(), QStringLiteral("Save File Before Exiting?"));

        rig.host.answers = {support::MsgAnswer::Yes};
        QVERIFY(rig.app->queryExit());
        core::PortfolioTable back;
        core::Options o;
        QVERIFY(core::PortfolioFile::read(rig.pgr, back, o).ok());
        QCOMPARE(back.records[0].highLimit, 99.0f);

        rig.app->mnuNew();
        QCOMPARE(s.caption, QStringLiteral("Kestrova"));
        QVERIFY(!s.menusEnabled);
        QCOMPARE(s.portfolio.count, qint16(0));
    }

    // A save never silently overwrites what another program wrote after the file was opened.
    void saveAfterAnotherProgramWrote_data()
    {
        QTest::addColumn<QString>("otherTicker");
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("asked");
        QTest::addColumn<QString>("tickerAfter");
        QTest::newRow("overwrite") << "MSFT" << int(support::MsgAnswer::Ok) << true << "IBM";
        QTest::newRow("keep theirs") << "MSFT" << int(support::MsgAnswer::Cancel) << true << "MSFT";
        QTest::newRow("same bytes again") << "IBM" << int(support::MsgAnswer::Cancel) << false << "IBM";
    }
    void saveAfterAnotherProgramWrote()
    {
        QFETCH(QString, otherTicker);
        QFETCH(int, answer);
        QFETCH(bool, asked);
        QFETCH(QString, tickerAfter);
        QTemporaryDir dir;
        const QString pgr = dir.filePath(QStringLiteral("watch.pgr"));
        core::PortfolioTable table;
        core::Options options;
        table.records[0] = entry(QStringLiteral("IBM"));
        table.count = 1;
        QVERIFY(core::PortfolioFile::write(pgr, table, options).ok());
        support::MockClock clock;
        testing::TestHost host(&clock);
        app::Application application(clock, host, dir.path());
        application.startup(pgr);
        QCOMPARE(application.state().currentFile, pgr);

        table.records[0].ticker = otherTicker;
        QVERIFY(core::PortfolioFile::write(pgr, table, options).ok());
        application.state().portfolio.records[0].highLimit = 99;
        application.markModified();
        host.messages.clear();
        host.answers = {support::MsgAnswer(answer)};
        QCOMPARE(application.save(), tickerAfter == QLatin1String("IBM"));
        QCOMPARE(!host.messages.isEmpty() && host.messages.first().contains(QLatin1String("changed by another")),
                 asked);
        core::PortfolioTable back;
        QVERIFY(core::PortfolioFile::read(pgr, back, options).ok());
        QCOMPARE(back.records[0].ticker, tickerAfter);
        QCOMPARE(back.records[0].highLimit, tickerAfter == QLatin1String("IBM") ? 99.0f : 0.0f);
    }

    void missingStartupFileDisablesMenus()
    {
        QTemporaryDir dir;
        support::MockClock clock;
        testing::TestHost host(&clock);
        app::Application application(clock, host, dir.path());
        application.startup(dir.filePath(QStringLiteral("absent.pgr")));
        QVERIFY(!application.state().menusEnabled);
        QVERIFY(application.state().currentFile.isEmpty());
        QVERIFY(host.messages.first().startsWith(QStringLiteral("File ")));
        QVERIFY(host.messages.first().endsWith(QStringLiteral(" does not exist.")));
        // Saving the setup under a name gives it a file: the menus come back.
        QVERIFY(application.saveAs(dir.filePath(QStringLiteral("mine.pgr"))));
        QVERIFY(application.state().menusEnabled);
    }
};

QTEST_GUILESS_MAIN(TestUpdateRun)
#include "test_updaterun.moc"
