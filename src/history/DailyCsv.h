#pragma once

#include "history/HistoryTypes.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace kestrova::history {

// A row of an import that could not be read, by its line number in the file (from 1).
struct CsvProblem
{
    int line = 0;
    QString why;

    bool operator==(const CsvProblem&) const = default;
};

struct DailyCsv
{
    QList<QuoteRow> rows;
    QList<CsvProblem> problems;
};

// Reads a daily price file in the shape quote services publish:
//   Date,Open,High,Low,Close,Volume
// The header may order the columns freely, carry others (Adj Close) and be missing
// altogether (then the columns stand in that order). Dates are YYYY-MM-DD, M/D/YYYY or
// YYYYMMDD; a row stands for the day's close at 16:00 local time. Date and Close are
// required; an empty or "null" Open, High, Low or Volume is simply missing. A row that
// cannot be read is reported and skipped, the others are kept.
DailyCsv parseDailyCsv(const QByteArray& bytes, const QString& symbol);

} // namespace kestrova::history
