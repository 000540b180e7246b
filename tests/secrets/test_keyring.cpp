#include "secrets/FileSecrets.h"
#include "secrets/KeychainSecrets.h"
#include "secrets/SecretStore.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include "CliRun.h"
#include "KeyringPeer.h"
#include "TestUtil.h"

#include <QDBusVirtualObject>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTest>

#include <ctime>
#include <sys/stat.h>

using namespace kestrova;
using kestrova::testing::readFile;

namespace {

int modeOf(const QString& path)
{
    struct stat st = {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

// Nanoseconds this thread has been running or ready to run (waiting for a processor), from
// the scheduler's own count. A thread that sleeps adds almost nothing; one that polls adds
// about the whole time, however busy the machine is.
qint64 threadBusyNs()
{
    QFile stat(QStringLiteral("/proc/thread-self/schedstat"));
    if (!stat.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QList<QByteArray> fields = stat.readAll().split(' ');
    return fields.size() < 2 ? -1 : fields[0].toLongLong() + fields[1].toLongLong();
}

QString secretsFolder()
{
    return secrets::FileSecrets::defaultFolder();
}

// A secret service that takes every call and never answers.
class SilentService : public QDBusVirtualObject
{
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage&, const QDBusConnection&) override { return true; }
};

} // namespace

class TestKeyring : public QObject
{
    Q_OBJECT

    kestrova::testing::KeyringPeer m_peer;

    // kestrova-cli in this session (or, with busAddress set, on that bus) and its settings
    // under dir/config.
    kestrova::testing::CliRun cli(const QTemporaryDir& dir, const QStringList& args, const QByteArray& input = {},
                                  const QString& busAddress = {})
    {
        const QByteArray saved = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        if (!busAddress.isEmpty()) {
            qputenv("DBUS_SESSION_BUS_ADDRESS", busAddress.toUtf8());
        }
        const auto r = kestrova::testing::runCli(dir, args, 60000, input);
        qputenv("DBUS_SESSION_BUS_ADDRESS", saved);
        return r;
    }

private Q_SLOTS:
    void initTestCase()
    {
        for (const char* tool : {"/usr/bin/dbus-daemon", "/usr/bin/gnome-keyring-daemon", "/usr/bin/secret-tool"}) {
            if (!QFileInfo(QString::fromLatin1(tool)).isExecutable()) {
                QSKIP(qPrintable(QStringLiteral("%1 is not installed (scripts/install-deps.sh --test installs it)")
                                     .arg(QLatin1String(tool))));
            }
        }
        QString why;
        QVERIFY2(m_peer.start(&why), qPrintable(why));
        // This process's session is the private one from here on.
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_peer.address.toUtf8());
        QVERIFY(secrets::KeychainSecrets::serviceRunning());
        QDir(secretsFolder()).removeRecursively();
        QFile::remove(settings::SettingsStore().fileName());
    }

    // A service that takes a call and never answers holds a command up for the bound, not
    // for ever, and the next call goes through once it is gone. (First, while this process
    // has no session with the keyring yet: the keyring that comes back is a new one, and
    // the secret service library keeps a session it opened for the life of the process.)
    void silentServiceIsWaitedForWithinTheBound()
    {
        m_peer.stopKeyring();
        SilentService service;
        {
            QDBusConnection silent = QDBusConnection::connectToBus(m_peer.address, QStringLiteral("silent-secrets"));
            QVERIFY(silent.isConnected());
            QVERIFY(silent.registerVirtualObject(QStringLiteral("/org/freedesktop/secrets"), &service,
                                                 QDBusConnection::SubPath));
            QVERIFY(silent.registerService(QLatin1String(kestrova::testing::KeyringPeer::kService)));
        }
        QVERIFY(secrets::KeychainSecrets::serviceRunning());
        QElapsedTimer wall;
        wall.start();
        const qint64 busyBefore = threadBusyNs();
        const secrets::SecretRead r = secrets::KeychainSecrets(1000).read(QStringLiteral("SourceKey_none"));
        const double busy = double(threadBusyNs() - busyBefore) / 1e6 / double(wall.elapsed());
        const qint64 waited = wall.elapsed();

        // The silent service leaves without answering, so the bus fails the call it held;
        // the keyring comes back (for the tests after this one too) and answers the next one.
        QDBusConnection::disconnectFromBus(QStringLiteral("silent-secrets"));
        QString why;
        QVERIFY2(m_peer.startKeyring(&why), qPrintable(why));

        QVERIFY(!r.found);
        QVERIFY2(r.error.contains(QStringLiteral("did not answer within 1 seconds")), qPrintable(r.error));
        // The bound holds (the bus's own time-out is 25 s), and the second of waiting is
        // spent asleep in the event loop: a loop that polled would be busy all of it.
        QVERIFY2(waited < 10000, qPrintable(QString::number(waited)));
        QVERIFY(busyBefore >= 0);
        QVERIFY2(busy < 0.5, qPrintable(QStringLiteral("busy %1 of the wait").arg(busy)));
        const secrets::SecretRead after = secrets::KeychainSecrets(20000).read(QStringLiteral("SourceKey_none"));
        QVERIFY2(after.error.isEmpty(), qPrintable(after.error));
        QVERIFY(!after.found);
    }

    // Stored, read back, overwritten and deleted in the keyring itself (asked from outside
    // with secret-tool), never in a file.
    void keyringHoldsTheKey_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        // clang-format off
        QTest::newRow("plain") << "k3y-1" << "k3y-2";
        QTest::newRow("beyond ASCII") << "Schl\u00fcssel-\u20ac" << "cl\u00e9";
        QTest::newRow("long") << QString(2000, u'x') << QString(3, u'y');
        // clang-format on
    }
    void keyringHoldsTheKey()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        const QString name = QStringLiteral("SourceKey_") + QString::fromLatin1(QTest::currentDataTag()).remove(u' ');
        secrets::SecretStore store;
        QVERIFY(store.usesSecretService());
        QString error;
        QVERIFY2(store.write(name, first, &error), qPrintable(error));
        QCOMPARE(m_peer.lookup(name), first);
        QCOMPARE(secrets::SecretStore().read(name, &error), first);
        QCOMPARE(error, QString());

        QVERIFY2(store.write(name, second, &error), qPrintable(error));
        QCOMPARE(m_peer.lookup(name), second);
        QCOMPARE(secrets::SecretStore().read(name), second);

        QVERIFY2(store.write(name, QString(), &error), qPrintable(error));
        QCOMPARE(m_peer.lookup(name), QString());
        QCOMPARE(secrets::SecretStore().read(name, &error), QString());
        QCOMPARE(error, QString());
        QVERIFY(!QFileInfo::exists(secretsFolder() + u'/' + name));
    }

    // An older version's scrambled key in the settings store moves into the keyring.
    void olderKeyMovesIntoTheKeyring()
    {
        {
            settings::SettingsStore store;
            store.save(settings::kSettingsSection, QStringLiteral("SourceKey_old"),
                       QStringLiteral("scrambled:AEgcGBZCQlM="));
            QVERIFY(store.sync());
        }
        QCOMPARE(secrets::SecretStore().read(QStringLiteral("SourceKey_old")), QStringLiteral("K-old-42"));
        QCOMPARE(m_peer.lookup(QStringLiteral("SourceKey_old")), QStringLiteral("K-old-42"));
        QVERIFY(!readFile(settings::SettingsStore().fileName()).contains("SourceKey_old"));
        QVERIFY(!QFileInfo::exists(secretsFolder() + QStringLiteral("/SourceKey_old")));
    }

    // A key kept in a file while no service ran is still found; once changed it lives in
    // the keyring only.
    void fileCopyGivesWayToTheKeyring()
    {
        QVERIFY(secrets::FileSecrets(secretsFolder()).write(QStringLiteral("SourceKey_filed"), "from-file").isEmpty());
        QCOMPARE(secrets::SecretStore().read(QStringLiteral("SourceKey_filed")), QStringLiteral("from-file"));
        QVERIFY(secrets::SecretStore().write(QStringLiteral("SourceKey_filed"), QStringLiteral("renewed")));
        QCOMPARE(m_peer.lookup(QStringLiteral("SourceKey_filed")), QStringLiteral("renewed"));
        QVERIFY(!QFileInfo::exists(secretsFolder() + QStringLiteral("/SourceKey_filed")));
    }

    // The command line reaches the keyring the same way, and shows the key as *** only.
    void commandLineUsesTheKeyring()
    {
        QTemporaryDir dir;
        const auto set = cli(dir, {"options", "set", "sources.key.alphavantage", "-"}, "cli-k3y\n");
        QVERIFY2(set.code == 0, qPrintable(set.err));
        QCOMPARE(m_peer.lookup(QStringLiteral("SourceKey_alphavantage")), QStringLiteral("cli-k3y"));
        QVERIFY(!QFileInfo::exists(dir.filePath(QStringLiteral("config/Kestrova/secrets/SourceKey_alphavantage"))));
        QCOMPARE(cli(dir, {"options", "get", "sources.key.alphavantage"}).out.trimmed(), QStringLiteral("***"));
        const auto list = cli(dir, {"options", "list"});
        QVERIFY(list.out.contains(QStringLiteral("sources.key.alphavantage     password  ***\n")));
        QVERIFY(!QString(list.out + list.err + set.out + set.err).contains(QStringLiteral("cli-k3y")));
        QVERIFY(!readFile(dir.filePath(QStringLiteral("config/Kestrova/Kestrova.ini"))).contains("cli-k3y"));
        QVERIFY(secrets::SecretStore().write(QStringLiteral("SourceKey_alphavantage"), QString()));
    }

    // Without a secret service (none on the bus, or no bus at all) the key goes to a file
    // only the user can read, in a folder only the user can enter.
    void fallbackIsAPrivateFile_data()
    {
        QTest::addColumn<bool>("bus");
        QTest::newRow("bus without a secret service") << true;
        QTest::newRow("no session bus") << false;
    }
    void fallbackIsAPrivateFile()
    {
        QFETCH(bool, bus);
        m_peer.stopKeyring();
        QTemporaryDir dir;
        const QString address = bus ? m_peer.address : QStringLiteral("unix:path=") + dir.filePath("no-bus");
        const auto set = cli(dir, {"options", "set", "sources.key.finnhub", "-"}, "file-k3y\n", address);
        QVERIFY2(set.code == 0, qPrintable(set.err));
        const QString folder = dir.filePath(QStringLiteral("config/Kestrova/secrets"));
        QCOMPARE(readFile(folder + QStringLiteral("/SourceKey_finnhub")), QByteArray("file-k3y"));
        QCOMPARE(modeOf(folder), 0700);
        QCOMPARE(modeOf(folder + QStringLiteral("/SourceKey_finnhub")), 0600);
        QVERIFY(!readFile(dir.filePath(QStringLiteral("config/Kestrova/Kestrova.ini"))).contains("file-k3y"));
        QCOMPARE(cli(dir, {"options", "get", "sources.key.finnhub"}, {}, address).out.trimmed(), QStringLiteral("***"));
    }

    void cleanupTestCase() { m_peer.stopKeyring(); }
};

QTEST_GUILESS_MAIN(TestKeyring)
#include "test_keyring.moc"
