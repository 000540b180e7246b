#pragma once

#include <QString>

namespace kestrova::net {

constexpr int kRasStateCount = 25;
constexpr int kRasStateConnected = 8192;
constexpr int kRasStateDisconnected = 8193;
constexpr int kRasErrorFirst = 600;
constexpr int kRasErrorLast = 750;

// RasStateNames: index 0..24.
QString rasStateName(int index);
// The table index for a platform connection-state number, -1 when there is none.
int rasStateIndex(int platformState);
// RasErrorNames: "SUCCESS" at 0, the remote-access error names at 600..750, empty
// everywhere else.
QString rasErrorName(int number);

} // namespace kestrova::net
