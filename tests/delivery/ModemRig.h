#pragma once

#include "TestHost.h"
#include "core/ModemProfiles.h"
#include "core/Options.h"
#include "delivery/ModemLine.h"
#include "delivery/SerialLine.h"
#include "sim/ModemSimulator.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Services.h"

#include <QStringList>

#include <memory>

namespace kestrova::testing {

// A modem line on the real serial implementation, opened on the simulator's pty, with a
// mock clock that each yield moves on by 100 ms while real events get 5 ms to arrive.
struct ModemRig
{
    explicit ModemRig(sim::ModemScript script = {})
        : host(&clock), log(clock, host), services{clock, host, cancel, log}, sim(std::move(script)),
          line(delivery::createSerialLine()), modem(services, *line, options.modem)
    {
        core::setBuiltInModemProfiles(options.modem);
        options.modem.selected = 2;
        options.paging.pagerId = QStringLiteral("1234567");
        options.paging.phone = QStringLiteral("5551000");
        options.paging.maxLength = 80;
        options.paging.retries = 2;
        options.paging.retrySeconds = 5;
        line->setDevice(sim.slavePath());
    }

    // Status lines without their date stamp.
    QStringList statusMessages() const
    {
        QStringList out;
        for (const QString& l : host.statusLines) {
            out << l.left(l.indexOf(QStringLiteral("   ")));
        }
        return out;
    }
    int countStatus(const QString& text) const { return static_cast<int>(host.statusTexts.count(text)); }

    support::MockClock clock;
    TestHost host;
    support::CancelFlag cancel;
    support::CLogFile log;
    support::Services services;
    core::Options options;
    sim::ModemSimulator sim;
    std::unique_ptr<delivery::SerialLine> line;
    delivery::ModemLine modem;
};

} // namespace kestrova::testing
