#include "../peers/CliRun.h"
#include "core/PortfolioFile.h"

#include "TestUtil.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace kestrova;

// The daemon and the demo, run as the real kestrova-cli binary.
class TestCliApp : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void runStopsOnSignal_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<QString>("saveOnExit");
        QTest::newRow("SIGTERM, no save") << int(SIGTERM) << "no";
        QTest::newRow("SIGINT, save") << int(SIGINT) << "yes";
    }
    void runStopsOnSignal()
    {
        QFETCH(int, signal);
        QFETCH(QString, saveOnExit);
        QTemporaryDir dir;
        const QString pgr = dir.filePath(QStringLiteral("watch.pgr"));
        QVERIFY(QFile::copy(testing::dataPath(QStringLiteral("../../data/demo.pgr")), pgr));
        QFile::setPermissions(pgr, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const QByteArray before = testing::readFile(pgr);

        QProcess p;
        p.setProcessEnvironment(testing::cliEnvironment(dir));
        p.start(qEnvironmentVariable("KESTROVA_CLI"),
                {QStringLiteral("--data-dir"), dir.filePath(QStringLiteral("data")), QStringLiteral("--portfolio"), pgr,
                 QStringLiteral("run"), QStringLiteral("--save-on-exit"), saveOnExit});
        QVERIFY(p.waitForStarted());
        // Wait for the start-up line, so the signal lands in the minute cycle's idle wait.
        QByteArray seen;
        QTRY_VERIFY2_WITH_TIMEOUT((seen += p.readAllStandardOutput()).contains("Kestrova started on"),
                                  QByteArray(seen + p.readAllStandardError()).constData(), 10000);
        QElapsedTimer t;
        t.start();
        ::kill(static_cast<pid_t>(p.processId()), signal);
        QVERIFY(p.waitForFinished(5000));
        // Generous against a loaded machine; an idle daemon answers at once.
        QVERIFY2(t.elapsed() < 3000, qPrintable(QString::number(t.elapsed())));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        core::PortfolioTable table;
        core::Options options;
        QVERIFY(core::PortfolioFile::read(pgr, table, options).ok());
        QCOMPARE(table.count, qint16(12));
        // Nothing was changed, so nothing is asked and the file stays as it was.
        QCOMPARE(testing::readFile(pgr), before);
        QVERIFY(testing::readFile(dir.filePath(QStringLiteral("data/activity.txt"))).contains("Kestrova stopped"));
    }

    void runRefusesBadSaveAnswer()
    {
        QTemporaryDir dir;
        const testing::CliRun run = testing::runCli(dir,
                                                    {QStringLiteral("--data-dir"), dir.path(), QStringLiteral("run"),
                                                     QStringLiteral("--save-on-exit"), QStringLiteral("maybe")},
                                                    10000);
        QCOMPARE(run.code, 2);
    }

    void runWithoutPortfolioEnds()
    {
        QTemporaryDir dir;
        const QString data = dir.filePath(QStringLiteral("data"));
        const testing::CliRun run =
            testing::runCli(dir, {QStringLiteral("--data-dir"), data, QStringLiteral("run")}, 20000);
        QCOMPARE(run.code, 1);
        QVERIFY2(run.err.contains(QStringLiteral("File ") + data + QStringLiteral("/DEFAULT.PGR does not exist.")),
                 qPrintable(run.err));
    }

    // The README's "Your own portfolio" commands, run as written in a fresh data folder.
    // update, run and page need the Internet or a pager; every other command must work.
    void readmeWayIn()
    {
        const QString readme =
            QString::fromUtf8(testing::readFile(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/README.md"));
        const qsizetype from = readme.indexOf(QLatin1String("\n## Your own portfolio\n"));
        QVERIFY2(from >= 0, "README.md has no section \"Your own portfolio\"");
        const QString section = readme.mid(from, readme.indexOf(QLatin1String("\n## "), from + 5) - from);
        QTemporaryDir dir;
        const QString data = dir.filePath(QStringLiteral("data"));
        int run = 0;
        bool inBlock = false;
        for (const QString& line : section.split(u'\n')) {
            if (line.startsWith(QLatin1String("```"))) {
                inBlock = !inBlock;
                continue;
            }
            if (!inBlock || !line.startsWith(QLatin1String("kestrova-cli "))) {
                continue;
            }
            // Words, with "double quoted" ones kept whole, up to a # comment.
            QStringList words;
            static const QRegularExpression word(QStringLiteral("\"([^\"]*)\"|(#.*)|(\\S+)"));
            for (auto it = word.globalMatch(line.mid(13)); it.hasNext();) {
                const auto m = it.next();
                if (m.hasCaptured(2)) {
                    break;
                }
                words << (m.hasCaptured(1) ? m.captured(1) : m.captured(3));
            }
            if (QStringList{"update", "run", "page"}.contains(words.first())) {
                continue;
            }
            const testing::CliRun r =
                testing::runCli(dir, QStringList{QStringLiteral("--data-dir"), data} + words, 30000, "a-password\n");
            QVERIFY2(r.code == 0, qPrintable(line + u'\n' + r.err));
            ++run;
        }
        QVERIFY(run >= 10);
        core::PortfolioTable table;
        core::Options options;
        QVERIFY(core::PortfolioFile::read(data + QStringLiteral("/DEFAULT.PGR"), table, options).ok());
        QVERIFY(table.count >= 2);
        QVERIFY(options.paging.enabled);
        QVERIFY(options.schedule.enabled);
        QCOMPARE(options.smtp.password, QStringLiteral("a-password"));
    }

    void demoPagesThroughTheSimulatedModem()
    {
        QTemporaryDir dir;
        const testing::CliRun run = testing::runCli(dir, {QStringLiteral("demo")}, 120000);
        const QString& out = run.out;
        QVERIFY2(run.code == 0, qPrintable(out + run.err));
        QVERIFY(out.contains("Pager: Message Sent"));
        const qsizetype pages = out.indexOf("Pages received by the paging terminal:");
        QVERIFY(pages > 0);
        QVERIFY(out.indexOf("[1234567] ", pages) > pages);
        QVERIFY(out.contains("Alarms that fired:"));
        QVERIFY(!out.contains("  (none)"));
    }
};

QTEST_GUILESS_MAIN(TestCliApp)
#include "test_cli_app.moc"
