#pragma once

#include "support/KeyedCollection.h"

#include <QList>
#include <QString>

#include <memory>

namespace kestrova::news {

// One headline as a news page shows it, cleaned of markup.
struct ScrapedStory
{
    QString headline;
    QString source;
    QString date; // as the page writes it; may be empty
    QString time;
};

// One news service as server.dat describes it. The page for a ticker is URL & ticker. The
// page is cut into stories at every occurrence of StoryKey (the text before the first one
// is not a story; an empty StoryKey makes the whole page one story). In each story, a field
// is the text between its start marker and the next end marker after it; a field whose
// start marker is empty is not offered, one whose markers are not found is empty; an empty
// end marker takes the rest of the story. A start marker that stops inside a tag ("<a href=")
// puts the value after the end of that tag. Markup
// inside a field is dropped, entities decoded and blanks and line breaks collapsed.
class NewsServer
{
public:
    QString serverName() const { return m_serverName; }
    void setServerName(const QString& v) { m_serverName = v; }
    QString url() const { return m_url; }
    void setUrl(const QString& v) { m_url = v; }
    QString storyKey() const { return m_storyKey; }
    void setStoryKey(const QString& v) { m_storyKey = v; }
    QString headlineStart() const { return m_headlineStart; }
    void setHeadlineStart(const QString& v) { m_headlineStart = v; }
    QString headlineEnd() const { return m_headlineEnd; }
    void setHeadlineEnd(const QString& v) { m_headlineEnd = v; }
    QString sourceStart() const { return m_sourceStart; }
    void setSourceStart(const QString& v) { m_sourceStart = v; }
    QString sourceEnd() const { return m_sourceEnd; }
    void setSourceEnd(const QString& v) { m_sourceEnd = v; }
    QString dateStart() const { return m_dateStart; }
    void setDateStart(const QString& v) { m_dateStart = v; }
    QString dateEnd() const { return m_dateEnd; }
    void setDateEnd(const QString& v) { m_dateEnd = v; }
    QString timeStart() const { return m_timeStart; }
    void setTimeStart(const QString& v) { m_timeStart = v; }
    QString timeEnd() const { return m_timeEnd; }
    void setTimeEnd(const QString& v) { m_timeEnd = v; }

    // The request URL for a ticker.
    QString requestUrl(const QString& ticker) const { return m_url + ticker; }
    // The stories of a fetched page, in page order; stories without a headline are left out.
    QList<ScrapedStory> ExtractStories(const QString& page) const;

private:
    QString m_serverName;
    QString m_url;
    QString m_storyKey;
    QString m_headlineStart;
    QString m_headlineEnd;
    QString m_sourceStart;
    QString m_sourceEnd;
    QString m_dateStart;
    QString m_dateEnd;
    QString m_timeStart;
    QString m_timeEnd;
};

// The news servers of server.dat, in file order, keyed by ServerName (without regard to
// case), and the file's version stamp.
class NewsServers
{
public:
    using Ptr = std::shared_ptr<NewsServer>;

    void Clear()
    {
        m_col.clear();
        version.clear();
    }
    // Raises VbError 457 when the key is already present.
    Ptr Add(Ptr server, const QString& key = {})
    {
        m_col.add(server, key);
        return server;
    }
    Ptr Item(int position) const { return m_col.item(position); }
    Ptr Item(const QString& key) const { return m_col.item(key); }
    bool contains(const QString& key) const { return m_col.contains(key); }
    int Count() const { return m_col.count(); }
    void Remove(int position) { m_col.remove(position); }

    auto begin() const { return m_col.begin(); }
    auto end() const { return m_col.end(); }

    QString version;

private:
    support::KeyedCollection<NewsServer> m_col;
};

} // namespace kestrova::news
