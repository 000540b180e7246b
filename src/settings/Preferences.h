#pragma once

#include <QString>

#include <optional>

namespace kestrova::settings {

class SettingsStore;

inline const QString kSettingsSection = QStringLiteral("Settings");

// The program-wide preferences, read from section "Settings" with the readings the program
// has always applied to them.
struct Preferences
{
    QString defaultFile;       // portfolio opened at start-up
    bool showStatus = true;    // only "0" turns it off
    bool checkMail = true;     // only "0" turns it off
    bool getMail = true;       // only "0" turns it off
    bool systemTray = true;    // only "0" turns it off
    int mailSize = 20;         // kilobytes, integer part of the stored number
    bool wwwButtons = true;    // only "1" shows them
    bool checkUpdates = true;  // only the exact text "True" turns it on
    bool notifications = true; // desktop notices for alarm pages and new mail; only "0" turns them off
    std::optional<int> statusLeft;
    std::optional<int> statusTop;
    QString modemDevice;        // a device path that overrides the COM-number mapping
    bool historyEnabled = true; // only "0" turns it off
    int historyKeepDays = 730;  // days of quote history kept; a value below 1 keeps the default
    int hostConnections = 6;    // connections to one web host at once (1..50)
    int maxPageKb = 4096;       // the largest web page read, in kilobytes; below 16 keeps the default
};

// Reads every preference; absent keys take their defaults (DefaultFile: dataDir + "/DEFAULT.PGR").
Preferences readPreferences(const SettingsStore& store, const QString& dataDir);
// Writes back what the options dialog owns (not the status-window position, which the
// status window writes itself when it closes).
void savePreferences(SettingsStore& store, const Preferences& prefs);
void saveStatusPosition(SettingsStore& store, int left, int top);

// The stored text of a flag that only "0" switches off.
bool readOnUnlessZero(const QString& text);

} // namespace kestrova::settings
