#include "secrets/FileSecrets.h"

#include "support/SaveFile.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrova::secrets {

namespace {

QString systemError(const QString& what, const QString& path)
{
    return what + QStringLiteral(" (") + QString::fromLocal8Bit(std::strerror(errno)) + QStringLiteral(": ") + path +
           u')';
}

} // namespace

bool isSecretName(const QString& name)
{
    if (name.isEmpty() || name.startsWith(u'.')) {
        return false;
    }
    for (const QChar c : name) {
        const bool ok = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_' ||
                        c == u'-' || c == u'.';
        if (!ok) {
            return false;
        }
    }
    return true;
}

FileSecrets::FileSecrets(QString folder) : m_folder(std::move(folder)) {}

QString FileSecrets::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Kestrova/secrets");
}

QString FileSecrets::where() const
{
    return QStringLiteral("the folder ") + QDir::toNativeSeparators(m_folder);
}

QString FileSecrets::pathOf(const QString& name) const
{
    return m_folder + u'/' + name;
}

QString FileSecrets::preparedFolder() const
{
    const QByteArray path = QFile::encodeName(m_folder);
    QDir().mkpath(QFileInfo(m_folder).absolutePath());
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST) {
        return systemError(QStringLiteral("the secrets folder could not be made"), m_folder);
    }
    struct stat st = {};
    if (::lstat(path.constData(), &st) != 0) {
        return systemError(QStringLiteral("the secrets folder could not be read"), m_folder);
    }
    // Everything in it is trusted to be the user's own: a link could point anywhere, and a
    // folder of another user's could be read by that user.
    if (!S_ISDIR(st.st_mode)) {
        return QStringLiteral("the secrets folder is not a plain folder: ") + m_folder;
    }
    if (st.st_uid != ::geteuid()) {
        return QStringLiteral("the secrets folder belongs to another user: ") + m_folder;
    }
    if ((st.st_mode & 07777) != 0700 && ::chmod(path.constData(), 0700) != 0) {
        return systemError(QStringLiteral("the secrets folder could not be made private"), m_folder);
    }
    return {};
}

SecretRead FileSecrets::read(const QString& name)
{
    SecretRead r;
    if (!isSecretName(name)) {
        r.error = QStringLiteral("not a name for a secret: ") + name;
        return r;
    }
    QFile file(pathOf(name));
    if (!file.exists()) {
        return r;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        r.error = file.errorString() + QStringLiteral(" (") + file.fileName() + u')';
        return r;
    }
    r.value = QString::fromUtf8(file.readAll());
    r.found = true;
    return r;
}

QString FileSecrets::write(const QString& name, const QString& value)
{
    if (!isSecretName(name)) {
        return QStringLiteral("not a name for a secret: ") + name;
    }
    if (const QString why = preparedFolder(); !why.isEmpty()) {
        return why;
    }
    QSaveFile file(pathOf(name));
    // The temporary copy takes the mode too, so the secret is never in a file of looser rights.
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        return file.errorString() + QStringLiteral(" (") + file.fileName() + u')';
    }
    file.write(value.toUtf8());
    if (!support::commitWhole(file)) {
        return file.errorString() + QStringLiteral(" (") + file.fileName() + u')';
    }
    return {};
}

QString FileSecrets::remove(const QString& name)
{
    if (!isSecretName(name)) {
        return QStringLiteral("not a name for a secret: ") + name;
    }
    QFile file(pathOf(name));
    if (file.exists() && !file.remove()) {
        return file.errorString() + QStringLiteral(" (") + file.fileName() + u')';
    }
    return {};
}

} // namespace kestrova::secrets
