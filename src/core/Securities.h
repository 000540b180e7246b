#pragma once

#include "core/Security.h"
#include "support/KeyedCollection.h"

#include <memory>

namespace kestrova::core {

// The portfolio entries a retrieval, the news run or the viewer works on, in table order.
class Securities
{
public:
    using Ptr = std::shared_ptr<Security>;
    using Currency = support::Currency;
    using const_iterator = support::KeyedCollection<Security>::const_iterator;

    // A duplicate key is ignored: the entry is not stored, but it is still returned so a
    // caller can keep filling it.
    Ptr Add(Ptr entry, const QString& key = {});
    // Raise support::VbError for an unknown key or a position out of range.
    Ptr Item(const QString& key) const { return m_col.item(key); }
    Ptr Item(int position) const { return m_col.item(position); }
    void Remove(const QString& key) { m_col.remove(key); }
    void Remove(int position) { m_col.remove(position); }
    int Count() const { return m_col.count(); }

    const_iterator begin() const { return m_col.begin(); }
    const_iterator end() const { return m_col.end(); }

    Currency Calc_MarketValue();
    Currency Calc_CostValue();
    // Uses the totals the two calls above left behind.
    Currency Calc_PercentChg() const;

private:
    support::KeyedCollection<Security> m_col;
    Currency m_totalMarketValue;
    Currency m_totalCostValue;
};

} // namespace kestrova::core
