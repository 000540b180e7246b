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

void readSection(SequentialInput& in, QServers& into, const BuiltInServers& builtIn, int& line)
{
    line = in.line();
    const qint16 count = in.readInt16();
    for (int i = 0; i < count; ++i) {
        line = in.line(); // a record that fails is named by the line it starts on
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
        result.line = 1;
        defs.version = in.readString();
        in.readString(); // second header value: nothing uses it
        readSection(in, defs.stock, builtIn, result.line);
        readSection(in, defs.option, builtIn, result.line);
        result.line = 0;
    } catch (const support::VbError& e) {
        result.error = e.number();
        result.description = e.description();
    }
    return result;
}

QString serversDatFailure(const QString& path, const ServersDatResult& result)
{
    QString why;
    switch (result.error) {
    case 0:
        return {};
    case support::VbError::FileNotFound:
        why = QStringLiteral("the file does not exist");
        break;
    case support::VbError::PathNotFound:
        why = QStringLiteral("its folder does not exist");
        break;
    case support::VbError::PermissionDenied:
        why = QStringLiteral("the file cannot be read (permission denied)");
        break;
    case support::VbError::InputPastEnd:
        why = QStringLiteral("the file ends in the middle of a record");
        break;
    case support::VbError::TypeMismatch:
        why = QStringLiteral("a number was expected");
        break;
    case support::VbError::Overflow:
        why = QStringLiteral("a number is out of range");
        break;
    case support::VbError::DuplicateKey:
        why = QStringLiteral("a server name appears twice");
        break;
    case support::VbError::Subscript:
        why = QStringLiteral("the ServerIndex names no known service");
        break;
    default:
        why = result.description;
        break;
    }
    const QString where = result.line > 0 ? QStringLiteral(" line %1").arg(result.line) : QString();
    return path + where + QStringLiteral(": ") + why;
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
    host.reportFailure(serversDatFailure(path, result));
    if (result.error == support::VbError::InputPastEnd) {
        if (host.messageBox(message, support::MsgButtons::YesNo, support::MsgIcon::Question) == support::MsgAnswer::Yes)
            host.openUrl(QString::fromLatin1(kServerUpdatePage));
    } else {
        host.messageBox(message, support::MsgButtons::Ok, support::MsgIcon::Critical);
    }
    return false;
}

} // namespace kestrova::quotes
