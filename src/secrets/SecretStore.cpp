#include "secrets/SecretStore.h"

#include "secrets/FileSecrets.h"
#include "secrets/KeychainSecrets.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include <QCoreApplication>

namespace kestrova::secrets {

namespace {

bool filesOnly()
{
    return qEnvironmentVariable("KESTROVA_SECRETS").compare(QLatin1String("files"), Qt::CaseInsensitive) == 0;
}

void keepFirst(QString* error, const QString& why)
{
    if (error && error->isEmpty() && !why.isEmpty()) {
        *error = why;
    }
}

} // namespace

SecretStore::SecretStore(settings::SettingsStore* legacy)
    : m_files(std::make_unique<FileSecrets>(FileSecrets::defaultFolder())), m_legacy(legacy)
{
    if (!m_legacy) {
        m_ownLegacy = std::make_unique<settings::SettingsStore>();
        m_legacy = m_ownLegacy.get();
    }
}

SecretStore::SecretStore(std::unique_ptr<SecretBackend> keychain, std::unique_ptr<SecretBackend> files,
                         settings::SettingsStore* legacy)
    : m_keychain(std::move(keychain)), m_probed(true), m_files(std::move(files)), m_legacy(legacy)
{}

SecretStore::~SecretStore() = default;

SecretBackend* SecretStore::keychain() const
{
    if (!m_probed) {
        m_probed = true;
        // The keychain's jobs finish in the event loop, so without one there is nothing to wait in.
        if (QCoreApplication::instance() && !filesOnly() && KeychainSecrets::serviceRunning()) {
            m_keychain = std::make_unique<KeychainSecrets>();
        }
    }
    return m_keychain.get();
}

SecretBackend& SecretStore::primary() const
{
    return keychain() ? *m_keychain : *m_files;
}

QString SecretStore::where() const
{
    return primary().where();
}

QString SecretStore::read(const QString& name, QString* error)
{
    if (error) {
        error->clear();
    }
    if (keychain()) {
        const SecretRead r = m_keychain->read(name);
        if (r.found) {
            return r.value;
        }
        keepFirst(error, r.error);
    }
    const SecretRead r = m_files->read(name);
    if (r.found) {
        return r.value;
    }
    keepFirst(error, r.error);
    return moveLegacy(name, error);
}

bool SecretStore::write(const QString& name, const QString& value, QString* error)
{
    if (error) {
        error->clear();
    }
    QString why;
    if (value.isEmpty()) {
        // Gone from every place it may be, so an older copy cannot come back.
        if (keychain()) {
            why = m_keychain->remove(name);
        }
        if (const QString w = m_files->remove(name); why.isEmpty()) {
            why = w;
        }
        if (m_legacy && m_legacy->contains(settings::kSettingsSection, name)) {
            m_legacy->remove(settings::kSettingsSection, name);
            if (!m_legacy->sync() && why.isEmpty()) {
                why = QStringLiteral("the settings store could not be written (") + m_legacy->fileName() + u')';
            }
        }
    } else {
        QString current;
        const QString stored = read(name, &current);
        if (stored == value && current.isEmpty()) {
            return true;
        }
        why = primary().write(name, value);
        if (why.isEmpty() && keychain()) {
            // The service has it now; a file copy would only be a stale key on disk.
            why = m_files->remove(name);
        }
    }
    keepFirst(error, why);
    return why.isEmpty();
}

QString SecretStore::moveLegacy(const QString& name, QString* error)
{
    if (!m_legacy) {
        return {};
    }
    const std::optional<QString> old = m_legacy->legacySecret(settings::kSettingsSection, name);
    if (!old) {
        return {};
    }
    // Only a key that is safe in its new place leaves the old one; until then the next read
    // tries again, and the key still works meanwhile.
    if (!old->isEmpty()) {
        if (const QString why = primary().write(name, *old); !why.isEmpty()) {
            keepFirst(error, why);
            return *old;
        }
    }
    m_legacy->remove(settings::kSettingsSection, name);
    if (!m_legacy->sync()) {
        keepFirst(error, QStringLiteral("the settings store could not be written (") + m_legacy->fileName() + u')');
    }
    return *old;
}

int SecretStore::moveLegacySecrets()
{
    if (!m_legacy) {
        return 0;
    }
    int moved = 0;
    for (const QString& key : m_legacy->keys(settings::kSettingsSection)) {
        if (m_legacy->legacySecret(settings::kSettingsSection, key)) {
            QString error;
            moveLegacy(key, &error);
            moved += error.isEmpty() ? 1 : 0;
        }
    }
    return moved;
}

} // namespace kestrova::secrets
