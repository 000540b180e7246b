#include "quotes/MarkupText.h"

#include "support/Cp1252.h"

#include <QStringDecoder>

#include <cstring>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kestrova::quotes {

namespace {

// The conversion runs on a page's UTF-16 text or on its bytes as they came over the wire.
// Every decision it makes looks at ASCII characters only ('<', '>', '&', quotes, letters,
// digits), and neither Windows-1252 nor UTF-8 writes an ASCII character with anything but
// its own byte, so the bytes give the same tags, entities and text runs as the decoded
// text; only the runs of text it keeps are decoded.
template <typename Char> inline char16_t code(Char c)
{
    return char16_t(std::make_unsigned_t<Char>(c));
}

template <typename Char> inline bool isAsciiLetter(Char ch)
{
    const char16_t c = code(ch);
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

inline char16_t lower(char16_t c)
{
    return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
}

// True when [p, end) starts with the ASCII word (already lower case), case-insensitively,
// and the word is not the prefix of a longer name ("<scripts>" is no script).
template <typename Char> bool startsWithName(const Char* p, const Char* end, const char* word)
{
    for (; *word; ++word, ++p) {
        if (p == end || lower(code(*p)) != char16_t(*word))
            return false;
    }
    return p == end || !(isAsciiLetter(*p) || (code(*p) >= u'0' && code(*p) <= u'9'));
}

// The first position at or after p holding a or b, or end. The page is mostly plain text
// between tags and long attribute values, so these scans are where the time goes: sixteen
// bytes or eight characters are compared at a time.
template <typename Char> const Char* findEither(const Char* p, const Char* end, char a, char b)
{
#if defined(__SSE2__)
    if constexpr (sizeof(Char) == 1) {
        const __m128i va = _mm_set1_epi8(a);
        const __m128i vb = _mm_set1_epi8(b);
        for (; end - p >= 16; p += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            const int mask = _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, va), _mm_cmpeq_epi8(v, vb)));
            if (mask != 0)
                return p + __builtin_ctz(unsigned(mask));
        }
    } else {
        const __m128i va = _mm_set1_epi16(short(a));
        const __m128i vb = _mm_set1_epi16(short(b));
        for (; end - p >= 8; p += 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            const int mask = _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi16(v, va), _mm_cmpeq_epi16(v, vb)));
            if (mask != 0)
                return p + __builtin_ctz(unsigned(mask)) / 2;
        }
    }
#endif
    for (; p != end; ++p) {
        if (code(*p) == char16_t(a) || code(*p) == char16_t(b))
            return p;
    }
    return end;
}

template <typename Char> const Char* find(const Char* p, const Char* end, char c)
{
    if constexpr (sizeof(Char) == 1) {
        const void* hit = std::memchr(p, c, size_t(end - p));
        return hit ? static_cast<const Char*>(hit) : end;
    } else {
        return findEither(p, end, c, c);
    }
}

// End of a tag that starts at p (p points at '<'): the position just past its '>', or end.
// A quote opens a quoted value when the last character before it other than a blank is
// '='; inside it '>' does not end the tag.
template <typename Char> const Char* skipTag(const Char* p, const Char* end)
{
    const Char* const start = p + 1;
    for (p = start; p != end;) {
        const Char* q = findEither(p, end, '>', '"');
        const Char* apos = find(p, q, '\'');
        if (apos != q)
            q = apos;
        if (q == end)
            return end;
        if (code(*q) == u'>')
            return q + 1;
        const Char* before = q;
        while (before != start && code(before[-1]) == u' ')
            --before;
        if (before != start && code(before[-1]) == u'=') {
            q = find(q + 1, end, char(code(*q)));
            if (q == end)
                return end;
        }
        p = q + 1;
    }
    return end;
}

// Decodes the entity at p (p points at '&'); writes the character to out and returns the
// position after the entity, or returns p when nothing known stands there.
template <typename Char> const Char* decodeEntity(const Char* p, const Char* end, char16_t*& out)
{
    const Char* q = p + 1;
    if (q != end && code(*q) == u'#') {
        ++q;
        bool hex = false;
        if (q != end && (code(*q) == u'x' || code(*q) == u'X')) {
            hex = true;
            ++q;
        }
        char32_t value = 0;
        int digits = 0;
        for (; q != end && digits < 8; ++q, ++digits) {
            const char16_t c = code(*q);
            int d;
            if (c >= u'0' && c <= u'9')
                d = c - u'0';
            else if (hex && lower(c) >= u'a' && lower(c) <= u'f')
                d = lower(c) - u'a' + 10;
            else
                break;
            value = value * (hex ? 16 : 10) + char32_t(d);
        }
        if (digits == 0 || q == end || code(*q) != u';' || value == 0 || value > 0x10FFFF ||
            (value >= 0xD800 && value <= 0xDFFF))
            return p;
        if (value >= 0x10000) {
            value -= 0x10000;
            *out++ = char16_t(0xD800 + (value >> 10));
            *out++ = char16_t(0xDC00 + (value & 0x3FF));
        } else {
            *out++ = char16_t(value);
        }
        return q + 1;
    }
    struct Named
    {
        const char* name;
        char16_t ch;
    };
    static constexpr Named kNamed[] = {{"amp;", u'&'},  {"lt;", u'<'},    {"gt;", u'>'},
                                       {"quot;", u'"'}, {"apos;", u'\''}, {"nbsp;", u' '}};
    for (const Named& n : kNamed) {
        const Char* r = q;
        const char* s = n.name;
        while (*s && r != end && code(*r) == char16_t(*s)) {
            ++r;
            ++s;
        }
        if (!*s) {
            *out++ = n.ch;
            return r;
        }
    }
    return p;
}

// Finds the closing tag "</name" at or after p (case-insensitive); returns its '<' or end.
template <typename Char> const Char* findClosing(const Char* p, const Char* end, const char* name)
{
    for (p = find(p, end, '<'); p != end; p = find(p + 1, end, '<')) {
        if (p + 1 != end && code(p[1]) == u'/' && startsWithName(p + 2, end, name))
            return p;
    }
    return end;
}

// The conversion proper; copyText(from, to, out) writes the text of [from, to) at out and
// returns where it ended. out must have room for one character per input unit.
template <typename Char, typename CopyText>
char16_t* convert(const Char* p, const Char* const end, char16_t* out, CopyText copyText)
{
    while (p != end) {
        const Char* special = findEither(p, end, '<', '&');
        if (special != p) {
            out = copyText(p, special, out);
            p = special;
            if (p == end)
                break;
        }
        if (code(*p) == u'&') {
            const Char* after = decodeEntity(p, end, out);
            if (after == p) {
                *out++ = u'&';
                ++p;
            } else {
                p = after;
            }
            continue;
        }
        // '<'
        const Char* next = p + 1;
        if (next == end) {
            *out++ = u'<';
            ++p;
            continue;
        }
        const char16_t c = code(*next);
        if (c == u'!' && next + 2 < end && code(next[1]) == u'-' && code(next[2]) == u'-') {
            *out++ = u'\t';
            const Char* q = next + 3;
            for (q = find(q, end, '-'); q != end; q = find(q + 1, end, '-')) {
                if (q + 2 < end && code(q[1]) == u'-' && code(q[2]) == u'>')
                    break;
            }
            p = (q == end) ? end : q + 3;
            continue;
        }
        if (!(isAsciiLetter(c) || c == u'/' || c == u'!' || c == u'?')) {
            *out++ = u'<';
            ++p;
            continue;
        }
        *out++ = u'\t';
        const Char* afterTag = skipTag(p, end);
        const char* raw = nullptr;
        if (startsWithName(next, end, "script"))
            raw = "script";
        else if (startsWithName(next, end, "style"))
            raw = "style";
        p = afterTag;
        if (raw && p != end && code(afterTag[-1]) == u'>' && code(afterTag[-2]) != u'/')
            p = findClosing(p, end, raw);
    }
    return out;
}

} // namespace

QString markupToTabs(const QString& page)
{
    const auto* p = reinterpret_cast<const char16_t*>(page.constData());
    // The text only ever shrinks: each tag of at least two characters becomes one tab and
    // each entity one or two characters.
    QString result(page.size(), Qt::Uninitialized);
    auto* const outStart = reinterpret_cast<char16_t*>(result.data());
    char16_t* const out =
        convert(p, p + page.size(), outStart, [](const char16_t* from, const char16_t* to, char16_t* o) {
            std::memcpy(o, from, size_t(to - from) * sizeof(char16_t));
            return o + (to - from);
        });
    result.truncate(out - outStart);
    return result;
}

QString markupToTabs(QByteArrayView page, PageCharset charset)
{
    const char* p = page.data();
    const char* const end = p + page.size();
    // Each byte gives at most one UTF-16 unit (a four-byte UTF-8 sequence gives two).
    QString result(page.size(), Qt::Uninitialized);
    auto* const outStart = reinterpret_cast<char16_t*>(result.data());
    char16_t* out = outStart;
    if (charset == PageCharset::Cp1252) {
        out = convert(p, end, outStart, support::widenCp1252);
    } else {
        // Decoding the page whole drops a byte order mark at its start and keeps one
        // anywhere else; each run of text starts after an ASCII byte, so a run decoded on
        // its own reads exactly as it would in the whole page.
        if (page.startsWith("\xEF\xBB\xBF"))
            p += 3;
        QStringDecoder utf8(QStringDecoder::Utf8,
                            QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
        out = convert(p, end, outStart, [&utf8](const char* from, const char* to, char16_t* o) {
            return reinterpret_cast<char16_t*>(
                utf8.appendToBuffer(reinterpret_cast<QChar*>(o), QByteArrayView(from, to - from)));
        });
    }
    result.truncate(out - outStart);
    return result;
}

} // namespace kestrova::quotes
