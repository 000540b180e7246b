#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace kestrova::history {

// One quote as the history keeps it. Prices are numbers; a field the page did not give
// (or gave as "n/a") is empty rather than zero.
struct QuoteRow
{
    QString symbol;
    QDateTime fetchedAt; // when the program fetched it; the day's close for imported rows
    QDateTime quotedAt;  // the time the server stamped on the quote, when it gave one
    std::optional<double> last;
    std::optional<double> change;
    std::optional<double> percentChange;
    std::optional<qint64> volume;
    std::optional<double> bid;
    std::optional<double> ask;
    std::optional<double> high;
    std::optional<double> low;
    std::optional<double> open;
    QString source; // the quote service that priced it ("imported" for a CSV import)
    bool imported = false;

    bool operator==(const QuoteRow&) const = default;
};

// Which limit an alarm crossed; the names are what the store and the CLI show.
enum class AlarmKind { High, Low, HighChange, LowChange, Volume };

QString alarmKindName(AlarmKind kind);
std::optional<AlarmKind> alarmKindFromName(const QString& name);

// One alarm that fired in a cycle.
struct AlarmRow
{
    QString symbol;
    AlarmKind kind = AlarmKind::High;
    double limit = 0;
    double value = 0; // the price, percent change or volume that crossed the limit
    QDateTime firedAt;
    bool paged = false; // a page carrying it went out in that update

    bool operator==(const AlarmRow&) const = default;
};

// What one completed retrieval cycle adds to the history, written in one transaction.
struct CycleRecord
{
    QList<QuoteRow> quotes;
    QList<AlarmRow> alarms;
};

} // namespace kestrova::history
