#pragma once

#include <QString>

#include <functional>

namespace kestrova::net {

// What the dialer needs of the system's connection manager. Dialling is asynchronous: the
// outcome arrives as state events (platform state number, error number) through
// stateHandler while the dialer yields.
class DialBackend
{
public:
    virtual ~DialBackend() = default;
    // False (with the reason) when there is no connection manager to talk to.
    virtual bool available(QString* error) = 0;
    // Whether a connection with this entry name is up; false with *error set on failure.
    virtual bool isConnected(const QString& entry, QString* error) = 0;
    virtual void dial(const QString& entry) = 0;
    // Abandons the attempt that dial() started.
    virtual void abortDial() = 0;
    // Takes the entry's connection down; false with *error set on failure.
    virtual bool hangUp(const QString& entry, QString* error) = 0;

    std::function<void(int platformState, int errorNumber)> stateHandler;
};

} // namespace kestrova::net
