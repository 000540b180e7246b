#pragma once

#include "history/HistoryTypes.h"

#include <QDateTime>
#include <QList>
#include <QPointF>
#include <QString>

namespace kestrova::history {

enum class ChartRange { Day, Week, Month, Year, All };

QString chartRangeName(ChartRange range);
// The first moment a range shows, counted back from now; invalid (open) for All.
QDateTime rangeStart(ChartRange range, const QDateTime& now);

// What a price chart of one security shows: its prices and volumes in time order, and
// the alarms that fired for it in the same span.
struct ChartData
{
    QString symbol;
    QList<qint64> times; // milliseconds since the epoch
    QList<double> prices;
    QList<double> volumes; // 0 where the quote gave none
    QList<AlarmRow> alarms;
    QString error; // why nothing could be read; empty for a store without rows
};

// Reads the chart's rows on a database connection of its own, so it may run on any
// thread while the window goes on. A quote without a price (0 or missing) is left out:
// it is a page that could not be read, not a crash to zero.
ChartData loadChartData(const QString& databasePath, const QString& symbol, const QDateTime& from,
                        const QDateTime& until);

// Thins a series for drawing: at most the lowest and the highest point of each of
// `buckets` equal time slices, in time order, so peaks survive while a year of minutes
// becomes a few thousand points. Series with no more than 2 * buckets points come back whole.
QList<QPointF> decimate(const QList<qint64>& times, const QList<double>& values, int buckets);

// A time axis without the hours no quote came in (nights, weekends, holidays), as stock
// charts draw one. Quotes no further apart than `breakMs` belong to one session; the pause
// between two sessions takes the room of one ordinary step between quotes, so the line
// runs from one close to the next open instead of across an empty night. Within a session
// the axis is plain time; with one session only it is plain time throughout.
class TradingTimeAxis
{
public:
    static constexpr qint64 kSessionBreakMs = 3LL * 3600 * 1000;

    struct Session
    {
        qint64 start = 0; // the session's first and last quote (ms since the epoch)
        qint64 end = 0;
        double at = 0; // where the session starts on the axis
    };

    // `times` in ascending order.
    explicit TradingTimeAxis(const QList<qint64>& times, qint64 breakMs = kSessionBreakMs);

    // Whether any pause was left out.
    bool compressed() const { return m_sessions.size() > 1; }
    // The axis position of a moment; rises with time. A moment within a pause falls
    // within the step that stands for the pause; one outside all quotes, at plain time.
    double position(qint64 time) const;
    // The room one pause takes: the usual step between two quotes of a session.
    qint64 step() const { return m_step; }
    const QList<Session>& sessions() const { return m_sessions; }
    // At most `count` sessions to put a date under, spread evenly, the first one included.
    QList<Session> labelled(int count) const;

private:
    QList<Session> m_sessions;
    qint64 m_step = 60000;
};

} // namespace kestrova::history
