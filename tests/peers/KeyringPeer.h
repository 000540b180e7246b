#pragma once

#include "PeerProcess.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QFile>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/stat.h>

namespace kestrova::testing {

// A private session bus with GNOME Keyring's secret service on it, its login keyring made
// and unlocked with a test password, everything under a temporary home. The bus stays up
// when the keyring is stopped, for a session whose secret service is gone.
class KeyringPeer
{
public:
    static constexpr const char* kService = "org.freedesktop.secrets";

    static QString daemon() { return QStringLiteral("/usr/bin/gnome-keyring-daemon"); }

    // Starts the bus and the keyring; false with the reason in why.
    bool start(QString* why)
    {
        if (!m_dir.isValid()) {
            *why = QStringLiteral("no temporary folder");
            return false;
        }
        const QString runtime = m_dir.filePath(QStringLiteral("run"));
        ::mkdir(QFile::encodeName(runtime).constData(), 0700);
        m_env = QProcessEnvironment::systemEnvironment();
        m_env.insert(QStringLiteral("HOME"), m_dir.filePath(QStringLiteral("home")));
        m_env.insert(QStringLiteral("XDG_DATA_HOME"), m_dir.filePath(QStringLiteral("home/data")));
        m_env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_dir.filePath(QStringLiteral("home/config")));
        m_env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        // A bus that starts nothing by itself: the session bus's own configuration would
        // start the installed gnome-keyring-daemon for any call to a missing secret service.
        const QString config = m_dir.filePath(QStringLiteral("bus.conf"));
        QFile conf(config);
        if (!conf.open(QIODevice::WriteOnly) ||
            conf.write("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                       " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                       "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>\n"
                       "<policy context=\"default\"><allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                       "<allow own=\"*\"/>"
                       "</policy></busconfig>\n") < 0) {
            *why = QStringLiteral("cannot write ") + config;
            return false;
        }
        conf.close();
        m_bus.terminateOnStop = true;
        if (!m_bus.start(QStringLiteral("/usr/bin/dbus-daemon"),
                         {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                          QStringLiteral("--print-address=1"),
                          QStringLiteral("--address=unix:path=") + m_dir.filePath(QStringLiteral("bus"))},
                         QStringLiteral("unix:"), 15000, m_env)) {
            *why = QStringLiteral("dbus-daemon did not start: ") + QString::fromUtf8(m_bus.log());
            return false;
        }
        address = QString::fromUtf8(m_bus.log()).trimmed();
        m_env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
        return startKeyring(why);
    }

    bool startKeyring(QString* why)
    {
        QDBusConnection bus = QDBusConnection::connectToBus(address, QStringLiteral("kestrova-keyring-peer"));
        if (!bus.isConnected()) {
            *why = QStringLiteral("the private bus does not answer");
            return false;
        }
        m_keyring.terminateOnStop = true;
        // --unlock makes the login keyring with the password on standard input; an empty
        // password leaves the keyring without a collection here, so a test one is given.
        if (!m_keyring.start(
                daemon(),
                {QStringLiteral("--foreground"), QStringLiteral("--unlock"), QStringLiteral("--components=secrets")},
                {}, 15000, m_env)) {
            *why = QStringLiteral("gnome-keyring-daemon did not start: ") + QString::fromUtf8(m_keyring.log());
            return false;
        }
        m_keyring.process().write("kestrova-test");
        m_keyring.process().closeWriteChannel();
        if (!waitForService(bus, true)) {
            *why = QStringLiteral("gnome-keyring-daemon did not take %1 on the bus: ").arg(QLatin1String(kService)) +
                   QString::fromUtf8(m_keyring.process().readAllStandardError());
            return false;
        }
        return true;
    }

    void stopKeyring()
    {
        QDBusConnection bus = QDBusConnection::connectToBus(address, QStringLiteral("kestrova-keyring-peer"));
        m_keyring.stop();
        waitForService(bus, false);
    }

    // The environment of a program that runs in this session.
    QProcessEnvironment environment() const { return m_env; }

    // What the keyring holds for a Kestrova secret, asked from outside the program; a null
    // string when it holds nothing.
    QString lookup(const QString& name) const
    {
        QProcess tool;
        tool.setProcessEnvironment(m_env);
        tool.start(QStringLiteral("secret-tool"), {QStringLiteral("lookup"), QStringLiteral("server"),
                                                   QStringLiteral("Kestrova"), QStringLiteral("user"), name});
        tool.closeWriteChannel();
        if (!tool.waitForFinished(15000) || tool.exitCode() != 0) {
            return {};
        }
        return QString::fromUtf8(tool.readAllStandardOutput());
    }

    QString address;

private:
    // Waits in the event loop, up to 15 s, until the service is on the bus (or gone).
    static bool waitForService(QDBusConnection& bus, bool present)
    {
        auto there = [&bus] { return bus.interface()->isServiceRegistered(QLatin1String(kService)).value(); };
        if (there() == present) {
            return true;
        }
        QDBusServiceWatcher watcher(QLatin1String(kService), bus,
                                    present ? QDBusServiceWatcher::WatchForRegistration
                                            : QDBusServiceWatcher::WatchForUnregistration);
        QEventLoop loop;
        QObject::connect(&watcher, &QDBusServiceWatcher::serviceRegistered, &loop, &QEventLoop::quit);
        QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, &loop, &QEventLoop::quit);
        QTimer::singleShot(15000, &loop, &QEventLoop::quit);
        if (there() != present) {
            loop.exec();
        }
        return there() == present;
    }

    QTemporaryDir m_dir;
    QProcessEnvironment m_env;
    PeerProcess m_bus;
    PeerProcess m_keyring;
};

} // namespace kestrova::testing
