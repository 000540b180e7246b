#include "cli/QuoteTable.h"

#include "core/Quote.h"
#include "core/Quotes.h"

namespace kestrova::cli {

QString alarmMarks(const core::Quote& q)
{
    QString m;
    if (q.highAlarm())
        m += u'H';
    if (q.lowAlarm())
        m += u'L';
    if (q.volumeAlarm())
        m += u'V';
    if (q.highChgAlarm())
        m += QStringLiteral("+%");
    if (q.lowChgAlarm())
        m += QStringLiteral("-%");
    if (q.newLimit())
        m.prepend(u'*');
    return m;
}

void printQuoteTable(QTextStream& out, const QString& title, const core::Quotes& set)
{
    out << title << ":\n";
    out << QStringLiteral("  %1 %2 %3 %4 %5 %6 %7  %8 %9\n")
               .arg(QStringLiteral("Ticker"), -10)
               .arg(QStringLiteral("Last"), 10)
               .arg(QStringLiteral("Change"), 9)
               .arg(QStringLiteral("%Chg"), 7)
               .arg(QStringLiteral("Volume"), 11)
               .arg(QStringLiteral("Alarm"), -5)
               .arg(QStringLiteral("News"), -4)
               .arg(QStringLiteral("Source"), -12)
               .arg(QStringLiteral("Update"));
    for (const auto& q : set) {
        out << QStringLiteral("  %1 %2 %3 %4 %5 %6 %7  %8 %9\n")
                   .arg(q->ticker(), -10)
                   .arg(q->last(), 10)
                   .arg(q->change(), 9)
                   .arg(q->percentChg(), 7)
                   .arg(q->volume(), 11)
                   .arg(alarmMarks(*q), -5)
                   .arg(q->news() ? QStringLiteral("yes") : QString(), -4)
                   .arg(q->source(), -12)
                   .arg(q->update());
    }
}

} // namespace kestrova::cli
