#include "settings/IniMigration.h"

#include "settings/Preferences.h"
#include "settings/SettingsStore.h"
#include "support/Cp1252.h"

#include <QDir>
#include <QFile>

namespace kestrova::settings {

QString readIniString(const QByteArray& iniBytes, const QString& section, const QString& key,
                      const QString& defaultText, int bufferSize)
{
    const QStringList lines = support::decodeCp1252(iniBytes).split(u'\n');
    bool inSection = false;
    QString value = defaultText;
    for (QString line : lines) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(u';')) {
            continue;
        }
        if (line.startsWith(u'[')) {
            const qsizetype close = line.indexOf(u']');
            const QString name = line.mid(1, close < 0 ? -1 : close - 1).trimmed();
            inSection = name.compare(section, Qt::CaseInsensitive) == 0;
            continue;
        }
        if (!inSection) {
            continue;
        }
        const qsizetype eq = line.indexOf(u'=');
        if (eq < 0 || line.left(eq).trimmed().compare(key, Qt::CaseInsensitive) != 0) {
            continue;
        }
        value = line.mid(eq + 1).trimmed();
        if (value.size() >= 2 &&
            ((value.startsWith(u'"') && value.endsWith(u'"')) || (value.startsWith(u'\'') && value.endsWith(u'\'')))) {
            value = value.mid(1, value.size() - 2);
        }
        break; // the first entry of a key wins
    }
    if (bufferSize > 0 && value.size() > bufferSize - 1) {
        value.truncate(bufferSize - 1);
    }
    return value;
}

std::optional<QString> INI_to_Registry(const QString& dataDir, SettingsStore& store)
{
    QFile file(QDir(dataDir).filePath(kLegacyIniName));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    const QString section = QStringLiteral("Kestrova");
    const QString defaultFile = readIniString(bytes, section, QStringLiteral("DefaultFile"), {});
    store.save(kSettingsSection, QStringLiteral("DefaultFile"), defaultFile);
    store.save(kSettingsSection, QStringLiteral("ShowStatus"),
               readIniString(bytes, section, QStringLiteral("ShowStatus"), {}));
    store.save(kSettingsSection, QStringLiteral("CheckMail"),
               readIniString(bytes, section, QStringLiteral("CheckMail"), {}));
    store.save(kSettingsSection, QStringLiteral("GetMail"),
               readIniString(bytes, section, QStringLiteral("GetMail"), QStringLiteral("1")));
    store.sync();
    return defaultFile;
}

std::optional<QString> migrateLegacyIni(const QString& dataDir, SettingsStore& store)
{
    const QString path = QDir(dataDir).filePath(kLegacyIniName);
    if (!QFile::exists(path)) {
        return std::nullopt;
    }
    std::optional<QString> migrated = INI_to_Registry(dataDir, store);
    QFile::remove(path);
    return migrated;
}

} // namespace kestrova::settings
