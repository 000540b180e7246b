#include "../peers/CliRun.h"
#include "../peers/PeerProcess.h"
#include "core/ModemProfiles.h"
#include "core/PortfolioFile.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "sim/DemoMarket.h"
#include "sim/ModemSimulator.h"
#include "support/Clock.h"

#include "TestUtil.h"

#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/stat.h>

using namespace kestrova;

namespace {

// What a running process has set up that only a transfer (libcurl), TLS (libssl, Qt's TLS
// back-end) or dial-up (the D-Bus connection thread) needs, each named once; empty when it
// has none of them.
QStringList onDemandParts(qint64 pid)
{
    QStringList found;
    QFile maps(QStringLiteral("/proc/%1/maps").arg(pid));
    if (maps.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : maps.readAll().split('\n')) {
            const QString path = QString::fromLatin1(line.mid(line.lastIndexOf(' ') + 1));
            const bool onDemand = path.contains(QLatin1String("/plugins/tls/")) ||
                                  path.contains(QLatin1String("/libcurl")) || path.contains(QLatin1String("/libssl"));
            if (onDemand && !found.contains(path)) {
                found << path;
            }
        }
    }
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task + QStringLiteral("/comm")));
        if (comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == "QDBusConnection") {
            found << QStringLiteral("thread QDBusConnection");
        }
    }
    return found;
}

} // namespace

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
        // A daemon that has not fetched, checked mail nor dialled yet has loaded none of what
        // those need.
        const QStringList onDemand = onDemandParts(p.processId());
        QVERIFY2(onDemand.isEmpty(), qPrintable(onDemand.join(QStringLiteral(", "))));
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

    // A signal cancels whatever is in flight: a page, a mailbox or a mail server that never
    // answers (30 and 60 s time-outs) or a modem call that never connects. The program drops
    // the transfer, hangs the modem up, logs the cancel and ends instead of waiting.
    void signalCancelsWorkInFlight_data()
    {
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<int>("signal");
        QTest::addColumn<QString>("peer");
        QTest::addColumn<int>("exitCode");
        const QStringList update{"update"};
        // A one-shot command stopped by a signal exits 128 + its number, as shells and
        // service managers expect (130 for SIGINT, 143 for SIGTERM). The daemon is stopped
        // that way on purpose: it ends normally.
        const int byInt = 128 + SIGINT;
        const int byTerm = 128 + SIGTERM;
        // clang-format off
        QTest::newRow("update, page never answers, SIGTERM") << update << int(SIGTERM) << "http" << byTerm;
        QTest::newRow("update, page never answers, SIGINT") << update << int(SIGINT) << "http" << byInt;
        QTest::newRow("update, call never connects, SIGTERM") << update << int(SIGTERM) << "modem" << byTerm;
        QTest::newRow("update, mailbox never answers, SIGINT") << update << int(SIGINT) << "pop" << byInt;
        QTest::newRow("quotes, page never answers, SIGTERM") << QStringList{"quotes"} << int(SIGTERM) << "http" << byTerm;
        QTest::newRow("quotes, page never answers, SIGINT") << QStringList{"quotes"} << int(SIGINT) << "http" << byInt;
        QTest::newRow("check-mail, mailbox never answers, SIGTERM") << QStringList{"check-mail"} << int(SIGTERM) << "pop" << byTerm;
        QTest::newRow("page, mail server never answers, SIGINT") << QStringList{"page", "hello"} << int(SIGINT) << "smtp" << byInt;
        // The daemon's first scheduled update comes with the first minute's tick.
        QTest::newRow("run, page never answers, SIGTERM") << QStringList{"run"} << int(SIGTERM) << "http" << 0;
        // clang-format on
    }
    void signalCancelsWorkInFlight()
    {
        QFETCH(QStringList, command);
        QFETCH(int, signal);
        QFETCH(QString, peer);
        QFETCH(int, exitCode);
        const bool daemon = command.first() == QLatin1String("run");
        if (daemon && QDate::currentDate().dayOfWeek() > 5) {
            QSKIP("the schedule runs updates on weekdays only");
        }
        QTemporaryDir dir;
        const QString data = dir.filePath(QStringLiteral("data"));
        QDir().mkpath(data);
        // Listens but never answers: the connection is accepted and left waiting.
        QTcpServer silentPeer;
        QVERIFY(silentPeer.listen(QHostAddress::LocalHost));
        const quint16 silentPort = silentPeer.serverPort();
        QVERIFY(news::installServerFiles(data, qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data"));
        QVERIFY(news::retargetDemoMarket(data, peer == QLatin1String("http") ? silentPort : 9));
        sim::ModemScript script;
        script.silent = {QStringLiteral("5551234")};
        sim::ModemSimulator modem(script);
        QVERIFY(modem.isValid());

        core::PortfolioTable table;
        core::Options o;
        core::setBuiltInModemProfiles(o.modem);
        o.connection.type = 1;
        o.quotes.server = quotes::BuiltInServers::kDemoMarket;
        o.quotes.marketSummary = false;
        // Loopback only: the shipped failure order would go on to sources on the Internet.
        o.sources.order = QStringLiteral("servers.dat");
        o.paging.enabled = peer == QLatin1String("modem");
        o.paging.phone = QStringLiteral("5551234");
        o.paging.pagerId = QStringLiteral("1234567");
        o.paging.retries = 1;
        if (peer == QLatin1String("http")) {
            table.count = 1;
            table.records[0].ticker = QStringLiteral("IBM");
        }
        if (peer == QLatin1String("pop")) {
            o.mail.server = QStringLiteral("127.0.0.1");
            o.mail.port = static_cast<qint16>(silentPort);
            o.mail.user = QStringLiteral("investor");
            o.mail.password = QStringLiteral("secret");
        }
        if (peer == QLatin1String("smtp")) {
            o.smtp.enabled = true;
            o.smtp.hostAddress = QStringLiteral("127.0.0.1");
            o.smtp.port = static_cast<qint16>(silentPort);
            o.smtp.from = QStringLiteral("watch@example.com");
            o.smtp.recipient = QStringLiteral("pager@example.com");
        }
        if (daemon) {
            o.schedule.enabled = true;
            o.schedule.interval = true;
            o.schedule.startTime = QStringLiteral("12:00 am");
            o.schedule.stopTime = QStringLiteral("11:59 pm");
        }
        const QString pgr = dir.filePath(QStringLiteral("watch.pgr"));
        QVERIFY(core::PortfolioFile::write(pgr, table, o).ok());
        const QStringList globals{QStringLiteral("--data-dir"), data, QStringLiteral("--portfolio"), pgr};
        QCOMPARE(testing::runCli(dir, globals + QStringList{"options", "set", "modem.device", modem.slavePath()}).code,
                 0);

        QProcess p;
        p.setProcessEnvironment(testing::cliEnvironment(dir));
        p.start(qEnvironmentVariable("KESTROVA_CLI"), globals + command);
        QVERIFY(p.waitForStarted());
        std::unique_ptr<QTcpSocket> held;
        if (peer == QLatin1String("modem")) {
            QTRY_VERIFY_WITH_TIMEOUT(!modem.commands.filter(QStringLiteral("ATD")).isEmpty(), 20000);
        } else {
            QVERIFY(silentPeer.waitForNewConnection(daemon ? 90000 : 20000));
            held.reset(silentPeer.nextPendingConnection());
        }
        ::kill(static_cast<pid_t>(p.processId()), signal);
        // Far below every time-out in play; the event loop runs meanwhile, so the simulated
        // modem sees the hang-up.
        QTRY_VERIFY_WITH_TIMEOUT(p.state() == QProcess::NotRunning, 10000);
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), exitCode);
        const QByteArray log = testing::readFile(data + QStringLiteral("/activity.txt"));
        QVERIFY2(log.contains("Operation Cancelled"), log.constData());
        if (peer == QLatin1String("modem")) {
            QVERIFY(modem.commands.filter(QStringLiteral("ATH0")).size() > 0);
            QVERIFY2(log.contains("Pager: User Cancelled"), log.constData());
        }
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
            // Under a umask that would leave new files readable by everyone.
            const testing::CliRun r = testing::runCli(dir, QStringList{QStringLiteral("--data-dir"), data} + words,
                                                      30000, "a-password\n", [] { ::umask(022); });
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
        // The data folder the program made, and every file in it, are the user's alone.
        QCOMPARE(testing::fileMode(data), QStringLiteral("700"));
        QCOMPARE(testing::fileMode(data + QStringLiteral("/DEFAULT.PGR")), QStringLiteral("600"));
        QCOMPARE(testing::fileMode(data + QStringLiteral("/servers.dat")), QStringLiteral("600"));
        QCOMPARE(testing::filesNotInMode(data, QStringLiteral("600")), QStringList());
    }

    // The daemon holds no edits of its own: a member added and a recipient changed by
    // one-shot commands beside it are what its next scheduled update fetches and pages.
    void daemonFollowsChangesOnDisk()
    {
        if (QDate::currentDate().dayOfWeek() > 5) {
            QSKIP("the schedule runs updates on weekdays only");
        }
        if (QProcess::execute(testing::systemPython(), {QStringLiteral("-c"), QStringLiteral("import aiosmtpd")}) !=
            0) {
            QSKIP("aiosmtpd is not installed (scripts/install-deps.sh --test installs it)");
        }
        QTemporaryDir dir;
        const QString data = dir.filePath(QStringLiteral("data"));
        const QString mailDir = dir.filePath(QStringLiteral("mail"));
        QDir().mkpath(data);
        QDir().mkpath(mailDir);
        support::SystemClock clock;
        sim::DemoMarketThread market(clock);
        QVERIFY(market.start());
        QVERIFY(news::installServerFiles(data, qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data"));
        QVERIFY(news::retargetDemoMarket(data, market.port()));
        const quint16 smtpPort = testing::freePort();
        testing::PeerProcess smtp;
        QVERIFY2(smtp.start(testing::systemPython(),
                            {qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/tests/peers/smtp_peer.py"),
                             QString::number(smtpPort), mailDir, QStringLiteral("accept")},
                            QStringLiteral("READY")),
                 smtp.log().constData());

        core::PortfolioTable table;
        table.count = 1;
        table.records[0].ticker = QStringLiteral("IBM");
        table.records[0].toPager = 1;
        core::Options o;
        o.connection.type = 1;
        o.quotes.server = quotes::BuiltInServers::kDemoMarket;
        o.quotes.marketSummary = false;
        o.sources.order = QStringLiteral("servers.dat");
        o.paging.enabled = true;
        o.smtp.enabled = true;
        o.smtp.hostAddress = QStringLiteral("127.0.0.1");
        o.smtp.port = static_cast<qint16>(smtpPort);
        o.smtp.from = QStringLiteral("watch@example.test");
        o.smtp.recipient = QStringLiteral("old-pager@example.test");
        o.smtp.maxLength = 500;
        o.schedule.enabled = true;
        o.schedule.interval = true;
        o.schedule.intervalMinutes = 1;
        o.schedule.startTime = QStringLiteral("12:00 am");
        o.schedule.stopTime = QStringLiteral("11:59 pm");
        const QString pgr = dir.filePath(QStringLiteral("watch.pgr"));
        QVERIFY(core::PortfolioFile::write(pgr, table, o).ok());
        const QStringList globals{QStringLiteral("--data-dir"), data, QStringLiteral("--portfolio"), pgr};

        QProcess daemon;
        daemon.setProcessEnvironment(testing::cliEnvironment(dir));
        daemon.start(qEnvironmentVariable("KESTROVA_CLI"), globals + QStringList{QStringLiteral("run")});
        QByteArray seen;
        QTRY_VERIFY2_WITH_TIMEOUT((seen += daemon.readAllStandardOutput()).contains("Kestrova started on"),
                                  seen.constData(), 20000);
        // Before the first minute's tick, which runs the first update.
        for (const QStringList& change : {QStringList{"portfolio", "add", "MSFT", "--pager"},
                                          QStringList{"options", "set", "smtp.recipient", "new-pager@example.test"}}) {
            const testing::CliRun r = testing::runCli(dir, globals + change);
            QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
        }
        const QString firstMail = mailDir + QStringLiteral("/mail-1.eml");
        QTRY_VERIFY2_WITH_TIMEOUT(QFileInfo::exists(firstMail),
                                  (seen += daemon.readAllStandardOutput() + daemon.readAllStandardError()).constData(),
                                  100000);
        ::kill(static_cast<pid_t>(daemon.processId()), SIGTERM);
        QVERIFY(daemon.waitForFinished(10000));
        const QString mail = QString::fromUtf8(testing::readFile(firstMail));
        QVERIFY2(mail.contains(QStringLiteral("\r\nTo: new-pager@example.test\r\n")), qPrintable(mail));
        QVERIFY2(mail.contains(QStringLiteral("MSFT")) && mail.contains(QStringLiteral("IBM")), qPrintable(mail));
        QVERIFY(testing::readFile(data + QStringLiteral("/activity.txt")).contains("was changed by another program"));
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
