#include "support/Clock.h"

namespace kestrova::support {

double Clock::timer() const
{
    return now().time().msecsSinceStartOfDay() / 1000.0;
}

} // namespace kestrova::support
