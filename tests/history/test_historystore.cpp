// The history store and recorder on real SQLite files through Qt SQL.
#include "ServicesRig.h"
#include "TestUtil.h"

#include "history/ChartSeries.h"
#include "history/DailyCsv.h"
#include "history/HistoryRecorder.h"
#include "history/HistoryStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

using namespace kestrova;
using history::AlarmKind;
using history::AlarmRow;
using history::CycleRecord;
using history::HistoryRecorder;
using history::HistorySettings;
using history::HistoryStore;
using history::QuoteRow;

namespace {

const QDateTime kNow(QDate(2026, 11, 23), QTime(10, 0, 0));

QuoteRow quote(const QString& symbol, const QDateTime& at, double last)
{
    QuoteRow r;
    r.symbol = symbol;
    r.fetchedAt = at;
    r.quotedAt = at.addSecs(-60);
    r.last = last;
    r.change = -1.25;
    r.percentChange = -0.83;
    r.volume = 1234567;
    r.bid = last - 0.05;
    r.ask = last + 0.05;
    r.high = last + 2;
    r.low = last - 2;
    r.source = QStringLiteral("Demo Market");
    return r;
}

CycleRecord cycle(const QDateTime& at, int quotes, double base = 100)
{
    CycleRecord c;
    for (int i = 0; i < quotes; ++i) {
        c.quotes << quote(QStringLiteral("T%1").arg(i), at, base + i);
    }
    c.alarms << AlarmRow{QStringLiteral("T0"), AlarmKind::High, 99.5, base, at, true};
    return c;
}

qint64 countRows(HistoryStore& store, const QString& table)
{
    QSqlQuery q(QSqlDatabase::database(store.connectionName()));
    return q.exec(QStringLiteral("SELECT count(*) FROM ") + table) && q.next() ? q.value(0).toLongLong() : -1;
}

// A store as the first version wrote it, with one quote in it.
bool writeFirstSchema(const QString& path)
{
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("v1"));
        db.setDatabaseName(path);
        ok = db.open();
        QSqlQuery q(db);
        for (const char* sql :
             {"CREATE TABLE schema_version (version INTEGER NOT NULL)", "INSERT INTO schema_version VALUES (1)",
              "CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)",
              "CREATE TABLE quotes (id INTEGER PRIMARY KEY, symbol TEXT NOT NULL COLLATE NOCASE, fetched_at "
              "INTEGER NOT NULL, quoted_at INTEGER, last REAL, change REAL, percent_change REAL, volume INTEGER, "
              "bid REAL, ask REAL, high REAL, low REAL, source TEXT NOT NULL DEFAULT '')",
              "CREATE INDEX quotes_by_symbol ON quotes (symbol, fetched_at)",
              "CREATE TABLE alarms (id INTEGER PRIMARY KEY, symbol TEXT NOT NULL COLLATE NOCASE, fired_at "
              "INTEGER NOT NULL, kind TEXT NOT NULL, limit_value REAL NOT NULL, value REAL NOT NULL, paged "
              "INTEGER NOT NULL)",
              "CREATE INDEX alarms_by_time ON alarms (fired_at)",
              "INSERT INTO quotes (symbol, fetched_at, last, source) VALUES ('IBM', 1000, 150.5, 'Demo Market')"}) {
            ok = ok && q.exec(QLatin1String(sql));
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("v1"));
    return ok;
}

// SQLite's plan for a query, one step a line.
QString queryPlan(HistoryStore& store, const char* sql)
{
    QSqlQuery q(QSqlDatabase::database(store.connectionName()));
    QStringList steps;
    if (q.exec(QStringLiteral("EXPLAIN QUERY PLAN ") + QLatin1String(sql))) {
        while (q.next()) {
            steps << q.value(3).toString();
        }
    }
    return steps.join(u'\n');
}

QStringList setAsideFiles(const QString& dir)
{
    return QDir(dir).entryList({QStringLiteral("history.sqlite.damaged-*")}, QDir::Files, QDir::Name);
}

} // namespace

class TestHistoryStore : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // The history tells what the user holds and when it moved: the database and the files
    // SQLite keeps beside it are the user's alone, a file an older version made included.
    void filesArePrivate_data()
    {
        QTest::addColumn<bool>("existedReadable");
        QTest::newRow("new") << false;
        QTest::newRow("left readable by an older version") << true;
    }
    void filesArePrivate()
    {
        QFETCH(bool, existedReadable);
        const testing::ScopedUmask umask(022);
        QTemporaryDir dir;
        const QString path = dir.filePath(HistoryStore::defaultFileName());
        support::MockClock clock(kNow);
        if (existedReadable) {
            HistoryStore first(path, clock);
            QVERIFY(first.open());
            QVERIFY(first.append(cycle(kNow, 2)));
            first.close();
            QVERIFY(QFile::setPermissions(path, QFile::permissions(path) | QFileDevice::ReadOther));
        }
        HistoryStore store(path, clock);
        QVERIFY(store.open());
        QVERIFY(store.append(cycle(kNow.addSecs(60), 3)));
        QCOMPARE(testing::fileMode(path), QStringLiteral("600"));
        QCOMPARE(testing::fileMode(path + QStringLiteral("-wal")), QStringLiteral("600"));
        QCOMPARE(testing::fileMode(path + QStringLiteral("-shm")), QStringLiteral("600"));
        QCOMPARE(testing::filesNotInMode(dir.path(), QStringLiteral("600")), QStringList());
    }

    void symbolsRoundTripAsData_data()
    {
        QTest::addColumn<QString>("symbol");
        QTest::newRow("plain") << "IBM";
        QTest::newRow("quote mark") << "O'BRIEN";
        QTest::newRow("statement end and comment") << "X'); DROP TABLE quotes;--";
        QTest::newRow("LIKE wildcards") << "%_";
        QTest::newRow("double quotes and blank") << "\"ES Z6\"";
        QTest::newRow("non-ASCII") << "NESN.SW\u00e9";
    }
    void symbolsRoundTripAsData()
    {
        QFETCH(QString, symbol);
        testing::ServicesRig rig;
        HistoryStore store(rig.dir.filePath(HistoryStore::defaultFileName()), rig.clock);
        QVERIFY2(store.open(), qPrintable(store.lastError()));
        CycleRecord c;
        c.quotes << quote(symbol, kNow, 10.5) << quote(QStringLiteral("OTHER"), kNow, 20);
        c.alarms << AlarmRow{symbol, AlarmKind::Volume, 1e6, 1234567, kNow, false};
        QVERIFY2(store.append(c), qPrintable(store.lastError()));

        const QList<QuoteRow> back = store.quotes(symbol);
        QCOMPARE(back.size(), 1);
        QCOMPARE(back.first(), c.quotes.first());
        QCOMPARE(store.quotes(symbol.toLower()).size(), 1); // tickers match without regard to case
        QCOMPARE(store.alarms({}, {}, symbol), c.alarms);
        QCOMPARE(countRows(store, QStringLiteral("quotes")), 2);
    }

    void damagedFilesAreSetAside_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("truncateRealStore");
        QTest::newRow("text file") << QByteArray("Date,Close\n2026-01-02,10\n").repeated(50) << false;
        QTest::newRow("zeroed header") << QByteArray(8192, '\0') << false;
        QTest::newRow("cut short") << QByteArray() << true;
    }
    void damagedFilesAreSetAside()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, truncateRealStore);
        testing::ServicesRig rig;
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        if (truncateRealStore) {
            {
                HistoryStore first(path, rig.clock);
                QVERIFY(first.open());
                QVERIFY(first.append(cycle(kNow, 400)));
                QSqlQuery(QSqlDatabase::database(first.connectionName()))
                    .exec(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"));
            }
            content = testing::readFile(path);
            content.truncate(content.size() / 3);
        }
        testing::writeFile(path, content);

        HistoryRecorder recorder(rig.services, path);
        recorder.record(cycle(kNow, 3), HistorySettings{});
        QVERIFY(recorder.isOpen());
        const QStringList aside = setAsideFiles(rig.dir.path());
        QCOMPARE(aside, QStringList{QStringLiteral("history.sqlite.damaged-20261123-100000")});
        QCOMPARE(testing::readFile(rig.dir.filePath(aside.first())), content); // kept whole, never deleted
        QCOMPARE(recorder.store()->quotes(QStringLiteral("T1")).size(), 1);
        QCOMPARE(rig.host.statusLines.filter(QStringLiteral("damaged history file was kept as")).size(), 1);
    }

    void storeThatCannotOpenIsReportedOnce()
    {
        testing::ServicesRig rig;
        // A folder where the file should be: no user, root included, can open it as a database.
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        QVERIFY(QDir().mkpath(path));
        HistoryRecorder recorder(rig.services, path);
        for (int i = 0; i < 3; ++i) {
            recorder.record(cycle(kNow.addSecs(60 * i), 2), HistorySettings{});
        }
        QVERIFY(!recorder.isOpen());
        QCOMPARE(rig.host.statusLines.filter(QStringLiteral("History is off: cannot open ")).size(), 1);
        QVERIFY(setAsideFiles(rig.dir.path()).isEmpty());
        QCOMPARE(recorder.pendingCycles(), 3);

        // Once the way is clear the waiting cycles go in with the next one.
        QVERIFY(QDir(path).removeRecursively());
        recorder.record(cycle(kNow.addSecs(180), 2), HistorySettings{});
        QVERIFY(recorder.isOpen());
        QCOMPARE(recorder.pendingCycles(), 0);
        QCOMPARE(recorder.store()->quotes(QStringLiteral("T0")).size(), 4);
    }

    void newerSchemaIsLeftAlone()
    {
        testing::ServicesRig rig;
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        {
            HistoryStore store(path, rig.clock);
            QVERIFY(store.open());
            QSqlQuery(QSqlDatabase::database(store.connectionName()))
                .exec(QStringLiteral("UPDATE schema_version SET version = 99"));
        }
        HistoryStore store(path, rig.clock);
        QVERIFY(!store.open());
        QVERIFY2(store.lastError().contains(QLatin1String("newer version")), qPrintable(store.lastError()));
        QVERIFY(setAsideFiles(rig.dir.path()).isEmpty());
    }

    void firstSchemaIsUpgraded()
    {
        testing::ServicesRig rig;
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        QVERIFY(writeFirstSchema(path));
        HistoryStore store(path, rig.clock);
        QVERIFY2(store.open(), qPrintable(store.lastError()));
        QCOMPARE(store.schemaVersion(), HistoryStore::kSchemaVersion);
        const QList<QuoteRow> rows = store.quotes(QStringLiteral("IBM"));
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.first().last, std::optional<double>(150.5));
        QVERIFY(!rows.first().open && !rows.first().imported);
    }

    // A listing of years streams from the index in the order it prints (no sort in a
    // temporary B-tree, which holds every row before the first comes out), and the chart's
    // read never touches the table; in a new store and in upgraded ones.
    void readsAreServedByTheIndex_data()
    {
        QTest::addColumn<int>("startSchema");
        QTest::newRow("new store") << 0;
        QTest::newRow("upgraded from schema 1") << 1;
        QTest::newRow("upgraded from schema 2") << 2;
    }
    void readsAreServedByTheIndex()
    {
        QFETCH(int, startSchema);
        testing::ServicesRig rig;
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        if (startSchema == 1) {
            QVERIFY(writeFirstSchema(path));
        } else if (startSchema == 2) {
            HistoryStore older(path, rig.clock);
            QVERIFY(older.open());
            QSqlQuery q(QSqlDatabase::database(older.connectionName()));
            for (const char* sql : {"DROP INDEX quotes_by_symbol",
                                    "CREATE INDEX quotes_by_symbol ON quotes (symbol, fetched_at, last, volume)",
                                    "UPDATE schema_version SET version = 2"}) {
                QVERIFY2(q.exec(QLatin1String(sql)), sql);
            }
        }
        HistoryStore store(path, rig.clock);
        QVERIFY2(store.open(), qPrintable(store.lastError()));
        const QString listing = queryPlan(store, "SELECT * FROM quotes WHERE symbol = 'IBM' AND fetched_at >= 0 AND "
                                                 "fetched_at <= 9 ORDER BY fetched_at, id");
        QVERIFY2(listing.contains(QLatin1String("USING INDEX quotes_by_symbol")), qPrintable(listing));
        QVERIFY2(!listing.contains(QLatin1String("TEMP B-TREE")), qPrintable(listing));
        const QString chart =
            queryPlan(store, "SELECT fetched_at, last, volume FROM quotes WHERE symbol = 'IBM' AND fetched_at >= 0 AND "
                             "fetched_at <= 9 AND last > 0 ORDER BY fetched_at");
        QVERIFY2(chart.contains(QLatin1String("USING COVERING INDEX quotes_by_symbol")), qPrintable(chart));
        QVERIFY2(!chart.contains(QLatin1String("TEMP B-TREE")), qPrintable(chart));
    }

    void retentionRemovesOnlyOldRows_data()
    {
        QTest::addColumn<int>("keepDays");
        QTest::addColumn<QList<int>>("ageDays"); // of the rows stored before the cycle
        QTest::addColumn<QList<int>>("keptAges");
        QTest::newRow("two years") << 730 << QList<int>{900, 731, 729, 1, 0} << QList<int>{729, 1, 0};
        QTest::newRow("one week") << 7 << QList<int>{8, 7, 6} << QList<int>{7, 6};
    }
    void retentionRemovesOnlyOldRows()
    {
        QFETCH(int, keepDays);
        QFETCH(QList<int>, ageDays);
        QFETCH(QList<int>, keptAges);
        testing::ServicesRig rig;
        rig.clock.set(kNow);
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        HistoryRecorder recorder(rig.services, path);
        const HistorySettings settings{true, keepDays};
        // Yesterday's clean-up has run; the rows below are stored after it.
        recorder.record(CycleRecord{}, HistorySettings{true, 100000});
        recorder.store()->setMeta(QStringLiteral("retention_day"), kNow.date().addDays(-1).toString(Qt::ISODate));
        CycleRecord old;
        for (int age : ageDays) {
            // A minute inside the limit, so a row exactly keepDays old is kept.
            const QDateTime at = kNow.addDays(-age).addSecs(60);
            old.quotes << quote(QStringLiteral("OLD"), at, age);
            old.alarms << AlarmRow{QStringLiteral("OLD"), AlarmKind::Low, 1, double(age), at, false};
        }
        QVERIFY(recorder.store()->append(old));

        recorder.record(cycle(kNow, 1), settings);
        QList<int> kept;
        for (const QuoteRow& r : recorder.store()->quotes(QStringLiteral("OLD"))) {
            kept << int(*r.last);
        }
        QCOMPARE(kept, keptAges);
        QCOMPARE(recorder.store()->alarms({}, {}, QStringLiteral("OLD")).size(), keptAges.size());
        QCOMPARE(recorder.store()->quotes(QStringLiteral("T0")).size(), 1);

        // Once a day: an old row stored later the same day stays until tomorrow's cycle.
        QVERIFY(
            recorder.store()->append(CycleRecord{{quote(QStringLiteral("LATE"), kNow.addDays(-keepDays - 5), 1)}, {}}));
        recorder.record(cycle(kNow.addSecs(3600), 1), settings);
        QCOMPARE(recorder.store()->quotes(QStringLiteral("LATE")).size(), 1);
        rig.clock.set(kNow.addDays(1));
        recorder.record(cycle(kNow.addDays(1), 1), settings);
        QCOMPARE(recorder.store()->quotes(QStringLiteral("LATE")).size(), 0);
    }

    void fullDiskRollsBackAndTheNextCycleRetries()
    {
        testing::ServicesRig rig;
        HistoryRecorder recorder(rig.services, rig.dir.filePath(HistoryStore::defaultFileName()));
        recorder.record(cycle(kNow, 60), HistorySettings{});
        QVERIFY(recorder.isOpen());
        // SQLite's own cap on the file's size fails a write exactly as a full disk does.
        QSqlQuery pragma(QSqlDatabase::database(recorder.store()->connectionName()));
        QVERIFY(pragma.exec(QStringLiteral("PRAGMA page_count")) && pragma.next());
        const qint64 pages = pragma.value(0).toLongLong();
        QVERIFY(pragma.exec(QStringLiteral("PRAGMA max_page_count = %1").arg(pages)));

        recorder.record(cycle(kNow.addSecs(60), 600), HistorySettings{});
        QCOMPARE(recorder.pendingCycles(), 1);
        QCOMPARE(countRows(*recorder.store(), QStringLiteral("quotes")), 60); // nothing of the failed cycle
        QCOMPARE(countRows(*recorder.store(), QStringLiteral("alarms")), 1);
        const QStringList lines = rig.host.statusLines.filter(QStringLiteral("History: cycle not written"));
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().contains(QLatin1String("full")), qPrintable(lines.first()));

        QVERIFY(pragma.exec(QStringLiteral("PRAGMA max_page_count = 1073741823")));
        recorder.record(cycle(kNow.addSecs(120), 60), HistorySettings{});
        QCOMPARE(recorder.pendingCycles(), 0);
        QCOMPARE(countRows(*recorder.store(), QStringLiteral("quotes")), 60 + 600 + 60);
        QCOMPARE(countRows(*recorder.store(), QStringLiteral("alarms")), 3);
    }

    void switchedOffKeepsNothing()
    {
        testing::ServicesRig rig;
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        HistoryRecorder recorder(rig.services, path);
        recorder.record(cycle(kNow, 2), HistorySettings{false, 730});
        QVERIFY(!QFileInfo::exists(path));
        QVERIFY(rig.host.statusLines.isEmpty());
    }

    void dailyCsv_data()
    {
        QTest::addColumn<QByteArray>("csv");
        QTest::addColumn<QStringList>("days"); // imported, in file order
        QTest::addColumn<QStringList>("problems");
        const QByteArray header = "Date,Open,High,Low,Close,Volume\n";
        QTest::newRow("published shape") << header +
                                                "2026-01-02,10,11,9.5,10.5,1000\r\n2026-01-05,10.5,12,10,11.75,\r\n"
                                         << QStringList{"2026-01-02", "2026-01-05"} << QStringList{};
        QTest::newRow("adjusted close and nulls")
            << QByteArray("Date,Open,High,Low,Close,Adj Close,Volume\n2026-01-02,null,null,null,10.5,10.1,null\n")
            << QStringList{"2026-01-02"} << QStringList{};
        QTest::newRow("no header, US dates") << QByteArray("1/2/2026,10,11,9,10.5,100\n\n1/5/2026,1,2,1,1.5,7\n")
                                             << QStringList{"2026-01-02", "2026-01-05"} << QStringList{};
        QTest::newRow("bad rows keep the good")
            << header + "2026-13-01,1,2,1,1.5,7\n2026-01-02,1,2,1,1.5,7\n2026-01-03,1,2,1,,7\n"
                        "2026-01-04,1,x,1,1.5,7\n2026-01-05,1,1,2,1.5,7\n2026-01-06,1,2,1,1.5,-3\n"
                        "2026-01-07,1,2,1,1.5,9\n"
            << QStringList{"2026-01-02", "2026-01-07"}
            << QStringList{"2: \"2026-13-01\" is not a date", "4: no close price", "5: high \"x\" is not a price",
                           "6: high 1 is below low 2", "7: volume \"-3\" is not a number of shares"};
        // What a double or a 64-bit volume cannot hold, and the spellings Qt's own reader takes.
        QTest::newRow("numbers out of range")
            << header + "2026-01-02,nan,2,1,1.5,7\n2026-01-03,1,inf,1,1.5,7\n2026-01-04,1,2,1,1e309,7\n"
                        "2026-01-05,1,2,1,1.5,nan\n2026-01-06,1,2,1,1.5,-0\n2026-01-07,1,2,1,1.5,9223372036854775808\n"
                        "2026-01-08,1,2,-0,1.5,7\n2026-01-09,1,2,1,1.5,9223372036854775807\n"
                        "2026-01-12,1,2,1,1.5,1e3\n"
            << QStringList{"2026-01-09", "2026-01-12"}
            << QStringList{"2: open \"nan\" is not a price",
                           "3: high \"inf\" is not a price",
                           "4: close \"1e309\" is not a price",
                           "5: volume \"nan\" is not a number of shares",
                           "6: volume \"-0\" is not a number of shares",
                           "7: volume \"9223372036854775808\" is not a number of shares",
                           "8: low \"-0\" is not a price"};
        QTest::newRow("header without close") << QByteArray("Date,Price\n2026-01-02,3\n") << QStringList{}
                                              << QStringList{"1: the header names no Date or no Close column"};
        QTest::newRow("quoted fields, BOM") << QByteArray("\xef\xbb\xbf\"Date\",\"Close\"\n\"2026-01-02\",\"1,5\"\n")
                                            << QStringList{} << QStringList{"2: close \"1,5\" is not a price"};
    }
    void dailyCsv()
    {
        QFETCH(QByteArray, csv);
        QFETCH(QStringList, days);
        QFETCH(QStringList, problems);
        const history::DailyCsv parsed = history::parseDailyCsv(csv, QStringLiteral("IBM"));
        QStringList gotDays;
        for (const QuoteRow& r : parsed.rows) {
            gotDays << r.fetchedAt.date().toString(Qt::ISODate);
            QCOMPARE(r.fetchedAt.time(), QTime(16, 0));
            QVERIFY(r.imported && r.last);
        }
        QStringList gotProblems;
        for (const history::CsvProblem& p : parsed.problems) {
            gotProblems << QString::number(p.line) + QStringLiteral(": ") + p.why;
        }
        QCOMPARE(gotDays, days);
        QCOMPARE(gotProblems, problems);
    }

    // A quote's texts go into the history as numbers only when they are finite: a service
    // that sends "nan" or "inf" leaves the field missing, not a NaN in the database.
    void fieldValueIsFinite_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("hasValue");
        QTest::addColumn<double>("value");
        QTest::newRow("plain") << "101.25" << true << 101.25;
        QTest::newRow("thousands") << "1,234.5" << true << 1234.5;
        QTest::newRow("n/a") << "n/a" << false << 0.0;
        QTest::newRow("nan") << "nan" << false << 0.0;
        QTest::newRow("inf") << "inf" << false << 0.0;
        QTest::newRow("minus inf") << "-inf" << false << 0.0;
        QTest::newRow("past a double") << "1e309" << false << 0.0;
    }
    void fieldValueIsFinite()
    {
        QFETCH(QString, text);
        QFETCH(bool, hasValue);
        QFETCH(double, value);
        const std::optional<double> v = history::fieldValue(text);
        QCOMPARE(v.has_value(), hasValue);
        if (hasValue) {
            QCOMPARE(*v, value);
        }
    }

    void importReplacesTheSameDay()
    {
        testing::ServicesRig rig;
        HistoryStore store(rig.dir.filePath(HistoryStore::defaultFileName()), rig.clock);
        QVERIFY(store.open());
        const auto first = history::parseDailyCsv("Date,Open,High,Low,Close,Volume\n2026-01-02,10,11,9,10.5,1000\n",
                                                  QStringLiteral("IBM"));
        const auto again = history::parseDailyCsv("Date,Open,High,Low,Close,Volume\n2026-01-02,10,12,9,11.5,2000\n"
                                                  "2026-01-05,11,12,10,11,500\n",
                                                  QStringLiteral("IBM"));
        QVERIFY(store.importRows(first.rows));
        QVERIFY(store.append(CycleRecord{{quote(QStringLiteral("IBM"), first.rows.first().fetchedAt, 10.6)}, {}}));
        QVERIFY(store.importRows(again.rows));
        const QList<QuoteRow> rows = store.quotes(QStringLiteral("IBM"));
        QCOMPARE(rows.size(), 3); // the live quote of that moment stays beside the newer import
        QVERIFY(!rows[0].imported && rows[1].imported);
        QCOMPARE(rows[0].last, std::optional<double>(10.6));
        QCOMPARE(rows[1].last, std::optional<double>(11.5));
        QCOMPARE(rows[1].volume, std::optional<qint64>(2000));
        QCOMPARE(rows[1].open, std::optional<double>(10));
        QCOMPARE(rows[2].fetchedAt, QDateTime(QDate(2026, 1, 5), QTime(16, 0)));
    }

    void decimateKeepsPeaks_data()
    {
        QTest::addColumn<QList<qint64>>("times");
        QTest::addColumn<QList<double>>("values");
        QTest::addColumn<int>("buckets");
        QTest::addColumn<QList<QPointF>>("expected");
        QTest::newRow("short series whole")
            << QList<qint64>{1, 2, 3} << QList<double>{5, 6, 7} << 2 << QList<QPointF>{{1, 5}, {2, 6}, {3, 7}};
        QTest::newRow("min before max") << QList<qint64>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}
                                        << QList<double>{5, 1, 5, 9, 5, 5, 5, 8, 2, 5} << 2
                                        << QList<QPointF>{{1, 1}, {3, 9}, {7, 8}, {8, 2}};
        QTest::newRow("flat bucket gives one point")
            << QList<qint64>{0, 1, 2, 3, 10, 11, 12, 13} << QList<double>{4, 4, 4, 4, 1, 2, 3, 4} << 2
            << QList<QPointF>{{0, 4}, {10, 1}, {13, 4}};
    }
    void decimateKeepsPeaks()
    {
        QFETCH(QList<qint64>, times);
        QFETCH(QList<double>, values);
        QFETCH(int, buckets);
        QFETCH(QList<QPointF>, expected);
        QCOMPARE(history::decimate(times, values, buckets), expected);
    }

    // Sessions of quotes follow each other on the axis with one ordinary step between them;
    // a moment within a pause falls within that step.
    void tradingTimeAxisLeavesOutPauses_data()
    {
        constexpr qint64 kMin = 60000;
        constexpr qint64 kHour = 60 * kMin;
        constexpr qint64 kDay = 24 * kHour;
        QTest::addColumn<QList<qint64>>("times");
        QTest::addColumn<QList<double>>("positions");
        QTest::addColumn<qint64>("probe");
        QTest::addColumn<double>("probeAt");
        QTest::newRow("one session: plain time")
            << QList<qint64>{0, kMin, 2 * kMin} << QList<double>{0, kMin, 2 * kMin} << 90 * kMin << 90.0 * kMin;
        QTest::newRow("a night left out")
            << QList<qint64>{0, kMin, 2 * kMin, 17 * kHour, 17 * kHour + kMin}
            << QList<double>{0, kMin, 2 * kMin, 3 * kMin, 4 * kMin} << (2 * kMin + 17 * kHour) / 2 << 2.5 * kMin;
        QTest::newRow("three hours is still one session")
            << QList<qint64>{0, 3 * kHour, 6 * kHour} << QList<double>{0, 3 * kHour, 6 * kHour} << 7 * kHour
            << 7.0 * kHour;
        QTest::newRow("daily rows: a day apart, weekend or not")
            << QList<qint64>{0, kDay, 4 * kDay} << QList<double>{0, kDay, 2 * kDay} << -kHour << -1.0 * kHour;
    }
    void tradingTimeAxisLeavesOutPauses()
    {
        QFETCH(QList<qint64>, times);
        QFETCH(QList<double>, positions);
        QFETCH(qint64, probe);
        QFETCH(double, probeAt);
        const history::TradingTimeAxis axis(times);
        QList<double> at;
        for (const qint64 t : times) {
            at << axis.position(t);
        }
        QCOMPARE(at, positions);
        QCOMPARE(axis.position(probe), probeAt);
        QCOMPARE(axis.compressed(), positions.last() != double(times.last() - times.first()));
    }

    void chartDataSkipsUnpricedQuotes()
    {
        testing::ServicesRig rig;
        const QString path = rig.dir.filePath(HistoryStore::defaultFileName());
        HistoryStore store(path, rig.clock);
        QVERIFY(store.open());
        CycleRecord c;
        c.quotes << quote(QStringLiteral("IBM"), kNow.addDays(-2), 150) << quote(QStringLiteral("IBM"), kNow, 0)
                 << quote(QStringLiteral("IBM"), kNow.addSecs(60), 151);
        c.quotes[0].volume.reset();
        c.alarms << AlarmRow{QStringLiteral("IBM"), AlarmKind::High, 150.5, 151, kNow.addSecs(60), true};
        QVERIFY(store.append(c));
        const history::ChartData day = history::loadChartData(
            path, QStringLiteral("ibm"), history::rangeStart(history::ChartRange::Day, kNow.addSecs(60)), {});
        QCOMPARE(day.times, QList<qint64>{kNow.addSecs(60).toMSecsSinceEpoch()});
        QCOMPARE(day.alarms.size(), 1);
        const history::ChartData all = history::loadChartData(path, QStringLiteral("IBM"), {}, {});
        QCOMPARE(all.prices, (QList<double>{150, 151}));
        QCOMPARE(all.volumes, (QList<double>{0, 1234567}));
        QVERIFY(all.error.isEmpty());
        QVERIFY(history::loadChartData(rig.dir.filePath(QStringLiteral("none.sqlite")), QStringLiteral("IBM"), {}, {})
                    .times.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestHistoryStore)
#include "test_historystore.moc"
