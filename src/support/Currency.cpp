#include "support/Currency.h"

#include "support/Format.h"
#include "support/VbError.h"

#include <cmath>

namespace kestrova::support {

Currency Currency::fromDouble(double value)
{
    const double scaled = value * kScale;
    // The largest currency value is about 9.22e14; beyond it (or NaN) is an overflow.
    if (!std::isfinite(scaled) || std::fabs(scaled) >= 9.2233720368547e18) {
        throw VbError(VbError::Overflow);
    }
    return fromTicks(roundHalfEven(scaled));
}

QString Currency::toString() const
{
    return formatNumber(toDouble(), u"0.####");
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
