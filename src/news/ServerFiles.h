#pragma once

#include <QString>

namespace kestrova::quotes {
class BuiltInServers;
struct ServerDefinitions;
} // namespace kestrova::quotes
namespace kestrova::support {
class Host;
}

namespace kestrova::news {

class NewsServers;

// The host and port the shipped "Demo Market" definitions point at. The demo market listens
// there by default; a demo started on another port rewrites the data directory's copies
// with retargetDemoMarket.
inline constexpr const char* kDemoMarketAddress = "127.0.0.1:8099";
inline constexpr quint16 kDemoMarketPort = 8099;

// Copies servers.dat, server.dat and sources.json from the installed data folder into the
// data directory when they are missing there (first run). Returns false when a copy failed.
bool installServerFiles(const QString& dataDir, const QString& installedDir);

// The data directory's copy of a definition file (servers.dat, server.dat, sources.json),
// or the installed one when the data directory has none: a read-only data folder never
// got its copies, and the shipped definitions still work from where they are installed.
QString serverFilePath(const QString& dataDir, const QString& name);

// Loads both definition files from the data directory: all three collections are emptied
// first, then server.dat (news servers) is read, then servers.dat (quote servers). A
// damaged or missing file shows its message and keeps what was read before the error.
// True when both files were read to the end. Missing files are first copied from the
// installed data folder, and read there when the copy could not be made.
bool loadServerDefinitions(const QString& dataDir, NewsServers& newsServers, quotes::ServerDefinitions& quoteServers,
                           const quotes::BuiltInServers& builtIn, support::Host& host);

// Points the "Demo Market" definitions of the data directory's servers.dat and server.dat,
// and the demo sources of its sources.json, at 127.0.0.1:port (replacing kDemoMarketAddress or an earlier port). Files
// are rewritten atomically.
bool retargetDemoMarket(const QString& dataDir, quint16 port);

} // namespace kestrova::news
