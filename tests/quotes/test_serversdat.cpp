#include "TestHost.h"
#include "TestUtil.h"

#include "quotes/ServersDat.h"
#include "support/Clock.h"

#include <QTemporaryDir>
#include <QTest>

using namespace kestrova;

class TestServersDat : public QObject
{
    Q_OBJECT
private Q_SLOTS:

    void goodFile()
    {
        core::QuoteOptions opts;
        opts.logons[7] = {QStringLiteral("ann"), QStringLiteral("pw7")};
        const quotes::BuiltInServers builtIn(opts);
        quotes::ServerDefinitions defs;
        const auto r =
            quotes::readServersDat(testing::dataPath(QStringLiteral("quotes/servers_good.dat")), defs, builtIn);
        QCOMPARE(r.error, 0);
        QCOMPARE(defs.version, QStringLiteral("2026-11-01"));
        QCOMPARE(defs.stock.Count(), 2);
        QCOMPARE(defs.option.Count(), 1);

        const auto pc = defs.stock.Item(1);
        QCOMPARE(pc->serverName(), QStringLiteral("PCQuote"));
        QCOMPARE(pc->serverIndex(), qint16(0));
        QCOMPARE(pc->url(), QStringLiteral("http://127.0.0.1:9/q?t="));
        QCOMPARE(pc->nameKey(), QStringLiteral("Company"));
        QCOMPARE(pc->lastOffset(), qint16(3));
        QCOMPARE(pc->volumeKey(), QStringLiteral("Volume:"));
        QCOMPARE(pc->volumeOffset(), qint16(0)); // value on the next line of the file
        QCOMPARE(pc->yearLowOffset(), qint16(-1));
        QCOMPARE(pc->dayLowKey(), QStringLiteral("Day Low"));
        QCOMPARE(pc->previousKey(), QStringLiteral("Prev"));
        QCOMPARE(pc->interestKey(), QStringLiteral("Open Int"));
        QCOMPARE(pc->interestOffset(), qint16(-1));
        QVERIFY(pc->username().isEmpty());
        QVERIFY(pc->ticker().isEmpty());

        // One value per line, a quoted key holding a comma; the log-on comes from entry 7.
        const auto rt = defs.stock.Item(QStringLiteral("marketsmart (rt)"));
        QCOMPARE(rt->lastKey(), QStringLiteral("Last, Trade"));
        QCOMPARE(rt->username(), QStringLiteral("ann"));
        QCOMPARE(rt->password(), QStringLiteral("pw7"));
        QCOMPARE(defs.option.Item(1)->serverIndex(), qint16(11));
    }

    void failures_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QStringList>("stockNames");
        QTest::addColumn<QString>("failure"); // after the file's path

        QTest::newRow("empty sections") << "servers_empty.dat" << 0 << QString() << QStringList{} << QString();
        QTest::newRow("duplicate name")
            << "servers_duplicate.dat" << 457
            << "ERROR 457 occurred.  This key is already associated with an element of this "
               "collection"
            << QStringList{"Yahoo"} << " line 4: a server name appears twice";
        QTest::newRow("cut mid-record") << "servers_cut.dat" << 62 << QString() << QStringList{"Yahoo"}
                                        << " line 4: the file ends in the middle of a record";
        QTest::newRow("bad ServerIndex") << "servers_badindex.dat" << 9 << "ERROR 9 occurred.  Subscript out of range"
                                         << QStringList{"Yahoo"} << " line 4: the ServerIndex names no known service";
        QTest::newRow("missing file") << "no_such.dat" << 53 << "ERROR 53: The server.dat file doesn't exist."
                                      << QStringList{} << ": the file does not exist";
        QTest::newRow("missing folder") << "nowhere/servers.dat" << 76 << "ERROR 76: That path doesn't exist."
                                        << QStringList{} << ": its folder does not exist";
    }
    void failures()
    {
        QFETCH(QString, file);
        QFETCH(int, error);
        QFETCH(QString, message);
        QFETCH(QStringList, stockNames);
        QFETCH(QString, failure);

        support::MockClock clock;
        testing::TestHost host(&clock);
        const quotes::BuiltInServers builtIn;
        quotes::ServerDefinitions defs;
        const bool ok =
            quotes::loadServersDat(testing::dataPath(QStringLiteral("quotes/") + file), defs, builtIn, host);
        QCOMPARE(ok, error == 0);
        quotes::ServerDefinitions fresh;
        QCOMPARE(quotes::readServersDat(testing::dataPath(QStringLiteral("quotes/") + file), fresh, builtIn).error,
                 error);
        // The error output's line names the file and where in it reading stopped.
        QCOMPARE(host.failures, failure.isEmpty()
                                    ? QStringList{}
                                    : QStringList{testing::dataPath(QStringLiteral("quotes/") + file) + failure});
        if (error == 0) {
            QVERIFY(host.messages.isEmpty());
        } else {
            QCOMPARE(host.messages.size(), 1);
            if (!message.isEmpty())
                QCOMPARE(host.messages.first(), message);
        }
        // What was read before the error stays.
        QStringList names;
        for (const auto& s : defs.stock)
            names << s->serverName();
        QCOMPARE(names, stockNames);
        QCOMPARE(defs.option.Count(), 0);
    }

    void corruptedOffersUpdatePage()
    {
        support::MockClock clock;
        testing::TestHost host(&clock);
        host.answers.push_back(support::MsgAnswer::Yes);
        quotes::ServerDefinitions defs;
        QVERIFY(!quotes::loadServersDat(testing::dataPath(QStringLiteral("quotes/servers_cut.dat")), defs,
                                        quotes::BuiltInServers(), host));
        QCOMPARE(host.messages.size(), 1);
        const QStringList lines = host.messages.first().split(u'\n');
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines[0],
                 QStringLiteral("ERROR 62: The server.dat file is corrupted.  Please update your server.dat file."));
        QVERIFY(lines[1].startsWith(
            QStringLiteral("If you continue to have problems with this file you can manually download the files at ")));
        QCOMPARE(lines[2], QStringLiteral("Do you want to go there now?"));
        QCOMPARE(host.openedUrls, QStringList{QString::fromLatin1(quotes::kServerUpdatePage)});
        QVERIFY(lines[1].endsWith(host.openedUrls.first()));
        QCOMPARE(defs.version, QStringLiteral("v3"));

        // A No leaves the browser alone.
        testing::TestHost no(&clock);
        quotes::ServerDefinitions again;
        quotes::loadServersDat(testing::dataPath(QStringLiteral("quotes/servers_cut.dat")), again,
                               quotes::BuiltInServers(), no);
        QVERIFY(no.openedUrls.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestServersDat)
#include "test_serversdat.moc"
