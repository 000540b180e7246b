#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QString>

#include <QMutex>
#include <QStringList>

#include <atomic>
#include <memory>

class QTcpServer;
class QTcpSocket;
class QThread;
class QUrlQuery;

namespace kestrova::support {
class Clock;
}

namespace kestrova::sim {

// A small quote service on loopback for the demo and the tests. It answers HTTP/1.1 GETs
// for any ticker with pages laid out the way the "Demo Market" definitions in servers.dat
// and server.dat expect:
//
//   /stock?t=TICKER          stock quote page (cells: "Last Trade:" etc.)
//   /option?t=.SYM           option quote page (the "." or "%2b" prefix is dropped)
//   /labelled?t=TICKER       the "Name: ... Earnings ... LAST: ... CHANGE:" label layout
//   /index, /cgi-bin/getquote.dll   market index table ("DOW", "NASDAQ", "S&P 500")
//   /news?t=TICKER           news headlines
//
// and the modern quote sources' shapes (DemoSources.cpp), which the "Demo" definitions of
// sources.json read:
//
//   /q/l/?s=A.US+B.US&...    batch CSV, one row per symbol, "N/D" for an unknown one
//   /v8/finance/chart/SYM    chart JSON; 404 with {"chart":{"result":null,"error":...}}
//   /query?function=GLOBAL_QUOTE&symbol=SYM&apikey=K      key-based JSON with string values
//   /api/v1/quote?symbol=SYM&token=K                      key-based JSON with short names
//
// Indices (^DJI, ^IXIC/^NDQ, ^GSPC/^SPX) share their walk with /index; five-letter symbols
// ending in X are mutual funds (one price a day). Symbols starting with NODATA are unknown;
// BUSY answers 429 with Retry-After (Alpha Vantage's "Information" note); HTML answers a
// web page; NULLS gives null prices; NOVOL leaves the volume out; DEEP nests JSON 10,000
// deep; TRUNC cuts the JSON in half; HUGE sends 50 MB; HANG never answers.
//
// Each price page request moves that ticker's price one step along a random walk that
// depends only on the starting value, the ticker and how many times that ticker was asked for, so a
// test can replay a session exactly. Some tickers misbehave on purpose: ERR500 (status
// 500), EMPTY (200 with an empty body), HANG (never answers), CUT (closes mid-body).
//
// Responses are delayed by a QTimer when a latency is set, never by sleeping, so many
// requests wait side by side. Connections stay open for the next request (HTTP/1.1
// keep-alive) unless the client asks to close them or a fault ends them, or the market
// plays an old HTTP/1.0 server that closes every connection after its answer.
class DemoMarket : public QObject
{
    Q_OBJECT
public:
    explicit DemoMarket(const support::Clock& clock, quint32 walkSeed = 1, QObject* parent = nullptr);
    ~DemoMarket() override;

    // Listens on 127.0.0.1; port 0 picks a free one. False (with errorString()) when the
    // port is taken.
    bool listen(quint16 port = 0);
    void close();
    quint16 port() const { return m_port; }
    QString errorString() const { return m_error; }
    QString baseUrl() const;

    void setLatencyMs(int ms) { m_latencyMs = ms; }
    int latencyMs() const { return m_latencyMs; }
    // Answers as an HTTP/1.0 server that keeps no connection open: one request per
    // connection, closed after the answer, whatever the client asked for.
    void setCloseEveryConnection(bool close) { m_closeEvery = close; }
    quint32 walkSeed() const { return m_seed; }

    // Counters for tests; safe to read from another thread.
    int requestCount() const { return m_requests.load(); }
    // The most responses that were waiting for their latency at the same moment.
    int maxPending() const { return m_maxPending.load(); }
    // Connections accepted since the market started listening.
    int connectionCount() const { return m_connections.load(); }
    // The request targets received, in order: the last kKeptTargets of them, so a market
    // left running for months keeps no growing log (safe to read from another thread).
    static constexpr qsizetype kKeptTargets = 100;
    QStringList targets() const;
    // While set, the modern-source endpoints know no symbol (as a changed service would).
    void setSourcesSilent(bool silent) { m_sourcesSilent = silent; }

    // The page bodies, also used by the benchmarks to build large pages. Each call for a
    // price page advances the ticker's walk by one step.
    QByteArray stockPage(const QString& ticker);
    QByteArray optionPage(const QString& symbol);
    QByteArray labelledPage(const QString& ticker);
    QByteArray indexPage();
    QByteArray newsPage(const QString& ticker);

    // The state of one instrument after its latest step.
    struct Instrument
    {
        QString name;
        double previousClose = 0;
        double open = 0;
        double last = 0;
        double dayHigh = 0;
        double dayLow = 0;
        double yearHigh = 0;
        double yearLow = 0;
        qint64 volume = 0;
        qint64 openInterest = 0;
        double eps = 0;
        quint64 rng = 0;
        int steps = 0;
    };

private:
    // What one request is answered with.
    struct Reply
    {
        int status = 200;
        QByteArray body;
        QByteArray contentType = "text/html; charset=windows-1252";
        QList<QPair<QByteArray, QByteArray>> headers;
        bool cut = false;  // send half the body, then close
        bool hang = false; // never answer
    };
    static Reply reply(int status, const QByteArray& body, const QByteArray& type = "text/html; charset=windows-1252",
                       const QList<QPair<QByteArray, QByteArray>>& headers = {})
    {
        Reply r;
        r.status = status;
        r.body = body;
        r.contentType = type;
        r.headers = headers;
        return r;
    }
    // One client connection: the bytes read so far and the request being answered.
    struct Connection
    {
        QByteArray data;
        bool busy = false;
        bool keepAlive = true;
        bool head = false;
    };

    // One instrument of a modern-source answer.
    struct SourceQuote
    {
        enum Kind { Stock, Fund, Index };
        bool found = false;
        Kind kind = Stock;
        QString symbol;
        QString name;
        Instrument in;
    };

    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);
    void nextRequest(QTcpSocket* socket);
    Reply route(const QByteArray& target);
    Reply sourceReply(const QString& path, const QUrlQuery& query);
    SourceQuote sourceQuote(const QString& symbol);
    Instrument stockStep(const QString& symbol);
    void sendResponse(QTcpSocket* socket, const Reply& reply);
    Instrument& instrument(const QString& key, double basePrice, double spreadFraction);
    Instrument& step(const QString& key, double basePrice, double spreadFraction);

    const support::Clock& m_clock;
    quint32 m_seed;
    int m_latencyMs = 0;
    QTcpServer* m_server = nullptr;
    quint16 m_port = 0;
    QString m_error;
    QHash<QString, Instrument> m_instruments;
    QHash<QTcpSocket*, Connection> m_conns;
    std::atomic<int> m_requests{0};
    std::atomic<int> m_pending{0};
    std::atomic<int> m_maxPending{0};
    std::atomic<int> m_connections{0};
    std::atomic<bool> m_sourcesSilent{false};
    std::atomic<bool> m_closeEvery{false};
    mutable QMutex m_targetsLock;
    QStringList m_targets;
};

// Runs a DemoMarket on a thread of its own, so that code that blocks its own thread while
// it waits for the network (a curl transfer, a blocking socket) still gets answers.
class DemoMarketThread
{
public:
    DemoMarketThread(const support::Clock& clock, quint32 walkSeed = 1, int latencyMs = 0);
    ~DemoMarketThread();
    DemoMarketThread(const DemoMarketThread&) = delete;
    DemoMarketThread& operator=(const DemoMarketThread&) = delete;

    bool start(quint16 port = 0);
    void stop();
    quint16 port() const;
    QString baseUrl() const;
    DemoMarket* market() const { return m_market; }

private:
    const support::Clock& m_clock;
    quint32 m_seed;
    int m_latencyMs;
    std::unique_ptr<QThread> m_thread;
    DemoMarket* m_market = nullptr;
};

} // namespace kestrova::sim
