#include "support/EventWait.h"

#include <QCoreApplication>
#include <QTimer>

namespace kestrova::support {

void waitForEvents(int maxWaitMs)
{
    if (maxWaitMs <= 0) {
        QCoreApplication::processEvents();
        return;
    }
    // The single-shot timer bounds the wait; WaitForMoreEvents sleeps in poll() until it
    // or any other source wakes the loop.
    QTimer bound;
    bound.setSingleShot(true);
    bound.start(maxWaitMs);
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
}

} // namespace kestrova::support
