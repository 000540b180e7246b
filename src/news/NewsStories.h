#pragma once

#include "news/News.h"
#include "support/KeyedCollection.h"

#include <QDate>
#include <QString>

#include <memory>

namespace kestrova::core {
class Quotes;
}
namespace kestrova::support {
class Clock;
}

namespace kestrova::news {

// The news store: every headline known for the portfolio's tickers, in the order they
// were found, saved in news.dat (one tab-separated line per story, Windows-1252, CR LF).
// Positions are 1-based; stories are normally added without a key.
class NewsStories
{
public:
    using Ptr = std::shared_ptr<News>;
    using const_iterator = support::KeyedCollection<News>::const_iterator;

    // Ages and the "new" mark are counted against the clock's today.
    explicit NewsStories(const support::Clock& clock, QString fileName = {});

    // The full path of news.dat.
    void setFileName(const QString& fileName) { m_fileName = fileName; }
    QString fileName() const { return m_fileName; }

    // A duplicate key is ignored; the story is returned either way.
    Ptr Add(Ptr story, const QString& key = {});
    // Raise support::VbError for a position out of range.
    Ptr Item(int position) const { return m_col.item(position); }
    void Remove(int position) { m_col.remove(position); }
    int Count() const { return m_col.count(); }
    void Clear() { m_col.clear(); }
    const_iterator begin() const { return m_col.begin(); }
    const_iterator end() const { return m_col.end(); }

    // Rewrites news.dat from the collection (atomically). False on a file error, with the
    // previous file left as it was.
    bool WriteNews() const;
    // Appends the stories of news.dat. A missing file changes nothing; a read error keeps
    // what was read before it. False in both cases.
    bool ReadNews();
    // 1-based position of the first story whose headline is exactly this text; 0 for none.
    qint16 FindStory(const QString& newsLine) const;
    // Whether the first story of this ticker (exact text) that is marked new exists.
    bool IsNewsOut(const QString& ticker) const;
    // A story marked new whose date has passed loses the mark; undated stories keep it.
    void UpdateNewsOut();
    // Deletes stories older than `days` calendar days, keeping the store's old counter walk:
    // see NewsStories.cpp.
    void PurgeNews(qint16 days);
    // "<IBM 11/23/2026> headline" LF for each unpaged story of a ticker the pager watches,
    // at most `maximum` stories (0: no limit), which are marked paged; `marked` counts them.
    QString PageMessageString(qint16 maximum, const core::Quotes& stockQuotes, int* marked = nullptr);

    // How old a story may be and still go into a page: today's and yesterday's news.
    static constexpr int kPageAgeLimitDays = 1;

    // Fills a story from one line of news.dat (the line end already stripped).
    void parseLine(const QString& line, News& story) const;
    // The date a story's text stands for: "11/23/2026", "11-23-26", "2026-11-23",
    // "Nov 23, 2026", "23 November 2026", each also with a time after it ("11/23/2026 9:00");
    // an invalid QDate when the text is not a date.
    static QDate storyDate(const QString& text);
    // A boolean as the file writes it ("True"/"False", any case) or a number (0 is false);
    // false in ok for anything else.
    static bool toBoolean(const QString& text, bool* ok);

private:
    QString todayText() const;

    const support::Clock& m_clock;
    QString m_fileName;
    support::KeyedCollection<News> m_col;
};

} // namespace kestrova::news
