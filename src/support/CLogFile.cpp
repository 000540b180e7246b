#include "support/CLogFile.h"

#include "support/Clock.h"
#include "support/Cp1252.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/PrivateFiles.h"
#include "support/Secrets.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace kestrova::support {

namespace {
// The system's text for the failure and the file it met: "Permission denied" alone does
// not tell the user which file in which folder to fix.
QString systemError(int error, const QString& file)
{
    return QString::fromLocal8Bit(std::strerror(error)) + QStringLiteral(" (") + file + u')';
}
} // namespace

CLogFile::CLogFile(const Clock& clock, Host& host) : m_clock(clock), m_host(host) {}

CLogFile::~CLogFile()
{
    if (m_lockFd >= 0) {
        ::close(m_lockFd); // gives up this program's mark on the folder
    }
}

void CLogFile::setPath(const QString& path)
{
    m_path = path;
    if (!path.isEmpty() && !QFileInfo(path).isDir()) {
        makePrivateDir(path, false);
    }
}

void CLogFile::setLogFileName(const QString& name)
{
    m_logFileName = name;
    const qsizetype dot = name.indexOf(u'.');
    m_oldFileName = (dot >= 0 ? name.left(dot) : name) + QStringLiteral(".old");
}

QString CLogFile::fullPath() const
{
    return m_path + u'/' + m_logFileName;
}

QString CLogFile::oldFullPath() const
{
    return m_path + u'/' + m_oldFileName;
}

QString CLogFile::lockFullPath() const
{
    return m_path + u'/' + m_oldFileName.chopped(3) + QStringLiteral("lock");
}

bool CLogFile::claimFolder()
{
    // Open file description locks: they belong to this descriptor, so two programs in one
    // process (tests, a demo beside a window) see each other as two programs, and they go
    // with the process however it ends, so a crashed program never leaves a mark behind.
    if (m_lockFd < 0) {
        const QByteArray path = QFile::encodeName(lockFullPath());
        m_lockFd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateFileMode);
        if (m_lockFd < 0) {
            // No mark can be made here (a read-only folder), so nobody else made one either.
            return true;
        }
    }
    struct flock lock = {};
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 1;
    // The exclusive lock is had only when no other program holds its shared one. It is held
    // while the log turns over and then becomes shared in one step, so a program starting
    // meanwhile cannot turn over the log this one just began.
    lock.l_type = F_WRLCK;
    const bool alone = ::fcntl(m_lockFd, F_OFD_SETLK, &lock) == 0;
    if (alone) {
        StartNewLog();
    }
    lock.l_type = F_RDLCK;
    // Waits only while another program turns its log over.
    while (::fcntl(m_lockFd, F_OFD_SETLKW, &lock) != 0 && errno == EINTR) {
    }
    return alone;
}

bool CLogFile::alreadySaid(const QString& failure)
{
    if (failure == m_lastFailure) {
        return true;
    }
    m_lastFailure = failure;
    return false;
}

void CLogFile::setLogEnable(bool enable, Start start)
{
    if (m_path.isEmpty() || m_logFileName.isEmpty()) {
        m_host.messageBox(QStringLiteral("Invalid path or filename in LogFile Class"));
        return;
    }
    m_logEnable = enable;
    if (!m_previousEnable && enable) {
        m_joined = start == Start::Append || !claimFolder();
    }
    m_previousEnable = enable;
}

void CLogFile::StartNewLog()
{
    const QString log = fullPath();
    const QString old = oldFullPath();
    if (QFileInfo::exists(log)) {
        if (QFileInfo::exists(old) && ::unlink(QFile::encodeName(old).constData()) != 0) {
            const QString failure = systemError(errno, old);
            if (!alreadySaid(failure)) {
                m_host.messageBox(failure, MsgButtons::Ok, MsgIcon::Exclamation);
            }
            return;
        }
        if (::rename(QFile::encodeName(log).constData(), QFile::encodeName(old).constData()) != 0) {
            const QString failure = systemError(errno, log);
            if (!alreadySaid(failure)) {
                m_host.messageBox(failure, MsgButtons::Ok, MsgIcon::Exclamation);
            }
            return;
        }
        makePrivate(old); // a log an older version left readable
    }
    appendBytes(QByteArray(), false);
}

bool CLogFile::appendBytes(const QByteArray& bytes, bool askOnFailure)
{
    // O_APPEND makes each line one write at the end of the file, so a crash can cut
    // at most the line being written and never touches the lines before it.
    const QByteArray path = QFile::encodeName(fullPath());
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kPrivateFileMode);
    if (fd < 0) {
        const QString failure = systemError(errno, fullPath());
        if (!alreadySaid(failure)) {
            m_host.messageBox(failure, MsgButtons::Ok, MsgIcon::Exclamation);
        }
        return false;
    }
    bool ok = true;
    while (!bytes.isEmpty()) {
        const ssize_t n = ::write(fd, bytes.constData(), static_cast<size_t>(bytes.size()));
        if (n == bytes.size()) {
            m_lastFailure.clear();
            break;
        }
        const QString err = systemError(n < 0 ? errno : ENOSPC, fullPath());
        if (!askOnFailure || alreadySaid(err) ||
            m_host.messageBox(err, MsgButtons::RetryCancel, MsgIcon::Critical) != MsgAnswer::Retry) {
            ok = false;
            break;
        }
        // Asked again should the retry fail too.
        m_lastFailure.clear();
    }
    ::close(fd);
    return ok;
}

void CLogFile::LogMessage(const QString& message, QString* textBox)
{
    if (!m_logEnable) {
        return;
    }
    try {
        const QString line = redactSecrets(message) + u' ' + generalDate(m_clock.now()) + QStringLiteral("\r\n");
        appendBytes(encodeCp1252(line), true);
        if (textBox) {
            *textBox += line;
        }
    } catch (const std::exception& e) {
        m_host.messageBox(QStringLiteral("Log Message Error in LogFile Class: ") + QString::fromUtf8(e.what()));
    }
}

void CLogFile::MsgBoxLog(const QString& message)
{
    m_host.messageBox(message, MsgButtons::Ok, MsgIcon::None);
    LogMessage(message);
}

} // namespace kestrova::support
