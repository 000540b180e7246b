#pragma once

#include "support/Currency.h"

#include <QDateTime>
#include <QString>
#include <QtGlobal>

namespace kestrova::core {

// The working record of one watched security during a retrieval cycle: the entry's
// holdings and limits, the market data the page scraper writes, and the alarm state those
// writes produce. Alarms are tested inside the setters of Last, PercentChg and Volume, so
// the order in which a scraper writes fields matters only for NewLimit.
class Quote
{
public:
    using Currency = support::Currency;

    // Limits of zero mean "no limit" and are stored as values no market reaches.
    static constexpr float kNoHighLimit = 9999999.0F;
    static constexpr float kNoLowLimit = -999999.0F;
    static constexpr float kNoHighChgLimit = 9999999.0F;
    static constexpr float kNoLowChgLimit = -9999999.0F;
    static constexpr float kNoVolumeLimit = 10000000000.0F;

    QString ticker() const { return m_ticker; }
    void setTicker(const QString& value) { m_ticker = value.trimmed(); }
    QString name() const { return m_name; }
    void setName(const QString& value) { m_name = value.trimmed(); }

    // Price texts: trimmed, then normalised with Digits (see formatPrice).
    QString last() const { return m_last; }
    // Also keeps the numeric last price and runs the price alarms.
    void setLast(const QString& value);
    QString bid() const { return m_bid; }
    void setBid(const QString& value);
    QString ask() const { return m_ask; }
    void setAsk(const QString& value);
    QString volume() const { return m_volume; }
    // Stored as the decimal text of the whole number (0 when unreadable); runs the volume alarm.
    void setVolume(const QString& value);
    QString dayHigh() const { return m_dayHigh; }
    void setDayHigh(const QString& value);
    QString dayLow() const { return m_dayLow; }
    void setDayLow(const QString& value);
    QString percentChg() const { return m_percentChg; }
    // Drops a trailing "%..." part, normalises like a price and runs the percent alarms.
    void setPercentChg(const QString& value);
    QString pe() const { return m_pe; }
    void setPE(const QString& value);
    QString eps() const { return m_eps; }
    void setEPS(const QString& value);
    qint16 news() const { return m_news; }
    void setNews(qint16 value) { m_news = value; }
    QString update() const { return m_update; }
    void setUpdate(const QString& value) { m_update = value.trimmed(); }
    QString yearHigh() const { return m_yearHigh; }
    void setYearHigh(const QString& value);
    QString yearLow() const { return m_yearLow; }
    void setYearLow(const QString& value);
    float shares() const { return m_shares; }
    void setShares(float value) { m_shares = value; }
    Currency costBasis() const { return m_costBasis; }
    void setCostBasis(Currency value) { m_costBasis = value; }
    QDateTime updateDate() const { return m_updateDate; }
    void setUpdateDate(const QDateTime& value) { m_updateDate = value; }
    float highLimit() const { return m_highLimit; }
    void setHighLimit(float value) { m_highLimit = value == 0 ? kNoHighLimit : value; }
    float lowLimit() const { return m_lowLimit; }
    void setLowLimit(float value) { m_lowLimit = value == 0 ? kNoLowLimit : value; }
    QString change() const { return m_change; }
    void setChange(const QString& value);
    bool pageCloseOnly() const { return m_pageCloseOnly; }
    void setPageCloseOnly(bool value) { m_pageCloseOnly = value; }
    bool toPager() const { return m_toPager; }
    void setToPager(bool value) { m_toPager = value; }
    bool highAlarm() const { return m_highAlarm; }
    void setHighAlarm(bool value) { m_highAlarm = value; }
    bool lowAlarm() const { return m_lowAlarm; }
    void setLowAlarm(bool value) { m_lowAlarm = value; }
    QString openInterest() const { return m_openInterest; }
    void setOpenInterest(const QString& value) { m_openInterest = value; }
    QString openPrice() const { return m_openPrice; }
    void setOpenPrice(const QString& value);
    QString previousClose() const { return m_previousClose; }
    void setPreviousClose(const QString& value);
    qint16 securityIndex() const { return m_securityIndex; }
    void setSecurityIndex(qint16 value) { m_securityIndex = value; }
    float volumeLimit() const { return m_volumeLimit; }
    void setVolumeLimit(float value) { m_volumeLimit = value == 0 ? kNoVolumeLimit : value; }
    bool volumeAlarm() const { return m_volumeAlarm; }
    void setVolumeAlarm(bool value) { m_volumeAlarm = value; }
    float highChgLimit() const { return m_highChgLimit; }
    void setHighChgLimit(float value) { m_highChgLimit = value == 0 ? kNoHighChgLimit : value; }
    bool highChgAlarm() const { return m_highChgAlarm; }
    void setHighChgAlarm(bool value) { m_highChgAlarm = value; }
    float lowChgLimit() const { return m_lowChgLimit; }
    void setLowChgLimit(float value) { m_lowChgLimit = value == 0 ? kNoLowChgLimit : value; }
    bool lowChgAlarm() const { return m_lowChgAlarm; }
    void setLowChgAlarm(bool value) { m_lowChgAlarm = value; }
    qint16 pageAlarm() const { return m_pageAlarm; }
    void setPageAlarm(qint16 value) { m_pageAlarm = value; }
    // A negative value means "not chosen"; the first price write turns it into 2.
    qint16 digits() const { return m_digits; }
    void setDigits(qint16 value) { m_digits = value; }
    qint16 serverID() const { return m_serverID; }
    void setServerID(qint16 value) { m_serverID = value; }
    qint16 securityType() const { return m_securityType; }
    void setSecurityType(qint16 value) { m_securityType = value; }
    bool newLimit() const { return m_newLimit; }
    void setNewLimit(bool value) { m_newLimit = value; }
    // The source that priced this quote: a quote source of sources.json, or the name of
    // the servers.dat definition whose page was scraped. Empty until a cycle fills it.
    QString source() const { return m_source; }
    void setSource(const QString& value) { m_source = value; }

    // The numeric last price taken from Last (single precision, 0 for "n/a").
    float lastValue() const { return m_lastValue; }

    // The same holdings arithmetic as Security, with the last price read from the page.
    Currency Calc_MarketValue();
    Currency Calc_CostBasis();
    float Calc_PercentChg() const;
    // Change as a percentage of the previous close; 0 without a previous close.
    float Calc_PricePercentChg() const;
    // Last minus previous close, rounded the way a price text of this quote is.
    float Calc_PriceChg();
    // What a source that gives no change (or no percent change) has written instead: the
    // figure worked out from the previous close, or "n/a" when there is no previous close
    // (or, for the percentage, no change) to work it out from. An unknown change is never
    // a change of 0.
    QString changeFromPreviousClose();
    QString percentFromPreviousClose() const;

private:
    bool knowsPreviousClose() const;
    QString priceText(const QString& value);
    // Turns a flag on or off and notes an off-to-on change in NewLimit.
    void raise(bool& flag, bool on);
    void testPrice();
    void testPercent();
    void testVolume(qint32 volume);

    QString m_ticker;
    QString m_name;
    QString m_last;
    float m_lastValue = 0;
    QString m_bid;
    QString m_ask;
    QString m_volume;
    QString m_dayHigh;
    QString m_dayLow;
    QString m_percentChg;
    QString m_pe;
    QString m_eps;
    qint16 m_news = 0;
    QString m_update;
    QString m_yearHigh;
    QString m_yearLow;
    float m_shares = 0;
    Currency m_costBasis;
    QDateTime m_updateDate;
    // A fresh quote has no limits; zero would mean "alarm at any price".
    float m_highLimit = kNoHighLimit;
    float m_lowLimit = kNoLowLimit;
    Currency m_marketValue;
    Currency m_costValue;
    QString m_change;
    bool m_pageCloseOnly = false;
    bool m_toPager = false;
    bool m_highAlarm = false;
    bool m_lowAlarm = false;
    QString m_openInterest;
    QString m_openPrice;
    QString m_previousClose;
    qint16 m_securityIndex = 0;
    float m_volumeLimit = kNoVolumeLimit;
    bool m_volumeAlarm = false;
    float m_highChgLimit = kNoHighChgLimit;
    bool m_highChgAlarm = false;
    float m_lowChgLimit = kNoLowChgLimit;
    bool m_lowChgAlarm = false;
    qint16 m_pageAlarm = 0;
    qint16 m_digits = 0;
    qint16 m_serverID = 0;
    qint16 m_securityType = 0;
    bool m_newLimit = false;
    QString m_source;
};

} // namespace kestrova::core
