#include "sim/DemoMarket.h"

#include "support/Clock.h"

#include <QMetaObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>

#include <cmath>

namespace kestrova::sim {

namespace {

constexpr int kMaxRequestBytes = 16 * 1024;

// FNV-1a: a stable hash, so a ticker's base price is the same on every platform and run.
quint64 stableHash(const QString& text)
{
    quint64 h = 1469598103934665603ULL;
    for (const QChar c : text) {
        h ^= c.unicode();
        h *= 1099511628211ULL;
    }
    return h;
}

quint64 splitMix(quint64& state)
{
    quint64 z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

// A uniform value in [-1, 1].
double unitStep(quint64& state)
{
    return static_cast<double>(splitMix(state) % 2000001ULL) / 1000000.0 - 1.0;
}

QByteArray fixed(double v, int decimals = 2)
{
    return QByteArray::number(v, 'f', decimals);
}

QByteArray signedFixed(double v, int decimals = 2)
{
    return (v >= 0 ? QByteArray("+") : QByteArray()) + fixed(v, decimals);
}

// Old quote pages wrote prices in eighths: "123 3/8", "-0 1/8", "45".
QByteArray eighths(double v)
{
    const bool negative = v < 0;
    const long long total = std::llround(std::fabs(v) * 8.0);
    const long long whole = total / 8;
    long long num = total % 8;
    long long den = 8;
    while (num != 0 && num % 2 == 0) {
        num /= 2;
        den /= 2;
    }
    QByteArray out = negative ? QByteArray("-") : QByteArray();
    out += QByteArray::number(whole);
    if (num != 0) {
        out += ' ' + QByteArray::number(num) + '/' + QByteArray::number(den);
    }
    return out;
}

QByteArray row(const QByteArray& label, const QByteArray& value)
{
    return "<tr><td>" + label + "</td><td>" + value + "</td></tr>\r\n";
}

// The ticker as the quote cycle sends it: options carry a "." or an encoded "+" in front.
QString bareSymbol(const QString& ticker, bool* isOption = nullptr)
{
    QString t = ticker.trimmed();
    bool option = false;
    if (t.startsWith(u'.') || t.startsWith(u'+')) {
        t.remove(0, 1);
        option = true;
    }
    if (isOption) {
        *isOption = option;
    }
    return t.toUpper();
}

QByteArray stamp(const QDateTime& now)
{
    const QTime t = now.time();
    const int h12 = t.hour() % 12 == 0 ? 12 : t.hour() % 12;
    return now.date().toString(QStringLiteral("MM/dd/yyyy")).toLatin1() + " @ " + QByteArray::number(h12) + ':' +
           QByteArray::number(t.minute()).rightJustified(2, '0') + (t.hour() < 12 ? "AM" : "PM");
}

// Symbols of the demo portfolio start near prices that sit close to its alarm limits, so a
// demo shows alarms within a few updates. Any other symbol gets a price from its hash.
struct KnownPrice
{
    const char* symbol; // blanks removed
    double price;
};
const KnownPrice kKnownPrices[] = {
    {"IBM", 147.0},  {"MSFT", 101.0},  {"CSCO", 52.0}, {"INTC", 20.6},  {"AAPL", 196.0}, {"VFINX", 382.0},
    {"FMAGX", 95.0}, {"ESZ6", 4515.0}, {"CLF7", 76.0}, {"IBMAF", 12.2}, {"MSFTDK", 3.2}, {"CSCOAE", 1.6},
};

// The price a symbol starts from, and how far (as a fraction) its previous close may lie from it.
std::pair<double, double> startPrice(const QString& symbol, bool option)
{
    const QString key = QString(symbol).remove(u' ');
    for (const KnownPrice& k : kKnownPrices) {
        if (key == QLatin1String(k.symbol)) {
            return {k.price, 0.005};
        }
    }
    const quint64 h = stableHash(symbol);
    if (option) {
        return {0.5 + static_cast<double>(h % 1450ULL) / 100.0, 0.1};
    }
    return {10.0 + static_cast<double>(h % 19000ULL) / 100.0, 0.1};
}

const char* const kHeadlines[] = {
    "%1 reports quarterly earnings above estimates",
    "%1 names new chief financial officer",
    "Analysts raise price target on %1",
    "%1 announces share buyback",
    "%1 shares active in heavy trading",
    "%1 wins large government contract",
    "%1 Q&amp;A: chief executive on the outlook",
    "%1 to present at investor conference",
    "%1 settles patent dispute",
    "%1 opens new plant in Ohio",
};
const char* const kSources[] = {"Demo Wire", "Market Desk", "Kestrova News Service"};

} // namespace

DemoMarket::DemoMarket(const support::Clock& clock, quint32 walkSeed, QObject* parent)
    : QObject(parent), m_clock(clock), m_seed(walkSeed)
{}

DemoMarket::~DemoMarket()
{
    close();
}

bool DemoMarket::listen(quint16 port)
{
    close();
    m_server = new QTcpServer(this);
    // Enough for a whole portfolio asked for at once.
    m_server->setMaxPendingConnections(256);
    if (!m_server->listen(QHostAddress::LocalHost, port)) {
        m_error = m_server->errorString();
        delete m_server;
        m_server = nullptr;
        return false;
    }
    m_port = m_server->serverPort();
    connect(m_server, &QTcpServer::newConnection, this, &DemoMarket::onNewConnection);
    return true;
}

void DemoMarket::close()
{
    m_conns.clear();
    if (m_server) {
        m_server->close();
        // Accepted connections are children of the server and go with it, the silent ones
        // of HANG included; they must not call back into this object on the way out.
        for (QTcpSocket* socket : m_server->findChildren<QTcpSocket*>()) {
            disconnect(socket, nullptr, this, nullptr);
        }
        delete m_server;
        m_server = nullptr;
    }
    m_port = 0;
}

QString DemoMarket::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

void DemoMarket::onNewConnection()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        ++m_connections;
        m_conns.insert(socket, {});
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_conns.remove(socket);
            socket->deleteLater();
        });
    }
}

void DemoMarket::onReadyRead(QTcpSocket* socket)
{
    auto it = m_conns.find(socket);
    if (it == m_conns.end()) {
        socket->readAll();
        return;
    }
    it->data.append(socket->readAll());
    nextRequest(socket);
}

void DemoMarket::nextRequest(QTcpSocket* socket)
{
    auto it = m_conns.find(socket);
    // One request at a time per connection, as HTTP/1.1 clients send them; the next one
    // waits in the buffer until this one is answered.
    if (it == m_conns.end() || it->busy) {
        return;
    }
    const qsizetype end = it->data.indexOf("\r\n\r\n");
    if (end < 0) {
        if (it->data.size() > kMaxRequestBytes) {
            it->busy = true;
            it->keepAlive = false;
            sendResponse(socket, reply(400, "request too large"));
        }
        return;
    }
    const QByteArray head = it->data.left(end);
    it->data.remove(0, end + 4);
    const QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> parts = lines.first().trimmed().split(' ');
    it->busy = true;
    it->keepAlive = parts.size() >= 3 && parts[2] == "HTTP/1.1" && !m_closeEvery;
    for (const QByteArray& line : lines.mid(1)) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed().compare("connection", Qt::CaseInsensitive) == 0 &&
            line.mid(colon + 1).trimmed().compare("close", Qt::CaseInsensitive) == 0) {
            it->keepAlive = false;
        }
    }
    if (parts.size() < 3 || (parts[0] != "GET" && parts[0] != "HEAD")) {
        it->keepAlive = false;
        sendResponse(socket, reply(400, "bad request"));
        return;
    }
    it->head = parts[0] == "HEAD";
    ++m_requests;
    const QByteArray target = parts[1];
    {
        const QMutexLocker lock(&m_targetsLock);
        m_targets << QString::fromLatin1(target);
        if (m_targets.size() > kKeptTargets) {
            m_targets.removeFirst();
        }
    }
    if (m_latencyMs <= 0) {
        sendResponse(socket, route(target));
        return;
    }
    const int pending = ++m_pending;
    int seen = m_maxPending.load();
    while (pending > seen && !m_maxPending.compare_exchange_weak(seen, pending)) {
    }
    QPointer<QTcpSocket> guarded(socket);
    QTimer::singleShot(m_latencyMs, this, [this, guarded, target] {
        --m_pending;
        if (guarded) {
            sendResponse(guarded, route(target));
        }
    });
}

DemoMarket::Reply DemoMarket::route(const QByteArray& target)
{
    const QUrl url(QString::fromLatin1(target));
    const QString path = url.path();
    if (path == QLatin1String("/q/l/") || path.startsWith(QLatin1String("/v8/finance/chart/")) ||
        path == QLatin1String("/query") || path == QLatin1String("/api/v1/quote")) {
        return sourceReply(path, QUrlQuery(url.query(QUrl::FullyEncoded)));
    }
    // "+" in a query means a blank to QUrlQuery; the quote cycle sends a plus sign as "%2b".
    QString ticker = QUrlQuery(url.query(QUrl::FullyEncoded)).queryItemValue(QStringLiteral("t"), QUrl::FullyDecoded);
    const QString bare = bareSymbol(ticker);

    if (bare == QLatin1String("HANG")) {
        Reply r;
        r.hang = true; // keep the connection open and say nothing
        return r;
    }
    if (bare == QLatin1String("ERR500")) {
        return reply(500, "<html><body>Internal Server Error</body></html>");
    }
    if (bare == QLatin1String("EMPTY")) {
        return reply(200, {});
    }
    Reply r;
    r.cut = bare == QLatin1String("CUT");
    if (path == QLatin1String("/stock")) {
        r.body = stockPage(ticker);
    } else if (path == QLatin1String("/option")) {
        r.body = optionPage(ticker);
    } else if (path == QLatin1String("/labelled")) {
        r.body = labelledPage(ticker);
    } else if (path == QLatin1String("/index") || path == QLatin1String("/cgi-bin/getquote.dll")) {
        r.body = indexPage();
    } else if (path == QLatin1String("/news")) {
        r.body = newsPage(ticker);
    } else {
        return reply(404, "<html><body>Not Found</body></html>");
    }
    return r;
}

void DemoMarket::sendResponse(QTcpSocket* socket, const Reply& reply)
{
    auto it = m_conns.find(socket);
    if (reply.hang || it == m_conns.end()) {
        return;
    }
    QByteArray reason = "OK";
    switch (reply.status) {
    case 400:
        reason = "Bad Request";
        break;
    case 404:
        reason = "Not Found";
        break;
    case 429:
        reason = "Too Many Requests";
        break;
    case 500:
        reason = "Internal Server Error";
        break;
    default:
        break;
    }
    const bool keepAlive = it->keepAlive && !reply.cut;
    QByteArray head =
        (m_closeEvery ? "HTTP/1.0 " : "HTTP/1.1 ") + QByteArray::number(reply.status) + ' ' + reason + "\r\n";
    head += "Content-Type: " + reply.contentType + "\r\n";
    for (const auto& [name, value] : reply.headers) {
        head += name + ": " + value + "\r\n";
    }
    head += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    head += keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
    socket->write(head);
    if (!it->head) {
        socket->write(reply.cut ? reply.body.left(reply.body.size() / 2) : reply.body);
    }
    if (!keepAlive) {
        // Closes once everything queued has gone out; for CUT that is half the promised body.
        m_conns.erase(it);
        socket->disconnectFromHost();
        return;
    }
    it->busy = false;
    nextRequest(socket);
}

DemoMarket::Instrument& DemoMarket::instrument(const QString& key, double basePrice, double spreadFraction)
{
    auto it = m_instruments.find(key);
    if (it != m_instruments.end()) {
        return *it;
    }
    Instrument in;
    in.rng = stableHash(key) ^ (static_cast<quint64>(m_seed) * 0x9E3779B97F4A7C15ULL);
    const double spread = spreadFraction * basePrice;
    in.previousClose = basePrice + spread * unitStep(in.rng);
    in.open = in.previousClose * (1.0 + 0.01 * unitStep(in.rng));
    in.last = in.open;
    in.dayHigh = std::max(in.open, in.previousClose);
    in.dayLow = std::min(in.open, in.previousClose);
    in.yearHigh = in.previousClose * 1.35;
    in.yearLow = in.previousClose * 0.7;
    in.volume = static_cast<qint64>(100000 + splitMix(in.rng) % 5000000ULL);
    in.openInterest = static_cast<qint64>(100 + splitMix(in.rng) % 20000ULL);
    in.eps = in.previousClose / (8.0 + static_cast<double>(splitMix(in.rng) % 3000ULL) / 100.0);
    return *m_instruments.insert(key, in);
}

DemoMarket::Instrument& DemoMarket::step(const QString& key, double basePrice, double spreadFraction)
{
    Instrument& in = instrument(key, basePrice, spreadFraction);
    // Moves of up to 3% a step, so a demo portfolio crosses its limits within a few updates.
    in.last = std::max(0.05, in.last * (1.0 + 0.03 * unitStep(in.rng)));
    in.dayHigh = std::max(in.dayHigh, in.last);
    in.dayLow = std::min(in.dayLow, in.last);
    in.yearHigh = std::max(in.yearHigh, in.last);
    in.yearLow = std::min(in.yearLow, in.last);
    in.volume += static_cast<qint64>(splitMix(in.rng) % 50000ULL);
    ++in.steps;
    return in;
}

QStringList DemoMarket::targets() const
{
    const QMutexLocker lock(&m_targetsLock);
    return m_targets;
}

DemoMarket::Instrument DemoMarket::stockStep(const QString& symbol)
{
    const auto [base, spread] = startPrice(symbol, false);
    return step(QStringLiteral("S:") + symbol, base, spread);
}

QByteArray DemoMarket::stockPage(const QString& ticker)
{
    const QString sym = bareSymbol(ticker);
    const auto [base, spread] = startPrice(sym, false);
    Instrument& in = step(QStringLiteral("S:") + sym, base, spread);
    const double change = in.last - in.previousClose;
    const QByteArray name = "Demo " + sym.toLatin1() + " Corp";
    QByteArray page = "<html><head><title>Demo Market quote: " + sym.toLatin1() +
                      "</title></head>\r\n<body><h1>Demo Market</h1>\r\n<table class=quote>\r\n";
    page += row("Name:", name);
    page += row("Last Trade:", fixed(in.last));
    page += row("Change:", signedFixed(change));
    page += row("Pct Change:", signedFixed(change * 100.0 / in.previousClose) + '%');
    page += row("Volume: " + QByteArray::number(in.volume) + " shares", QByteArray());
    page += row("Bid:", fixed(in.last - 0.05));
    page += row("Ask:", fixed(in.last + 0.05));
    page += row("Open:", fixed(in.open));
    page += row("Prev Close:", fixed(in.previousClose));
    page += row("Day High:", fixed(in.dayHigh));
    page += row("Day Low:", fixed(in.dayLow));
    page += row("Day Range:", fixed(in.dayLow) + " - " + fixed(in.dayHigh));
    page += row("52-Week High:", fixed(in.yearHigh));
    page += row("52-Week Low:", fixed(in.yearLow));
    page += row("EPS:", fixed(in.eps));
    page += row("P/E:", fixed(in.last / in.eps));
    page += row("Updated:", stamp(m_clock.now()) + " ET");
    page += "</table>\r\n<p>Quotes are simulated.</p></body></html>\r\n";
    return page;
}

QByteArray DemoMarket::optionPage(const QString& symbol)
{
    const QString sym = bareSymbol(symbol);
    const auto [base, spread] = startPrice(sym, true);
    Instrument& in = step(QStringLiteral("O:") + sym, base, spread);
    const double change = in.last - in.previousClose;
    QByteArray page = "<html><head><title>Demo Market option: " + sym.toLatin1() +
                      "</title></head>\r\n<body><h1>Demo Market</h1>\r\n<table class=quote>\r\n";
    page += row("Name:", "Demo option " + sym.toLatin1());
    page += row("Last Trade:", fixed(in.last));
    page += row("Change:", signedFixed(change));
    page += row("Pct Change:", signedFixed(change * 100.0 / in.previousClose) + '%');
    page += row("Volume: " + QByteArray::number(in.volume / 100) + " contracts", QByteArray());
    page += row("Bid:", fixed(in.last - 0.05));
    page += row("Ask:", fixed(in.last + 0.05));
    page += row("Open:", fixed(in.open));
    page += row("Prev Close:", fixed(in.previousClose));
    page += row("Day High:", fixed(in.dayHigh));
    page += row("Day Low:", fixed(in.dayLow));
    page += row("Day Range:", fixed(in.dayLow) + " - " + fixed(in.dayHigh));
    page += row("Open Int:", QByteArray::number(in.openInterest));
    page += row("Updated:", stamp(m_clock.now()) + " ET");
    page += "</table>\r\n</body></html>\r\n";
    return page;
}

QByteArray DemoMarket::labelledPage(const QString& ticker)
{
    bool option = false;
    const QString sym = bareSymbol(ticker, &option);
    const auto [base, spread] = startPrice(sym, option);
    // Shares the walk with the stock or option page of the same symbol.
    Instrument& in = step((option ? QStringLiteral("O:") : QStringLiteral("S:")) + sym, base, spread);
    const QDateTime now = m_clock.now();
    QByteArray page = "<html><head><title>" + sym.toLatin1() + " detailed quote</title></head>\r\n<body><table>\r\n";
    page += row("Name:", (option ? "Demo option " : "Demo ") + sym.toLatin1() + (option ? "" : " Corp"));
    page += row("Earnings (12 mo.):", fixed(in.eps));
    page += row("P/E Ratio:", fixed(in.last / in.eps));
    page += row("Dividend:", fixed(in.eps / 4.0));
    page += row("Date & Time:", now.date().toString(QStringLiteral("MM/dd/yyyy")).toLatin1() + ' ' +
                                    now.time().toString(QStringLiteral("hh:mm")).toLatin1());
    page += row("Open:", eighths(in.open));
    if (option) {
        page += row("Volume:", QByteArray::number(in.volume / 100));
        page += row("Open Interest:", QByteArray::number(in.openInterest));
        page += row("Est. Volume:", QByteArray::number(in.volume / 90));
    } else {
        page += row("Volume:", QByteArray::number(in.volume));
    }
    page += row("High:", eighths(in.dayHigh));
    page += row("Low:", eighths(in.dayLow));
    page += row("Bid:", eighths(in.last - 0.125));
    page += row("Ask:", eighths(in.last + 0.125));
    page += row("LAST:", eighths(in.last));
    page += row("CHANGE:", eighths(in.last - in.previousClose));
    page += row("Market Cap:", QByteArray::number(in.volume * 40));
    page += "</table></body></html>\r\n";
    return page;
}

QByteArray DemoMarket::indexPage()
{
    struct Index
    {
        const char* key;
        double base;
    };
    static const Index indices[] = {{"DOW", 10345.21}, {"NASDAQ", 2891.48}, {"S&P 500", 1382.95}};
    QByteArray page = "<html><head><title>Demo Market indices</title></head>\r\n<body><table class=indices>\r\n";
    for (const Index& ix : indices) {
        Instrument& in = step(QStringLiteral("I:") + QLatin1String(ix.key), ix.base, 0.01);
        // Key, level and change each one tag apart, so the level is the first cell after the
        // key and the change the second.
        page += QByteArray("<tr><td>") + ix.key + "<td>" + fixed(in.last) + "<td>" +
                signedFixed(in.last - in.previousClose) + "</tr>\r\n";
    }
    page += "</table></body></html>\r\n";
    return page;
}

QByteArray DemoMarket::newsPage(const QString& ticker)
{
    const QString sym = bareSymbol(ticker);
    const QByteArray t = sym.toLatin1();
    const QByteArray name = "Demo " + t + " Corp";
    const QDate today = m_clock.today();
    QByteArray page = "<html><head><title>Demo Market news: " + t + "</title></head>\r\n<body><h1>News for " + t +
                      "</h1>\r\n<ul class=news>\r\n";
    // Two stories today, one yesterday and one ten days old, chosen by ticker, walk start and day,
    // so a second fetch on the same day finds nothing new.
    static const int ages[] = {0, 0, 1, 10};
    const int headlineCount = static_cast<int>(std::size(kHeadlines));
    const int sourceCount = static_cast<int>(std::size(kSources));
    const quint64 pick = stableHash(sym) ^ m_seed;
    for (int i = 0; i < 4; ++i) {
        const QDate day = today.addDays(-ages[i]);
        // Templates picked from a start that moves three places a day: with these four ages
        // the picks land on four different templates, so a page never repeats a headline.
        const quint64 start = (pick % 1000ULL) + static_cast<quint64>(day.toJulianDay()) * 3ULL;
        const int h = static_cast<int>((start + static_cast<quint64>(i)) % static_cast<quint64>(headlineCount));
        quint64 state = pick ^ static_cast<quint64>(day.toJulianDay()) ^ static_cast<quint64>(i * 7919);
        const int s = static_cast<int>(splitMix(state) % static_cast<quint64>(sourceCount));
        // Today's stories are never later than now.
        const QTime nowTime = m_clock.now().time();
        const int span = ages[i] == 0 ? std::max(1, nowTime.hour() * 60 + nowTime.minute()) : 9 * 60;
        const int first = ages[i] == 0 ? 0 : 8 * 60;
        const int minutes = first + static_cast<int>(splitMix(state) % static_cast<quint64>(span));
        const QTime time(minutes / 60, minutes % 60);
        const QByteArray headline = t + ": " + QByteArray(kHeadlines[h]).replace("%1", name);
        page += "<li class=story><b class=hl>" + headline + "</b> - <i class=src>" + kSources[s] +
                "</i> <span class=date>" + day.toString(QStringLiteral("MM/dd/yyyy")).toLatin1() +
                "</span> <span class=time>" + time.toString(QStringLiteral("h:mm AP")).toLatin1() + "</span></li>\r\n";
    }
    page += "</ul>\r\n</body></html>\r\n";
    return page;
}

DemoMarketThread::DemoMarketThread(const support::Clock& clock, quint32 walkSeed, int latencyMs)
    : m_clock(clock), m_seed(walkSeed), m_latencyMs(latencyMs)
{}

DemoMarketThread::~DemoMarketThread()
{
    stop();
}

bool DemoMarketThread::start(quint16 port)
{
    stop();
    m_thread = std::make_unique<QThread>();
    m_market = new DemoMarket(m_clock, m_seed);
    m_market->setLatencyMs(m_latencyMs);
    m_market->moveToThread(m_thread.get());
    QObject::connect(m_thread.get(), &QThread::finished, m_market, &QObject::deleteLater);
    m_thread->start();
    bool ok = false;
    QMetaObject::invokeMethod(
        m_market, [this, port, &ok] { ok = m_market->listen(port); }, Qt::BlockingQueuedConnection);
    if (!ok) {
        stop();
    }
    return ok;
}

void DemoMarketThread::stop()
{
    if (!m_thread) {
        return;
    }
    if (m_market) {
        QMetaObject::invokeMethod(
            m_market, [m = m_market] { m->close(); }, Qt::BlockingQueuedConnection);
    }
    m_thread->quit();
    m_thread->wait();
    m_thread.reset();
    m_market = nullptr;
}

quint16 DemoMarketThread::port() const
{
    return m_market ? m_market->port() : 0;
}

QString DemoMarketThread::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(port());
}

} // namespace kestrova::sim
