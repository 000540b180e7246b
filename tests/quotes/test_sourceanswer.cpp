#include "TestUtil.h"

#include "quotes/SourceAnswer.h"
#include "quotes/SourceDefinition.h"

#include <QTest>

using namespace kestrova;
using quotes::SourceField;

namespace {

const quotes::SourceFile& shipped()
{
    static const quotes::SourceFile file =
        quotes::loadSourcesJson(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/data/sources.json"));
    return file;
}

// One answer in a line a table row can name: the failure, or the values that came.
QString describe(const quotes::SymbolAnswer& a)
{
    if (!a.priced)
        return QStringLiteral("fail: ") + a.failure;
    QStringList parts;
    for (int f = 0; f < quotes::kSourceFieldCount; ++f) {
        const auto& n = a.values.numbers[size_t(f)];
        if (n)
            parts << quotes::sourceFieldName(SourceField(f)) + u'=' + QString::number(*n, 'g', 10);
    }
    if (!a.values.name.isEmpty())
        parts << QStringLiteral("name=") + a.values.name;
    if (a.values.time.isValid())
        parts << QStringLiteral("time=") + a.values.time.toString(a.values.timeOfDay
                                                                      ? QStringLiteral("yyyy-MM-dd HH:mm:ss")
                                                                      : QStringLiteral("yyyy-MM-dd"));
    if (!a.missingFields.isEmpty())
        parts << QStringLiteral("missing=") + a.missingFields.join(u'+');
    return parts.join(u' ');
}

// The columns of the shipped definition's field letters (sd2t2ohlcvnp), in their order.
const QByteArray kStooqHead = "Symbol,Date,Time,Open,High,Low,Close,Volume,Name,Prev\r\n";

} // namespace

class TestSourceAnswer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void shippedDefinitionsLoad();
    void definitionProblems_data();
    void definitionProblems();
    void answers_data();
    void answers();
    void pointerAsDeepAsTheAnswer();
    void symbolsAndUrls_data();
    void symbolsAndUrls();
};

void TestSourceAnswer::shippedDefinitionsLoad()
{
    QVERIFY2(shipped().problems.isEmpty(), qPrintable(shipped().problems.join(u'\n')));
    QStringList names;
    for (const auto& s : shipped().sources)
        names << s.name;
    QCOMPARE(names, (QStringList{"Stooq", "Yahoo", "Alpha Vantage", "Finnhub", "Demo CSV", "Demo JSON"}));
    QCOMPARE(shipped().order, (QStringList{"Stooq", "Yahoo", "servers.dat"}));
    QVERIFY(!shipped().find(QStringLiteral("stooq"))->needsKey());
    QVERIFY(shipped().find(QStringLiteral("finnhub"))->needsKey());
}

void TestSourceAnswer::definitionProblems_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("loaded");
    QTest::addColumn<QString>("problem"); // empty: none

    // A good source to sit beside the broken one, which must still load.
    const QByteArray good = R"({"name":"Good","format":"json","url":"https://a/{symbol}","fields":{"last":"/p"}})";
    auto file = [&](const QByteArray& bad) -> QByteArray { return "{\"sources\": [\n" + good + ",\n" + bad + "\n]}"; };
    // clang-format off
    QTest::newRow("unknown field") << file(R"({"name":"Bad","format":"json","url":"https://b/{symbol}",
"fields":{"last":"/p",
"lst":"/q"}})") << QStringList{"Good"}
                                   << "sources.json line 5: source Bad: unknown field \"lst\"; the source is skipped";
    QTest::newRow("pointer without a slash")
        << file(R"({"name":"Bad","format":"json","url":"https://b/{symbol}","fields":{"last":"chart/price"}})")
        << QStringList{"Good"} << "line 3: source Bad: field \"last\": \"chart/price\" is not a JSON pointer";
    QTest::newRow("pointer with a bad escape")
        << file(R"({"name":"Bad","format":"json","url":"https://b/{symbol}","fields":{"last":"/a~2b"}})")
        << QStringList{"Good"} << "is not a JSON pointer";
    QTest::newRow("bad expression")
        << file(R"({"name":"Bad","format":"html","url":"https://b/{symbol}","fields":{"last":"Last: ([0-9.]+"}})")
        << QStringList{"Good"} << "field \"last\": bad expression";
    QTest::newRow("expression without a capture")
        << file(R"({"name":"Bad","format":"html","url":"https://b/{symbol}","fields":{"last":"Last: [0-9.]+"}})")
        << QStringList{"Good"} << "it needs one capture";
    QTest::newRow("unknown key") << file(R"({"name":"Bad","format":"csv","url":"https://b/{symbols}",
"bach":{"max":5},"fields":{"last":"Close"}})")
                                 << QStringList{"Good"} << "line 4: source Bad: unknown key \"bach\"";
    QTest::newRow("no placeholder") << file(
                                           R"({"name":"Bad","format":"csv","url":"https://b/q","fields":{"last":"C"}})")
                                    << QStringList{"Good"} << "url must be http(s) and hold either";
    QTest::newRow("no last") << file(
                                    R"({"name":"Bad","format":"csv","url":"https://b/{symbol}","fields":{"open":"O"}})")
                             << QStringList{"Good"} << "fields must map \"last\"";
    QTest::newRow("batch html")
        << file(R"js({"name":"Bad","format":"html","url":"https://b/{symbols}","fields":{"last":"(x)"}})js")
        << QStringList{"Good"} << "an html source answers one {symbol} at a time";
    QTest::newRow("defined twice") << file(good) << QStringList{"Good"} << "source Good is defined twice";
    QTest::newRow("broken document") << QByteArray("{\"sources\": [\n{\"name\": \"A\",,}\n]}") << QStringList{} << "sources.json line 2: ";
    QTest::newRow("html source with a capture")
        << file(R"js({"name":"Page","format":"html","url":"https://b/{symbol}","fields":{"last":"Last: ([0-9.]+)"}})js")
        << QStringList{"Good", "Page"} << QString();
    // clang-format on
}

void TestSourceAnswer::definitionProblems()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, loaded);
    QFETCH(QString, problem);
    const quotes::SourceFile f = quotes::parseSourcesJson(json);
    QStringList names;
    for (const auto& s : f.sources)
        names << s.name;
    QCOMPARE(names, loaded);
    if (problem.isEmpty()) {
        QVERIFY2(f.problems.isEmpty(), qPrintable(f.problems.join(u'\n')));
    } else {
        QCOMPARE(f.problems.size(), 1);
        QVERIFY2(f.problems[0].contains(problem), qPrintable(f.problems[0]));
    }
}

void TestSourceAnswer::answers_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("symbols");
    QTest::addColumn<QStringList>("expected"); // describe() per symbol, or "all: failure"

    // clang-format off
    QTest::newRow("stooq batch with an N/D row")
        << "Stooq"
        << kStooqHead + "IBM.US,2026-11-20,22:00:09,147.2,148.9,146.5,148.1,3284434,IBM,147.05\r\n"
                        "XYZ.US,N/D,N/D,N/D,N/D,N/D,N/D,N/D,N/D,N/D\r\n"
                        "^DJI,2026-11-20,22:00:09,10300.5,10400,10290.25,10345.21,0,\"Dow Jones, Industrial\",10311\r\n"
        << QStringList{"ibm.us", "xyz.us", "^dji"}
        << QStringList{"last=148.1 open=147.2 high=148.9 low=146.5 previousClose=147.05 volume=3284434 name=IBM "
                       "time=2026-11-20 22:00:09",
                       "fail: no data (N/D)",
                       "last=10345.21 open=10300.5 high=10400 low=10290.25 previousClose=10311 volume=0 name=Dow Jones, "
                       "Industrial time=2026-11-20 22:00:09"};
    QTest::newRow("stooq rows in another order, LF ends, one missing")
        << "Stooq"
        << QByteArray("Symbol,Date,Time,Open,High,Low,Close,Volume,Name,Prev\nB.US,2026-11-20,10:00:00,1,2,0.5,1.5,7,B,"
                      "1.25\n")
        << QStringList{"a.us", "b.us"}
        << QStringList{"fail: not in the answer",
                       "last=1.5 open=1 high=2 low=0.5 previousClose=1.25 volume=7 name=B time=2026-11-20 10:00:00"};
    // Column names match whatever their case: every other row spells them as sources.json does.
    QTest::newRow("stooq header in another case")
        << "Stooq"
        << QByteArray("symbol,date,time,open,high,low,CLOSE,volume,name,PREV\r\n"
                      "A.US,2026-11-20,10:00:00,1,2,0.5,1.5,7,A,1.25\r\n")
        << QStringList{"a.us"}
        << QStringList{"last=1.5 open=1 high=2 low=0.5 previousClose=1.25 volume=7 name=A time=2026-11-20 10:00:00"};
    QTest::newRow("stooq without the volume and previous close columns")
        << "Stooq"
        << QByteArray("Symbol,Date,Time,Open,High,Low,Close,Name\r\nA.US,2026-11-20,10:00:00,1,2,0.5,1.5,A\r\n")
        << QStringList{"a.us"}
        << QStringList{"last=1.5 open=1 high=2 low=0.5 name=A time=2026-11-20 10:00:00 missing=previousClose+volume"};
    QTest::newRow("stooq html instead of csv")
        << "Stooq" << QByteArray("\r\n  <html><body>Moved</body></html>") << QStringList{"a.us", "b.us"}
        << QStringList{"all: the answer is HTML, not CSV"};
    QTest::newRow("stooq empty answer") << "Stooq" << QByteArray() << QStringList{"a.us"} << QStringList{"all: the answer is empty"};
    QTest::newRow("stooq header only") << "Stooq" << kStooqHead << QStringList{"a.us"} << QStringList{"fail: not in the answer"};
    QTest::newRow("stooq cut in a row") << "Stooq" << kStooqHead + "A.US,2026-11-20,10:00:00,1,2" << QStringList{"a.us"}
                                        << QStringList{"fail: no price in the answer"};
    QTest::newRow("stooq changed its columns")
        << "Stooq" << QByteArray("Ticker,Price\r\nA.US,1.5\r\n") << QStringList{"a.us"}
        << QStringList{"all: the answer has no column Close (it begins \"Ticker,Price\")"};
    QTest::newRow("stooq text where a number should be")
        << "Stooq" << kStooqHead + "A.US,2026-11-20,10:00:00,1,2,0.5,abc,7,A,1\r\n"
        << QStringList{"a.us"} << QStringList{"fail: unreadable price \"abc\""};

    const QByteArray yahoo =
        R"({"chart":{"result":[{"meta":{"symbol":"VFINX","regularMarketPrice":382.5,"longName":"Vanguard 500",)"
        R"("chartPreviousClose":380,"regularMarketDayHigh":382.5,"regularMarketDayLow":382.5,)"
        R"("regularMarketVolume":0,"regularMarketTime":1763758800,"fiftyTwoWeekHigh":400,"fiftyTwoWeekLow":300},)"
        R"("indicators":{"quote":[{"open":[382.5]}]}}],"error":null}})";
    QTest::newRow("yahoo fund, previous close from the second pointer")
        << "Yahoo" << yahoo << QStringList{"VFINX"}
        << QStringList{"last=382.5 open=382.5 high=382.5 low=382.5 previousClose=380 volume=0 yearHigh=400 yearLow=300 "
                       "name=Vanguard 500 time=" +
                       QDateTime::fromSecsSinceEpoch(1763758800).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))};
    // Only the places the definition points at are read: a series it never reads, strings
    // holding brackets and quotes, and an escaped key must not lead the reading astray.
    const QByteArray series = "\"note\":\"say \\\"]}{\\\\\",\"timestamp\":[" + QByteArray("1,").repeated(5000) +
                              "[{\"a\":\"]\"}]],\"meta\":{";
    QByteArray padded = yahoo;
    padded.replace("\"regularMarketPrice\"", "\"regularMarket\\u0050rice\"").replace("\"meta\":{", series);
    QTest::newRow("yahoo with series, tricky strings and an escaped key")
        << "Yahoo" << padded << QStringList{"VFINX"}
        << QStringList{"last=382.5 open=382.5 high=382.5 low=382.5 previousClose=380 volume=0 yearHigh=400 yearLow=300 "
                       "name=Vanguard 500 time=" +
                       QDateTime::fromSecsSinceEpoch(1763758800).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))};
    QTest::newRow("yahoo with text after the document")
        << "Yahoo" << yahoo + " x" << QStringList{"VFINX"} << QStringList{"all: the answer is not JSON"};
    QTest::newRow("yahoo error shape")
        << "Yahoo"
        << QByteArray(
               R"({"chart":{"result":null,"error":{"code":"Not Found","description":"No data found, symbol may be delisted"}}})")
        << QStringList{"XYZ"} << QStringList{"all: the service says: No data found, symbol may be delisted"};
    QTest::newRow("yahoo null price") << "Yahoo"
                                      << QByteArray(yahoo).replace("\"regularMarketPrice\":382.5",
                                                                   "\"regularMarketPrice\":null")
                                      << QStringList{"VFINX"} << QStringList{"fail: no price"};
    QTest::newRow("yahoo without the volume") << "Yahoo" << QByteArray(yahoo).replace("\"regularMarketVolume\":0,", "")
                                              << QStringList{"VFINX"} << QStringList{"missing=volume"};
    QTest::newRow("yahoo truncated") << "Yahoo" << yahoo.left(yahoo.size() / 2) << QStringList{"VFINX"} << QStringList{"all: the answer is not JSON"};
    QTest::newRow("yahoo nested 10000 deep") << "Yahoo" << QByteArray(10000, '[') + QByteArray(10000, ']')
                                             << QStringList{"VFINX"} << QStringList{"all: the answer is not JSON"};
    QTest::newRow("yahoo html") << "Yahoo" << QByteArray("<!DOCTYPE html><html></html>") << QStringList{"VFINX"}
                                << QStringList{"all: the answer is HTML, not JSON"};

    QTest::newRow("alpha vantage strings with a percent sign")
        << "Alpha Vantage"
        << QByteArray(R"({"Global Quote": {"01. symbol": "IBM", "02. open": "168.2000", "03. high": "169.8800",
            "04. low": "167.5100", "05. price": "169.4300", "06. volume": "3284434",
            "07. latest trading day": "2026-11-20", "08. previous close": "168.3000", "09. change": "1.1300",
            "10. change percent": "0.6714%"}})")
        << QStringList{"IBM"}
        << QStringList{"last=169.43 change=1.13 percentChange=0.6714 open=168.2 high=169.88 low=167.51 "
                       "previousClose=168.3 volume=3284434 time=2026-11-20"};
    QTest::newRow("alpha vantage unknown symbol") << "Alpha Vantage" << QByteArray(R"({"Global Quote": {}})")
                                                  << QStringList{"XYZ"} << QStringList{"fail: no price in the answer"};
    QTest::newRow("alpha vantage rate note")
        << "Alpha Vantage" << QByteArray(R"({"Information": "Our standard API rate limit is 25 requests per day."})")
        << QStringList{"IBM"}
        << QStringList{"limit: the service says: Our standard API rate limit is 25 requests per day."};
    QTest::newRow("alpha vantage bad key")
        << "Alpha Vantage" << QByteArray(R"({"Error Message": "the parameter apikey is invalid or missing."})")
        << QStringList{"IBM"} << QStringList{"all: the service says: the parameter apikey is invalid or missing."};

    QTest::newRow("finnhub quote")
        << "Finnhub"
        << QByteArray(
               R"({"c":261.74,"d":-2.51,"dp":-0.9498,"h":263.31,"l":260.68,"o":261.07,"pc":264.25,"t":1582641000})")
        << QStringList{"AAPL"}
        << QStringList{"last=261.74 change=-2.51 percentChange=-0.9498 open=261.07 high=263.31 low=260.68 "
                       "previousClose=264.25 time=" +
                       QDateTime::fromSecsSinceEpoch(1582641000).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))};
    QTest::newRow("finnhub unknown symbol: zeros and nulls")
        << "Finnhub" << QByteArray(R"({"c":0,"d":null,"dp":null,"h":0,"l":0,"o":0,"pc":0,"t":0})") << QStringList{"XYZ"}
        << QStringList{"fail: no price"};
    QTest::newRow("finnhub error") << "Finnhub" << QByteArray(R"({"error":"Invalid API key"})") << QStringList{"AAPL"}
                                   << QStringList{"all: the service says: Invalid API key"};
    QTest::newRow("a body over the limit") << "Finnhub" << QByteArray(quotes::kMaxSourceAnswerBytes + 1, ' ')
                                           << QStringList{"AAPL"} << QStringList{"all: the answer is larger than 8 MB"};
    // clang-format on
}

void TestSourceAnswer::answers()
{
    QFETCH(QString, source);
    QFETCH(QByteArray, body);
    QFETCH(QStringList, symbols);
    QFETCH(QStringList, expected);
    const quotes::SourceDefinition* def = shipped().find(source);
    QVERIFY(def);
    const quotes::SourceAnswer a = quotes::parseSourceAnswer(*def, body, symbols);
    if (expected.size() == 1 &&
        (expected[0].startsWith(QLatin1String("all: ")) || expected[0].startsWith(QLatin1String("limit: ")))) {
        const bool limit = expected[0].startsWith(QLatin1String("limit: "));
        QCOMPARE(a.rateLimited, limit);
        QVERIFY2(a.failure.startsWith(expected[0].section(QStringLiteral(": "), 1)), qPrintable(a.failure));
        return;
    }
    QVERIFY2(a.failure.isEmpty(), qPrintable(a.failure));
    QCOMPARE(int(a.symbols.size()), symbols.size());
    for (int i = 0; i < symbols.size(); ++i) {
        const QString got = describe(a.symbols[size_t(i)]);
        // A row may name only the part it is about (the end of the description).
        QVERIFY2(got == expected[i] || (expected[i].startsWith(QLatin1String("missing=")) && got.endsWith(expected[i])),
                 qPrintable(got));
    }
}

// The reading recurses along a definition's pointers: one 100,000 levels deep, met by an
// answer as deep, must end in a clear failure, not in a stack overflow.
void TestSourceAnswer::pointerAsDeepAsTheAnswer()
{
    constexpr int kDepth = 100000;
    const QByteArray definition = R"({"sources":[{"name":"Deep","format":"json","url":"https://a/{symbol}",)"
                                  R"("fields":{"last":")" +
                                  QByteArray("/0").repeated(kDepth) + R"("}}]})";
    const quotes::SourceFile file = quotes::parseSourcesJson(definition);
    QVERIFY2(file.problems.isEmpty(), qPrintable(file.problems.join(u'\n')));
    QCOMPARE(int(file.sources.size()), 1);
    const QByteArray body = QByteArray(kDepth, '[') + '1' + QByteArray(kDepth, ']');
    const quotes::SourceAnswer a = quotes::parseSourceAnswer(file.sources[0], body, {QStringLiteral("X")});
    QVERIFY2(a.failure.startsWith(QLatin1String("the answer is not JSON")), qPrintable(a.failure));
}

void TestSourceAnswer::symbolsAndUrls_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QStringList>("tickers");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("shown");

    QTest::newRow("stooq batch: suffix, lower case, aliases, indices")
        << "Stooq" << QStringList{"IBM", "^GSPC", "^DJI", "BRK.B", "ES Z6"}
        << "https://stooq.com/q/l/?s=ibm.us+%5Espx+%5Edji+brk.b+es%20z6.us&f=sd2t2ohlcvnp&h&e=csv"
        << "https://stooq.com/q/l/?s=ibm.us+%5Espx+%5Edji+brk.b+es%20z6.us&f=sd2t2ohlcvnp&h&e=csv";
    QTest::newRow("yahoo: upper case, alias")
        << "Yahoo" << QStringList{"^spx"}
        << "https://query1.finance.yahoo.com/v8/finance/chart/%5EGSPC?range=1d&interval=1d"
        << "https://query1.finance.yahoo.com/v8/finance/chart/%5EGSPC?range=1d&interval=1d";
    QTest::newRow("a key goes into the request and never into what is shown")
        << "Alpha Vantage" << QStringList{"ibm"}
        << "https://www.alphavantage.co/query?function=GLOBAL_QUOTE&symbol=IBM&apikey=k%26y%3D1"
        << "https://www.alphavantage.co/query?function=GLOBAL_QUOTE&symbol=IBM&apikey=***";
}

void TestSourceAnswer::symbolsAndUrls()
{
    QFETCH(QString, source);
    QFETCH(QStringList, tickers);
    QFETCH(QString, url);
    QFETCH(QString, shown);
    const quotes::SourceDefinition* def = shipped().find(source);
    QVERIFY(def);
    QStringList symbols;
    for (const QString& t : tickers)
        symbols << quotes::sourceSymbol(*def, t);
    QString seen;
    QCOMPARE(quotes::sourceRequestUrl(*def, symbols, QStringLiteral("k&y=1"), &seen), url);
    QCOMPARE(seen, shown);
}

QTEST_GUILESS_MAIN(TestSourceAnswer)
#include "test_sourceanswer.moc"
