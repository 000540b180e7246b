#include "../peers/CliRun.h"
#include "core/PortfolioFile.h"

#include "TestUtil.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

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

    CliRun cli(const QStringList& args, int timeoutMs = 30000)
    {
        return testing::runCli(
            *m_home,
            QStringList{QStringLiteral("--data-dir"), dataDir(), QStringLiteral("--portfolio"), portfolio()} + args,
            timeoutMs);
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
};

QTEST_GUILESS_MAIN(TestCliSharing)
#include "test_cli_sharing.moc"
