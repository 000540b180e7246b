// The symbol look-up: each symbol asked of the sources in the failure order and reported as
// soon as one priced it, in the background (the asking thread's event loop never waits),
// cancellable; and its command, kestrova-cli sources lookup.
#include "TestUtil.h"

#include "../peers/CliRun.h"
#include "quotes/SymbolLookup.h"
#include "sim/DemoMarket.h"
#include "sim/DemoMarketServer.h"
#include "support/Clock.h"

#include <QDir>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace kestrova;

namespace {

// The shipped definitions, every service's address replaced by the demo market, which
// answers on the same paths in the same shapes; the failure order as given.
QByteArray sourcesAt(const QString& base, const QStringList& order)
{
    QString text =
        QString::fromUtf8(testing::readFile(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data/sources.json"));
    for (const char* host : {"https://stooq.com", "https://query1.finance.yahoo.com", "https://www.alphavantage.co",
                             "https://finnhub.io", "http://127.0.0.1:8099"})
        text.replace(QLatin1String(host), base);
    text.replace(QRegularExpression(QStringLiteral("\"order\": \\[[^\\]]*\\]")),
                 QStringLiteral("\"order\": [\"%1\"]").arg(order.join(QStringLiteral("\", \""))));
    return text.toUtf8();
}

quotes::LookupSetup setupAt(const QString& base, const QStringList& order)
{
    quotes::LookupSetup s;
    s.sources = quotes::parseSourcesJson(sourcesAt(base, order));
    // A source nobody answers for: its port is closed.
    quotes::SourceDefinition dead = *s.sources.find(QStringLiteral("Stooq"));
    dead.name = QStringLiteral("Dead");
    dead.url.replace(base, QStringLiteral("http://127.0.0.1:%1").arg(testing::freePort()));
    s.sources.sources.push_back(dead);
    s.order = order;
    s.stockServer = sim::demoMarketServer(base, false);
    s.optionServer = sim::demoMarketServer(base, true);
    s.optionServerIndex = quotes::BuiltInServers::kDemoMarket;
    s.timeoutMs = 3000;
    return s;
}

// Every result in the order the symbols were asked.
QStringList inOrder(const QStringList& asked, const QList<quotes::LookupResult>& got)
{
    QStringList out;
    for (const QString& s : asked) {
        for (const quotes::LookupResult& r : got) {
            if (r.symbol == s)
                out << s + u' ' + (r.known ? r.source : QStringLiteral("-"));
        }
    }
    return out;
}

} // namespace

class TestSymbolLookup : public QObject
{
    Q_OBJECT

    support::SystemClock m_clock;

private Q_SLOTS:
    void eachSymbolFromTheFirstSourceThatPricesIt_data()
    {
        QTest::addColumn<QStringList>("order");
        QTest::addColumn<QStringList>("symbols");
        QTest::addColumn<int>("type");
        QTest::addColumn<QStringList>("keys"); // sources that have their key
        QTest::addColumn<QStringList>("resting");
        QTest::addColumn<QStringList>("found");

        const QStringList sy{"Stooq", "Yahoo"};
        QTest::newRow("the first source prices all") << sy << QStringList{"IBM", "MSFT"} << 0 << QStringList{}
                                                     << QStringList{} << QStringList{"IBM Stooq", "MSFT Stooq"};
        QTest::newRow("no source knows it") << sy << QStringList{"NODATA1", "IBM"} << 0 << QStringList{}
                                            << QStringList{} << QStringList{"NODATA1 -", "IBM Stooq"};
        QTest::newRow("a source that does not answer") << QStringList{"Dead", "Yahoo"} << QStringList{"IBM"} << 0
                                                       << QStringList{} << QStringList{} << QStringList{"IBM Yahoo"};
        QTest::newRow("an option: a source that takes none is passed over")
            << sy << QStringList{"IBM"} << 1 << QStringList{} << QStringList{} << QStringList{"IBM Yahoo"};
        QTest::newRow("servers.dat last") << QStringList{"Stooq", "servers.dat"} << QStringList{"NODATA2"} << 0
                                          << QStringList{} << QStringList{} << QStringList{"NODATA2 Demo Market"};
        QTest::newRow("a source without its key is passed over")
            << QStringList{"Alpha Vantage", "Yahoo"} << QStringList{"IBM"} << 0 << QStringList{} << QStringList{}
            << QStringList{"IBM Yahoo"};
        QTest::newRow("with its key it is asked")
            << QStringList{"Alpha Vantage", "Yahoo"} << QStringList{"IBM"} << 0 << QStringList{"Alpha Vantage"}
            << QStringList{} << QStringList{"IBM Alpha Vantage"};
        QTest::newRow("a resting source is passed over")
            << sy << QStringList{"IBM"} << 0 << QStringList{} << QStringList{"Stooq"} << QStringList{"IBM Yahoo"};
    }
    void eachSymbolFromTheFirstSourceThatPricesIt()
    {
        QFETCH(QStringList, order);
        QFETCH(QStringList, symbols);
        QFETCH(int, type);
        QFETCH(QStringList, keys);
        QFETCH(QStringList, resting);
        QFETCH(QStringList, found);
        sim::DemoMarket market(m_clock, 5);
        QVERIFY(market.listen());
        quotes::LookupSetup setup = setupAt(market.baseUrl(), order);
        for (const QString& k : keys)
            setup.keys.insert(k, QStringLiteral("k-123"));
        for (const QString& r : resting)
            setup.resting.insert(r);
        quotes::SymbolLookup lookup(setup);
        QList<quotes::LookupResult> got;
        connect(&lookup, &quotes::SymbolLookup::resolved, this, [&](const quotes::LookupResult& r) { got << r; });
        QSignalSpy idle(&lookup, &quotes::SymbolLookup::idle);
        lookup.lookUp(symbols, qint16(type));
        QVERIFY(lookup.busy());
        QVERIFY(idle.wait(15000));
        QVERIFY(!lookup.busy());
        QCOMPARE(inOrder(symbols, got), found);
        QCOMPARE(got.size(), symbols.size());
        // What the user reads: the name (when the source gives one) and the price with the
        // source, or the warning.
        static const QRegularExpression knownText(QStringLiteral("^\\S+( \u2014 Demo .+)?, \\d+\\.\\d\\d \\(.+\\)$"));
        for (const quotes::LookupResult& r : got) {
            const QString text = quotes::lookupText(r);
            if (r.known)
                QVERIFY2(knownText.match(text).hasMatch(), qPrintable(text));
            else
                QCOMPARE(text, r.symbol + QStringLiteral(": no source knows this symbol"));
        }
    }

    // The asking never holds up the caller's event loop: a timer keeps ticking throughout,
    // and the market answering from this very thread gets its turn.
    void theEventLoopKeepsRunning()
    {
        sim::DemoMarket market(m_clock, 5);
        market.setLatencyMs(300);
        QVERIFY(market.listen());
        quotes::SymbolLookup lookup(setupAt(market.baseUrl(), {QStringLiteral("Yahoo")}));
        int ticks = 0;
        QTimer timer;
        timer.setInterval(10);
        connect(&timer, &QTimer::timeout, this, [&] { ++ticks; });
        int resolved = 0;
        int ticksAtFirst = -1;
        connect(&lookup, &quotes::SymbolLookup::resolved, this, [&] {
            if (resolved++ == 0)
                ticksAtFirst = ticks;
        });
        QSignalSpy idle(&lookup, &quotes::SymbolLookup::idle);
        timer.start();
        QStringList ten;
        for (int i = 0; i < 10; ++i)
            ten << QStringLiteral("S%1").arg(i);
        lookup.lookUp(ten);
        QVERIFY(idle.wait(20000));
        QCOMPARE(resolved, 10);
        // 300 ms before the first answer could come: some thirty ticks, never none.
        QVERIFY2(ticksAtFirst >= 10, qPrintable(QString::number(ticksAtFirst)));
    }

    // Cancel drops what is in flight at once (a service that never answers included) and
    // nothing more is reported for it; the next look-up works as before.
    void cancelDropsWhatIsAsked()
    {
        sim::DemoMarket market(m_clock, 5);
        QVERIFY(market.listen());
        auto lookup = std::make_unique<quotes::SymbolLookup>(setupAt(market.baseUrl(), {QStringLiteral("Yahoo")}));
        QList<quotes::LookupResult> got;
        connect(lookup.get(), &quotes::SymbolLookup::resolved, this, [&](const quotes::LookupResult& r) { got << r; });
        lookup->lookUp({QStringLiteral("HANG")});
        QTRY_VERIFY(market.targets().join(u' ').contains(QStringLiteral("HANG")));
        lookup->cancel();
        QVERIFY(!lookup->busy());
        QTest::qWait(300);
        QVERIFY(got.isEmpty());

        QSignalSpy idle(lookup.get(), &quotes::SymbolLookup::idle);
        lookup->lookUp({QStringLiteral("IBM")});
        QVERIFY(idle.wait(10000));
        QCOMPARE(inOrder({QStringLiteral("IBM")}, got), QStringList{QStringLiteral("IBM Yahoo")});

        // Gone while a transfer hangs: the object goes at once, not after the time-out.
        lookup->lookUp({QStringLiteral("HANG")});
        QTRY_COMPARE(market.targets().join(u' ').count(QStringLiteral("HANG")), 2);
        lookup.reset();
    }

    void command_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("lines"); // patterns, in order

        const QString known = QStringLiteral("^%1 \u2014 Demo %1 .*, \\d+\\.\\d\\d \\(Stooq\\)$");
        QTest::newRow("known and unknown, in the order given")
            << QStringList{"IBM", "NODATA1", "msft"} << 1
            << QStringList{known.arg("IBM"), "^NODATA1: no source knows this symbol$", known.arg("MSFT")};
        QTest::newRow("commas, each once")
            << QStringList{"IBM,MSFT", "ibm"} << 0 << QStringList{known.arg("IBM"), known.arg("MSFT")};
        QTest::newRow("no symbol") << QStringList{} << 2 << QStringList{};
    }
    void command()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QStringList, lines);
        sim::DemoMarketThread market(m_clock, 5);
        QVERIFY(market.start());
        QTemporaryDir dir;
        const QString data = dir.filePath(QStringLiteral("data"));
        QDir().mkpath(data);
        testing::writeFile(QDir(data).filePath(QStringLiteral("sources.json")),
                           sourcesAt(market.baseUrl(), {QStringLiteral("Stooq"), QStringLiteral("Yahoo")}));
        const testing::CliRun r = testing::runCli(
            dir, QStringList{QStringLiteral("--data-dir"), data, QStringLiteral("sources"), QStringLiteral("lookup")} +
                     args);
        // What the command said, should it end otherwise than expected.
        QVERIFY2(r.code == code,
                 qPrintable(QStringLiteral("exit %1, expected %2\n%3%4").arg(r.code).arg(code).arg(r.out, r.err)));
        const QStringList out = r.out.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(out.size(), lines.size());
        for (int i = 0; i < lines.size(); ++i)
            QVERIFY2(QRegularExpression(lines[i]).match(out[i]).hasMatch(), qPrintable(out[i]));
    }
};

QTEST_MAIN(TestSymbolLookup)
#include "test_symbollookup.moc"
