#pragma once

#include <QObject>

#include <functional>

class QSocketNotifier;

namespace kestrova::cli {

// Turns SIGINT and SIGTERM into a call on the event loop (self-pipe), so a signal that
// arrives in the middle of an update only sets flags from ordinary code.
class SignalWatcher : public QObject
{
    Q_OBJECT
public:
    explicit SignalWatcher(std::function<void(int signal)> onSignal, QObject* parent = nullptr);
    ~SignalWatcher() override;

    // The first signal that came, or 0.
    int received() const { return m_received; }
    // The exit status of a command that stopped its work: 128 + the signal when a signal
    // stopped it, as shells and service managers read it (130 SIGINT, 143 SIGTERM);
    // otherwise the given status.
    int exitStatus(int otherwise) const { return m_received ? 128 + m_received : otherwise; }

private:
    int m_received = 0;
    std::function<void(int)> m_onSignal;
    QSocketNotifier* m_notifier = nullptr;
};

} // namespace kestrova::cli
