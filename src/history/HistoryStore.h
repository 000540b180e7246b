#pragma once

#include "history/HistoryTypes.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <functional>

class QSqlError;

namespace kestrova::support {
class Clock;
}

namespace kestrova::history {

// The history database: one SQLite file in the data directory, reached through Qt SQL's
// SQLite driver on a connection of this object's own. WAL journal, so the chart and a
// second process can read while an update writes; every write is one transaction.
//
// A file that is not a database, or whose pages are damaged, is never deleted: it is
// renamed aside (history.sqlite.damaged-YYYYMMDD-HHMMSS, with its -wal and -shm files)
// and a fresh database takes its place.
class HistoryStore
{
public:
    static constexpr int kSchemaVersion = 3;
    static QString defaultFileName() { return QStringLiteral("history.sqlite"); }

    HistoryStore(QString path, const support::Clock& clock);
    ~HistoryStore();
    HistoryStore(const HistoryStore&) = delete;
    HistoryStore& operator=(const HistoryStore&) = delete;

    // Opens (creating or upgrading the schema). False when the history cannot be kept
    // here; lastError() says why.
    bool open();
    // Opens an existing store of the current schema only to read it, creating, upgrading
    // and repairing nothing: for a data folder this process cannot write (a read-only
    // mount), where open() fails because WAL wants a shared-memory file beside the database.
    // Where no such file can be had, the database is read as immutable: on a read-only
    // folder nobody can be writing it.
    bool openReadOnly();
    void close();
    bool isOpen() const { return m_open; }
    const QString& path() const { return m_path; }
    // The Qt SQL connection name, for code that needs the raw connection (PRAGMAs).
    const QString& connectionName() const { return m_connection; }

    // Why the last operation failed (empty after a success).
    const QString& lastError() const { return m_error; }
    // Set when the last failure came from a damaged file rather than a full disk or a lock.
    bool lastErrorIsDamage() const { return m_damaged; }
    // Where a damaged file was moved by the last open() or startOver(); empty if none was.
    const QString& setAsidePath() const { return m_setAside; }

    // Renames the current file aside and starts a fresh one (after a write found it damaged).
    bool startOver();

    // Writes the cycles in one transaction; on any failure everything is rolled back.
    bool append(const QList<CycleRecord>& cycles);
    bool append(const CycleRecord& cycle) { return append(QList<CycleRecord>{cycle}); }

    // Daily rows of an import, replacing earlier imported rows of the same symbol and day.
    bool importRows(const QList<QuoteRow>& rows);

    // Removes every quote and alarm older than cutoff; returns the rows removed, -1 on failure.
    qint64 removeOlderThan(const QDateTime& cutoff);

    // A small key/value table for the store's own bookkeeping (the last retention day).
    QString meta(const QString& key) const;
    bool setMeta(const QString& key, const QString& value);

    // One symbol's quotes with from <= fetchedAt <= until, oldest first (rows of one time in
    // the order they were stored); an invalid bound is open. The rows are handed over one by
    // one as SQLite steps to them, so a listing of years holds one row at a time; times are
    // in UTC. False when the store is not open or the read failed part way (lastError()).
    bool forEachQuote(const QString& symbol, const QDateTime& from, const QDateTime& until,
                      const std::function<void(const QuoteRow&)>& onRow);
    // The same rows collected, for short ranges.
    QList<QuoteRow> quotes(const QString& symbol, const QDateTime& from = {}, const QDateTime& until = {});
    // Alarms with from <= firedAt <= until, oldest first; all symbols when symbol is empty.
    QList<AlarmRow> alarms(const QDateTime& from = {}, const QDateTime& until = {}, const QString& symbol = {}) const;

    int schemaVersion() const;

    // Hands the memory of SQLite's page cache back (PRAGMA shrink_memory).
    void releaseCache();

private:
    enum class OpenState { Ok, Damaged, Failed };
    OpenState tryOpen();
    bool migrate(int from);
    bool setAside();
    bool fail(const QString& what, const QSqlError& error);

    QString m_path;
    const support::Clock& m_clock;
    QString m_connection;
    bool m_open = false;
    bool m_damaged = false;
    QString m_error;
    QString m_setAside;
};

} // namespace kestrova::history
