#pragma once

#include <QString>

namespace kestrova::core {
struct OptionDef;
struct Options;
} // namespace kestrova::core

namespace kestrova::gui {

// A label as messages name the field: without its mnemonic and trailing colon
// ("No. of &Retries:" -> "No. of Retries").
QString plainLabel(const QString& label);

// Checks the text of one option field with the engine's rules for that option. The
// refusal names the field as the dialog labels it ("SMTP Port: must be between 1 and
// 65535"); an empty text means the value is good, and normalised then holds the form
// to store.
QString checkOptionText(const core::OptionDef& def, const QString& label, const core::Options& options,
                        const QString& text, QString* normalised);

} // namespace kestrova::gui
