#include "support/Currency.h"

#include "support/Format.h"
#include "support/VbError.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace kestrova::support {

Currency Currency::fromDouble(double value)
{
    const double scaled = value * kScale;
    // The largest currency value is about 9.22e14; beyond it (or NaN) is an overflow.
    if (!std::isfinite(scaled) || std::fabs(scaled) >= 9.2233720368547e18) {
        throw VbError(VbError::Overflow);
    }
    // Round the scaled value to the 15 significant digits a double shows before taking the
    // even neighbour, so 0.00015 (stored as 1.4999999999999998e-4) is a tie, as users see it.
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.15g", scaled);
    return fromTicks(roundHalfEven(std::strtod(buf, nullptr)));
}

QString Currency::toString() const
{
    QString s = formatNumber(toDouble(), u"0.####");
    if (s.endsWith(u'.')) {
        s.chop(1);
    }
    return s;
}

Currency Currency::operator+(Currency o) const
{
    qint64 r = 0;
    if (__builtin_add_overflow(m_ticks, o.m_ticks, &r)) {
        throw VbError(VbError::Overflow);
    }
    return fromTicks(r);
}

Currency Currency::operator-(Currency o) const
{
    qint64 r = 0;
    if (__builtin_sub_overflow(m_ticks, o.m_ticks, &r)) {
        throw VbError(VbError::Overflow);
    }
    return fromTicks(r);
}

Currency Currency::operator*(qint64 factor) const
{
    qint64 r = 0;
    if (__builtin_mul_overflow(m_ticks, factor, &r)) {
        throw VbError(VbError::Overflow);
    }
    return fromTicks(r);
}

} // namespace kestrova::support
