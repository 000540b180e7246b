#pragma once

#include <QString>

#include <curl/curl.h>

namespace kestrova::delivery {

constexpr int kWsaBaseErr = 10000;

// The text for a socket error number in the Winsock numbering (10000 + offset), with the
// constant's name through `name` when asked for. Numbers outside the table give
// "Unknown Error" and an empty name.
QString winsockErrorText(int code, QString* name = nullptr);

// The Winsock number that tells the truth about an OS socket error (errno), or 0 when the
// errno has no counterpart.
int winsockFromErrno(int osErrno);

// The Winsock number for a failed transfer: the OS error behind it when curl kept one,
// else the nearest number for the curl code itself. 0 means the failure was not a socket
// failure (a server reply, a TLS or log-on problem), which the caller reports otherwise.
int winsockFromCurl(CURLcode code, long osErrno);

} // namespace kestrova::delivery
