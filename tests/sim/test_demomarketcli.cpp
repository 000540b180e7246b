#include "TestUtil.h"

#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

namespace {

QString cli()
{
    return qEnvironmentVariable("KESTROVA_CLI");
}

QByteArray httpGet(quint16 port, const QByteArray& target)
{
    QTcpSocket s;
    s.connectToHost(QHostAddress::LocalHost, port);
    if (!s.waitForConnected(3000)) {
        return {};
    }
    s.write("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    QByteArray raw;
    while (s.state() == QAbstractSocket::ConnectedState && s.waitForReadyRead(3000)) {
        raw += s.readAll();
    }
    return raw + s.readAll();
}

} // namespace

// kestrova-cli demo-market as a process of its own.
class TestDemoMarketCli : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void servesUntilTerminated()
    {
        QTemporaryDir data;
        const quint16 port = kestrova::testing::freePort();
        QProcess p;
        p.start(cli(), {"--data-dir", data.path(), "demo-market", "--port", QString::number(port), "--walk-start", "3",
                        "--latency-ms", "20", "--retarget"});
        QVERIFY(p.waitForStarted());
        QVERIFY(p.waitForReadyRead(10000));
        const QByteArray banner = p.readAllStandardOutput();
        QVERIFY2(banner.contains(QByteArray("listening on http://127.0.0.1:" + QByteArray::number(port))),
                 banner.constData());

        // The installed definition files were copied in and now point at this port.
        const QByteArray address = "127.0.0.1:" + QByteArray::number(port);
        QCOMPARE(kestrova::testing::readFile(data.filePath("servers.dat")).count(address), 2);
        QCOMPARE(kestrova::testing::readFile(data.filePath("server.dat")).count(address), 1);

        QVERIFY(httpGet(port, "/stock?t=IBM").contains("Last Trade:"));
        QVERIFY(httpGet(port, "/news?t=IBM").contains("<li class=story>"));

        ::kill(static_cast<pid_t>(p.processId()), SIGTERM);
        QVERIFY(p.waitForFinished(10000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        QVERIFY(p.readAllStandardOutput().contains("demo-market: 2 requests"));
    }

    void badArguments_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("port too big") << QStringList{"--port", "70000"} << 2;
        QTest::newRow("port not a number") << QStringList{"--port", "http"} << 2;
        QTest::newRow("negative latency") << QStringList{"--latency-ms", "-5"} << 2;
        QTest::newRow("unknown option") << QStringList{"--bogus"} << 2;
        QTest::newRow("value missing") << QStringList{"--walk-start"} << 2;
        QTest::newRow("port taken") << QStringList{"--port", "TAKEN"} << 1;
    }

    void badArguments()
    {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QTcpServer taken;
        QVERIFY(taken.listen(QHostAddress::LocalHost, 0));
        args.replaceInStrings(QStringLiteral("TAKEN"), QString::number(taken.serverPort()));
        QTemporaryDir data;
        QProcess p;
        p.start(cli(), QStringList{"--data-dir", data.path(), "demo-market"} + args);
        QVERIFY(p.waitForFinished(10000));
        QCOMPARE(p.exitCode(), exitCode);
        QVERIFY(!p.readAllStandardError().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestDemoMarketCli)
#include "test_demomarketcli.moc"
