#pragma once

#include "news/NewsServer.h"

#include <QString>

namespace kestrova::support {
class Host;
}

namespace kestrova::news {

// server.dat: the news-server definitions, in the same comma-separated value form as
// servers.dat (strings in double quotes, numbers bare, line breaks free):
//   version stamp, a second header value (unused), the number of servers N, then N
//   records of 11 strings: ServerName, URL, StoryKey, HeadlineStart, HeadlineEnd,
//   SourceStart, SourceEnd, DateStart, DateEnd, TimeStart, TimeEnd.
// docs/servers-dat.md explains how to write one.
constexpr int kNewsRecordValues = 11;

struct ServerDatResult
{
    int error = 0; // 0: read to the end; else the run-time error number that ended reading
    QString description;
};

// Reads server.dat into the collection (which keeps what it held; the loader clears it).
// Reading stops at the first error and keeps the records completed before it.
ServerDatResult readServerDat(const QString& path, NewsServers& servers);

// The message for an error of readServerDat. It names "servers.dat": the messages of the
// two definition files have always been crossed, and that is how users know them.
QString serverDatMessage(const ServerDatResult& result);

// Reads and, on failure, shows the message; for a damaged file a Yes opens the update page.
// True when the whole file was read.
bool loadServerDat(const QString& path, NewsServers& servers, support::Host& host);

} // namespace kestrova::news
