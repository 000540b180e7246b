#include "core/Quote.h"

#include "core/PriceFormat.h"
#include "core/Security.h"
#include "support/Format.h"

#include <cmath>

namespace kestrova::core {

using support::Currency;
using support::leadingNumber;

QString Quote::priceText(const QString& value)
{
    return formatPrice(value.trimmed(), m_digits);
}

void Quote::setLast(const QString& value)
{
    m_last = priceText(value);
    m_lastValue = static_cast<float>(leadingNumber(m_last));
    testPrice();
}

void Quote::setBid(const QString& value)
{
    m_bid = priceText(value);
}

void Quote::setAsk(const QString& value)
{
    m_ask = priceText(value);
}

void Quote::setVolume(const QString& value)
{
    // Servers write volumes as "1,234,567"; the quote keeps the plain number so viewers
    // and the alarm agree on it. Anything unreadable counts as no volume at all. A number
    // past 32 bits is not known as a number here: it is "n/a" and tests no limit.
    m_volume = value.trimmed();
    bool tooLarge = false;
    const qint32 n = toWholeNumber(m_volume, nullptr, &tooLarge);
    if (tooLarge) {
        m_volume = support::kNotAvailable.toString();
        raise(m_volumeAlarm, false);
        return;
    }
    m_volume = QString::number(n);
    testVolume(n);
}

void Quote::setDayHigh(const QString& value)
{
    m_dayHigh = priceText(value);
}

void Quote::setDayLow(const QString& value)
{
    m_dayLow = priceText(value);
}

void Quote::setPercentChg(const QString& value)
{
    // "+1.25%" and "+1.25% (today)" both mean 1.25. A "%" in the first place is not a
    // suffix, so it stays and the text reads as 0.
    QString t = value;
    const qsizetype pct = t.indexOf(u'%', 1);
    if (pct >= 1) {
        t.truncate(pct);
    }
    m_percentChg = formatPrice(t.trimmed(), m_digits);
    if (m_percentChg == support::kNotAvailable) {
        // An unknown change is no change of 0: it is beyond no limit.
        raise(m_highChgAlarm, false);
        raise(m_lowChgAlarm, false);
        return;
    }
    testPercent();
}

namespace {
QString ratioText(const QString& value)
{
    const QString t = value.trimmed();
    if (t == QLatin1String("n/a")) {
        return t;
    }
    return support::formatNumber(leadingNumber(t), u"###0.00");
}
} // namespace

void Quote::setPE(const QString& value)
{
    m_pe = ratioText(value);
}

void Quote::setEPS(const QString& value)
{
    m_eps = ratioText(value);
}

void Quote::setYearHigh(const QString& value)
{
    m_yearHigh = priceText(value);
}

void Quote::setYearLow(const QString& value)
{
    m_yearLow = priceText(value);
}

void Quote::setChange(const QString& value)
{
    m_change = priceText(value);
}

void Quote::setOpenPrice(const QString& value)
{
    m_openPrice = priceText(value);
}

void Quote::setPreviousClose(const QString& value)
{
    m_previousClose = priceText(value);
}

void Quote::raise(bool& flag, bool on)
{
    const bool was = flag;
    flag = on;
    if (on && !was) {
        m_newLimit = true;
    }
}

void Quote::testPrice()
{
    const float v = m_lastValue;
    raise(m_highAlarm, v >= m_highLimit);
    if (v <= m_lowLimit) {
        // A page without a price reads as 0; that must neither raise nor clear a low alarm.
        if (v != 0) {
            raise(m_lowAlarm, true);
        }
    } else {
        raise(m_lowAlarm, false);
    }
}

void Quote::testPercent()
{
    const double p = leadingNumber(m_percentChg);
    raise(m_highChgAlarm, p >= static_cast<double>(m_highChgLimit));
    raise(m_lowChgAlarm, p <= static_cast<double>(m_lowChgLimit));
}

void Quote::testVolume(qint32 volume)
{
    raise(m_volumeAlarm, static_cast<double>(volume) >= static_cast<double>(m_volumeLimit));
}

Currency Quote::Calc_MarketValue()
{
    m_marketValue = holdings::marketValue(m_shares, m_lastValue);
    return m_marketValue;
}

Currency Quote::Calc_CostBasis()
{
    m_costValue = holdings::costValue(m_costBasis, m_shares);
    return m_costValue;
}

float Quote::Calc_PercentChg() const
{
    return holdings::percentChange(m_marketValue, m_costValue, m_costBasis);
}

float Quote::Calc_PricePercentChg() const
{
    const double previous = leadingNumber(m_previousClose);
    if (previous > 0) {
        return static_cast<float>(leadingNumber(m_change) * 100 / previous);
    }
    return 0;
}

float Quote::Calc_PriceChg()
{
    const double previous = leadingNumber(m_previousClose);
    const double diff = previous > 0 ? leadingNumber(m_last) - previous : 0.0;
    // The difference is rounded the way a price of this quote is written. Plain text only:
    // an exponent form would be misread by the leading-number reading.
    return static_cast<float>(leadingNumber(formatPrice(support::plainNumberText(diff), m_digits)));
}

bool Quote::knowsPreviousClose() const
{
    return leadingNumber(m_previousClose) > 0;
}

QString Quote::changeFromPreviousClose()
{
    if (!knowsPreviousClose()) {
        return support::kNotAvailable.toString();
    }
    return support::plainNumberText(Calc_PriceChg());
}

QString Quote::percentFromPreviousClose() const
{
    if (!knowsPreviousClose() || m_change == support::kNotAvailable) {
        return support::kNotAvailable.toString();
    }
    return support::formatNumber(Calc_PricePercentChg(), u"###0.0");
}

} // namespace kestrova::core
