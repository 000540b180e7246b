#pragma once

#include <QString>
#include <QtGlobal>

namespace kestrova::core {

// The rule every price text of a quote goes through: "n/a" stays, fractions such as
// "45 3/8", "3/8" or "-1 1/4" become decimals, anything else is read by its leading
// number, and the value is written with "####0." and `digits` zeros. A negative digit
// count means "not chosen yet"; it becomes 2 and the caller keeps that choice.
QString formatPrice(const QString& text, qint16& digits);

// A whole-number text read like a 32-bit integer conversion: optional sign, digits with
// thousands commas, decimals rounded half to even. ok is false for anything else and on
// overflow, and the result is then 0.
qint32 toWholeNumber(const QString& text, bool* ok = nullptr);

} // namespace kestrova::core
