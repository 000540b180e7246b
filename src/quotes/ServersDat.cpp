#include "quotes/ServersDat.h"

#include "quotes/SequentialInput.h"
#include "support/Cp1252.h"
#include "support/Host.h"
#include "support/VbError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <memory>

namespace kestrova::quotes {

namespace {

using Field = Qserver::Field;

// Key/offset pairs of a record after ServerName, ServerIndex and URL, in file order.
constexpr Field kFileOrder[] = {Field::Name,     Field::Open,     Field::Last,    Field::Change, Field::PercentChg,
                                Field::Bid,      Field::Ask,      Field::Update,  Field::Volume, Field::DayHigh,
                                Field::YearHigh, Field::YearLow,  Field::Range,   Field::DayLow, Field::EPS,
                                Field::PE,       Field::Previous, Field::Interest};
static_assert(std::size(kFileOrder) == Qserver::kFieldCount);

std::shared_ptr<Qserver> readRecord(SequentialInput& in, const BuiltInServers& builtIn)
{
    auto server = std::make_shared<Qserver>();
    server->setServerName(in.readString());
    server->setServerIndex(in.readInt16());
    server->setUrl(in.readString());
    for (Field f : kFileOrder) {
        server->setKey(f, in.readString());
        server->setOffset(f, in.readInt16());
    }
    const BuiltInServer& entry = builtIn.at(server->serverIndex());
    server->setUsername(entry.user);
    server->setPassword(entry.password);
    return server;
}

void readSection(SequentialInput& in, QServers& into, const BuiltInServers& builtIn)
{
    const qint16 count = in.readInt16();
    for (int i = 0; i < count; ++i) {
        auto server = readRecord(in, builtIn);
        into.Add(server, server->serverName());
    }
}

} // namespace

ServersDatResult readServersDat(const QString& path, ServerDefinitions& defs, const BuiltInServers& builtIn)
{
    ServersDatResult result;
    try {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            const QFileInfo info(path);
            if (!info.dir().exists())
                throw support::VbError(support::VbError::PathNotFound);
            if (!info.exists())
                throw support::VbError(support::VbError::FileNotFound);
            throw support::VbError(support::VbError::PermissionDenied);
        }
        SequentialInput in(support::decodeCp1252(file.readAll()));
        defs.version = in.readString();
        in.readString(); // second header value: nothing uses it
        readSection(in, defs.stock, builtIn);
        readSection(in, defs.option, builtIn);
    } catch (const support::VbError& e) {
        result.error = e.number();
        result.description = e.description();
    }
    return result;
}

QString serversDatMessage(const ServersDatResult& result)
{
    switch (result.error) {
    case 0:
        return {};
    case support::VbError::FileNotFound:
        return QStringLiteral("ERROR 53: The server.dat file doesn't exist.");
    case support::VbError::DeviceUnavailable:
        return QStringLiteral("ERROR 68: Drive not available.");
    case support::VbError::PathNotFound:
        return QStringLiteral("ERROR 76: That path doesn't exist.");
    case support::VbError::InputPastEnd:
        return QStringLiteral("ERROR 62: The server.dat file is corrupted.  Please update your server.dat file.") +
               u'\n' +
               QStringLiteral("If you continue to have problems with this file you can manually download the "
                              "files at ") +
               QString::fromLatin1(kServerUpdatePage) + u'\n' + QStringLiteral("Do you want to go there now?");
    default:
        return QStringLiteral("ERROR ") + QString::number(result.error) + QStringLiteral(" occurred.  ") +
               result.description;
    }
}

bool loadServersDat(const QString& path, ServerDefinitions& defs, const BuiltInServers& builtIn, support::Host& host)
{
    const ServersDatResult result = readServersDat(path, defs, builtIn);
    if (result.error == 0)
        return true;
    const QString message = serversDatMessage(result);
    if (result.error == support::VbError::InputPastEnd) {
        if (host.messageBox(message, support::MsgButtons::YesNo, support::MsgIcon::Question) == support::MsgAnswer::Yes)
            host.openUrl(QString::fromLatin1(kServerUpdatePage));
    } else {
        host.messageBox(message, support::MsgButtons::Ok, support::MsgIcon::Critical);
    }
    return false;
}

} // namespace kestrova::quotes
