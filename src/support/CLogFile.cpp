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

void CLogFile::setLogEnable(bool enable, Start start)
{
    if (m_path.isEmpty() || m_logFileName.isEmpty()) {
        m_host.messageBox(QStringLiteral("Invalid path or filename in LogFile Class"));
        return;
    }
    m_logEnable = enable;
    if (!m_previousEnable && enable && start == Start::NewLog) {
        StartNewLog();
    }
    m_previousEnable = enable;
}

void CLogFile::StartNewLog()
{
    const QString log = fullPath();
    const QString old = oldFullPath();
    if (QFileInfo::exists(log)) {
        if (QFileInfo::exists(old) && ::unlink(QFile::encodeName(old).constData()) != 0) {
            m_host.messageBox(systemError(errno, old), MsgButtons::Ok, MsgIcon::Exclamation);
            return;
        }
        if (::rename(QFile::encodeName(log).constData(), QFile::encodeName(old).constData()) != 0) {
            m_host.messageBox(systemError(errno, log), MsgButtons::Ok, MsgIcon::Exclamation);
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
        m_host.messageBox(systemError(errno, fullPath()), MsgButtons::Ok, MsgIcon::Exclamation);
        return false;
    }
    bool ok = true;
    while (!bytes.isEmpty()) {
        const ssize_t n = ::write(fd, bytes.constData(), static_cast<size_t>(bytes.size()));
        if (n == bytes.size()) {
            break;
        }
        const QString err = systemError(n < 0 ? errno : ENOSPC, fullPath());
        if (!askOnFailure || m_host.messageBox(err, MsgButtons::RetryCancel, MsgIcon::Critical) != MsgAnswer::Retry) {
            ok = false;
            break;
        }
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
