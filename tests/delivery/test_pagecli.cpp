#include "../peers/CliRun.h"
#include "TestUtil.h"
#include "core/ModemProfiles.h"
#include "core/Options.h"
#include "settings/SettingsStore.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>
#include <vector>

using namespace kestrova;

// kestrova-cli page against kestrova-cli modem-sim, both as real processes on the real
// clock, talking over the simulator's pty through the link the settings point at.
class TestPageCli : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void initTestCase()
    {
        m_cli = qEnvironmentVariable("KESTROVA_CLI");
        QVERIFY2(!m_cli.isEmpty() && QFile::exists(m_cli), "KESTROVA_CLI must name the built kestrova-cli");
    }

    void pageArrivesWhole_data()
    {
        QTest::addColumn<bool>("numeric");
        QTest::addColumn<QString>("scriptText");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("result");
        QTest::addColumn<QStringList>("simLines");

        QTest::newRow("two TAP pages") << false << "" << QStringLiteral("Buy IBM below 100.50 today") << 0
                                       << "Pager: Message Sent (2 Pages)"
                                       << QStringList{"CALL 5552000", "PAGE 7654321 Buy IBM below 100.50",
                                                      "PAGE 7654321 today"};
        QTest::newRow("numeric page with its commas")
            << true << "numeric 5552000" << QStringLiteral("4321*9") << 0 << "Digital Pager: Message 1 Sent"
            << QStringList{"NUMERIC 5552000,,4321*9 DIGITS ,,4321*9"};
        QTest::newRow("busy service") << false << "busy 5552000" << QStringLiteral("never arrives") << 1
                                      << "Pager: Busy" << QStringList{};
    }
    void pageArrivesWhole()
    {
        QFETCH(bool, numeric);
        QFETCH(QString, scriptText);
        QFETCH(QString, text);
        QFETCH(int, exitCode);
        QFETCH(QString, result);
        QFETCH(QStringList, simLines);

        QTemporaryDir tmp;
        QVERIFY(tmp.isValid());
        const QString link = tmp.filePath(QStringLiteral("modem"));
        QProcess sim;
        sim.setProcessChannelMode(QProcess::SeparateChannels);
        QVERIFY(startSimulator(sim, tmp, scriptText.toUtf8()));
        QVERIFY(QFileInfo(link).isSymLink());

        core::Options options;
        options.paging.maxLength = 20;
        options.paging.retries = 1;
        options.paging.numeric = numeric;
        options.paging.numericWait = 4;
        const QString portfolio = writePortfolio(tmp, options);
        QVERIFY(!portfolio.isEmpty());

        const QString configHome = tmp.filePath(QStringLiteral("config"));
        {
            settings::SettingsStore store(configHome + QStringLiteral("/Kestrova/Kestrova.ini"));
            store.save(QStringLiteral("Settings"), QStringLiteral("ModemDevice"), link);
            QVERIFY(store.sync());
        }

        const testing::CliRun run =
            testing::runCli(tmp,
                            {QStringLiteral("--data-dir"), tmp.filePath(QStringLiteral("data")),
                             QStringLiteral("--portfolio"), portfolio, QStringLiteral("page"), text},
                            90000);
        QVERIFY2(run.code == exitCode, qPrintable(run.out + run.err));
        QCOMPARE(run.out.trimmed(), result);

        sim.terminate();
        QVERIFY(sim.waitForFinished(10000));
        QCOMPARE(sim.exitCode(), 0);
        QStringList lines = QString::fromUtf8(sim.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        QVERIFY(!lines.isEmpty());
        QVERIFY(lines.takeLast().startsWith(QStringLiteral("modem-sim: ")));
        QCOMPARE(lines, simLines);
        QVERIFY(!QFileInfo::exists(link));
    }

    void interruptCancelsAndHangsUp()
    {
        QTemporaryDir tmp;
        QVERIFY(tmp.isValid());
        const QString link = tmp.filePath(QStringLiteral("modem"));
        QProcess sim;
        // A terminal that never prompts keeps the sender in its logon waits.
        QVERIFY(startSimulator(sim, tmp, "fault never-id"));
        core::Options options;
        options.paging.retries = 3;
        const QString portfolio = writePortfolio(tmp, options);
        QVERIFY(!portfolio.isEmpty());

        QProcess page;
        page.setProcessEnvironment(testing::cliEnvironment(tmp));
        page.start(m_cli,
                   {QStringLiteral("--data-dir"), tmp.filePath(QStringLiteral("data")), QStringLiteral("--portfolio"),
                    portfolio, QStringLiteral("page"), QStringLiteral("--device"), link, QStringLiteral("stop me")});
        QVERIFY(page.waitForStarted());
        // Interrupt once the call is up.
        QVERIFY(sim.waitForReadyRead(30000));
        QCOMPARE(sim.readLine().trimmed(), QByteArray("CALL 5552000"));
        QTest::qWait(300);
        ::kill(static_cast<pid_t>(page.processId()), SIGINT);
        QVERIFY(page.waitForFinished(30000));
        QCOMPARE(page.exitStatus(), QProcess::NormalExit);
        QCOMPARE(page.exitCode(), 128 + SIGINT); // as a shell reads a command Ctrl-C stopped
        QCOMPARE(QString::fromUtf8(page.readAllStandardOutput()).trimmed(), QStringLiteral("Pager: User Cancelled"));

        sim.terminate();
        QVERIFY(sim.waitForFinished(10000));
        // No retry after a cancel: the simulator saw one call only.
        QVERIFY(QString::fromUtf8(sim.readAllStandardOutput()).contains(QStringLiteral("0 pages, 1 calls")));
    }

    // Three pages sent at once find the modem taken by the first: the other two wait for
    // the line and go out after it, one call each, instead of failing at once.
    void pagesAtOnceTakeTurns()
    {
        QTemporaryDir tmp;
        QVERIFY(tmp.isValid());
        const QString link = tmp.filePath(QStringLiteral("modem"));
        QProcess sim;
        QVERIFY(startSimulator(sim, tmp, ""));
        core::Options options;
        options.paging.retries = 1;
        const QString portfolio = writePortfolio(tmp, options);
        QVERIFY(!portfolio.isEmpty());
        const QStringList texts{QStringLiteral("first page"), QStringLiteral("second page"),
                                QStringLiteral("third page")};
        std::vector<std::unique_ptr<QProcess>> pages;
        for (const QString& text : texts) {
            auto page = std::make_unique<QProcess>();
            page->setProcessEnvironment(testing::cliEnvironment(tmp));
            page->start(m_cli, {QStringLiteral("--data-dir"), tmp.filePath(QStringLiteral("data")),
                                QStringLiteral("--portfolio"), portfolio, QStringLiteral("page"),
                                QStringLiteral("--device"), link, text});
            QVERIFY(page->waitForStarted());
            pages.push_back(std::move(page));
        }
        for (auto& page : pages) {
            QVERIFY(page->waitForFinished(150000));
            const QString out = QString::fromUtf8(page->readAllStandardOutput());
            QVERIFY2(page->exitCode() == 0, qPrintable(out + page->readAllStandardError()));
            QCOMPARE(out.trimmed(), QStringLiteral("Pager: Message Sent"));
        }
        sim.terminate();
        QVERIFY(sim.waitForFinished(10000));
        const QString received = QString::fromUtf8(sim.readAllStandardOutput());
        for (const QString& text : texts) {
            QVERIFY2(received.contains(QStringLiteral("PAGE 7654321 ") + text), qPrintable(received));
        }
        QVERIFY2(received.contains(QStringLiteral("3 pages, 3 calls")), qPrintable(received));
        const QString log = QString::fromUtf8(testing::readFile(tmp.filePath(QStringLiteral("data/activity.txt"))));
        QVERIFY2(log.contains(QStringLiteral("The modem line is in use by another page")), qPrintable(log));
    }

private:
    // Starts kestrova-cli modem-sim on a pty linked at dir/modem, with the given script lines.
    bool startSimulator(QProcess& sim, const QTemporaryDir& dir, const QByteArray& scriptText)
    {
        const QString scriptPath = dir.filePath(QStringLiteral("modem.script"));
        QFile f(scriptPath);
        if (!f.open(QIODevice::WriteOnly) || f.write("connect-delay-ms 30\nguard-ms 100\n" + scriptText + '\n') < 0) {
            return false;
        }
        f.close();
        sim.start(m_cli, {QStringLiteral("modem-sim"), QStringLiteral("--link"), dir.filePath(QStringLiteral("modem")),
                          QStringLiteral("--script"), scriptPath});
        return sim.waitForStarted() && sim.waitForReadyRead(10000) &&
               sim.readLine().startsWith("modem-sim: listening on /dev/pts/");
    }

    // The paging settings every page test shares, in a portfolio file of their own.
    static QString writePortfolio(const QTemporaryDir& dir, core::Options options)
    {
        core::setBuiltInModemProfiles(options.modem);
        options.paging.pagerId = QStringLiteral("7654321");
        options.paging.phone = QStringLiteral("5552000");
        return testing::writeOptionsFile(dir, options, QStringLiteral("page.pgr"));
    }

    QString m_cli;
};

QTEST_GUILESS_MAIN(TestPageCli)
#include "test_pagecli.moc"
