#include "news/NewsServer.h"

#include "quotes/MarkupText.h"

namespace kestrova::news {

namespace {

QString between(const QString& text, const QString& start, const QString& end)
{
    if (start.isEmpty()) {
        return {};
    }
    const qsizetype from = text.indexOf(start);
    if (from < 0) {
        return {};
    }
    qsizetype valueStart = from + start.size();
    // A marker that stops inside a tag ("<a href=") lets the tag's attributes vary; the
    // value then starts after that tag.
    if (start.lastIndexOf(u'<') > start.lastIndexOf(u'>')) {
        const qsizetype close = text.indexOf(u'>', valueStart);
        if (close < 0) {
            return {};
        }
        valueStart = close + 1;
    }
    const qsizetype to = end.isEmpty() ? text.size() : text.indexOf(end, valueStart);
    if (to < 0) {
        return {};
    }
    return text.mid(valueStart, to - valueStart);
}

// Markup to plain text: the tag conversion also decodes the entities; its tabs and any
// line breaks of the page become single blanks.
QString clean(const QString& fragment)
{
    QString text = quotes::markupToTabs(fragment);
    text.replace(u'\t', u' ');
    return text.simplified();
}

} // namespace

QList<ScrapedStory> NewsServer::ExtractStories(const QString& page) const
{
    QList<QString> chunks;
    if (m_storyKey.isEmpty()) {
        chunks << page;
    } else {
        qsizetype at = page.indexOf(m_storyKey);
        while (at >= 0) {
            const qsizetype start = at + m_storyKey.size();
            const qsizetype next = page.indexOf(m_storyKey, start);
            chunks << page.mid(start, next < 0 ? -1 : next - start);
            at = next;
        }
    }
    QList<ScrapedStory> stories;
    for (const QString& chunk : chunks) {
        ScrapedStory s;
        s.headline = clean(between(chunk, m_headlineStart, m_headlineEnd));
        if (s.headline.isEmpty()) {
            continue;
        }
        s.source = clean(between(chunk, m_sourceStart, m_sourceEnd));
        s.date = clean(between(chunk, m_dateStart, m_dateEnd));
        s.time = clean(between(chunk, m_timeStart, m_timeEnd));
        stories << s;
    }
    return stories;
}

} // namespace kestrova::news
