// kestrova-cli page with SMTP paging on, as a real process against aiosmtpd on loopback.
#include "CliRun.h"
#include "PeerProcess.h"
#include "TestUtil.h"

#include "core/Options.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace kestrova;
using kestrova::testing::PeerProcess;

class TestSmtpCli : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(qEnvironmentVariable("KESTROVA_CLI")), "KESTROVA_CLI must name the built kestrova-cli");
        if (QProcess::execute(kestrova::testing::systemPython(),
                              {QStringLiteral("-c"), QStringLiteral("import aiosmtpd")}) != 0) {
            QSKIP("python3-aiosmtpd is not installed (scripts/install-deps.sh --test installs it)");
        }
    }

    void pageByMail_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("result");
        QTest::addColumn<QStringList>("bodies");
        QTest::newRow("accepted") << "accept" << 0 << "SMTP: Message Sent"
                                  << QStringList{QStringLiteral("Call the broker "), QStringLiteral("now")};
        QTest::newRow("refused") << "refuse" << 1 << "Unable to send message" << QStringList{};
    }
    void pageByMail()
    {
        QFETCH(QString, mode);
        QFETCH(int, exitCode);
        QFETCH(QString, result);
        QFETCH(QStringList, bodies);
        QTemporaryDir tmp;
        const QString mailDir = tmp.filePath(QStringLiteral("mail"));
        QDir().mkpath(mailDir);
        const quint16 port = kestrova::testing::freePort();
        PeerProcess peer;
        QVERIFY2(peer.start(kestrova::testing::systemPython(),
                            {QStringLiteral(KESTROVA_PEERS_DIR "/smtp_peer.py"), QString::number(port), mailDir, mode},
                            QStringLiteral("READY")),
                 peer.log().constData());

        core::Options options;
        options.connection.type = 1;
        options.smtp.enabled = true;
        options.smtp.hostName = QStringLiteral("127.0.0.1");
        options.smtp.port = static_cast<qint16>(port);
        options.smtp.from = QStringLiteral("kestrova@example.test");
        options.smtp.recipient = QStringLiteral("pager@example.test");
        options.smtp.domain = QStringLiteral("example.test");
        options.smtp.maxLength = 16;
        const QString portfolio = kestrova::testing::writeOptionsFile(tmp, options, QStringLiteral("smtp.pgr"));
        QVERIFY(!portfolio.isEmpty());

        const QString dataDir = tmp.filePath(QStringLiteral("data"));
        const kestrova::testing::CliRun run =
            kestrova::testing::runCli(tmp, {QStringLiteral("--data-dir"), dataDir, QStringLiteral("--portfolio"),
                                            portfolio, QStringLiteral("page"), QStringLiteral("Call the broker now")});
        QVERIFY2(run.code == exitCode, qPrintable(run.out + run.err));
        QCOMPARE(run.out.trimmed(), result);

        QStringList received;
        for (int i = 1; QFile::exists(mailDir + QStringLiteral("/mail-%1.eml").arg(i)); ++i) {
            const QByteArray mail = kestrova::testing::readFile(mailDir + QStringLiteral("/mail-%1.eml").arg(i));
            received << QString::fromUtf8(mail.mid(mail.indexOf("\r\n\r\n") + 4)).chopped(2);
        }
        QCOMPARE(received, bodies);
        const QString activity =
            QString::fromLatin1(kestrova::testing::readFile(dataDir + QStringLiteral("/activity.txt")));
        QCOMPARE(activity.count(QStringLiteral("Unable to send message: Error1")), exitCode == 0 ? 0 : 1);
    }
};

QTEST_GUILESS_MAIN(TestSmtpCli)
#include "test_smtp_cli.moc"
