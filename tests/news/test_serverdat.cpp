#include "news/NewsServer.h"
#include "news/ServerDat.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "quotes/ServersDat.h"
#include "support/Clock.h"
#include "support/VbError.h"

#include "TestHost.h"
#include "TestUtil.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

using kestrova::news::NewsServers;
using kestrova::news::ScrapedStory;
using kestrova::support::VbError;
using kestrova::testing::TestHost;

namespace {

QString shipped(const QString& name)
{
    return qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/data/") + name;
}

const QByteArray kRecordA =
    "\"Alpha\",\"http://a.example/n?t=\",\"<li>\",\"<b>\",\"</b>\",\"\",\"\",\"\",\"\",\"\",\"\"\r\n";
const QByteArray kRecordB = "\"Beta\",\"http://b.example/n?t=\",\"<tr>\",\"<td>\",\"</td>\",\"<i>\",\"</i>\",\"<u>\","
                            "\"</u>\",\"<s>\",\"</s>\"\r\n";

QString corruptMessage()
{
    return QStringLiteral("ERROR 62: The servers.dat file is corrupted.  Please update your servers.dat file.\n"
                          "If you continue to have problems with this file you can manually download the files at ") +
           QString::fromLatin1(kestrova::quotes::kServerUpdatePage) + QStringLiteral("\nDo you want to go there now?");
}

} // namespace

class TestServerDat : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void shippedNewsServers()
    {
        NewsServers servers;
        const auto result = kestrova::news::readServerDat(shipped("server.dat"), servers);
        QCOMPARE(result.error, 0);
        QVERIFY(!servers.version.isEmpty());
        QVERIFY(servers.contains(QStringLiteral("Demo Market")));
        const auto demo = servers.Item(QStringLiteral("Demo Market"));
        QCOMPARE(demo->requestUrl("IBM"), QStringLiteral("http://127.0.0.1:8099/news?t=IBM"));
        // Every news server is named after a built-in quote service, which is how a ticker
        // finds its news server.
        const kestrova::quotes::BuiltInServers builtIn;
        for (const auto& s : servers) {
            QVERIFY2(builtIn.indexOfName(s->serverName()) >= 0, qPrintable(s->serverName()));
            QVERIFY(!s->headlineStart().isEmpty());
        }
    }

    void shippedQuoteServers()
    {
        kestrova::quotes::ServerDefinitions defs;
        const kestrova::quotes::BuiltInServers builtIn;
        const auto result = kestrova::quotes::readServersDat(shipped("servers.dat"), defs, builtIn);
        QCOMPARE(result.error, 0);
        QCOMPARE(defs.stock.Count(), kestrova::quotes::BuiltInServers::kCount);
        // Each stock record is the built-in service of its ServerIndex, in list order.
        for (int i = 1; i <= defs.stock.Count(); ++i) {
            const auto s = defs.stock.Item(i);
            QCOMPARE(int(s->serverIndex()), i - 1);
            QCOMPARE(s->serverName(), builtIn.at(i - 1).name);
        }
        for (const auto& s : defs.option) {
            QCOMPARE(s->serverName(), builtIn.at(s->serverIndex()).name);
        }
        QVERIFY(defs.option.contains(QStringLiteral("Demo Market")));
        QCOMPARE(defs.stock.Item(QStringLiteral("Demo Market"))->url(),
                 QStringLiteral("http://127.0.0.1:8099/stock?t="));
        QCOMPARE(defs.option.Item(QStringLiteral("Demo Market"))->url(),
                 QStringLiteral("http://127.0.0.1:8099/option?t="));
    }

    void broken_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<int>("error");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("message");

        // clang-format off
        QTest::newRow("two servers") << "\"v1\",0\r\n2\r\n" + kRecordA + kRecordB << 0 << QStringList{"Alpha", "Beta"} << QString();
        QTest::newRow("no servers") << QByteArray("\"v1\",0\r\n0\r\n") << 0 << QStringList{} << QString();
        QTest::newRow("line breaks anywhere") << "\"v1\"\n0\n1\n" + QByteArray(kRecordB).replace(",", "\n") << 0 << QStringList{"Beta"} << QString();
        QTest::newRow("duplicate name") << "\"v1\",0\r\n2\r\n" + kRecordA + kRecordA << int(VbError::DuplicateKey)
                                        << QStringList{"Alpha"}
                                        << "ERROR 457 occurred.  " + VbError::standardText(VbError::DuplicateKey);
        QTest::newRow("duplicate differs in case")
            << "\"v1\",0\r\n2\r\n" + kRecordA + QByteArray(kRecordA).replace("Alpha", "ALPHA")
            << int(VbError::DuplicateKey) << QStringList{"Alpha"}
            << "ERROR 457 occurred.  " + VbError::standardText(VbError::DuplicateKey);
        QTest::newRow("cut mid-record") << "\"v1\",0\r\n2\r\n" + kRecordA + kRecordB.left(40)
                                        << int(VbError::InputPastEnd) << QStringList{"Alpha"} << corruptMessage();
        QTest::newRow("fewer records than counted")
            << "\"v1\",0\r\n3\r\n" + kRecordA << int(VbError::InputPastEnd) << QStringList{"Alpha"} << corruptMessage();
        QTest::newRow("empty file") << QByteArray() << int(VbError::InputPastEnd) << QStringList{} << corruptMessage();
        QTest::newRow("count is not a number")
            << QByteArray("\"v1\",0\r\n\"two\"\r\n") << int(VbError::TypeMismatch) << QStringList{}
            << "ERROR 13 occurred.  " + VbError::standardText(VbError::TypeMismatch);
        // clang-format on
    }
    void broken()
    {
        QFETCH(QByteArray, file);
        QFETCH(int, error);
        QFETCH(QStringList, names);
        QFETCH(QString, message);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("server.dat"));
        kestrova::testing::writeFile(path, file);
        NewsServers servers;
        const auto result = kestrova::news::readServerDat(path, servers);
        QCOMPARE(result.error, error);
        QStringList got;
        for (const auto& s : servers) {
            got << s->serverName();
        }
        QCOMPARE(got, names);
        QCOMPARE(kestrova::news::serverDatMessage(result), message);
        if (error == 0 && !names.isEmpty()) {
            QCOMPARE(servers.version, QStringLiteral("v1"));
        }
        if (names.contains(QStringLiteral("Beta")) && error == 0) {
            const auto b = servers.Item(QStringLiteral("Beta"));
            QCOMPARE(b->storyKey(), QStringLiteral("<tr>"));
            QCOMPARE(b->headlineEnd(), QStringLiteral("</td>"));
            QCOMPARE(b->sourceStart(), QStringLiteral("<i>"));
            QCOMPARE(b->dateEnd(), QStringLiteral("</u>"));
            QCOMPARE(b->timeStart(), QStringLiteral("<s>"));
            QCOMPARE(b->timeEnd(), QStringLiteral("</s>"));
        }
    }

    void missingFileAndPath()
    {
        QTemporaryDir dir;
        NewsServers servers;
        TestHost host;
        QVERIFY(!kestrova::news::loadServerDat(dir.filePath(QStringLiteral("server.dat")), servers, host));
        QVERIFY(!kestrova::news::loadServerDat(dir.filePath(QStringLiteral("nowhere/server.dat")), servers, host));
        QCOMPARE(host.messages,
                 (QStringList{"ERROR 53: The servers.dat file doesn't exist.", "ERROR 76: That path doesn't exist."}));
        QVERIFY(host.openedUrls.isEmpty());
    }

    void corruptFileOffersUpdatePage_data()
    {
        QTest::addColumn<bool>("yes");
        QTest::newRow("yes opens the page") << true;
        QTest::newRow("no leaves it") << false;
    }
    void corruptFileOffersUpdatePage()
    {
        QFETCH(bool, yes);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("server.dat"));
        kestrova::testing::writeFile(path, "\"v1\",0\r\n1\r\n\"Alpha\",\"http://a/\"");
        NewsServers servers;
        TestHost host;
        host.answers.push_back(yes ? kestrova::support::MsgAnswer::Yes : kestrova::support::MsgAnswer::No);
        QVERIFY(!kestrova::news::loadServerDat(path, servers, host));
        QCOMPARE(host.messages, QStringList{corruptMessage()});
        QCOMPARE(host.openedUrls,
                 yes ? QStringList{QString::fromLatin1(kestrova::quotes::kServerUpdatePage)} : QStringList{});
    }

    void extract_data()
    {
        QTest::addColumn<QString>("page");
        QTest::addColumn<QStringList>("markers");  // story key, then start/end of headline, source, date, time
        QTest::addColumn<QStringList>("expected"); // headline|source|date|time per story

        const QString wire =
            QString::fromLatin1(kestrova::testing::readFile(kestrova::testing::dataPath("news/wire_news.html")));
        const QStringList wireMarkers{"<li>",    "<a href=",          "</a>",
                                      "<cite>",  "</cite>",           "<span class=date>",
                                      "</span>", "<span class=time>", "</span>"};
        // clang-format off
        QTest::newRow("saved wire page")
            << wire << wireMarkers
            << QStringList{"ACME & Sons agree merger|Wire One|11/23/2026|9:05 AM",
                           "ACME beats estimates|Wire Two|11/3/2026|",
                           QStringLiteral("Caf&eacute; chain \u2013 ACME's new unit||yesterday|noon")};
        QTest::newRow("no story key: one story")
            << "<p><b>Only one</b> <i>src</i></p><b>second ignored</b>"
            << QStringList{"", "<b>", "</b>", "<i>", "</i>", "", "", "", ""} << QStringList{"Only one|src||"};
        QTest::newRow("no headline marker: nothing") << "#A one#B two" << QStringList{"#", "", "", "", "", "", "", "", ""} << QStringList{};
        QTest::newRow("headline to end of story") << "#A one#B two" << QStringList{"#", "A", "", "", "", "", "", "", ""} << QStringList{"one|||"};
        QTest::newRow("end marker missing gives no headline")
            << "<li><b>cut off" << QStringList{"<li>", "<b>", "</b>", "", "", "", "", "", ""} << QStringList{};
        QTest::newRow("tag marker left open at page end")
            << "<li><a href=x" << QStringList{"<li>", "<a href=", "</a>", "", "", "", "", "", ""} << QStringList{};
        QTest::newRow("key absent") << "<p>no stories</p>" << QStringList{"<li>", "<b>", "</b>", "", "", "", "", "", ""} << QStringList{};
        // clang-format on
    }
    void extract()
    {
        QFETCH(QString, page);
        QFETCH(QStringList, markers);
        QFETCH(QStringList, expected);
        kestrova::news::NewsServer s;
        s.setStoryKey(markers[0]);
        s.setHeadlineStart(markers[1]);
        s.setHeadlineEnd(markers[2]);
        s.setSourceStart(markers[3]);
        s.setSourceEnd(markers[4]);
        s.setDateStart(markers[5]);
        s.setDateEnd(markers[6]);
        s.setTimeStart(markers[7]);
        s.setTimeEnd(markers[8]);
        QStringList got;
        for (const ScrapedStory& st : s.ExtractStories(page)) {
            got << st.headline + u'|' + st.source + u'|' + st.date + u'|' + st.time;
        }
        QCOMPARE(got, expected);
    }

    void loaderCopiesOnFirstRunAndReadsNewsFirst()
    {
        QTemporaryDir installed;
        QTemporaryDir data;
        QVERIFY(QFile::copy(shipped("servers.dat"), installed.filePath("servers.dat")));
        QVERIFY(QFile::copy(shipped("server.dat"), installed.filePath("server.dat")));
        qputenv("KESTROVA_DATA", installed.path().toLocal8Bit());
        const kestrova::quotes::BuiltInServers builtIn;

        // First run: both files are copied in and read.
        NewsServers news;
        kestrova::quotes::ServerDefinitions quotes;
        TestHost host;
        QVERIFY(kestrova::news::loadServerDefinitions(data.path(), news, quotes, builtIn, host));
        QVERIFY(QFile::exists(data.filePath("server.dat")));
        QVERIFY(QFile::exists(data.filePath("servers.dat")));
        QCOMPARE(news.Count(), 3);
        QCOMPARE(quotes.stock.Count(), 13);
        QVERIFY(host.messages.isEmpty());

        // The user's own copies win over the installed ones, and a reload starts from empty
        // collections. Both files damaged: the news file's message comes first.
        kestrova::testing::writeFile(data.filePath("server.dat"), "\"v1\",0\r\n2\r\n" + kRecordA);
        kestrova::testing::writeFile(data.filePath("servers.dat"), "\"v1\",0\r\n1\r\n\"Cut\",");
        QVERIFY(!kestrova::news::loadServerDefinitions(data.path(), news, quotes, builtIn, host));
        QCOMPARE(news.Count(), 1);
        QCOMPARE(quotes.stock.Count(), 0);
        QCOMPARE(quotes.option.Count(), 0);
        QCOMPARE(host.messages.size(), 2);
        QVERIFY(host.messages[0].contains(QStringLiteral("servers.dat file is corrupted")));
        QVERIFY(host.messages[1].contains(QStringLiteral("server.dat file is corrupted")));
        QVERIFY(!host.messages[1].contains(QStringLiteral("servers.dat")));

        // A data folder that cannot take the copies (here it does not exist) reads the
        // installed files where they are, instead of reporting them missing.
        const QString unwritable = data.filePath("gone/data");
        TestHost second;
        QVERIFY(kestrova::news::loadServerDefinitions(unwritable, news, quotes, builtIn, second));
        QVERIFY(!QFile::exists(unwritable));
        QCOMPARE(news.Count(), 3);
        QCOMPARE(quotes.stock.Count(), 13);
        QVERIFY(second.messages.isEmpty());
        QCOMPARE(kestrova::news::serverFilePath(unwritable, "servers.dat"), installed.filePath("servers.dat"));
        qunsetenv("KESTROVA_DATA");
    }

    void retargetDemoMarket()
    {
        QTemporaryDir data;
        QVERIFY(QFile::copy(shipped("servers.dat"), data.filePath("servers.dat")));
        QVERIFY(QFile::copy(shipped("server.dat"), data.filePath("server.dat")));
        const QByteArray before = kestrova::testing::readFile(data.filePath("servers.dat"));
        for (quint16 port : {quint16(41234), quint16(8100)}) {
            QVERIFY(kestrova::news::retargetDemoMarket(data.path(), port));
            NewsServers news;
            QCOMPARE(kestrova::news::readServerDat(data.filePath("server.dat"), news).error, 0);
            QCOMPARE(news.Item(QStringLiteral("Demo Market"))->url(),
                     QStringLiteral("http://127.0.0.1:%1/news?t=").arg(port));
            kestrova::quotes::ServerDefinitions quotes;
            QCOMPARE(kestrova::quotes::readServersDat(data.filePath("servers.dat"), quotes, {}).error, 0);
            QCOMPARE(quotes.option.Item(QStringLiteral("Demo Market"))->url(),
                     QStringLiteral("http://127.0.0.1:%1/option?t=").arg(port));
            // Nothing else in the file changes.
            QCOMPARE(kestrova::testing::readFile(data.filePath("servers.dat")).size(),
                     before.size() + 2 * (QByteArray::number(port).size() - 4));
        }
    }
};

QTEST_GUILESS_MAIN(TestServerDat)
#include "test_serverdat.moc"
