#pragma once

#include "quotes/BuiltInServers.h"
#include "quotes/QServers.h"

#include <QString>

namespace kestrova::support {
class Host;
}

namespace kestrova::quotes {

// Both quote-server collections and the version stamp of the file they came from (the
// server-file update compares it with the stamp of the copy on the update server).
struct ServerDefinitions
{
    QServers stock;
    QServers option;
    QString version;
};

// Where a user whose servers.dat is damaged can fetch fresh files by hand.
inline constexpr const char* kServerUpdatePage = "https://kestrova.example.net/servers/";

struct ServersDatResult
{
    int error = 0; // 0: read to the end; else the run-time error number that ended reading
    QString description;
    int line = 0; // where reading stopped: the line of the record that failed (0: none)
};

// Reads servers.dat into the two collections (which keep whatever they held before; the
// loader clears them). Credentials come from the built-in list by ServerIndex. Reading
// stops at the first error; the records completed before it stay.
ServersDatResult readServersDat(const QString& path, ServerDefinitions& defs, const BuiltInServers& builtIn);

// The message for an error of readServersDat. The texts name "server.dat" - the two
// definition files' messages have always been crossed and users know them that way.
QString serversDatMessage(const ServersDatResult& result);
// The same error for a failure report: the file, the line it stopped at, and why.
QString serversDatFailure(const QString& path, const ServersDatResult& result);

// Reads and, on failure, shows the message box; for a damaged file a Yes opens the update
// page. True when the whole file was read.
bool loadServersDat(const QString& path, ServerDefinitions& defs, const BuiltInServers& builtIn, support::Host& host);

} // namespace kestrova::quotes
