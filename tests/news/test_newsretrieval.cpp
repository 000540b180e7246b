#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "core/Quotes.h"
#include "news/NewsRetrieval.h"
#include "news/NewsServer.h"
#include "news/NewsStories.h"
#include "news/ServerDat.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "quotes/CurlFetcher.h"
#include "sim/DemoMarket.h"
#include "support/Clock.h"
#include "support/VbError.h"

#include "ServicesRig.h"
#include "TestUtil.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace kestrova;

namespace {

const QDate kToday(2026, 11, 23);

QString us(const QDate& d)
{
    return d.toString(QStringLiteral("MM/dd/yyyy"));
}

core::PortfolioRecord record(const QString& ticker, qint16 news, qint16 type = 0, qint16 server = 0)
{
    core::PortfolioRecord r;
    r.ticker = ticker;
    r.news = news;
    r.securityType = type;
    r.server = server;
    return r;
}

} // namespace

// News retrieval over real HTTP: the shipped server.dat pointed at a demo market on loopback.
class TestNewsRetrieval : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void init()
    {
        m_rig = std::make_unique<testing::ServicesRig>();
        m_rig->clock.set(QDateTime(kToday, QTime(10, 0)));
        m_market = std::make_unique<sim::DemoMarketThread>(m_marketClock, 21);
        QVERIFY(m_market->start());
        QVERIFY(QFile::copy(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/data/server.dat"),
                            m_rig->dir.filePath(QStringLiteral("server.dat"))));
        QVERIFY(news::retargetDemoMarket(m_rig->dir.path(), m_market->port()));
        m_servers.Clear();
        QCOMPARE(news::readServerDat(m_rig->dir.filePath(QStringLiteral("server.dat")), m_servers).error, 0);
        m_fetcher = std::make_unique<quotes::CurlFetcher>(m_rig->host);
        m_fetcher->setTimeoutMs(1500);
        m_stories = std::make_unique<news::NewsStories>(m_rig->clock, m_rig->dir.filePath(QStringLiteral("news.dat")));
        m_portfolio = {};
        m_quoteOptions = {};
        m_quoteOptions.server = quotes::BuiltInServers::kDemoMarket;
    }

    void cleanup()
    {
        m_fetcher.reset();
        m_market.reset();
    }

    void addsUnseenHeadlinesAndMarksQuotes()
    {
        m_portfolio.records[0] = record("IBM", 1);
        m_portfolio.records[1] = record("MSFT", 0);
        m_portfolio.records[2] = record(" XYZ AB ", 1, 1);
        m_portfolio.records[3] = record("ibm", 1); // fetched on its own; its headlines are known by then
        m_portfolio.count = 4;
        // A story the store already knows is not added again.
        auto known = std::make_shared<news::News>();
        known->setTicker("IBM");
        known->setNewsLine("placeholder");
        m_stories->Add(known);

        core::Quotes quotes;
        for (const char* t : {"IBM", "MSFT"}) {
            auto q = std::make_shared<core::Quote>();
            q->setTicker(QString::fromLatin1(t));
            q->setNews(-1);
            quotes.Add(q, QString::fromLatin1(t));
        }

        const auto first = retrieve(&quotes);
        QCOMPARE(first.tickers, 3); // IBM, XYZAB, ibm
        QCOMPARE(first.pages, 3);
        QCOMPARE(m_market->market()->requestCount(), 3);
        QCOMPARE(first.added, 8);
        QCOMPARE(m_stories->Count(), 9);

        int ibm = 0;
        int fresh = 0;
        for (const auto& s : *m_stories) {
            QVERIFY(s->ticker() != QLatin1String("MSFT"));
            if (s->newsLine() == QLatin1String("placeholder")) {
                continue;
            }
            QVERIFY2(s->newsLine().startsWith(s->ticker().toUpper() + QStringLiteral(": ")), qPrintable(s->newsLine()));
            QVERIFY(!s->newsLine().contains(u'<'));
            QVERIFY(!s->newsLine().contains(QStringLiteral("&amp;")));
            QVERIFY(!s->newsSource().isEmpty());
            QVERIFY(!s->time().isEmpty());
            QVERIFY(!s->paged());
            const QDate date = news::NewsStories::storyDate(s->sDate());
            QVERIFY(date.isValid());
            QCOMPARE(s->sDate(), us(date));
            QCOMPARE(s->bNew(), date == kToday);
            fresh += s->bNew() ? 1 : 0;
            ibm += s->ticker() == QLatin1String("IBM") ? 1 : 0;
        }
        QCOMPARE(ibm, 4);
        QCOMPARE(fresh, 4); // two of today's stories per ticker
        QVERIFY(m_stories->FindStory(QStringLiteral("XYZAB: ")) == 0);
        QCOMPARE(m_stories->Item(2)->ticker(), QStringLiteral("IBM"));   // portfolio order, then page order
        QCOMPARE(m_stories->Item(6)->ticker(), QStringLiteral("XYZAB")); // blanks of an option symbol removed

        QCOMPARE(quotes.Item("IBM")->news(), qint16(-1));
        QCOMPARE(quotes.Item("MSFT")->news(), qint16(0));

        // news.dat holds what the store holds.
        news::NewsStories reread(m_rig->clock, m_stories->fileName());
        QVERIFY(reread.ReadNews());
        QCOMPARE(reread.Count(), 9);
        QCOMPARE(reread.Item(9)->newsLine(), m_stories->Item(9)->newsLine());
        QVERIFY(m_rig->activity().contains("Internet: News Retrieved"));

        // The same pages again on the same day: nothing new.
        const auto second = retrieve(&quotes);
        QCOMPARE(second.pages, 3);
        QCOMPARE(second.added, 0);
        QCOMPARE(m_stories->Count(), 9);
    }

    void faultyPagesAddNothing()
    {
        m_portfolio.records[0] = record("ERR500", 1);
        m_portfolio.records[1] = record("EMPTY", 1);
        m_portfolio.records[2] = record("HANG", 1);
        m_portfolio.records[3] = record("CUT", 1);
        m_portfolio.records[4] = record("T", 1);
        m_portfolio.count = 5;
        QStringList errors;
        m_fetcher->setErrorCallback([&errors](const QString& url, const QString&) { errors << url; });
        const auto r = retrieve();
        QCOMPARE(r.tickers, 5);
        QCOMPARE(r.pages, 1);
        QCOMPARE(r.added, 4);
        for (const auto& s : *m_stories) {
            QCOMPARE(s->ticker(), QStringLiteral("T"));
        }
        // The hanging page timed out and the cut one failed; both were reported.
        QVERIFY(std::any_of(errors.begin(), errors.end(), [](const QString& u) { return u.endsWith("HANG"); }));
        QVERIFY(std::any_of(errors.begin(), errors.end(), [](const QString& u) { return u.endsWith("CUT"); }));
    }

    void serverChoice_data()
    {
        QTest::addColumn<qint16>("defaultServer");
        QTest::addColumn<qint16>("ownServer");
        QTest::addColumn<int>("added");
        // Two definitions: "Demo Market" serves news, "Yahoo" points at a page the market does
        // not have (404).
        QTest::newRow("default is the demo") << qint16(12) << qint16(0) << 4;
        QTest::newRow("own server wins over the default") << qint16(4) << qint16(12) << 4;
        QTest::newRow("own server without news") << qint16(12) << qint16(4) << 0;
        QTest::newRow("default without news") << qint16(4) << qint16(0) << 0;
        QTest::newRow("no definition of that name: the first") << qint16(2) << qint16(0) << 4;
    }
    void serverChoice()
    {
        QFETCH(qint16, defaultServer);
        QFETCH(qint16, ownServer);
        QFETCH(int, added);
        const auto demo = m_servers.Item(QStringLiteral("Demo Market"));
        auto other = std::make_shared<news::NewsServer>(*demo);
        other->setServerName(QStringLiteral("Yahoo"));
        other->setUrl(m_market->baseUrl() + QStringLiteral("/nowhere?t="));
        // Only loopback definitions: the real services are never fetched in tests.
        m_servers.Clear();
        m_servers.Add(demo, demo->serverName());
        m_servers.Add(other, other->serverName());
        m_quoteOptions.server = defaultServer;
        m_portfolio.records[0] = record("IBM", 1, 0, ownServer);
        m_portfolio.count = 1;
        const auto r = retrieve();
        QCOMPARE(m_market->market()->requestCount(), 1);
        QCOMPARE(r.pages, added > 0 ? 1 : 0);
        QCOMPARE(r.added, added);
        // The news viewer opens the page the headlines came from: the same server choice.
        QCOMPARE(news::newsPageUrl(m_portfolio, m_quoteOptions, m_builtIn, m_servers, QStringLiteral("IBM")),
                 (added > 0 ? demo->url() : other->url()) + QStringLiteral("IBM"));
    }

    void cancelledFetchAddsNothing()
    {
        m_portfolio.records[0] = record("IBM", 1);
        m_portfolio.records[1] = record("T", 1);
        m_portfolio.count = 2;
        m_rig->cancel.set();
        const auto r = retrieve();
        QCOMPARE(r.tickers, 2);
        QVERIFY(r.pages < 2);
        QCOMPARE(r.added, r.pages * 4);
    }

    void unwritableNewsFileRaises()
    {
        m_portfolio.records[0] = record("IBM", 1);
        m_portfolio.count = 1;
        m_stories->setFileName(m_rig->dir.filePath(QStringLiteral("missing-folder/news.dat")));
        try {
            retrieve();
            QFAIL("no error raised");
        } catch (const support::VbError& e) {
            QCOMPARE(e.number(), 75);
        }
        // What was found stays in memory.
        QCOMPARE(m_stories->Count(), 4);
    }

private:
    news::NewsRetrievalResult retrieve(core::Quotes* quotes = nullptr);

    // The market reads its own clock: the test's clock moves on every yield.
    support::MockClock m_marketClock{QDateTime(kToday, QTime(9, 0))};
    std::unique_ptr<testing::ServicesRig> m_rig;
    std::unique_ptr<sim::DemoMarketThread> m_market;
    std::unique_ptr<quotes::CurlFetcher> m_fetcher;
    news::NewsServers m_servers;
    std::unique_ptr<news::NewsStories> m_stories;
    core::PortfolioTable m_portfolio;
    core::QuoteOptions m_quoteOptions;
    quotes::BuiltInServers m_builtIn;
};

news::NewsRetrievalResult TestNewsRetrieval::retrieve(core::Quotes* quotes)
{
    return news::RetrieveNews(m_portfolio, m_quoteOptions, m_builtIn, m_servers, *m_fetcher, *m_stories,
                              m_rig->services, 0, quotes);
}

QTEST_GUILESS_MAIN(TestNewsRetrieval)
#include "test_newsretrieval.moc"
