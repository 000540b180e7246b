#include "quotes/JsonPrune.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kestrova::quotes {

namespace {

// Deeper than any answer a quote service sends; a full parser refuses such text as well.
constexpr int kMaxDepth = 1024;

QStringList tokensOf(const QString& pointer)
{
    if (pointer.isEmpty())
        return {};
    QStringList tokens = pointer.mid(1).split(u'/');
    for (QString& t : tokens) {
        if (!t.contains(u'~'))
            continue;
        t.replace(QLatin1String("~1"), QLatin1String("/"));
        t.replace(QLatin1String("~0"), QLatin1String("~"));
    }
    return tokens;
}

inline bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

class Scanner
{
public:
    Scanner(const char* begin, const char* end) : m_p(begin), m_end(end) {}

    bool bad() const { return m_bad; }

    std::optional<QJsonValue> document(const JsonPaths::Node& root)
    {
        blanks();
        if (m_p == m_end || (*m_p != '{' && *m_p != '['))
            return std::nullopt;
        QJsonValue v = value(&root);
        blanks();
        if (m_bad || m_p != m_end)
            return std::nullopt;
        return v;
    }

private:
    void blanks()
    {
        while (m_p != m_end && isBlank(*m_p))
            ++m_p;
    }

    void fail() { m_bad = true; }

    // A value at a node of the paths (null: off every path, skipped).
    QJsonValue value(const JsonPaths::Node* node)
    {
        blanks();
        if (m_p == m_end) {
            fail();
            return {};
        }
        const char* start = m_p;
        if (!node) {
            skipValue();
            return {};
        }
        if (node->whole) {
            skipValue();
            return m_bad ? QJsonValue() : whole(start, m_p);
        }
        if (*m_p == '{' || *m_p == '[') {
            // Along the paths the reading recurses; a definition's pointer as deep as a
            // hostile answer must not take it past the nesting a full parser allows.
            if (m_pathDepth >= kMaxDepth) {
                fail();
                return {};
            }
            ++m_pathDepth;
            QJsonValue v = *m_p == '{' ? object(*node) : list(*node);
            --m_pathDepth;
            return v;
        }
        // A scalar where the paths go on: resolving below it finds nothing, as it should.
        skipValue();
        return m_bad ? QJsonValue() : whole(start, m_p);
    }

    QJsonValue object(const JsonPaths::Node& node)
    {
        ++m_p; // '{'
        QJsonObject o;
        blanks();
        if (m_p != m_end && *m_p == '}') {
            ++m_p;
            return o;
        }
        while (!m_bad) {
            blanks();
            if (m_p == m_end || *m_p != '"') {
                fail();
                break;
            }
            const char* keyStart = m_p;
            skipString();
            if (m_bad)
                break;
            const QString key = stringOf(keyStart, m_p);
            blanks();
            if (m_p == m_end || *m_p != ':') {
                fail();
                break;
            }
            ++m_p;
            const auto it = node.children.find(key);
            if (it != node.children.end()) {
                const QJsonValue v = value(&it->second);
                o.insert(key, v);
            } else {
                value(nullptr);
            }
            blanks();
            if (m_p == m_end) {
                fail();
                break;
            }
            if (*m_p == ',') {
                ++m_p;
                continue;
            }
            if (*m_p == '}') {
                ++m_p;
                break;
            }
            fail();
        }
        return o;
    }

    QJsonValue list(const JsonPaths::Node& node)
    {
        ++m_p; // '['
        QJsonArray a;
        blanks();
        if (m_p != m_end && *m_p == ']') {
            ++m_p;
            return a;
        }
        for (qsizetype i = 0; !m_bad; ++i) {
            const auto it = node.children.find(QString::number(i));
            const JsonPaths::Node* child = it != node.children.end() ? &it->second : nullptr;
            if (node.everyElement)
                child = child ? &m_whole : node.everyElement.get(); // named twice: read it all
            const QJsonValue v = value(child);
            a.append(child ? v : QJsonValue());
            blanks();
            if (m_p == m_end) {
                fail();
                break;
            }
            if (*m_p == ',') {
                ++m_p;
                continue;
            }
            if (*m_p == ']') {
                ++m_p;
                break;
            }
            fail();
        }
        return a;
    }

    // The value in [start, end) read in full: small, so the full parser does it.
    QJsonValue whole(const char* start, const char* end)
    {
        const QByteArray span = QByteArray::fromRawData(start, end - start);
        if (*start == '{' || *start == '[') {
            QJsonParseError error;
            const QJsonDocument doc = QJsonDocument::fromJson(span, &error);
            if (error.error != QJsonParseError::NoError) {
                fail();
                return {};
            }
            return doc.isObject() ? QJsonValue(doc.object()) : QJsonValue(doc.array());
        }
        if (*start == '"' && !std::memchr(start, '\\', size_t(end - start)))
            return QString::fromUtf8(start + 1, end - start - 2);
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson('[' + span + ']', &error);
        if (error.error != QJsonParseError::NoError || doc.array().size() != 1) {
            fail();
            return {};
        }
        return doc.array().at(0);
    }

    // An object key or string in [start, end), quotes included.
    QString stringOf(const char* start, const char* end)
    {
        if (!std::memchr(start, '\\', size_t(end - start)))
            return QString::fromUtf8(start + 1, end - start - 2);
        const QJsonValue v = whole(start, end);
        return v.toString();
    }

    // m_p at an opening quote: past the closing one.
    void skipString()
    {
        const char* p = m_p + 1;
        while (true) {
            const void* q = std::memchr(p, '"', size_t(m_end - p));
            if (!q) {
                m_p = m_end;
                fail();
                return;
            }
            const char* quote = static_cast<const char*>(q);
            // Escaped when an odd number of backslashes stand before it.
            const char* b = quote;
            while (b > m_p + 1 && b[-1] == '\\')
                --b;
            p = quote + 1;
            if (((quote - b) & 1) == 0) {
                m_p = p;
                return;
            }
        }
    }

    // The next '"', '[', ']', '{' or '}' at or after p; the skipped parts of an answer
    // are mostly long lists of numbers, so this is where the time goes.
    const char* nextStructural(const char* p) const
    {
#if defined(__SSE2__)
        const __m128i quote = _mm_set1_epi8('"');
        const __m128i open = _mm_set1_epi8('[');
        const __m128i close = _mm_set1_epi8(']');
        const __m128i brace = _mm_set1_epi8('{');
        const __m128i endBrace = _mm_set1_epi8('}');
        while (m_end - p >= 16) {
            const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            const __m128i hit =
                _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(chunk, quote), _mm_cmpeq_epi8(chunk, open)),
                             _mm_or_si128(_mm_cmpeq_epi8(chunk, close),
                                          _mm_or_si128(_mm_cmpeq_epi8(chunk, brace), _mm_cmpeq_epi8(chunk, endBrace))));
            const int mask = _mm_movemask_epi8(hit);
            if (mask != 0)
                return p + __builtin_ctz(unsigned(mask));
            p += 16;
        }
#endif
        while (p != m_end && *p != '"' && *p != '[' && *p != ']' && *p != '{' && *p != '}')
            ++p;
        return p;
    }

    // Past one value, without building it. Lists and objects are walked with a stack of
    // their brackets, so a hostile nesting costs no recursion.
    void skipValue()
    {
        blanks();
        if (m_p == m_end) {
            fail();
            return;
        }
        const char c = *m_p;
        if (c == '"') {
            skipString();
            return;
        }
        if (c != '{' && c != '[') {
            if (!(c == '-' || (c >= '0' && c <= '9') || c == 't' || c == 'f' || c == 'n')) {
                fail();
                return;
            }
            while (m_p != m_end && *m_p != ',' && *m_p != ']' && *m_p != '}' && !isBlank(*m_p))
                ++m_p;
            return;
        }
        std::vector<char> open;
        open.reserve(16);
        open.push_back(c);
        ++m_p;
        while (!open.empty()) {
            m_p = nextStructural(m_p);
            if (m_p == m_end) {
                fail();
                return;
            }
            const char s = *m_p;
            if (s == '"') {
                skipString();
                if (m_bad)
                    return;
                continue;
            }
            ++m_p;
            if (s == '{' || s == '[') {
                if (open.size() >= size_t(kMaxDepth)) {
                    fail();
                    return;
                }
                open.push_back(s);
            } else if ((s == '}' && open.back() == '{') || (s == ']' && open.back() == '[')) {
                open.pop_back();
            } else {
                fail();
                return;
            }
        }
    }

    const char* m_p;
    const char* m_end;
    bool m_bad = false;
    int m_pathDepth = 0;
    JsonPaths::Node m_whole{true, nullptr, {}};
};

} // namespace

JsonPaths::Node& JsonPaths::nodeAt(Node& from, const QString& pointer)
{
    Node* n = &from;
    for (const QString& token : tokensOf(pointer))
        n = &n->children[token];
    return *n;
}

// A pointer deeper than the nesting any accepted document has leads nowhere; leaving it
// out also keeps the tree (and its recursive destruction) shallow.
static bool reachable(const QString& pointer, qsizetype moreLevels = 0)
{
    return pointer.count(u'/') + moreLevels <= kMaxDepth;
}

void JsonPaths::add(const QString& pointer)
{
    if (reachable(pointer))
        nodeAt(m_root, pointer).whole = true;
}

void JsonPaths::addForEach(const QString& listPointer, const QString& pointer)
{
    if (!reachable(listPointer, pointer.count(u'/') + 1))
        return;
    Node& list = nodeAt(m_root, listPointer);
    if (!list.everyElement)
        list.everyElement = std::make_unique<Node>();
    nodeAt(*list.everyElement, pointer).whole = true;
}

std::optional<QJsonValue> pruneJson(const QByteArray& text, const JsonPaths& paths)
{
    Scanner scanner(text.constData(), text.constData() + text.size());
    return scanner.document(paths.root());
}

} // namespace kestrova::quotes
