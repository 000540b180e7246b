#include "support/Paths.h"

#include "support/PrivateFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace kestrova::support {

QString resolveDataDir(const QString& commandLineDir)
{
    QString dir = commandLineDir;
    if (dir.isEmpty()) {
        dir = qEnvironmentVariable("KESTROVA_HOME");
    }
    if (dir.isEmpty()) {
        const QString xdg = qEnvironmentVariable("XDG_DATA_HOME");
        dir = (xdg.isEmpty() ? QDir::homePath() + QStringLiteral("/.local/share") : xdg) + QStringLiteral("/kestrova");
    }
    makePrivateDir(dir);
    return QFileInfo(dir).absoluteFilePath();
}

QString installedDataDir()
{
    const QString env = qEnvironmentVariable("KESTROVA_DATA");
    if (!env.isEmpty()) {
        return env;
    }
#ifdef KESTROVA_SOURCE_DATA_DIR
    if (QFileInfo(QStringLiteral(KESTROVA_SOURCE_DATA_DIR)).isDir()) {
        return QStringLiteral(KESTROVA_SOURCE_DATA_DIR);
    }
#endif
    const QString appDir = QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
    return QDir(appDir).absoluteFilePath(QStringLiteral("../share/kestrova"));
}

} // namespace kestrova::support
