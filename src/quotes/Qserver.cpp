#include "quotes/Qserver.h"

#include "core/Quote.h"
#include "quotes/MarkupText.h"
#include "quotes/PageFetcher.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/Text.h"
#include "support/VbError.h"

#include <QUrl>
#include <QVarLengthArray>

#include <algorithm>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <optional>

namespace kestrova::quotes {

namespace {

const QString kNotOffered = QStringLiteral("n/a");
const QString kNotFound = QStringLiteral("???");

// InStr: 1-based position of needle in hay searching from start, 0 when absent. A start of
// 0 or less is an invalid call, as it always was; a start past the end finds nothing.
qsizetype inStr(qsizetype start, const QString& hay, QChar needle)
{
    if (start <= 0)
        throw support::VbError(support::VbError::InvalidCall);
    if (start > hay.size())
        return 0;
    return hay.indexOf(needle, start - 1) + 1;
}

// Reads a number of digits at pos; -1 when there is none.
int readNumber(QStringView s, qsizetype& pos, int maxDigits)
{
    int value = 0;
    int n = 0;
    while (pos < s.size() && n < maxDigits && s[pos].isDigit()) {
        value = value * 10 + s[pos].digitValue();
        ++pos;
        ++n;
    }
    return n == 0 ? -1 : value;
}

void skipBlanks(QStringView s, qsizetype& pos)
{
    while (pos < s.size() && s[pos].isSpace())
        ++pos;
}

// The date-and-time texts quote pages print: "m/d/yyyy", "m/d/yy" (00-29 is this century),
// "-" instead of "/" too, optionally followed by "h:mm[:ss]" and "AM"/"PM" ("A"/"P"), or
// the time alone (then on the zero date). Anything else does not read as a date.
std::optional<QDateTime> readDate(QStringView text)
{
    qsizetype pos = 0;
    skipBlanks(text, pos);
    QDate date = support::zeroDate();
    bool any = false;

    const qsizetype start = pos;
    int first = readNumber(text, pos, 4);
    if (first >= 0 && pos < text.size() && (text[pos] == u'/' || text[pos] == u'-')) {
        const QChar sep = text[pos++];
        const int day = readNumber(text, pos, 2);
        if (day < 0 || pos >= text.size() || text[pos] != sep)
            return std::nullopt;
        ++pos;
        const qsizetype yearStart = pos;
        int year = readNumber(text, pos, 4);
        if (year < 0 || (pos < text.size() && text[pos].isDigit()))
            return std::nullopt;
        if (pos - yearStart <= 2)
            year += year < 30 ? 2000 : 1900;
        date = QDate(year, first, day);
        if (!date.isValid())
            return std::nullopt;
        any = true;
        if (pos < text.size() && !text[pos].isSpace())
            return std::nullopt;
        skipBlanks(text, pos);
    } else {
        pos = start;
    }

    QTime time(0, 0);
    if (pos < text.size()) {
        const int hour = readNumber(text, pos, 2);
        if (hour < 0 || pos >= text.size() || text[pos] != u':')
            return std::nullopt;
        ++pos;
        const int minute = readNumber(text, pos, 2);
        if (minute < 0)
            return std::nullopt;
        int second = 0;
        if (pos < text.size() && text[pos] == u':') {
            ++pos;
            second = readNumber(text, pos, 2);
            if (second < 0)
                return std::nullopt;
        }
        skipBlanks(text, pos);
        int h = hour;
        if (pos < text.size()) {
            const QChar c = text[pos].toUpper();
            if (c != u'A' && c != u'P')
                return std::nullopt;
            ++pos;
            if (pos < text.size() && text[pos].toUpper() == u'M')
                ++pos;
            if (hour < 1 || hour > 12)
                return std::nullopt;
            h = (hour % 12) + (c == u'P' ? 12 : 0);
        }
        skipBlanks(text, pos);
        if (pos != text.size())
            return std::nullopt;
        time = QTime(h, minute, second);
        if (!time.isValid())
            return std::nullopt;
        any = true;
    }
    if (!any)
        return std::nullopt;
    return QDateTime(date, time);
}

// The first occurrence of key in page (0-based, -1 when absent). Keys are short and their
// first character is rare in a page's text, so scanning for that character with the
// vectorised single-character search and then comparing beats a general substring search.
qsizetype firstOccurrence(const QString& page, const QString& key)
{
    if (key.isEmpty())
        return 0;
    const QStringView hay(page);
    const QStringView rest = QStringView(key).mid(1);
    const QChar first = key.front();
    const qsizetype last = hay.size() - key.size();
    for (qsizetype at = hay.indexOf(first); at >= 0 && at <= last; at = hay.indexOf(first, at + 1)) {
        if (hay.mid(at + 1, rest.size()) == rest)
            return at;
    }
    return -1;
}

// Whether the page holds "<sup>", "</sup>", "<sub>" or "</sub>", looked for in its bytes
// (the tags are ASCII). A page is full of '<', so the scan looks for the rarer pair "su"
// sixteen bytes at a time and checks around it.
bool hasSupOrSub(QByteArrayView page)
{
    const char* text = page.data();
    const qsizetype n = page.size();
    auto tagAt = [&](qsizetype p) { // p: the 's' of "su"
        if (p + 3 >= n || (text[p + 2] != 'p' && text[p + 2] != 'b') || text[p + 3] != '>')
            return false;
        return (p >= 1 && text[p - 1] == '<') || (p >= 2 && text[p - 1] == '/' && text[p - 2] == '<');
    };
    qsizetype pos = 0;
#if defined(__SSE2__)
    const __m128i s = _mm_set1_epi8('s');
    const __m128i u = _mm_set1_epi8('u');
    for (; pos + 17 <= n; pos += 16) {
        const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + pos));
        const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + pos + 1));
        unsigned mask = unsigned(_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(here, s), _mm_cmpeq_epi8(next, u))));
        while (mask != 0) {
            const int bit = __builtin_ctz(mask);
            if (tagAt(pos + bit))
                return true;
            mask &= mask - 1;
        }
    }
#endif
    for (; pos + 1 < n; ++pos) {
        if (text[pos] == 's' && text[pos + 1] == 'u' && tagAt(pos))
            return true;
    }
    return false;
}

} // namespace

QString Qserver::FindKey(const QString& key, qint16 offset, const QString& page)
{
    if (offset == -1)
        return kNotOffered;
    // An empty key is found at the first character, as the old search did.
    return valueAfterKey(page.isEmpty() ? 0 : firstOccurrence(page, key) + 1, offset, page);
}

std::vector<qsizetype> Qserver::keyPositions(const QString& page, const std::vector<QStringView>& keys)
{
    std::vector<qsizetype> at(keys.size(), -1);
    const auto* text = reinterpret_cast<const char16_t*>(page.utf16());
    const qsizetype n = page.size();
    // The keys' first characters, each once: a position holding none of them starts no key.
    QVarLengthArray<char16_t, 32> firsts;
    size_t left = 0;
    for (size_t i = 0; i < keys.size(); ++i) {
        if (keys[i].isEmpty()) {
            at[i] = 0;
            continue;
        }
        if (keys[i].size() > n)
            continue;
        ++left;
        const char16_t c = keys[i].front().unicode();
        if (std::find(firsts.begin(), firsts.end(), c) == firsts.end())
            firsts.append(c);
    }
    auto tryAt = [&](qsizetype pos) {
        for (size_t i = 0; i < keys.size(); ++i) {
            const QStringView key = keys[i];
            // The second character sorts out most candidates without a call (a page is full
            // of '<' when the keys are tags).
            if (at[i] < 0 && !key.isEmpty() && key.front() == QChar(text[pos]) && pos + key.size() <= n &&
                (key.size() < 2 || key[1] == QChar(text[pos + 1])) && QStringView(text + pos, key.size()) == key) {
                at[i] = pos;
                --left;
            }
        }
    };
    qsizetype pos = 0;
#if defined(__SSE2__)
    if (firsts.size() <= 24) {
        __m128i needles[24];
        for (qsizetype k = 0; k < firsts.size(); ++k)
            needles[k] = _mm_set1_epi16(short(firsts[k]));
        for (; left > 0 && pos + 8 <= n; pos += 8) {
            const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + pos));
            __m128i hit = _mm_setzero_si128();
            for (qsizetype k = 0; k < firsts.size(); ++k)
                hit = _mm_or_si128(hit, _mm_cmpeq_epi16(chunk, needles[k]));
            // Two bits per character.
            unsigned mask = unsigned(_mm_movemask_epi8(hit));
            while (mask != 0 && left > 0) {
                const int bit = __builtin_ctz(mask);
                tryAt(pos + bit / 2);
                mask &= ~(3U << bit);
            }
        }
    }
#endif
    for (; left > 0 && pos < n; ++pos) {
        if (std::find(firsts.begin(), firsts.end(), text[pos]) != firsts.end())
            tryAt(pos);
    }
    return at;
}

QString Qserver::valueAfterKey(qsizetype p, qint16 offset, const QString& page)
{
    if (offset == 0) {
        const qsizetype blank = inStr(p, page, u' ');
        if (blank == 0)
            return kNotFound;
        qsizetype q = blank;
        while (q <= page.size() && page[q - 1] == u' ')
            ++q;
        const qsizetype end = inStr(q, page, u' ');
        if (end == 0)
            return kNotFound;
        return page.mid(q - 1, end - q);
    }

    if (p == 0)
        return kNotFound;
    qsizetype s = p;
    // A negative count below -1 never runs out on its own: it ends when the tabs do.
    for (int n = 0; offset < -1 || n < offset; ++n) {
        const qsizetype tab = inStr(s, page, u'\t');
        if (tab == 0) {
            s = 0;
            break;
        }
        s = tab + 1;
    }
    const qsizetype tab = inStr(s, page, u'\t');
    if (tab > 0)
        return page.mid(s - 1, tab - s);
    // Right(page, len - s): the character at s itself is dropped here, and a page that ends
    // in the tab just counted leaves a negative length, an invalid call.
    const qsizetype tail = page.size() - s;
    if (tail < 0)
        throw support::VbError(support::VbError::InvalidCall);
    return page.right(tail);
}

QString Qserver::requestUrl(PageFetcher& fetcher) const
{
    QString url = m_url + m_ticker;
    fetcher.setUrl(url);
    const QString host = fetcher.host();
    const QString path = fetcher.path();
    if (!m_username.isEmpty()) {
        // Encoded so that a password holding ":" or "@" still reaches the server intact.
        url = QStringLiteral("HTTP://") + QString::fromLatin1(QUrl::toPercentEncoding(m_username)) + u':' +
              QString::fromLatin1(QUrl::toPercentEncoding(m_password)) + u'@' + host + path;
    }
    return url;
}

bool Qserver::GetQuote(core::Quote& quote, const ScrapeContext& ctx) const
{
    ctx.host.setBusy(true);
    const std::vector<PageBody> page = ctx.fetcher.getPages(QStringList{requestUrl(ctx.fetcher)}, 1);
    // A failure inside the fill leaves the pointer busy; the cycle's error handler resets it.
    const bool filled = fillQuote(quote, page.front(), ctx);
    ctx.host.setBusy(false);
    return filled;
}

QString Qserver::preparePage(const PageBody& body)
{
    // Most pages carry none of these tags; one scan of the bytes tells, and such a page is
    // converted from its bytes, decoding only the text it keeps.
    if (!hasSupOrSub(body.bytes))
        return markupToTabs(body.bytes, body.charset);
    // The others have the four tags removed from the decoded page one after the other, as
    // they always were (a removal may join the pieces of another tag).
    static const QLatin1String kDropped[] = {QLatin1String("<sup>"), QLatin1String("</sup>"), QLatin1String("<sub>"),
                                             QLatin1String("</sub>")};
    QString page = body.text();
    for (const QLatin1String& tag : kDropped)
        page.remove(tag, Qt::CaseSensitive);
    page.replace(QLatin1String("&nbsp;"), QLatin1String(" "), Qt::CaseSensitive);
    return markupToTabs(page);
}

bool Qserver::fillQuote(core::Quote& quote, const PageBody& body, const ScrapeContext& ctx) const
{
    if (body.isEmpty())
        return false;
    const QString page = preparePage(body);
    if (ctx.builtIn.isEntry(m_serverName, BuiltInServers::kLabelledPage))
        fillLabelled(quote, page);
    else
        fillByKeys(quote, page, ctx.builtIn, ctx.clock.today());
    return true;
}

void Qserver::fillByKeys(core::Quote& quote, const QString& page, const BuiltInServers& builtIn,
                         const QDate& today) const
{
    std::vector<QStringView> keys(static_cast<size_t>(kFieldCount));
    for (int f = 0; f < kFieldCount; ++f) {
        if (offset(Field(f)) != -1)
            keys[size_t(f)] = QStringView(m_keys[size_t(f)]);
    }
    const std::vector<qsizetype> at = keyPositions(page, keys);
    // The same as FindKey(f, page), with every key placed by the one pass above.
    auto FindKey = [&](Field f) -> QString {
        const qint16 o = offset(f);
        if (o == -1)
            return kNotOffered;
        return valueAfterKey(page.isEmpty() ? 0 : at[size_t(f)] + 1, o, page);
    };
    quote.setName(FindKey(Field::Name));
    quote.setLast(FindKey(Field::Last));
    quote.setBid(FindKey(Field::Bid));
    quote.setAsk(FindKey(Field::Ask));
    quote.setVolume(FindKey(Field::Volume));
    quote.setOpenPrice(FindKey(Field::Open));
    quote.setPreviousClose(FindKey(Field::Previous));

    const QString change = FindKey(Field::Change);
    if (change != kNotOffered)
        quote.setChange(change);
    else
        quote.setChange(quote.changeFromPreviousClose());

    const QString percent = FindKey(Field::PercentChg);
    if (percent != kNotOffered)
        quote.setPercentChg(percent);
    else
        quote.setPercentChg(quote.percentFromPreviousClose());

    // These services print every change unsigned. A change nobody knows has no sign to mend.
    const bool knownChange = quote.change() != kNotOffered;
    if (knownChange && builtIn.isEntry(m_serverName, BuiltInServers::kSignByText)) {
        // Compared as text on purpose: this is how the service's pages have always been read.
        if (QString::compare(quote.last(), quote.openPrice(), Qt::CaseSensitive) < 0)
            quote.setChange(u'-' + quote.change());
    } else if (knownChange && (builtIn.isEntry(m_serverName, BuiltInServers::kSignByPercent1) ||
                               builtIn.isEntry(m_serverName, BuiltInServers::kSignByPercent2))) {
        if (support::leadingNumber(quote.percentChg()) < 0)
            quote.setChange(u'-' + quote.change());
    }

    quote.setDayHigh(FindKey(Field::DayHigh));
    quote.setDayLow(FindKey(Field::DayLow));
    quote.setYearHigh(FindKey(Field::YearHigh));
    quote.setYearLow(FindKey(Field::YearLow));
    quote.setEPS(FindKey(Field::EPS));
    quote.setPE(FindKey(Field::PE));
    quote.setOpenInterest(FindKey(Field::Interest));

    const QString stamp = FindKey(Field::Update);
    quote.setUpdateDate(stampDate(stamp, today));
    quote.setUpdate(stamp);
}

QDateTime Qserver::stampDate(const QString& text, const QDate& today)
{
    QString datePart;
    QString timePart;
    const qsizetype at = text.indexOf(u'@') + 1;
    if (at > 0) {
        datePart = text.left(at - 1);
        const qsizetype et = text.indexOf(QLatin1String("ET"), at - 1) + 1;
        if (et > 0)
            timePart = text.mid(at, et - at - 1);
    } else {
        datePart = support::formatDate(QDateTime(today, QTime(0, 0)), u"mm/dd/yyyy");
    }
    // Tested joined without a blank, converted with one: a stamp whose parts only read as
    // a date when separated still gives the zero date.
    if (!readDate(QString(datePart + timePart)))
        return QDateTime(support::zeroDate(), QTime(0, 0));
    const auto when = readDate(QString(datePart + u' ' + timePart));
    return when ? *when : QDateTime(support::zeroDate(), QTime(0, 0));
}

void Qserver::fillLabelled(core::Quote& quote, const QString& prepared)
{
    const QString page = support::RemoveAll(prepared, QStringLiteral("\t"));
    auto text = [&](const char* from, const char* to) {
        return support::ExtractBetween(QString::fromLatin1(from), QString::fromLatin1(to), page).trimmed();
    };
    auto price = [&](const char* from, const char* to) {
        return support::ConvertFraction(
            support::ExtractBetween(QString::fromLatin1(from), QString::fromLatin1(to), page), quote.digits());
    };
    quote.setName(text("Name:", "Earnings"));
    quote.setLast(price("LAST:", "CHANGE:"));
    quote.setBid(price("Bid:", "Ask:"));
    quote.setAsk(price("Ask:", "LAST:"));
    if (quote.securityType() != 0)
        quote.setVolume(text("Volume:", "Open Interest:"));
    else
        quote.setVolume(text("Volume:", "High:"));
    quote.setDayHigh(price("High:", "Low:"));
    quote.setDayLow(price("Low:", "Bid:"));
    quote.setOpenPrice(price("Open:", "Volume:"));
    quote.setChange(price("CHANGE:", "Market"));
    quote.setPE(price("P/E Ratio:", "Dividend:"));
    quote.setEPS(price("Earnings (12 mo.):", "P/E Ratio:"));
    quote.setUpdate(text("Date & Time:", "Open:"));
    quote.setOpenInterest(text("Open Interest:", "Est. Volume:"));
    quote.setPercentChg(kNotOffered);
    quote.setPreviousClose(kNotOffered);
    quote.setYearHigh(kNotOffered);
    quote.setYearLow(kNotOffered);
}

} // namespace kestrova::quotes
