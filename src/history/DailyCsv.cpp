#include "history/DailyCsv.h"

#include "support/Format.h"

#include <QDate>
#include <QLocale>
#include <QStringList>

#include <array>
#include <cmath>
#include <limits>

namespace kestrova::history {

namespace {

enum Column { Date, Open, High, Low, Close, Volume, ColumnCount };

const std::array<QLatin1String, ColumnCount> kNames{QLatin1String("date"),  QLatin1String("open"),
                                                    QLatin1String("high"),  QLatin1String("low"),
                                                    QLatin1String("close"), QLatin1String("volume")};

QStringList splitFields(const QString& line)
{
    QStringList fields;
    QString field;
    bool quoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line[i];
        if (quoted) {
            if (c == u'"' && i + 1 < line.size() && line[i + 1] == u'"') {
                field += u'"';
                ++i;
            } else if (c == u'"') {
                quoted = false;
            } else {
                field += c;
            }
        } else if (c == u'"') {
            quoted = true;
        } else if (c == u',') {
            fields << field.trimmed();
            field.clear();
        } else {
            field += c;
        }
    }
    fields << field.trimmed();
    return fields;
}

QDate readDate(const QString& text)
{
    for (const char* format : {"yyyy-MM-dd", "M/d/yyyy", "yyyyMMdd"}) {
        const QDate d = QDate::fromString(text, QLatin1String(format));
        if (d.isValid()) {
            return d;
        }
    }
    return {};
}

bool isMissing(const QString& text)
{
    return text.isEmpty() || text.compare(QLatin1String("null"), Qt::CaseInsensitive) == 0;
}

// A plain decimal number as a file or a service writes one: digits, one point and an
// exponent. "nan", "inf" and hex forms are refused before Qt sees them (QString::toDouble
// takes them), and so is one too large for a double ("1e309"). A sign is refused too: no
// price or volume is negative, and a "-0" is a broken file, not a zero.
std::optional<double> plainNumber(const QString& text)
{
    if (text.isEmpty()) {
        return std::nullopt;
    }
    for (const QChar c : text) {
        if (!(c.isDigit() || c == u'.' || c == u'e' || c == u'E' || c == u'+')) {
            return std::nullopt;
        }
    }
    if (text.startsWith(u'+')) {
        return std::nullopt;
    }
    bool ok = false;
    const double v = QLocale::c().toDouble(text, &ok);
    if (!ok || !std::isfinite(v)) {
        return std::nullopt;
    }
    return v;
}

// A price field: true with the value (or nothing for a missing one), false for a text
// that is not a price.
bool readPrice(const QString& text, std::optional<double>& out)
{
    out.reset();
    if (isMissing(text)) {
        return true;
    }
    out = plainNumber(text);
    return out.has_value();
}

// A volume: a whole number of shares that fits the store's 64-bit column. Written as
// digits it is read exactly; a decimal or exponent form is rounded toward zero.
std::optional<qint64> readVolume(const QString& text)
{
    bool ok = false;
    const qint64 whole = text.toLongLong(&ok);
    if (ok && !text.startsWith(u'-') && !text.startsWith(u'+')) {
        return whole;
    }
    const std::optional<double> v = plainNumber(text);
    return v ? support::wholeNumberIn(*v, 0, std::numeric_limits<qint64>::max()) : std::nullopt;
}

} // namespace

DailyCsv parseDailyCsv(const QByteArray& bytes, const QString& symbol)
{
    DailyCsv result;
    QString text = QString::fromUtf8(bytes);
    if (text.startsWith(QChar(0xfeff))) {
        text.remove(0, 1);
    }
    const QStringList lines = text.split(u'\n');
    std::array<int, ColumnCount> at{0, 1, 2, 3, 4, 5};
    bool headerSeen = false;
    for (qsizetype n = 0; n < lines.size(); ++n) {
        QString line = lines[n];
        if (line.endsWith(u'\r')) {
            line.chop(1);
        }
        if (line.trimmed().isEmpty()) {
            continue;
        }
        const int lineNo = static_cast<int>(n) + 1;
        const QStringList f = splitFields(line);
        if (!headerSeen) {
            headerSeen = true;
            if (!readDate(f.value(0)).isValid()) {
                at.fill(-1);
                for (qsizetype i = 0; i < f.size(); ++i) {
                    for (int c = 0; c < ColumnCount; ++c) {
                        if (f[i].compare(kNames[size_t(c)], Qt::CaseInsensitive) == 0 && at[size_t(c)] < 0) {
                            at[size_t(c)] = static_cast<int>(i);
                        }
                    }
                }
                if (at[Date] < 0 || at[Close] < 0) {
                    result.problems << CsvProblem{lineNo,
                                                  QStringLiteral("the header names no Date or no Close column")};
                    return result;
                }
                continue;
            }
        }
        auto field = [&](Column c) { return at[size_t(c)] < 0 ? QString() : f.value(at[size_t(c)]); };
        const QDate date = readDate(field(Date));
        if (!date.isValid()) {
            result.problems << CsvProblem{lineNo, QStringLiteral("\"%1\" is not a date").arg(field(Date))};
            continue;
        }
        QuoteRow r;
        r.symbol = symbol;
        r.fetchedAt = QDateTime(date, QTime(16, 0));
        r.quotedAt = r.fetchedAt;
        r.source = QStringLiteral("import");
        r.imported = true;
        QString bad;
        const std::array<std::pair<Column, std::optional<double>*>, 4> prices{
            {{Open, &r.open}, {High, &r.high}, {Low, &r.low}, {Close, &r.last}}};
        for (const auto& [column, target] : prices) {
            if (bad.isEmpty() && !readPrice(field(column), *target)) {
                bad = QStringLiteral("%1 \"%2\" is not a price").arg(kNames[size_t(column)], field(column));
            }
        }
        if (bad.isEmpty() && !r.last) {
            bad = QStringLiteral("no close price");
        }
        if (bad.isEmpty() && r.high && r.low && *r.high < *r.low) {
            bad = QStringLiteral("high %1 is below low %2").arg(*r.high).arg(*r.low);
        }
        if (bad.isEmpty() && !isMissing(field(Volume))) {
            r.volume = readVolume(field(Volume));
            if (!r.volume) {
                bad = QStringLiteral("volume \"%1\" is not a number of shares").arg(field(Volume));
            }
        }
        if (!bad.isEmpty()) {
            result.problems << CsvProblem{lineNo, bad};
            continue;
        }
        result.rows << r;
    }
    return result;
}

} // namespace kestrova::history
