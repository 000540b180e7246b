#include "news/NewsStories.h"

#include "core/Quotes.h"
#include "support/Clock.h"
#include "support/Cp1252.h"
#include "support/Format.h"
#include "support/SaveFile.h"
#include "support/VbError.h"

#include <QFile>
#include <QRegularExpression>

namespace kestrova::news {

namespace {

// The line parse splits into at most this many fields; the last one keeps any further tabs.
constexpr int kMaxFields = 21;

QString booleanText(bool value)
{
    return value ? QStringLiteral("True") : QStringLiteral("False");
}

QStringList splitLimited(const QString& text, QChar separator, int limit)
{
    QStringList fields;
    qsizetype from = 0;
    while (fields.size() < limit - 1) {
        const qsizetype at = text.indexOf(separator, from);
        if (at < 0) {
            break;
        }
        fields << text.mid(from, at - from);
        from = at + 1;
    }
    fields << text.mid(from);
    return fields;
}

} // namespace

NewsStories::NewsStories(const support::Clock& clock, QString fileName)
    : m_clock(clock), m_fileName(std::move(fileName))
{}

NewsStories::Ptr NewsStories::Add(Ptr story, const QString& key)
{
    try {
        m_col.add(story, key);
    } catch (const support::VbError&) {
    }
    return story;
}

QString NewsStories::todayText() const
{
    return support::formatDate(QDateTime(m_clock.today(), QTime(0, 0)), u"mm/dd/yyyy");
}

namespace {

int twoDigitYear(const QString& year)
{
    const int y = year.toInt();
    // The usual two-digit window: 00-29 are this century, 30-99 the last.
    return year.size() == 2 ? y + (y < 30 ? 2000 : 1900) : y;
}

// "Nov", "November", "Sept": a word of three letters or more that starts an English month
// name (news pages are English); 0 for anything else.
int monthByName(const QString& word)
{
    static const char* const names[] = {"january", "february", "march",     "april",   "may",      "june",
                                        "july",    "august",   "september", "october", "november", "december"};
    const QString w = word.toLower();
    if (w.size() < 3) {
        return 0;
    }
    for (int m = 0; m < 12; ++m) {
        if (QLatin1String(names[m]).startsWith(w)) {
            return m + 1;
        }
    }
    return 0;
}

} // namespace

QDate NewsStories::storyDate(const QString& text)
{
    // The forms a general date reader takes: numbers with slashes or dashes, the year last or
    // first, month names before or after the day, and a time of day after the date.
    static const QRegularExpression timeAfter(
        QStringLiteral(R"(^\s*(.*?\S)\s+(\d{1,2}:\d{2}\S*(?:\s*[aApP][mM])?)\s*$)"));
    static const QRegularExpression us(QStringLiteral(R"(^(\d{1,2})([/-])(\d{1,2})\2(\d{4}|\d{2})$)"));
    static const QRegularExpression yearFirst(QStringLiteral(R"(^(\d{4})([/-])(\d{1,2})\2(\d{1,2})$)"));
    static const QRegularExpression monthFirst(QStringLiteral(R"(^([A-Za-z]+)\.?\s+(\d{1,2}),?\s+(\d{4}|\d{2})$)"));
    static const QRegularExpression dayFirst(QStringLiteral(R"(^(\d{1,2})[\s-]+([A-Za-z]+)\.?,?[\s-]+(\d{4}|\d{2})$)"));
    QString date = text.trimmed();
    if (const auto t = timeAfter.match(date); t.hasMatch()) {
        if (!support::parseTimeOfDay(t.captured(2))) {
            return {};
        }
        date = t.captured(1);
    }
    int year = 0;
    int month = 0;
    int day = 0;
    if (const auto m = us.match(date); m.hasMatch()) {
        month = m.captured(1).toInt();
        day = m.captured(3).toInt();
        year = twoDigitYear(m.captured(4));
    } else if (const auto y = yearFirst.match(date); y.hasMatch()) {
        year = y.captured(1).toInt();
        month = y.captured(3).toInt();
        day = y.captured(4).toInt();
    } else if (const auto n = monthFirst.match(date); n.hasMatch()) {
        month = monthByName(n.captured(1));
        day = n.captured(2).toInt();
        year = twoDigitYear(n.captured(3));
    } else if (const auto d = dayFirst.match(date); d.hasMatch()) {
        day = d.captured(1).toInt();
        month = monthByName(d.captured(2));
        year = twoDigitYear(d.captured(3));
    } else {
        return {};
    }
    return QDate(year, month, day); // invalid for 2/30, month 0 and the like
}

bool NewsStories::toBoolean(const QString& text, bool* ok)
{
    const QString t = text.trimmed();
    *ok = true;
    if (t.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0) {
        return true;
    }
    if (t.compare(QLatin1String("False"), Qt::CaseInsensitive) == 0) {
        return false;
    }
    bool isNumber = false;
    const double v = t.toDouble(&isNumber);
    if (isNumber) {
        return v != 0;
    }
    *ok = false;
    return false;
}

void NewsStories::parseLine(const QString& line, News& story) const
{
    // The reader appends a carriage return and the parse drops the last field's final
    // character, so a line's last field comes through whole.
    QStringList fields = splitLimited(line + u'\r', u'\t', kMaxFields);
    fields.last().chop(1);
    bool ok = false;
    // Each field on its own: a short or damaged line keeps whatever could be read.
    if (fields.size() > 3) {
        const bool v = toBoolean(fields[3], &ok);
        if (ok) {
            story.setBNew(v);
        }
    }
    if (fields.size() > 4) {
        const bool v = toBoolean(fields[4], &ok);
        if (ok) {
            story.setPaged(v);
        }
    }
    if (fields.size() > 1) {
        story.setNewsLine(fields[1]);
    }
    if (fields.size() > 2) {
        story.setNewsSource(fields[2]);
    }
    if (fields.size() > 5) {
        story.setSDate(fields[5]);
    }
    story.setTicker(fields[0]);
    if (fields.size() > 6) {
        story.setTime(fields[6]);
    }
    const QDate date = storyDate(story.sDate());
    if (date.isValid()) {
        story.setBNew(date == m_clock.today());
    }
}

bool NewsStories::WriteNews() const
{
    QByteArray out;
    for (const Ptr& s : m_col) {
        const QString line = s->ticker() + u'\t' + s->newsLine() + u'\t' + s->newsSource() + u'\t' +
                             booleanText(s->bNew()) + u'\t' + booleanText(s->paged()) + u'\t' + s->sDate() + u'\t' +
                             s->time() + QStringLiteral("\r\n");
        out += support::encodeCp1252(line);
    }
    return support::saveWhole(m_fileName, out).ok;
}

bool NewsStories::ReadNews()
{
    QFile file(m_fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray bytes = file.readAll();
    const bool readOk = file.error() == QFileDevice::NoError;
    const QString text = support::decodeCp1252(bytes);
    qsizetype pos = 0;
    while (pos < text.size()) {
        qsizetype end = pos;
        while (end < text.size() && text[end] != u'\r' && text[end] != u'\n') {
            ++end;
        }
        auto story = std::make_shared<News>();
        parseLine(text.mid(pos, end - pos), *story);
        Add(story);
        // CR LF, LF or a lone CR ends a line.
        if (end < text.size() && text[end] == u'\r') {
            ++end;
        }
        if (end < text.size() && text[end] == u'\n') {
            ++end;
        }
        pos = end;
    }
    return readOk;
}

qint16 NewsStories::FindStory(const QString& newsLine) const
{
    qint16 i = 0;
    for (const Ptr& s : m_col) {
        ++i;
        if (s->newsLine() == newsLine) {
            return i;
        }
    }
    return 0;
}

bool NewsStories::IsNewsOut(const QString& ticker) const
{
    for (const Ptr& s : m_col) {
        if (s->ticker() == ticker && s->bNew()) {
            return true;
        }
    }
    return false;
}

void NewsStories::UpdateNewsOut()
{
    const QDate today = m_clock.today();
    for (const Ptr& s : m_col) {
        if (!s->bNew()) {
            continue;
        }
        const QDate date = storyDate(s->sDate());
        if (date.isValid()) {
            s->setBNew(date == today);
        }
    }
}

// The purge has always walked the stories with a counter that counts every story visited
// and deletes by that counter. Once a story is gone the counter runs ahead of the story
// being tested, so the story deleted can be a younger one further on while some old ones
// stay until the next purge. Stored news files and users' expectations rest on it, so the
// walk stays as it is.
void NewsStories::PurgeNews(qint16 days)
{
    if (days <= 0) {
        return;
    }
    const QDate today = m_clock.today();
    int k = 0;
    int current = 1; // position of the story being visited in the shrinking collection
    while (current <= m_col.count()) {
        ++k;
        const QDate date = storyDate(m_col.item(current)->sDate());
        bool removedCurrent = false;
        if (date.isValid() && date.daysTo(today) > days && k <= m_col.count()) {
            m_col.remove(k);
            removedCurrent = k == current;
        }
        // When the visited story itself went, its successor has moved into its place.
        if (!removedCurrent) {
            ++current;
        }
    }
}

// A story whose ticker is not in the stock set (an option, or a stock whose quote could not
// be fetched) cannot be checked against ToPager; that lookup failure is passed over and the
// story is treated like one the pager watches. Every story visited counts towards the
// maximum and is marked paged, even one too old to be written.
QString NewsStories::PageMessageString(qint16 maximum, const core::Quotes& stockQuotes, int* marked)
{
    QString text;
    int count = 0;
    const QDate today = m_clock.today();
    for (const Ptr& s : m_col) {
        if (s->paged()) {
            continue;
        }
        try {
            if (!stockQuotes.Item(s->ticker())->toPager()) {
                continue;
            }
        } catch (const support::VbError&) {
        }
        QDate date = storyDate(s->sDate());
        if (!date.isValid()) {
            date = today;
        }
        // An age equal to the limit passes: yesterday's evening news is still news to
        // someone paged first thing in the morning.
        if (date.daysTo(today) <= kPageAgeLimitDays) {
            text += u'<' + s->ticker() + u' ' + s->sDate() + QStringLiteral("> ") + s->newsLine() + u'\n';
        }
        s->setPaged(true);
        ++count;
        // Equality, as it always was: a maximum of 0 (or below) sets no limit.
        if (count == maximum) {
            break;
        }
    }
    if (marked) {
        *marked = count;
    }
    return text;
}

} // namespace kestrova::news
