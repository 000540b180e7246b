#pragma once

#include "PeerProcess.h"
#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>

#include <sys/stat.h>
#include <unistd.h>

namespace kestrova::testing {

constexpr uid_t kMailUid = 65534; // Dovecot will not serve mail as root

struct MailMessage
{
    QString from;
    QString subject;
    QString id;
    QByteArray body;
};

// A mailbox on disk and a Dovecot serving it on a free loopback port.
class Dovecot
{
public:
    Dovecot(const QString& user, const QString& password, const QList<MailMessage>& messages)
    {
        root = dir.path();
        ::chmod(QFile::encodeName(root).constData(), 0755);
        const QString home = root + QStringLiteral("/home");
        for (const char* sub : {"cur", "new", "tmp"}) {
            QDir().mkpath(home + QStringLiteral("/Maildir/") + QLatin1String(sub));
        }
        for (int i = 0; i < messages.size(); ++i) {
            add(home, i + 1, messages[i]);
        }
        chownTree(home);
        port = freePort();
        writeFile(root + QStringLiteral("/passwd"),
                  (user + QStringLiteral(":{PLAIN}") + password + QStringLiteral(":%1:%1::").arg(kMailUid) + home +
                   QStringLiteral("::\n"))
                      .toUtf8());
        QDir().mkpath(root + QStringLiteral("/run"));
        QDir().mkpath(root + QStringLiteral("/state"));
    }

    static QString program() { return QStringLiteral("/usr/sbin/dovecot"); }

    // Serves STLS on the plain port and POP3S on tlsPort with a throw-away certificate.
    void enableTls(const QString& certFile, const QString& keyFile)
    {
        m_cert = certFile;
        m_key = keyFile;
        tlsPort = freePort();
    }

    bool start()
    {
        QString ssl = QStringLiteral("ssl = no\n");
        QString tlsListener;
        if (!m_cert.isEmpty()) {
            ssl = QStringLiteral("ssl = yes\nssl_cert = <%1\nssl_key = <%2\n").arg(m_cert, m_key);
            tlsListener =
                QStringLiteral("  inet_listener pop3s {\n    address = 127.0.0.1\n    port = %1\n    ssl = yes\n  }\n")
                    .arg(tlsPort);
        }
        const QString conf =
            QStringLiteral("base_dir = %1/run\nstate_dir = %1/state\nlog_path = %1/dovecot.log\n"
                           "protocols = pop3\nlisten = 127.0.0.1\n%3disable_plaintext_auth = no\n"
                           "auth_verbose = no\nauth_failure_delay = 0\nauth_mechanisms = plain\n"
                           "mail_location = maildir:~/Maildir\n"
                           "service pop3-login {\n  inet_listener pop3 {\n    address = 127.0.0.1\n"
                           "    port = %2\n  }\n%4}\nservice anvil {\n  chroot =\n}\n"
                           "passdb {\n  driver = passwd-file\n  args = scheme=PLAIN username_format=%u %1/passwd\n}\n"
                           "userdb {\n  driver = passwd-file\n  args = username_format=%u %1/passwd\n}\n")
                .arg(root, QString::number(port), ssl, tlsListener);
        writeFile(root + QStringLiteral("/dovecot.conf"), conf.toUtf8());
        peer.terminateOnStop = true;
        if (!peer.start(program(), {QStringLiteral("-F"), QStringLiteral("-c"), root + QStringLiteral("/dovecot.conf")},
                        {})) {
            return false;
        }
        for (int i = 0; i < 100; ++i) {
            QTcpSocket s;
            s.connectToHost(QHostAddress::LocalHost, port);
            if (s.waitForConnected(100) && s.waitForReadyRead(2000)) {
                return true;
            }
            QThread::msleep(100);
        }
        return false;
    }

    QString log() const { return QString::fromUtf8(readFile(root + QStringLiteral("/dovecot.log"))); }

    // The message as it travels over POP (CR LF line ends), for size arithmetic.
    static QByteArray wire(const MailMessage& m)
    {
        QByteArray text = "Date: Mon, 23 Nov 2026 09:00:00 +0000\nFrom: " + m.from.toUtf8() +
                          "\nSubject: " + m.subject.toUtf8() + "\nMessage-ID: " + m.id.toUtf8() + "\n\n" + m.body;
        return text;
    }

    QTemporaryDir dir;
    QString root;
    quint16 port = 0;
    quint16 tlsPort = 0;
    PeerProcess peer;

private:
    QString m_cert;
    QString m_key;

    static void add(const QString& home, int n, const MailMessage& m)
    {
        writeFile(home + QStringLiteral("/Maildir/new/1700%1.M%1P1.kestrova").arg(n, 6, 10, QChar(u'0')), wire(m));
    }
    static void chownTree(const QString& path)
    {
        if (::chown(QFile::encodeName(path).constData(), kMailUid, kMailUid) != 0) {
            qWarning("chown failed for %s", qPrintable(path));
        }
        for (const QFileInfo& fi : QDir(path).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)) {
            if (fi.isDir()) {
                chownTree(fi.filePath());
            } else if (::chown(QFile::encodeName(fi.filePath()).constData(), kMailUid, kMailUid) != 0) {
                qWarning("chown failed");
            }
        }
    }
};

// A message whose size on the wire (LF counted as CR LF) is exactly `octets`.
inline MailMessage sizedMessage(const QString& id, qint64 octets)
{
    MailMessage m{QStringLiteral("Big Sender <big@example.test>"), QStringLiteral("Large"), id, {}};
    const QByteArray head = Dovecot::wire(m);
    const qint64 headOctets = head.size() + head.count('\n');
    // Body: one line of 'x' and its line end (2 octets on the wire).
    m.body = QByteArray(octets - headOctets - 2, 'x') + '\n';
    return m;
}

} // namespace kestrova::testing
