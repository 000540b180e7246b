#pragma once

#include "secrets/SecretBackend.h"

namespace kestrova::secrets {

// Secrets as files for when no secret service runs (a headless machine, a daemon started
// without a desktop session): one file per secret, named after it and holding its UTF-8
// text, readable and writable by the user only (0600) in a folder only the user may enter
// (0700). The folder's mode is put right before every write, so a folder made by hand with
// looser rights does not stay that way.
class FileSecrets : public SecretBackend
{
public:
    explicit FileSecrets(QString folder);

    // $XDG_CONFIG_HOME/Kestrova/secrets (~/.config/Kestrova/secrets): beside the settings
    // store, as the keys are the user's like the preferences are, whatever data folder a
    // command is given.
    static QString defaultFolder();

    QString folder() const { return m_folder; }
    QString where() const override;
    SecretRead read(const QString& name) override;
    QString write(const QString& name, const QString& value) override;
    QString remove(const QString& name) override;

private:
    // Creates the folder (and its parents) when missing and sets it to 0700; refuses a
    // folder that is a symbolic link or belongs to someone else.
    QString preparedFolder() const;
    QString pathOf(const QString& name) const;

    QString m_folder;
};

// Whether name may name a secret: letters, digits, '_', '-' and '.', not starting with '.'.
bool isSecretName(const QString& name);

} // namespace kestrova::secrets
