#pragma once

#include "net/DialBackend.h"
#include "net/InternetConnection.h"
#include "net/RasDialer.h"

#include <memory>

namespace kestrova::net {


// The Internet link as the update run, SMTP paging and the mail check see it. Dial-up
// goes through the backend (NetworkManager by default); when there is no connection
// manager the user is told once and the link is used as it is.
class DialupConnection final : public InternetConnection
{
public:
    DialupConnection(const support::Services& services, const core::ConnectionOptions& options,
                     std::unique_ptr<DialBackend> backend = {});
    ~DialupConnection() override;

    bool connect() override;
    void hangUp() override;

    RasDialer& dialer() { return *m_dialer; }
    static QString missingManagerText();

private:
    const support::Services& m_services;
    const core::ConnectionOptions& m_options;
    std::unique_ptr<DialBackend> m_backend;
    std::unique_ptr<RasDialer> m_dialer;
    bool m_checked = false;
    bool m_available = false;
};

} // namespace kestrova::net
