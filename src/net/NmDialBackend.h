#pragma once

#include "net/DialBackend.h"

#include <QDBusConnection>
#include <QObject>

#include <optional>

namespace kestrova::net {

// The connection manager is NetworkManager on the system bus; an entry name is the id of
// one of its connection profiles. The bus is opened when first needed: most runs never
// dial, and opening it starts Qt's D-Bus thread and talks to the bus daemon.
class NmDialBackend final : public QObject, public DialBackend
{
    Q_OBJECT
public:
    // On the system bus.
    explicit NmDialBackend(QObject* parent = nullptr);
    explicit NmDialBackend(QDBusConnection bus, QObject* parent = nullptr);

    bool available(QString* error) override;
    bool isConnected(const QString& entry, QString* error) override;
    void dial(const QString& entry) override;
    void abortDial() override;
    bool hangUp(const QString& entry, QString* error) override;

    // NetworkManager's view mapped onto the platform numbers the dialer understands.
    static int platformStateFor(uint nmState);
    static int errorForReason(uint nmReason);
    static int errorForDBusError(const QString& dbusErrorName);

private Q_SLOTS:
    void onActiveStateChanged(uint state, uint reason);

private:
    QString settingsPathFor(const QString& entry, QString* error);
    QString activePathFor(const QString& entry, QString* error);
    void watch(const QString& activePath);
    void unwatch();
    void report(int state, int error);
    QDBusConnection& bus();

    std::optional<QDBusConnection> m_bus;
    QString m_watched; // active connection of the attempt in progress
    quint64 m_attempt = 0;
};

} // namespace kestrova::net
