// The demo market's answers in the shapes of the shipped modern quote sources: a batch CSV
// like Stooq's latest-quote download, Yahoo's v8 chart JSON, Alpha Vantage's GLOBAL_QUOTE
// and Finnhub's quote, each with the error shapes those services document.

#include "sim/DemoMarket.h"

#include "support/Clock.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <QUrlQuery>

#include <cmath>

namespace kestrova::sim {

namespace {

struct IndexInfo
{
    const char* symbols[3]; // the spellings the services use
    const char* key;        // the instrument the index table of /index shares
    const char* name;
    double base;
};
const IndexInfo kIndices[] = {
    {{"^DJI", "DJIA", nullptr}, "DOW", "Dow Jones Industrial Average", 10345.21},
    {{"^IXIC", "^NDQ", "NASDAQ"}, "NASDAQ", "NASDAQ Composite", 2891.48},
    {{"^GSPC", "^SPX", "SPX"}, "S&P 500", "S&P 500", 1382.95},
};

const IndexInfo* indexFor(const QString& symbol)
{
    for (const IndexInfo& ix : kIndices) {
        for (const char* s : ix.symbols) {
            if (s && symbol.compare(QLatin1String(s), Qt::CaseInsensitive) == 0)
                return &ix;
        }
    }
    return nullptr;
}

// US mutual fund symbols are five letters ending in X.
bool isFund(const QString& symbol)
{
    return symbol.size() == 5 && symbol.endsWith(u'X');
}

// A source's symbol as the demo knows it: without an exchange suffix, in upper case.
QString plain(const QString& symbol)
{
    QString s = symbol.trimmed().toUpper();
    const qsizetype dot = s.indexOf(u'.');
    if (dot > 0 && !s.startsWith(u'^'))
        s.truncate(dot);
    return s;
}

// Services send prices to the cent.
double cents(double v)
{
    return std::round(v * 100) / 100;
}

QByteArray num(double v, int decimals = 2)
{
    return QByteArray::number(v, 'f', decimals);
}

// The latest-quote CSV's field letters: s symbol, d2 date, t2 time, o h l c the day's prices,
// v volume, n name, p the previous close. Letters it does not know are passed over.
enum class CsvColumn { Symbol, Date, Time, Open, High, Low, Close, Volume, Name, Previous };

QList<CsvColumn> csvColumns(QString letters)
{
    if (letters.isEmpty())
        letters = QStringLiteral("sd2t2ohlcvn");
    static const std::pair<const char*, CsvColumn> kLetters[] = {
        {"d2", CsvColumn::Date}, {"t2", CsvColumn::Time},   {"s", CsvColumn::Symbol}, {"o", CsvColumn::Open},
        {"h", CsvColumn::High},  {"l", CsvColumn::Low},     {"c", CsvColumn::Close},  {"v", CsvColumn::Volume},
        {"n", CsvColumn::Name},  {"p", CsvColumn::Previous}};
    QList<CsvColumn> columns;
    for (qsizetype i = 0; i < letters.size();) {
        bool known = false;
        for (const auto& [code, column] : kLetters) {
            const QLatin1String c(code);
            if (QStringView(letters).mid(i).startsWith(c)) {
                if (!columns.contains(column))
                    columns << column;
                i += c.size();
                known = true;
                break;
            }
        }
        if (!known)
            ++i;
    }
    return columns;
}

QByteArray csvColumnName(CsvColumn c)
{
    static const char* const kNames[] = {"Symbol", "Date",  "Time",   "Open", "High",
                                         "Low",    "Close", "Volume", "Name", "Prev"};
    return kNames[int(c)];
}

// Nesting far deeper than any JSON reader allows.
QByteArray deepJson()
{
    return QByteArray(10000, '[') + QByteArray(10000, ']');
}

} // namespace

DemoMarket::SourceQuote DemoMarket::sourceQuote(const QString& symbol)
{
    SourceQuote q;
    q.symbol = plain(symbol);
    if (q.symbol.startsWith(QLatin1String("NODATA")) || m_sourcesSilent.load())
        return q;
    if (const IndexInfo* ix = indexFor(q.symbol)) {
        q.found = true;
        q.kind = SourceQuote::Index;
        q.name = QString::fromLatin1(ix->name);
        q.in = step(QStringLiteral("I:") + QLatin1String(ix->key), ix->base, 0.01);
        q.in.volume = 0;
        return q;
    }
    q.found = true;
    q.kind = isFund(q.symbol) ? SourceQuote::Fund : SourceQuote::Stock;
    q.name = QStringLiteral("Demo ") + q.symbol +
             (q.kind == SourceQuote::Fund ? QStringLiteral(" Fund") : QStringLiteral(" Corp"));
    // The walk the stock page of the symbol takes, so both kinds of source agree.
    q.in = stockStep(q.symbol);
    if (q.kind == SourceQuote::Fund) {
        // A fund has one price a day: no range, no volume.
        q.in.open = q.in.dayHigh = q.in.dayLow = q.in.last;
        q.in.volume = 0;
    }
    return q;
}

DemoMarket::Reply DemoMarket::sourceReply(const QString& path, const QUrlQuery& query)
{
    const QDateTime now = m_clock.now();
    Reply r;
    const QString asked = path.mid(path.lastIndexOf(u'/') + 1) + u'+' +
                          query.queryItemValue(QStringLiteral("s"), QUrl::FullyDecoded) + u'+' +
                          query.queryItemValue(QStringLiteral("symbol"), QUrl::FullyDecoded);
    if (asked.contains(QLatin1String("HANG"), Qt::CaseInsensitive)) {
        r.hang = true;
        return r;
    }
    if (path == QLatin1String("/q/l/")) {
        // Batch CSV. The symbols are joined with "+", which a query may also show as a blank.
        QString list = query.queryItemValue(QStringLiteral("s"), QUrl::FullyDecoded);
        const QStringList symbols = list.replace(u' ', u'+').split(u'+', Qt::SkipEmptyParts);
        if (symbols.contains(QStringLiteral("BUSY.US"), Qt::CaseInsensitive)) {
            return reply(429, "Exceeded the daily hits limit", "text/plain", {{"Retry-After", "120"}});
        }
        if (symbols.contains(QStringLiteral("HTML.US"), Qt::CaseInsensitive)) {
            return reply(200, "<html><body><h1>Service moved</h1></body></html>");
        }
        if (symbols.contains(QStringLiteral("EMPTY.US"), Qt::CaseInsensitive)) {
            return reply(200, {}, "text/csv");
        }
        if (symbols.contains(QStringLiteral("HUGE.US"), Qt::CaseInsensitive)) {
            // 50 MB of rows: far past what any quote answer needs.
            const QByteArray row = "HUGE.US,2026-11-23,16:00:00,1,1,1,1,1,Huge\r\n";
            return reply(200,
                         "Symbol,Date,Time,Open,High,Low,Close,Volume,Name\r\n" +
                             row.repeated(50 * 1024 * 1024 / row.size()),
                         "text/csv");
        }
        // The columns and their order are those the field letters ask for.
        QList<CsvColumn> columns = csvColumns(query.queryItemValue(QStringLiteral("f")));
        if (symbols.contains(QStringLiteral("NOVOL.US"), Qt::CaseInsensitive))
            columns.removeAll(CsvColumn::Volume);
        QByteArrayList header;
        for (const CsvColumn c : columns)
            header << csvColumnName(c);
        QByteArray csv = header.join(',') + "\r\n";
        for (const QString& s : symbols) {
            const SourceQuote q = sourceQuote(s);
            QByteArrayList cells;
            for (const CsvColumn c : columns) {
                if (c == CsvColumn::Symbol) {
                    cells << s.toUpper().toLatin1();
                    continue;
                }
                if (!q.found) {
                    cells << "N/D";
                    continue;
                }
                switch (c) {
                case CsvColumn::Symbol:
                    break;
                case CsvColumn::Date:
                    cells << now.date().toString(Qt::ISODate).toLatin1();
                    break;
                case CsvColumn::Time:
                    cells << now.time().toString(QStringLiteral("HH:mm:ss")).toLatin1();
                    break;
                case CsvColumn::Open:
                    cells << num(q.in.open);
                    break;
                case CsvColumn::High:
                    cells << num(q.in.dayHigh);
                    break;
                case CsvColumn::Low:
                    cells << num(q.in.dayLow);
                    break;
                case CsvColumn::Close:
                    cells << num(q.in.last);
                    break;
                case CsvColumn::Volume:
                    cells << QByteArray::number(q.in.volume);
                    break;
                case CsvColumn::Name:
                    // Names with a comma come quoted, as any CSV writer does.
                    cells << '"' + q.name.toLatin1() + '"';
                    break;
                case CsvColumn::Previous:
                    cells << num(q.in.previousClose);
                    break;
                }
            }
            csv += cells.join(',') + "\r\n";
        }
        r.body = csv;
        r.contentType = "text/csv";
        return r;
    }

    if (path.startsWith(QLatin1String("/v8/finance/chart/"))) {
        const QString symbol = path.mid(18);
        r.contentType = "application/json";
        const QString upper = symbol.toUpper();
        if (upper == QLatin1String("BUSY"))
            return reply(429, "Too Many Requests", "text/plain", {{"Retry-After", "90"}});
        if (upper == QLatin1String("HTML"))
            return reply(200, "<!DOCTYPE html><html><body>Will be right back</body></html>");
        if (upper == QLatin1String("DEEP"))
            return reply(200, deepJson(), "application/json");
        const SourceQuote q = sourceQuote(symbol);
        if (!q.found) {
            return reply(404,
                         "{\"chart\":{\"result\":null,\"error\":{\"code\":\"Not Found\",\"description\":\"No data "
                         "found, symbol may be delisted\"}}}",
                         "application/json");
        }
        const bool nulls = upper == QLatin1String("NULLS");
        QJsonObject meta{{QStringLiteral("currency"), QStringLiteral("USD")},
                         {QStringLiteral("symbol"), upper},
                         {QStringLiteral("exchangeName"), QStringLiteral("NYQ")},
                         {QStringLiteral("instrumentType"), q.kind == SourceQuote::Index  ? QStringLiteral("INDEX")
                                                            : q.kind == SourceQuote::Fund ? QStringLiteral("MUTUALFUND")
                                                                                          : QStringLiteral("EQUITY")},
                         {QStringLiteral("regularMarketTime"), now.toSecsSinceEpoch()},
                         {QStringLiteral("gmtoffset"), -18000},
                         {QStringLiteral("timezone"), QStringLiteral("EST")},
                         {QStringLiteral("regularMarketPrice"), nulls ? QJsonValue() : QJsonValue(cents(q.in.last))},
                         {QStringLiteral("fiftyTwoWeekHigh"), cents(q.in.yearHigh)},
                         {QStringLiteral("fiftyTwoWeekLow"), cents(q.in.yearLow)},
                         {QStringLiteral("regularMarketDayHigh"), cents(q.in.dayHigh)},
                         {QStringLiteral("regularMarketDayLow"), cents(q.in.dayLow)},
                         {QStringLiteral("longName"), q.name},
                         {QStringLiteral("shortName"), q.name.left(20)},
                         {QStringLiteral("chartPreviousClose"), cents(q.in.previousClose)},
                         {QStringLiteral("previousClose"), cents(q.in.previousClose)},
                         {QStringLiteral("scale"), 3},
                         {QStringLiteral("priceHint"), 2},
                         {QStringLiteral("dataGranularity"), QStringLiteral("1d")},
                         {QStringLiteral("range"), QStringLiteral("1d")}};
        if (upper != QLatin1String("NOVOL"))
            meta.insert(QStringLiteral("regularMarketVolume"), double(q.in.volume));
        const QJsonObject quote{
            {QStringLiteral("open"), QJsonArray{cents(q.in.open)}},
            {QStringLiteral("high"), QJsonArray{cents(q.in.dayHigh)}},
            {QStringLiteral("low"), QJsonArray{cents(q.in.dayLow)}},
            {QStringLiteral("close"), QJsonArray{nulls ? QJsonValue() : QJsonValue(cents(q.in.last))}},
            {QStringLiteral("volume"), QJsonArray{double(q.in.volume)}}};
        const QJsonObject result{
            {QStringLiteral("meta"), meta},
            {QStringLiteral("timestamp"), QJsonArray{now.toSecsSinceEpoch()}},
            {QStringLiteral("indicators"), QJsonObject{{QStringLiteral("quote"), QJsonArray{quote}}}}};
        const QJsonObject chart{{QStringLiteral("result"), QJsonArray{result}},
                                {QStringLiteral("error"), QJsonValue()}};
        r.body = QJsonDocument(QJsonObject{{QStringLiteral("chart"), chart}}).toJson(QJsonDocument::Compact);
        if (upper == QLatin1String("TRUNC"))
            r.body.truncate(r.body.size() / 2);
        return r;
    }

    if (path == QLatin1String("/query")) {
        r.contentType = "application/json";
        const QString symbol = query.queryItemValue(QStringLiteral("symbol"), QUrl::FullyDecoded);
        if (query.queryItemValue(QStringLiteral("apikey")).isEmpty()) {
            r.body = "{\"Error Message\": \"the parameter apikey is invalid or missing. Please claim your free API "
                     "key on (https://www.alphavantage.co/support/#api-key).\"}";
            return r;
        }
        if (symbol.compare(QLatin1String("BUSY"), Qt::CaseInsensitive) == 0) {
            r.body = "{\"Information\": \"Thank you for using Alpha Vantage! Our standard API rate limit is 25 "
                     "requests per day.\"}";
            return r;
        }
        const SourceQuote q = sourceQuote(symbol);
        QJsonObject g;
        if (q.found) {
            const double change = q.in.last - q.in.previousClose;
            g = QJsonObject{{QStringLiteral("01. symbol"), q.symbol},
                            {QStringLiteral("02. open"), QString::fromLatin1(num(q.in.open, 4))},
                            {QStringLiteral("03. high"), QString::fromLatin1(num(q.in.dayHigh, 4))},
                            {QStringLiteral("04. low"), QString::fromLatin1(num(q.in.dayLow, 4))},
                            {QStringLiteral("05. price"), QString::fromLatin1(num(q.in.last, 4))},
                            {QStringLiteral("06. volume"), QString::number(q.in.volume)},
                            {QStringLiteral("07. latest trading day"), now.date().toString(Qt::ISODate)},
                            {QStringLiteral("08. previous close"), QString::fromLatin1(num(q.in.previousClose, 4))},
                            {QStringLiteral("09. change"), QString::fromLatin1(num(change, 4))},
                            {QStringLiteral("10. change percent"),
                             QString(QString::fromLatin1(num(change * 100 / q.in.previousClose, 4)) + u'%')}};
        }
        r.body = QJsonDocument(QJsonObject{{QStringLiteral("Global Quote"), g}}).toJson(QJsonDocument::Indented);
        return r;
    }

    if (path == QLatin1String("/api/v1/quote")) {
        r.contentType = "application/json; charset=utf-8";
        const QString symbol = query.queryItemValue(QStringLiteral("symbol"), QUrl::FullyDecoded);
        if (query.queryItemValue(QStringLiteral("token")).isEmpty())
            return reply(401, "{\"error\":\"Invalid API key\"}", "application/json");
        if (symbol.compare(QLatin1String("BUSY"), Qt::CaseInsensitive) == 0) {
            return reply(429, "{\"error\":\"API limit reached. Please try again later. Remaining Limit: 0\"}",
                         "application/json");
        }
        const SourceQuote q = sourceQuote(symbol);
        if (!q.found) {
            r.body = "{\"c\":0,\"d\":null,\"dp\":null,\"h\":0,\"l\":0,\"o\":0,\"pc\":0,\"t\":0}";
            return r;
        }
        const double change = q.in.last - q.in.previousClose;
        r.body = QJsonDocument(QJsonObject{{QStringLiteral("c"), cents(q.in.last)},
                                           {QStringLiteral("d"), cents(change)},
                                           {QStringLiteral("dp"), std::round(change * 1e6 / q.in.previousClose) / 1e4},
                                           {QStringLiteral("h"), cents(q.in.dayHigh)},
                                           {QStringLiteral("l"), cents(q.in.dayLow)},
                                           {QStringLiteral("o"), cents(q.in.open)},
                                           {QStringLiteral("pc"), cents(q.in.previousClose)},
                                           {QStringLiteral("t"), now.toSecsSinceEpoch()}})
                     .toJson(QJsonDocument::Compact);
        return r;
    }
    return reply(404, "<html><body>Not Found</body></html>");
}

} // namespace kestrova::sim
