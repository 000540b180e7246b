#pragma once

#include "core/EntryRules.h"
#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "support/Currency.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace kestrova::core {

// One portfolio entry as a person types it: numbers are still text, so a form (or a
// command line) can hand over exactly what was entered and get back the message that
// names the field at fault.
struct EntryInput
{
    qint16 type = 0; // 0 Stock, 1 Option, 2 Mutual Fund, 3 Future
    QString ticker;
    QString name;
    QString shares;
    QString costBasis;
    QString highLimit;
    QString lowLimit;
    QString highChgLimit;
    QString lowChgLimit;
    QString volumeLimit;
    qint16 digits = 2;
    qint16 server = 0;
    bool toPager = true;
    bool marketOnly = false;
    bool news = true;

    // The form filled from a stored record (numbers in the form they are typed back in).
    static EntryInput fromRecord(const PortfolioRecord& record);
};

enum class EntryField {
    Type,
    Ticker,
    Name,
    Shares,
    CostBasis,
    HighLimit,
    LowLimit,
    HighChgLimit,
    LowChgLimit,
    VolumeLimit,
    Digits,
    Server
};
// The field's name in messages: "Ticker", "High Limit", "Low % Change", ...
QString entryFieldLabel(EntryField field);

// What a check found wrong: the field, and the message (beginning with its label).
struct EntryProblem
{
    EntryField field;
    QString message;
};

constexpr int kMaxNameLength = 60;
constexpr int kMaxDigits = 9;

// Reads a number the way the entry fields take it: blanks around, an optional sign,
// thousands commas, a decimal point. An empty field is 0. No value for anything else.
std::optional<double> parseEntryNumber(const QString& text);

// Checks every field in form order and builds the record. The first field at fault is
// returned and record is left untouched. Texts are trimmed; limits of 0 mean no limit.
std::optional<EntryProblem> parseEntry(const EntryInput& input, PortfolioRecord& record);

// The tickers of a list as a person types one: one a line, or separated by blanks, commas
// or semicolons; in upper case, each once, in the order typed.
QStringList splitTickers(const QString& text);

// Slot of the entry with this ticker (blanks and letter case ignored), or -1.
int findEntry(const PortfolioTable& table, const QString& ticker, int exceptSlot = -1);

// The table changes; each returns the refusal ("Too Many Tickers (50 Max)", a ticker
// already present) and leaves the table as it was, or an empty text when done.
QString addEntry(PortfolioTable& table, const PortfolioRecord& record);
QString replaceEntry(PortfolioTable& table, int slot, const PortfolioRecord& record);
void removeEntry(PortfolioTable& table, int slot);
// Moves an entry one place up (-1) or down (+1); pages list the entries in table order.
bool moveEntry(PortfolioTable& table, int slot, int step);

// The quote service a new entry of this type starts with: the options' default service
// for its kind.
qint16 defaultServerFor(const QuoteOptions& quotes, qint16 type);

// Whether one more entry fits: the refusal, or an empty text.
QString canAddEntry(const PortfolioTable& table);

// How a stored limit reads in the portfolio list; a limit of 0 ("none") reads as empty.
QString priceLimitText(float value, qint16 digits); // "##0." and `digits` zeros
QString changeLimitText(float value);               // "###.0%"
QString volumeLimitText(qint32 value);              // "#,##0 Shares"

// The money figures of a holding at a last price, by the entry's own rules.
struct HoldingFigures
{
    bool priced = false;   // a last price was known
    bool overflow = false; // the holding is beyond what currency holds
    support::Currency marketValue;
    support::Currency costValue;
    support::Currency gain;
    support::Currency gainPercent; // of the cost value; 0 without a cost
};
HoldingFigures holdingFigures(float shares, support::Currency costBasis, std::optional<float> lastPrice);

} // namespace kestrova::core
