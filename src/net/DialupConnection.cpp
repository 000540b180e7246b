#include "net/DialupConnection.h"

#include "net/DialBackend.h"
#include "net/NmDialBackend.h"
#include "support/Host.h"
#include "support/Services.h"

namespace kestrova::net {

DialupConnection::DialupConnection(const support::Services& services, const core::ConnectionOptions& options,
                                   std::unique_ptr<DialBackend> backend)
    : m_services(services), m_options(options), m_backend(std::move(backend))
{
    if (!m_backend) {
        m_backend = std::make_unique<NmDialBackend>();
    }
    m_dialer = std::make_unique<RasDialer>(services, options, *m_backend);
}

DialupConnection::~DialupConnection() = default;

QString DialupConnection::missingManagerText()
{
    return QStringLiteral("NetworkManager is missing or not running.  NetworkManager and dial-up networking") +
           QStringLiteral(" must be installed on PC to initiate a dial-up connection.");
}

bool DialupConnection::connect()
{
    if (m_options.type != kConnectionDialup) {
        return m_dialer->RASDial();
    }
    if (!m_checked) {
        m_checked = true;
        QString why;
        m_available = m_backend->available(&why);
        if (!m_available) {
            m_services.host.messageBox(missingManagerText(), support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        }
    }
    if (!m_available) {
        return true; // works on without dial-up, over whatever link the machine has
    }
    return m_dialer->RASDial();
}

void DialupConnection::hangUp()
{
    if (m_available) {
        m_dialer->RASHangup();
    }
}

} // namespace kestrova::net
