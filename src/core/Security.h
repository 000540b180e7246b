#pragma once

#include "support/Currency.h"

#include <QDateTime>
#include <QString>
#include <QtGlobal>

namespace kestrova::core {

// One watched security as the portfolio describes it: holdings, quote server and the alarm
// limits exactly as the user entered them (a zero limit stays zero here; only Quote turns
// zero into "no limit").
class Security
{
public:
    using Currency = support::Currency;

    QString ticker() const { return m_ticker; }
    void setTicker(const QString& value) { m_ticker = value.trimmed(); }
    QString name() const { return m_name; }
    void setName(const QString& value) { m_name = value.trimmed(); }
    QString last() const { return m_last; }
    void setLast(const QString& value) { m_last = value.trimmed(); }
    QString update() const { return m_update; }
    void setUpdate(const QString& value) { m_update = value.trimmed(); }
    float shares() const { return m_shares; }
    void setShares(float value) { m_shares = value; }
    Currency costBasis() const { return m_costBasis; }
    void setCostBasis(Currency value) { m_costBasis = value; }
    QDateTime updateDate() const { return m_updateDate; }
    void setUpdateDate(const QDateTime& value) { m_updateDate = value; }
    float highLimit() const { return m_highLimit; }
    void setHighLimit(float value) { m_highLimit = value; }
    float lowLimit() const { return m_lowLimit; }
    void setLowLimit(float value) { m_lowLimit = value; }
    bool pageCloseOnly() const { return m_pageCloseOnly; }
    void setPageCloseOnly(bool value) { m_pageCloseOnly = value; }
    bool toPager() const { return m_toPager; }
    void setToPager(bool value) { m_toPager = value; }
    qint16 securityType() const { return m_securityType; }
    void setSecurityType(qint16 value) { m_securityType = value; }
    qint16 index() const { return m_index; }
    void setIndex(qint16 value) { m_index = value; }
    float highChgLimit() const { return m_highChgLimit; }
    void setHighChgLimit(float value) { m_highChgLimit = value; }
    float lowChgLimit() const { return m_lowChgLimit; }
    void setLowChgLimit(float value) { m_lowChgLimit = value; }
    float highVolumeLimit() const { return m_highVolumeLimit; }
    void setHighVolumeLimit(float value) { m_highVolumeLimit = value; }
    qint16 pageAlarm() const { return m_pageAlarm; }
    void setPageAlarm(qint16 value) { m_pageAlarm = value; }
    qint16 digits() const { return m_digits; }
    void setDigits(qint16 value) { m_digits = value; }
    qint16 serverID() const { return m_serverID; }
    void setServerID(qint16 value) { m_serverID = value; }
    bool disableNews() const { return m_disableNews; }
    void setDisableNews(bool value) { m_disableNews = value; }

    // Shares x numeric last price. No setter feeds a Security's numeric last price (only
    // Quote reads prices from pages), so for an entry this stays 0.
    Currency Calc_MarketValue();
    // CostBasis x Shares: the total cost of the position.
    Currency Calc_CostBasis();
    // Uses the values the two calculations above left behind and divides by the cost of
    // one share, not the total cost.
    float Calc_PercentChg() const;

private:
    QString m_ticker;
    QString m_name;
    QString m_last;
    float m_lastValue = 0;
    QString m_update;
    float m_shares = 0;
    Currency m_costBasis;
    QDateTime m_updateDate;
    float m_highLimit = 0;
    float m_lowLimit = 0;
    Currency m_marketValue;
    Currency m_costValue;
    bool m_pageCloseOnly = false;
    bool m_toPager = false;
    qint16 m_securityType = 0;
    qint16 m_index = 0;
    float m_highChgLimit = 0;
    float m_lowChgLimit = 0;
    float m_highVolumeLimit = 0;
    qint16 m_pageAlarm = 0;
    qint16 m_digits = 0;
    qint16 m_serverID = 0;
    bool m_disableNews = false;
};

// Shared money arithmetic of the entry and quote calculations.
namespace holdings {
support::Currency marketValue(float shares, float lastValue);
support::Currency costValue(support::Currency costBasis, float shares);
float percentChange(support::Currency marketValue, support::Currency costValue, support::Currency costBasis);
// Whole-set change: divides by the total cost and is kept as currency.
support::Currency totalPercentChange(support::Currency totalMarket, support::Currency totalCost);
} // namespace holdings

} // namespace kestrova::core
