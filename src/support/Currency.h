#pragma once

#include <QString>
#include <QtGlobal>

namespace kestrova::support {

// Money: a 64-bit count of 1/10,000. Conversions from floating point round half to
// even; results that leave the range raise an overflow (VbError 6).
class Currency
{
public:
    static constexpr qint64 kScale = 10000;

    constexpr Currency() = default;
    static Currency fromDouble(double value);
    static constexpr Currency fromTicks(qint64 ticks)
    {
        Currency c;
        c.m_ticks = ticks;
        return c;
    }

    qint64 ticks() const { return m_ticks; }
    double toDouble() const { return static_cast<double>(m_ticks) / kScale; }
    // Plain text with up to four decimals and no trailing zeros ("60", "12.5").
    QString toString() const;

    Currency operator+(Currency o) const;
    Currency operator-(Currency o) const;
    Currency operator*(qint64 factor) const;
    Currency& operator+=(Currency o) { return *this = *this + o; }
    auto operator<=>(const Currency&) const = default;

private:
    qint64 m_ticks = 0;
};

} // namespace kestrova::support
