#include "core/ModemProfiles.h"
#include "core/OptionRegistry.h"
#include "core/PortfolioFile.h"
#include "support/VbError.h"

#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <bit>
#include <limits>

using namespace kestrova::core;
using kestrova::support::VbError;
using kestrova::testing::readFile;
using kestrova::testing::writeFile;

namespace {

// Lines a file holds besides the per-record passes: 41 with the three built-in profiles.
constexpr int kFixedLines = 41;
constexpr int kLinesPerRecord = 5;

void fillTable(PortfolioTable& t, int count)
{
    t.count = static_cast<qint16>(count);
    for (int i = 0; i < count; ++i) {
        PortfolioRecord& r = t.records[static_cast<size_t>(i)];
        r.ticker = i % 7 == 3 ? QStringLiteral("BRK,A %1").arg(i) : QStringLiteral("T%1").arg(i);
        r.highLimit = 100.25f + static_cast<float>(i);
        r.lowLimit = i % 2 ? 0.0f : 0.125f * static_cast<float>(i);
        r.marketOnly = static_cast<qint16>(i % 2);
        r.toPager = static_cast<qint16>((i + 1) % 2);
        r.legacyOption = static_cast<qint16>(i % 5 == 0);
        r.securityType = static_cast<qint16>(i % 4);
        r.highChgLimit = 5.5f + static_cast<float>(i);
        r.lowChgLimit = -2.75f - static_cast<float>(i);
        r.volumeLimit = 1000000 + i * 37;
        r.digits = static_cast<qint16>(i % 5);
        r.server = static_cast<qint16>(i % 13);
        r.news = static_cast<qint16>(i % 3 == 0);
    }
}

// Options with values that differ from the defaults wherever the type allows.
Options distinctOptions()
{
    Options o;
    setBuiltInModemProfiles(o.modem);
    o.paging.enabled = true;
    o.paging.pagerId = QStringLiteral("12345");
    o.paging.phone = QStringLiteral("555-0100");
    o.paging.maxLength = 120;
    o.paging.retries = 4;
    o.paging.retrySeconds = 45;
    o.paging.numeric = true;
    o.paging.numericWait = 12;
    o.paging.numericPrefix = QStringLiteral("99*");
    o.paging.numericPause = 6;
    o.paging.user = QStringLiteral("user field").leftJustified(25);
    o.paging.forwardMail = true;
    o.paging.pageNews = true;
    o.paging.layout = 1;
    o.modem.port = 3;
    o.modem.settings = QStringLiteral("19200,E,7,2");
    o.modem.flowControl = 2;
    o.modem.pulse = true;
    o.modem.speakerVolume = 2;
    o.modem.speakerMode = 3;
    o.modem.lastIndex = 3;
    o.modem.selected = 3;
    o.modem.profiles[3] = {QStringLiteral("Mine, fast"), QStringLiteral("AT&F1"), QStringLiteral("ATX4")};
    o.modem.quoteService = true;
    o.smtp.enabled = true;
    o.smtp.hostName = QStringLiteral("mail.example");
    o.smtp.hostAddress = QStringLiteral("127.0.0.1");
    o.smtp.port = 2525;
    o.smtp.from = QStringLiteral("me@example");
    o.smtp.recipient = QStringLiteral("pager@example");
    o.smtp.domain = QStringLiteral("example");
    o.smtp.maxLength = 140;
    o.smtp.security = 1;
    o.smtp.user = QStringLiteral("smtpuser");
    o.smtp.password = QStringLiteral("Sm,tp \"pw\"!");
    o.mail.server = QStringLiteral("pop.example");
    o.mail.port = static_cast<qint16>(static_cast<quint16>(40110));
    o.mail.user = QStringLiteral("popuser");
    o.mail.password = QStringLiteral("p0p~pw");
    o.mail.mode = 2;
    o.mail.pageHeaders = true;
    o.mail.notifyWaiting = false;
    o.mail.markerComma = true;
    o.mail.security = 2;
    o.connection.type = 0;
    o.connection.entry = QStringLiteral("ISP line");
    o.connection.user = QStringLiteral("dialuser");
    o.connection.timeout = 90;
    o.connection.hangUpAfterUpdate = true;
    o.proxy.enabled = true;
    o.proxy.hostName = QStringLiteral("proxy.example");
    o.proxy.hostAddress = QStringLiteral("10.0.0.1");
    o.proxy.port = QStringLiteral("3128");
    o.quotes.server = 7;
    o.quotes.optionServer = 11;
    o.quotes.fastest = true;
    o.quotes.updateServers = true;
    o.quotes.marketSummary = false;
    o.quotes.pageDow = false;
    o.quotes.pageNasdaq = false;
    o.quotes.pageSp500 = false;
    o.quotes.marketUrl = QStringLiteral("http://127.0.0.1:8080/summary?a=1,b=2");
    for (int i = 0; i < kBuiltInServers; ++i) {
        o.quotes.logons[static_cast<size_t>(i)] = {QStringLiteral("u%1").arg(i), QStringLiteral("secret%1").arg(i)};
    }
    o.news.retrieve = true;
    o.news.maxStories = 9;
    o.news.purgeDays = 3;
    o.alarms.mode = 2;
    o.alarms.select = true;
    o.alarms.selectMode = 1;
    o.schedule.enabled = true;
    o.schedule.days = {true, false, true, false, true};
    o.schedule.marketOpen = true;
    o.schedule.midday = true;
    o.schedule.marketClose = true;
    o.schedule.interval = true;
    o.schedule.openTime = QStringLiteral("09:31:00 am");
    o.schedule.middayTime = QStringLiteral("12:30 pm");
    o.schedule.closeTime = QStringLiteral("4:05 pm");
    o.schedule.startTime = QStringLiteral("8:00 am");
    o.schedule.stopTime = QStringLiteral("5:00 pm");
    o.schedule.intervalMinutes = 20;
    o.push.enabled = true;
    o.push.style = 1;
    o.push.url = QStringLiteral("https://alice:pw@push.example/hook");
    o.push.token = QStringLiteral("tk-123");
    o.push.timeout = 9;
    o.gateFlag = 1;
    o.sources.order = QStringLiteral("Yahoo, servers.dat");
    o.sources.pageHealth = true;
    o.spare.texts = {"s0", "s1", "s2", "s3", "s4", "s5", "s6"};
    o.spare.numbers = {12, 13, 14};
    return o;
}

void compareOptions(const Options& a, const Options& b)
{
    for (const OptionDef& d : OptionRegistry::all()) {
        if (d.get) {
            QVERIFY2(d.get(a) == d.get(b), qPrintable(d.name + ": " + d.get(a) + " vs " + d.get(b)));
        }
    }
    QCOMPARE(a.modem.lastIndex, b.modem.lastIndex);
    for (int i = 0; i <= a.modem.lastIndex; ++i) {
        const auto& pa = a.modem.profiles[static_cast<size_t>(i)];
        const auto& pb = b.modem.profiles[static_cast<size_t>(i)];
        QCOMPARE(pa.name, pb.name);
        QCOMPARE(pa.init, pb.init);
        QCOMPARE(pa.pagerInit, pb.pagerInit);
    }
    QCOMPARE(a.spare.texts, b.spare.texts);
    QCOMPARE(a.spare.numbers, b.spare.numbers);
}

void compareTables(const PortfolioTable& a, const PortfolioTable& b)
{
    QCOMPARE(a.count, b.count);
    for (int i = 0; i < a.count; ++i) {
        QVERIFY2(a.records[size_t(i)] == b.records[size_t(i)], qPrintable(QStringLiteral("record %1").arg(i)));
    }
}

QList<QByteArray> linesOf(const QByteArray& bytes)
{
    QList<QByteArray> lines = bytes.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty()) {
        lines.removeLast();
    }
    return lines;
}

} // namespace

class TestPortfolioFile : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString path(const QString& name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void roundTrip_data()
    {
        QTest::addColumn<int>("count");
        QTest::newRow("empty portfolio") << 0;
        QTest::newRow("one entry") << 1;
        QTest::newRow("seven entries") << 7;
        QTest::newRow("fifty entries") << 50;
    }
    void roundTrip()
    {
        QFETCH(int, count);
        PortfolioTable table;
        fillTable(table, count);
        const Options options = distinctOptions();
        const QString file = path(QStringLiteral("rt%1.pgr").arg(count));
        QVERIFY(PortfolioFile::write(file, table, options).ok());

        const QByteArray bytes = readFile(file);
        const QList<QByteArray> lines = linesOf(bytes);
        QCOMPARE(lines.size(), kFixedLines + 1 + kLinesPerRecord * count); // one more profile than built in
        for (const QByteArray& l : lines) {
            QVERIFY2(l.endsWith('\r'), l.constData());
        }

        PortfolioTable readTable;
        Options readOptions;
        const PortfolioFileResult r = PortfolioFile::read(file, readTable, readOptions);
        QVERIFY2(r.ok(), qPrintable(r.message));
        compareTables(table, readTable);
        compareOptions(options, readOptions);

        // Reading and writing again gives the same bytes.
        const QString again = path(QStringLiteral("rt%1b.pgr").arg(count));
        QVERIFY(PortfolioFile::write(again, readTable, readOptions).ok());
        QCOMPARE(readFile(again), bytes);
    }

    void positionsAreFixed()
    {
        // The fixture was checked line by line against docs/portfolio-file.md; it pins
        // every position, which a write-then-read round trip alone cannot do.
        const QString fixture = kestrova::testing::dataPath(QStringLiteral("portfolio/positions.pgr"));
        PortfolioTable table;
        fillTable(table, 1);
        const Options options = distinctOptions();
        PortfolioTable readTable;
        Options readOptions;
        const PortfolioFileResult r = PortfolioFile::read(fixture, readTable, readOptions);
        QVERIFY2(r.ok(), qPrintable(r.message));
        compareTables(table, readTable);
        compareOptions(options, readOptions);
        QCOMPARE(PortfolioFile::encode(table, options), readFile(fixture));
    }

    void demoPortfolioIsCurrent()
    {
        const QString root = qEnvironmentVariable("KESTROVA_SOURCE_DIR");
        if (root.isEmpty()) {
            QSKIP("KESTROVA_SOURCE_DIR is not set for this run");
        }
        const QString demo = root + QStringLiteral("/data/demo.pgr");
        PortfolioTable table;
        Options options;
        const PortfolioFileResult r = PortfolioFile::read(demo, table, options);
        QVERIFY2(r.ok(), qPrintable(r.message));
        QVERIFY(table.count >= 10);
        QSet<qint16> types;
        bool someLimit = false;
        for (int i = 0; i < table.count; ++i) {
            const PortfolioRecord& rec = table.records[static_cast<size_t>(i)];
            types.insert(rec.effectiveType());
            someLimit = someLimit || rec.highLimit != 0 || rec.lowChgLimit != 0 || rec.volumeLimit != 0;
        }
        QCOMPARE(types, (QSet<qint16>{0, 1, 2, 3}));
        QVERIFY(someLimit);
        QCOMPARE(PortfolioFile::encode(table, options), readFile(demo));
    }

    void perRecordPassesFollowTheTable()
    {
        PortfolioTable table;
        fillTable(table, 2);
        Options options;
        setBuiltInModemProfiles(options.modem);
        const QList<QByteArray> lines = linesOf(PortfolioFile::encode(table, options));
        // Ticker lines right after the count, digits/server/news near the end.
        QCOMPARE(lines[5], QByteArray("\"                         \",2\r"));
        QCOMPARE(lines[6], QByteArray("\"T0\",100.25,0\r"));
        QCOMPARE(lines[7], QByteArray("\"T1\",101.25,0\r"));
        QCOMPARE(lines[lines.size() - 17], QByteArray("0,0,#TRUE#\r"));
        QCOMPARE(lines[lines.size() - 16], QByteArray("1,1,#FALSE#\r"));
    }

    // A limit comes back from the file exactly as it was set, written without an exponent.
    void singlesAreExact_data()
    {
        QTest::addColumn<float>("value");
        QTest::addColumn<QByteArray>("text");
        // clang-format off
        QTest::newRow("0.1") << 0.1f << QByteArray("0.1");
        QTest::newRow("eight digits") << 12345678.0f << QByteArray("12345678");
        QTest::newRow("1e9") << 1e9f << QByteArray("1000000000");
        QTest::newRow("one millionth below zero") << -0.000001f << QByteArray("-0.000001");
        QTest::newRow("eighths") << 45.375f << QByteArray("45.375");
        QTest::newRow("2^24 + 1 is 2^24") << 16777217.0f << QByteArray("16777216");
        QTest::newRow("largest") << std::numeric_limits<float>::max() << QByteArray("340282346638528859811704183484516925440");
        QTest::newRow("smallest normal") << std::numeric_limits<float>::min() << "0." + QByteArray(37, '0') + "11754944";
        QTest::newRow("smallest non-zero") << std::numeric_limits<float>::denorm_min() << "0." + QByteArray(44, '0') + "1";
        // clang-format on
    }
    void singlesAreExact()
    {
        QFETCH(float, value);
        QFETCH(QByteArray, text);
        PortfolioTable table;
        table.count = 1;
        table.records[0].ticker = QStringLiteral("T");
        table.records[0].highLimit = value;
        table.records[0].lowChgLimit = -value;
        Options options;
        const QByteArray bytes = PortfolioFile::encode(table, options);
        QCOMPARE(linesOf(bytes)[6], "\"T\"," + text + ",0\r");
        PortfolioTable back;
        PortfolioFile::decode(bytes, back, options);
        QCOMPARE(std::bit_cast<quint32>(back.records[0].highLimit), std::bit_cast<quint32>(value));
        QCOMPARE(std::bit_cast<quint32>(back.records[0].lowChgLimit), std::bit_cast<quint32>(-value));
    }

    void sectionsAfterTheLayout_data()
    {
        QTest::addColumn<bool>("holdings");
        QTest::addColumn<QByteArray>("later");
        QTest::addColumn<int>("extraLines");
        QTest::newRow("none: the fixed layout alone") << false << QByteArray() << 0;
        QTest::newRow("holdings") << true << QByteArray() << 4;
        QTest::newRow("a later version's section") << false << QByteArray("\"Alerts\",2\r\n\"x\",#TRUE#\r\n") << 2;
        QTest::newRow("holdings and a later section") << true << QByteArray("\"Alerts\",1\r\n") << 5;
    }
    void sectionsAfterTheLayout()
    {
        QFETCH(bool, holdings);
        QFETCH(QByteArray, later);
        QFETCH(int, extraLines);
        PortfolioTable table;
        fillTable(table, 3);
        if (holdings) {
            table.records[0].name = QStringLiteral("Alpha, Inc.");
            table.records[0].shares = 150.5f;
            table.records[0].costBasis = kestrova::support::Currency::fromTicks(123456789);
            table.records[2].shares = 3;
        }
        Options options = distinctOptions();
        options.spare.laterSections = later;
        const QByteArray bytes = PortfolioFile::encode(table, options);
        QCOMPARE(linesOf(bytes).size(), kFixedLines + 1 + kLinesPerRecord * 3 + extraLines);
        QVERIFY(bytes.endsWith(later));

        // Read over a table that still holds another file's holdings: none may stay behind.
        PortfolioTable back;
        back.records[1].name = QStringLiteral("stale");
        back.records[1].shares = 9;
        Options o;
        PortfolioFile::decode(bytes, back, o);
        compareTables(table, back);
        QCOMPARE(o.spare.laterSections, later);
        QCOMPARE(PortfolioFile::encode(back, o), bytes);
    }

    void fixedWidthUserField_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("stored");
        QTest::newRow("short is padded") << "abc" << QString("abc").leftJustified(25);
        QTest::newRow("long is cut") << QString(30, u'x') << QString(25, u'x');
        QTest::newRow("empty") << "" << QString(25, u' ');
    }
    void fixedWidthUserField()
    {
        QFETCH(QString, user);
        QFETCH(QString, stored);
        PortfolioTable table;
        Options options;
        options.paging.user = user;
        const QByteArray bytes = PortfolioFile::encode(table, options);
        QCOMPARE(linesOf(bytes)[5], "\"" + stored.toLatin1() + "\",0\r");
        Options back;
        PortfolioFile::decode(bytes, table, back);
        QCOMPARE(back.paging.user, stored);
    }

    void readerAcceptsLooseForms()
    {
        // A file as another writer might leave it: LF only, blanks around items, numbers
        // with and without a leading zero, an unquoted string item.
        PortfolioTable table;
        fillTable(table, 3);
        QByteArray bytes = PortfolioFile::encode(table, distinctOptions());
        bytes.replace("\r\n", "\n");
        bytes.replace("\"T0\",100.25,0\n", "  \"T0\" , 100.250 ,  .0  \n");
        bytes.replace("\"T2\",102.25,0.25\n", "T2,102.25,.25\n");
        writeFile(path("loose.pgr"), bytes);
        PortfolioTable back;
        Options o;
        const PortfolioFileResult r = PortfolioFile::read(path("loose.pgr"), back, o);
        QVERIFY2(r.ok(), qPrintable(r.message));
        compareTables(table, back);
        compareOptions(distinctOptions(), o);
    }

    void scrambledStringWithLowCharacter()
    {
        PortfolioTable table;
        fillTable(table, 2);
        Options options = distinctOptions();
        options.mail.password = QStringLiteral("ab");
        QByteArray bytes = PortfolioFile::encode(table, options);
        QVERIFY(bytes.contains("\"\xE1\xE2\""));
        bytes.replace("\"\xE1\xE2\"", "\"\xE1q\"");
        writeFile(path("lowchar.pgr"), bytes);

        PortfolioTable back;
        Options o;
        o.mail.port = 999; // after the bad item on the same line: must keep its value
        const PortfolioFileResult r = PortfolioFile::read(path("lowchar.pgr"), back, o);
        QCOMPARE(r.error, int(VbError::InvalidCall));
        QVERIFY(!r.olderVersion());
        QVERIFY(r.message.contains(path("lowchar.pgr")));
        QCOMPARE(o.mail.user, options.mail.user); // read before the error
        QCOMPARE(o.mail.port, qint16(999));
        QCOMPARE(back.count, qint16(2));
        QCOMPARE(back.records[1].ticker, table.records[1].ticker);
        QCOMPARE(back.records[1].legacyOption, table.records[1].legacyOption);
        QCOMPARE(back.records[1].volumeLimit, 0); // its pass comes after the bad item
    }

    void passwordThatCannotBeScrambled()
    {
        PortfolioTable table;
        Options options;
        options.smtp.password = QStringLiteral("s\u00e9same");
        const QString file = path("accent.pgr");
        const PortfolioFileResult r = PortfolioFile::write(file, table, options);
        QCOMPARE(r.error, int(VbError::InvalidCall));
        QCOMPARE(r.message, QStringLiteral("ERROR 5 occurred."));
        QVERIFY(!QFile::exists(file));
    }

    void olderFileCutShort_data()
    {
        QTest::addColumn<int>("keepLines");
        QTest::addColumn<int>("keepExtraBytes"); // of the next line
        QTest::newRow("first line only") << 1 << 0;
        QTest::newRow("inside line 2") << 1 << 3;
        QTest::newRow("up to the count") << 6 << 0;
        QTest::newRow("inside the ticker pass") << 8 << 0;
        QTest::newRow("up to the modem table") << 14 << 0;
        QTest::newRow("before the proxy port") << 40 << 0;
        QTest::newRow("inside the change limits") << 38 << 0;
        QTest::newRow("without the log-ons") << 53 << 0;
    }
    void olderFileCutShort()
    {
        QFETCH(int, keepLines);
        QFETCH(int, keepExtraBytes);
        PortfolioTable table;
        fillTable(table, 4);
        const Options full = distinctOptions();
        const QList<QByteArray> lines = linesOf(PortfolioFile::encode(table, full));
        QByteArray cut;
        for (int i = 0; i < keepLines; ++i) {
            cut += lines[i] + '\n';
        }
        cut += lines[keepLines].left(keepExtraBytes);
        const QString file = path(QStringLiteral("old%1.pgr").arg(keepLines));
        writeFile(file, cut);

        PortfolioTable back;
        back.records[3].ticker = QStringLiteral("PREV");
        back.records[3].volumeLimit = 77;
        Options o;
        o.paging.pagerId = QStringLiteral("before");
        o.quotes.logons[12].user = QStringLiteral("before");
        const PortfolioFileResult r = PortfolioFile::read(file, back, o);
        QVERIFY(r.olderVersion());
        QCOMPARE(r.message, QStringLiteral("Your data file is an older version.  Saving this file will convert it to "
                                           "the new version."));
        QCOMPARE(o.paging.pagerId, full.paging.pagerId); // line 1 is always there
        QCOMPARE(o.quotes.logons[12].user, QStringLiteral("before"));
        QCOMPARE(back.records[3].volumeLimit, keepLines >= 40 ? table.records[3].volumeLimit : 77);
        QCOMPARE(back.records[3].ticker, keepLines >= 10 ? table.records[3].ticker : QStringLiteral("PREV"));
        QCOMPARE(o.paging.maxLength,
                 keepLines >= 2 || keepExtraBytes >= 3 ? full.paging.maxLength : Options().paging.maxLength);
        QCOMPARE(o.modem.profiles[3].name, keepLines >= 15 ? full.modem.profiles[3].name : QString());
    }

    void emptyFileChangesNothing()
    {
        writeFile(path("empty.pgr"), QByteArray());
        PortfolioTable table;
        fillTable(table, 3);
        Options options = distinctOptions();
        const PortfolioTable before = table;
        const PortfolioFileResult r = PortfolioFile::read(path("empty.pgr"), table, options);
        QVERIFY(r.ok());
        compareTables(before, table);
        compareOptions(distinctOptions(), options);
    }

    void missingFile()
    {
        PortfolioTable table;
        table.count = 1;
        Options options;
        const QString file = path("nothere.pgr");
        const PortfolioFileResult r = PortfolioFile::read(file, table, options);
        QCOMPARE(r.error, 53);
        QCOMPARE(r.message, QStringLiteral("File ") + file + QStringLiteral(" does not exist."));
        QCOMPARE(table.count, qint16(1));
    }

    void badItems_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<int>("error");
        // clang-format off
        QTest::newRow("text for a number") << QByteArray("\r\n80,3,30,10\r\n") << QByteArray("\r\nabc,3,30,10\r\n") << 13;
        QTest::newRow("number beyond 16 bits") << QByteArray("\r\n80,3,30,10\r\n") << QByteArray("\r\n40000,3,30,10\r\n") << 6;
        QTest::newRow("more than fifty entries") << QByteArray("\",0\r\n") << QByteArray("\",51\r\n") << 9;
        QTest::newRow("negative count") << QByteArray("\",0\r\n") << QByteArray("\",-1\r\n") << 9;
        QTest::newRow("count far beyond the table") << QByteArray("\",0\r\n") << QByteArray("\",3000\r\n") << 9;
        QTest::newRow("modem table overrun") << QByteArray("\r\n2,2\r\n") << QByteArray("\r\n21,2\r\n") << 9;
        // clang-format on
    }
    void badItems()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(int, error);
        PortfolioTable table;
        Options options;
        setBuiltInModemProfiles(options.modem);
        QByteArray bytes = PortfolioFile::encode(table, options);
        QVERIFY(bytes.contains(from));
        bytes.replace(from, to);
        writeFile(path("bad.pgr"), bytes);
        PortfolioTable back;
        Options o;
        const PortfolioFileResult r = PortfolioFile::read(path("bad.pgr"), back, o);
        QCOMPARE(r.error, error);
        QVERIFY(!r.message.isEmpty());
        // Whatever was rejected, the table and the modem list stay within their slots.
        QVERIFY(back.count >= 0 && back.count <= PortfolioTable::kMaxInUse);
        QVERIFY(o.modem.lastIndex >= -1 && o.modem.lastIndex < kModemSlots);
    }

    void writerErrors()
    {
        PortfolioTable table;
        Options options;
        PortfolioFileResult r = PortfolioFile::write(path("no/such/dir/a.pgr"), table, options);
        QCOMPARE(r.message, QStringLiteral("ERROR 76: That path doesn't exist."));
        r = PortfolioFile::write(m_dir.path(), table, options);
        QVERIFY(!r.ok());
        QCOMPARE(r.message, QStringLiteral("ERROR %1 occurred.").arg(r.error));
        table.count = 51;
        r = PortfolioFile::write(path("toomany.pgr"), table, options);
        QCOMPARE(r.message, QStringLiteral("ERROR 9 occurred."));
        QVERIFY(!QFile::exists(path("toomany.pgr")));
    }

    void createdPrivate()
    {
        PortfolioTable table;
        Options options;
        const QString file = path("private.pgr");
        QVERIFY(PortfolioFile::write(file, table, options).ok());
        QCOMPARE(QFileInfo(file).permissions(),
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser);
        // An existing, readable-by-all file is tightened on the next save.
        QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther);
        QVERIFY(PortfolioFile::write(file, table, options).ok());
        QVERIFY(!(QFileInfo(file).permissions() & QFileDevice::ReadOther));
    }

    void stringsStayItems()
    {
        // A quote or a line break typed into a string must not break the file apart.
        PortfolioTable table;
        fillTable(table, 1);
        table.records[0].ticker = QStringLiteral("A\"B\r\nC");
        Options options;
        options.smtp.from = QStringLiteral("x,y");
        QVERIFY(PortfolioFile::write(path("quote.pgr"), table, options).ok());
        PortfolioTable back;
        Options o;
        QVERIFY(PortfolioFile::read(path("quote.pgr"), back, o).ok());
        QCOMPARE(back.records[0].ticker, QStringLiteral("A'B  C"));
        QCOMPARE(o.smtp.from, QStringLiteral("x,y"));
    }

    // A save that cannot be finished leaves the previous file whole, and no half-written
    // copy beside it.
    void failedSaveKeepsTheFile_data()
    {
        QTest::addColumn<QString>("limit");
        QTest::addColumn<bool>("readOnly");
        QTest::addColumn<QString>("message");
        // The file is larger than the limit but smaller than the save's buffer, so the
        // short write happens at the commit.
        QTest::newRow("disk full") << "fsize=2048" << false << "ERROR 57 occurred.";
        QTest::newRow("read-only folder") << "nobody" << true << "ERROR 70 occurred.";
    }
    void failedSaveKeepsTheFile()
    {
        QFETCH(QString, limit);
        QFETCH(bool, readOnly);
        QFETCH(QString, message);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString file = dir.filePath(QStringLiteral("kept.pgr"));
        auto save = [&](int variant, const QString& how, QByteArray* err) {
            QProcess saver;
            saver.start(QStringLiteral(PORTFOLIO_SAVER),
                        {file, QStringLiteral("--once"), QString::number(variant), how});
            if (!saver.waitForFinished(30000)) {
                return -1;
            }
            *err = saver.readAllStandardError();
            return saver.exitStatus() == QProcess::NormalExit ? saver.exitCode() : -1;
        };
        QByteArray err;
        QCOMPARE(save(0, QString(), &err), 0);
        const QByteArray before = readFile(file);
        QVERIFY(before.size() > 2048);

        const auto perms = QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                           QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
        if (readOnly) {
            QVERIFY(QFile::setPermissions(dir.path(), perms));
        }
        QCOMPARE(save(1, limit, &err), 1);
        QFile::setPermissions(dir.path(), perms | QFileDevice::WriteOwner);
        QCOMPARE(QString::fromLocal8Bit(err).trimmed(), message);
        QCOMPARE(readFile(file), before);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("kept.pgr")});
    }

    void survivesKillDuringSave()
    {
        const QString file = path("killed.pgr");
        QByteArray versions[2];
        QProcess saver;
        auto* rng = QRandomGenerator::global();
        for (int round = 0; round < 12; ++round) {
            saver.start(QStringLiteral(PORTFOLIO_SAVER), {file});
            QVERIFY(saver.waitForStarted());
            QVERIFY(saver.waitForReadyRead(10000)); // at least one whole save exists
            QTest::qWait(static_cast<int>(rng->bounded(5, 120)));
            saver.kill(); // SIGKILL
            QVERIFY(saver.waitForFinished(10000));
            QCOMPARE(saver.exitStatus(), QProcess::CrashExit);

            PortfolioTable table;
            Options options;
            const PortfolioFileResult r = PortfolioFile::read(file, table, options);
            QVERIFY2(r.ok(), qPrintable(r.message));
            QCOMPARE(table.count, qint16(50));
            const QByteArray bytes = readFile(file);
            const int variant = options.paging.pagerId == QLatin1String("variant 1") ? 1 : 0;
            QCOMPARE(options.paging.pagerId, QStringLiteral("variant %1").arg(variant));
            QCOMPARE(options.mail.password, QStringLiteral("pw%1").arg(variant));
            QVERIFY(table.records[49].ticker.startsWith(QStringLiteral("V%1-TICKER-49-").arg(variant)));
            if (versions[variant].isEmpty()) {
                versions[variant] = bytes;
            }
            QCOMPARE(bytes, versions[variant]);
        }
    }
};

QTEST_GUILESS_MAIN(TestPortfolioFile)
#include "test_portfoliofile.moc"
