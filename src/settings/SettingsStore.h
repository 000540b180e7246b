#pragma once

#include <QString>

#include <memory>
#include <optional>

class QSettings;

namespace kestrova::settings {

// The per-user preferences store: QSettings in INI form under the user's config folder,
// organisation and application "Kestrova". Values are text. Key names are matched without
// regard to case, because older releases read "DefaultFile" as "Defaultfile" and the
// Windows store they were written for never cared. The file is the user's alone (0600):
// it is made so before anything is written to it, and an older file is put right when opened.
class SettingsStore
{
public:
    SettingsStore();
    // A store over an explicit INI file (tests, or a second store beside the user's).
    explicit SettingsStore(const QString& iniFile);
    ~SettingsStore();
    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;

    QString get(const QString& section, const QString& key, const QString& defaultText = {}) const;
    // Replaces the value under any existing spelling of the key.
    void save(const QString& section, const QString& key, const QString& text);
    bool contains(const QString& section, const QString& key) const;
    // A value an older version kept here scrambled ("scrambled:" and the base64 of its
    // UTF-8 XOR-ed with a fixed text): what it was, or nothing when the key holds no such
    // value. Secrets live in the secret store now; this is only read to move them there.
    std::optional<QString> legacySecret(const QString& section, const QString& key) const;
    QStringList keys(const QString& section) const;
    void remove(const QString& section, const QString& key);
    // Writes pending changes to disk and reports whether the file could be written.
    bool sync();
    QString fileName() const;

private:
    QString findKey(const QString& section, const QString& key) const;
    // Creates the file (and its folder, 0700) before the first write so that QSettings,
    // which keeps a file's mode when it replaces it, never writes it readable by others.
    void prepareFile();

    bool m_prepared = false;

    std::unique_ptr<QSettings> m_settings;
};

} // namespace kestrova::settings
