#include "core/Quotes.h"
#include "news/NewsStories.h"
#include "support/Clock.h"

#include "TestUtil.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>

using kestrova::core::Quote;
using kestrova::core::Quotes;
using kestrova::news::News;
using kestrova::news::NewsStories;
using kestrova::support::MockClock;

namespace {

const QDate kToday(2026, 11, 23);

QDateTime at(const QDate& d)
{
    return QDateTime(d, QTime(10, 0));
}

QString us(const QDate& d)
{
    return d.toString(QStringLiteral("MM/dd/yyyy"));
}

std::shared_ptr<News> story(const QString& ticker, const QString& line, const QString& date, bool paged = false,
                            bool isNew = true)
{
    auto s = std::make_shared<News>();
    s->setTicker(ticker);
    s->setNewsLine(line);
    s->setNewsSource(QStringLiteral("Wire"));
    s->setSDate(date);
    s->setTime(QStringLiteral("9:15 AM"));
    s->setPaged(paged);
    s->setBNew(isNew);
    return s;
}

// ticker|headline|source|bNew|Paged|sDate|Time
QString fields(const News& s)
{
    return QStringList{s.ticker(), s.newsLine(), s.newsSource(), QString::number(s.bNew()), QString::number(s.paged()),
                       s.sDate(),  s.time()}
        .join(u'|');
}

QStringList headlines(const NewsStories& stories)
{
    QStringList out;
    for (const auto& s : stories) {
        out << s->newsLine();
    }
    return out;
}

} // namespace

class TestNewsStories : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void roundTrip_data()
    {
        QTest::addColumn<int>("daysLater");
        QTest::addColumn<bool>("expectNew");
        QTest::newRow("same day") << 0 << true;
        QTest::newRow("next day") << 1 << false;
    }
    void roundTrip()
    {
        QFETCH(int, daysLater);
        QFETCH(bool, expectNew);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("news.dat"));
        MockClock clock(at(kToday));
        NewsStories out(clock, path);
        // Paged and not paged, a non-ASCII headline (the file is Windows-1252), an empty source.
        out.Add(story(QStringLiteral("IBM"), QStringLiteral("IBM names new CFO"), us(kToday), true, true));
        auto second =
            story(QStringLiteral("NESN"), QStringLiteral("Nestl\u00e9 raises outlook \u2013 caf\u00e9 sales up"),
                  us(kToday), false, true);
        second->setNewsSource(QString());
        second->setTime(QStringLiteral("4:01 PM"));
        out.Add(second);
        QVERIFY(out.WriteNews());

        clock.set(at(kToday.addDays(daysLater)));
        NewsStories in(clock, path);
        QVERIFY(in.ReadNews());
        QCOMPARE(in.Count(), 2);
        for (int i = 1; i <= 2; ++i) {
            out.Item(i)->setBNew(expectNew);
            QCOMPARE(fields(*in.Item(i)), fields(*out.Item(i)));
        }
    }

    void fileLayout()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("news.dat"));
        MockClock clock(at(kToday));
        NewsStories stories(clock, path);
        stories.Add(
            story(QStringLiteral("IBM"), QStringLiteral("Caf\u00e9 deal"), QStringLiteral("11/23/2026"), true, false));
        stories.Add(story(QStringLiteral("T"), QStringLiteral("Second"), QString(), false, true));
        QVERIFY(stories.WriteNews());
        QCOMPARE(kestrova::testing::readFile(path),
                 QByteArray("IBM\tCaf\xe9 deal\tWire\tFalse\tTrue\t11/23/2026\t9:15 AM\r\n"
                            "T\tSecond\tWire\tTrue\tFalse\t\t9:15 AM\r\n"));
        // Writing again replaces the file rather than appending to it.
        stories.Remove(1);
        QVERIFY(stories.WriteNews());
        QCOMPARE(kestrova::testing::readFile(path), QByteArray("T\tSecond\tWire\tTrue\tFalse\t\t9:15 AM\r\n"));

        // A full disk, played by a file size limit on this process, fails the save and leaves
        // the previous file whole.
        for (int i = 0; i < 40; ++i)
            stories.Add(story(QStringLiteral("X%1").arg(i), QString(60, u'h'), QStringLiteral("11/23/2026")));
        rlimit saved{};
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &saved), 0);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit small = saved;
        small.rlim_cur = 1024;
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
        const bool written = stories.WriteNews();
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, oldHandler);
        QVERIFY(!written);
        QCOMPARE(kestrova::testing::readFile(path), QByteArray("T\tSecond\tWire\tTrue\tFalse\t\t9:15 AM\r\n"));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("news.dat")});
    }

    void readLine_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("expected"); // the fields of the one story read

        // clang-format off
        QTest::newRow("dated today, file says False") << QByteArray("A\tH\tS\tFalse\tFalse\t11/23/2026\t9:00\r\n") << "A|H|S|1|0|11/23/2026|9:00";
        QTest::newRow("old date, file says True") << QByteArray("A\tH\tS\tTrue\tTrue\t11/20/2026\t9:00\r\n") << "A|H|S|0|1|11/20/2026|9:00";
        QTest::newRow("empty time") << QByteArray("A\tH\tS\tFalse\tFalse\t11/23/2026\t\r\n") << "A|H|S|1|0|11/23/2026|";
        QTest::newRow("m/d/yyyy is read as a date") << QByteArray("A\tH\tS\ttrue\tfalse\t11/3/2026\tx\r\n") << "A|H|S|0|0|11/3/2026|x";
        QTest::newRow("not a date keeps the file's mark") << QByteArray("A\tH\tS\tTrue\tFalse\tyesterday\t9:00\r\n") << "A|H|S|1|0|yesterday|9:00";
        QTest::newRow("bad booleans are skipped") << QByteArray("A\tH\tS\tmaybe\t-1\tsoon\t9:00\r\n") << "A|H|S|0|1|soon|9:00";
        QTest::newRow("too few fields") << QByteArray("A\tH\tS\r\n") << "A|H|S|0|0||";
        QTest::newRow("ticker only") << QByteArray("ONLY\r\n") << "ONLY|||0|0||";
        QTest::newRow("LF line ends") << QByteArray("A\tH\tS\tTrue\tFalse\tnone\t9:00\n") << "A|H|S|1|0|none|9:00";
        QTest::newRow("no final line end") << QByteArray("A\tH\tS\tTrue\tFalse\tnone\t9:00") << "A|H|S|1|0|none|9:00";
        QTest::newRow("extra fields ignored") << QByteArray("A\tH\tS\tTrue\tTrue\tnone\t9:00\textra\tmore\r\n") << "A|H|S|1|1|none|9:00";
        QTest::newRow("month name, today") << QByteArray("A\tH\tS\tFalse\tFalse\tNov 23, 2026\t9:00\r\n") << "A|H|S|1|0|Nov 23, 2026|9:00";
        QTest::newRow("month name, earlier") << QByteArray("A\tH\tS\tTrue\tFalse\tNov 20, 2026\t9:00\r\n") << "A|H|S|0|0|Nov 20, 2026|9:00";
        QTest::newRow("Windows-1252 text") << QByteArray("A\tZ\xfcrich \x80 deal\tS\tTrue\tFalse\tnone\t9:00\r\n") << QStringLiteral("A|Z\u00fcrich \u20ac deal|S|1|0|none|9:00");
        // clang-format on
    }
    void readLine()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("news.dat"));
        kestrova::testing::writeFile(path, file);
        MockClock clock(at(kToday));
        NewsStories stories(clock, path);
        QVERIFY(stories.ReadNews());
        QCOMPARE(stories.Count(), 1);
        QCOMPARE(fields(*stories.Item(1)), expected);
    }

    void readAppendsAndKeepsOnMissingFile()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("news.dat"));
        MockClock clock(at(kToday));
        NewsStories stories(clock, path);
        stories.Add(story(QStringLiteral("OLD"), QStringLiteral("kept"), us(kToday)));
        QVERIFY(!stories.ReadNews());
        QCOMPARE(headlines(stories), QStringList{QStringLiteral("kept")});

        kestrova::testing::writeFile(path, "A\tfirst\tS\tTrue\tFalse\t\t\r\nB\tsecond\tS\tTrue\tFalse\t\t\r\n");
        QVERIFY(stories.ReadNews());
        QCOMPARE(headlines(stories), (QStringList{"kept", "first", "second"}));
    }

    void storyDate_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDate>("expected");
        QTest::newRow("mm/dd/yyyy") << "03/07/2026" << QDate(2026, 3, 7);
        QTest::newRow("m/d/yyyy") << "3/7/2026" << QDate(2026, 3, 7);
        QTest::newRow("m/d/yy this century") << "3/7/26" << QDate(2026, 3, 7);
        QTest::newRow("m/d/yy last century") << "12/31/99" << QDate(1999, 12, 31);
        QTest::newRow("iso") << "2026-11-23" << QDate(2026, 11, 23);
        QTest::newRow("blanks around") << " 11/23/2026 " << QDate(2026, 11, 23);
        QTest::newRow("no such day") << "02/30/2026" << QDate();
        QTest::newRow("month 13") << "13/01/2026" << QDate();
        QTest::newRow("text") << "today" << QDate();
        QTest::newRow("empty") << "" << QDate();
        QTest::newRow("trailing garbage") << "11/23/2026x" << QDate();
        QTest::newRow("month abbreviation") << "Nov 23, 2026" << QDate(2026, 11, 23);
        QTest::newRow("month name, no comma") << "November 23 2026" << QDate(2026, 11, 23);
        QTest::newRow("day first") << "23 Nov 2026" << QDate(2026, 11, 23);
        QTest::newRow("upper case") << "SEPT 5, 2026" << QDate(2026, 9, 5);
        QTest::newRow("dashes") << "11-23-2026" << QDate(2026, 11, 23);
        QTest::newRow("year first with slashes") << "2026/11/23" << QDate(2026, 11, 23);
        QTest::newRow("a time after the date") << "11/23/2026 9:00" << QDate(2026, 11, 23);
        QTest::newRow("a time with seconds and pm") << "Nov 23, 2026 4:05:09 PM" << QDate(2026, 11, 23);
        QTest::newRow("a time that is none") << "11/23/2026 25:00" << QDate();
        QTest::newRow("no such month name") << "Nox 23, 2026" << QDate();
        QTest::newRow("no such day by name") << "Feb 30, 2026" << QDate();
    }
    void storyDate()
    {
        QFETCH(QString, text);
        QFETCH(QDate, expected);
        QCOMPARE(NewsStories::storyDate(text), expected);
    }

    void findStory_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("expected");
        QTest::newRow("exact first") << "IBM names new CFO" << 1;
        QTest::newRow("first of two equal") << "Repeated" << 2;
        QTest::newRow("letter case differs") << "IBM NAMES NEW CFO" << 0;
        QTest::newRow("trailing blank") << "IBM names new CFO " << 0;
        QTest::newRow("absent") << "Nothing" << 0;
        QTest::newRow("empty headline stored last") << "" << 4;
    }
    void findStory()
    {
        QFETCH(QString, text);
        QFETCH(int, expected);
        MockClock clock(at(kToday));
        NewsStories stories(clock);
        stories.Add(story("IBM", "IBM names new CFO", us(kToday)));
        stories.Add(story("T", "Repeated", us(kToday)));
        stories.Add(story("T", "Repeated", us(kToday)));
        stories.Add(story("T", "", us(kToday)));
        QCOMPARE(int(stories.FindStory(text)), expected);
    }

    void isNewsOut()
    {
        MockClock clock(at(kToday));
        NewsStories stories(clock);
        stories.Add(story("IBM", "old", us(kToday.addDays(-3)), false, false));
        stories.Add(story("IBM", "fresh", us(kToday), false, true));
        stories.Add(story("MSFT", "stale", us(kToday.addDays(-3)), false, false));
        QVERIFY(stories.IsNewsOut("IBM"));
        QVERIFY(!stories.IsNewsOut("ibm")); // exact text
        QVERIFY(!stories.IsNewsOut("MSFT"));
        QVERIFY(!stories.IsNewsOut("T"));
    }

    void updateNewsOut()
    {
        MockClock clock(at(kToday));
        NewsStories stories(clock);
        stories.Add(story("A", "today", us(kToday), false, true));
        stories.Add(story("B", "undated", QStringLiteral("breaking"), false, true));
        stories.Add(story("C", "not new", us(kToday), false, false));
        stories.UpdateNewsOut();
        QCOMPARE(stories.Item(1)->bNew(), true);
        QCOMPARE(stories.Item(3)->bNew(), false); // only stories marked new are looked at
        clock.set(at(kToday.addDays(1)));
        stories.UpdateNewsOut();
        QCOMPARE(stories.Item(1)->bNew(), false);
        QCOMPARE(stories.Item(2)->bNew(), true);
        QCOMPARE(stories.Item(3)->bNew(), false);
    }

    void purge_data()
    {
        QTest::addColumn<int>("days");
        // Age in days of each story (-1: a date that is not a date), named A, B, C, ...
        QTest::addColumn<QList<int>>("ages");
        QTest::addColumn<QString>("remaining");
        QTest::newRow("0 days deletes nothing") << 0 << QList<int>{10, 20} << "AB";
        QTest::newRow("negative days deletes nothing") << -2 << QList<int>{10, 20} << "AB";
        QTest::newRow("first of three is old") << 3 << QList<int>{10, 1, 1} << "BC";
        QTest::newRow("age equal to days stays") << 3 << QList<int>{3, 4} << "A";
        QTest::newRow("calendar days, not hours") << 1 << QList<int>{1, 2} << "A";
        // A goes; then B is tested (old) but the counter names C, which goes instead.
        QTest::newRow("counter runs ahead") << 3 << QList<int>{10, 10, 1, 1} << "BD";
        // F is old, but by then the counter points past the end.
        QTest::newRow("counter past the end") << 3 << QList<int>{10, 10, 10, 1, 1, 10} << "BDEF";
        QTest::newRow("undated is skipped but counted") << 3 << QList<int>{-1, 10} << "A";
        QTest::newRow("all old") << 3 << QList<int>{9, 9, 9, 9} << "BD";
        QTest::newRow("none old") << 7 << QList<int>{0, 1, 7} << "ABC";
        QTest::newRow("future dates stay") << 1 << QList<int>{-5, 5} << "A";
    }
    void purge()
    {
        QFETCH(int, days);
        QFETCH(QList<int>, ages);
        QFETCH(QString, remaining);
        MockClock clock(QDateTime(kToday, QTime(0, 5)));
        NewsStories stories(clock);
        for (int i = 0; i < ages.size(); ++i) {
            const QString date = ages[i] == -1 ? QStringLiteral("unknown") : us(kToday.addDays(-ages[i]));
            stories.Add(story("T", QString(QChar(u'A' + i)), date));
        }
        stories.PurgeNews(qint16(days));
        QCOMPARE(headlines(stories).join(QString()), remaining);
    }

    void pageText_data()
    {
        QTest::addColumn<int>("maximum");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("pagedAfter"); // one letter per story: P paged, - not

        // Stories: A IBM today, B IBM yesterday, C MSFT today (pager off), D T 5 days old,
        // E IBM already paged, F NEWCO today (no quote in the set), G IBM undated, H IBM today.
        // clang-format off
        QTest::newRow("max 2 of five") << 2 << "<IBM 11/23/2026> a\n<IBM 11/22/2026> b\n" << "PP--P---";
        QTest::newRow("old story counts but is not written") << 3 << "<IBM 11/23/2026> a\n<IBM 11/22/2026> b\n"
                                                             << "PP-PP---";
        QTest::newRow("ticker without a quote is included")
            << 4 << "<IBM 11/23/2026> a\n<IBM 11/22/2026> b\n<NEWCO 11/23/2026> f\n"
            << "PP-PPP--";
        QTest::newRow("no limit") << 0
                                  << "<IBM 11/23/2026> a\n<IBM 11/22/2026> b\n<NEWCO 11/23/2026> f\n<IBM soon> g\n"
                                     "<IBM 11/23/2026> h\n"
                                  << "PP-PPPPP";
        QTest::newRow("max 1") << 1 << "<IBM 11/23/2026> a\n" << "P---P---";
        // clang-format on
    }
    void pageText()
    {
        QFETCH(int, maximum);
        QFETCH(QString, expected);
        QFETCH(QString, pagedAfter);
        MockClock clock(at(kToday));
        NewsStories stories(clock);
        stories.Add(story("IBM", "a", us(kToday)));
        stories.Add(story("IBM", "b", us(kToday.addDays(-1))));
        stories.Add(story("MSFT", "c", us(kToday)));
        stories.Add(story("T", "d", us(kToday.addDays(-5))));
        stories.Add(story("IBM", "e", us(kToday), true));
        stories.Add(story("NEWCO", "f", us(kToday)));
        stories.Add(story("IBM", "g", QStringLiteral("soon")));
        stories.Add(story("IBM", "h", us(kToday)));

        Quotes quotes;
        for (const auto& [ticker, pager] : {std::pair{"IBM", true}, {"MSFT", false}, {"T", true}}) {
            auto q = std::make_shared<Quote>();
            q->setTicker(QString::fromLatin1(ticker));
            q->setToPager(pager);
            quotes.Add(q, QString::fromLatin1(ticker));
        }
        QCOMPARE(stories.PageMessageString(qint16(maximum), quotes), expected);
        QString paged;
        for (const auto& s : stories) {
            paged += s->paged() ? u'P' : u'-';
        }
        QCOMPARE(paged, pagedAfter);
    }
};

QTEST_GUILESS_MAIN(TestNewsStories)
#include "test_newsstories.moc"
