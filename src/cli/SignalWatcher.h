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

private:
    std::function<void(int)> m_onSignal;
    QSocketNotifier* m_notifier = nullptr;
};

} // namespace kestrova::cli
