#pragma once

#include "app/Schedule.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

namespace kestrova::support {
class Clock;
class Host;
} // namespace kestrova::support

namespace kestrova::app {

// The one-minute timer that drives all scheduled work. Each tick refreshes the clock label
// and, when the schedule is on and the modem port is free, runs the schedule check, which
// may run an update synchronously. The timer is re-armed only after the tick returns, and a
// tick that arrives while another is still yielding inside an update is ignored, so two
// updates never run at the same time.
class MinuteCycle : public QObject
{
    Q_OBJECT
public:
    struct Hooks
    {
        // Runs at every tick before the schedule check, when the modem is free.
        std::function<void()> beforeCheck;
        std::function<bool()> scheduleEnabled;
        std::function<bool()> portOpen;
        std::function<void(const QString&)> setClockLabel;
        std::function<const core::ScheduleOptions&()> options;
        ScheduleHooks schedule;
    };

    MinuteCycle(const support::Clock& clock, support::Host& host, Hooks hooks, QObject* parent = nullptr);

    // Drives the cycle from a timer someone else owns (the main window's tmrMinute), so
    // the timer lives and dies with that window. Call before start().
    void setTimer(QTimer* timer);
    void start(int intervalMs = 60000);
    void stop();
    // One tick, as the timer runs it.
    void tick();

    ScheduleState& state() { return m_state; }
    bool busy() const { return m_inTick; }
    int ticksIgnored() const { return m_ignored; }

private:
    const support::Clock& m_clock;
    support::Host& m_host;
    Hooks m_hooks;
    ScheduleState m_state;
    QPointer<QTimer> m_timer;
    bool m_inTick = false;
    int m_ignored = 0;
    int m_interval = 0;
};

} // namespace kestrova::app
