#include "settings/SettingsStore.h"

#include <QSettings>

namespace kestrova::settings {

SettingsStore::SettingsStore()
    : m_settings(std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Kestrova"),
                                             QStringLiteral("Kestrova")))
{}

SettingsStore::SettingsStore(const QString& iniFile)
    : m_settings(std::make_unique<QSettings>(iniFile, QSettings::IniFormat))
{}

SettingsStore::~SettingsStore() = default;

QString SettingsStore::findKey(const QString& section, const QString& key) const
{
    m_settings->beginGroup(section);
    const QStringList keys = m_settings->childKeys();
    m_settings->endGroup();
    for (const QString& k : keys) {
        if (k.compare(key, Qt::CaseInsensitive) == 0) {
            return k;
        }
    }
    return {};
}

QString SettingsStore::get(const QString& section, const QString& key, const QString& defaultText) const
{
    const QString found = findKey(section, key);
    if (found.isEmpty()) {
        return defaultText;
    }
    return m_settings->value(section + u'/' + found).toString();
}

void SettingsStore::save(const QString& section, const QString& key, const QString& text)
{
    const QString found = findKey(section, key);
    if (!found.isEmpty() && found != key) {
        m_settings->remove(section + u'/' + found);
    }
    m_settings->setValue(section + u'/' + key, text);
}

bool SettingsStore::contains(const QString& section, const QString& key) const
{
    return !findKey(section, key).isEmpty();
}

void SettingsStore::remove(const QString& section, const QString& key)
{
    const QString found = findKey(section, key);
    if (!found.isEmpty()) {
        m_settings->remove(section + u'/' + found);
    }
}

bool SettingsStore::sync()
{
    m_settings->sync();
    return m_settings->status() == QSettings::NoError;
}

QString SettingsStore::fileName() const
{
    return m_settings->fileName();
}

} // namespace kestrova::settings
