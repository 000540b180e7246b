#include "core/PriceFormat.h"

#include "support/Format.h"
#include "support/Text.h"

#include <QRegularExpression>

#include <cmath>
#include <limits>

namespace kestrova::core {

namespace {

// "45 3/8", "-1 1/4", "3/8": the whole part is whatever stands before the last blank in
// front of the slash; a "-" anywhere in it makes the price negative (so "-0 1/2" is -0.5).
double fractionValue(const QString& text, qsizetype slash)
{
    const qsizetype blank = text.lastIndexOf(u' ', slash);
    QStringView wholeText;
    QStringView numText;
    if (blank >= 0) {
        wholeText = QStringView(text).left(blank);
        numText = QStringView(text).mid(blank + 1, slash - blank - 1);
    } else {
        numText = QStringView(text).left(slash);
    }
    const double whole = std::fabs(support::leadingNumber(wholeText));
    const double num = support::leadingNumber(numText);
    const double den = support::leadingNumber(QStringView(text).mid(slash + 1));
    double value = den != 0 ? whole + num / den : whole;
    if (wholeText.contains(u'-')) {
        value = -value;
    }
    return value;
}

} // namespace

QString formatPrice(const QString& text, qint16& digits)
{
    if (digits < 0) {
        digits = 2;
    }
    if (text == QLatin1String("n/a")) {
        return text;
    }
    const qsizetype slash = text.indexOf(u'/');
    double value = slash >= 0 ? fractionValue(text, slash) : support::leadingNumber(text);
    return priceValueText(value, digits);
}

QString priceValueText(double value, qint16 digits)
{
    if (value == 0) {
        value = 0; // no "-0.00" from a negative zero
    }
    return support::formatNumber(value, support::pricePattern(digits < 0 ? 2 : digits));
}

qint32 toWholeNumber(const QString& text, bool* ok, bool* outOfRange)
{
    // Sign, digits that may carry thousands commas, optional decimals; blanks around it.
    static const QRegularExpression kWhole(QStringLiteral(R"(^\s*[+-]?(?:\d[\d,]*(?:\.\d*)?|\.\d+)\s*$)"));
    if (ok) {
        *ok = false;
    }
    if (outOfRange) {
        *outOfRange = false;
    }
    if (!kWhole.match(text).hasMatch()) {
        return 0;
    }
    QString plain = text.trimmed();
    plain.remove(u',');
    bool parsed = false;
    const double value = plain.toDouble(&parsed);
    // Range check before rounding to 64 bits so a huge digit string cannot overflow it. The
    // text has the shape of a number, so a conversion that fails overflowed a double.
    const bool fits = parsed && std::isfinite(value) && std::fabs(value) <= 4.0e9;
    const qint64 whole = fits ? support::roundHalfEven(value) : 0;
    if (!fits || whole < std::numeric_limits<qint32>::min() || whole > std::numeric_limits<qint32>::max()) {
        if (outOfRange) {
            *outOfRange = true;
        }
        return 0;
    }
    if (ok) {
        *ok = true;
    }
    return static_cast<qint32>(whole);
}

} // namespace kestrova::core
