#include "news/ServerFiles.h"

#include "news/NewsServer.h"
#include "news/ServerDat.h"
#include "quotes/ServersDat.h"
#include "support/Paths.h"
#include "support/SaveFile.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

namespace kestrova::news {

namespace {

const QString kNewsFile = QStringLiteral("server.dat");
const QString kQuoteFile = QStringLiteral("servers.dat");
const QString kSourcesFile = QStringLiteral("sources.json");

bool copyIfMissing(const QDir& to, const QDir& from, const QString& name)
{
    if (QFile::exists(to.filePath(name))) {
        return true;
    }
    QFile source(from.filePath(name));
    if (!source.open(QIODevice::ReadOnly)) {
        return false;
    }
    return support::saveWhole(to.filePath(name), source.readAll()).ok;
}

} // namespace

bool installServerFiles(const QString& dataDir, const QString& installedDir)
{
    const QDir to(dataDir);
    const QDir from(installedDir);
    if (to.absolutePath() == from.absolutePath()) {
        return true;
    }
    const bool news = copyIfMissing(to, from, kNewsFile);
    const bool quote = copyIfMissing(to, from, kQuoteFile);
    const bool sources = copyIfMissing(to, from, kSourcesFile);
    return news && quote && sources;
}

QString serverFilePath(const QString& dataDir, const QString& name)
{
    const QString own = QDir(dataDir).filePath(name);
    if (QFile::exists(own)) {
        return own;
    }
    const QString installed = QDir(support::installedDataDir()).filePath(name);
    return QFile::exists(installed) ? installed : own;
}

bool loadServerDefinitions(const QString& dataDir, NewsServers& newsServers, quotes::ServerDefinitions& quoteServers,
                           const quotes::BuiltInServers& builtIn, support::Host& host)
{
    installServerFiles(dataDir, support::installedDataDir());
    newsServers.Clear();
    quoteServers.stock.Clear();
    quoteServers.option.Clear();
    const bool news = loadServerDat(serverFilePath(dataDir, kNewsFile), newsServers, host);
    const bool quote = quotes::loadServersDat(serverFilePath(dataDir, kQuoteFile), quoteServers, builtIn, host);
    return news && quote;
}

bool retargetDemoMarket(const QString& dataDir, quint16 port)
{
    // Only the demo definitions point at the loopback address, so whatever port they name
    // now (the shipped one or an earlier demo's) is replaced.
    static const QRegularExpression loopback(QStringLiteral(R"(127\.0\.0\.1:\d+)"));
    const QString to = QStringLiteral("127.0.0.1:") + QString::number(port);
    bool ok = true;
    for (const QString& name : {kNewsFile, kQuoteFile, kSourcesFile}) {
        const QString path = QDir(dataDir).filePath(name);
        QFile in(path);
        if (!in.exists()) {
            continue; // nothing there points anywhere
        }
        if (!in.open(QIODevice::ReadOnly)) {
            ok = false;
            continue;
        }
        // Latin-1 maps every byte to one character and back, so the file's own code page
        // survives untouched.
        QString text = QString::fromLatin1(in.readAll());
        in.close();
        if (!text.contains(loopback)) {
            continue;
        }
        text.replace(loopback, to);
        ok = support::saveWhole(path, text.toLatin1()).ok && ok;
    }
    return ok;
}

} // namespace kestrova::news
