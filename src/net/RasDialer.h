#pragma once

#include "core/Options.h"

#include <QString>

namespace kestrova::support {
struct Services;
}

namespace kestrova::net {

class DialBackend;

constexpr qint16 kConnectionDialup = 0;
constexpr qint16 kConnectionDirect = 1;
constexpr qint16 kConnectionExternal = 2;

// Brings the dial-up connection up through the system's connection manager, with four
// attempts, and turns the manager's state events into terminal and log lines.
class RasDialer
{
public:
    RasDialer(const support::Services& services, const core::ConnectionOptions& options, DialBackend& backend);
    ~RasDialer();
    RasDialer(const RasDialer&) = delete;
    RasDialer& operator=(const RasDialer&) = delete;

    bool RASDial();
    void RASHangup();
    // The state event: a platform state number and an error number (0 = none).
    void stateEvent(int platformState, int errorNumber);

    bool connected() const { return m_connected; }
    // Pause between two attempts; the dial-up modem needs a moment to reset.
    void setRetryPauseSeconds(int seconds) { m_retryPause = seconds; }

private:
    const support::Services& m_services;
    const core::ConnectionOptions& m_options;
    DialBackend& m_backend;
    bool m_connected = false;
    bool m_errorReported = false;
    QString m_lastError; // the error event of the last attempt, empty when it timed out
    bool m_dialledByUs = false;
    int m_retryPause = 5;
};

} // namespace kestrova::net
