#pragma once

#include "core/Options.h"

#include <QString>

#include <functional>
#include <vector>

namespace kestrova::core {

enum class OptionType { Bool, Int, Text, Password };

// One option reachable by a dotted name ("pager.max_length"): how to read it, how to
// check and set it from text, and its range. Options that belong to the machine rather
// than to a watch setup carry the settings-store key they live under and no accessors.
struct OptionDef
{
    QString name;
    OptionType type = OptionType::Text;
    int min = 0; // Int only, inclusive
    int max = 0;
    QString description;
    std::function<QString(const Options&)> get;
    // Sets a value that has already passed the type, range and extra checks.
    std::function<void(Options&, const QString&)> set;
    // Extra check on the value text; returns why it is refused, or nothing.
    std::function<QString(const Options&, const QString&)> check;
    QString storeKey; // set when the option lives in the settings store

    bool inStore() const { return !storeKey.isEmpty(); }
};

class OptionRegistry
{
public:
    // Every option, grouped by subsystem in a stable order.
    static const std::vector<OptionDef>& all();
    // Exact (case-insensitive) name match, or nullptr.
    static const OptionDef* find(const QString& name);
    static QString typeName(OptionType type);

    // The value as text; passwords that are set show as "***".
    static QString display(const OptionDef& def, const Options& options);
    // Checks value against the option's type, range and rules and brings it to the form
    // that is stored (booleans "true"/"false", numbers without blanks). Returns the
    // refusal message, naming the option, or nothing when the value is good.
    static QString validate(const OptionDef& def, const Options& options, const QString& value,
                            QString* normalised = nullptr);
    // validate() then set(); returns the refusal message or nothing.
    static QString assign(const OptionDef& def, Options& options, const QString& value);

    // Accepted spellings of a boolean: true/false, yes/no, on/off, 1/0.
    static bool parseBool(const QString& text, bool* ok);
    // A time of day as the schedule fields take it: "9:30 am", "12:00 pm", "16:00", "03:42:00 pm".
    static bool isTimeText(const QString& text);
};

} // namespace kestrova::core
