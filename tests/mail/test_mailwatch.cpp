// The POP mail watch against a real Dovecot on loopback, and its text rules.
#include "DovecotPeer.h"
#include "ServicesRig.h"
#include "TestHost.h"
#include "TestUtil.h"

#include "core/MailRecords.h"
#include "core/Options.h"
#include "mail/MailWatch.h"
#include "mail/PopClient.h"
#include "mail/PopReplies.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Services.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace kestrova;
using kestrova::testing::Dovecot;
using kestrova::testing::MailMessage;
using kestrova::testing::sizedMessage;

namespace {

const QString kUser = QStringLiteral("investor");
// Made up for these tests; it must never show up in the log or the echo.
const QString kPassword = QStringLiteral("Pop-Secret-7731");
struct Rig : kestrova::testing::ServicesRig
{
    core::MailOptions options;
    mail::MailWatchSettings settings;
    core::MailBox box;

    explicit Rig(quint16 port)
    {
        options.server = QStringLiteral("127.0.0.1");
        options.port = static_cast<qint16>(port);
        options.user = kUser;
        options.password = kPassword;
        settings.mailSizeKb = 20;
    }
    int displays = 0; // times the watch asked for the mail display to be redrawn

    void check(bool download, const QString& caFile = {})
    {
        mail::PopClient client(services);
        if (!caFile.isEmpty())
            client.setCaFile(caFile);
        mail::MailWatch watch(services, options, settings, box, client);
        watch.mailDisplayChanged = [this] { ++displays; };
        watch.checkMail(download);
    }
    void verifyNoPassword() const
    {
        QVERIFY(!activity().contains(kPassword));
        QVERIFY(!host.terminal.contains(kPassword));
        QVERIFY(!host.terminal.contains(QStringLiteral("PASS")));
        for (const QString& s : host.statusLines) {
            QVERIFY(!s.contains(kPassword));
        }
    }
};

const QList<MailMessage> kThree = {
    {QStringLiteral("Alice Smith <alice@example.test>"), QStringLiteral("Lunch Today"),
     QStringLiteral("<m1@example.test>"), "Are we still on?\n"},
    {QStringLiteral("Bob <bob@example.test>"), QStringLiteral("IBM Up 5%"), QStringLiteral("<m2@example.test>"),
     "Sell?\n.leading dot\n"},
    {QStringLiteral("carol@example.test"), QStringLiteral("RE: Quarterly"), QStringLiteral("<m3@example.test>"),
     "Fine.\n"},
};

// The scripted POP server for the behaviours Dovecot cannot show; returns its port, 0 when
// it did not come up.
quint16 startPopPeer(kestrova::testing::PeerProcess& peer, const QString& mode)
{
    const quint16 port = kestrova::testing::freePort();
    const bool up = peer.start(kestrova::testing::systemPython(),
                               {QStringLiteral(KESTROVA_PEERS_DIR "/pop_peer.py"), QString::number(port), mode},
                               QStringLiteral("READY"));
    return up ? port : 0;
}

} // namespace

class TestMailWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void headerFields_data()
    {
        QTest::addColumn<QString>("reply");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        const QString r = QStringLiteral("+OK\r\nFrom: Alice Smith\r\nSubject: Re: Lunch\r\nDate: Mon, 23 Nov 2026\r\n"
                                         "Message-ID: <A1@X>\r\n\r\n.\r\n");
        // clang-format off
        QTest::newRow("from lower-cased, blank skipped") << r << "from:" << QStringLiteral("alice smith");
        QTest::newRow("subject") << r << "subject: " << QStringLiteral("re: lunch");
        QTest::newRow("date") << r << "date: " << QStringLiteral("mon, 23 nov 2026");
        QTest::newRow("message-id skips one char") << r << "message-id:" << QStringLiteral("<a1@x>");
        QTest::newRow("no blank after colon loses a char") << QStringLiteral("From:Bob\r\n") << "from:" << QStringLiteral("ob");
        QTest::newRow("key missing") << QStringLiteral("+OK\r\nTo: x\r\n") << "from:" << QString();
        QTest::newRow("no CR after key") << QStringLiteral("+OK\r\nFrom: Bob") << "from:" << QString();
        QTest::newRow("first occurrence wins") << QStringLiteral("Subject: one\r\nSubject: two\r\n") << "subject: " << QStringLiteral("one");
        QTest::newRow("key inside another header") << QStringLiteral("Reply-From: x\r\nFrom: y\r\n") << "from:" << QStringLiteral("x");
        // clang-format on
    }
    void headerFields()
    {
        QFETCH(QString, reply);
        QFETCH(QString, key);
        QFETCH(QString, value);
        QCOMPARE(mail::MailWatch::headerField(reply, key), value);
    }

    void sizes_data()
    {
        QTest::addColumn<QString>("reply");
        QTest::addColumn<qint64>("size");
        QTest::newRow("plain") << QStringLiteral("+OK 2048 octets\r\nFrom: x\r\n") << qint64(2048);
        QTest::newRow("no octets") << QStringLiteral("+OK\r\nFrom: x\r\n") << qint64(0);
        QTest::newRow("no +OK") << QStringLiteral("-ERR 12 octets\r\n") << qint64(0);
        QTest::newRow("words between") << QStringLiteral("+OK message follows, 12 octets\r\n") << qint64(0);
        QTest::newRow("text after the number") << QStringLiteral("+OK 512 (octets)\r\n") << qint64(512);
        QTest::newRow("octets later in the headers") << QStringLiteral("+OK 77\r\nSubject: 5 octets\r\n") << qint64(77);
        QTest::newRow("past qint64") << QStringLiteral("+OK 99999999999999999999 octets\r\n") << qint64(0);
        QTest::newRow("400 digits") << QStringLiteral("+OK %1 octets\r\n").arg(QString(400, u'9')) << qint64(0);
        QTest::newRow("negative") << QStringLiteral("+OK -5 octets\r\n") << qint64(0);
        QTest::newRow("2^53") << QStringLiteral("+OK 9007199254740992 octets\r\n") << qint64(9007199254740992);
        // The whole reply the fuzzer first stopped on.
        QTest::newRow("fuzz: huge_size") << QString::fromLatin1(
                                                testing::readFile(qEnvironmentVariable("KESTROVA_TEST_DATA") +
                                                                  QStringLiteral("/fuzz/fuzz_pop_replies/huge_size")))
                                         << qint64(0);
    }
    void sizes()
    {
        QFETCH(QString, reply);
        QFETCH(qint64, size);
        QCOMPARE(mail::MailWatch::sizeOf(reply), size);
    }

    // STAT and LIST numbers as a hostile server may send them.
    void statAndList_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("count");
        QTest::addColumn<qint64>("octets");
        QTest::newRow("plain") << QByteArray("+OK 3 4096\r\n") << 3 << qint64(4096);
        QTest::newRow("count past int") << QByteArray("+OK 99999999999 12\r\n") << 0 << qint64(12);
        QTest::newRow("size past qint64") << QByteArray("+OK 2 99999999999999999999\r\n") << 2 << qint64(0);
        QTest::newRow("negatives") << QByteArray("+OK -2 -4096\r\n") << 0 << qint64(0);
        QTest::newRow("not numbers") << QByteArray("+OK many lots\r\n") << 0 << qint64(0);
        QTest::newRow("status alone") << QByteArray("+OK\r\n") << 0 << qint64(0);
    }
    void statAndList()
    {
        QFETCH(QByteArray, reply);
        QFETCH(int, count);
        QFETCH(qint64, octets);
        int gotCount = -1;
        qint64 gotOctets = -1;
        mail::popStatReply(reply, &gotCount, &gotOctets);
        QCOMPARE(gotCount, count);
        QCOMPARE(gotOctets, octets);
        QCOMPARE(mail::popListSize(reply), octets);
    }

    void markers_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("comma");
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("marked");
        QTest::newRow("notify only") << 0 << false << 3 << "<EMAIL> IBM 101";
        QTest::newRow("notify only, comma") << 0 << true << 3 << "<EMAIL> ,IBM 101";
        QTest::newRow("mode 1") << 1 << false << 3 << "<EMAIL> IBM 101";
        QTest::newRow("counted") << 2 << false << 3 << "<EMAIL3> IBM 101";
        QTest::newRow("counted, comma") << 3 << true << 12 << "<EMAIL12>,IBM 101";
    }
    void markers()
    {
        QFETCH(int, mode);
        QFETCH(bool, comma);
        QFETCH(int, count);
        QFETCH(QString, marked);
        core::MailOptions o;
        o.mode = static_cast<qint16>(mode);
        o.markerComma = comma;
        core::MailBox box;
        box.messageCount = static_cast<qint16>(count);
        QCOMPARE(mail::MailWatch::addEmailMarker(QStringLiteral("IBM 101"), box, o), marked);
    }

    void emptyBox_data()
    {
        QTest::addColumn<bool>("download");
        QTest::addColumn<QString>("logLine");
        QTest::newRow("count only") << false << "Internet: No Mail Waiting ";
        QTest::newRow("download") << true << "Internet: No Mail Retrieved ";
    }
    void emptyBox()
    {
        QFETCH(bool, download);
        QFETCH(QString, logLine);
        requireDovecot();
        Dovecot server(kUser, kPassword, {});
        QVERIFY(server.start());
        Rig rig(server.port);
        rig.box.mailWaiting = true; // left over from an earlier check
        rig.check(download);
        QVERIFY(rig.box.countKnown);
        QCOMPARE(rig.box.messageCount, qint16(0));
        QVERIFY(!rig.box.mailWaiting);
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Checking Mail... ")));
        QVERIFY(log.contains(QStringLiteral("No Mail Waiting ")));
        QVERIFY(log.contains(logLine));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Recv: +OK Dovecot")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Packet Sent: \r\n")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Socket Closed...: \r\n")));
        rig.verifyNoPassword();
    }

    void threeMessagesThenNoneNew()
    {
        requireDovecot();
        Dovecot server(kUser, kPassword, kThree);
        QVERIFY(server.start());
        Rig rig(server.port);
        rig.check(true);
        QCOMPARE(rig.box.messageCount, qint16(3));
        QVERIFY(rig.box.mailWaiting);
        QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Messages Waiting = 3 ")));
        QVERIFY(log.contains(QStringLiteral("Internet: Mail Retrieved ")));
        const auto& r = rig.box.records;
        QCOMPARE(r[1].sender, QStringLiteral("alice smith <alice@example.test>"));
        QCOMPARE(r[1].subject, QStringLiteral("lunch today"));
        QCOMPARE(r[1].date, QStringLiteral("mon, 23 nov 2026 09:00:00 +0000"));
        QCOMPARE(r[2].messageId, QStringLiteral("<m2@example.test>"));
        QCOMPARE(r[3].subject, QStringLiteral("re: quarterly"));
        for (int n = 1; n <= 3; ++n) {
            QVERIFY(r[n].isNew);
            QVERIFY(r[n].headerText.startsWith(QStringLiteral("+OK")));
            QVERIFY(r[n].headerText.endsWith(QStringLiteral("\r\n.\r\n")));
            const QByteArray wire = Dovecot::wire(kThree[n - 1]);
            QCOMPARE(r[n].size, qint64(wire.size() + wire.count('\n')));
            QVERIFY(log.contains(QStringLiteral("Receiving Message #%1 ").arg(n)));
        }
        QVERIFY(r[2].text.contains(QStringLiteral("\r\n.leading dot\r\n")));
        QVERIFY(r[1].text.startsWith(QStringLiteral("Date: Mon, 23 Nov 2026")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Recv: +OK 3 ")));

        // The same mailbox again: nothing is new and nothing is fetched again.
        rig.host.terminal.clear();
        rig.box.records[1].text.clear();
        rig.check(true);
        QCOMPARE(rig.box.messageCount, qint16(3));
        for (int n = 1; n <= 3; ++n) {
            QVERIFY(!r[n].isNew);
        }
        QVERIFY(r[1].text.isEmpty());
        log = rig.activity();
        QCOMPARE(log.count(QStringLiteral("Receiving Message #1 ")), 1);
        rig.verifyNoPassword();
    }

    void countOnlyReadsNoHeaders()
    {
        requireDovecot();
        Dovecot server(kUser, kPassword, kThree);
        QVERIFY(server.start());
        Rig rig(server.port);
        rig.check(false);
        QCOMPARE(rig.displays, 1);
        QCOMPARE(rig.box.messageCount, qint16(3));
        QVERIFY(rig.activity().contains(QStringLiteral("Internet: Mail Waiting ")));
        QVERIFY(rig.box.records[1].messageId.isEmpty());
        QVERIFY(!rig.host.terminal.contains(QStringLiteral("From: Alice")));
    }

    // The size limit: MailSize kilobytes and more is skipped, one octet less is fetched.
    void sizeLimit_data()
    {
        QTest::addColumn<qint64>("octets");
        QTest::addColumn<bool>("skipped");
        QTest::newRow("exactly MailSize KB") << qint64(2048) << true;
        QTest::newRow("one octet less") << qint64(2047) << false;
    }
    void sizeLimit()
    {
        QFETCH(qint64, octets);
        QFETCH(bool, skipped);
        requireDovecot();
        Dovecot server(kUser, kPassword, {sizedMessage(QStringLiteral("<big@example.test>"), octets)});
        QVERIFY(server.start());
        Rig rig(server.port);
        rig.settings.mailSizeKb = 2;
        rig.check(true);
        QCOMPARE(rig.box.records[1].size, octets);
        const QString log = rig.activity();
        QCOMPARE(log.contains(QStringLiteral("Message #1 was skipped due to size. ")), skipped);
        QCOMPARE(log.contains(QStringLiteral("Receiving Message #1 ")), !skipped);
        QCOMPARE(rig.box.records[1].text.isEmpty(), skipped);
        QCOMPARE(rig.box.records[1].subject, QStringLiteral("large")); // the headers are kept either way
    }

    // STLS on the plain port and POP3S, both with a throw-away certificate.
    void tls_data()
    {
        QTest::addColumn<int>("security");
        QTest::newRow("STLS") << 1;
        QTest::newRow("implicit TLS") << 2;
    }
    void tls()
    {
        QFETCH(int, security);
        requireDovecot();
        Dovecot server(kUser, kPassword, kThree);
        const QString cert = server.root + QStringLiteral("/cert.pem");
        const QString key = server.root + QStringLiteral("/key.pem");
        QVERIFY(kestrova::testing::makeLoopbackCertificate(cert, key));
        server.enableTls(cert, key);
        QVERIFY2(server.start(), qPrintable(server.log()));
        Rig rig(security == 2 ? server.tlsPort : server.port);
        rig.options.security = static_cast<qint16>(security);
        rig.check(true, cert);
        QCOMPARE(rig.box.messageCount, qint16(3));
        QCOMPARE(rig.box.records[3].subject, QStringLiteral("re: quarterly"));
        QVERIFY(!rig.box.records[3].text.isEmpty());
        QVERIFY(server.log().contains(QStringLiteral("TLS")));
        rig.verifyNoPassword();
    }

    // The record table ends at 100: a 101st message is a subscript error, trapped and logged.
    void moreThanAHundredMessages()
    {
        requireDovecot();
        QList<MailMessage> many;
        for (int i = 1; i <= 101; ++i) {
            many << MailMessage{QStringLiteral("sender%1@example.test").arg(i), QStringLiteral("Note %1").arg(i),
                                QStringLiteral("<n%1@example.test>").arg(i), "x\n"};
        }
        Dovecot server(kUser, kPassword, many);
        QVERIFY(server.start());
        Rig rig(server.port);
        rig.check(true);
        QCOMPARE(rig.box.messageCount, qint16(101));
        QCOMPARE(rig.box.records[100].subject, QStringLiteral("note 100"));
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Receiving Message #100 ")));
        QVERIFY(!log.contains(QStringLiteral("Receiving Message #101 ")));
        QVERIFY(log.contains(QStringLiteral("Check Mail: Subscript out of range ")));
        rig.verifyNoPassword();
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Socket Closed...: ")));
    }

    // Servers Dovecot cannot imitate: a size on the TOP line, and a hang-up mid-reply.
    void scriptedServer_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<qint64>("size1");
        QTest::addColumn<QString>("sender1");
        QTest::addColumn<bool>("socketError");
        QTest::newRow("size on the TOP line") << "octets" << qint64(140) << "dana lee <dana@example.test>" << false;
        QTest::newRow("hang-up inside TOP") << "hangup" << qint64(140) << "" << true;
    }
    void scriptedServer()
    {
        QFETCH(QString, mode);
        QFETCH(qint64, size1);
        QFETCH(QString, sender1);
        QFETCH(bool, socketError);
        kestrova::testing::PeerProcess peer;
        const quint16 port = startPopPeer(peer, mode);
        QVERIFY2(port != 0, peer.log().constData());
        Rig rig(port);
        rig.check(true);
        QCOMPARE(rig.box.messageCount, qint16(2));
        QCOMPARE(rig.box.records[1].size, size1);
        QCOMPARE(rig.box.records[1].sender, sender1);
        const QString log = rig.activity();
        QCOMPARE(log.contains(QStringLiteral("Winsock Error using POP: Connection reset by peer ")), socketError);
        QCOMPARE(log.contains(QStringLiteral("Receiving Message #2 ")), !socketError);
        rig.verifyNoPassword();
        if (!socketError) {
            QCOMPARE(rig.box.records[2].text, QStringLiteral("From: eve@example.test\r\nSubject: Hi\r\n"
                                                             "Date: Tue, 24 Nov 2026 08:05:00 +0000\r\n"
                                                             "Message-ID: <p2@example.test>\r\n\r\nHello.\r\n"));
        }
    }

    void silentServerTimesOut()
    {
        kestrova::testing::PeerProcess peer;
        peer.terminateOnStop = true;
        const quint16 port = startPopPeer(peer, QStringLiteral("silent"));
        QVERIFY2(port != 0, peer.log().constData());
        Rig rig(port);
        const QDateTime start = rig.clock.now();
        rig.check(true);
        const qint64 waited = start.secsTo(rig.clock.now());
        // One 60-second wait for the USER reply and a short one for QUIT, not more.
        QVERIFY2(waited >= 60 && waited <= 70, qPrintable(QString::number(waited)));
        QVERIFY(!rig.box.countKnown);
        QCOMPARE(rig.displays, 0);
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Checking Mail... ")));
        QVERIFY(!log.contains(QStringLiteral("Waiting ")));
        QVERIFY(!log.contains(QStringLiteral("Retrieved ")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Recv: +OK scripted ready")));
    }

    void wrongPassword()
    {
        requireDovecot();
        Dovecot server(kUser, kPassword, kThree);
        QVERIFY(server.start());
        Rig rig(server.port);
        rig.options.password = QStringLiteral("Wrong-Secret-99");
        rig.box.messageCount = 2; // from an earlier check
        rig.check(true);
        QVERIFY(!rig.box.countKnown);
        QCOMPARE(rig.box.messageCount, qint16(2));
        const QString log = rig.activity();
        QVERIFY(!log.contains(QStringLiteral("Mail Retrieved")));
        QVERIFY(!log.contains(QStringLiteral("Receiving Message")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Recv: -ERR")));
        QVERIFY(!log.contains(QStringLiteral("Wrong-Secret-99")));
        QVERIFY(!rig.host.terminal.contains(QStringLiteral("Wrong-Secret-99")));
        rig.verifyNoPassword();
    }

    void refusedConnection()
    {
        Rig rig(kestrova::testing::freePort()); // nothing listens there
        rig.check(true);
        QVERIFY(!rig.box.countKnown);
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Winsock Error using POP: Connection refused ")));
        QVERIFY(log.contains(QStringLiteral("Invalid socket number ")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("POP Winsock Error 10061 Connection refused")));
    }

    void checkingOffDoesNothing()
    {
        Rig rig(kestrova::testing::freePort());
        rig.settings.checkMail = false;
        rig.check(true);
        QVERIFY(rig.activity().isEmpty());
        QVERIFY(rig.host.terminal.isEmpty());
    }

private:
    void requireDovecot()
    {
        if (!QFileInfo(Dovecot::program()).isExecutable()) {
            QSKIP("dovecot-pop3d is not installed (scripts/install-deps.sh --test installs it)");
        }
    }
};

QTEST_GUILESS_MAIN(TestMailWatch)
#include "test_mailwatch.moc"
