#include "news/ServerDat.h"

#include "quotes/SequentialInput.h"
#include "quotes/ServersDat.h"
#include "support/Cp1252.h"
#include "support/Host.h"
#include "support/VbError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace kestrova::news {

ServerDatResult readServerDat(const QString& path, NewsServers& servers)
{
    ServerDatResult result;
    try {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            const QFileInfo info(path);
            if (!info.dir().exists()) {
                throw support::VbError(support::VbError::PathNotFound);
            }
            if (!info.exists()) {
                throw support::VbError(support::VbError::FileNotFound);
            }
            throw support::VbError(support::VbError::PermissionDenied);
        }
        quotes::SequentialInput in(support::decodeCp1252(file.readAll()));
        servers.version = in.readString();
        in.readString(); // second header value: kept for the layout's sake, never used
        const qint16 count = in.readInt16();
        for (int i = 0; i < count; ++i) {
            auto s = std::make_shared<NewsServer>();
            s->setServerName(in.readString());
            s->setUrl(in.readString());
            s->setStoryKey(in.readString());
            s->setHeadlineStart(in.readString());
            s->setHeadlineEnd(in.readString());
            s->setSourceStart(in.readString());
            s->setSourceEnd(in.readString());
            s->setDateStart(in.readString());
            s->setDateEnd(in.readString());
            s->setTimeStart(in.readString());
            s->setTimeEnd(in.readString());
            servers.Add(s, s->serverName());
        }
    } catch (const support::VbError& e) {
        result.error = e.number();
        result.description = e.description();
    }
    return result;
}

QString serverDatMessage(const ServerDatResult& result)
{
    switch (result.error) {
    case 0:
        return {};
    case support::VbError::FileNotFound:
        return QStringLiteral("ERROR 53: The servers.dat file doesn't exist.");
    case support::VbError::DeviceUnavailable:
        return QStringLiteral("ERROR 68: Drive not available.");
    case support::VbError::PathNotFound:
        return QStringLiteral("ERROR 76: That path doesn't exist.");
    case support::VbError::InputPastEnd:
        return QStringLiteral("ERROR 62: The servers.dat file is corrupted.  Please update your servers.dat file.") +
               u'\n' +
               QStringLiteral(
                   "If you continue to have problems with this file you can manually download the files at ") +
               QString::fromLatin1(quotes::kServerUpdatePage) + u'\n' + QStringLiteral("Do you want to go there now?");
    default:
        return QStringLiteral("ERROR ") + QString::number(result.error) + QStringLiteral(" occurred.  ") +
               result.description;
    }
}

bool loadServerDat(const QString& path, NewsServers& servers, support::Host& host)
{
    const ServerDatResult result = readServerDat(path, servers);
    if (result.error == 0) {
        return true;
    }
    const QString message = serverDatMessage(result);
    if (result.error == support::VbError::InputPastEnd) {
        if (host.messageBox(message, support::MsgButtons::YesNo, support::MsgIcon::Question) ==
            support::MsgAnswer::Yes) {
            host.openUrl(QString::fromLatin1(quotes::kServerUpdatePage));
        }
    } else {
        host.messageBox(message, support::MsgButtons::Ok, support::MsgIcon::Critical);
    }
    return false;
}

} // namespace kestrova::news
