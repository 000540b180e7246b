#pragma once

#include <QString>
#include <QtGlobal>

namespace kestrova::core {

// The rule every price text of a quote goes through: "n/a" stays, fractions such as
// "45 3/8", "3/8" or "-1 1/4" become decimals, anything else is read by its leading
// number, and the value is written with "####0." and `digits` zeros. A negative digit
// count means "not chosen yet"; it becomes 2 and the caller keeps that choice. A value too
// large to be written digit for digit is "n/a", never a shorter number.
QString formatPrice(const QString& text, qint16& digits);
// A price already read as a number, written as every quote price is: "####0." and
// `digits` zeros (a negative count taken as 2). A single's 149.54 reads "149.54", not
// "149.539993".
QString priceValueText(double value, qint16 digits);

// A whole-number text read like a 32-bit integer conversion: optional sign, digits with
// thousands commas, decimals rounded half to even. ok is false for anything else and on
// overflow, and the result is then 0; outOfRange tells the second case from the first (a
// number, only not one that 32 bits hold).
qint32 toWholeNumber(const QString& text, bool* ok = nullptr, bool* outOfRange = nullptr);

} // namespace kestrova::core
