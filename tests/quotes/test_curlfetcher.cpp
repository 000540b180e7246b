#include "HttpPeer.h"
#include "PeerProcess.h"
#include "TestHost.h"
#include "TestUtil.h"

#include "quotes/CurlFetcher.h"
#include "sim/DemoMarket.h"
#include "support/Clock.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace kestrova;

namespace {

QStringList stockUrls(const QString& base, int count, const QString& prefix = QStringLiteral("T"))
{
    QStringList urls;
    for (int i = 0; i < count; ++i)
        urls << base + QStringLiteral("/stock?t=") + prefix + QString::number(i);
    return urls;
}

// The HTTP/2 peer (tests/peers/h2_peer.py) on a free port with a throw-away certificate.
struct TlsPeer
{
    QString cert;
    QString base;
    testing::PeerProcess process;

    bool start(const QTemporaryDir& dir, const QStringList& extraArgs)
    {
        cert = dir.filePath(QStringLiteral("cert.pem"));
        if (!testing::makeLoopbackCertificate(cert, dir.filePath(QStringLiteral("key.pem"))))
            return false;
        const quint16 port = testing::freePort();
        base = QStringLiteral("https://127.0.0.1:%1").arg(port);
        process.terminateOnStop = true;
        return process.start(testing::systemPython(),
                             QStringList{QStringLiteral(KESTROVA_PEERS_DIR "/h2_peer.py"), QStringLiteral("--port"),
                                         QString::number(port), QStringLiteral("--cert"), cert, QStringLiteral("--key"),
                                         dir.filePath(QStringLiteral("key.pem"))} +
                                 extraArgs,
                             QStringLiteral("ready"));
    }
};

int nonEmpty(const QStringList& bodies)
{
    int n = 0;
    for (const QString& b : bodies)
        n += b.contains(QLatin1String("Last Trade:")) ? 1 : 0;
    return n;
}

} // namespace

class TestCurlFetcher : public QObject
{
    Q_OBJECT
private Q_SLOTS:

    void hostLimitAndReuse_data()
    {
        QTest::addColumn<int>("limit");
        QTest::addColumn<bool>("closing");
        QTest::newRow("one at a time") << 1 << false;
        QTest::newRow("three") << 3 << false;
        QTest::newRow("the default six") << quotes::CurlFetcher::kDefaultHostConnections << false;
        // An HTTP/1.0 server that closes every connection still gets its pages side by side.
        QTest::newRow("closing server, three") << 3 << true;
        QTest::newRow("closing server, the default six") << quotes::CurlFetcher::kDefaultHostConnections << true;
    }
    void hostLimitAndReuse()
    {
        QFETCH(int, limit);
        QFETCH(bool, closing);
        sim::DemoMarketThread market(m_clock, 1, 100);
        QVERIFY(market.start());
        market.market()->setCloseEveryConnection(closing);
        testing::TestHost host(&m_clock);
        quotes::CurlFetcher fetcher(host);
        fetcher.setHostConnections(limit);
        const QStringList bodies = fetcher.getMany(stockUrls(market.baseUrl(), 12));
        QCOMPARE(nonEmpty(bodies), 12);
        for (int i = 0; i < bodies.size(); ++i)
            QVERIFY2(bodies[i].contains(QStringLiteral("Demo T%1 Corp").arg(i)), qPrintable(QString::number(i)));
        QCOMPARE(market.market()->maxPending(), limit);
        // A closing server costs a connection a page; the others keep theirs open, and the
        // next round (the next update) finds them still there.
        QCOMPARE(market.market()->connectionCount(), closing ? 12 : limit);
        QCOMPARE(fetcher.connectionsOpened(), qint64(closing ? 12 : limit));
        QCOMPARE(nonEmpty(fetcher.getMany(stockUrls(market.baseUrl(), 4, QStringLiteral("U")))), 4);
        QCOMPARE(market.market()->connectionCount(), closing ? 16 : limit);
        QCOMPARE(market.market()->requestCount(), 16);
    }

    void http2SharesOneConnection()
    {
        QTemporaryDir dir;
        TlsPeer peer;
        QVERIFY2(peer.start(dir, {QStringLiteral("--latency-ms"), QStringLiteral("300")}),
                 peer.process.log().constData());
        testing::TestHost host(&m_clock);
        quotes::CurlFetcher fetcher(host);
        fetcher.setCaFile(peer.cert);
        // More pages than a portfolio holds and far more than the per-host limit: all of
        // them at once on one connection.
        QCOMPARE(nonEmpty(fetcher.getMany(stockUrls(peer.base, 60))), 60);
        QCOMPARE(fetcher.connectionsOpened(), qint64(1));
        const QJsonObject stats =
            QJsonDocument::fromJson(fetcher.get(peer.base + QStringLiteral("/stats")).toUtf8()).object();
        QCOMPARE(stats.value(QLatin1String("connections")).toInt(), 1);
        QCOMPARE(stats.value(QLatin1String("requests")).toInt(), 60);
        QCOMPARE(stats.value(QLatin1String("max_in_flight")).toInt(), 60);
        QCOMPARE(stats.value(QLatin1String("versions")).toVariant().toStringList(), QStringList{QStringLiteral("2")});
    }

    // The trusted certificates are read once per fetcher, not once per connection: a
    // server that closes every connection is met with a new handshake each time, and
    // reading a system-sized bundle for each was what made such a source costly.
    void trustListReadOncePerFetcher()
    {
        QTemporaryDir dir;
        TlsPeer peer;
        QVERIFY2(peer.start(dir, {QStringLiteral("--http1-close")}), peer.process.log().constData());
        const QString trusted = dir.filePath(QStringLiteral("trusted.pem"));
        QVERIFY(QFile::copy(peer.cert, trusted));
        testing::TestHost host(&m_clock);
        quotes::CurlFetcher fetcher(host);
        fetcher.setCaFile(trusted);
        QCOMPARE(nonEmpty(fetcher.getMany(stockUrls(peer.base, 3))), 3);

        // The file now names another certificate only: a fetcher that reads it again
        // refuses the peer, the one that read it already goes on trusting it.
        const QString other = dir.filePath(QStringLiteral("other.pem"));
        QVERIFY(testing::makeLoopbackCertificate(other, dir.filePath(QStringLiteral("other.key"))));
        QVERIFY(QFile::remove(trusted));
        QVERIFY(QFile::copy(other, trusted));
        QCOMPARE(nonEmpty(fetcher.getMany(stockUrls(peer.base, 3, QStringLiteral("U")))), 3);
        QCOMPARE(fetcher.connectionsOpened(), qint64(6));

        quotes::CurlFetcher fresh(host);
        fresh.setCaFile(trusted);
        QString error;
        fresh.setErrorCallback([&](const QString&, const QString& message) { error = message; });
        QVERIFY(fresh.get(stockUrls(peer.base, 1).first()).isEmpty());
        QVERIFY2(error.startsWith(QStringLiteral("TLS handshake failed")), qPrintable(error));
    }

    void fetchKeepsWhatTheServerSaid_data()
    {
        QTest::addColumn<QByteArray>("response");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("retryAfter");
        QTest::addColumn<QString>("error");

        const QByteArray notFound = R"({"chart":{"result":null,"error":{"code":"Not Found"}}})";
        QTest::newRow("error status keeps its body")
            << testing::httpResponse(404, notFound, "application/json") << 404 << notFound << -1 << QString();
        QTest::newRow("429 with Retry-After seconds")
            << testing::httpResponse(429, "slow down", "text/plain", "Retry-After: 120\r\n") << 429
            << QByteArray("slow down") << 120 << QString();
        QTest::newRow("429 without Retry-After")
            << testing::httpResponse(429, "", "text/plain") << 429 << QByteArray() << -1 << QString();
        QTest::newRow("body over the size limit") << testing::httpResponse(200, QByteArray(5000, 'x')) << 200
                                                  << QByteArray() << -1 << QStringLiteral("larger than");
        QTest::newRow("body over the limit without a length")
            << QByteArray("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + QByteArray(5000, 'y')) << 200 << QByteArray()
            << -1 << QStringLiteral("larger than");
        QTest::newRow("connection dropped mid-body") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf")
                                                     << 200 << QByteArray() << -1 << QStringLiteral("transfer closed");
    }
    void fetchKeepsWhatTheServerSaid()
    {
        QFETCH(QByteArray, response);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(int, retryAfter);
        QFETCH(QString, error);
        testing::HttpPeer peer(response);
        testing::TestHost host(&m_clock);
        quotes::CurlFetcher fetcher(host);
        fetcher.setMaxBodyBytes(4096);
        quotes::HttpRequest request;
        request.url = peer.url(QStringLiteral("/q?s=ibm"));
        request.headers = {{"User-Agent", "Test/1.0"}, {"Accept", "application/json"}};
        const std::vector<quotes::HttpResponse> r = fetcher.fetch({request});
        QCOMPARE(r.size(), size_t(1));
        QCOMPARE(r[0].status, status);
        QCOMPARE(r[0].body, body);
        QCOMPARE(r[0].retryAfterSeconds, retryAfter);
        QVERIFY2(error.isEmpty() ? r[0].error.isEmpty() : r[0].error.contains(error), qPrintable(r[0].error));
        QCOMPARE(peer.heads.size(), 1);
        QVERIFY(peer.heads[0].contains("\r\nUser-Agent: Test/1.0\r\n"));
        QVERIFY(peer.heads[0].contains("\r\nAccept: application/json\r\n"));
    }

    void requestLimitAndSpacing()
    {
        sim::DemoMarketThread market(m_clock, 1, 40);
        QVERIFY(market.start());
        testing::TestHost host(&m_clock);
        quotes::CurlFetcher fetcher(host);
        // A source that allows two requests at once, however many connections the host may have.
        std::vector<quotes::HttpRequest> requests;
        for (const QString& u : stockUrls(market.baseUrl(), 6)) {
            quotes::HttpRequest r;
            r.url = u;
            r.hostLimit = 2;
            requests.push_back(r);
        }
        int answered = 0;
        for (const quotes::HttpResponse& r : fetcher.fetch(requests))
            answered += r.status == 200 && r.body.contains("Last Trade:") ? 1 : 0;
        QCOMPARE(answered, 6);
        QCOMPARE(market.market()->maxPending(), 2);

        // Spacing: five starts 60 ms apart take at least four gaps, and a callback that says
        // stop leaves the rest unasked.
        for (quotes::HttpRequest& r : requests) {
            r.hostLimit = 0;
            r.spacingMs = 60;
        }
        requests.pop_back();
        QElapsedTimer elapsed;
        elapsed.start();
        const auto spaced = fetcher.fetch(requests);
        QVERIFY2(elapsed.elapsed() >= 4 * 60, qPrintable(QString::number(elapsed.elapsed())));
        QCOMPARE(spaced.back().status, 200);
        const int before = market.market()->requestCount();
        int calls = 0;
        const auto stopped = fetcher.fetch(requests, [&](int, const quotes::HttpResponse&) { return ++calls < 2; });
        QCOMPARE(calls, 2);
        QCOMPARE(market.market()->requestCount() - before, 2);
        QCOMPARE(stopped.back().status, 0);
        QVERIFY(stopped.back().error.isEmpty());
    }

    // A page is never sent on from https to plain http, and a request that carries a key
    // goes on only to its own host: a server cannot hand the key to another one.
    void redirects_data()
    {
        QTest::addColumn<bool>("https");         // the first server speaks TLS
        QTest::addColumn<bool>("carriesSecret"); // the request carries a key
        QTest::addColumn<QString>("target");     // where the first server sends it
        QTest::addColumn<QString>("error");      // empty: followed to the target's answer
        QTest::newRow("plain page to another host") << false << false << "http://localhost:{port}/landed"
                                                    << "";
        QTest::newRow("key, same host") << false << true << "http://127.0.0.1:{port}/landed"
                                        << "";
        // The first server answers its own redirect again: a loop on one host ends at the limit.
        QTest::newRow("key, same host, in a loop") << false << true << "/again"
                                                   << "more than 10 redirects";
        QTest::newRow("key, another host") << false << true << "http://localhost:{port}/landed"
                                           << "sent the request on to another host (localhost)";
        QTest::newRow("https to http") << true << false << "http://127.0.0.1:{port}/landed"
                                       << "sent the request on from https to http://127.0.0.1:";
        QTest::newRow("key, https to http on the same host") << true << true << "http://127.0.0.1:{port}/landed"
                                                             << "sent the request on from https to http://127.0.0.1:";
    }
    void redirects()
    {
        QFETCH(bool, https);
        QFETCH(bool, carriesSecret);
        QFETCH(QString, target);
        QFETCH(QString, error);
        testing::HttpPeer landing(testing::httpResponse(200, "landed", "text/plain"));
        const quint16 landingPort = QUrl(landing.url(QStringLiteral("/"))).port();
        QTemporaryDir dir;
        const QString cert = dir.filePath(QStringLiteral("cert.pem"));
        const QString key = dir.filePath(QStringLiteral("key.pem"));
        QStringList extra;
        if (https) {
            QVERIFY(testing::makeLoopbackCertificate(cert, key));
            extra << QStringLiteral("--tls") << cert << key;
        }
        const quint16 port = testing::freePort();
        testing::PeerProcess first;
        QVERIFY2(first.start(
                     testing::systemPython(),
                     QStringList{QStringLiteral(KESTROVA_PEERS_DIR "/http_fault_peer.py"), QString::number(port),
                                 QStringLiteral("redirect:") +
                                     QString(target).replace(QLatin1String("{port}"), QString::number(landingPort))} +
                         extra,
                     QStringLiteral("READY")),
                 first.log().constData());
        testing::TestHost host(&m_clock);
        quotes::CurlFetcher fetcher(host);
        if (https) {
            fetcher.setCaFile(cert);
        }
        quotes::HttpRequest request;
        request.url = QStringLiteral("%1://127.0.0.1:%2/q?s=IBM").arg(https ? "https" : "http").arg(port);
        request.headers = {{"X-Api-Key", "k-123456"}};
        request.carriesSecret = carriesSecret;
        const quotes::HttpResponse r = fetcher.fetch({request}).front();
        if (error.isEmpty()) {
            QVERIFY2(r.error.isEmpty(), qPrintable(r.error));
            QCOMPARE(r.status, 200);
            QCOMPARE(r.body, QByteArray("landed"));
            QCOMPARE(landing.heads.size(), 1);
            QVERIFY(landing.heads[0].startsWith("GET /landed "));
        } else {
            QVERIFY2(r.error.contains(error), qPrintable(r.error));
            QVERIFY(r.body.isEmpty());
            QVERIFY2(landing.heads.isEmpty(), landing.heads.value(0).constData());
        }
    }

private:
    support::MockClock m_clock;
};

QTEST_GUILESS_MAIN(TestCurlFetcher)
#include "test_curlfetcher.moc"
