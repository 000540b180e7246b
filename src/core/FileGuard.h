#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QLockFile>
#include <QString>

namespace kestrova::core {

// What a file looked like when it was read, to tell before a save whether another process
// has written it since. Taken before reading: a change that lands between the stamp and
// the read then shows up as a change (a needless question) rather than being overwritten.
struct FileStamp
{
    bool exists = false;
    qint64 size = 0;
    QDateTime modified;
    QByteArray hash;

    static FileStamp of(const QString& path);
    // Size and content decide; a file written again with the same bytes has not changed.
    bool sameContentAs(const FileStamp& other) const;
};

// An exclusive lock beside a file (FILE.lock), held while a process reads, changes and
// saves it, or for as long as it runs a piece of work only one process may run. A lock
// left behind by a process that died is taken over, and so is one that names no owner
// once it is older than kUnreadableStaleSeconds (a crash between creating the lock file
// and writing the owner into it leaves an empty one).
class FileLock
{
public:
    static constexpr int kUnreadableStaleSeconds = 30;

    explicit FileLock(const QString& lockPath);

    // Waits up to waitMs for the lock (0: one try).
    bool acquire(int waitMs);
    // What the last acquire took over from a dead or unknown owner, for the log ("" if nothing).
    const QString& tookOver() const { return m_tookOver; }
    bool held() const { return m_lock.isLocked(); }
    // The last acquire failed because another process holds the lock (not for want of
    // a place to create it).
    bool heldElsewhere() const { return m_lock.error() == QLockFile::LockFailedError; }
    void release() { m_lock.unlock(); }
    // Who holds it, as "PID 1234, kestrova-cli"; empty when that cannot be told.
    QString holder() const;
    QString path() const { return m_path; }

private:
    void takeOverIfStale();

    QString m_path;
    QLockFile m_lock;
    QString m_tookOver;
};

// How long a read-change-save waits for another process to finish its own.
constexpr int kPortfolioLockWaitMs = 5000;

QString portfolioLockPath(const QString& portfolioPath);
// "The portfolio file F is in use by another process (PID 1234, kestrova-cli); nothing was changed."
QString portfolioLockMessage(const QString& portfolioPath, const FileLock& lock);
// The overwrite question, and the refusal where nobody can be asked.
QString portfolioChangedQuestion(const QString& portfolioPath);
QString portfolioChangedRefusal(const QString& portfolioPath);
// A failed save's error text followed by the file it was meant for, for error output and the
// log: "ERROR 57 occurred." alone does not tell which file was left as it was.
QString portfolioSaveFailure(const QString& errorText, const QString& portfolioPath);

} // namespace kestrova::core
