#pragma once

#include <QString>

#include <optional>

namespace kestrova::settings {

class SettingsStore;

inline const QString kLegacyIniName = QStringLiteral("kestrova.ini");

// Reads one key the way the old profile API did: section and key matched without regard
// to case, blanks around the value and one pair of enclosing quotes removed, and at most
// bufferSize - 1 characters returned (the buffer keeps room for its terminator).
QString readIniString(const QByteArray& iniBytes, const QString& section, const QString& key,
                      const QString& defaultText, int bufferSize = 255);

// INI_to_Registry: copies DefaultFile, ShowStatus, CheckMail and GetMail from section
// "Kestrova" of dataDir/kestrova.ini into section "Settings" of the store. Returns the
// migrated DefaultFile (the new startup file), or nothing when there is no ini file. The
// caller deletes the file afterwards.
std::optional<QString> INI_to_Registry(const QString& dataDir, SettingsStore& store);

// The start-up step: migrate when the ini file exists, then delete it so it runs once.
// Returns the migrated DefaultFile when a migration happened.
std::optional<QString> migrateLegacyIni(const QString& dataDir, SettingsStore& store);

} // namespace kestrova::settings
