#include "ServicesRig.h"
#include "TestUtil.h"

#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "core/Quotes.h"
#include "quotes/CurlFetcher.h"
#include "quotes/QuoteCycle.h"
#include "quotes/SourceHealth.h"
#include "sim/DemoMarket.h"
#include "sim/DemoMarketServer.h"
#include "support/Format.h"

#include <QRegularExpression>
#include <QTest>

#include <cmath>

using namespace kestrova;

namespace {

constexpr int kDemo = quotes::BuiltInServers::kDemoMarket;
const QString kKey = QStringLiteral("s3cr3t-key");

// The shipped definitions, every service's address replaced by the demo market, which
// answers on the same paths in the same shapes.
quotes::SourceFile shippedAt(const QString& base)
{
    QString text =
        QString::fromUtf8(testing::readFile(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data/sources.json"));
    for (const char* host : {"https://stooq.com", "https://query1.finance.yahoo.com", "https://www.alphavantage.co",
                             "https://finnhub.io", "http://127.0.0.1:8099"})
        text.replace(QLatin1String(host), base);
    return quotes::parseSourcesJson(text.toUtf8());
}

struct Rig : testing::ServicesRig
{
    sim::DemoMarketThread& market;
    quotes::CurlFetcher fetcher{host};
    quotes::BuiltInServers builtIn;
    quotes::ServerDefinitions defs;
    quotes::SourceFile file;
    quotes::SourceHealth health;
    core::Options options;
    core::PortfolioTable portfolio;
    QStringList order;
    quotes::CycleResult last;

    explicit Rig(sim::DemoMarketThread& m) : market(m), file(shippedAt(m.baseUrl()))
    {
        fetcher.setTimeoutMs(1500);
        defs.stock.Add(sim::demoMarketServer(market.baseUrl(), false), QStringLiteral("Demo Market"));
        defs.option.Add(sim::demoMarketServer(market.baseUrl(), true), QStringLiteral("Demo Market"));
        options.quotes.server = kDemo;
    }
    void add(const QString& ticker, qint16 type = 0)
    {
        core::PortfolioRecord& r = portfolio.records[size_t(portfolio.count++)];
        r = {};
        r.ticker = ticker;
        r.securityType = type;
        r.server = type == 1 ? kDemo : 0;
        r.digits = 2;
    }
    core::Quotes stocks;
    core::Quotes opts;

    void run()
    {
        const quotes::SourceSetup setup{file, order, [](const QString&) { return kKey; }, &health};
        quotes::CycleContext ctx{services, fetcher, builtIn, defs, options, portfolio, {}};
        ctx.sources = &setup;
        last = quotes::GetQuotes(ctx, stocks, opts);
    }
    QStringList status() const
    {
        QStringList out;
        for (const QString& l : host.statusLines)
            out << l.section(QStringLiteral("   "), 0, 0);
        return out;
    }
    // The symbols of each batch request the market received.
    QList<int> batchSizes() const
    {
        QList<int> sizes;
        for (const QString& t : market.market()->targets()) {
            if (t.startsWith(QLatin1String("/q/l/?s=")))
                sizes << int(t.section(u'=', 1).section(u'&', 0, 0).count(u'+')) + 1;
        }
        return sizes;
    }
};

QStringList keys(const core::Quotes& set)
{
    QStringList out;
    for (const auto& q : set)
        out << q->ticker() + u':' + q->source();
    return out;
}

} // namespace

class TestSourceCycle : public QObject
{
    Q_OBJECT
private Q_SLOTS:

    void init()
    {
        m_market = std::make_unique<sim::DemoMarketThread>(m_marketClock, 3);
        QVERIFY(m_market->start());
    }

    void cleanup() { m_market.reset(); }

    void everyMappedField_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("ticker");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("withoutPrevious"); // the definition maps no previous close
        for (const char* source : {"Stooq", "Yahoo", "Alpha Vantage", "Finnhub"}) {
            // clang-format off
            QTest::addRow("%s, stock", source) << source << "IBM" << "Demo IBM Corp" << false;
            QTest::addRow("%s, fund", source) << source << "VFINX" << "Demo VFINX Fund" << false;
            QTest::addRow("%s, index", source) << source << "^DJI" << "Dow Jones Industrial Average" << false;
            // clang-format on
        }
        QTest::newRow("Stooq without Prev, stock") << "Stooq"
                                                   << "IBM"
                                                   << "Demo IBM Corp" << true;
        QTest::newRow("Yahoo without previous close, index") << "Yahoo"
                                                             << "^DJI"
                                                             << "Dow Jones Industrial Average" << true;
    }
    void everyMappedField()
    {
        QFETCH(QString, source);
        QFETCH(QString, ticker);
        QFETCH(QString, name);
        QFETCH(bool, withoutPrevious);
        Rig rig(*m_market);
        if (withoutPrevious) {
            for (auto& s : rig.file.sources) {
                if (s.name == source)
                    s.fields[size_t(quotes::SourceField::PreviousClose)].clear();
            }
        }
        rig.order = QStringList{source};
        rig.add(ticker, ticker == QLatin1String("VFINX") ? 2 : 0);
        rig.run();
        QVERIFY(rig.last.completed);
        QCOMPARE(keys(rig.stocks), QStringList{ticker + u':' + source});
        const core::Quote& q = *rig.stocks.Item(1);
        const quotes::SourceDefinition& def = *rig.file.find(source);
        auto mapped = [&](quotes::SourceField f) { return !def.fields[size_t(f)].isEmpty(); };
        using F = quotes::SourceField;

        // Each quote field holds a value when its source maps it and "n/a" when it does not.
        const std::pair<F, QString> texts[] = {{F::Last, q.last()},
                                               {F::Open, q.openPrice()},
                                               {F::High, q.dayHigh()},
                                               {F::Low, q.dayLow()},
                                               {F::PreviousClose, q.previousClose()},
                                               {F::Bid, q.bid()},
                                               {F::Ask, q.ask()},
                                               {F::YearHigh, q.yearHigh()},
                                               {F::YearLow, q.yearLow()},
                                               {F::EPS, q.eps()},
                                               {F::PE, q.pe()}};
        for (const auto& [f, text] : texts) {
            const QString what = quotes::sourceFieldName(f) + QStringLiteral(" = ") + text;
            if (mapped(f))
                QVERIFY2(support::leadingNumber(text) > 0 && text.contains(u'.'), qPrintable(what));
            else
                QVERIFY2(text == QLatin1String("n/a"), qPrintable(what));
        }
        QCOMPARE(q.name(), mapped(F::Name) ? name : QStringLiteral("n/a"));
        const double last = support::leadingNumber(q.last());
        QVERIFY(support::leadingNumber(q.dayLow()) <= last && last <= support::leadingNumber(q.dayHigh()));
        // Change and percent change: given, or worked out from the previous close, and
        // consistent either way.
        if (mapped(F::PreviousClose)) {
            const double prev = support::leadingNumber(q.previousClose());
            QVERIFY2(std::fabs(support::leadingNumber(q.change()) - (last - prev)) < 0.011, qPrintable(q.change()));
            QVERIFY2(std::fabs(support::leadingNumber(q.percentChg()) - (last - prev) * 100 / prev) < 0.06,
                     qPrintable(q.percentChg()));
        } else {
            // Nothing to work them out from: not known, and so not a change of 0.
            QCOMPARE(q.change(), QStringLiteral("n/a"));
            QCOMPARE(q.percentChg(), QStringLiteral("n/a"));
        }
        // Volume: a stock trades shares, a fund and an index do not.
        const qint64 volume = q.volume().toLongLong();
        QVERIFY2(mapped(F::Volume) && ticker == QLatin1String("IBM") ? volume > 100000 : volume == 0,
                 qPrintable(q.volume()));
        QCOMPARE(q.updateDate().date(), m_marketClock.today());
        QVERIFY2(q.update().startsWith(QStringLiteral("11/20/2026")), qPrintable(q.update()));
    }

    void batchSplit_data()
    {
        QTest::addColumn<int>("batch");
        QTest::addColumn<QList<int>>("requests");
        QTest::newRow("50 a request") << 50 << QList<int>{50};
        QTest::newRow("20 a request") << 20 << QList<int>{20, 20, 10};
        QTest::newRow("7 a request") << 7 << QList<int>{7, 7, 7, 7, 7, 7, 7, 1};
    }
    void batchSplit()
    {
        QFETCH(int, batch);
        QFETCH(QList<int>, requests);
        Rig rig(*m_market);
        for (auto& s : rig.file.sources) {
            if (s.name == QLatin1String("Stooq"))
                s.batchSize = batch;
        }
        rig.order = QStringList{QStringLiteral("Stooq")};
        for (int i = 0; i < 50; ++i)
            rig.add(QStringLiteral("S%1").arg(i, 2, 10, QLatin1Char('0')));
        rig.run();
        QCOMPARE(rig.stocks.Count(), 50);
        for (const auto& q : rig.stocks)
            QCOMPARE(q->source(), QStringLiteral("Stooq"));
        QList<int> sizes = rig.batchSizes();
        std::sort(sizes.begin(), sizes.end(), std::greater<>());
        QCOMPARE(sizes, requests);
        QCOMPARE(rig.status().filter(QStringLiteral("Quotes from Stooq: S00, S01,")).size(), 1);
    }

    void failureOrder()
    {
        Rig rig(*m_market);
        rig.order = QStringList{QStringLiteral("Stooq"), QStringLiteral("Nowhere"), QStringLiteral("Yahoo"),
                                QStringLiteral("servers.dat")};
        rig.add(QStringLiteral("IBM"));
        rig.add(QStringLiteral("NODATA1")); // unknown to the sources, priced by the demo pages
        rig.add(QStringLiteral("^DJI"));
        rig.add(QStringLiteral("XYZ AB"), 1); // an option: not a Stooq type
        rig.run();
        QVERIFY(rig.last.completed);
        QCOMPARE(keys(rig.stocks), (QStringList{"IBM:Stooq", "NODATA1:Demo Market", "^DJI:Stooq"}));
        QCOMPARE(keys(rig.opts), QStringList{"XYZAB:Yahoo"});
        QCOMPARE(rig.status(),
                 (QStringList{"Getting Stock Quotes", "Getting Option Quotes", "Quotes from Stooq: IBM, ^DJI",
                              "Quotes from Demo Market: NODATA1", "Quotes from Yahoo: XYZAB"}));
        // The progress is that of a one-by-one cycle, whichever source priced what.
        QCOMPARE(rig.host.progress, (QStringList{"33%|Getting Stocks - IBM", "67%|Getting Stocks - NODATA1",
                                                 "100%|Getting Stocks - ^DJI", "100%|Getting Options - XYZAB"}));
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Quote source Nowhere is not defined in sources.json")));
        QVERIFY(log.contains(QStringLiteral("Quote source Stooq: NODATA1: no data (N/D)")));
        QVERIFY(log.contains(QStringLiteral(
            "Quote source Yahoo: NODATA1: HTTP 404: the service says: No data found, symbol may be delisted")));
        // One batch request for the three stocks; the option was never asked of Stooq.
        QCOMPARE(rig.batchSizes(), QList<int>{3});
    }

    void restedAfterTooManyRequests_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("why");
        QTest::addColumn<int>("seconds");
        // clang-format off
        QTest::newRow("Stooq: 429, Retry-After") << "Stooq" << "HTTP 429" << 120;
        QTest::newRow("Yahoo: 429, Retry-After") << "Yahoo" << "HTTP 429" << 90;
        QTest::newRow("Finnhub: 429 alone") << "Finnhub" << "HTTP 429" << 60;
        QTest::newRow("Alpha Vantage: a note in a 200") << "Alpha Vantage" << "the service says: Thank you" << 60;
        // clang-format on
    }
    void restedAfterTooManyRequests()
    {
        QFETCH(QString, source);
        QFETCH(QString, why);
        QFETCH(int, seconds);
        Rig rig(*m_market);
        rig.order = QStringList{source, QStringLiteral("servers.dat")};
        rig.add(QStringLiteral("BUSY"));
        const QDateTime start = rig.clock.now();
        rig.run();
        // The next in the order priced it.
        QCOMPARE(keys(rig.stocks), QStringList{"BUSY:Demo Market"});
        const QStringList rested =
            rig.status().filter(QStringLiteral("Quote source ") + source + " asked to wait (" + why);
        QCOMPARE(rested.size(), 1);
        const QDateTime until = rig.health.restedUntil(source);
        QVERIFY(until >= start.addSecs(seconds) && until <= rig.clock.now().addSecs(seconds));
        QVERIFY(rested[0].endsWith(support::formatDate(until, u"hh:mm")));

        // Still resting: not asked at all, IBM comes from the pages.
        rig.portfolio.count = 0;
        rig.add(QStringLiteral("IBM"));
        const int asked = m_market->market()->requestCount();
        rig.run();
        QCOMPARE(keys(rig.stocks), QStringList{"IBM:Demo Market"});
        QCOMPARE(m_market->market()->requestCount(), asked + 1);
        QVERIFY(
            rig.activity().contains(QStringLiteral("Quote source ") + source + QStringLiteral(" is resting until")));
        // Rested: asked again.
        rig.clock.advanceMs(qint64(seconds + 1) * 1000);
        rig.run();
        QCOMPARE(keys(rig.stocks), QStringList{"IBM:" + source});
    }

    void healthWarnings()
    {
        Rig rig(*m_market);
        rig.order = QStringList{QStringLiteral("Stooq")};
        rig.add(QStringLiteral("IBM"));
        rig.add(QStringLiteral("NODATA2")); // never priced, so never warned about
        const QString state = rig.dir.filePath(QStringLiteral("sources.state"));
        const QString silent = QStringLiteral(
            "Quote source Stooq gave no price for IBM in the last 3 updates: its format may have changed");
        // Each update starts from the file, as one-shot updates do.
        auto update = [&] {
            rig.health.load(state);
            rig.host.statusLines.clear();
            rig.run();
            QVERIFY(rig.health.save(state, rig.clock.today()));
        };
        update();
        QCOMPARE(keys(rig.stocks), QStringList{"IBM:Stooq"});
        QVERIFY(rig.last.healthWarnings.isEmpty());
        m_market->market()->setSourcesSilent(true);
        QStringList warnings;
        for (int i = 0; i < 4; ++i) {
            update();
            QCOMPARE(rig.stocks.Count(), 0);
            warnings << rig.last.healthWarnings;
            QCOMPARE(rig.status().contains(silent), i == 2);
        }
        QCOMPARE(warnings, QStringList{silent});
        QVERIFY(rig.activity().contains(silent));

        // Back to normal, then an answer without a column the definition maps: said once.
        m_market->market()->setSourcesSilent(false);
        rig.add(QStringLiteral("NOVOL"));
        update();
        QCOMPARE(
            rig.last.healthWarnings,
            QStringList{"Quote source Stooq answered for IBM without the field volume: its format may have changed"});
        update();
        QVERIFY(rig.last.healthWarnings.isEmpty());
        QCOMPARE(keys(rig.stocks), (QStringList{"IBM:Stooq", "NOVOL:Stooq"}));
    }

    void badAnswersFailOneSecurity_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("ticker");
        QTest::addColumn<QString>("logged");
        // clang-format off
        QTest::newRow("html instead of json") << "Yahoo" << "HTML" << "Yahoo: HTML: the answer is HTML, not JSON";
        QTest::newRow("json nested 10000 deep") << "Yahoo" << "DEEP" << "Yahoo: DEEP: the answer is not JSON";
        QTest::newRow("truncated json") << "Yahoo" << "TRUNC" << "Yahoo: TRUNC: the answer is not JSON";
        QTest::newRow("null price") << "Yahoo" << "NULLS" << "Yahoo: NULLS: no price";
        QTest::newRow("html instead of csv") << "Stooq" << "HTML" << "Stooq: HTML: the answer is HTML, not CSV";
        QTest::newRow("an N/D row") << "Stooq" << "NODATA" << "Stooq: NODATA: no data (N/D)";
        QTest::newRow("an empty batch answer") << "Stooq" << "EMPTY" << "Stooq: EMPTY: the answer is empty";
        QTest::newRow("a body of 50 MB") << "Stooq" << "HUGE" << "the answer is larger than ";
        QTest::newRow("no answer: the key stays hidden") << "Alpha Vantage" << "HANG" << "function=GLOBAL_QUOTE&symbol=HANG&apikey=***: ";
        QTest::newRow("refused for a missing key") << "Finnhub" << "IBM" << "Finnhub: IBM: HTTP 401: the service says: Invalid";
        // clang-format on
    }
    void badAnswersFailOneSecurity()
    {
        QFETCH(QString, source);
        QFETCH(QString, ticker);
        QFETCH(QString, logged);
        Rig rig(*m_market);
        if (source == QLatin1String("Finnhub")) {
            // A source whose key went missing from its URL: the service refuses.
            for (auto& s : rig.file.sources)
                s.url.remove(QStringLiteral("&token={key}"));
        }
        // 50 MB take the demo market a moment to send, even when only 8 MB are read.
        if (ticker == QLatin1String("HUGE"))
            rig.fetcher.setTimeoutMs(20000);
        rig.order = QStringList{source, QStringLiteral("servers.dat")};
        rig.add(ticker);
        rig.add(QStringLiteral("IBM"));
        rig.run();
        QVERIFY(rig.last.completed);
        QVERIFY2(keys(rig.stocks).filter(QRegularExpression(QStringLiteral("^IBM:"))).size() == 1,
                 qPrintable(keys(rig.stocks).join(u' ')));
        const QString log = rig.activity();
        QVERIFY2(log.contains(QStringLiteral("Quote source ")) && log.contains(logged), qPrintable(log));
        QVERIFY(!log.contains(kKey));
    }

private:
    support::MockClock m_marketClock{QDateTime(QDate(2026, 11, 20), QTime(15, 30, 0))};
    std::unique_ptr<sim::DemoMarketThread> m_market;
};

QTEST_GUILESS_MAIN(TestSourceCycle)
#include "test_sourcecycle.moc"
