#include "core/Security.h"

namespace kestrova::core {

using support::Currency;

namespace holdings {

Currency marketValue(float shares, float lastValue)
{
    return Currency::fromDouble(static_cast<double>(shares) * static_cast<double>(lastValue));
}

Currency costValue(Currency costBasis, float shares)
{
    return Currency::fromDouble(costBasis.toDouble() * static_cast<double>(shares));
}

float percentChange(Currency marketValue, Currency costValue, Currency costBasis)
{
    if (costBasis <= Currency{}) {
        return 0;
    }
    // Difference and scaling stay in currency (and raise on overflow); only the division
    // leaves it.
    const Currency scaled = (marketValue - costValue) * 100;
    return static_cast<float>(scaled.toDouble() / costBasis.toDouble());
}

Currency totalPercentChange(Currency totalMarket, Currency totalCost)
{
    if (totalCost <= Currency{}) {
        return {};
    }
    const Currency scaled = (totalMarket - totalCost) * 100;
    return Currency::fromDouble(scaled.toDouble() / totalCost.toDouble());
}

} // namespace holdings

Currency Security::Calc_MarketValue()
{
    m_marketValue = holdings::marketValue(m_shares, m_lastValue);
    return m_marketValue;
}

Currency Security::Calc_CostBasis()
{
    m_costValue = holdings::costValue(m_costBasis, m_shares);
    return m_costValue;
}

float Security::Calc_PercentChg() const
{
    return holdings::percentChange(m_marketValue, m_costValue, m_costBasis);
}

} // namespace kestrova::core
