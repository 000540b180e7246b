#include "core/Quotes.h"

#include "core/Security.h"
#include "support/Format.h"

#include <cmath>

namespace kestrova::core {

using support::Currency;

bool Quotes::NewLimitPage()
{
    m_newLimit = false;
    for (const Ptr& q : m_col) {
        if (q->newLimit()) {
            m_newLimit = true;
        }
    }
    return m_newLimit;
}

void Quotes::Clear()
{
    m_col = {};
    m_limitPage = false;
}

void Quotes::CopyObjects(Quotes& destination) const
{
    destination.Clear();
    for (const Ptr& q : m_col) {
        destination.Add(q, q->ticker());
    }
}

Quotes::Ptr Quotes::Add(Ptr quote, const QString& key)
{
    try {
        m_col.add(quote, key);
    } catch (const support::VbError&) {
        // The first quote under a ticker stays; the caller still gets its object back.
    }
    return quote;
}

bool Quotes::Update(Ptr quote, const QString& key)
{
    if (key.isEmpty()) {
        return false;
    }
    if (m_col.contains(key)) {
        m_col.remove(key);
    }
    bool failed = false;
    try {
        m_col.add(std::move(quote), key);
    } catch (const support::VbError&) {
        failed = true;
    }
    return !failed && m_col.contains(key);
}

bool Quotes::selected(const Quote& q, bool alarmed, bool includeAll, bool select, qint16 selectMode, bool& previous)
{
    if (!select) {
        previous = true;
        return true;
    }
    switch (selectMode) {
    case 0:
        previous = true;
        break;
    case 1:
        previous = alarmed;
        break;
    case 2:
        previous = q.newLimit();
        break;
    default:
        // An unknown mode decides nothing: the previous member's decision stands.
        break;
    }
    if (includeAll) {
        previous = true;
    }
    return previous;
}

QString Quotes::PageMessageString(qint16 layout, bool includeAll, bool select, qint16 selectMode)
{
    m_limitPage = false;
    QString page;
    bool include = false;
    for (const Ptr& p : m_col) {
        const Quote& q = *p;
        if (!q.toPager()) {
            continue;
        }
        bool alarmed = false;
        QString priceMark;
        if (q.highAlarm()) {
            priceMark = QStringLiteral("+");
            alarmed = true;
        }
        // Tested after the high alarm on purpose: with both set the page shows "-".
        if (q.lowAlarm()) {
            priceMark = QStringLiteral("-");
            alarmed = true;
        }
        QString tag;
        if (q.highChgAlarm() || q.lowChgAlarm()) {
            tag += u'%';
            alarmed = true;
        }
        if (q.volumeAlarm()) {
            tag += u'V';
            alarmed = true;
        }
        if (alarmed) {
            m_limitPage = true;
        }
        if (!tag.isEmpty()) {
            tag = u'(' + tag + u')';
        }
        if (!selected(q, alarmed, includeAll, select, selectMode, include)) {
            continue;
        }
        QString entry = priceMark + q.ticker() + u' ' + q.last();
        // A change nobody knows is left out rather than paged as +0.00.
        if (layout == 1 && q.change() != support::kNotAvailable) {
            entry += support::formatNumber(support::leadingNumber(q.change()), u"+0.00;-0.00");
        }
        if (q.news() != 0) {
            entry += u'*';
        }
        entry += tag + QStringLiteral(", ");
        page += entry;
    }
    // Drop the separator after the last entry. Four characters is the shortest real entry
    // plus separator; anything shorter has neither ticker nor price and is no page at all.
    if (page.size() >= 4) {
        page.chop(2);
    } else {
        page.clear();
    }
    return page;
}

// Numeric page layout, one part per selected pager member, parts simply concatenated:
//
//     pause commas + prefix + ticker number ("00") + "*" + alarm code + "*" + price digits
//
// e.g. ",,01*100*10525" for slot 1 at 105.25 with a high alarm and a pause setting of 4.
// The pause leads each part so the paging service has finished with the previous digits
// (or with the dialled number) before the next ones arrive; this matches the options
// dialog's test page. The pager accepts only digits, "*" and ",", so anything else the
// prefix or a negative price would bring in is dropped.
QString Quotes::PageDigitalString(bool select, qint16 selectMode, qint16 numericPause, const QString& prefix)
{
    m_limitPage = false;
    const QString pause(static_cast<qsizetype>(qMax<qint64>(0, support::roundHalfEven(numericPause / 2.0))), u',');
    QString page;
    bool include = false;
    for (const Ptr& p : m_col) {
        const Quote& q = *p;
        if (!q.toPager()) {
            continue;
        }
        // Here the high price alarm wins over the low one.
        const QChar priceDigit = q.highAlarm() ? u'1' : (q.lowAlarm() ? u'2' : u'0');
        const QChar percentDigit = q.highChgAlarm() ? u'1' : (q.lowChgAlarm() ? u'2' : u'0');
        const QChar volumeDigit = q.volumeAlarm() ? u'1' : u'0';
        const bool alarmed = priceDigit != u'0' || percentDigit != u'0' || volumeDigit != u'0';
        if (alarmed) {
            m_limitPage = true;
        }
        if (!selected(q, alarmed, false, select, selectMode, include)) {
            continue;
        }
        const int digits = qMax<int>(0, q.digits());
        const QString shown = support::formatNumber(support::leadingNumber(q.last()),
                                                    QString(QStringLiteral("###.") + QString(digits, u'0')));
        const double scaled = support::leadingNumber(shown) * std::pow(10.0, digits);
        if (!std::isfinite(scaled) || std::fabs(scaled) > 2147483647.5) {
            throw support::VbError(support::VbError::Overflow);
        }
        const QString priceDigits = QString::number(support::roundHalfEven(scaled));
        page += pause + prefix + support::formatNumber(q.securityIndex(), u"00") + u'*' + priceDigit + percentDigit +
                volumeDigit + u'*' + priceDigits;
    }
    QString clean;
    clean.reserve(page.size());
    for (const QChar c : page) {
        if ((c >= u'0' && c <= u'9') || c == u'*' || c == u',') {
            clean += c;
        }
    }
    return clean;
}

Currency Quotes::Calc_MarketValue()
{
    Currency sum;
    for (const Ptr& q : m_col) {
        sum += q->Calc_MarketValue();
    }
    m_totalMarketValue = sum;
    return sum;
}

Currency Quotes::Calc_CostValue()
{
    Currency sum;
    for (const Ptr& q : m_col) {
        sum += q->Calc_CostBasis();
    }
    m_totalCostValue = sum;
    return sum;
}

Currency Quotes::Calc_PercentChg() const
{
    return holdings::totalPercentChange(m_totalMarketValue, m_totalCostValue);
}

} // namespace kestrova::core
