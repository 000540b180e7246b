#include "support/Format.h"

#include <QRegularExpression>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <vector>

namespace kestrova::support {

namespace {

struct Section
{
    QString prefix; // literals before the first digit placeholder
    QString suffix; // literals after the last placeholder
    int minInt = 0; // number of '0' in the integer part
    int decimals = 0;
    int minDecimals = 0; // '0' placeholders after the point (the rest are '#')
    bool point = false;
    bool grouping = false;
    bool percent = false;
};

Section parseSection(QStringView pat)
{
    Section s;
    int first = -1;
    int last = -1;
    for (int i = 0; i < pat.size(); ++i) {
        const QChar c = pat[i];
        if (c == u'0' || c == u'#' || c == u'.' || (c == u',' && first >= 0)) {
            if (first < 0) {
                first = i;
            }
            last = i;
        }
    }
    if (first < 0) {
        s.prefix = pat.toString();
        s.percent = s.prefix.contains(u'%');
        return s;
    }
    // A ',' right after the last digit placeholder scales by 1000 in that language; we
    // never use it, so treat a trailing ',' as a literal.
    while (last > first && pat[last] == u',') {
        --last;
    }
    s.prefix = pat.left(first).toString();
    s.suffix = pat.mid(last + 1).toString();
    bool afterPoint = false;
    for (int i = first; i <= last; ++i) {
        const QChar c = pat[i];
        if (c == u'.') {
            afterPoint = true;
            s.point = true;
        } else if (c == u',') {
            if (!afterPoint) {
                s.grouping = true;
            }
        } else if (c == u'0') {
            if (afterPoint) {
                ++s.decimals;
                s.minDecimals = s.decimals;
            } else {
                ++s.minInt;
            }
        } else if (c == u'#') {
            if (afterPoint) {
                ++s.decimals;
            }
        }
    }
    s.percent = s.prefix.contains(u'%') || s.suffix.contains(u'%');
    return s;
}

// Decimal digits of |value| rounded half away from zero to `decimals` places, working on
// the 15 significant digits the value shows (so 1.005 rounds to 1.01, as users expect).
void roundedDigits(double value, int decimals, QString& intPart, QString& fracPart)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.14e", std::fabs(value));
    // buf: d.dddddddddddddde[+-]XX
    std::vector<int> digits;
    const char* p = buf;
    for (; *p && *p != 'e'; ++p) {
        if (*p >= '0' && *p <= '9') {
            digits.push_back(*p - '0');
        }
    }
    int exponent = (*p == 'e') ? std::atoi(p + 1) : 0;
    // digits[0] is at 10^exponent. Position of the decimal point: after (exponent + 1) digits.
    int pointPos = exponent + 1;
    // Pad on the left so pointPos >= 1.
    while (pointPos < 1) {
        digits.insert(digits.begin(), 0);
        ++pointPos;
    }
    // Pad on the right so there are enough fraction digits.
    while (static_cast<int>(digits.size()) < pointPos + decimals + 1) {
        digits.push_back(0);
    }
    const int keep = pointPos + decimals;
    const bool roundUp = digits[keep] >= 5;
    digits.resize(keep);
    if (roundUp) {
        int i = keep - 1;
        while (i >= 0) {
            if (++digits[i] < 10) {
                break;
            }
            digits[i] = 0;
            --i;
        }
        if (i < 0) {
            digits.insert(digits.begin(), 1);
            ++pointPos;
        }
    }
    intPart.clear();
    fracPart.clear();
    for (int i = 0; i < pointPos; ++i) {
        intPart += QChar(u'0' + digits[i]);
    }
    for (int i = pointPos; i < static_cast<int>(digits.size()); ++i) {
        fracPart += QChar(u'0' + digits[i]);
    }
    // Strip leading zeros of the integer part; the pattern decides how many to show.
    int nz = 0;
    while (nz < intPart.size() && intPart[nz] == u'0') {
        ++nz;
    }
    intPart.remove(0, nz);
}

QString applySection(const Section& s, double value)
{
    if (s.percent) {
        value *= 100.0;
    }
    QString intPart;
    QString fracPart;
    roundedDigits(value, s.decimals, intPart, fracPart);
    while (intPart.size() < s.minInt) {
        intPart.prepend(u'0');
    }
    if (s.grouping) {
        for (int i = intPart.size() - 3; i > 0; i -= 3) {
            intPart.insert(i, u',');
        }
    }
    // Optional decimals ('#') drop their trailing zeros.
    while (fracPart.size() > s.minDecimals && fracPart.endsWith(u'0')) {
        fracPart.chop(1);
    }
    QString body = intPart;
    if (s.point) {
        body += u'.' + fracPart;
    }
    return s.prefix + body + s.suffix;
}

bool roundsToZero(double value, const Section& s)
{
    QString i;
    QString f;
    roundedDigits(s.percent ? value * 100.0 : value, s.decimals, i, f);
    return i.isEmpty() && !f.contains(QRegularExpression(QStringLiteral("[1-9]")));
}

} // namespace

bool isShowable(double value)
{
    return std::isfinite(value) && std::fabs(value) < 1e15;
}

QString formatNumber(double value, QStringView pattern)
{
    std::vector<QStringView> parts;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= pattern.size(); ++i) {
        if (i == pattern.size() || pattern[i] == u';') {
            parts.push_back(pattern.mid(start, i - start));
            start = i + 1;
        }
    }
    const Section pos = parseSection(parts[0]);
    if (!isShowable(pos.percent ? value * 100.0 : value)) {
        return kNotAvailable.toString();
    }
    if (value < 0) {
        if (parts.size() >= 2 && !parts[1].isEmpty()) {
            return applySection(parseSection(parts[1]), -value);
        }
        if (roundsToZero(value, pos)) {
            return applySection(pos, 0.0);
        }
        return QStringLiteral("-") + applySection(pos, -value);
    }
    if (value == 0 && parts.size() >= 3 && !parts[2].isEmpty()) {
        return applySection(parseSection(parts[2]), 0.0);
    }
    return applySection(pos, value);
}

QString formatDate(const QDateTime& when, QStringView pattern)
{
    const QDate d = when.date();
    const QTime t = when.time();
    // Does the pattern show AM/PM? Then hours are 12-hour.
    const QString lower = pattern.toString().toLower();
    const bool ampm = lower.contains(QStringLiteral("am/pm"));
    QString out;
    bool lastWasHour = false;
    for (qsizetype i = 0; i < pattern.size();) {
        auto run = [&](QChar c) {
            qsizetype n = 0;
            while (i + n < pattern.size() && pattern[i + n].toLower() == c) {
                ++n;
            }
            return n;
        };
        const QChar c = pattern[i].toLower();
        if (c == u'a' && pattern.mid(i, 5).compare(QStringLiteral("am/pm"), Qt::CaseInsensitive) == 0) {
            const bool upper = pattern[i].isUpper();
            const QString s = t.hour() < 12 ? QStringLiteral("am") : QStringLiteral("pm");
            out += upper ? s.toUpper() : s;
            i += 5;
            continue;
        }
        if (c == u'y') {
            const qsizetype n = run(u'y');
            out += n >= 3 ? QString::number(d.year()).rightJustified(4, u'0')
                          : QString::number(d.year() % 100).rightJustified(2, u'0');
            i += n;
            lastWasHour = false;
        } else if (c == u'm') {
            const qsizetype n = run(u'm');
            if (lastWasHour) {
                out += n >= 2 ? QString::number(t.minute()).rightJustified(2, u'0') : QString::number(t.minute());
            } else {
                out += n >= 2 ? QString::number(d.month()).rightJustified(2, u'0') : QString::number(d.month());
            }
            i += n;
            lastWasHour = false;
        } else if (c == u'n') {
            const qsizetype n = run(u'n');
            out += n >= 2 ? QString::number(t.minute()).rightJustified(2, u'0') : QString::number(t.minute());
            i += n;
            lastWasHour = false;
        } else if (c == u'd') {
            const qsizetype n = run(u'd');
            out += n >= 2 ? QString::number(d.day()).rightJustified(2, u'0') : QString::number(d.day());
            i += n;
            lastWasHour = false;
        } else if (c == u'h') {
            const qsizetype n = run(u'h');
            int h = t.hour();
            if (ampm) {
                h = h % 12;
                if (h == 0) {
                    h = 12;
                }
            }
            out += n >= 2 ? QString::number(h).rightJustified(2, u'0') : QString::number(h);
            i += n;
            lastWasHour = true;
        } else if (c == u's') {
            const qsizetype n = run(u's');
            out += n >= 2 ? QString::number(t.second()).rightJustified(2, u'0') : QString::number(t.second());
            i += n;
            lastWasHour = false;
        } else {
            out += pattern[i];
            ++i;
            // A separator between the hour and "mm" keeps "mm" a minute.
            if (pattern[i - 1] != u':') {
                lastWasHour = false;
            }
        }
    }
    return out;
}

QDate zeroDate()
{
    return {1899, 12, 30};
}

QString generalDate(const QDateTime& when)
{
    const QDate d = when.date();
    const QTime t = when.time();
    const bool zeroTime = t.msecsSinceStartOfDay() / 1000 == 0;
    if (d == zeroDate() || !d.isValid()) {
        return formatDate(when, u"h:mm:ss AM/PM");
    }
    if (zeroTime) {
        return formatDate(when, u"m/d/yyyy");
    }
    return formatDate(when, u"m/d/yyyy h:mm:ss AM/PM");
}

double leadingNumber(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && (text[i] == u' ' || text[i] == u'\t')) {
        ++i;
    }
    QString num;
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) {
        num += text[i];
        ++i;
    }
    bool point = false;
    bool digit = false;
    for (; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c >= u'0' && c <= u'9') {
            num += c;
            digit = true;
        } else if (c == u'.' && !point) {
            num += c;
            point = true;
        } else {
            break;
        }
    }
    if (!digit) {
        return 0.0;
    }
    return num.toDouble();
}

std::optional<QTime> parseTimeOfDay(QStringView text)
{
    static const QRegularExpression re(QStringLiteral(R"(^\s*(\d{1,2}):(\d{2})(?::(\d{2}))?\s*([aApP][mM])?\s*$)"));
    const auto m = re.match(text.toString());
    if (!m.hasMatch()) {
        return std::nullopt;
    }
    int h = m.captured(1).toInt();
    const int min = m.captured(2).toInt();
    const int s = m.captured(3).isEmpty() ? 0 : m.captured(3).toInt();
    const QString ampm = m.captured(4).toLower();
    if (!ampm.isEmpty()) {
        if (h < 1 || h > 12) {
            return std::nullopt;
        }
        if (ampm == QLatin1String("am")) {
            h = h == 12 ? 0 : h;
        } else {
            h = h == 12 ? 12 : h + 12;
        }
    }
    const QTime t(h, min, s);
    if (!t.isValid()) {
        return std::nullopt;
    }
    return t;
}

namespace {
QString trimmedNumber(const char* buf)
{
    QString s = QString::fromLatin1(buf);
    if (s.contains(u'e') || s.contains(u'E')) {
        return s;
    }
    if (s.contains(u'.')) {
        while (s.endsWith(u'0')) {
            s.chop(1);
        }
        if (s.endsWith(u'.')) {
            s.chop(1);
        }
    }
    if (s == QStringLiteral("-0")) {
        s = QStringLiteral("0");
    }
    return s;
}
} // namespace

QString singleToText(float value)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.7g", static_cast<double>(value));
    // %g may switch to exponent form for small magnitudes; prefer fixed where it fits.
    if (std::fabs(value) >= 1e-5 && std::fabs(value) < 1e7) {
        const int intDigits =
            std::fabs(value) >= 1 ? static_cast<int>(std::floor(std::log10(std::fabs(value)))) + 1 : 0;
        const int dec = std::max(0, 7 - intDigits);
        std::snprintf(buf, sizeof buf, "%.*f", dec, static_cast<double>(value));
    }
    return trimmedNumber(buf);
}

QString singleToExactText(float value)
{
    if (!std::isfinite(value)) {
        return QStringLiteral("0");
    }
    // Fixed notation without a precision is the shortest form that round-trips; the largest
    // single needs 39 digits, the smallest 45 decimals.
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed);
    return QString::fromLatin1(buf, r.ptr - buf);
}

QString doubleToText(double value)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.15g", value);
    if (std::fabs(value) >= 1e-5 && std::fabs(value) < 1e15) {
        const int intDigits =
            std::fabs(value) >= 1 ? static_cast<int>(std::floor(std::log10(std::fabs(value)))) + 1 : 0;
        const int dec = std::max(0, 15 - intDigits);
        std::snprintf(buf, sizeof buf, "%.*f", dec, value);
    }
    return trimmedNumber(buf);
}

QString plainNumberText(double value)
{
    if (!std::isfinite(value)) {
        return kNotAvailable.toString();
    }
    if (value == 0 || (std::fabs(value) >= 1e-5 && std::fabs(value) < 1e15)) {
        return doubleToText(value);
    }
    // The shortest digits that read back as the same double, written out in full.
    char buf[400];
    const auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed);
    return QString::fromLatin1(buf, r.ptr - buf);
}

qint64 roundHalfEven(double value)
{
    return static_cast<qint64>(std::nearbyint(value));
}

std::optional<qint64> wholeNumberIn(double value, qint64 low, qint64 high)
{
    // Compared as doubles before converting: 2^63 itself is out of range, and NaN fails both.
    const double t = std::trunc(value);
    if (!(t >= static_cast<double>(low) && t <= static_cast<double>(high)) || t >= 9223372036854775808.0) {
        return std::nullopt;
    }
    const auto whole = static_cast<qint64>(t);
    if (whole < low || whole > high) {
        return std::nullopt;
    }
    return whole;
}

} // namespace kestrova::support
