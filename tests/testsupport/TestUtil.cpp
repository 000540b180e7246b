#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTcpServer>

#include <sys/stat.h>

namespace kestrova::testing {

QString dataPath(const QString& relative)
{
    QString root = qEnvironmentVariable("KESTROVA_TEST_DATA");
    if (root.isEmpty()) {
        root = QStringLiteral(KESTROVA_TEST_DATA_DIR);
    }
    return root + u'/' + relative;
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        return {};
    }
    return f.readAll();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        f.write(bytes);
    }
}

quint16 freePort()
{
    QTcpServer s;
    s.listen(QHostAddress::LocalHost, 0);
    return s.serverPort();
}

QString systemPython()
{
    return QFileInfo::exists(QStringLiteral("/usr/bin/python3")) ? QStringLiteral("/usr/bin/python3")
                                                                 : QStringLiteral("python3");
}

QString fileMode(const QString& path)
{
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) {
        return QStringLiteral("missing");
    }
    return QString::number(st.st_mode & 0777, 8);
}

ScopedUmask::ScopedUmask(unsigned mask) : m_before(::umask(static_cast<mode_t>(mask))) {}

ScopedUmask::~ScopedUmask()
{
    ::umask(static_cast<mode_t>(m_before));
}

QStringList filesNotInMode(const QString& folder, const QString& mode)
{
    QStringList out;
    for (const QString& name : QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System)) {
        const QString m = fileMode(folder + u'/' + name);
        if (m != mode) {
            out << name + u' ' + m;
        }
    }
    return out;
}

} // namespace kestrova::testing
