#include "core/FileGuard.h"

#include "support/PrivateFiles.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>

#include <cerrno>
#include <csignal>

namespace kestrova::core {

FileStamp FileStamp::of(const QString& path)
{
    FileStamp s;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        return s;
    }
    s.exists = true;
    s.size = f.size();
    s.modified = QFileInfo(f).lastModified();
    QCryptographicHash h(QCryptographicHash::Sha256);
    h.addData(&f);
    s.hash = h.result();
    return s;
}

bool FileStamp::sameContentAs(const FileStamp& other) const
{
    return exists == other.exists && size == other.size && hash == other.hash;
}

FileLock::FileLock(const QString& lockPath) : m_path(lockPath), m_lock(lockPath)
{
    // A schedule lock is held for days: only a dead holder makes a lock stale, never its age.
    m_lock.setStaleLockTime(0);
}

bool FileLock::acquire(int waitMs)
{
    if (m_lock.isLocked()) {
        return true;
    }
    m_tookOver.clear();
    takeOverIfStale();
    if (!m_lock.tryLock(waitMs)) {
        return false;
    }
    // It names this process and this machine: the user's own business.
    support::makePrivate(m_path);
    return true;
}

void FileLock::takeOverIfStale()
{
    const QFileInfo file(m_path);
    if (!file.exists()) {
        return;
    }
    qint64 pid = 0;
    QString host;
    QString program;
    QString why;
    if (!m_lock.getLockInfo(&pid, &host, &program)) {
        // Without an owner the lock cannot tell a crash from a process still writing its
        // name into it; only age can.
        const qint64 age = file.lastModified().secsTo(QDateTime::currentDateTime());
        if (age < kUnreadableStaleSeconds) {
            return;
        }
        why = QStringLiteral("it names no owner and is %1 s old").arg(age);
    } else if (pid > 0 && host == QSysInfo::machineHostName() && ::kill(static_cast<pid_t>(pid), 0) != 0 &&
               errno == ESRCH) {
        why = QStringLiteral("its owner, PID %1, is gone").arg(pid);
    } else {
        return;
    }
    if (m_lock.removeStaleLockFile()) {
        m_tookOver = QStringLiteral("Took over the lock ") + m_path + QStringLiteral(": ") + why;
    }
}

QString FileLock::holder() const
{
    qint64 pid = 0;
    QString host;
    QString program;
    if (!m_lock.getLockInfo(&pid, &host, &program)) {
        return {};
    }
    QString text = QStringLiteral("PID ") + QString::number(pid);
    if (!program.isEmpty()) {
        text += QStringLiteral(", ") + QFileInfo(program).fileName();
    }
    return text;
}

QString portfolioLockPath(const QString& portfolioPath)
{
    return portfolioPath + QStringLiteral(".lock");
}

QString portfolioLockMessage(const QString& portfolioPath, const FileLock& lock)
{
    QString who = lock.holder();
    if (!lock.heldElsewhere()) {
        // The lock file itself could not be made (a read-only folder).
        return QStringLiteral("The portfolio file ") + portfolioPath + QStringLiteral(" cannot be locked (") +
               lock.path() + QStringLiteral("); nothing was changed.");
    }
    if (who.isEmpty()) {
        // Created a moment ago and not written yet, or left empty by a crash less than
        // kUnreadableStaleSeconds ago.
        who = QStringLiteral("not named in ") + lock.path();
    }
    return QStringLiteral("The portfolio file ") + portfolioPath + QStringLiteral(" is in use by another process (") +
           who + QStringLiteral("); nothing was changed.");
}

QString portfolioChangedQuestion(const QString& portfolioPath)
{
    return QStringLiteral("The portfolio file ") + portfolioPath +
           QStringLiteral(" was changed by another program since it was opened. Overwrite it with the setup shown "
                          "here? (Cancel keeps the file as the other program saved it.)");
}

QString portfolioChangedRefusal(const QString& portfolioPath)
{
    return QStringLiteral("The portfolio file ") + portfolioPath +
           QStringLiteral(" was changed by another program since it was read; nothing was saved.");
}

QString portfolioSaveFailure(const QString& errorText, const QString& portfolioPath)
{
    return errorText + QStringLiteral(" The portfolio file ") + portfolioPath +
           QStringLiteral(" was not saved; the copy on disk is as it was.");
}

} // namespace kestrova::core
