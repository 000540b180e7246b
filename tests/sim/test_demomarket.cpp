#include "core/Quote.h"
#include "quotes/BuiltInServers.h"
#include "quotes/CurlFetcher.h"
#include "quotes/MarkupText.h"
#include "quotes/Qserver.h"
#include "quotes/ServersDat.h"
#include "sim/DemoMarket.h"
#include "support/Clock.h"
#include "support/Format.h"

#include "TestHost.h"

#include <QElapsedTimer>
#include <QTcpSocket>
#include <QtTest>

#include <memory>
#include <vector>

using kestrova::sim::DemoMarket;
using kestrova::sim::DemoMarketThread;
using kestrova::support::leadingNumber;
using kestrova::support::MockClock;

namespace {

struct Reply
{
    bool answered = false; // a status line came back
    bool closed = false;   // the server closed the connection
    int status = 0;
    qint64 contentLength = -1;
    QByteArray body;
};

Reply parse(const QByteArray& raw, bool closed)
{
    Reply r;
    r.closed = closed;
    const qsizetype headEnd = raw.indexOf("\r\n\r\n");
    if (headEnd < 0) {
        return r;
    }
    r.answered = true;
    const QList<QByteArray> lines = raw.left(headEnd).split('\n');
    r.status = lines.value(0).split(' ').value(1).toInt();
    for (const QByteArray& l : lines) {
        if (l.toLower().startsWith("content-length:")) {
            r.contentLength = l.mid(15).trimmed().toLongLong();
        }
    }
    r.body = raw.mid(headEnd + 4);
    return r;
}

// One answer per connection, as the fault rows want to see the connection end.
QByteArray request(const QByteArray& target, bool close = true)
{
    return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: test\r\n" +
           (close ? QByteArray("Connection: close\r\n") : QByteArray()) + "\r\n";
}

// Reads until the server closes or the time is up.
Reply finish(QTcpSocket& s, int timeoutMs)
{
    QByteArray raw;
    QElapsedTimer t;
    t.start();
    while (s.state() == QAbstractSocket::ConnectedState && t.elapsed() < timeoutMs) {
        s.waitForReadyRead(static_cast<int>(std::max<qint64>(1, timeoutMs - t.elapsed())));
        raw += s.readAll();
    }
    raw += s.readAll();
    return parse(raw, s.state() != QAbstractSocket::ConnectedState);
}

Reply get(quint16 port, const QByteArray& target, int timeoutMs = 5000, const QByteArray& raw = {})
{
    QTcpSocket s;
    s.connectToHost(QHostAddress::LocalHost, port);
    if (!s.waitForConnected(3000)) {
        return {};
    }
    s.write(raw.isEmpty() ? request(target) : raw);
    s.waitForBytesWritten(3000);
    return finish(s, timeoutMs);
}

QString shipped(const QString& name)
{
    return qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/data/") + name;
}

double num(const QString& text)
{
    return leadingNumber(text);
}

} // namespace

class TestDemoMarket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_market = std::make_unique<DemoMarketThread>(m_clock, 7);
        QVERIFY(m_market->start());
        QVERIFY(m_market->port() != 0);
        QCOMPARE(kestrova::quotes::readServersDat(shipped("servers.dat"), m_defs, {}).error, 0);
    }

    void pageTypes_data()
    {
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<QByteArray>("marker");
        QTest::newRow("stock") << QByteArray("/stock?t=IBM") << QByteArray("<td>Last Trade:</td>");
        QTest::newRow("option with dot") << QByteArray("/option?t=.XYZAB") << QByteArray("<td>Open Int:</td>");
        QTest::newRow("option with encoded plus")
            << QByteArray("/option?t=%2bXYZAB") << QByteArray("Demo option XYZAB");
        QTest::newRow("labelled") << QByteArray("/labelled?t=IBM") << QByteArray("<td>LAST:</td>");
        QTest::newRow("index") << QByteArray("/index") << QByteArray("<td>S&P 500<td>");
        QTest::newRow("market page address")
            << QByteArray("/cgi-bin/getquote.dll?ticker=csco") << QByteArray("<td>NASDAQ<td>");
        QTest::newRow("news") << QByteArray("/news?t=IBM") << QByteArray("<li class=story><b class=hl>IBM: ");
        // The latest-quote CSV has the columns its field letters ask for, in their order.
        QTest::newRow("csv with the previous close")
            << QByteArray("/q/l/?s=ibm.us&f=sd2t2ohlcvnp&h&e=csv")
            << QByteArray("Symbol,Date,Time,Open,High,Low,Close,Volume,Name,Prev\r\nIBM.US,");
        QTest::newRow("csv letters in another order")
            << QByteArray("/q/l/?s=ibm.us+nodata.us&f=spc&h&e=csv") << QByteArray("Symbol,Prev,Close\r\nIBM.US,");
        QTest::newRow("csv row without data") << QByteArray("/q/l/?s=nodata.us&f=spc&h&e=csv")
                                              << QByteArray("Symbol,Prev,Close\r\nNODATA.US,N/D,N/D\r\n");
        QTest::newRow("lower-case ticker") << QByteArray("/stock?t=ibm") << QByteArray("Demo IBM Corp");
    }

    void pageTypes()
    {
        QFETCH(QByteArray, target);
        QFETCH(QByteArray, marker);
        const int before = m_market->market()->requestCount();
        const Reply r = get(m_market->port(), target);
        QVERIFY(r.answered);
        QCOMPARE(r.status, 200);
        QVERIFY(r.closed);
        QCOMPARE(r.contentLength, qint64(r.body.size()));
        QVERIFY2(r.body.contains(marker), r.body.constData());
        QCOMPARE(m_market->market()->requestCount(), before + 1);
    }

    // The shipped "Demo Market" definitions read every field they offer from the stock and
    // option pages; the labelled layout is what the built-in service 11 parser reads.
    void pagesFillQuotes_data()
    {
        QTest::addColumn<bool>("labelled");
        QTest::addColumn<QString>("ticker");
        QTest::addColumn<int>("type");
        QTest::newRow("stock") << false << "IBM" << 0;
        QTest::newRow("option") << false << ".XYZAB" << 1;
        QTest::newRow("labelled stock") << true << "IBM" << 0;
        QTest::newRow("labelled option") << true << "+XYZAB" << 1;
    }
    void pagesFillQuotes()
    {
        QFETCH(bool, labelled);
        QFETCH(QString, ticker);
        QFETCH(int, type);
        DemoMarket market(m_clock, 3);
        kestrova::core::Quote q;
        q.setDigits(labelled ? 3 : 2);
        q.setSecurityType(qint16(type));
        if (labelled) {
            kestrova::quotes::Qserver server;
            server.setServerName(m_builtIn.at(kestrova::quotes::BuiltInServers::kLabelledPage).name);
            QVERIFY(server.fillQuote(q, {market.labelledPage(ticker)}, ctx()));
        } else {
            const kestrova::quotes::PageBody body{type ? market.optionPage(ticker) : market.stockPage(ticker)};
            const auto server = (type ? m_defs.option : m_defs.stock).Item(QStringLiteral("Demo Market"));
            QVERIFY(server->fillQuote(q, body, ctx()));
        }
        const QString bare = ticker.mid(type ? 1 : 0);
        QCOMPARE(q.name(), type ? QString("Demo option " + bare) : QString("Demo " + bare + " Corp"));
        for (const QString& p : {q.last(), q.bid(), q.ask(), q.openPrice(), q.dayHigh(), q.dayLow()}) {
            QVERIFY2(p != "???" && p != "n/a" && num(p) > 0, qPrintable(p));
            if (labelled) {
                QCOMPARE(std::fmod(num(p) * 8, 1.0), 0.0); // eighths converted to decimals
            }
        }
        QVERIFY(num(q.bid()) < num(q.ask()));
        QVERIFY(q.volume().toLongLong() > 0);
        if (type) {
            QVERIFY(q.openInterest().toInt() > 0);
        }
        if (labelled) {
            QVERIFY(!q.update().isEmpty());
            QCOMPARE(q.percentChg(), QStringLiteral("n/a"));
            return;
        }
        QVERIFY(num(q.previousClose()) > 0);
        QVERIFY(num(q.dayLow()) <= num(q.last()) && num(q.last()) <= num(q.dayHigh()));
        // The change on the page is last minus previous close, with its sign.
        const double change = q.change().toDouble();
        QVERIFY(qAbs(change - (num(q.last()) - num(q.previousClose()))) < 0.011);
        QVERIFY(qAbs(q.percentChg().toDouble() - change * 100 / num(q.previousClose())) < 0.02);
        QCOMPARE(q.updateDate().date(), m_clock.today());
        if (type) {
            QCOMPARE(q.eps(), QStringLiteral("n/a"));
        } else {
            QVERIFY(num(q.eps()) > 0);
            QVERIFY(num(q.pe()) > 0);
            QVERIFY(num(q.yearLow()) <= num(q.last()) && num(q.last()) <= num(q.yearHigh()));
        }
    }

    void walkIsDeterministicPerSeedAndTicker()
    {
        auto lastOf = [](const QByteArray& page) {
            const QString tabs = kestrova::quotes::markupToTabs(QString::fromLatin1(page));
            return kestrova::quotes::Qserver::FindKey(QStringLiteral("Last Trade:"), 2, tabs);
        };
        DemoMarket a(m_clock, 11);
        DemoMarket b(m_clock, 11);
        DemoMarket c(m_clock, 12);
        QStringList seqA;
        QStringList seqB;
        QStringList seqC;
        for (int i = 0; i < 6; ++i) {
            seqA << lastOf(a.stockPage(QStringLiteral("IBM")));
            // Other tickers asked for in between do not disturb IBM's walk.
            b.stockPage(QStringLiteral("MSFT"));
            b.labelledPage(QStringLiteral("T"));
            seqB << lastOf(b.stockPage(QStringLiteral("IBM")));
            seqC << lastOf(c.stockPage(QStringLiteral("IBM")));
        }
        QCOMPARE(seqB, seqA);
        QVERIFY(seqC != seqA);
        // The price moves between requests.
        QVERIFY(QSet<QString>(seqA.begin(), seqA.end()).size() > 1);
        // The walk is per ticker: a ticker's first page does not depend on what came before.
        DemoMarket d(m_clock, 11);
        QCOMPARE(lastOf(d.stockPage(QStringLiteral("IBM"))), seqA.first());
    }

    // Pages that fail on purpose, and requests no server should answer with a page. Either way
    // the connection ends as the row says and the market goes on serving.
    void faults_data()
    {
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<QByteArray>("raw"); // sent as it is instead of a GET of target
        QTest::addColumn<bool>("answered");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("fullBody");
        const QByteArray get;
        // clang-format off
        QTest::newRow("500") << QByteArray("/stock?t=ERR500") << get << true << 500 << true;
        QTest::newRow("500 for an option") << QByteArray("/option?t=%2bERR500") << get << true << 500 << true;
        QTest::newRow("empty body") << QByteArray("/stock?t=EMPTY") << get << true << 200 << true;
        QTest::newRow("cut mid-body") << QByteArray("/stock?t=CUT") << get << true << 200 << false;
        QTest::newRow("cut news") << QByteArray("/news?t=CUT") << get << true << 200 << false;
        QTest::newRow("never answers") << QByteArray("/stock?t=HANG") << get << false << 0 << false;
        QTest::newRow("unknown page") << QByteArray("/nowhere?t=IBM") << get << true << 404 << true;
        QTest::newRow("not http") << QByteArray() << QByteArray("HELLO\r\n\r\n") << true << 400 << true;
        QTest::newRow("post") << QByteArray() << QByteArray("POST /stock?t=IBM HTTP/1.1\r\nContent-Length: 0\r\n\r\n") << true << 400 << true;
        QTest::newRow("head never ends") << QByteArray() << QByteArray(20000, 'x') << true << 400 << true;
        QTest::newRow("binary noise") << QByteArray() << QByteArray("\x00\x01\xff\xfe\r\n\r\n", 8) << true << 400 << true;
        // clang-format on
    }

    void faults()
    {
        QFETCH(QByteArray, target);
        QFETCH(QByteArray, raw);
        QFETCH(bool, answered);
        QFETCH(int, status);
        QFETCH(bool, fullBody);
        const Reply r = get(m_market->port(), target, answered ? 5000 : 600, raw);
        QCOMPARE(r.answered, answered);
        if (!answered) {
            QVERIFY(!r.closed); // still open, still silent
            return;
        }
        QCOMPARE(r.status, status);
        if (raw.isEmpty()) {
            QVERIFY(r.closed);
            QCOMPARE(r.contentLength == r.body.size(), fullBody);
        }
        if (target.contains("EMPTY")) {
            QCOMPARE(r.contentLength, qint64(0));
        }
        if (!fullBody) {
            QVERIFY(r.body.size() > 0);
            QVERIFY(r.body.size() < r.contentLength);
        }
        QCOMPARE(get(m_market->port(), "/stock?t=IBM").status, 200);
    }

    // 60 requests with 100 ms latency each wait side by side. The check is functional (all
    // were pending at once); the time bound is only there to catch a server that answers one
    // request after another (6 s), the speed target itself lives in the benchmark.
    void latencyDoesNotSerialise()
    {
        DemoMarketThread slow(m_clock, 5, 100);
        QVERIFY(slow.start());
        std::vector<std::unique_ptr<QTcpSocket>> sockets;
        QElapsedTimer t;
        t.start();
        for (int i = 0; i < 60; ++i) {
            auto s = std::make_unique<QTcpSocket>();
            s->connectToHost(QHostAddress::LocalHost, slow.port());
            QVERIFY(s->waitForConnected(3000));
            sockets.push_back(std::move(s));
        }
        for (size_t i = 0; i < sockets.size(); ++i) {
            sockets[i]->write(request("/stock?t=T" + QByteArray::number(qulonglong(i))));
            sockets[i]->flush();
        }
        int ok = 0;
        for (auto& s : sockets) {
            const Reply r = finish(*s, 5000);
            ok += r.status == 200 && r.contentLength == r.body.size() ? 1 : 0;
        }
        const qint64 elapsed = t.elapsed();
        QCOMPARE(ok, 60);
        QCOMPARE(slow.market()->requestCount(), 60);
        // A server that answered one at a time would never have more than one waiting; a busy
        // machine may let the first few finish before the last arrive.
        QVERIFY2(slow.market()->maxPending() >= 45, qPrintable(QString::number(slow.market()->maxPending())));
        QVERIFY2(elapsed < 3000, qPrintable(QString::number(elapsed)));
    }

    // Requests sent one after the other on one connection are answered in order on it, and
    // the connection stays open until the client asks to close it.
    void keepsConnectionsOpen()
    {
        const int connectionsBefore = m_market->market()->connectionCount();
        const Reply r = get(m_market->port(), {}, 5000,
                            request("/stock?t=AAA", false) + request("/q/l/?s=aaa.us&h&e=csv", false) +
                                request("/news?t=AAA", true));
        QVERIFY(r.answered);
        QVERIFY(r.closed);
        QCOMPARE(r.body.count("HTTP/1.1 200 OK"), 2); // the second and third answers follow the first body
        QVERIFY(r.body.contains("Symbol,Date,Time,Open,High,Low,Close,Volume,Name\r\nAAA.US,"));
        QVERIFY(r.body.contains("Connection: keep-alive"));
        QVERIFY(r.body.endsWith("</html>\r\n"));
        QCOMPARE(m_market->market()->connectionCount(), connectionsBefore + 1);
    }

    // Stopping the market while one connection waits forever (HANG), one waits for its latency
    // and one has sent half a request closes all three.
    void stopsWithRequestsOutstanding()
    {
        auto market = std::make_unique<DemoMarketThread>(m_clock, 5, 5000);
        QVERIFY(market->start());
        std::vector<std::unique_ptr<QTcpSocket>> sockets;
        for (const QByteArray& raw : {request("/stock?t=HANG"), request("/stock?t=IBM"), QByteArray("GET /sto")}) {
            auto s = std::make_unique<QTcpSocket>();
            s->connectToHost(QHostAddress::LocalHost, market->port());
            QVERIFY(s->waitForConnected(3000));
            s->write(raw);
            QVERIFY(s->waitForBytesWritten(3000));
            sockets.push_back(std::move(s));
        }
        QTRY_COMPARE_WITH_TIMEOUT(market->market()->requestCount(), 2, 3000);
        market.reset();
        for (auto& s : sockets) {
            const Reply r = finish(*s, 3000);
            QVERIFY(r.closed);
            QVERIFY(!r.answered);
        }
    }

private:
    MockClock m_clock{QDateTime(QDate(2026, 11, 23), QTime(10, 5))};
    std::unique_ptr<DemoMarketThread> m_market;
    kestrova::quotes::ServerDefinitions m_defs;
    kestrova::testing::TestHost m_host;
    kestrova::quotes::CurlFetcher m_fetcher{m_host};
    const kestrova::quotes::BuiltInServers m_builtIn;
    kestrova::quotes::ScrapeContext ctx() { return {m_fetcher, m_builtIn, m_clock, m_host}; }
};

QTEST_GUILESS_MAIN(TestDemoMarket)
#include "test_demomarket.moc"
