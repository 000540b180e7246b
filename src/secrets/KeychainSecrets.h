#pragma once

#include "secrets/SecretBackend.h"

namespace QKeychain {
class Job;
}

namespace kestrova::secrets {

// Secrets in the desktop's secret service (GNOME Keyring, KeePassXC, KWallet through
// QtKeychain), filed under the service name "Kestrova" and the secret's name.
class KeychainSecrets : public SecretBackend
{
public:
    // Long enough to type the keyring's password when the service asks for it.
    static constexpr int kWaitMs = 30000;

    explicit KeychainSecrets(int waitMs = kWaitMs);

    // Whether a secret service (org.freedesktop.secrets) runs on the session bus now. A
    // session without a bus (a login over ssh, a daemon started from cron) has none.
    static bool serviceRunning();

    QString where() const override;
    SecretRead read(const QString& name) override;
    QString write(const QString& name, const QString& value) override;
    QString remove(const QString& name) override;

private:
    // Starts the job and waits for it in the event loop, for at most the bound. A job that
    // does not end in time is left to delete itself when it does; false then.
    bool finished(QKeychain::Job* job) const;
    QString noAnswer() const;

    int m_waitMs;
};

} // namespace kestrova::secrets
