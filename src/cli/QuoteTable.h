#pragma once

#include <QString>
#include <QTextStream>

namespace kestrova::core {
class Quote;
class Quotes;
} // namespace kestrova::core

namespace kestrova::cli {

// The alarm marks of one quote as the tables show them: H high, L low, V volume, +% / -%
// percent change, and a leading * when an alarm has just switched on.
QString alarmMarks(const core::Quote& q);
// One quote set as a table with a title line.
void printQuoteTable(QTextStream& out, const QString& title, const core::Quotes& set);

} // namespace kestrova::cli
