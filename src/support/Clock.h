#pragma once

#include <QDateTime>

namespace kestrova::support {

// The only source of "now" in the engine. Waits and schedules read the clock through
// this seam so tests can run a 60-second modem wait against a clock they advance.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;

    // Seconds since midnight with fractions, the timer that every wait loop polls.
    double timer() const;
    QDate today() const { return now().date(); }
};

class SystemClock final : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
};

class MockClock final : public Clock
{
public:
    explicit MockClock(QDateTime start = QDateTime(QDate(2026, 11, 23), QTime(10, 0, 0))) : m_now(std::move(start)) {}
    QDateTime now() const override { return m_now; }
    void set(const QDateTime& t) { m_now = t; }
    void advanceMs(qint64 ms) { m_now = m_now.addMSecs(ms); }
    void advanceSecs(qint64 s) { m_now = m_now.addSecs(s); }

private:
    QDateTime m_now;
};

} // namespace kestrova::support
