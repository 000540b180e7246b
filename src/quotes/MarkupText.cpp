#include "quotes/MarkupText.h"

#include <cstring>

namespace kestrova::quotes {

namespace {

inline bool isAsciiLetter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

inline char16_t lower(char16_t c)
{
    return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
}

// True when [p, end) starts with the ASCII word (already lower case), case-insensitively,
// and the word is not the prefix of a longer name ("<scripts>" is no script).
bool startsWithName(const char16_t* p, const char16_t* end, const char* word)
{
    for (; *word; ++word, ++p) {
        if (p == end || lower(*p) != char16_t(*word))
            return false;
    }
    return p == end || !(isAsciiLetter(*p) || (*p >= u'0' && *p <= u'9'));
}

// Position of the first '<' or '&' at or after p. The page is mostly plain text between
// tags, so this tight loop is where the time goes.
inline const char16_t* nextSpecial(const char16_t* p, const char16_t* end)
{
    while (p != end && *p != u'<' && *p != u'&')
        ++p;
    return p;
}

// End of a tag that starts at p (p points at '<'): the position just past its '>', or end.
const char16_t* skipTag(const char16_t* p, const char16_t* end)
{
    ++p;
    char16_t quote = 0;
    char16_t prev = 0;
    for (; p != end; ++p) {
        const char16_t c = *p;
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (c == u'>') {
            return p + 1;
        } else if ((c == u'"' || c == u'\'') && prev == u'=') {
            quote = c;
        }
        if (c != u' ')
            prev = c;
    }
    return end;
}

// Decodes the entity at p (p points at '&'); writes the character to out and returns the
// position after the entity, or returns p when nothing known stands there.
const char16_t* decodeEntity(const char16_t* p, const char16_t* end, char16_t*& out)
{
    const char16_t* q = p + 1;
    if (q != end && *q == u'#') {
        ++q;
        bool hex = false;
        if (q != end && (*q == u'x' || *q == u'X')) {
            hex = true;
            ++q;
        }
        char32_t value = 0;
        int digits = 0;
        for (; q != end && digits < 8; ++q, ++digits) {
            const char16_t c = *q;
            int d;
            if (c >= u'0' && c <= u'9')
                d = c - u'0';
            else if (hex && lower(c) >= u'a' && lower(c) <= u'f')
                d = lower(c) - u'a' + 10;
            else
                break;
            value = value * (hex ? 16 : 10) + char32_t(d);
        }
        if (digits == 0 || q == end || *q != u';' || value == 0 || value > 0x10FFFF ||
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
        const char16_t* r = q;
        const char* s = n.name;
        while (*s && r != end && *r == char16_t(*s)) {
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
const char16_t* findClosing(const char16_t* p, const char16_t* end, const char* name)
{
    for (; p != end; ++p) {
        if (*p == u'<' && p + 1 != end && p[1] == u'/' && startsWithName(p + 2, end, name))
            return p;
    }
    return end;
}

} // namespace

QString markupToTabs(const QString& page)
{
    const auto* p = reinterpret_cast<const char16_t*>(page.constData());
    const char16_t* const end = p + page.size();
    // The text only ever shrinks: each tag of at least two characters becomes one tab and
    // each entity one or two characters.
    QString result(page.size(), Qt::Uninitialized);
    auto* const outStart = reinterpret_cast<char16_t*>(result.data());
    char16_t* out = outStart;

    while (p != end) {
        const char16_t* special = nextSpecial(p, end);
        if (special != p) {
            std::memcpy(out, p, size_t(special - p) * sizeof(char16_t));
            out += special - p;
            p = special;
            if (p == end)
                break;
        }
        if (*p == u'&') {
            const char16_t* after = decodeEntity(p, end, out);
            if (after == p)
                *out++ = *p++;
            else
                p = after;
            continue;
        }
        // '<'
        const char16_t* next = p + 1;
        if (next == end) {
            *out++ = *p++;
            continue;
        }
        const char16_t c = *next;
        if (c == u'!' && next + 2 < end && next[1] == u'-' && next[2] == u'-') {
            *out++ = u'\t';
            const char16_t* q = next + 3;
            while (q != end && !(q[0] == u'-' && q + 2 < end && q[1] == u'-' && q[2] == u'>'))
                ++q;
            p = (q == end) ? end : q + 3;
            continue;
        }
        if (!(isAsciiLetter(c) || c == u'/' || c == u'!' || c == u'?')) {
            *out++ = *p++;
            continue;
        }
        *out++ = u'\t';
        const char16_t* afterTag = skipTag(p, end);
        const char* raw = nullptr;
        if (startsWithName(next, end, "script"))
            raw = "script";
        else if (startsWithName(next, end, "style"))
            raw = "style";
        p = afterTag;
        if (raw && p != end && afterTag[-1] == u'>' && afterTag[-2] != u'/')
            p = findClosing(p, end, raw);
    }
    result.truncate(out - outStart);
    return result;
}

} // namespace kestrova::quotes
