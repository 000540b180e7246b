#include "net/NmDialBackend.h"

#include "net/RasTables.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDBusVariant>

namespace kestrova::net {

namespace {

const QString kService = QStringLiteral("org.freedesktop.NetworkManager");
const QString kManagerPath = QStringLiteral("/org/freedesktop/NetworkManager");
const QString kManagerIface = QStringLiteral("org.freedesktop.NetworkManager");
const QString kSettingsPath = QStringLiteral("/org/freedesktop/NetworkManager/Settings");
const QString kSettingsIface = QStringLiteral("org.freedesktop.NetworkManager.Settings");
const QString kConnectionIface = QStringLiteral("org.freedesktop.NetworkManager.Settings.Connection");
const QString kActiveIface = QStringLiteral("org.freedesktop.NetworkManager.Connection.Active");
const QString kProps = QStringLiteral("org.freedesktop.DBus.Properties");

// NMActiveConnectionState
constexpr uint kActivating = 1;
constexpr uint kActivated = 2;
constexpr uint kDeactivated = 4;

// A state number NetworkManager reports that has no dial-up counterpart.
constexpr int kNoCounterpart = 65535;

QVariant nmProperty(const QDBusConnection& bus, const QString& path, const QString& iface, const QString& name,
                    QString* error)
{
    QDBusMessage m = QDBusMessage::createMethodCall(kService, path, kProps, QStringLiteral("Get"));
    m << iface << name;
    const QDBusMessage r = bus.call(m, QDBus::Block, 5000);
    if (r.type() != QDBusMessage::ReplyMessage || r.arguments().isEmpty()) {
        if (error) {
            *error = r.errorMessage().isEmpty() ? r.errorName() : r.errorMessage();
        }
        return {};
    }
    return r.arguments().constFirst().value<QDBusVariant>().variant();
}

QList<QDBusObjectPath> pathList(const QVariant& v)
{
    QList<QDBusObjectPath> out;
    if (v.canConvert<QDBusArgument>()) {
        const QDBusArgument arg = v.value<QDBusArgument>();
        arg >> out;
    } else {
        out = v.value<QList<QDBusObjectPath>>();
    }
    return out;
}

} // namespace

NmDialBackend::NmDialBackend(QObject* parent) : QObject(parent) {}

NmDialBackend::NmDialBackend(QDBusConnection bus, QObject* parent) : QObject(parent), m_bus(std::move(bus)) {}

QDBusConnection& NmDialBackend::bus()
{
    if (!m_bus) {
        m_bus = QDBusConnection::systemBus();
    }
    return *m_bus;
}

bool NmDialBackend::available(QString* error)
{
    if (!bus().isConnected()) {
        *error = QStringLiteral("no system bus");
        return false;
    }
    const QDBusReply<bool> r = bus().interface()->isServiceRegistered(kService);
    if (!r.isValid() || !r.value()) {
        *error = QStringLiteral("NetworkManager is not on the bus");
        return false;
    }
    return true;
}

QString NmDialBackend::activePathFor(const QString& entry, QString* error)
{
    const QVariant v = nmProperty(bus(), kManagerPath, kManagerIface, QStringLiteral("ActiveConnections"), error);
    if (!v.isValid()) {
        return {};
    }
    for (const QDBusObjectPath& p : pathList(v)) {
        const QString id = nmProperty(bus(), p.path(), kActiveIface, QStringLiteral("Id"), nullptr).toString();
        if (id == entry) {
            return p.path();
        }
    }
    return {};
}

bool NmDialBackend::isConnected(const QString& entry, QString* error)
{
    error->clear();
    const QString path = activePathFor(entry, error);
    if (path.isEmpty()) {
        return false;
    }
    return nmProperty(bus(), path, kActiveIface, QStringLiteral("State"), error).toUInt() == kActivated;
}

QString NmDialBackend::settingsPathFor(const QString& entry, QString* error)
{
    const QDBusMessage m =
        QDBusMessage::createMethodCall(kService, kSettingsPath, kSettingsIface, QStringLiteral("ListConnections"));
    const QDBusMessage r = bus().call(m, QDBus::Block, 5000);
    if (r.type() != QDBusMessage::ReplyMessage || r.arguments().isEmpty()) {
        *error = r.errorName();
        return {};
    }
    for (const QDBusObjectPath& p : pathList(r.arguments().constFirst())) {
        const QDBusMessage gm =
            QDBusMessage::createMethodCall(kService, p.path(), kConnectionIface, QStringLiteral("GetSettings"));
        const QDBusMessage gr = bus().call(gm, QDBus::Block, 5000);
        if (gr.type() != QDBusMessage::ReplyMessage || gr.arguments().isEmpty()) {
            continue;
        }
        // a{sa{sv}}: walk it by hand so no meta types need registering.
        const QDBusArgument arg = gr.arguments().constFirst().value<QDBusArgument>();
        QString id;
        arg.beginMap();
        while (!arg.atEnd()) {
            QString group;
            QVariantMap values;
            arg.beginMapEntry();
            arg >> group >> values;
            arg.endMapEntry();
            if (group == QLatin1String("connection")) {
                id = values.value(QStringLiteral("id")).toString();
            }
        }
        arg.endMap();
        if (id == entry) {
            return p.path();
        }
    }
    return {};
}

void NmDialBackend::dial(const QString& entry)
{
    unwatch();
    const quint64 attempt = ++m_attempt;
    QString error;
    const QString settings = settingsPathFor(entry, &error);
    if (settings.isEmpty()) {
        report(0, error.isEmpty() ? 623 : errorForDBusError(error)); // ERROR_CANNOT_FIND_PHONEBOOK_ENTRY
        return;
    }
    QDBusMessage m =
        QDBusMessage::createMethodCall(kService, kManagerPath, kManagerIface, QStringLiteral("ActivateConnection"));
    m << QVariant::fromValue(QDBusObjectPath(settings)) << QVariant::fromValue(QDBusObjectPath(QStringLiteral("/")))
      << QVariant::fromValue(QDBusObjectPath(QStringLiteral("/")));
    auto* watcher = new QDBusPendingCallWatcher(bus().asyncCall(m, 30000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, attempt](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        if (attempt != m_attempt) {
            return; // an abandoned attempt
        }
        const QDBusPendingReply<QDBusObjectPath> reply = *w;
        if (reply.isError()) {
            report(0, errorForDBusError(reply.error().name()));
            return;
        }
        const QString active = reply.value().path();
        watch(active);
        const uint state = nmProperty(bus(), active, kActiveIface, QStringLiteral("State"), nullptr).toUInt();
        onActiveStateChanged(state, 0);
    });
}

void NmDialBackend::abortDial()
{
    ++m_attempt;
    const QString active = m_watched;
    unwatch();
    if (active.isEmpty()) {
        return;
    }
    QDBusMessage m =
        QDBusMessage::createMethodCall(kService, kManagerPath, kManagerIface, QStringLiteral("DeactivateConnection"));
    m << QVariant::fromValue(QDBusObjectPath(active));
    bus().call(m, QDBus::Block, 5000);
}

bool NmDialBackend::hangUp(const QString& entry, QString* error)
{
    unwatch();
    error->clear();
    const QString active = activePathFor(entry, error);
    if (active.isEmpty()) {
        if (error->isEmpty()) {
            *error = QStringLiteral("no active connection named ") + entry;
        }
        return false;
    }
    QDBusMessage m =
        QDBusMessage::createMethodCall(kService, kManagerPath, kManagerIface, QStringLiteral("DeactivateConnection"));
    m << QVariant::fromValue(QDBusObjectPath(active));
    const QDBusMessage r = bus().call(m, QDBus::Block, 5000);
    if (r.type() == QDBusMessage::ErrorMessage) {
        *error = r.errorMessage().isEmpty() ? r.errorName() : r.errorMessage();
        return false;
    }
    return true;
}

void NmDialBackend::watch(const QString& activePath)
{
    m_watched = activePath;
    bus().connect(kService, activePath, kActiveIface, QStringLiteral("StateChanged"), this,
                  SLOT(onActiveStateChanged(uint, uint)));
}

void NmDialBackend::unwatch()
{
    if (!m_watched.isEmpty()) {
        bus().disconnect(kService, m_watched, kActiveIface, QStringLiteral("StateChanged"), this,
                         SLOT(onActiveStateChanged(uint, uint)));
        m_watched.clear();
    }
}

void NmDialBackend::onActiveStateChanged(uint state, uint reason)
{
    if (state == kDeactivated) {
        const int error = errorForReason(reason);
        if (error != 0) {
            report(0, error);
        } else {
            report(kRasStateDisconnected, 0);
        }
        return;
    }
    if (state == 3) {
        return; // deactivating: the deactivated event that follows carries the reason
    }
    report(platformStateFor(state), 0);
}

void NmDialBackend::report(int state, int error)
{
    if (stateHandler) {
        stateHandler(state, error);
    }
}

int NmDialBackend::platformStateFor(uint nmState)
{
    switch (nmState) {
    case kActivating:
        return 2; // ConnectDevice
    case kActivated:
        return kRasStateConnected;
    case kDeactivated:
        return kRasStateDisconnected;
    default:
        return kNoCounterpart;
    }
}

int NmDialBackend::errorForReason(uint nmReason)
{
    switch (nmReason) {
    case 2:
        return 631; // user disconnected -> ERROR_USER_DISCONNECTION
    case 3:
        return 619; // device disconnected -> ERROR_PORT_DISCONNECTED
    case 4:
        return 629; // VPN service stopped -> ERROR_REMOTE_DISCONNECTION
    case 5:
        return 716; // IP config invalid -> ERROR_IP_CONFIGURATION
    case 6:
        return 718; // connect timeout -> ERROR_PPP_TIMEOUT
    case 7:
        return 638; // service start timeout -> ERROR_REQUEST_TIMEOUT
    case 8:
        return 651; // service start failed -> ERROR_FROM_DEVICE
    case 9:
        return 691; // no secrets -> ERROR_AUTHENTICATION_FAILURE
    case 10:
        return 691; // login failed -> ERROR_AUTHENTICATION_FAILURE
    case 11:
        return 623; // connection removed -> ERROR_CANNOT_FIND_PHONEBOOK_ENTRY
    case 12:
        return 668; // dependency failed -> ERROR_NO_CONNECTION
    case 13:
        return 633; // device realize failed -> ERROR_PORT_NOT_AVAILABLE
    case 14:
        return 608; // device removed -> ERROR_DEVICE_DOES_NOT_EXIST
    default:
        return 0; // unknown / none: a plain disconnection
    }
}

int NmDialBackend::errorForDBusError(const QString& name)
{
    if (name.endsWith(QLatin1String(".UnknownConnection"))) {
        return 623; // ERROR_CANNOT_FIND_PHONEBOOK_ENTRY
    }
    if (name.endsWith(QLatin1String(".UnknownDevice")) || name.endsWith(QLatin1String(".ConnectionNotAvailable"))) {
        return 633; // ERROR_PORT_NOT_AVAILABLE
    }
    if (name.endsWith(QLatin1String(".PermissionDenied")) || name.endsWith(QLatin1String(".AccessDenied"))) {
        return 649; // ERROR_NO_DIALIN_PERMISSION
    }
    if (name.endsWith(QLatin1String(".NoReply")) || name.endsWith(QLatin1String(".Timeout"))) {
        return 638; // ERROR_REQUEST_TIMEOUT
    }
    if (name.endsWith(QLatin1String(".ServiceUnknown")) || name.endsWith(QLatin1String(".NameHasNoOwner"))) {
        return 711; // ERROR_RASMAN_CANNOT_INITIALIZE
    }
    return 635; // ERROR_UNKNOWN
}

} // namespace kestrova::net
