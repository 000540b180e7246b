#pragma once

#include <QString>

namespace kestrova::gui {

// A label as messages name the field: without its mnemonic and trailing colon
// ("No. of &Retries:" -> "No. of Retries").
QString plainLabel(const QString& label);

} // namespace kestrova::gui
