// The fault matrix: kestrova-cli against real loopback peers that fail in one way each.
// Every failure must end the command (no crash, no hang past its time-out) with one line on
// the error output naming what failed and why, in the server's own words where it has some.
#include "CliRun.h"
#include "DovecotPeer.h"
#include "PeerProcess.h"
#include "TestUtil.h"

#include "core/Options.h"
#include "core/PortfolioFile.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace kestrova;
using kestrova::testing::PeerProcess;

namespace {
const QString kUser = QStringLiteral("watcher");
// Made up for this test; it must never show up in the output or the log.
const QString kPassword = QStringLiteral("Fault-Pass-8086");
// A label longer than 63 characters fails in the resolver itself: the look-up fails without
// a query leaving the machine.
const QString kNowhere = QString(64, u'x') + QStringLiteral(".example.test");
} // namespace

class TestCliFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(qEnvironmentVariable("KESTROVA_CLI")), "KESTROVA_CLI must name the built kestrova-cli");
    }

    void failureIsNamed_data()
    {
        QTest::addColumn<QString>("peer");  // what answers on the loopback port
        QTest::addColumn<QString>("route"); // http, pop or smtp: which options point at it
        QTest::addColumn<QStringList>("command");
        // What the one error line says: {port} is the peer's port, {url} a page on it, {host}
        // the page's host.
        QTest::addColumn<QString>("line");
        const QStringList quotes{QStringLiteral("quotes")};
        const QStringList update{QStringLiteral("update")};
        const QStringList check{QStringLiteral("check-mail")};
        const QStringList download{QStringLiteral("check-mail"), QStringLiteral("--download")};
        const QStringList page{QStringLiteral("page"), QStringLiteral("Sell IBM")};
        const QString fetch = QStringLiteral("kestrova-cli: Could not fetch {url}: ");
        const QString pop = QStringLiteral("kestrova-cli: POP3 server ");
        const QString smtp = QStringLiteral("kestrova-cli: SMTP server 127.0.0.1:{port} ");
        // clang-format off
        QTest::newRow("HTTP refused") << "nothing" << "http" << quotes << fetch + "refused";
        QTest::newRow("HTTP reset") << "http:reset" << "http" << quotes << fetch + "reset";
        QTest::newRow("HTTP reset, update") << "http:reset" << "http" << update << fetch + "reset";
        QTest::newRow("host does not resolve, update") << "unresolvable" << "http" << update << fetch + "could not resolve {host}";
        QTest::newRow("HTTP 500") << "http:500" << "http" << quotes << fetch + "HTTP 500";
        QTest::newRow("HTTP empty") << "http:empty" << "http" << quotes << fetch + "empty answer (the server closed the connection without a reply)";
        QTest::newRow("HTTP hang") << "http:hang" << "http" << quotes << fetch + "timed out after 30 s";
        QTest::newRow("HTTP one byte a second") << "http:slow" << "http" << quotes << fetch + "timed out after 30 s";
        QTest::newRow("HTTP oversized") << "http:huge" << "http" << quotes << fetch + "page too large: the answer is larger than 4 MB";
        QTest::newRow("HTTP 500, update") << "http:500" << "http" << update << fetch + "HTTP 500";
        QTest::newRow("POP3 refused") << "nothing" << "pop" << check << pop + "127.0.0.1:{port}: connection refused";
        QTest::newRow("POP3 bad password") << "dovecot" << "pop" << check << pop + "rejected the password: -ERR";
        QTest::newRow("POP3 dropped mid-TOP") << "pop:hangup" << "pop" << download << pop + "127.0.0.1:{port}: the connection was closed or reset during TOP 1";
        QTest::newRow("SMTP refused") << "nothing" << "smtp" << page << "kestrova-cli: could not connect to SMTP server 127.0.0.1:{port}: connection refused";
        QTest::newRow("SMTP 5xx") << "smtp:refuse" << "smtp" << page << smtp + "refused the mail: 550 Mailbox unavailable";
        // Taken the next round, but one failed try makes the whole page count as failed.
        QTest::newRow("SMTP 4xx then success") << "smtp:defer-first" << "smtp" << page << smtp + "refused the mail: 451 Greylisted, try again later";
        QTest::newRow("SMTP TLS handshake failure") << "smtp:tls" << "smtp" << page << "kestrova-cli: TLS handshake with SMTP server 127.0.0.1:{port} failed: SSL certificate problem";
        QTest::newRow("SMTP dropped mid-DATA") << "smtp:drop-data" << "smtp" << page << smtp + "closed or reset the connection while the mail was sent";
        // clang-format on
    }
    void failureIsNamed()
    {
        QFETCH(QString, peer);
        QFETCH(QString, route);
        QFETCH(QStringList, command);
        QFETCH(QString, line);
        QTemporaryDir tmp;
        PeerProcess process;
        std::unique_ptr<testing::Dovecot> dovecot;
        quint16 port = testing::freePort();
        const QString kind = peer.section(u':', 0, 0);
        const QString mode = peer.section(u':', 1);
        if (kind == QLatin1String("dovecot")) {
            if (!QFileInfo(testing::Dovecot::program()).isExecutable()) {
                QSKIP("dovecot-pop3d is not installed (scripts/install-deps.sh --test installs it)");
            }
            dovecot = std::make_unique<testing::Dovecot>(kUser, QStringLiteral("Another-Pass-1"),
                                                         QList<testing::MailMessage>{});
            QVERIFY(dovecot->start());
            port = dovecot->port;
        } else if (kind == QLatin1String("http") || kind == QLatin1String("pop")) {
            const QString script = kind == QLatin1String("http")
                                       ? QStringLiteral(KESTROVA_PEERS_DIR "/http_fault_peer.py")
                                       : QStringLiteral(KESTROVA_PEERS_DIR "/pop_peer.py");
            QVERIFY2(
                process.start(testing::systemPython(), {script, QString::number(port), mode}, QStringLiteral("READY")),
                process.log().constData());
        } else if (kind == QLatin1String("smtp")) {
            QStringList args{QStringLiteral(KESTROVA_PEERS_DIR "/smtp_peer.py"), QString::number(port),
                             tmp.filePath(QString()), mode == QLatin1String("tls") ? QStringLiteral("accept") : mode};
            if (mode == QLatin1String("tls")) {
                // A certificate the program has no reason to trust: the hand-shake fails.
                const QString cert = tmp.filePath(QStringLiteral("cert.pem"));
                const QString key = tmp.filePath(QStringLiteral("key.pem"));
                QVERIFY(testing::makeLoopbackCertificate(cert, key));
                args << QStringLiteral("--tls") << cert << key;
            }
            QVERIFY2(process.start(testing::systemPython(), args, QStringLiteral("READY")), process.log().constData());
        }

        const QString dataDir = tmp.filePath(QStringLiteral("data"));
        QDir().mkpath(dataDir);
        core::PortfolioTable table;
        core::Options options;
        options.connection.type = 1;
        if (route == QLatin1String("http")) {
            // Two tickers on one failing host: the user hears of the host's failure once.
            QVERIFY(news::installServerFiles(dataDir, qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data"));
            QVERIFY(news::retargetDemoMarket(dataDir, port));
            if (kind == QLatin1String("unresolvable")) {
                for (const QString& name : QDir(dataDir).entryList(QDir::Files)) {
                    QFile file(QDir(dataDir).filePath(name));
                    QVERIFY(file.open(QIODevice::ReadWrite));
                    const QByteArray from = QByteArray("127.0.0.1:") + QByteArray::number(port);
                    const QByteArray to = kNowhere.toLatin1() + from.mid(9);
                    const QByteArray text = file.readAll().replace(from, to);
                    QVERIFY(file.resize(0) && file.write(text) == text.size());
                }
            }
            options.quotes.server = quotes::BuiltInServers::kDemoMarket;
            options.quotes.marketSummary = false;
            // The peer alone: the shipped failure order would go on to sources on the Internet.
            options.sources.order = QStringLiteral("servers.dat");
            table.count = 2;
            table.records[0].ticker = QStringLiteral("IBM");
            table.records[1].ticker = QStringLiteral("CSCO");
        } else if (route == QLatin1String("pop")) {
            options.mail.server = QStringLiteral("127.0.0.1");
            options.mail.port = static_cast<qint16>(port);
            options.mail.user = kUser;
            options.mail.password = kPassword;
        } else {
            options.smtp.enabled = true;
            options.smtp.hostName = QStringLiteral("127.0.0.1");
            options.smtp.port = static_cast<qint16>(port);
            options.smtp.from = QStringLiteral("kestrova@example.test");
            options.smtp.recipient = QStringLiteral("pager@example.test");
            options.smtp.security = mode == QLatin1String("tls") ? 1 : 0;
            options.smtp.user = mode == QLatin1String("tls") ? kUser : QString();
            options.smtp.password = mode == QLatin1String("tls") ? kPassword : QString();
        }
        const QString portfolio = tmp.filePath(QStringLiteral("faults.pgr"));
        QVERIFY(core::PortfolioFile::write(portfolio, table, options).ok());
        // Each of these ends well inside a minute (four SMTP rounds included); -2 is a
        // crash or a hang.
        const testing::CliRun run = testing::runCli(
            tmp, QStringList{QStringLiteral("--data-dir"), dataDir, QStringLiteral("--portfolio"), portfolio} + command,
            90000);
        QVERIFY2(run.code == 1, qPrintable(QString::number(run.code) + u'\n' + run.out + run.err));
        const QStringList errors = run.err.split(u'\n', Qt::SkipEmptyParts);
        QVERIFY2(errors.size() == 1, qPrintable(run.err));
        const QString host = kind == QLatin1String("unresolvable") ? kNowhere : QStringLiteral("127.0.0.1");
        const QString pattern =
            QRegularExpression::escape(line)
                .replace(QStringLiteral("\\{url\\}"), QStringLiteral("http://\\{host\\}:\\{port\\}/\\S*"))
                .replace(QStringLiteral("\\{host\\}"), QRegularExpression::escape(host))
                .replace(QStringLiteral("\\{port\\}"), QString::number(port));
        QVERIFY2(QRegularExpression(u'^' + pattern).match(errors.first()).hasMatch(), qPrintable(run.err + pattern));
        // The log has the same line, for the desktop's status list and later reading.
        const QString activity = QString::fromUtf8(testing::readFile(dataDir + QStringLiteral("/activity.txt")));
        QVERIFY2(activity.contains(errors.first().mid(QStringLiteral("kestrova-cli: ").size())), qPrintable(activity));
        for (const QString& text : {run.out, run.err, activity}) {
            QVERIFY(!text.contains(kPassword));
        }
    }

    // A full disk during any save: the command fails naming the file, and the file keeps
    // what it held. The tests run as root, for whom no folder is read-only, so the full disk
    // is a file-size limit on the child (writes past it fail with EFBIG).
    void failedSaveKeepsTheFile_data()
    {
        QTest::addColumn<QString>("file"); // "portfolio", or a file of the data folder
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<QString>("said"); // in the error output or the log; {file} is the file
        const QString portfolio = QStringLiteral("ERROR 57 occurred. The portfolio file {file} was not saved");
        // clang-format off
        QTest::newRow("portfolio add") << "portfolio" << QStringList{"portfolio", "add", "CSCO", "--high", "99"} << portfolio;
        QTest::newRow("portfolio remove") << "portfolio" << QStringList{"portfolio", "remove", "IBM"} << portfolio;
        QTest::newRow("options set") << "portfolio" << QStringList{"options", "set", "pager.id", "4711"} << portfolio;
        // What the quote sources asked for (rest periods after "too many requests").
        QTest::newRow("update, sources.state") << "sources.state" << QStringList{"update"}
                                               << "The state of the quote sources could not be saved in {file}";
        QTest::newRow("update, news.dat") << "news.dat" << QStringList{"update"} << "Path/File access error ({file})";
        // clang-format on
    }
    void failedSaveKeepsTheFile()
    {
        QFETCH(QString, file);
        QFETCH(QStringList, command);
        QFETCH(QString, said);
        QTemporaryDir tmp;
        const QString dataDir = tmp.filePath(QStringLiteral("data"));
        QDir().mkpath(dataDir);
        // Quotes and news from a port where nobody listens: refused at once, and the update
        // goes on to its saves.
        QVERIFY(news::installServerFiles(dataDir, qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data"));
        QVERIFY(news::retargetDemoMarket(dataDir, testing::freePort()));
        core::PortfolioTable table;
        table.count = 1;
        table.records[0].ticker = QStringLiteral("IBM");
        table.records[0].news = 1;
        core::Options options;
        options.connection.type = 1;
        options.quotes.server = quotes::BuiltInServers::kDemoMarket;
        options.quotes.marketSummary = false;
        options.sources.order = QStringLiteral("servers.dat");
        options.news.retrieve = file == QLatin1String("news.dat");
        const QString portfolio = tmp.filePath(QStringLiteral("full disk.pgr"));
        QVERIFY(core::PortfolioFile::write(portfolio, table, options).ok());
        const QStringList globals{QStringLiteral("--data-dir"), dataDir, QStringLiteral("--portfolio"), portfolio};
        // The history has a test of its own; here it would only take the room first.
        QCOMPARE(testing::runCli(tmp, globals + QStringList{"options", "set", "history.enabled", "0"}).code, 0);

        const QString watched = file == QLatin1String("portfolio") ? portfolio : dataDir + u'/' + file;
        if (file == QLatin1String("sources.state")) {
            QJsonObject securities;
            for (int i = 0; i < 400; ++i) {
                securities.insert(QStringLiteral("T%1").arg(i, 4, 10, QLatin1Char('0')),
                                  QJsonObject{{QStringLiteral("priced"), true},
                                              {QStringLiteral("misses"), 0},
                                              {QStringLiteral("warned"), false},
                                              {QStringLiteral("seen"), QDate::currentDate().toString(Qt::ISODate)}});
            }
            const QJsonObject source{
                {QStringLiteral("securities"), securities},
                {QStringLiteral("restUntil"), QDateTime::currentDateTime().addSecs(3600).toString(Qt::ISODate)}};
            testing::writeFile(watched, QJsonDocument(QJsonObject{{QStringLiteral("sources"),
                                                                   QJsonObject{{QStringLiteral("stooq"), source}}}})
                                            .toJson(QJsonDocument::Indented));
        } else if (file == QLatin1String("news.dat")) {
            QByteArray stories;
            for (int i = 0; i < 400; ++i) {
                stories +=
                    "IBM\tHeadline number " + QByteArray::number(i) + " of a busy day\tWire\tFalse\tTrue\t\t\r\n";
            }
            testing::writeFile(watched, stories);
        }
        const QByteArray before = testing::readFile(watched);
        const rlim_t limit = static_cast<rlim_t>(before.size() / 2);
        const testing::CliRun run = testing::runCli(tmp, globals + command, 60000, {}, [limit] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit rl{limit, limit};
            setrlimit(RLIMIT_FSIZE, &rl);
        });
        QVERIFY2(run.code == 1, qPrintable(QString::number(run.code) + u'\n' + run.out + run.err));
        const QString activity = QString::fromUtf8(testing::readFile(dataDir + QStringLiteral("/activity.txt")));
        const QString named = QString(said).replace(QLatin1String("{file}"), watched);
        QVERIFY2(run.err.contains(named) || activity.contains(named), qPrintable(run.err + activity));
        QVERIFY2(!run.out.contains(QStringLiteral("Added")) && !run.out.contains(QStringLiteral("Removed")),
                 qPrintable(run.out));
        QCOMPARE(testing::readFile(watched), before);
    }

    // A service that quotes its request back ("bad request /q?s=IBM&apikey=...") must not
    // bring the key onto the console, the status lines or the log: every sink shows "***".
    void quotedKeyIsHidden_data()
    {
        QTest::addColumn<QStringList>("command");
        QTest::newRow("sources test") << QStringList{"sources", "test", "Echo", "IBM"};
        QTest::newRow("quotes") << QStringList{"--verbose", "quotes"};
        QTest::newRow("update") << QStringList{"--verbose", "update"};
    }
    void quotedKeyIsHidden()
    {
        QFETCH(QStringList, command);
        const QString key = QStringLiteral("SeKrEt-4711-key");
        const quint16 port = testing::freePort();
        PeerProcess peer;
        QVERIFY2(peer.start(testing::systemPython(),
                            {QStringLiteral(KESTROVA_PEERS_DIR "/http_fault_peer.py"), QString::number(port),
                             QStringLiteral("echo")},
                            QStringLiteral("READY")),
                 peer.log().constData());
        QTemporaryDir tmp;
        const QString dataDir = tmp.filePath(QStringLiteral("data"));
        QDir().mkpath(dataDir);
        const QJsonObject echo{
            {QStringLiteral("name"), QStringLiteral("Echo")},
            {QStringLiteral("format"), QStringLiteral("json")},
            {QStringLiteral("url"), QStringLiteral("http://127.0.0.1:%1/q?s={symbol}&apikey={key}").arg(port)},
            {QStringLiteral("fields"), QJsonObject{{QStringLiteral("last"), QStringLiteral("/c")}}},
            {QStringLiteral("errors"), QJsonArray{QStringLiteral("/error")}}};
        testing::writeFile(dataDir + QStringLiteral("/sources.json"),
                           QJsonDocument(QJsonObject{{QStringLiteral("sources"), QJsonArray{echo}}}).toJson());
        core::PortfolioTable table;
        table.count = 1;
        table.records[0].ticker = QStringLiteral("IBM");
        core::Options options;
        options.connection.type = 1;
        options.quotes.marketSummary = false;
        options.sources.order = QStringLiteral("Echo");
        const QString portfolio = tmp.filePath(QStringLiteral("echo.pgr"));
        QVERIFY(core::PortfolioFile::write(portfolio, table, options).ok());
        const QStringList globals{QStringLiteral("--data-dir"), dataDir, QStringLiteral("--portfolio"), portfolio};
        const testing::CliRun set = testing::runCli(
            tmp, globals + QStringList{"options", "set", "sources.key.echo", "-"}, 30000, key.toUtf8() + '\n');
        QVERIFY2(set.code == 0, qPrintable(set.err));

        // No price came: "sources test" and "quotes" fail; "update" logs the source's answer.
        const testing::CliRun run = testing::runCli(tmp, globals + command, 60000);
        QVERIFY2(run.code == (command.contains(QStringLiteral("update")) ? 0 : 1),
                 qPrintable(QString::number(run.code) + u'\n' + run.out + run.err));
        const QString activity = QString::fromUtf8(testing::readFile(dataDir + QStringLiteral("/activity.txt")));
        const QString everything = run.out + run.err + activity;
        QVERIFY2(!everything.contains(key), qPrintable(everything));
        // The service's words are still there, with the key's place marked.
        QVERIFY2(everything.contains(QStringLiteral("bad request /q?s=IBM&apikey=***")), qPrintable(everything));
    }

    // A data folder on a read-only file system: an update says so once, not at every line
    // of the log, and the history that is there can still be read.
    void readOnlyDataFolder()
    {
        QTemporaryDir tmp;
        const QString dataDir = tmp.filePath(QStringLiteral("data"));
        QDir().mkpath(dataDir);
        const QString csv = tmp.filePath(QStringLiteral("IBM.csv"));
        testing::writeFile(csv, "Date,Open,High,Low,Close,Volume\n2026-11-20,147,149,146,148.5,1000\n");
        core::PortfolioTable table;
        table.count = 1;
        table.records[0].ticker = QStringLiteral("IBM");
        core::Options options;
        options.connection.type = 1;
        options.quotes.server = quotes::BuiltInServers::kDemoMarket;
        options.quotes.marketSummary = false;
        options.sources.order = QStringLiteral("servers.dat");
        const QString portfolio = tmp.filePath(QStringLiteral("watch.pgr"));
        QVERIFY(core::PortfolioFile::write(portfolio, table, options).ok());
        const QStringList globals{QStringLiteral("--data-dir"), dataDir, QStringLiteral("--portfolio"), portfolio};
        QVERIFY(news::installServerFiles(dataDir, qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data"));
        QVERIFY(news::retargetDemoMarket(dataDir, testing::freePort()));
        QCOMPARE(testing::runCli(tmp, globals + QStringList{"history", "--import", csv, "IBM"}).code, 0);
        testing::writeFile(dataDir + QStringLiteral("/activity.txt"), "an earlier run\r\n");

        // The data folder is mounted read-only for the child alone, in a mount namespace of
        // its own; 77 says the machine does not allow that.
        const QByteArray folder = QFile::encodeName(dataDir);
        const auto readOnly = [folder] {
            if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount(folder.constData(), folder.constData(), nullptr, MS_BIND, nullptr) != 0 ||
                ::mount(nullptr, folder.constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
                ::_exit(77);
            }
        };
        const testing::CliRun update = testing::runCli(tmp, globals + QStringList{"update"}, 60000, {}, readOnly);
        if (update.code == 77) {
            QSKIP("no read-only bind mount here (needs a mount namespace)");
        }
        QCOMPARE(update.code, 1);
        const QString logFailure =
            QStringLiteral("Read-only file system (") + dataDir + QStringLiteral("/activity.txt)");
        QVERIFY2(update.err.count(logFailure) == 1, qPrintable(update.err));

        const testing::CliRun history =
            testing::runCli(tmp, globals + QStringList{"history", "IBM"}, 60000, {}, readOnly);
        QVERIFY2(history.code == 0, qPrintable(history.out + history.err));
        QVERIFY2(history.out.contains(QStringLiteral("148.5")), qPrintable(history.out));
        QCOMPARE(testing::readFile(dataDir + QStringLiteral("/activity.txt")), QByteArray("an earlier run\r\n"));
    }
};

QTEST_GUILESS_MAIN(TestCliFaults)
#include "test_cli_faults.moc"
