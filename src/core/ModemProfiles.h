#pragma once

#include "core/Options.h"

namespace kestrova::core {

constexpr int kBuiltInModemProfiles = 3;

// Puts the three built-in profiles into slots 0..2 (done at every start, before a
// portfolio file may bring its own table) and makes sure the table reaches that far.
void setBuiltInModemProfiles(ModemOptions& modem);

// The profile the direct-dial routes use, or the first built-in one when the selected
// index points outside the used part of the table.
const ModemProfile& selectedModemProfile(const ModemOptions& modem);

} // namespace kestrova::core
