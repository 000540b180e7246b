#pragma once

#include "TestHost.h"
#include "TestUtil.h"

#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Services.h"

#include <QTemporaryDir>

namespace kestrova::testing {

// What an engine operation needs, for a test: a mock clock that every yield moves on, a
// recording host, the cancel flag and a real activity log in a temporary folder. A test
// that needs a host of its own (one that reacts to what it is shown) passes its type.
template <class HostType = TestHost> struct BasicServicesRig
{
    support::MockClock clock;
    HostType host{&clock};
    support::CancelFlag cancel;
    support::CLogFile log{clock, host};
    support::Services services{clock, host, cancel, log};
    QTemporaryDir dir;

    BasicServicesRig()
    {
        log.setPath(dir.path());
        log.setLogFileName(QStringLiteral("activity.txt"));
        log.setLogEnable(true);
    }
    QString activity() const { return QString::fromLatin1(readFile(log.fullPath())); }
};

using ServicesRig = BasicServicesRig<>;

} // namespace kestrova::testing
