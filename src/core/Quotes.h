#pragma once

#include "core/Quote.h"
#include "support/KeyedCollection.h"

#include <memory>

namespace kestrova::core {

// The quotes of one retrieval cycle, keyed by ticker (without regard to case). Besides
// holding them it composes the page texts and answers whether any alarm is new.
class Quotes
{
public:
    using Ptr = std::shared_ptr<Quote>;
    using Currency = support::Currency;
    using const_iterator = support::KeyedCollection<Quote>::const_iterator;

    // Whether the last composed page carried any alarm mark.
    bool LimitPage() const { return m_limitPage; }
    // True when any member has NewLimit set; every member is visited.
    bool NewLimitPage();
    // Starts over with an empty set; LimitPage becomes false.
    void Clear();
    // Hands the same quote objects (not copies) to another set, keyed by their tickers.
    void CopyObjects(Quotes& destination) const;

    // The alphanumeric page: "+IBM 105.25*(V), MSFT 50.00". layout 1 adds the change
    // right after the price; includeAll overrides the selection for pager members.
    // select/selectMode: 0 every member, 1 alarmed members, 2 members with a new alarm,
    // any other mode keeps the previous member's decision.
    QString PageMessageString(qint16 layout, bool includeAll = false, bool select = false, qint16 selectMode = 0);
    // The numeric page: only digits, "*" and ",". See Quotes.cpp for the layout.
    QString PageDigitalString(bool select, qint16 selectMode, qint16 numericPause, const QString& prefix);

    // A duplicate key is ignored; the quote is returned either way.
    Ptr Add(Ptr quote, const QString& key = {});
    // Raise support::VbError for an unknown key or a position out of range.
    Ptr Item(const QString& key) const { return m_col.item(key); }
    Ptr Item(int position) const { return m_col.item(position); }
    // Replaces (or adds) the member under key; false for an empty key or when the quote
    // cannot be found under the key afterwards. Never raises.
    bool Update(Ptr quote, const QString& key);
    int Count() const { return m_col.count(); }
    void Remove(const QString& key) { m_col.remove(key); }
    void Remove(int position) { m_col.remove(position); }

    const_iterator begin() const { return m_col.begin(); }
    const_iterator end() const { return m_col.end(); }

    // Totals over the members, as for Securities.
    Currency Calc_MarketValue();
    Currency Calc_CostValue();
    Currency Calc_PercentChg() const;

private:
    // The include decision of one pager member; `previous` carries the last decision for
    // selection modes that do not decide on their own.
    static bool selected(const Quote& q, bool alarmed, bool includeAll, bool select, qint16 selectMode, bool& previous);

    support::KeyedCollection<Quote> m_col;
    bool m_limitPage = false;
    bool m_newLimit = false;
    Currency m_totalMarketValue;
    Currency m_totalCostValue;
};

} // namespace kestrova::core
