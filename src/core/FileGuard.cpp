#include "core/FileGuard.h"

#include "support/PrivateFiles.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

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
    if (!m_lock.tryLock(waitMs)) {
        return false;
    }
    // It names this process and this machine: the user's own business.
    support::makePrivate(m_path);
    return true;
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
    const QString who = lock.holder();
    if (!lock.heldElsewhere() || who.isEmpty()) {
        // No holder to name: the lock file itself could not be made (a read-only folder).
        return QStringLiteral("The portfolio file ") + portfolioPath + QStringLiteral(" cannot be locked (") +
               lock.path() + QStringLiteral("); nothing was changed.");
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
