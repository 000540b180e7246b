#include "TestUtil.h"

#include <QFile>
#include <QFileInfo>
#include <QTcpServer>

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

} // namespace kestrova::testing
