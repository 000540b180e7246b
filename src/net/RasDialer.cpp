#include "net/RasDialer.h"

#include "net/DialBackend.h"
#include "net/RasTables.h"
#include "support/CLogFile.h"
#include "support/Clock.h"
#include "support/Host.h"
#include "support/Services.h"

namespace kestrova::net {

namespace {
constexpr int kLastAttempt = 3; // attempts are counted from 0: four in all
}

RasDialer::RasDialer(const support::Services& services, const core::ConnectionOptions& options, DialBackend& backend)
    : m_services(services), m_options(options), m_backend(backend)
{
    m_backend.stateHandler = [this](int state, int error) { stateEvent(state, error); };
}

RasDialer::~RasDialer()
{
    m_backend.stateHandler = nullptr;
}

bool RasDialer::RASDial()
{
    const support::Services& s = m_services;
    if (m_options.type == kConnectionDirect) {
        s.host.setStatusText(QStringLiteral("Connecting"));
        return true;
    }
    if (m_options.type == kConnectionExternal) {
        return true; // another program keeps the link; nothing to dial
    }
    const QString entry = m_options.entry;
    QString error;
    if (m_backend.isConnected(entry, &error)) {
        s.StatusMessage(QStringLiteral("Connected to ") + entry);
        m_connected = true;
        return true;
    }
    if (!error.isEmpty()) {
        s.log.LogMessage(QStringLiteral("Error in RASDial:") + error);
        return false;
    }
    m_connected = false;
    s.host.setStatusText(QStringLiteral("Connecting to ") + entry);
    s.StatusMessage(QStringLiteral("Connecting to ") + entry);
    int attempt = 0;
    for (;;) {
        // A failure of the previous attempt must not end this attempt's wait at once.
        m_errorReported = false;
        m_lastError.clear();
        m_backend.dial(entry);
        s.host.yield(0);
        const QDateTime deadline = s.clock.now().addSecs(std::max<int>(1, m_options.timeout));
        while (!m_connected && !m_errorReported && !s.cancelled() && s.clock.now() < deadline) {
            s.host.yield(100);
        }
        if (s.cancelled()) {
            m_backend.abortDial();
            return false;
        }
        if (m_connected) {
            m_dialledByUs = true;
            return true;
        }
        m_backend.abortDial();
        if (attempt == kLastAttempt) {
            s.StatusMessage(QStringLiteral("Unable to connect to the internet."));
            const QString tries = QString::number(kLastAttempt + 1) + QStringLiteral(" attempts");
            const QString why =
                m_lastError.isEmpty()
                    ? QStringLiteral(" timed out after %1 s (%2)").arg(std::max<int>(1, m_options.timeout)).arg(tries)
                    : QStringLiteral(" failed after %1: %2").arg(tries, m_lastError);
            s.Failure(QStringLiteral("Dial-up connection \"") + entry + u'"' + why);
            return false;
        }
        s.host.setStatusText(QStringLiteral("...Retrying..."));
        s.pause(m_retryPause);
        ++attempt;
        if (s.cancelled()) {
            return false;
        }
    }
}

void RasDialer::RASHangup()
{
    if (m_options.type == kConnectionDirect || !m_dialledByUs) {
        return;
    }
    QString error;
    if (!m_backend.hangUp(m_options.entry, &error)) {
        m_services.log.LogMessage(QStringLiteral("Error in RASHangup:") + error);
    }
    m_dialledByUs = false;
    m_connected = false;
}

void RasDialer::stateEvent(int platformState, int errorNumber)
{
    m_errorReported = false;
    QString text;
    if (errorNumber < 601) {
        const int index = rasStateIndex(platformState);
        if (platformState == kRasStateConnected) {
            m_connected = true;
            text = QStringLiteral("Connected!");
        } else if (platformState == 3 || platformState == 14) {
            text = rasStateName(index);
        } else if (platformState == kRasStateDisconnected) {
            text = rasStateName(index);
            m_connected = false;
            m_services.pause(1);
        } else {
            text = index >= 0 ? rasStateName(index) : QStringLiteral("State = ") + QString::number(platformState);
            m_connected = false;
        }
    } else {
        m_errorReported = true;
        m_lastError = rasErrorName(errorNumber);
        text = QStringLiteral("Error: ") + m_lastError;
    }
    m_services.host.terminalEcho(text + QStringLiteral("\r\n"));
    m_services.log.LogMessage(text);
}

} // namespace kestrova::net
