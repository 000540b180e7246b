#pragma once

#include "secrets/SecretBackend.h"

#include <QString>

#include <memory>

namespace kestrova::settings {
class SettingsStore;
}

namespace kestrova::secrets {

// Where the user's secrets (the quote sources' API keys) live: the desktop's secret service
// when one runs on the session bus, else files only the user can read. A secret kept in the
// files while no service ran is still found when one runs, until it is next changed; writing
// to the service removes the file copy, so no stale key is left behind. KESTROVA_SECRETS=files
// keeps to the files even beside a secret service (a daemon and a desktop that share keys).
//
// Older versions kept the keys scrambled in the settings store, which other users could
// read. Such a key moves here the first time it is read (or at start-up, for all of them)
// and is then removed from the settings store.
class SecretStore
{
public:
    // The user's store. legacy is the settings store older keys are taken from (the user's
    // own when none is given).
    explicit SecretStore(settings::SettingsStore* legacy = nullptr);
    // Chosen parts: keychain may be null (no secret service), legacy too (nothing to move).
    SecretStore(std::unique_ptr<SecretBackend> keychain, std::unique_ptr<SecretBackend> files,
                settings::SettingsStore* legacy);
    ~SecretStore();
    SecretStore(const SecretStore&) = delete;
    SecretStore& operator=(const SecretStore&) = delete;

    // The secret, or an empty text when there is none; error says why a store could not be asked.
    QString read(const QString& name, QString* error = nullptr);
    // Stores the secret; an empty value removes it. Returns false with the reason in error.
    bool write(const QString& name, const QString& value, QString* error = nullptr);
    // Moves every scrambled key the settings store still holds; returns how many moved.
    int moveLegacySecrets();

    bool usesSecretService() const { return keychain() != nullptr; }
    // "the desktop's secret service" or "the folder ...".
    QString where() const;

private:
    // The secret service, when one runs; asked for on first use, so that a command that
    // needs no secret never talks to the session bus.
    SecretBackend* keychain() const;
    SecretBackend& primary() const;
    // Moves one older key over; returns it, or an empty text when there is none.
    QString moveLegacy(const QString& name, QString* error);

    mutable std::unique_ptr<SecretBackend> m_keychain;
    mutable bool m_probed = false;
    std::unique_ptr<SecretBackend> m_files;
    std::unique_ptr<settings::SettingsStore> m_ownLegacy;
    settings::SettingsStore* m_legacy = nullptr;
};

} // namespace kestrova::secrets
