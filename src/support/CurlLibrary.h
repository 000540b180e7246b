#pragma once

namespace kestrova::support {

// Frees what the TLS library under libcurl keeps for the calling thread. A thread of its own
// that ran transfers calls it as its last act (it loads libcurl when nothing has yet).
void releaseCurlThreadState();

} // namespace kestrova::support
