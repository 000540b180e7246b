#pragma once

#include "support/SaveFile.h"

#include <QDate>
#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

namespace kestrova::quotes {

// What the program remembers about its quote sources from one update to the next: which
// source is resting after a "too many requests", which securities each source has priced,
// how many updates in a row it has come back without a price since, and which warnings
// were given. Kept in a small file in the data directory, so one-shot updates (cron, a
// systemd timer) see the same history as the daemon.
class SourceHealth
{
public:
    // A source that priced a security before and then answers without a price this many
    // updates in a row is reported once.
    static constexpr int kSilentUpdates = 3;

    QDateTime restedUntil(const QString& source) const;
    void rest(const QString& source, const QDateTime& until);

    // One answer about one security. Return the warning to show when this is the moment
    // to say something (once), else nothing.
    QString priced(const QString& source, const QString& ticker, const QStringList& missingFields, const QDate& today);
    QString noPrice(const QString& source, const QString& ticker, const QDate& today);

    // The paging route hears of warnings at most once a day.
    bool pagedOn(const QDate& day) const { return m_lastPaged == day; }
    void setPaged(const QDate& day) { m_lastPaged = day; }

    // Reads the file (a missing or damaged one is a fresh start) and writes it atomically.
    // Securities not asked about for 30 days are forgotten on save.
    void load(const QString& path);
    support::SaveResult save(const QString& path, const QDate& today) const;
    // What the user is told of a save that failed: the rest periods it held are not lost
    // from the file, but what this update learnt is.
    static QString saveFailure(const QString& path, const support::SaveResult& result);

private:
    struct Security
    {
        bool pricedBefore = false;
        int misses = 0;
        bool warned = false;
        QDate seen;
    };
    struct Source
    {
        QDateTime restUntil;
        QHash<QString, Security> securities; // by ticker, upper case
        QSet<QString> warnedFields;
    };
    QHash<QString, Source> m_sources; // by source name, lower case
    QDate m_lastPaged;
};

} // namespace kestrova::quotes
