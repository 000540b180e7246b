// kestrova-cli check-mail as a real process against Dovecot on loopback.
#include "CliRun.h"
#include "DovecotPeer.h"

#include "core/Options.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace kestrova;
using kestrova::testing::Dovecot;
using kestrova::testing::MailMessage;

namespace {
const QString kUser = QStringLiteral("watcher");
// Made up for this test; it must never show up in the output or the log.
const QString kPassword = QStringLiteral("Cli-Pop-Pass-5150");
} // namespace

class TestMailCli : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(qEnvironmentVariable("KESTROVA_CLI")), "KESTROVA_CLI must name the built kestrova-cli");
        if (!QFileInfo(Dovecot::program()).isExecutable()) {
            QSKIP("dovecot-pop3d is not installed (scripts/install-deps.sh --test installs it)");
        }
    }

    void checkMail_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("password");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("count only") << QStringList{} << kPassword << 0 << QStringList{"Messages waiting: 2"};
        QTest::newRow("download")
            << QStringList{QStringLiteral("--download")} << kPassword << 0
            << QStringList{"Messages waiting: 2",
                           "#1  mon, 23 nov 2026 09:00:00 +0000  alice smith <alice@example.test>  lunch today",
                           "#2  mon, 23 nov 2026 09:00:00 +0000  bob <bob@example.test>  ibm up 5%"};
        QTest::newRow("wrong password") << QStringList{QStringLiteral("--download")} << QStringLiteral("Not-The-Pass-1")
                                        << 1 << QStringList{};
    }
    void checkMail()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, password);
        QFETCH(int, exitCode);
        QFETCH(QStringList, lines);
        Dovecot server(kUser, kPassword,
                       {{QStringLiteral("Alice Smith <alice@example.test>"), QStringLiteral("Lunch Today"),
                         QStringLiteral("<c1@example.test>"), "See you.\n"},
                        {QStringLiteral("Bob <bob@example.test>"), QStringLiteral("IBM Up 5%"),
                         QStringLiteral("<c2@example.test>"), "Sell?\n"}});
        QVERIFY(server.start());

        QTemporaryDir tmp;
        core::Options options;
        options.mail.server = QStringLiteral("127.0.0.1");
        options.mail.port = static_cast<qint16>(server.port);
        options.mail.user = kUser;
        options.mail.password = password;
        const QString portfolio = kestrova::testing::writeOptionsFile(tmp, options, QStringLiteral("mail.pgr"));
        QVERIFY(!portfolio.isEmpty());

        const QString dataDir = tmp.filePath(QStringLiteral("data"));
        const QStringList cliArgs = QStringList{QStringLiteral("--data-dir"),  dataDir,
                                                QStringLiteral("--portfolio"), portfolio,
                                                QStringLiteral("--verbose"),   QStringLiteral("check-mail")} +
                                    args;
        const kestrova::testing::CliRun run = kestrova::testing::runCli(tmp, cliArgs);
        const QString& out = run.out;
        const QString& err = run.err;
        QVERIFY2(run.code == exitCode, qPrintable(out + err));
        const QStringList shown =
            out.split(u'\n', Qt::SkipEmptyParts).filter(QRegularExpression(QStringLiteral("^(#|Messages waiting)")));
        QCOMPARE(shown, lines);
        // The verbose run echoes the whole POP dialogue; the password is never part of it.
        QVERIFY(err.contains(QStringLiteral("POP Recv: +OK")) || out.contains(QStringLiteral("POP Recv: +OK")));
        const QString activity =
            QString::fromLatin1(kestrova::testing::readFile(dataDir + QStringLiteral("/activity.txt")));
        QVERIFY(activity.contains(QStringLiteral("Checking Mail...")));
        for (const QString& text : {out, err, activity}) {
            QVERIFY(!text.contains(password));
        }
        QVERIFY(!cliArgs.join(u' ').contains(password));
    }
};

QTEST_GUILESS_MAIN(TestMailCli)
#include "test_mail_cli.moc"
