#pragma once

#include <QDateTime>
#include <QString>
#include <QStringView>
#include <QTime>

#include <optional>

namespace kestrova::support {

// The one place that turns numbers and dates into display text. Patterns follow the
// classic BASIC Format() language, limited to what this program uses:
//   numbers: "0" digit, "#" optional digit, "." decimal point, "," grouping (between
//            digit placeholders), "%" percent (value x 100), any other character is a
//            literal; up to three sections "positive;negative;zero". A negative value
//            with one section gets a leading "-". Rounding is half away from zero on the
//            value's 15 significant decimal digits, as that Format() did.
//   dates:   "m/d/yy  h:mm am/pm", "mm/dd/yyyy", "hh:mm" and friends (m, mm, d, dd, yy,
//            yyyy, h, hh, n/nn or mm after an hour, ss, am/pm or AM/PM).
// A number it cannot write digit for digit (see isShowable) comes out as "n/a": a price of
// 1e308 or an infinity must never read as some other, ordinary number.
QString formatNumber(double value, QStringView pattern);
QString formatDate(const QDateTime& when, QStringView pattern);

// Text of a figure that is not known: not offered, not derivable, or beyond what can be shown.
inline constexpr QLatin1StringView kNotAvailable{"n/a"};

// Finite and with a whole part of at most the 15 significant digits formatNumber works with;
// past that the digits it wrote would be made up.
bool isShowable(double value);

// The general date: "11/21/2026 1:05:03 PM"; date only at midnight, time only for the
// zero date (12/30/1899).
QString generalDate(const QDateTime& when);
QDate zeroDate();

// The leading number of a text: blanks skipped, an optional sign, digits with at most
// one decimal point, stopping at the first other character. Empty or non-numeric is 0.
double leadingNumber(QStringView text);

// A time of day as the schedule fields take it: "9:30 am", "12:00 pm", "03:42:00 pm",
// "16:05"; nothing for anything else (an hour of 13 with am/pm, minutes past 59, ...).
std::optional<QTime> parseTimeOfDay(QStringView text);

// Plain number-to-text of a single-precision value (7 significant digits, no
// trailing zeros, no exponent for ordinary magnitudes): 1.5 -> "1.5", -0.25 -> "-0.25".
QString singleToText(float value);
// The shortest plain decimal (digits, a point only when there are decimals, never an
// exponent) that reads back as exactly the same single: 12345678 -> "12345678",
// 1e9 -> "1000000000", -0.000001 -> "-0.000001". What the portfolio file stores, where a
// limit must come back as it was set. A value that is not finite is written as "0".
QString singleToExactText(float value);
// The same for doubles with 15 significant digits.
QString doubleToText(double value);
// A number as plain decimals whatever its size (1e308 is 309 digits, 1e-7 is "0.0000001"):
// the form a value takes on its way into a quote, whose texts are read back by their
// leading number, which an exponent would cut short ("1e+308" reads as 1).
QString plainNumberText(double value);

// Rounds half to the even neighbour (the rule of integer conversions and currency).
qint64 roundHalfEven(double value);

// A value read from outside (a server's reply, a file) as a whole number, truncated toward
// zero; nothing when it is not a number or lies outside [low, high]. Converting such a value
// unchecked is undefined behaviour, and a hostile peer chooses the value.
std::optional<qint64> wholeNumberIn(double value, qint64 low, qint64 high);

} // namespace kestrova::support
