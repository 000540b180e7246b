#include "app/MinuteCycle.h"

#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"

namespace kestrova::app {

MinuteCycle::MinuteCycle(const support::Clock& clock, support::Host& host, Hooks hooks, QObject* parent)
    : QObject(parent), m_clock(clock), m_host(host), m_hooks(std::move(hooks))
{
    setTimer(new QTimer(this));
}

void MinuteCycle::setTimer(QTimer* timer)
{
    if (m_timer) {
        m_timer->stop();
        m_timer->disconnect(this);
    }
    m_timer = timer;
    // Single-shot and re-armed after the tick returns: ticks that fall due while an update
    // runs are not queued up.
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, [this] {
        tick();
        if (m_interval > 0 && m_timer) {
            m_timer->start(m_interval);
        }
    });
}

void MinuteCycle::start(int intervalMs)
{
    m_interval = intervalMs;
    if (m_timer) {
        m_timer->start(intervalMs);
    }
}

void MinuteCycle::stop()
{
    m_interval = 0;
    if (m_timer) {
        m_timer->stop();
    }
}

void MinuteCycle::tick()
{
    if (m_inTick) {
        ++m_ignored;
        return;
    }
    m_inTick = true;
    m_host.yield(0);
    if (m_hooks.setClockLabel) {
        m_hooks.setClockLabel(support::formatDate(m_clock.now(), u"m/d/yy  h:mm am/pm"));
    }
    if (!m_hooks.portOpen()) {
        if (m_hooks.beforeCheck) {
            m_hooks.beforeCheck();
        }
        if (m_hooks.scheduleEnabled()) {
            CheckSchedule(m_hooks.options(), m_state, m_clock, m_hooks.schedule);
        }
    }
    m_inTick = false;
}

} // namespace kestrova::app
