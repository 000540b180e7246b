#pragma once

#include "core/Options.h"
#include "settings/Preferences.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace kestrova::settings {
class SettingsStore;
}

namespace kestrova::core {

enum class OptionType { Bool, Int, Text, Password };

// One option reachable by a dotted name ("pager.max_length"): how to read it, how to
// check and set it from text, its range, and what it means in words (the options dialog's
// label where it has one). Options that belong to the machine or the user rather than to a
// watch setup live in the settings store: they carry its key and read from Preferences.
struct OptionDef
{
    QString name;
    OptionType type = OptionType::Text;
    int min = 0; // Int only, inclusive
    int max = 0;
    QString description; // one line
    QString allowed;     // the values it takes, when the type and range do not say it well
    std::function<QString(const Options&)> get;
    // Sets a value that has already passed the type, range and extra checks.
    std::function<void(Options&, const QString&)> set;
    // Extra check on the value text; returns why it is refused, or nothing.
    std::function<QString(const Options&, const QString&)> check;

    QString storeKey;    // set when the option lives in the settings store (or, secret, the secret store)
    bool secret = false; // kept in the secret store under storeKey, never in the settings store
    // Store options: the value as start-up reads it, and the text stored for a checked value
    // (flags as "1"/"0", CheckUpdates as "True"/"False").
    std::function<QString(const settings::Preferences&)> getPref;
    std::function<QString(const QString&)> storeText;
    // How a value that may carry a secret in part is shown (a URL's password as ***).
    std::function<QString(const QString&)> shown;

    bool inStore() const { return !storeKey.isEmpty(); }
};

class OptionRegistry
{
public:
    // Every option, grouped by subsystem in a stable order.
    static const std::vector<OptionDef>& all();
    // Exact (case-insensitive) name match, or nullptr. "sources.key.NAME" is found for any
    // NAME of letters and digits, since sources.json may define sources of its own.
    static const OptionDef* find(const QString& name);
    // The option and the settings-store key that hold a quote source's API key: the source's
    // name in lower case with everything but letters and digits dropped ("Alpha Vantage":
    // sources.key.alphavantage, SourceKey_alphavantage).
    static QString sourceKeyOption(const QString& sourceName);
    static QString sourceKeyStoreKey(const QString& sourceName);
    static QString typeName(OptionType type);

    // The value as text; passwords that are set show as "***", and so does the password part
    // of a URL. Store options show their preference.
    static QString display(const OptionDef& def, const Options& options, const settings::Preferences& prefs = {});
    // The values the option takes, in words: "true or false", "1 to 32767",
    // "0 None, 1 XON/XOFF, 2 RTS/CTS, 3 BOTH", "a time such as 03:42:00 pm".
    static QString allowedValues(const OptionDef& def);
    // Checks value against the option's type, range and rules and brings it to the form
    // that is stored (booleans "true"/"false", numbers without blanks). Returns the
    // refusal message, naming the option, or nothing when the value is good.
    static QString validate(const OptionDef& def, const Options& options, const QString& value,
                            QString* normalised = nullptr);
    // validate() then set(); returns the refusal message or nothing.
    static QString assign(const OptionDef& def, Options& options, const QString& value);
    // Keeps the store texts of a check (by store key): secrets in the secret store (at once),
    // everything else in the settings store (written by store.sync()). Returns why a text
    // could not be kept, one line each; empty when all were.
    static QStringList keepStoreTexts(const QHash<QString, QString>& texts, settings::SettingsStore& store);
    // The stored API key of a quote source; empty when none is set.
    static QString storedSourceKey(const QString& sourceName);

    // Accepted spellings of a boolean: true/false, yes/no, on/off, 1/0.
    static bool parseBool(const QString& text, bool* ok);
    // A time of day as the schedule fields take it: "9:30 am", "12:00 pm", "16:00", "03:42:00 pm".
    static bool isTimeText(const QString& text);
};

} // namespace kestrova::core
