#pragma once

namespace kestrova::support {

// Processes pending events and then sleeps in the event loop for at most maxWaitMs until a
// socket, the serial line or a timer has something (0: only what is pending now). This is
// how every face's Host::yield waits without spinning.
void waitForEvents(int maxWaitMs);

} // namespace kestrova::support
