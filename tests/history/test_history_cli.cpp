// kestrova-cli history and alarms, run as a separate process on a data folder of their own.
#include "CliRun.h"
#include "TestUtil.h"

#include "history/HistoryStore.h"
#include "support/Clock.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrova;
using history::AlarmKind;
using history::QuoteRow;

namespace {

// Local times, as a user gives them on the command line.
const QDateTime kMon(QDate(2026, 11, 23), QTime(9, 45, 0));
const QDateTime kTue(QDate(2026, 11, 24), QTime(15, 30, 0));

QuoteRow row(const QDateTime& at, double last, std::optional<qint64> volume)
{
    QuoteRow r;
    r.symbol = QStringLiteral("IBM");
    r.fetchedAt = at;
    r.quotedAt = at.addSecs(-120);
    r.last = last;
    r.change = -0.75;
    r.percentChange = -0.5;
    r.volume = volume;
    r.bid = last - 0.1;
    r.high = last + 1;
    r.low = last - 1;
    r.source = QStringLiteral("Demo, Market");
    return r;
}

} // namespace

class TestHistoryCli : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_data;

    testing::CliRun cli(const QStringList& args, const QByteArray& input = {})
    {
        return testing::runCli(m_dir, QStringList{QStringLiteral("--data-dir"), m_data} + args, 60000, input);
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_data = m_dir.filePath(QStringLiteral("data"));
        QVERIFY(QDir().mkpath(m_data));
        support::SystemClock clock;
        history::HistoryStore store(QDir(m_data).filePath(history::HistoryStore::defaultFileName()), clock);
        QVERIFY2(store.open(), qPrintable(store.lastError()));
        history::CycleRecord c;
        c.quotes << row(kMon, 150.25, 1200000) << row(kTue, 151.5, std::nullopt);
        c.alarms << history::AlarmRow{QStringLiteral("IBM"), AlarmKind::High, 151, 151.5, kTue, true}
                 << history::AlarmRow{QStringLiteral("MSFT"), AlarmKind::LowChange, -2, -2.5, kMon, false};
        QVERIFY(store.append(c));
    }

    void jsonFieldByField()
    {
        const testing::CliRun r = cli({QStringLiteral("history"), QStringLiteral("ibm"), QStringLiteral("--json")});
        QCOMPARE(r.code, 0);
        const QJsonArray rows = QJsonDocument::fromJson(r.out.toUtf8()).array();
        QCOMPARE(rows.size(), 2);
        // Every field, and no others: a price the store does not have is null, not zero.
        const QJsonObject expected{{"symbol", "IBM"},
                                   {"fetched", kMon.toUTC().toString(Qt::ISODateWithMs)},
                                   {"quoted", kMon.addSecs(-120).toUTC().toString(Qt::ISODateWithMs)},
                                   {"last", 150.25},
                                   {"change", -0.75},
                                   {"percentChange", -0.5},
                                   {"volume", 1200000},
                                   {"bid", 150.15},
                                   {"ask", QJsonValue::Null},
                                   {"high", 151.25},
                                   {"low", 149.25},
                                   {"open", QJsonValue::Null},
                                   {"source", "Demo, Market"},
                                   {"imported", false}};
        QCOMPARE(QJsonDocument(rows[0].toObject()).toJson(QJsonDocument::Compact),
                 QJsonDocument(expected).toJson(QJsonDocument::Compact));
        QVERIFY(rows[1].toObject().value(QStringLiteral("volume")).isNull());
    }

    void ranges_data()
    {
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("out"); // the output's lines, or one line it must hold
        QTest::addColumn<QString>("err");
        const QString head = QStringLiteral("Fetched                   Last    Change    %Chg       Volume       High"
                                            "        Low Source");
        const QString mon = QStringLiteral("2026-11-23 09:45:00     150.25     -0.75    -0.5      1200000     151.25"
                                           "     149.25 Demo, Market");
        const QString tue = QStringLiteral("2026-11-24 15:30:00      151.5     -0.75    -0.5                   152.5"
                                           "      150.5 Demo, Market");
        const QStringList none;
        // clang-format off
        QTest::newRow("whole history") << "IBM" << none << 0 << QStringList{head, mon, tue} << "";
        QTest::newRow("since a day") << "ibm" << QStringList{"--since", "2026-11-24"} << 0 << QStringList{head, tue} << "";
        QTest::newRow("until a day, inclusive") << "IBM" << QStringList{"--until", "2026-11-23"} << 0 << QStringList{head, mon} << "";
        QTest::newRow("minute bounds") << "IBM" << QStringList{"--since", "2026-11-23T09:46", "--until=2026-11-24T15:30"} << 0 << QStringList{head, tue} << "";
        QTest::newRow("nothing in range") << "IBM" << QStringList{"--until", "2026-11-22"} << 0 << QStringList{"No quotes of IBM in the history."} << "";
        QTest::newRow("unknown symbol") << "NOPE" << none << 0 << QStringList{"No quotes of NOPE in the history."} << "";
        QTest::newRow("backwards") << "IBM" << QStringList{"--since", "2026-11-24", "--until", "2026-11-23"} << 2 << none << "the date range is backwards";
        QTest::newRow("not a date") << "IBM" << QStringList{"--since", "yesterday"} << 2 << none << "\"yesterday\" is not a date";
        QTest::newRow("csv quotes the source") << "IBM" << QStringList{"--csv", "--until", "2026-11-23"} << 0
            << QStringList{"Symbol,Fetched,Quoted,Last,Change,PercentChange,Volume,Bid,Ask,High,Low,Open,Source",
                           "IBM,2026-11-23 09:45:00,2026-11-23 09:43:00,150.25,-0.75,-0.5,1200000,150.15,,151.25,149.25,,\"Demo, Market\""} << "";
        QTest::newRow("json, nothing in range") << "IBM" << QStringList{"--json", "--until", "2026-11-22"} << 0 << QStringList{"[", "]"} << "";
        QTest::newRow("csv and json") << "IBM" << QStringList{"--csv", "--json"} << 2 << none << "cannot be used together";
        QTest::newRow("no symbol") << "" << none << 2 << none << "a SYMBOL is needed";
        // clang-format on
    }
    void ranges()
    {
        QFETCH(QString, symbol);
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QStringList, out);
        QFETCH(QString, err);
        QStringList all{QStringLiteral("history")};
        if (!symbol.isEmpty()) {
            all << symbol;
        }
        const testing::CliRun r = cli(all + args);
        QCOMPARE(r.code, code);
        if (!out.isEmpty()) {
            QCOMPARE(r.out.trimmed().split(u'\n'), out);
        }
        QVERIFY2(r.err.contains(err), qPrintable(r.err));
    }

    // The listing's times in the user's zone on both sides of its clock changes (an hour
    // that comes twice, an hour that never comes), and its prices rounded as they always
    // were: a tie at the fifth decimal away from zero, negative zero without its sign.
    void csvAcrossClockChanges_data()
    {
        QTest::addColumn<QString>("zone");
        QTest::addColumn<QStringList>("lines");
        // clang-format off
        QTest::newRow("New York") << "America/New_York" << QStringList{
            "IBM,2026-03-08 01:59:59,,0.0313,,,,,,,,,x",
            "IBM,2026-03-08 03:00:00,,-0.0313,,,,,,,,,x",
            "IBM,2026-11-01 01:30:00,,0,,,,,,,,,x",
            "IBM,2026-11-01 01:30:00,,100000000000000000000,,,,,,,,,x",
            "IBM,2026-11-01 01:59:59,,150.25,,,,,,,,,x"};
        QTest::newRow("London") << "Europe/London" << QStringList{
            "IBM,2026-03-08 06:59:59,,0.0313,,,,,,,,,x",
            "IBM,2026-03-08 07:00:00,,-0.0313,,,,,,,,,x",
            "IBM,2026-11-01 05:30:00,,0,,,,,,,,,x",
            "IBM,2026-11-01 06:30:00,,100000000000000000000,,,,,,,,,x",
            "IBM,2026-11-01 06:59:59,,150.25,,,,,,,,,x"};
        // clang-format on
    }
    void csvAcrossClockChanges()
    {
        QFETCH(QString, zone);
        QFETCH(QStringList, lines);
        QTemporaryDir dir;
        const QString data = dir.filePath(QStringLiteral("data"));
        QVERIFY(QDir().mkpath(data));
        {
            support::SystemClock clock;
            history::HistoryStore store(QDir(data).filePath(history::HistoryStore::defaultFileName()), clock);
            QVERIFY2(store.open(), qPrintable(store.lastError()));
            const std::pair<const char*, double> rows[] = {{"2026-03-08T06:59:59Z", 0.03125},
                                                           {"2026-03-08T07:00:00Z", -0.03125},
                                                           {"2026-11-01T05:30:00Z", -0.0},
                                                           {"2026-11-01T06:30:00Z", 1e20},
                                                           {"2026-11-01T06:59:59Z", 150.25}};
            history::CycleRecord c;
            for (const auto& [at, last] : rows) {
                QuoteRow r;
                r.symbol = QStringLiteral("IBM");
                r.fetchedAt = QDateTime::fromString(QLatin1String(at), Qt::ISODate);
                r.last = last;
                r.source = QStringLiteral("x");
                c.quotes << r;
            }
            QVERIFY(store.append(c));
        }
        const testing::CliRun r = testing::runCli(dir,
                                                  {QStringLiteral("--data-dir"), data, QStringLiteral("history"),
                                                   QStringLiteral("IBM"), QStringLiteral("--csv")},
                                                  60000, {}, {}, {{QStringLiteral("TZ"), zone}});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out.trimmed().split(u'\n').mid(1), lines);
    }

    void alarmsSince()
    {
        testing::CliRun r = cli({QStringLiteral("alarms"), QStringLiteral("--since"), QStringLiteral("2026-11-24"),
                                 QStringLiteral("--json")});
        QCOMPARE(r.code, 0);
        const QJsonArray rows = QJsonDocument::fromJson(r.out.toUtf8()).array();
        QCOMPARE(rows.size(), 1);
        const QJsonObject a = rows[0].toObject();
        QCOMPARE(a.value(QStringLiteral("symbol")).toString(), QStringLiteral("IBM"));
        QCOMPARE(a.value(QStringLiteral("alarm")).toString(), QStringLiteral("high"));
        QCOMPARE(a.value(QStringLiteral("limit")).toDouble(), 151.0);
        QCOMPARE(a.value(QStringLiteral("value")).toDouble(), 151.5);
        QCOMPARE(a.value(QStringLiteral("paged")).toBool(), true);
        r = cli({QStringLiteral("alarms")});
        QCOMPARE(r.code, 0);
        QVERIFY2(
            r.out.contains(QRegularExpression(QStringLiteral("2026-11-23 09:45:00 MSFT +low change +-2 +-2.5 +no"))),
            qPrintable(r.out));
    }

    void importKeepsGoodRowsAndNamesBadLines()
    {
        const QString csv = m_dir.filePath(QStringLiteral("AAPL.csv"));
        testing::writeFile(csv, "Date,Open,High,Low,Close,Volume\n"
                                "2025-12-30,190,195,189,194.5,51000000\n"
                                "2025-12-31,194,196,,not-a-price,48000000\n"
                                "2026-01-02,194.5,199,193,198.25,60000000\n");
        testing::CliRun r = cli({QStringLiteral("history"), QStringLiteral("--import"), csv});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.out.contains(QLatin1String("Imported 2 days of AAPL; 1 rows could not be read")), qPrintable(r.out));
        QVERIFY2(r.err.contains(csv + QStringLiteral(":3: close \"not-a-price\" is not a price")), qPrintable(r.err));

        r = cli({QStringLiteral("history"), QStringLiteral("AAPL"), QStringLiteral("--json")});
        const QJsonArray rows = QJsonDocument::fromJson(r.out.toUtf8()).array();
        QCOMPARE(rows.size(), 2);
        const QJsonObject last = rows[1].toObject();
        QCOMPARE(last.value(QStringLiteral("fetched")).toString(),
                 QDateTime(QDate(2026, 1, 2), QTime(16, 0)).toUTC().toString(Qt::ISODateWithMs));
        QCOMPARE(last.value(QStringLiteral("open")).toDouble(), 194.5);
        QCOMPARE(last.value(QStringLiteral("last")).toDouble(), 198.25);
        QCOMPARE(last.value(QStringLiteral("volume")).toDouble(), 60000000.0);
        QCOMPARE(last.value(QStringLiteral("imported")).toBool(), true);

        r = cli({QStringLiteral("history"), QStringLiteral("--import"), m_dir.filePath(QStringLiteral("absent.csv"))});
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.contains(QLatin1String("cannot read")));
    }
};

QTEST_GUILESS_MAIN(TestHistoryCli)
#include "test_history_cli.moc"
