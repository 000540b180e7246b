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

} // namespace kestrova::history
