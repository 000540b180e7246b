#include "quotes/SourceAnswer.h"

#include "quotes/JsonPrune.h"
#include "support/Cp1252.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLocale>
#include <QTimeZone>

#include <cmath>

namespace kestrova::quotes {

namespace {

// A batch answer has a row per symbol; anything far beyond that is not a quote answer.
constexpr int kMaxCsvRows = 2000;
constexpr int kMaxCsvColumns = 200;

bool isNumericField(int f)
{
    return f != int(SourceField::Name) && f != int(SourceField::Time) && f != int(SourceField::Date);
}

QString firstCharacters(const QString& text, int n = 120)
{
    const QString t = text.simplified();
    return t.size() > n ? t.left(n) + QStringLiteral("...") : t;
}

bool startsLikeHtml(const QByteArray& body)
{
    for (const char c : body) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
            continue;
        return c == '<';
    }
    return false;
}

// UTF-8 when the body is valid UTF-8 (all JSON and nearly all CSV is), else Windows-1252.
QString decodeText(const QByteArray& body)
{
    const QString utf8 = QString::fromUtf8(body);
    if (!utf8.contains(QChar::ReplacementCharacter) || body.contains("\xEF\xBF\xBD"))
        return utf8;
    return support::decodeCp1252(body);
}

// Seconds (or, when large, milliseconds) since 1970, or a date and/or time text.
QDateTime timeFromNumber(double v)
{
    if (!std::isfinite(v) || v <= 0)
        return {};
    if (v > 1e11)
        v /= 1000;
    if (v > 7258118400.0) // 2200-01-01: nothing sensible
        return {};
    return QDateTime::fromSecsSinceEpoch(qint64(v));
}

QDate dateFromText(const QString& t)
{
    QDate d = QDate::fromString(t, Qt::ISODate);
    if (!d.isValid())
        d = QDate::fromString(t, QStringLiteral("yyyyMMdd"));
    return d;
}

QTime timeFromText(const QString& t)
{
    QTime tm = QTime::fromString(t, Qt::ISODate);
    if (!tm.isValid())
        tm = QTime::fromString(t, QStringLiteral("HHmmss"));
    return tm;
}

// A whole time stamp in one text ("2024-01-05T22:00:09Z", "2024-01-05 22:00:09").
QDateTime dateTimeFromText(const QString& text, bool* timeOfDay)
{
    const QString t = text.trimmed();
    QDateTime dt = QDateTime::fromString(t, Qt::ISODate);
    if (!dt.isValid())
        dt = QDateTime::fromString(t, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    if (!dt.isValid())
        dt = QDateTime::fromString(t, QStringLiteral("yyyy-MM-dd HH:mm"));
    if (dt.isValid()) {
        *timeOfDay = true;
        return dt.timeSpec() == Qt::LocalTime ? dt : dt.toLocalTime();
    }
    const QDate d = dateFromText(t);
    if (d.isValid()) {
        *timeOfDay = false;
        return QDateTime(d, QTime(0, 0));
    }
    return {};
}

// One field's raw value, before it is read as a number, a name or a time.
struct Raw
{
    bool held = false; // the answer has the field at all
    bool isNumber = false;
    double number = 0;
    QString text;
};

bool isNoValue(const SourceDefinition& source, const QString& text)
{
    const QString t = text.trimmed();
    if (t.isEmpty())
        return true;
    for (const QString& n : source.noValue) {
        if (t.compare(n, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

// Turns the raw values of one security into its answer.
SymbolAnswer readValues(const SourceDefinition& source, const std::array<Raw, kSourceFieldCount>& raw)
{
    SymbolAnswer a;
    SourceValues& v = a.values;
    for (int f = 0; f < kSourceFieldCount; ++f) {
        if (source.fields[size_t(f)].isEmpty())
            continue;
        const Raw& r = raw[size_t(f)];
        if (!r.held) {
            a.missingFields << sourceFieldName(SourceField(f));
            continue;
        }
        if (isNumericField(f)) {
            if (r.isNumber && std::isfinite(r.number))
                v.numbers[size_t(f)] = r.number;
            else if (!r.isNumber && !isNoValue(source, r.text))
                v.numbers[size_t(f)] = sourceNumber(r.text);
        }
    }
    const Raw& name = raw[size_t(SourceField::Name)];
    if (name.held && !name.isNumber && !isNoValue(source, name.text))
        v.name = name.text.trimmed();

    // A time, a date, or a date with the time of day in another field.
    const Raw& time = raw[size_t(SourceField::Time)];
    const Raw& date = raw[size_t(SourceField::Date)];
    if (time.held && time.isNumber) {
        v.time = timeFromNumber(time.number);
        v.timeOfDay = v.time.isValid();
    } else if (time.held && !isNoValue(source, time.text)) {
        v.time = dateTimeFromText(time.text, &v.timeOfDay);
        if (!v.time.isValid()) {
            const QTime tm = timeFromText(time.text.trimmed());
            const QDate d = date.held && !date.isNumber ? dateFromText(date.text.trimmed()) : QDate();
            if (tm.isValid() && d.isValid()) {
                v.time = QDateTime(d, tm);
                v.timeOfDay = true;
            }
        }
    }
    if (!v.time.isValid() && date.held && !date.isNumber && !isNoValue(source, date.text)) {
        const QDate d = dateFromText(date.text.trimmed());
        if (d.isValid())
            v.time = QDateTime(d, QTime(0, 0));
    }

    const Raw& last = raw[size_t(SourceField::Last)];
    const std::optional<double>& price = v.numbers[size_t(SourceField::Last)];
    const bool noValue = !last.isNumber && isNoValue(source, last.text);
    if (price && *price != 0)
        a.priced = true;
    else if (!last.held)
        a.failure = QStringLiteral("no price in the answer");
    else if (noValue && !last.text.trimmed().isEmpty())
        a.failure = QStringLiteral("no data (%1)").arg(last.text.trimmed());
    else if (!last.isNumber && !noValue && !price)
        a.failure = QStringLiteral("unreadable price \"%1\"").arg(firstCharacters(last.text, 40));
    else
        a.failure = QStringLiteral("no price");
    if (!a.priced)
        a.missingFields.clear(); // only an otherwise good answer tells of a changed format
    return a;
}

// --- CSV -------------------------------------------------------------------------------

// RFC 4180 records: quoted cells may hold commas, doubled quotes and line breaks; CR LF or
// LF ends a record. Stops with a reason when the text is larger than any quote answer.
bool splitCsv(const QString& text, QList<QStringList>& rows, QString& failure)
{
    QStringList row;
    QString cell;
    bool quoted = false;
    bool any = false;
    const qsizetype n = text.size();
    auto endCell = [&] {
        row << cell;
        cell.clear();
    };
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = text[i];
        if (quoted) {
            if (c == u'"') {
                if (i + 1 < n && text[i + 1] == u'"') {
                    cell += u'"';
                    ++i;
                } else {
                    quoted = false;
                }
            } else {
                cell += c;
            }
            continue;
        }
        if (c == u'"') {
            quoted = true;
            any = true;
        } else if (c == u',') {
            endCell();
            any = true;
            if (row.size() > kMaxCsvColumns) {
                failure = QStringLiteral("the answer has more than %1 columns").arg(kMaxCsvColumns);
                return false;
            }
        } else if (c == u'\n' || c == u'\r') {
            if (c == u'\r' && i + 1 < n && text[i + 1] == u'\n')
                ++i;
            if (any || !cell.isEmpty()) {
                endCell();
                rows << row;
            }
            row.clear();
            any = false;
            if (rows.size() > kMaxCsvRows) {
                failure = QStringLiteral("the answer has more than %1 rows").arg(kMaxCsvRows);
                return false;
            }
        } else {
            cell += c;
            any = true;
        }
    }
    if (any || !cell.isEmpty()) {
        endCell();
        rows << row;
    }
    return true;
}

SourceAnswer parseCsv(const SourceDefinition& source, const QByteArray& body, const QStringList& symbols)
{
    SourceAnswer answer;
    if (startsLikeHtml(body)) {
        answer.failure = QStringLiteral("the answer is HTML, not CSV");
        return answer;
    }
    QList<QStringList> rows;
    if (!splitCsv(decodeText(body), rows, answer.failure))
        return answer;
    if (rows.isEmpty()) {
        answer.failure = QStringLiteral("the answer is empty");
        return answer;
    }
    const QStringList header = rows.takeFirst();
    auto column = [&](const QString& name) -> int {
        for (int i = 0; i < header.size(); ++i) {
            if (header[i].trimmed().compare(name, Qt::CaseInsensitive) == 0)
                return i;
        }
        return -1;
    };
    std::array<int, kSourceFieldCount> columns{};
    for (int f = 0; f < kSourceFieldCount; ++f) {
        columns[size_t(f)] = -1;
        for (const QString& name : source.fields[size_t(f)]) {
            columns[size_t(f)] = column(name);
            if (columns[size_t(f)] >= 0)
                break;
        }
    }
    if (columns[size_t(SourceField::Last)] < 0) {
        answer.failure = QStringLiteral("the answer has no column %1 (it begins \"%2\")")
                             .arg(source.fields[size_t(SourceField::Last)].join(QStringLiteral(" or ")),
                                  firstCharacters(header.join(u',')));
        return answer;
    }
    const int matchColumn = source.match.isEmpty() ? -1 : column(source.match);
    if (!source.match.isEmpty() && matchColumn < 0) {
        answer.failure = QStringLiteral("the answer has no column %1").arg(source.match);
        return answer;
    }

    answer.symbols.resize(size_t(symbols.size()));
    std::vector<bool> seen(size_t(symbols.size()), false);
    for (int r = 0; r < rows.size(); ++r) {
        const QStringList& cells = rows[r];
        int s = -1;
        if (matchColumn >= 0) {
            const QString who = cells.value(matchColumn).trimmed();
            for (int i = 0; i < symbols.size() && s < 0; ++i) {
                if (!seen[size_t(i)] && who.compare(symbols[i], Qt::CaseInsensitive) == 0)
                    s = i;
            }
        } else if (r < symbols.size()) {
            s = r;
        }
        if (s < 0)
            continue;
        std::array<Raw, kSourceFieldCount> raw{};
        for (int f = 0; f < kSourceFieldCount; ++f) {
            const int c = columns[size_t(f)];
            if (c >= 0 && c < cells.size()) {
                raw[size_t(f)].held = true;
                raw[size_t(f)].text = cells[c];
            }
        }
        answer.symbols[size_t(s)] = readValues(source, raw);
        seen[size_t(s)] = true;
    }
    for (size_t i = 0; i < seen.size(); ++i) {
        if (!seen[i])
            answer.symbols[i].failure = QStringLiteral("not in the answer");
    }
    return answer;
}

// --- JSON ------------------------------------------------------------------------------

// RFC 6901: nothing when the pointer leads nowhere in the document.
std::optional<QJsonValue> resolve(const QJsonValue& root, const QString& pointer)
{
    if (pointer.isEmpty())
        return root;
    QJsonValue at = root;
    const QStringList tokens = pointer.mid(1).split(u'/');
    for (QString token : tokens) {
        if (token.contains(u'~')) {
            token.replace(QLatin1String("~1"), QLatin1String("/"));
            token.replace(QLatin1String("~0"), QLatin1String("~"));
        }
        if (at.isObject()) {
            const QJsonObject o = at.toObject();
            const auto it = o.constFind(token);
            if (it == o.constEnd())
                return std::nullopt;
            at = *it;
        } else if (at.isArray()) {
            bool ok = false;
            const qsizetype i = token.toLongLong(&ok);
            const QJsonArray a = at.toArray();
            if (!ok || i < 0 || i >= a.size() || (token.size() > 1 && token.startsWith(u'0')) ||
                !token.front().isDigit())
                return std::nullopt;
            at = a.at(i);
        } else {
            return std::nullopt;
        }
    }
    return at;
}

// The first of the pointers that holds a message ("the service says ...").
QString messageAt(const QJsonValue& root, const QStringList& pointers)
{
    for (const QString& p : pointers) {
        const std::optional<QJsonValue> v = resolve(root, p);
        if (!v || v->isNull() || v->isUndefined())
            continue;
        if (v->isString() && v->toString().trimmed().isEmpty())
            continue;
        if (v->isObject() && v->toObject().isEmpty())
            continue;
        QString text;
        if (v->isString())
            text = v->toString();
        else if (v->isObject())
            text = QString::fromUtf8(QJsonDocument(v->toObject()).toJson(QJsonDocument::Compact));
        else if (v->isArray())
            text = QString::fromUtf8(QJsonDocument(v->toArray()).toJson(QJsonDocument::Compact));
        else
            text = v->toVariant().toString();
        return firstCharacters(text, 200);
    }
    return {};
}

SymbolAnswer readJsonItem(const SourceDefinition& source, const QJsonValue& item)
{
    std::array<Raw, kSourceFieldCount> raw{};
    for (int f = 0; f < kSourceFieldCount; ++f) {
        Raw& r = raw[size_t(f)];
        for (const QString& p : source.fields[size_t(f)]) {
            const std::optional<QJsonValue> v = resolve(item, p);
            if (!v)
                continue;
            r.held = true;
            if (v->isNull())
                continue; // held, but empty today: a later alternative may have it
            if (v->isDouble()) {
                r.isNumber = true;
                r.number = v->toDouble();
            } else if (v->isString()) {
                r.isNumber = false;
                r.text = v->toString();
            } else {
                r.isNumber = false;
                r.text = QStringLiteral("?");
            }
            break;
        }
    }
    return readValues(source, raw);
}

SourceAnswer parseJson(const SourceDefinition& source, const QByteArray& body, const QStringList& symbols)
{
    SourceAnswer answer;
    // Only what the definition points at is built; a text the quick read cannot take is
    // handed to the full parser, which either reads it after all or says what is wrong.
    JsonPaths paths;
    for (const QString& p : source.limits + source.errors)
        paths.add(p);
    for (const QStringList& pointers : source.fields) {
        for (const QString& p : pointers) {
            if (source.items.isEmpty())
                paths.add(p);
            else
                paths.addForEach(source.items, p);
        }
    }
    if (!source.items.isEmpty() && !source.match.isEmpty())
        paths.addForEach(source.items, source.match);
    QJsonValue root;
    if (const std::optional<QJsonValue> pruned = pruneJson(body, paths)) {
        root = *pruned;
    } else {
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
        if (error.error != QJsonParseError::NoError) {
            answer.failure = startsLikeHtml(body)       ? QStringLiteral("the answer is HTML, not JSON")
                             : body.trimmed().isEmpty() ? QStringLiteral("the answer is empty")
                                                        : QStringLiteral("the answer is not JSON (%1 at byte %2)")
                                                              .arg(error.errorString())
                                                              .arg(error.offset);
            return answer;
        }
        root = doc.isObject() ? QJsonValue(doc.object()) : QJsonValue(doc.array());
    }
    const QString limit = messageAt(root, source.limits);
    if (!limit.isEmpty()) {
        answer.rateLimited = true;
        answer.failure = QStringLiteral("the service says: ") + limit;
        return answer;
    }
    const QString refusal = messageAt(root, source.errors);
    if (!refusal.isEmpty()) {
        answer.failure = QStringLiteral("the service says: ") + refusal;
        return answer;
    }

    answer.symbols.resize(size_t(symbols.size()));
    if (source.items.isEmpty()) {
        if (!symbols.isEmpty())
            answer.symbols[0] = readJsonItem(source, root);
        for (int i = 1; i < symbols.size(); ++i)
            answer.symbols[size_t(i)].failure = QStringLiteral("not in the answer");
        return answer;
    }
    const std::optional<QJsonValue> items = resolve(root, source.items);
    if (!items || !items->isArray()) {
        answer.symbols.clear();
        answer.failure = QStringLiteral("the answer has no list at %1").arg(source.items);
        return answer;
    }
    const QJsonArray list = items->toArray();
    std::vector<bool> seen(size_t(symbols.size()), false);
    for (int k = 0; k < list.size(); ++k) {
        int s = -1;
        if (!source.match.isEmpty()) {
            const std::optional<QJsonValue> who = resolve(list.at(k), source.match);
            const QString name = who ? who->toString().trimmed() : QString();
            for (int i = 0; i < symbols.size() && s < 0; ++i) {
                if (!seen[size_t(i)] && !name.isEmpty() && name.compare(symbols[i], Qt::CaseInsensitive) == 0)
                    s = i;
            }
        } else if (k < symbols.size()) {
            s = k;
        }
        if (s < 0)
            continue;
        answer.symbols[size_t(s)] = readJsonItem(source, list.at(k));
        seen[size_t(s)] = true;
    }
    for (size_t i = 0; i < seen.size(); ++i) {
        if (!seen[i])
            answer.symbols[i].failure = QStringLiteral("not in the answer");
    }
    return answer;
}

// --- HTML ------------------------------------------------------------------------------

SourceAnswer parseHtml(const SourceDefinition& source, const QByteArray& body, const QStringList& symbols)
{
    SourceAnswer answer;
    if (body.trimmed().isEmpty()) {
        answer.failure = QStringLiteral("the answer is empty");
        return answer;
    }
    const QString text = decodeText(body);
    std::array<Raw, kSourceFieldCount> raw{};
    for (int f = 0; f < kSourceFieldCount; ++f) {
        for (const QRegularExpression& re : source.expressions[size_t(f)]) {
            const QRegularExpressionMatch m = re.match(text);
            if (!m.hasMatch())
                continue;
            raw[size_t(f)].held = true;
            raw[size_t(f)].text = m.captured(1).replace(QLatin1String("&nbsp;"), QLatin1String(" "));
            break;
        }
    }
    answer.symbols.resize(size_t(symbols.size()));
    if (!symbols.isEmpty())
        answer.symbols[0] = readValues(source, raw);
    for (int i = 1; i < symbols.size(); ++i)
        answer.symbols[size_t(i)].failure = QStringLiteral("not in the answer");
    return answer;
}

} // namespace

std::optional<double> sourceNumber(QStringView text)
{
    QString t = text.trimmed().toString();
    if (t.endsWith(u'%'))
        t.chop(1);
    t.remove(u',');
    t = t.trimmed();
    if (t.startsWith(u'+'))
        t.remove(0, 1);
    if (t.isEmpty())
        return std::nullopt;
    for (const QChar c : t) {
        // Digits, one sign, a point and an exponent: no "inf", "nan" or hex.
        if (!(c.isDigit() || c == u'.' || c == u'-' || c == u'e' || c == u'E'))
            return std::nullopt;
    }
    bool ok = false;
    const double v = QLocale::c().toDouble(t, &ok);
    if (!ok || !std::isfinite(v))
        return std::nullopt;
    return v;
}

SourceAnswer parseSourceAnswer(const SourceDefinition& source, const QByteArray& body, const QStringList& symbols)
{
    if (body.size() > kMaxSourceAnswerBytes) {
        SourceAnswer answer;
        answer.failure = QStringLiteral("the answer is larger than %1 MB").arg(kMaxSourceAnswerBytes / (1024 * 1024));
        return answer;
    }
    switch (source.format) {
    case SourceFormat::Csv:
        return parseCsv(source, body, symbols);
    case SourceFormat::Json:
        return parseJson(source, body, symbols);
    case SourceFormat::Html:
        return parseHtml(source, body, symbols);
    }
    return {};
}

} // namespace kestrova::quotes
