#include "support/PrivateFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrova::support {

bool openPrivate(QSaveFile& file)
{
    return file.open(QIODevice::WriteOnly) && file.setPermissions(kPrivateFile);
}

bool makePrivateDir(const QString& path, bool parents)
{
    if (QFileInfo(path).isDir()) {
        return true;
    }
    if (!(parents ? QDir().mkpath(path) : QDir().mkdir(path))) {
        return false;
    }
    return QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

bool makePrivate(const QString& path, bool create)
{
    const QByteArray name = QFile::encodeName(path);
    if (create) {
        // O_EXCL: a file that is already there keeps its content and only loses the bits.
        const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kPrivateFileMode);
        if (fd >= 0) {
            ::close(fd);
        }
    }
    return ::chmod(name.constData(), kPrivateFileMode) == 0;
}

} // namespace kestrova::support
