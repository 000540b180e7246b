#pragma once

#include "quotes/SourceDefinition.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <array>
#include <optional>
#include <vector>

namespace kestrova::quotes {

// What a source said about one security, as values: every price-like field as a number,
// the name as text, the time of the quote.
struct SourceValues
{
    std::array<std::optional<double>, kSourceFieldCount> numbers{};
    QString name;
    QDateTime time;         // invalid when the source gave none
    bool timeOfDay = false; // false when it gave a date alone
};

struct SymbolAnswer
{
    bool priced = false;
    QString failure; // why there is no price for this symbol
    SourceValues values;
    // Fields the map names that this otherwise good answer does not hold at all (a value
    // of null or "N/D" is held: it is the service saying "nothing today").
    QStringList missingFields;
};

struct SourceAnswer
{
    QString failure;                   // why the whole answer is unusable; every symbol fails with it
    bool rateLimited = false;          // the answer itself says "too many requests"
    std::vector<SymbolAnswer> symbols; // one per symbol asked, in the order asked
};

// Nothing a quote source sends for a portfolio comes near this; a larger body is refused
// whole before any parsing.
inline constexpr qsizetype kMaxSourceAnswerBytes = 8 * 1024 * 1024;

// Reads a source's answer for the symbols asked (in the source's form). A pure function:
// bytes in, values or a reason per symbol out. It never throws and works in time and
// memory bounded by the size of the body, whatever the body holds (HTML instead of CSV,
// truncated or deeply nested JSON, null or "N/D" where a number should be).
SourceAnswer parseSourceAnswer(const SourceDefinition& source, const QByteArray& body, const QStringList& symbols);

// A number as a source writes it: "169.43", "+1.25", "0.6714%", "1,234,567", ".5";
// nothing for anything else ("N/D", "", "NaN", "inf", "12abc").
std::optional<double> sourceNumber(QStringView text);

} // namespace kestrova::quotes
