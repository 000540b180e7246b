#include "../peers/CliRun.h"
#include "core/PortfolioFile.h"

#include "TestUtil.h"

#include <QDir>
#include <QLockFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace kestrova;
using testing::CliRun;
using testing::readFile;
using testing::writeFile;

// Several kestrova-cli processes on one data folder, as beside a running daemon.
class TestCliSharing : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_home;
    QString dataDir() const { return m_home->filePath(QStringLiteral("data")); }
    QString portfolio() const { return dataDir() + QStringLiteral("/watch.pgr"); }
    QString logPath() const { return dataDir() + QStringLiteral("/activity.txt"); }
    QString oldLogPath() const { return dataDir() + QStringLiteral("/activity.old"); }

    QStringList globals() const
    {
        return {QStringLiteral("--data-dir"), dataDir(), QStringLiteral("--portfolio"), portfolio()};
    }
    // Started and left running; the caller waits for it.
    void startCli(QProcess& p, const QStringList& args)
    {
        p.setProcessEnvironment(testing::cliEnvironment(*m_home));
        p.start(qEnvironmentVariable("KESTROVA_CLI"), globals() + args);
    }

    CliRun cli(const QStringList& args, int timeoutMs = 30000)
    {
        return testing::runCli(*m_home, globals() + args, timeoutMs);
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariable("KESTROVA_CLI").isEmpty()) {
            QSKIP("KESTROVA_CLI does not name the program");
        }
    }
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        QDir().mkpath(dataDir());
        core::Options options;
        core::PortfolioTable table;
        table.count = 1;
        table.records[0].ticker = QStringLiteral("IBM");
        QVERIFY(core::PortfolioFile::write(portfolio(), table, options).ok());
    }

    // Only a process that runs the program starts a fresh log; a one-shot command beside a
    // running daemon must leave the daemon's log where it is and only add to it.
    void logStartsOnlyForARun_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("startsNewLog");
        QTest::newRow("portfolio show") << QStringList{"portfolio", "show"} << false;
        QTest::newRow("portfolio add") << QStringList{"portfolio", "add", "MSFT"} << false;
        QTest::newRow("portfolio set") << QStringList{"portfolio", "set", "IBM", "--high", "200"} << false;
        QTest::newRow("options get") << QStringList{"options", "get", "pager.id"} << false;
        QTest::newRow("options set") << QStringList{"options", "set", "pager.id", "77"} << false;
        QTest::newRow("options list") << QStringList{"options", "list"} << false;
        QTest::newRow("servers") << QStringList{"servers"} << false;
        QTest::newRow("refused command") << QStringList{"portfolio", "remove", "NOPE"} << false;
        // A missing portfolio ends both at once, after the log has started.
        QTest::newRow("update") << QStringList{"--portfolio", "none.pgr", "update"} << true;
        QTest::newRow("run") << QStringList{"--portfolio", "none.pgr", "run"} << true;
    }
    void logStartsOnlyForARun()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, startsNewLog);
        const QByteArray daemonLines = "Kestrova started on 11/23/2026 9:00:00 AM\r\nGetting Stock Quotes\r\n";
        const QByteArray olderRun = "an older run\r\n";
        writeFile(logPath(), daemonLines);
        writeFile(oldLogPath(), olderRun);
        const CliRun r = cli(args);
        QVERIFY2(r.code >= 0, qPrintable(r.err));
        if (startsNewLog) {
            QCOMPARE(readFile(oldLogPath()), daemonLines);
        } else {
            QCOMPARE(readFile(oldLogPath()), olderRun);
            QVERIFY2(readFile(logPath()).startsWith(daemonLines), readFile(logPath()).constData());
        }
    }

    // Every read-change-save of the portfolio file holds its lock: no change is lost, and a
    // command that cannot get the lock says so and fails instead of claiming success.
    void concurrentChangesAreNotLost()
    {
        constexpr int kProcesses = 10;
        std::vector<std::unique_ptr<QProcess>> procs;
        for (int i = 0; i < kProcesses; ++i) {
            procs.push_back(std::make_unique<QProcess>());
            startCli(*procs.back(), {QStringLiteral("portfolio"), QStringLiteral("add"), QStringLiteral("T%1").arg(i)});
        }
        int added = 0;
        QStringList expected{QStringLiteral("IBM")};
        for (int i = 0; i < kProcesses; ++i) {
            QProcess& p = *procs[static_cast<size_t>(i)];
            QVERIFY(p.waitForFinished(60000));
            const QString out = QString::fromUtf8(p.readAllStandardOutput());
            const QString err = QString::fromUtf8(p.readAllStandardError());
            if (p.exitCode() == 0) {
                QVERIFY2(out.startsWith(QStringLiteral("Added T%1").arg(i)), qPrintable(out + err));
                expected << QStringLiteral("T%1").arg(i);
                ++added;
            } else {
                QVERIFY2(!out.contains(QLatin1String("Added")), qPrintable(out));
                QVERIFY2(err.contains(QLatin1String("is in use by")), qPrintable(err));
            }
        }
        QVERIFY(added > 0);
        core::Options options;
        core::PortfolioTable table;
        QVERIFY(core::PortfolioFile::read(portfolio(), table, options).ok());
        QStringList inFile;
        for (int i = 0; i < table.count; ++i) {
            inFile << table.records[static_cast<size_t>(i)].ticker;
        }
        inFile.sort();
        expected.sort();
        QCOMPARE(inFile, expected);
    }

    void heldLockRefusesTheChange_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("portfolio add") << QStringList{"portfolio", "add", "MSFT"};
        QTest::newRow("portfolio remove") << QStringList{"portfolio", "remove", "IBM"};
        QTest::newRow("options set") << QStringList{"options", "set", "pager.id", "77"};
    }
    void heldLockRefusesTheChange()
    {
        QFETCH(QStringList, args);
        const QByteArray before = readFile(portfolio());
        QLockFile lock(portfolio() + QStringLiteral(".lock"));
        QVERIFY(lock.tryLock(0));
        const CliRun r = cli(args);
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains(QStringLiteral("(PID %1").arg(QCoreApplication::applicationPid())), qPrintable(r.err));
        QVERIFY2(!r.out.contains(QLatin1String("Added")), qPrintable(r.out));
        QCOMPARE(readFile(portfolio()), before);
        // Reading needs no lock.
        QCOMPARE(cli({QStringLiteral("portfolio"), QStringLiteral("show")}).code, 0);
    }

    // Two processes running the schedule on one data folder would page twice for each
    // alarm: the second one says who holds the schedule and runs without it.
    void secondDaemonRunsWithoutTheSchedule()
    {
        // The schedule is on, on no weekday, so neither daemon ever starts an update.
        core::Options options;
        core::PortfolioTable table;
        options.schedule.enabled = true;
        options.schedule.days.fill(false);
        QVERIFY(core::PortfolioFile::write(portfolio(), table, options).ok());
        QProcess first;
        QProcess second;
        startCli(first, {QStringLiteral("run")});
        QByteArray seen;
        QTRY_VERIFY2_WITH_TIMEOUT((seen += first.readAllStandardOutput()).contains("Kestrova started on"),
                                  seen.constData(), 20000);
        startCli(second, {QStringLiteral("run")});
        QByteArray seen2;
        const QByteArray holder = "PID " + QByteArray::number(first.processId()) + ", kestrova-cli";
        QTRY_VERIFY2_WITH_TIMEOUT((seen2 += second.readAllStandardOutput()).contains(holder), seen2.constData(), 20000);
        QVERIFY(!seen.contains("runs without it"));
        for (QProcess* p : {&second, &first}) {
            ::kill(static_cast<pid_t>(p->processId()), SIGTERM);
            QVERIFY(p->waitForFinished(10000));
            QCOMPARE(p->exitCode(), 0);
        }
    }
};

QTEST_GUILESS_MAIN(TestCliSharing)
#include "test_cli_sharing.moc"
