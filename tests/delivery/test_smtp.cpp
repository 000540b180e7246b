// SMTP paging against a real aiosmtpd on loopback, and the socket error texts.
#include "PeerProcess.h"
#include "ServicesRig.h"
#include "TestHost.h"
#include "TestUtil.h"

#include "core/Options.h"
#include "delivery/CurlSmtpSender.h"
#include "delivery/SmtpPager.h"
#include "delivery/WinsockErrors.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Services.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <array>
#include <cerrno>

using namespace kestrova;
using kestrova::testing::PeerProcess;

namespace {

const QString kPeerScript = QStringLiteral(KESTROVA_PEERS_DIR "/smtp_peer.py");
// Made up for these tests; it must never show up in the log or the echo.
const QString kUser = QStringLiteral("pager");
const QString kPassword = QStringLiteral("Tr0ub4dor&3-xyzzy");

struct Rig : kestrova::testing::ServicesRig
{
    core::Options options;
    QString mailDir;

    Rig()
    {
        mailDir = dir.filePath(QStringLiteral("mail"));
        QDir().mkpath(mailDir);
        options.connection.type = 1;
        options.smtp.enabled = true;
        options.smtp.hostAddress = QStringLiteral("127.0.0.1");
        options.smtp.from = QStringLiteral("kestrova@example.test");
        options.smtp.recipient = QStringLiteral("pager@example.test");
        options.smtp.domain = QStringLiteral("watcher.example.test");
        options.smtp.maxLength = 20;
    }

    // Starts the SMTP server on a free port and points the options at it.
    bool startPeer(PeerProcess& peer, const QString& mode, const QStringList& extra = {})
    {
        const quint16 port = kestrova::testing::freePort();
        options.smtp.port = static_cast<qint16>(port);
        return peer.start(kestrova::testing::systemPython(),
                          QStringList{kPeerScript, QString::number(port), mailDir, mode} + extra,
                          QStringLiteral("READY"));
    }

    // Sends text through the real SMTP client as the pager would.
    bool send(const QString& text, const QString& caFile = {})
    {
        delivery::CurlSmtpSender sender(host);
        if (!caFile.isEmpty()) {
            sender.setCaFile(caFile);
        }
        return delivery::SmtpPager(services, options, sender).sendSmtpMessage(text);
    }

    QStringList received() const
    {
        QStringList out;
        for (int i = 1;; ++i) {
            const QString p = mailDir + QStringLiteral("/mail-%1.eml").arg(i);
            if (!QFileInfo::exists(p)) {
                return out;
            }
            out << QString::fromUtf8(kestrova::testing::readFile(p));
        }
    }
};

bool haveAiosmtpd()
{
    return QProcess::execute(kestrova::testing::systemPython(),
                             {QStringLiteral("-c"), QStringLiteral("import aiosmtpd")}) == 0;
}

// The body of a received mail without the line end of its one line: everything after the
// blank line that ends the headers. The line must end in CR LF, else the body is marked.
QString bodyOf(const QString& mail)
{
    const qsizetype end = mail.indexOf(QStringLiteral("\r\n\r\n"));
    if (end < 0 || !mail.endsWith(QStringLiteral("\r\n"))) {
        return QStringLiteral("<malformed>");
    }
    return mail.mid(end + 4).chopped(2);
}

QString headersOf(const QString& mail)
{
    const qsizetype end = mail.indexOf(QStringLiteral("\r\n\r\n"));
    return end < 0 ? mail : mail.left(end + 2);
}

} // namespace

class TestSmtp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!haveAiosmtpd()) {
            QSKIP("python3-aiosmtpd is not installed (scripts/install-deps.sh --test installs it)");
        }
    }

    void winsockTable_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        // clang-format off
        QTest::newRow("base") << 10000 << "WSABASEERR" << QStringLiteral("No Error");
        QTest::newRow("first real") << 10004 << "WSAEINTR" << QStringLiteral("Interrupted system call");
        QTest::newRow("refused") << 10061 << "WSAECONNREFUSED" << QStringLiteral("Connection refused");
        QTest::newRow("not initialised") << 10093 << "WSANOTINITIALISED" << QStringLiteral("Successful WSASTARTUP not yet performed");
        QTest::newRow("no data")
            << 11004 << "WSANO_DATA"
            << QStringLiteral("Valid name, no data record of requested type *OR* No address, look for MX record");
        QTest::newRow("gap after base") << 10001 << "" << QStringLiteral("Unknown Error");
        QTest::newRow("gap before sys") << 10072 << "" << QStringLiteral("Unknown Error");
        QTest::newRow("past the end") << 11005 << "" << QStringLiteral("Unknown Error");
        QTest::newRow("negative") << -10061 << "" << QStringLiteral("Unknown Error");
        // clang-format on
    }
    void winsockTable()
    {
        QFETCH(int, code);
        QFETCH(QString, name);
        QFETCH(QString, text);
        QString gotName = QStringLiteral("unchanged");
        QCOMPARE(delivery::winsockErrorText(code, &gotName), text);
        QCOMPARE(gotName, name);
    }

    void winsockMapping_data()
    {
        QTest::addColumn<int>("curlCode");
        QTest::addColumn<int>("osErrno");
        QTest::addColumn<int>("expected");
        QTest::newRow("refused by code") << int(CURLE_COULDNT_CONNECT) << 0 << 10061;
        QTest::newRow("refused by errno") << int(CURLE_COULDNT_CONNECT) << ECONNREFUSED << 10061;
        QTest::newRow("unreachable errno wins") << int(CURLE_COULDNT_CONNECT) << EHOSTUNREACH << 10065;
        QTest::newRow("timeout") << int(CURLE_OPERATION_TIMEDOUT) << 0 << 10060;
        QTest::newRow("resolve") << int(CURLE_COULDNT_RESOLVE_HOST) << 0 << 11001;
        QTest::newRow("reset while receiving") << int(CURLE_RECV_ERROR) << ECONNRESET << 10054;
        QTest::newRow("hang-up without errno") << int(CURLE_GOT_NOTHING) << 0 << 10054;
        QTest::newRow("broken pipe") << int(CURLE_SEND_ERROR) << EPIPE << 10058;
        QTest::newRow("login denied is no socket error") << int(CURLE_LOGIN_DENIED) << 0 << 0;
    }
    void winsockMapping()
    {
        QFETCH(int, curlCode);
        QFETCH(int, osErrno);
        QFETCH(int, expected);
        QCOMPARE(delivery::winsockFromCurl(static_cast<CURLcode>(curlCode), osErrno), expected);
    }

    // Pieces cut at exact multiples of the length, each mailed alone and received intact.
    void sendsPiecesByteForByte_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("maxLength");
        QTest::addColumn<QStringList>("pieces");
        QTest::addColumn<bool>("utf8"); // the mail says its body is UTF-8
        // clang-format off
        QTest::newRow("exactly one page") << QStringLiteral("ABCDEFGHIJKLMNOPQRST") << 20 << QStringList{QStringLiteral("ABCDEFGHIJKLMNOPQRST")} << false;
        QTest::newRow("two and a bit") << QStringLiteral("IBM 101.25 +1.50 MSFT 55.10 -0.20 T 9") << 15
                                       << QStringList{QStringLiteral("IBM 101.25 +1.5"),
                                                      QStringLiteral("0 MSFT 55.10 -0"), QStringLiteral(".20 T 9")} << false;
        QTest::newRow("line starting with a dot") << QStringLiteral(".dot first") << 40 << QStringList{QStringLiteral(".dot first")} << false;
        QTest::newRow("beyond ASCII") << QStringLiteral("Nestl\u00e9 101.25") << 40 << QStringList{QStringLiteral("Nestl\u00e9 101.25")} << true;
        // clang-format on
    }
    void sendsPiecesByteForByte()
    {
        QFETCH(QString, text);
        QFETCH(int, maxLength);
        QFETCH(QStringList, pieces);
        QFETCH(bool, utf8);
        Rig rig;
        rig.options.smtp.maxLength = static_cast<qint16>(maxLength);
        PeerProcess peer;
        QVERIFY2(rig.startPeer(peer, QStringLiteral("accept")), peer.log().constData());

        QVERIFY(rig.send(text));

        const QStringList mails = rig.received();
        QCOMPARE(mails.size(), pieces.size());
        for (int i = 0; i < pieces.size(); ++i) {
            QCOMPARE(bodyOf(mails[i]), pieces[i]);
            const QString headers = headersOf(mails[i]);
            QVERIFY2(headers.contains(QStringLiteral("\r\nFrom: kestrova@example.test\r\n")) ||
                         headers.startsWith(QStringLiteral("From: ")),
                     qPrintable(headers));
            QVERIFY(headers.contains(QStringLiteral("To: pager@example.test\r\n")));
            QVERIFY(headers.startsWith(QStringLiteral("Date: Mon, 23 Nov 2026 10:00:")));
            QVERIFY(headers.contains(
                QRegularExpression(QStringLiteral("\r\nMessage-ID: <[^>\r\n]+@watcher\\.example\\.test>\r\n"))));
            QVERIFY(!headers.contains(QStringLiteral("Subject"), Qt::CaseInsensitive));
            QCOMPARE(headers.contains(QStringLiteral("\r\nContent-Type: text/plain; charset=utf-8\r\n")), utf8);
            // Every line of the mail ends in CR LF.
            QVERIFY(!QString(mails[i]).remove(QStringLiteral("\r\n")).contains(u'\n'));
        }
        const QString log = rig.activity();
        for (int i = 1; i <= pieces.size(); ++i) {
            QVERIFY(log.contains(QStringLiteral("SMTP Message #%1 sent successfully ").arg(i)));
        }
        QVERIFY(!log.contains(QStringLiteral("Unable to send message")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("SMTP Recv: 220 ")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("SMTP Recv: 250 OK\r\n")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("SMTP Socket Closed: ")));
    }

    // The label goes exactly on mails with a character beyond ASCII: a pager service that
    // takes an unlabelled body as ASCII or Latin-1 shows "NestlÃ©" otherwise, and a label on a
    // plain body is noise some gateways page as text.
    void labelsUtf8Bodies_data()
    {
        QTest::addColumn<QString>("body");
        QTest::addColumn<bool>("utf8");
        QTest::newRow("plain quote") << QStringLiteral("IBM 101.25") << false;
        QTest::newRow("last ASCII character") << QStringLiteral("IBM ~101.25") << false;
        QTest::newRow("accented name") << QStringLiteral("Nestl\u00e9 101.25") << true;
        QTest::newRow("euro sign") << QStringLiteral("SAP \u20ac101.25") << true;
    }
    void labelsUtf8Bodies()
    {
        QFETCH(QString, body);
        QFETCH(bool, utf8);
        delivery::SmtpMail mail;
        mail.from = QStringLiteral("kestrova@example.test");
        mail.recipient = QStringLiteral("pager@example.test");
        mail.body = body;
        mail.date = QDateTime(QDate(2026, 11, 23), QTime(10, 0));
        const QByteArray message = delivery::CurlSmtpSender::composeMessage(mail, QStringLiteral("<1@example.test>"));
        const QByteArray headers = message.left(message.indexOf("\r\n\r\n") + 2);
        QCOMPARE(headers.contains("\r\nContent-Type: text/plain; charset=utf-8\r\n"), utf8);
        QCOMPARE(headers.contains("\r\nContent-Transfer-Encoding: 8bit\r\n"), utf8);
        QVERIFY(message.endsWith(QByteArray("\r\n\r\n" + body.toUtf8() + "\r\n")));
    }

    // Refusals: every round resends every piece and the one failure line ends in "1".
    void retriesFourRounds_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("savedMails");
        QTest::addColumn<int>("successLines");
        QTest::newRow("refuse every mail") << QStringLiteral("refuse") << 0 << 0;
        // The first attempt of piece 1 fails; the other 7 of 4 rounds x 2 pieces go through.
        QTest::newRow("refuse only the first") << QStringLiteral("refuse-first") << 7 << 7;
    }
    void retriesFourRounds()
    {
        QFETCH(QString, mode);
        QFETCH(int, savedMails);
        QFETCH(int, successLines);
        Rig rig;
        rig.options.smtp.maxLength = 10;
        PeerProcess peer;
        QVERIFY2(rig.startPeer(peer, mode), peer.log().constData());

        QVERIFY(!rig.send(QStringLiteral("0123456789abcdef")));

        QCOMPARE(rig.received().size(), savedMails);
        const QString log = rig.activity();
        QCOMPARE(log.count(QStringLiteral("Unable to send message: Error1 ")), 1);
        QCOMPARE(log.count(QStringLiteral("Unable to send message")), 2); // the status line and the log line
        QCOMPARE(log.count(QStringLiteral("Connecting to SMTP Server")), 4);
        QCOMPARE(log.count(QStringLiteral("Sending Message #1 ")), 4);
        QCOMPARE(log.count(QStringLiteral("Sending Message #2 ")), 4);
        QCOMPARE(log.count(QStringLiteral("SMTP Message #")), successLines);
        QVERIFY(!log.contains(QStringLiteral("Winsock Error")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("SMTP Recv: 550 Mailbox unavailable\r\n")));
    }

    // Mail headers forwarded by e-mail: one mail per new record, in the paging text form.
    void forwardsNewMail_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("pageHeaders");
        QTest::addColumn<bool>("forward");
        QTest::addColumn<QStringList>("bodies");
        QTest::newRow("headers") << 2 << true << true
                                 << QStringList{QStringLiteral("mon, 23 nov|From:alice|Subject:lunch"),
                                                QStringLiteral("tue, 24 nov|From:carol|Subject:q3")};
        QTest::newRow("message text in mode 1")
            << 1 << false << true
            << QStringList{QStringLiteral("mon, 23 nov:See you"), QStringLiteral("tue, 24 nov:Fine")};
        QTest::newRow("header paging off") << 0 << false << true << QStringList{};
        QTest::newRow("forwarding off") << 2 << true << false << QStringList{};
    }
    void forwardsNewMail()
    {
        QFETCH(int, mode);
        QFETCH(bool, pageHeaders);
        QFETCH(bool, forward);
        QFETCH(QStringList, bodies);
        Rig rig;
        rig.options.smtp.maxLength = 100;
        rig.options.mail.mode = static_cast<qint16>(mode);
        rig.options.mail.pageHeaders = pageHeaders;
        rig.options.paging.forwardMail = forward;
        PeerProcess peer;
        QVERIFY2(rig.startPeer(peer, QStringLiteral("accept")), peer.log().constData());

        core::MailBox box;
        box.messageCount = 3;
        box.mailWaiting = true;
        // Date, sender, subject, text, new; the fourth lies beyond the count.
        const std::array<std::array<const char*, 4>, 4> records{{{" mon, 23 nov ", "alice", "lunch", "See you"},
                                                                 {"sun, 22 nov", "bob", "old", "Seen"},
                                                                 {"tue, 24 nov", "carol", "q3", "Fine"},
                                                                 {"beyond the count", "dan", "stale", "x"}}};
        for (int i = 1; i <= 4; ++i) {
            const auto& r = records[size_t(i - 1)];
            box.records[i] = {r[0], QStringLiteral("<%1@x>").arg(i), {}, r[1], r[2], r[3], i != 2, 10};
        }

        delivery::CurlSmtpSender sender(rig.host);
        delivery::SmtpPager pager(rig.services, rig.options, sender);
        pager.sendEmailMessages(box);
        QStringList received;
        for (const QString& mail : rig.received()) {
            received << bodyOf(mail);
        }
        QCOMPARE(received, bodies);
        QCOMPARE(rig.activity().count(QStringLiteral("Sending E-Mail Messages ")), bodies.size());
    }

    void cancelStopsBeforeNextPiece()
    {
        Rig rig;
        rig.options.smtp.maxLength = 5;
        PeerProcess peer;
        QVERIFY2(rig.startPeer(peer, QStringLiteral("accept")), peer.log().constData());
        rig.host.onYield = [&rig] {
            if (rig.activity().contains(QStringLiteral("SMTP Message #1 sent successfully"))) {
                rig.cancel.set();
            }
        };
        QVERIFY(!rig.send(QStringLiteral("AAAAABBBBBCCCCC")));
        QCOMPARE(rig.received().size(), 1);
        QCOMPARE(bodyOf(rig.received().constFirst()), QStringLiteral("AAAAA"));
        QVERIFY(!rig.activity().contains(QStringLiteral("Sending Message #2")));
        QVERIFY(!rig.activity().contains(QStringLiteral("Unable to send message")));
    }

    void tooManyPiecesSendsNothing()
    {
        Rig rig;
        rig.options.smtp.maxLength = 2;
        rig.options.smtp.port = static_cast<qint16>(kestrova::testing::freePort()); // must not be tried
        delivery::CurlSmtpSender sender(rig.host);
        delivery::SmtpPager pager(rig.services, rig.options, sender);
        QVERIFY(!pager.sendSmtpMessage(QString(101, u'x'))); // 51 pieces
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("SendSMTPMessage: Subscript out of range ")));
        QVERIFY(!log.contains(QStringLiteral("Sending Message #")));
        QVERIFY(!log.contains(QStringLiteral("Winsock Error")));
        // 50 pieces still fit.
        QVERIFY(!pager.sendSmtpMessage(QString(100, u'x')));
        QCOMPARE(pager.pages().count(), 50);
    }

    void refusedConnectionTellsTheTruth()
    {
        Rig rig;
        rig.options.smtp.port = static_cast<qint16>(kestrova::testing::freePort()); // nobody listens
        QVERIFY(!rig.send(QStringLiteral("hello")));
        const QString log = rig.activity();
        QCOMPARE(log.count(QStringLiteral("Winsock Error using SMTP: Connection refused ")), 4);
        QCOMPARE(log.count(QStringLiteral("Unable to send message: Error1 ")), 1);
        QVERIFY(rig.host.terminal.contains(QStringLiteral("SMTP Winsock Error 10061 Connection refused\r\n")));
    }

    // STARTTLS with a throw-away certificate and a log-on; the password never shows.
    void startTlsWithLogon_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("right password") << kPassword << true;
        QTest::newRow("wrong password") << QStringLiteral("not-the-Tr0ub4dor") << false;
    }
    void startTlsWithLogon()
    {
        QFETCH(QString, password);
        QFETCH(bool, accepted);
        Rig rig;
        const QString cert = rig.dir.filePath(QStringLiteral("cert.pem"));
        const QString key = rig.dir.filePath(QStringLiteral("key.pem"));
        QVERIFY(kestrova::testing::makeLoopbackCertificate(cert, key));
        const QString authFile = rig.dir.filePath(QStringLiteral("auth"));
        kestrova::testing::writeFile(authFile, kUser.toUtf8() + '\n' + kPassword.toUtf8() + '\n');

        rig.options.smtp.security = 1;
        rig.options.smtp.user = kUser;
        rig.options.smtp.password = password;
        PeerProcess peer;
        QVERIFY2(rig.startPeer(peer, QStringLiteral("accept"),
                               {QStringLiteral("--tls"), cert, key, QStringLiteral("--auth"), authFile}),
                 peer.log().constData());
        QVERIFY(!peer.process().arguments().join(u' ').contains(kPassword));

        QCOMPARE(rig.send(QStringLiteral("secure page"), cert), accepted);
        QCOMPARE(rig.received().size(), accepted ? 1 : 0);
        if (accepted) {
            QCOMPARE(bodyOf(rig.received().constFirst()), QStringLiteral("secure page"));
        }
        QVERIFY(rig.host.terminal.contains(QStringLiteral("SMTP Recv: 220 ")));
        const QString log = rig.activity();
        for (const QString& secret :
             {password, QString::fromLatin1(password.toUtf8().toBase64()),
              QString::fromLatin1(QByteArray(kUser.toUtf8() + '\0' + password.toUtf8()).toBase64()),
              QString::fromLatin1(QByteArray('\0' + kUser.toUtf8() + '\0' + password.toUtf8()).toBase64())}) {
            QVERIFY(!log.contains(secret));
            QVERIFY(!rig.host.terminal.contains(secret));
            for (const QString& s : rig.host.statusLines) {
                QVERIFY(!s.contains(secret));
            }
        }
        QCOMPARE(log.contains(QStringLiteral("Unable to send message: Error1")), !accepted);
    }
};

QTEST_GUILESS_MAIN(TestSmtp)
#include "test_smtp.moc"
