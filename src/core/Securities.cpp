#include "core/Securities.h"

namespace kestrova::core {

using support::Currency;

Securities::Ptr Securities::Add(Ptr entry, const QString& key)
{
    try {
        m_col.add(entry, key);
    } catch (const support::VbError&) {
        // A ticker listed twice keeps its first entry; the caller still gets its object.
    }
    return entry;
}

Currency Securities::Calc_MarketValue()
{
    Currency sum;
    for (const Ptr& s : m_col) {
        sum += s->Calc_MarketValue();
    }
    m_totalMarketValue = sum;
    return sum;
}

Currency Securities::Calc_CostValue()
{
    Currency sum;
    for (const Ptr& s : m_col) {
        sum += s->Calc_CostBasis();
    }
    m_totalCostValue = sum;
    return sum;
}

Currency Securities::Calc_PercentChg() const
{
    return holdings::totalPercentChange(m_totalMarketValue, m_totalCostValue);
}

} // namespace kestrova::core
