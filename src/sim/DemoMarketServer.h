#pragma once

#include "quotes/Qserver.h"

#include <QString>

#include <memory>

namespace kestrova::sim {

// The "Demo Market" definition built in code (the same keys and offsets data/servers.dat
// ships), for tests and benchmarks that point a cycle at a demo market of their own.
std::shared_ptr<quotes::Qserver> demoMarketServer(const QString& baseUrl, bool option);

} // namespace kestrova::sim
