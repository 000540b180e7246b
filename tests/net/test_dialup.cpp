// Dial-up through NetworkManager, against dbusmock's NetworkManager on a private bus.
#include "PeerProcess.h"
#include "ServicesRig.h"
#include "TestHost.h"
#include "TestUtil.h"

#include "core/Options.h"
#include "net/DialupConnection.h"
#include "net/NmDialBackend.h"
#include "net/RasDialer.h"
#include "net/RasTables.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Services.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

using namespace kestrova;
using kestrova::testing::PeerProcess;

namespace {

const QString kHelper = QStringLiteral(KESTROVA_PEERS_DIR "/nm_peer.py");
const QString kEntry = QStringLiteral("Dial ISP");

struct Rig : kestrova::testing::ServicesRig
{
    core::ConnectionOptions options;

    Rig()
    {
        options.type = 0;
        options.entry = kEntry;
        options.timeout = 5;
    }
};

// Runs the helper against the private bus; returns its standard output.
QString helper(const QStringList& args, bool* ok = nullptr)
{
    QProcess p;
    p.start(kestrova::testing::systemPython(), QStringList{kHelper} + args);
    const bool done = p.waitForFinished(15000) && p.exitCode() == 0;
    if (ok) {
        *ok = done;
    }
    if (!done) {
        qWarning("nm_peer.py %s: %s", qPrintable(args.join(u' ')), p.readAllStandardError().constData());
    }
    return QString::fromUtf8(p.readAllStandardOutput());
}

bool helperSucceeds(const QStringList& args)
{
    bool ok = false;
    helper(args, &ok);
    return ok;
}

} // namespace

class TestDialup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QFileInfo(QStringLiteral("/usr/bin/dbus-daemon")).isExecutable()) {
            QSKIP("dbus-daemon is not installed (scripts/install-deps.sh --test installs it)");
        }
        if (QProcess::execute(kestrova::testing::systemPython(),
                              {QStringLiteral("-c"), QStringLiteral("import dbusmock")}) != 0) {
            QSKIP("python3-dbusmock is not installed (scripts/install-deps.sh --test installs it)");
        }
        const QString address = QStringLiteral("unix:path=") + m_dir.filePath(QStringLiteral("bus"));
        QVERIFY(m_bus.start(QStringLiteral("/usr/bin/dbus-daemon"),
                            {QStringLiteral("--session"), QStringLiteral("--nofork"),
                             QStringLiteral("--print-address=1"), QStringLiteral("--address=") + address},
                            QStringLiteral("unix:")));
        m_bus.terminateOnStop = true;
        m_address = QString::fromUtf8(m_bus.log()).trimmed();
        // NetworkManager lives on the system bus; this process and its helpers use ours.
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_address.toUtf8());
        QVERIFY(QDBusConnection::systemBus().isConnected());
    }

    void cleanupTestCase() { m_bus.stop(); }

    void cleanup() { stopNetworkManager(); }

    void stateNames_data()
    {
        QTest::addColumn<int>("platformState");
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("name");
        QTest::newRow("first") << 0 << 0 << "OpenPort";
        QTest::newRow("the one with a blank") << 3 << 3 << "Device Connected";
        QTest::newRow("last plain") << 18 << 18 << "Projected";
        QTest::newRow("first paused") << 4096 << 19 << "Interactive";
        QTest::newRow("last paused") << 4099 << 22 << "PasswordExpired";
        QTest::newRow("done") << 8192 << 23 << "Connected";
        QTest::newRow("disconnected") << 8193 << 24 << "Disconnected";
        QTest::newRow("gap after plain") << 19 << -1 << "";
        QTest::newRow("after paused") << 4100 << -1 << "";
        QTest::newRow("negative") << -1 << -1 << "";
    }
    void stateNames()
    {
        QFETCH(int, platformState);
        QFETCH(int, index);
        QFETCH(QString, name);
        QCOMPARE(net::rasStateIndex(platformState), index);
        QCOMPARE(net::rasStateName(index), name);
    }

    // A number's name, or (reason >= 0) the name of the error a NetworkManager reason maps to.
    void errorNames_data()
    {
        QTest::addColumn<int>("reason");
        QTest::addColumn<int>("number");
        QTest::addColumn<QString>("name");
        // clang-format off
        QTest::newRow("success") << -1 << 0 << "SUCCESS";
        QTest::newRow("first") << -1 << 600 << "PENDING";
        QTest::newRow("last") << -1 << 750 << "ERROR_WRONG_MODULE";
        QTest::newRow("below") << -1 << 599 << "";
        QTest::newRow("above") << -1 << 751 << "";
        QTest::newRow("reason unknown is a plain hang-up") << 0 << 0 << "SUCCESS";
        QTest::newRow("reason none is a plain hang-up") << 1 << 0 << "SUCCESS";
        QTest::newRow("reason user") << 2 << 0 << "ERROR_USER_DISCONNECTION";
        QTest::newRow("reason device gone") << 3 << 0 << "ERROR_PORT_DISCONNECTED";
        QTest::newRow("reason ip") << 5 << 0 << "ERROR_IP_CONFIGURATION";
        QTest::newRow("reason no secrets") << 9 << 0 << "ERROR_AUTHENTICATION_FAILURE";
        QTest::newRow("reason removed") << 11 << 0 << "ERROR_CANNOT_FIND_PHONEBOOK_ENTRY";
        QTest::newRow("reason device removed") << 14 << 0 << "ERROR_DEVICE_DOES_NOT_EXIST";
        QTest::newRow("future reason") << 99 << 0 << "SUCCESS";
        // clang-format on
    }
    void errorNames()
    {
        QFETCH(int, reason);
        QFETCH(int, number);
        QFETCH(QString, name);
        if (reason >= 0)
            number = net::NmDialBackend::errorForReason(uint(reason));
        QCOMPARE(net::rasErrorName(number), name);
    }

    void errorTableIsFilledAndDistinct()
    {
        QSet<QString> seen;
        for (int n = 600; n <= 750; ++n) {
            const QString name = net::rasErrorName(n);
            QVERIFY2(!name.isEmpty(), qPrintable(QString::number(n)));
            QVERIFY2(!seen.contains(name), qPrintable(name));
            seen.insert(name);
        }
        QCOMPARE(seen.size(), 151);
    }

    // The state event: its text for the terminal and the log, and the connected flag.
    void stateEvents_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("connectedAfter");
        // The flag is set before each event, so "true" after means the event left it alone.
        QTest::newRow("done") << 8192 << 0 << "Connected!" << true;
        QTest::newRow("device connected keeps the flag") << 3 << 0 << "Device Connected" << true;
        QTest::newRow("authenticated keeps the flag") << 14 << 0 << "Authenticated" << true;
        QTest::newRow("disconnected") << 8193 << 0 << "Disconnected" << false;
        QTest::newRow("other state clears") << 5 << 0 << "Authenticate" << false;
        QTest::newRow("paused state") << 4097 << 0 << "RetryAuthentication" << false;
        QTest::newRow("unmapped state") << 30 << 0 << "State = 30" << false;
        QTest::newRow("error 600 is still a state") << 2 << 600 << "ConnectDevice" << false;
        QTest::newRow("error") << 2 << 691 << "Error: ERROR_AUTHENTICATION_FAILURE" << true;
        QTest::newRow("first error") << 0 << 601 << "Error: ERROR_INVALID_PORT_HANDLE" << true;
    }
    void stateEvents()
    {
        QFETCH(int, state);
        QFETCH(int, error);
        QFETCH(QString, text);
        QFETCH(bool, connectedAfter);
        Rig rig;
        net::NmDialBackend backend;
        net::RasDialer dialer(rig.services, rig.options, backend);
        dialer.stateEvent(8192, 0);
        rig.host.terminal.clear();
        dialer.stateEvent(state, error);
        QCOMPARE(rig.host.terminal, text + QStringLiteral("\r\n"));
        QVERIFY(rig.activity().endsWith(QStringLiteral("\r\n")));
        QVERIFY(rig.activity().contains(QStringLiteral("\r\n") + text + u' '));
        QCOMPARE(dialer.connected(), connectedAfter);
    }

    void directAndExternalDialNothing_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QStringList>("statusTexts");
        QTest::newRow("direct") << 1 << QStringList{QStringLiteral("Connecting")};
        QTest::newRow("external dialer") << 2 << QStringList{};
    }
    void directAndExternalDialNothing()
    {
        QFETCH(int, type);
        QFETCH(QStringList, statusTexts);
        Rig rig;
        rig.options.type = static_cast<qint16>(type);
        net::DialupConnection conn(rig.services, rig.options);
        QVERIFY(conn.connect());
        QCOMPARE(rig.host.statusTexts, statusTexts);
        QVERIFY(rig.host.messages.isEmpty()); // not even the missing-manager box
        QVERIFY(rig.activity().isEmpty());
        conn.hangUp();
        QVERIFY(rig.activity().isEmpty());
    }

    void connectsAndHangsUp()
    {
        startWithEntry();
        Rig rig;
        net::DialupConnection conn(rig.services, rig.options);
        QVERIFY(conn.connect());
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Connecting to Dial ISP ")));
        QVERIFY(log.contains(QStringLiteral("Connected! ")));
        QVERIFY(rig.host.statusTexts.contains(QStringLiteral("Connecting to Dial ISP")));
        QVERIFY(rig.host.terminal.contains(QStringLiteral("Connected!\r\n")));
        QVERIFY(rig.host.messages.isEmpty());
        QVERIFY(conn.dialer().connected());
        QCOMPARE(helper({QStringLiteral("active-ids")}).trimmed(), kEntry);
        conn.hangUp();
        QVERIFY(!rig.activity().contains(QStringLiteral("Error in RASHangup")));
        QVERIFY(!conn.dialer().connected());
    }

    void alreadyConnected()
    {
        startWithEntry();
        QVERIFY(helperSucceeds({QStringLiteral("activate"), kEntry}));
        Rig rig;
        net::DialupConnection conn(rig.services, rig.options);
        QVERIFY(conn.connect());
        const QString log = rig.activity();
        QVERIFY(log.contains(QStringLiteral("Connected to Dial ISP ")));
        QVERIFY(!log.contains(QStringLiteral("Connecting to")));
        QCOMPARE(helper({QStringLiteral("active-ids")}).trimmed(), kEntry); // not dialled a second time
        // Not ours to close.
        conn.hangUp();
        QCOMPARE(helper({QStringLiteral("active-ids")}).trimmed(), kEntry);
    }

    // Failures: four attempts, each with its error event, then the one failure line.
    void failsFourTimes_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QStringList>("mode");
        QTest::addColumn<QString>("eventLine");
        QTest::newRow("log-on refused") << kEntry << QStringList{QStringLiteral("fail"), QStringLiteral("10")}
                                        << "Error: ERROR_AUTHENTICATION_FAILURE";
        QTest::newRow("line gave up") << kEntry << QStringList{QStringLiteral("fail"), QStringLiteral("6")}
                                      << "Error: ERROR_PPP_TIMEOUT";
        QTest::newRow("no such entry") << QStringLiteral("Nowhere") << QStringList{}
                                       << "Error: ERROR_CANNOT_FIND_PHONEBOOK_ENTRY";
    }
    void failsFourTimes()
    {
        QFETCH(QString, entry);
        QFETCH(QStringList, mode);
        QFETCH(QString, eventLine);
        startWithEntry(mode);
        Rig rig;
        rig.options.entry = entry;
        rig.options.timeout = 30;
        net::DialupConnection conn(rig.services, rig.options);
        const QDateTime start = rig.clock.now();
        QVERIFY(!conn.connect());
        const QString log = rig.activity();
        QCOMPARE(log.count(eventLine + u' '), 4);
        QCOMPARE(log.count(QStringLiteral("Unable to connect to the internet. ")), 1);
        QCOMPARE(rig.host.failures,
                 QStringList{u"Dial-up connection \"" + entry + u"\" failed after 4 attempts: " + eventLine.mid(7)});
        QCOMPARE(rig.host.statusTexts.count(QStringLiteral("...Retrying...")), 3);
        // Each attempt ended on its error, long before its 30-second time-out.
        QVERIFY(start.secsTo(rig.clock.now()) < 4 * 30);
        QVERIFY(!conn.dialer().connected());
    }

    void timesOut()
    {
        startWithEntry({QStringLiteral("hang")});
        Rig rig;
        rig.options.timeout = 3;
        net::DialupConnection conn(rig.services, rig.options);
        conn.dialer().setRetryPauseSeconds(2);
        const QDateTime start = rig.clock.now();
        QVERIFY(!conn.connect());
        const qint64 elapsed = start.secsTo(rig.clock.now());
        // Four waits of 3 s and three pauses of 2 s.
        QVERIFY2(elapsed >= 4 * 3 + 3 * 2 && elapsed <= 4 * 3 + 3 * 2 + 2, qPrintable(QString::number(elapsed)));
        const QString log = rig.activity();
        QCOMPARE(log.count(QStringLiteral("ConnectDevice ")), 4);
        QCOMPARE(log.count(QStringLiteral("Unable to connect to the internet. ")), 1);
        QCOMPARE(rig.host.failures,
                 QStringList{u"Dial-up connection \"" + kEntry + u"\" timed out after 3 s (4 attempts)"});
    }

    void cancelEndsTheWait()
    {
        startWithEntry({QStringLiteral("hang")});
        Rig rig;
        rig.options.timeout = 60;
        int yields = 0;
        rig.host.onYield = [&] {
            if (++yields == 20) {
                rig.cancel.set();
            }
        };
        net::DialupConnection conn(rig.services, rig.options);
        QVERIFY(!conn.connect());
        QVERIFY(!rig.activity().contains(QStringLiteral("Unable to connect")));
        QVERIFY(rig.host.failures.isEmpty());
        QVERIFY(!rig.host.statusTexts.contains(QStringLiteral("...Retrying...")));
        QVERIFY(yields < 100);
    }

    void noNetworkManager()
    {
        // The bus is up but nothing owns NetworkManager's name.
        Rig rig;
        net::DialupConnection conn(rig.services, rig.options);
        QVERIFY(conn.connect()); // works on, over whatever link there is
        QCOMPARE(rig.host.messages,
                 QStringList{QStringLiteral("NetworkManager is missing or not running.  NetworkManager and dial-up "
                                            "networking must be installed on PC to initiate a dial-up connection.")});
        QVERIFY(conn.connect());
        QCOMPARE(rig.host.messages.size(), 1); // told once
        conn.hangUp();
        QVERIFY(!rig.activity().contains(QStringLiteral("Error in")));
    }

private:
    void startNetworkManager()
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), m_address);
        m_nm = std::make_unique<PeerProcess>();
        m_nm->terminateOnStop = true;
        QVERIFY(m_nm->start(kestrova::testing::systemPython(),
                            {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--template"),
                             QStringLiteral("networkmanager")},
                            {}, 15000, env));
        QDBusConnectionInterface* bus = QDBusConnection::systemBus().interface();
        for (int i = 0; i < 150 && !bus->isServiceRegistered(QStringLiteral("org.freedesktop.NetworkManager")); ++i) {
            QTest::qWait(100);
        }
        QVERIFY(bus->isServiceRegistered(QStringLiteral("org.freedesktop.NetworkManager")));
    }
    void stopNetworkManager()
    {
        if (m_nm) {
            m_nm->stop();
            m_nm.reset();
        }
        QDBusConnectionInterface* bus = QDBusConnection::systemBus().interface();
        for (int i = 0; i < 50 && bus && bus->isServiceRegistered(QStringLiteral("org.freedesktop.NetworkManager"));
             ++i) {
            QTest::qWait(100);
        }
    }
    // NetworkManager with the test's entry, its dial-up behaving as mode says ("fail 10",
    // "hang"; empty: it connects).
    void startWithEntry(const QStringList& mode = {})
    {
        startNetworkManager();
        QVERIFY(helperSucceeds({QStringLiteral("add-connection"), kEntry}));
        if (!mode.isEmpty()) {
            QVERIFY(helperSucceeds(QStringList{QStringLiteral("mode")} + mode));
        }
    }

    QTemporaryDir m_dir;
    PeerProcess m_bus;
    QString m_address;
    std::unique_ptr<PeerProcess> m_nm;
};

QTEST_GUILESS_MAIN(TestDialup)
#include "test_dialup.moc"
