#pragma once

#include "quotes/BuiltInServers.h"
#include "quotes/PageBody.h"

#include <QDateTime>
#include <QString>
#include <QStringView>
#include <QtGlobal>

#include <array>
#include <vector>

namespace kestrova::core {
class Quote;
}
namespace kestrova::support {
class Clock;
class Host;
} // namespace kestrova::support

namespace kestrova::quotes {

class PageFetcher;

// What scraping needs from the program around it.
struct ScrapeContext
{
    PageFetcher& fetcher;
    const BuiltInServers& builtIn;
    const support::Clock& clock;
    support::Host& host;
};

// One quote service as servers.dat describes it: the URL to request and, for each quote
// field, the marker text (Key) to look for in the page and how far past it the value
// stands (Offset: -1 not offered, 0 the word after the key, N the N-th cell after it).
class Qserver
{
public:
    enum class Field {
        Last,
        Volume,
        Change,
        PercentChg,
        Bid,
        Ask,
        DayHigh,
        DayLow,
        EPS,
        PE,
        Update,
        YearHigh,
        YearLow,
        Name,
        Range,
        Open,
        Interest,
        Previous,
        Count
    };
    static constexpr int kFieldCount = int(Field::Count);

    QString key(Field f) const { return m_keys[size_t(f)]; }
    void setKey(Field f, const QString& v) { m_keys[size_t(f)] = v; }
    qint16 offset(Field f) const { return m_offsets[size_t(f)]; }
    void setOffset(Field f, qint16 v) { m_offsets[size_t(f)] = v; }

    QString url() const { return m_url; }
    void setUrl(const QString& v) { m_url = v; }
    QString ticker() const { return m_ticker; }
    void setTicker(const QString& v) { m_ticker = v; }
    QString serverName() const { return m_serverName; }
    void setServerName(const QString& v) { m_serverName = v; }
    QString postData() const { return m_postData; }
    void setPostData(const QString& v) { m_postData = v; }
    qint16 serverIndex() const { return m_serverIndex; }
    void setServerIndex(qint16 v) { m_serverIndex = v; }
    QString username() const { return m_username; }
    void setUsername(const QString& v) { m_username = v; }
    QString password() const { return m_password; }
    void setPassword(const QString& v) { m_password = v; }

    QString lastKey() const { return key(Field::Last); }
    void setLastKey(const QString& v) { setKey(Field::Last, v); }
    qint16 lastOffset() const { return offset(Field::Last); }
    void setLastOffset(qint16 v) { setOffset(Field::Last, v); }
    QString volumeKey() const { return key(Field::Volume); }
    void setVolumeKey(const QString& v) { setKey(Field::Volume, v); }
    qint16 volumeOffset() const { return offset(Field::Volume); }
    void setVolumeOffset(qint16 v) { setOffset(Field::Volume, v); }
    QString changeKey() const { return key(Field::Change); }
    void setChangeKey(const QString& v) { setKey(Field::Change, v); }
    qint16 changeOffset() const { return offset(Field::Change); }
    void setChangeOffset(qint16 v) { setOffset(Field::Change, v); }
    QString percentChgKey() const { return key(Field::PercentChg); }
    void setPercentChgKey(const QString& v) { setKey(Field::PercentChg, v); }
    qint16 percentChgOffset() const { return offset(Field::PercentChg); }
    void setPercentChgOffset(qint16 v) { setOffset(Field::PercentChg, v); }
    QString bidKey() const { return key(Field::Bid); }
    void setBidKey(const QString& v) { setKey(Field::Bid, v); }
    qint16 bidOffset() const { return offset(Field::Bid); }
    void setBidOffset(qint16 v) { setOffset(Field::Bid, v); }
    QString askKey() const { return key(Field::Ask); }
    void setAskKey(const QString& v) { setKey(Field::Ask, v); }
    qint16 askOffset() const { return offset(Field::Ask); }
    void setAskOffset(qint16 v) { setOffset(Field::Ask, v); }
    QString dayHighKey() const { return key(Field::DayHigh); }
    void setDayHighKey(const QString& v) { setKey(Field::DayHigh, v); }
    qint16 dayHighOffset() const { return offset(Field::DayHigh); }
    void setDayHighOffset(qint16 v) { setOffset(Field::DayHigh, v); }
    QString dayLowKey() const { return key(Field::DayLow); }
    void setDayLowKey(const QString& v) { setKey(Field::DayLow, v); }
    qint16 dayLowOffset() const { return offset(Field::DayLow); }
    void setDayLowOffset(qint16 v) { setOffset(Field::DayLow, v); }
    QString epsKey() const { return key(Field::EPS); }
    void setEPSKey(const QString& v) { setKey(Field::EPS, v); }
    qint16 epsOffset() const { return offset(Field::EPS); }
    void setEPSOffset(qint16 v) { setOffset(Field::EPS, v); }
    QString peKey() const { return key(Field::PE); }
    void setPEKey(const QString& v) { setKey(Field::PE, v); }
    qint16 peOffset() const { return offset(Field::PE); }
    void setPEOffset(qint16 v) { setOffset(Field::PE, v); }
    QString updateKey() const { return key(Field::Update); }
    void setUpdateKey(const QString& v) { setKey(Field::Update, v); }
    qint16 updateOffset() const { return offset(Field::Update); }
    void setUpdateOffset(qint16 v) { setOffset(Field::Update, v); }
    QString yearHighKey() const { return key(Field::YearHigh); }
    void setYearHighKey(const QString& v) { setKey(Field::YearHigh, v); }
    qint16 yearHighOffset() const { return offset(Field::YearHigh); }
    void setYearHighOffset(qint16 v) { setOffset(Field::YearHigh, v); }
    QString yearLowKey() const { return key(Field::YearLow); }
    void setYearLowKey(const QString& v) { setKey(Field::YearLow, v); }
    qint16 yearLowOffset() const { return offset(Field::YearLow); }
    void setYearLowOffset(qint16 v) { setOffset(Field::YearLow, v); }
    QString nameKey() const { return key(Field::Name); }
    void setNameKey(const QString& v) { setKey(Field::Name, v); }
    qint16 nameOffset() const { return offset(Field::Name); }
    void setNameOffset(qint16 v) { setOffset(Field::Name, v); }
    QString rangeKey() const { return key(Field::Range); }
    void setRangeKey(const QString& v) { setKey(Field::Range, v); }
    qint16 rangeOffset() const { return offset(Field::Range); }
    void setRangeOffset(qint16 v) { setOffset(Field::Range, v); }
    QString openKey() const { return key(Field::Open); }
    void setOpenKey(const QString& v) { setKey(Field::Open, v); }
    qint16 openOffset() const { return offset(Field::Open); }
    void setOpenOffset(qint16 v) { setOffset(Field::Open, v); }
    QString interestKey() const { return key(Field::Interest); }
    void setInterestKey(const QString& v) { setKey(Field::Interest, v); }
    qint16 interestOffset() const { return offset(Field::Interest); }
    void setInterestOffset(qint16 v) { setOffset(Field::Interest, v); }
    QString previousKey() const { return key(Field::Previous); }
    void setPreviousKey(const QString& v) { setKey(Field::Previous, v); }
    qint16 previousOffset() const { return offset(Field::Previous); }
    void setPreviousOffset(qint16 v) { setOffset(Field::Previous, v); }

    // The value standing Offset past Key in a prepared page: "n/a" when the server does not
    // offer the field, "???" when the key or the value's end is missing. Raises VbError 5
    // when a search would have to start at position 0 (word mode with a missing key, cell
    // mode that runs out of tabs) - definitions must not let that happen.
    static QString FindKey(const QString& key, qint16 offset, const QString& page);
    QString FindKey(Field f, const QString& page) const { return FindKey(key(f), offset(f), page); }
    // Where each key first stands in the page (-1 when it does not; 0 for an empty key),
    // found in a single pass that ends once every key is placed. A fill reads some twenty
    // fields, and a search per field made it scan a large page twenty times.
    static std::vector<qsizetype> keyPositions(const QString& page, const std::vector<QStringView>& keys);

    // The request URL for the current Ticker; with a log-on it carries "user:password@".
    QString requestUrl(PageFetcher& fetcher) const;

    // Fetches the page for Ticker and fills the quote; false (quote untouched) when the
    // page came back empty. VbError from FindKey propagates.
    bool GetQuote(core::Quote& quote, const ScrapeContext& ctx) const;
    // The same from a body fetched beforehand (the retrieval cycle fetches side by side).
    bool fillQuote(core::Quote& quote, const PageBody& body, const ScrapeContext& ctx) const;

    // The page as the key/offset rules see it: <sup>/<sub> removed, &nbsp; a blank,
    // markup turned into tabs.
    static QString preparePage(const PageBody& body);
    // FindKey's value once the key's position is known (p: 1-based position of the key, 0
    // when absent).
    static QString valueAfterKey(qsizetype p, qint16 offset, const QString& page);
    // The time stamp of a quote ("10/27/2000 @ 4:01PM ET"), the zero date when unreadable.
    static QDateTime stampDate(const QString& text, const QDate& today);

private:
    void fillByKeys(core::Quote& quote, const QString& page, const BuiltInServers& builtIn, const QDate& today) const;
    static void fillLabelled(core::Quote& quote, const QString& page);

    QString m_url;
    QString m_ticker;
    QString m_serverName;
    QString m_postData;
    qint16 m_serverIndex = 0;
    QString m_username;
    QString m_password;
    std::array<QString, kFieldCount> m_keys{};
    std::array<qint16, kFieldCount> m_offsets{};
};

} // namespace kestrova::quotes
