#include "../peers/CliRun.h"
#include "core/PortfolioFile.h"

#include "TestUtil.h"

#include <QDeadlineTimer>
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

    // A setup that never leaves the machine: no members, a direct line, nothing scheduled.
    void writeQuietPortfolio(bool scheduleOn = false)
    {
        core::Options options;
        core::PortfolioTable table;
        options.connection.type = 1;
        options.quotes.marketSummary = false;
        options.schedule.enabled = scheduleOn;
        options.schedule.days.fill(false);
        QVERIFY(core::PortfolioFile::write(portfolio(), table, options).ok());
    }

    // Reads a process's output until it shows text (or the time runs out).
    static bool waitForOutput(QProcess& p, QByteArray& seen, const QByteArray& text, int timeoutMs = 20000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!seen.contains(text) && !deadline.hasExpired() && p.state() != QProcess::NotRunning) {
            p.waitForReadyRead(100);
            seen += p.readAllStandardOutput();
        }
        seen += p.readAllStandardOutput();
        return seen.contains(text);
    }

    static void stop(QProcess& p)
    {
        ::kill(static_cast<pid_t>(p.processId()), SIGTERM);
        if (!p.waitForFinished(10000)) {
            p.kill();
            p.waitForFinished(3000);
        }
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

    // The log belongs to the first program on a data folder: a program started beside the
    // daemon adds its own start line to the daemon's log instead of turning it over.
    void programBesideTheDaemonJoinsItsLog_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("update") << "update";
        QTest::newRow("a second daemon") << "run";
        QTest::newRow("the desktop") << "desktop";
    }
    void programBesideTheDaemonJoinsItsLog()
    {
        QFETCH(QString, program);
        const QString desktop = qEnvironmentVariable("KESTROVA_DESKTOP");
        if (program == QLatin1String("desktop") && !QFileInfo(desktop).isExecutable()) {
            QSKIP("KESTROVA_DESKTOP does not name the desktop program");
        }
        writeQuietPortfolio();
        const QByteArray olderRun = "an older run\r\n";
        writeFile(oldLogPath(), olderRun);
        writeFile(logPath(), "the run before\r\n");
        QProcess daemon;
        startCli(daemon, {QStringLiteral("run")});
        QByteArray seen;
        QVERIFY2(waitForOutput(daemon, seen, "Kestrova started on"), seen.constData());
        // The status line reaches the console a moment before the log.
        QTRY_VERIFY(readFile(logPath()).startsWith("Kestrova started on"));
        const QByteArray daemonLog = readFile(logPath());

        QProcess other;
        if (program == QLatin1String("update")) {
            const CliRun r = cli({QStringLiteral("update")});
            QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
        } else {
            if (program == QLatin1String("run")) {
                startCli(other, {QStringLiteral("run")});
            } else {
                other.setProcessEnvironment(testing::cliEnvironment(*m_home));
                other.start(desktop, {QStringLiteral("--data-dir"), dataDir(), portfolio()});
            }
            QTRY_VERIFY_WITH_TIMEOUT(readFile(logPath()).count("Kestrova started on") == 2, 30000);
            stop(other);
        }
        const QByteArray log = readFile(logPath());
        QVERIFY2(log.startsWith(daemonLog), log.constData());
        QCOMPARE(log.count("Kestrova started on"), 2);
        QCOMPARE(readFile(oldLogPath()), QByteArray("the run before\r\n"));
        stop(daemon);
        QCOMPARE(daemon.exitCode(), 0);
        // Once the folder is free again, the next program starts a log of its own.
        QCOMPARE(cli({QStringLiteral("update")}).code, 0);
        QVERIFY(readFile(oldLogPath()).startsWith(daemonLog));
    }

    // A lock whose owner is gone, or that names no owner and is older than half a minute,
    // is taken over and the log says so; a lock just made is respected, and a schedule held
    // by a process that has not named itself yet is still said to be held.
    void staleLocks_data()
    {
        QTest::addColumn<QString>("lock");     // the portfolio file's or the schedule's
        QTest::addColumn<QString>("owner");    // "empty" or "dead"
        QTest::addColumn<int>("ageSeconds");   // how old the lock file is
        QTest::addColumn<QString>("expected"); // what the log says
        QTest::addColumn<bool>("takenOver");
        QTest::newRow("portfolio, empty, two hours old") << "portfolio"
                                                         << "empty" << 7200 << "Took over the lock" << true;
        QTest::newRow("portfolio, owner gone") << "portfolio"
                                               << "dead" << 0 << "Took over the lock" << true;
        QTest::newRow("portfolio, empty, just made")
            << "portfolio"
            << "empty" << 0 << "is in use by another process (not named in" << false;
        QTest::newRow("schedule, empty, two hours old") << "schedule"
                                                        << "empty" << 7200 << "Took over the lock" << true;
        QTest::newRow("schedule, owner gone") << "schedule"
                                              << "dead" << 0 << "Took over the lock" << true;
        QTest::newRow("schedule, empty, just made")
            << "schedule"
            << "empty" << 0 << "The schedule runs in another process (not named in" << false;
    }
    void staleLocks()
    {
        QFETCH(QString, lock);
        QFETCH(QString, owner);
        QFETCH(int, ageSeconds);
        QFETCH(QString, expected);
        QFETCH(bool, takenOver);
        const bool schedule = lock == QLatin1String("schedule");
        writeQuietPortfolio(schedule);
        const QString lockPath =
            schedule ? dataDir() + QStringLiteral("/schedule.lock") : portfolio() + QStringLiteral(".lock");
        if (owner == QLatin1String("dead")) {
            // What a process that died holding the lock leaves: a lock file as QLockFile
            // writes it, naming a process that has ended.
            QByteArray contents;
            {
                QLockFile mine(lockPath);
                QVERIFY(mine.tryLock(0));
                contents = readFile(lockPath);
            }
            QProcess ended;
            ended.start(QStringLiteral("true"), QStringList());
            QVERIFY(ended.waitForStarted());
            const qint64 deadPid = ended.processId();
            QVERIFY(ended.waitForFinished());
            const QByteArray ownPid = QByteArray::number(QCoreApplication::applicationPid());
            QVERIFY(contents.startsWith(QByteArray(ownPid + '\n')));
            writeFile(lockPath, QByteArray::number(deadPid) + contents.mid(ownPid.size()));
        } else {
            writeFile(lockPath, QByteArray());
        }
        QFile file(lockPath);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(-ageSeconds), QFileDevice::FileModificationTime));
        file.close();

        QString said;
        if (schedule) {
            QProcess daemon;
            startCli(daemon, {QStringLiteral("run")});
            QByteArray seen;
            waitForOutput(daemon, seen, expected.toUtf8());
            stop(daemon);
            said = QString::fromUtf8(seen);
            QCOMPARE(said.contains(QLatin1String("The schedule runs in another process")), !takenOver);
        } else {
            const CliRun r = cli({QStringLiteral("portfolio"), QStringLiteral("add"), QStringLiteral("MSFT")});
            QCOMPARE(r.code, takenOver ? 0 : 1);
            said = r.err + QString::fromUtf8(readFile(logPath()));
        }
        QVERIFY2(said.contains(expected), qPrintable(said));
        if (takenOver) {
            QVERIFY2(said.contains(lockPath), qPrintable(said));
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
