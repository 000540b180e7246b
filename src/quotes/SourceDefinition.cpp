#include "quotes/SourceDefinition.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <optional>

namespace kestrova::quotes {

namespace {

const char* const kFieldNames[kSourceFieldCount] = {
    "name",   "last", "change", "percentChange", "open",    "high", "low", "previousClose", "bid", "ask",
    "volume", "time", "date",   "yearHigh",      "yearLow", "eps",  "pe"};

QString escapeToken(const QString& token)
{
    QString t = token;
    t.replace(u'~', QLatin1String("~0"));
    t.replace(u'/', QLatin1String("~1"));
    return t;
}

// The line on which each member or element of a JSON text starts, by JSON pointer. The
// text has already been read by QJsonDocument, so this only has to follow its structure.
QHash<QString, int> valueLines(const QByteArray& text)
{
    struct Frame
    {
        bool array = false;
        int index = 0;
        QString path;
        QString key;
    };
    QHash<QString, int> lines;
    std::vector<Frame> stack;
    bool expectKey = false;
    int line = 1;
    auto valuePath = [&]() -> QString {
        if (stack.empty())
            return QString();
        const Frame& f = stack.back();
        return f.path + u'/' + (f.array ? QString::number(f.index) : escapeToken(f.key));
    };
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n) {
        const char c = text[i];
        if (c == '\n') {
            ++line;
            ++i;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == ':') {
            ++i;
        } else if (c == ',') {
            if (!stack.empty()) {
                if (stack.back().array)
                    ++stack.back().index;
                else
                    expectKey = true;
            }
            ++i;
        } else if (c == '"') {
            qsizetype j = i + 1;
            while (j < n && text[j] != '"')
                j += text[j] == '\\' ? 2 : 1;
            const QByteArray raw = text.mid(i, qMin(j, n - 1) - i + 1);
            if (!stack.empty() && !stack.back().array && expectKey) {
                stack.back().key = QJsonDocument::fromJson("[" + raw + "]").array().at(0).toString();
                expectKey = false;
            } else {
                lines.insert(valuePath(), line);
            }
            i = j + 1;
        } else if (c == '{' || c == '[') {
            const QString path = valuePath();
            lines.insert(path, line);
            stack.push_back(Frame{c == '[', 0, path, {}});
            expectKey = c == '{';
            ++i;
        } else if (c == '}' || c == ']') {
            if (!stack.empty())
                stack.pop_back();
            expectKey = false;
            ++i;
        } else {
            lines.insert(valuePath(), line);
            static const QByteArray ends(",}] \t\r\n");
            while (i < n && !ends.contains(text[i]))
                ++i;
        }
    }
    return lines;
}

int lineOfOffset(const QByteArray& text, qsizetype offset)
{
    return int(text.left(offset).count('\n')) + 1;
}

// Reads one source; returns why it cannot be used (and the line that shows it), or nothing.
class SourceReader
{
public:
    SourceReader(const QJsonObject& object, const QString& path, const QHash<QString, int>& lines)
        : m_object(object), m_path(path), m_lines(lines)
    {}

    std::optional<SourceDefinition> read()
    {
        SourceDefinition s;
        s.line = lineOf(QString());
        s.name = m_object.value(QLatin1String("name")).toString().trimmed();
        if (s.name.isEmpty())
            return fail(QString(), QStringLiteral("has no name"));
        if (s.name.compare(kServersDatEntry, Qt::CaseInsensitive) == 0)
            return fail(QStringLiteral("name"), QStringLiteral("may not be called servers.dat"));

        static const QStringList known = {
            QStringLiteral("name"),     QStringLiteral("about"),   QStringLiteral("format"),
            QStringLiteral("url"),      QStringLiteral("batch"),   QStringLiteral("symbols"),
            QStringLiteral("types"),    QStringLiteral("fields"),  QStringLiteral("match"),
            QStringLiteral("items"),    QStringLiteral("errors"),  QStringLiteral("limits"),
            QStringLiteral("noValue"),  QStringLiteral("headers"), QStringLiteral("connections"),
            QStringLiteral("spacingMs")};
        for (auto it = m_object.begin(); it != m_object.end(); ++it) {
            if (!known.contains(it.key()))
                return fail(it.key(), QStringLiteral("unknown key \"%1\"").arg(it.key()));
        }

        const QString format = m_object.value(QLatin1String("format")).toString();
        if (format == QLatin1String("csv"))
            s.format = SourceFormat::Csv;
        else if (format == QLatin1String("json"))
            s.format = SourceFormat::Json;
        else if (format == QLatin1String("html"))
            s.format = SourceFormat::Html;
        else
            return fail(QStringLiteral("format"), QStringLiteral("format must be csv, json or html"));

        s.url = m_object.value(QLatin1String("url")).toString();
        const bool one = s.url.contains(QLatin1String("{symbol}"));
        s.batch = s.url.contains(QLatin1String("{symbols}"));
        if (!(s.url.startsWith(QLatin1String("http://")) || s.url.startsWith(QLatin1String("https://"))) ||
            one == s.batch)
            return fail(QStringLiteral("url"),
                        QStringLiteral("url must be http(s) and hold either {symbol} or {symbols}"));
        if (m_object.contains(QLatin1String("batch"))) {
            if (!s.batch)
                return fail(QStringLiteral("batch"), QStringLiteral("batch needs {symbols} in the url"));
            const QJsonObject b = m_object.value(QLatin1String("batch")).toObject();
            s.separator = b.value(QLatin1String("separator")).toString(s.separator);
            s.batchSize = b.value(QLatin1String("max")).toInt(20);
            if (s.separator.isEmpty() || s.batchSize < 1 || s.batchSize > 200)
                return fail(QStringLiteral("batch"), QStringLiteral("batch needs a separator and a max of 1 to 200"));
        } else if (s.batch) {
            s.batchSize = 20;
        }
        if (s.batch && s.format == SourceFormat::Html)
            return fail(QStringLiteral("url"), QStringLiteral("an html source answers one {symbol} at a time"));

        if (!readSymbols(s) || !readTypes(s) || !readFields(s) || !readLists(s) || !readHeaders(s))
            return std::nullopt;

        s.connections = m_object.value(QLatin1String("connections")).toInt(0);
        s.spacingMs = m_object.value(QLatin1String("spacingMs")).toInt(0);
        if (s.connections < 0 || s.connections > 50)
            return fail(QStringLiteral("connections"), QStringLiteral("connections must be 1 to 50"));
        if (s.spacingMs < 0 || s.spacingMs > 60000)
            return fail(QStringLiteral("spacingMs"), QStringLiteral("spacingMs must be 0 to 60000"));
        return s;
    }

    QString problem() const { return m_problem; }
    int problemLine() const { return m_problemLine; }

private:
    int lineOf(const QString& relative) const
    {
        // The nearest enclosing value that has a line: a key's own line, else its source's.
        QString p = m_path + relative;
        while (true) {
            const auto it = m_lines.find(p);
            if (it != m_lines.end())
                return *it;
            if (p.size() <= m_path.size())
                return 0;
            p.truncate(p.lastIndexOf(u'/'));
        }
    }

    std::nullopt_t fail(const QString& key, const QString& why)
    {
        m_problem = why;
        m_problemLine = lineOf(key.isEmpty() ? QString() : u'/' + escapeToken(key));
        return std::nullopt;
    }
    std::nullopt_t failAt(const QString& relativePointer, const QString& why)
    {
        m_problem = why;
        m_problemLine = lineOf(relativePointer);
        return std::nullopt;
    }

    bool readSymbols(SourceDefinition& s)
    {
        if (!m_object.contains(QLatin1String("symbols")))
            return true;
        const QJsonObject o = m_object.value(QLatin1String("symbols")).toObject();
        for (auto it = o.begin(); it != o.end(); ++it) {
            if (it.key() != QLatin1String("case") && it.key() != QLatin1String("suffix") &&
                it.key() != QLatin1String("aliases")) {
                failAt(QStringLiteral("/symbols/") + escapeToken(it.key()),
                       QStringLiteral("unknown key \"symbols.%1\"").arg(it.key()));
                return false;
            }
        }
        const QString c = o.value(QLatin1String("case")).toString(QStringLiteral("keep"));
        if (c == QLatin1String("upper"))
            s.symbols.letterCase = SymbolRules::Case::Upper;
        else if (c == QLatin1String("lower"))
            s.symbols.letterCase = SymbolRules::Case::Lower;
        else if (c != QLatin1String("keep")) {
            failAt(QStringLiteral("/symbols/case"), QStringLiteral("symbols.case must be upper, lower or keep"));
            return false;
        }
        s.symbols.suffix = o.value(QLatin1String("suffix")).toString();
        const QJsonObject aliases = o.value(QLatin1String("aliases")).toObject();
        for (auto it = aliases.begin(); it != aliases.end(); ++it)
            s.symbols.aliases.insert(it.key().toUpper(), it.value().toString());
        return true;
    }

    bool readTypes(SourceDefinition& s)
    {
        if (!m_object.contains(QLatin1String("types")))
            return true;
        s.types = {false, false, false, false};
        const QJsonArray types = m_object.value(QLatin1String("types")).toArray();
        static const QStringList names = {QStringLiteral("stock"), QStringLiteral("option"), QStringLiteral("fund"),
                                          QStringLiteral("future")};
        for (int i = 0; i < types.size(); ++i) {
            const qsizetype t = names.indexOf(types.at(i).toString());
            if (t < 0) {
                failAt(QStringLiteral("/types/%1").arg(i), QStringLiteral("types are stock, option, fund and future"));
                return false;
            }
            s.types[size_t(t)] = true;
        }
        return true;
    }

    bool readFields(SourceDefinition& s)
    {
        const QJsonObject fields = m_object.value(QLatin1String("fields")).toObject();
        for (auto it = fields.begin(); it != fields.end(); ++it) {
            const QString at = QStringLiteral("/fields/") + escapeToken(it.key());
            int f = 0;
            while (f < kSourceFieldCount && it.key() != QLatin1String(kFieldNames[f]))
                ++f;
            if (f == kSourceFieldCount) {
                failAt(at, QStringLiteral("unknown field \"%1\"").arg(it.key()));
                return false;
            }
            QStringList specs;
            if (it.value().isString()) {
                specs << it.value().toString();
            } else {
                const QJsonArray a = it.value().toArray();
                for (const QJsonValue& v : a)
                    specs << v.toString();
                if (a.isEmpty() || !it.value().isArray())
                    specs << QString();
            }
            for (const QString& spec : specs) {
                if (spec.isEmpty()) {
                    failAt(at, QStringLiteral("field \"%1\" needs a text or a list of texts").arg(it.key()));
                    return false;
                }
                if (s.format == SourceFormat::Json && !isJsonPointer(spec)) {
                    failAt(at, QStringLiteral("field \"%1\": \"%2\" is not a JSON pointer").arg(it.key(), spec));
                    return false;
                }
                if (s.format == SourceFormat::Html) {
                    QRegularExpression re(spec);
                    if (!re.isValid() || re.captureCount() < 1) {
                        failAt(at,
                               QStringLiteral("field \"%1\": bad expression \"%2\" (%3)")
                                   .arg(it.key(), spec,
                                        re.isValid() ? QStringLiteral("it needs one capture ( )") : re.errorString()));
                        return false;
                    }
                    s.expressions[size_t(f)].push_back(std::move(re));
                }
            }
            s.fields[size_t(f)] = specs;
        }
        if (s.fields[size_t(SourceField::Last)].isEmpty()) {
            failAt(QStringLiteral("/fields"), QStringLiteral("fields must map \"last\""));
            return false;
        }
        return true;
    }

    // A text or a list of texts.
    static QStringList textList(const QJsonValue& v)
    {
        if (v.isString())
            return {v.toString()};
        QStringList out;
        for (const QJsonValue& item : v.toArray())
            out << item.toString();
        return out;
    }

    bool readLists(SourceDefinition& s)
    {
        s.match = m_object.value(QLatin1String("match")).toString();
        s.items = m_object.value(QLatin1String("items")).toString();
        s.errors = textList(m_object.value(QLatin1String("errors")));
        s.limits = textList(m_object.value(QLatin1String("limits")));
        if (m_object.contains(QLatin1String("noValue")))
            s.noValue = textList(m_object.value(QLatin1String("noValue")));
        if (s.format != SourceFormat::Json && (!s.items.isEmpty() || !s.errors.isEmpty() || !s.limits.isEmpty())) {
            failAt(QStringLiteral("/items"), QStringLiteral("items, errors and limits are JSON pointers: json only"));
            return false;
        }
        if (!s.items.isEmpty() && !s.batch) {
            failAt(QStringLiteral("/items"), QStringLiteral("items needs {symbols} in the url"));
            return false;
        }
        const std::pair<const char*, QStringList> pointers[] = {
            {"items", s.items.isEmpty() ? QStringList() : QStringList{s.items}},
            {"match", s.format == SourceFormat::Json && !s.match.isEmpty() ? QStringList{s.match} : QStringList()},
            {"errors", s.errors},
            {"limits", s.limits}};
        for (const auto& [key, list] : pointers) {
            for (const QString& p : list) {
                if (!isJsonPointer(p) || p.isEmpty()) {
                    failAt(u'/' + QLatin1String(key), QStringLiteral("%1: \"%2\" is not a JSON pointer").arg(key, p));
                    return false;
                }
            }
        }
        return true;
    }

    bool readHeaders(SourceDefinition& s)
    {
        const QJsonObject headers = m_object.value(QLatin1String("headers")).toObject();
        for (auto it = headers.begin(); it != headers.end(); ++it) {
            const QByteArray name = it.key().toLatin1();
            const QByteArray value = it.value().toString().toUtf8();
            bool token = !name.isEmpty();
            for (const char c : name)
                token = token && (QChar::isLetterOrNumber(uchar(c)) || c == '-' || c == '_');
            if (!token || value.contains('\r') || value.contains('\n')) {
                failAt(QStringLiteral("/headers/") + escapeToken(it.key()),
                       QStringLiteral("bad header \"%1\"").arg(it.key()));
                return false;
            }
            s.headers.append({name, value});
        }
        return true;
    }

    const QJsonObject& m_object;
    QString m_path;
    const QHash<QString, int>& m_lines;
    QString m_problem;
    int m_problemLine = 0;
};

} // namespace

QString sourceFieldName(SourceField field)
{
    const int f = int(field);
    return f >= 0 && f < kSourceFieldCount ? QString::fromLatin1(kFieldNames[f]) : QString();
}

bool SourceDefinition::needsKey() const
{
    if (url.contains(QLatin1String("{key}")))
        return true;
    for (const auto& h : headers) {
        if (h.second.contains("{key}"))
            return true;
    }
    return false;
}

const SourceDefinition* SourceFile::find(const QString& name) const
{
    for (const SourceDefinition& s : sources) {
        if (s.name.compare(name, Qt::CaseInsensitive) == 0)
            return &s;
    }
    return nullptr;
}

bool isJsonPointer(const QString& pointer)
{
    if (pointer.isEmpty())
        return true;
    if (!pointer.startsWith(u'/'))
        return false;
    for (qsizetype i = 0; i < pointer.size(); ++i) {
        if (pointer[i] == u'~' && (i + 1 >= pointer.size() || (pointer[i + 1] != u'0' && pointer[i + 1] != u'1')))
            return false;
    }
    return true;
}

SourceFile parseSourcesJson(const QByteArray& text, const QString& fileName)
{
    SourceFile file;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        const int line = error.error != QJsonParseError::NoError ? lineOfOffset(text, error.offset) : 1;
        file.problems << QStringLiteral("%1 line %2: %3; no quote source loaded")
                             .arg(fileName)
                             .arg(line)
                             .arg(error.error != QJsonParseError::NoError ? error.errorString()
                                                                          : QStringLiteral("not a JSON object"));
        return file;
    }
    const QHash<QString, int> lines = valueLines(text);
    const QJsonObject root = doc.object();
    for (const QJsonValue& v : root.value(QLatin1String("order")).toArray())
        file.order << v.toString();
    const QJsonArray sources = root.value(QLatin1String("sources")).toArray();
    for (int i = 0; i < sources.size(); ++i) {
        const QString path = QStringLiteral("/sources/%1").arg(i);
        const QJsonObject object = sources.at(i).toObject();
        SourceReader reader(object, path, lines);
        std::optional<SourceDefinition> source = reader.read();
        const QString name = object.value(QLatin1String("name")).toString().trimmed();
        if (source && file.find(source->name)) {
            file.problems << QStringLiteral("%1 line %2: source %3 is defined twice; the second is skipped")
                                 .arg(fileName)
                                 .arg(source->line)
                                 .arg(source->name);
            continue;
        }
        if (!source) {
            file.problems << QStringLiteral("%1 line %2: source %3: %4; the source is skipped")
                                 .arg(fileName)
                                 .arg(reader.problemLine())
                                 .arg(name.isEmpty() ? QStringLiteral("#%1").arg(i + 1) : name, reader.problem());
            continue;
        }
        file.sources.push_back(std::move(*source));
    }
    return file;
}

SourceFile loadSourcesJson(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        SourceFile file;
        file.problems << QStringLiteral("%1: %2; no quote source loaded").arg(path, f.errorString());
        return file;
    }
    return parseSourcesJson(f.readAll(), QFileInfo(path).fileName());
}

void SourceCatalog::setPath(const QString& path)
{
    m_path = path;
    m_read = false;
}

bool SourceCatalog::refresh()
{
    const QFileInfo info(m_path);
    const QDateTime modified = info.exists() ? info.lastModified() : QDateTime();
    const qint64 size = info.exists() ? info.size() : -1;
    if (m_read && modified == m_modified && size == m_size)
        return false;
    m_read = true;
    m_modified = modified;
    m_size = size;
    m_file = loadSourcesJson(m_path);
    return true;
}

QString sourceSymbol(const SourceDefinition& source, const QString& ticker)
{
    const QString t = ticker.trimmed();
    const auto alias = source.symbols.aliases.find(t.toUpper());
    if (alias != source.symbols.aliases.end())
        return *alias;
    QString s = t;
    if (source.symbols.letterCase == SymbolRules::Case::Upper)
        s = s.toUpper();
    else if (source.symbols.letterCase == SymbolRules::Case::Lower)
        s = s.toLower();
    if (!source.symbols.suffix.isEmpty() && !s.contains(u'.') && !s.startsWith(u'^'))
        s += source.symbols.suffix;
    return s;
}

QString sourceRequestUrl(const SourceDefinition& source, const QStringList& symbols, const QString& key, QString* shown)
{
    QStringList encoded;
    for (const QString& s : symbols)
        encoded << QString::fromLatin1(QUrl::toPercentEncoding(s));
    QString url = source.url;
    url.replace(source.batch ? QLatin1String("{symbols}") : QLatin1String("{symbol}"), encoded.join(source.separator));
    if (shown) {
        *shown = url;
        shown->replace(QLatin1String("{key}"), QLatin1String("***"));
    }
    url.replace(QLatin1String("{key}"), QString::fromLatin1(QUrl::toPercentEncoding(key)));
    return url;
}

HttpRequest sourceHttpRequest(const SourceDefinition& source, const QStringList& symbols, const QString& key)
{
    HttpRequest h;
    h.url = sourceRequestUrl(source, symbols, key, &h.shownUrl);
    for (const auto& [name, value] : source.headers)
        h.headers.append({name, QByteArray(value).replace("{key}", key.toUtf8())});
    h.hostLimit = source.connections;
    h.spacingMs = source.spacingMs;
    // A request with the user's key in it is followed to no other host.
    h.carriesSecret = source.needsKey() && !key.isEmpty();
    return h;
}

} // namespace kestrova::quotes
