#include "../peers/CliRun.h"
#include "TestUtil.h"

#include "core/Options.h"
#include "core/PortfolioFile.h"
#include "core/PortfolioTable.h"
#include "news/ServerFiles.h"
#include "sim/DemoMarket.h"
#include "support/Clock.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrova;

class TestQuotesCli : public QObject
{
    Q_OBJECT
private Q_SLOTS:

    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_market = std::make_unique<sim::DemoMarketThread>(m_clock, 21);
        QVERIFY(m_market->start());
        const QString data = QDir(qEnvironmentVariable("KESTROVA_SOURCE_DIR")).filePath(QStringLiteral("data"));
        QVERIFY(news::installServerFiles(m_dir.path(), data));
        QVERIFY(news::retargetDemoMarket(m_dir.path(), m_market->port()));
        m_portfolio = m_dir.filePath(QStringLiteral("watch.pgr"));
    }

    void quotesJson()
    {
        writePortfolio({"AAA", "ERR500", "BBB", "XYZ AB"});
        const Outcome o = cli({"quotes", "--json"});
        QVERIFY2(o.exitCode == 0, o.err.constData());
        const QJsonObject doc = QJsonDocument::fromJson(o.out).object();
        QCOMPARE(doc.value("requested").toInt(), 4);
        QCOMPARE(doc.value("retrieved").toInt(), 3);
        const QJsonArray stocks = doc.value("stocks").toArray();
        QCOMPARE(stocks.size(), 2);
        QCOMPARE(stocks[0].toObject().value("ticker").toString(), QStringLiteral("AAA"));
        QCOMPARE(stocks[1].toObject().value("ticker").toString(), QStringLiteral("BBB"));
        QVERIFY(stocks[0].toObject().value("alarms").toString().contains(u'H'));
        QVERIFY(stocks[1].toObject().value("alarms").toString().isEmpty());
        QVERIFY(stocks[0].toObject().value("last").toString().toDouble() > 0);
        QCOMPARE(doc.value("options").toArray().first().toObject().value("ticker").toString(), QStringLiteral("XYZAB"));
        const QJsonObject market = doc.value("market").toObject();
        QVERIFY(market.value("dow").toString().toDouble() > 1000);
        QVERIFY(market.value("pageText").toString().startsWith(QStringLiteral("DOW ")));
        QVERIFY(market.value("caption").toString().startsWith(QStringLiteral("Markets at ")));

        // The table form carries the same quotes and the count line.
        const Outcome table = cli({"quotes"});
        QCOMPARE(table.exitCode, 0);
        QVERIFY(table.out.contains("3 of 4 quotes retrieved"));
        QVERIFY(table.out.contains("XYZAB"));
        const QByteArray log = testing::readFile(m_dir.filePath(QStringLiteral("activity.txt")));
        QVERIFY(log.contains("Internet: Quotes Retrieved"));
        QVERIFY(log.contains("ERR500"));
    }

    // Every cell of the demo market's page comes out as its text and its number. The pages
    // are replayed: the market's walk depends only on its starting value and how often a ticker was
    // asked for, and FLD is asked for once.
    void jsonFields_data()
    {
        QTest::addColumn<bool>("option");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("label");
        const std::pair<const char*, const char*> cells[] = {
            {"last", "Last Trade:"},
            {"change", "Change:"},
            {"percentChg", "Pct Change:"},
            {"bid", "Bid:"},
            {"ask", "Ask:"},
            {"open", "Open:"},
            {"dayHigh", "Day High:"},
            {"dayLow", "Day Low:"},
            {"yearHigh", "52-Week High:"},
            {"yearLow", "52-Week Low:"},
            {"eps", "EPS:"},
            {"pe", "P/E:"},
            {"volume", "Volume: "},
        };
        for (const auto& [key, label] : cells)
            // clang-format off
            QTest::newRow(key) << false << key << label;
        QTest::newRow("option last") << true << "last" << "Last Trade:";
        QTest::newRow("option openInterest") << true << "openInterest" << "Open Int:";
        QTest::newRow("option volume") << true << "volume" << "Volume: ";
        // clang-format on
    }
    void jsonFields()
    {
        QFETCH(bool, option);
        QFETCH(QString, key);
        QFETCH(QString, label);
        const QJsonObject q = fieldQuote(option);
        QVERIFY(!q.isEmpty());

        sim::DemoMarket replay(m_clock, 21);
        const QString page = QString::fromLatin1(option ? replay.optionPage(".FLDAB") : replay.stockPage("FLD"));
        // A volume is written into its label ("Volume: 1234 shares"), every other figure into
        // the cell after it.
        const QRegularExpression cell(
            label == QLatin1String("Volume: ")
                ? QStringLiteral("<td>Volume: ([0-9]+) ")
                : QStringLiteral("<td>%1</td><td>([-+0-9.]+)%?</td>").arg(QRegularExpression::escape(label)));
        const QRegularExpressionMatch m = cell.match(page);
        QVERIFY2(m.hasMatch(), qPrintable(page));
        const double expected = m.captured(1).toDouble();

        QVERIFY2(q.contains(key), qPrintable(key));
        QVERIFY2(q.value(key + "Value").isDouble(), qPrintable(key + " has no number"));
        QCOMPARE(q.value(key + "Value").toDouble(), expected);
        QCOMPARE(q.value(key).toString().toDouble(), expected);
    }

    // What the page does not show: the service, the limits, the alarm state, the stamp.
    void jsonRecord()
    {
        const QJsonObject stock = fieldQuote(false);
        QCOMPARE(stock.value("name").toString(), QStringLiteral("Demo FLD Corp"));
        QCOMPARE(stock.value("type").toString(), QStringLiteral("Stock"));
        QCOMPARE(stock.value("source").toObject().value("index").toInt(), 12);
        QCOMPARE(stock.value("source").toObject().value("name").toString(), QStringLiteral("Demo Market"));
        QCOMPARE(stock.value("limits").toObject().value("high").toDouble(), 1.1);
        QVERIFY(stock.value("limits").toObject().value("low").isNull());
        const QJsonObject alarm = stock.value("alarm").toObject();
        QVERIFY(alarm.value("high").toBool());
        QVERIFY(alarm.value("new").toBool());
        QVERIFY(!alarm.value("low").toBool());
        QCOMPARE(stock.value("alarms").toString(), QStringLiteral("*H"));
        const QDateTime updated = QDateTime::fromString(stock.value("updated").toString(), Qt::ISODate);
        QCOMPARE(updated.date(), m_clock.now().date());
        QVERIFY(stock.value("update").toString().endsWith(QStringLiteral(" ET")));
        // A stock page has no open interest: "n/a" as the tables show it, null rather than 0.
        QCOMPARE(stock.value("openInterest").toString(), QStringLiteral("n/a"));
        QVERIFY(stock.value("openInterestValue").isNull());

        const QJsonObject option = fieldQuote(true);
        QCOMPARE(option.value("type").toString(), QStringLiteral("Option"));
        QCOMPARE(option.value("source").toObject().value("index").toInt(), 12);
        QVERIFY(option.value("yearHighValue").isNull());
    }

    void nothingFetchedExitsOne()
    {
        writePortfolio({"ERR500", "EMPTY"});
        const Outcome o = cli({"quotes"});
        QCOMPARE(o.exitCode, 1);
        QVERIFY(o.out.contains("0 of 2 quotes retrieved"));
        QCOMPARE(cli({"quotes", "--bogus"}).exitCode, 2);
    }

    void serversList()
    {
        const Outcome o = cli({"servers"});
        QVERIFY2(o.exitCode == 0, o.err.constData());
        QVERIFY(o.out.contains("Stock quote servers (13):"));
        QVERIFY(o.out.contains("ESI (U.K. Mkt)"));
        QVERIFY(o.out.contains(QStringLiteral("127.0.0.1:%1/stock?t=").arg(m_market->port()).toLatin1()));
        QVERIFY(o.out.contains("Option quote servers ("));
    }

    void sourcesTestShowsTheFields()
    {
        // Every shipped source pointed at the demo market, which answers in their shapes.
        const QString file = m_dir.filePath(QStringLiteral("sources.json"));
        QString text = QString::fromUtf8(testing::readFile(file));
        for (const char* host : {"https://stooq.com", "https://query1.finance.yahoo.com", "https://www.alphavantage.co",
                                 "https://finnhub.io"})
            text.replace(QLatin1String(host), m_market->baseUrl());
        testing::writeFile(file, text.toUtf8());
        writePortfolio({"IBM"});

        const QByteArray key = "k3y-s3cret";
        QCOMPARE(cli({"options", "set", "sources.key.alphavantage", "-"}, key + "\n").exitCode, 0);
        QCOMPARE(cli({"options", "get", "sources.key.alphavantage"}).out.trimmed(), QByteArray("***"));
        // No secret service here: the key is in the user's private secrets folder, not in the settings.
        QCOMPARE(testing::readFile(m_dir.filePath(QStringLiteral("config/Kestrova/secrets/SourceKey_alphavantage"))),
                 key);
        QVERIFY(!testing::readFile(m_dir.filePath(QStringLiteral("config/Kestrova/Kestrova.ini"))).contains(key));
        QCOMPARE(cli({"options", "set", "fetch.host_connections", "99"}).exitCode, 2);

        const Outcome all = cli({"sources", "test", "IBM"});
        QVERIFY2(all.exitCode == 0, all.out.constData());
        const QString out = QString::fromUtf8(all.out);
        QVERIFY(out.contains(QStringLiteral("Stooq: %1/q/l/?s=ibm.us&").arg(m_market->baseUrl())));
        QVERIFY(out.contains(QStringLiteral("&apikey=***\n")));
        QVERIFY(out.contains(QStringLiteral("Finnhub: needs a key: kestrova-cli options set sources.key.finnhub -")));
        QCOMPARE(out.count(QStringLiteral("  priced ")), 5);
        QVERIFY(out.contains(QRegularExpression(QStringLiteral("\n    last +[0-9]+\\.[0-9]+\n"))));
        QVERIFY(out.contains(QRegularExpression(QStringLiteral("\n    bid +not mapped\n"))));
        QVERIFY(out.contains(QRegularExpression(QStringLiteral("\n    name +Demo IBM Corp\n"))));
        QVERIFY(!all.out.contains(key) && !all.err.contains(key));
        QVERIFY(!testing::readFile(m_dir.filePath(QStringLiteral("activity.txt"))).contains(key));

        const Outcome missing = cli({"sources", "test", "Yahoo", "NOVOL"});
        QCOMPARE(missing.exitCode, 0);
        QVERIFY(missing.out.contains("    volume         missing from the answer\n"));
        const Outcome unknown = cli({"sources", "test", "stooq", "NODATA"});
        QCOMPARE(unknown.exitCode, 1);
        QVERIFY(unknown.out.contains("  no price for nodata.us: no data (N/D)\n"));

        const Outcome list = cli({"sources", "list"});
        QVERIFY(list.out.contains("Order: servers.dat\n"));
        QVERIFY(list.out.contains("Finnhub          json, needs a key (sources.key.finnhub)"));
        QVERIFY(list.out.contains("Alpha Vantage    json, key set"));
        QVERIFY(list.out.contains("Stooq            csv, 50 a request"));
    }

    void quotesNameTheirSource()
    {
        writePortfolio({"IBM", "NODATA", "XYZ AB"}, QStringLiteral("Demo CSV,servers.dat"));
        const Outcome o = cli({"quotes", "--json"});
        QVERIFY2(o.exitCode == 0, o.err.constData());
        QStringList got;
        const QJsonObject doc = QJsonDocument::fromJson(o.out).object();
        for (const char* set : {"stocks", "options"}) {
            for (const QJsonValue& q : doc.value(QLatin1String(set)).toArray())
                got << q.toObject().value("ticker").toString() + u':' +
                           q.toObject().value("source").toObject().value("name").toString() + u':' +
                           q.toObject().value("source").toObject().value("index").toVariant().toString();
        }
        // A source of sources.json has no service number; a servers.dat page keeps its own.
        QCOMPARE(got, (QStringList{"IBM:Demo CSV:", "NODATA:Demo Market:12", "XYZAB:Demo Market:12"}));
        QVERIFY(testing::readFile(m_dir.filePath(QStringLiteral("activity.txt")))
                    .contains("Quote source Demo CSV: NODATA: no data (N/D)"));
        QVERIFY(QFile::exists(m_dir.filePath(QStringLiteral("sources.state"))));
    }

    // A CSV source that gives neither a change nor a previous close: the change is not
    // known, so it is null in the document, not "0.00" beside a previous close of "n/a".
    void unknownChangeIsNull()
    {
        const QString file = m_dir.filePath(QStringLiteral("sources.json"));
        const QByteArray kept = testing::readFile(file);
        const QByteArray bare = R"({"sources": [
{"name": "Bare CSV", "format": "csv", "url": "BASE/q/l/?s={symbols}&f=sd2t2ohlcvn&h&e=csv",
 "batch": {"separator": "+"}, "symbols": {"case": "lower", "suffix": ".us"}, "match": "Symbol",
 "fields": {"name": "Name", "last": "Close", "volume": "Volume"}}]})";
        testing::writeFile(file, QByteArray(bare).replace("BASE", m_market->baseUrl().toLatin1()));
        writePortfolio({"IBM"}, QStringLiteral("Bare CSV"));
        const Outcome o = cli({"quotes", "--json"});
        testing::writeFile(file, kept);
        QVERIFY2(o.exitCode == 0, o.err.constData());
        const QJsonObject ibm = QJsonDocument::fromJson(o.out).object().value("stocks").toArray().first().toObject();
        QCOMPARE(ibm.value("source").toObject().value("name").toString(), QStringLiteral("Bare CSV"));
        QVERIFY(ibm.value("lastValue").toDouble() > 0);
        QCOMPARE(ibm.value("previousClose").toString(), QStringLiteral("n/a"));
        QVERIFY2(ibm.value("change").isNull(), qPrintable(ibm.value("change").toVariant().toString()));
        QVERIFY(ibm.value("changeValue").isNull());
        QCOMPARE(ibm.value("percentChg").toString(), QStringLiteral("n/a"));
        QVERIFY(ibm.value("percentChgValue").isNull());
    }

    // The market page is gone: the indices come through the sources of the failure order,
    // with their changes worked out from the previous close the CSV source gives.
    void marketThroughTheSources()
    {
        writePortfolio({"IBM"}, QStringLiteral("Demo CSV,servers.dat"),
                       QStringLiteral("http://127.0.0.1:%1/gone").arg(testing::freePort()));
        const Outcome o = cli({"quotes", "--json"});
        QVERIFY2(o.exitCode == 0, o.err.constData());
        const QJsonObject market = QJsonDocument::fromJson(o.out).object().value("market").toObject();
        QVERIFY2(!market.isEmpty(), o.out.constData());
        for (const char* level : {"dow", "nasdaq", "sp500"})
            QVERIFY2(market.value(QLatin1String(level)).toString().toDouble() > 500, level);
        static const QRegularExpression summary(
            QStringLiteral(R"(^DOW \d+\.\d\d[+-]\d+\.\d, NASD \d+\.\d\d[+-]\d+\.\d, SP500 \d+\.\d\d[+-]\d+\.\d, $)"));
        QVERIFY2(summary.match(market.value("pageText").toString()).hasMatch(),
                 qPrintable(market.value("pageText").toString()));
    }

private:
    struct Outcome
    {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };
    // kestrova-cli on this test's data folder and portfolio, its settings under the folder too.
    Outcome cli(const QStringList& args, const QByteArray& input = {})
    {
        const testing::CliRun r = testing::runCli(
            m_dir, QStringList{"--data-dir", m_dir.path(), "--portfolio", m_portfolio} + args, 60000, input);
        return {r.code, r.out.toUtf8(), r.err.toUtf8()};
    }
    void writePortfolio(const QStringList& tickers, const QString& order = QStringLiteral("servers.dat"),
                        const QString& marketUrl = {});
    QJsonObject fieldQuote(bool option);

    support::MockClock m_clock;
    std::unique_ptr<sim::DemoMarketThread> m_market;
    QTemporaryDir m_dir;
    QString m_portfolio;
    QJsonObject m_fieldDoc;
};

void TestQuotesCli::writePortfolio(const QStringList& tickers, const QString& order, const QString& marketUrl)
{
    core::PortfolioTable table;
    core::Options options;
    options.quotes.server = 12;
    options.sources.order = order;
    options.quotes.marketSummary = true;
    options.quotes.marketUrl =
        marketUrl.isEmpty() ? m_market->baseUrl() + QStringLiteral("/cgi-bin/getquote.dll?ticker=csco") : marketUrl;
    for (const QString& t : tickers) {
        core::PortfolioRecord& r = table.records[size_t(table.count++)];
        r.ticker = t;
        r.digits = 2;
        if (t.contains(u' ')) {
            r.securityType = 1;
            r.server = 12;
        }
        if (t == QLatin1String("AAA") || t == QLatin1String("FLD"))
            r.highLimit = 1.1F; // any demo price is above it
    }
    QVERIFY(core::PortfolioFile::write(m_portfolio, table, options).ok());
}

// The quote of FLD (a stock with a high limit of 1) or of its option from one `quotes
// --json` run, made once for every row.
QJsonObject TestQuotesCli::fieldQuote(bool option)
{
    if (m_fieldDoc.isEmpty()) {
        writePortfolio({"FLD", "FLD AB"});
        const Outcome o = cli({"quotes", "--json"});
        if (o.exitCode != 0)
            qWarning("%s", o.err.constData());
        m_fieldDoc = QJsonDocument::fromJson(o.out).object();
    }
    return m_fieldDoc.value(option ? "options" : "stocks").toArray().first().toObject();
}

QTEST_GUILESS_MAIN(TestQuotesCli)
#include "test_quotescli.moc"
