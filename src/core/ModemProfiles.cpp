#include "core/ModemProfiles.h"

namespace kestrova::core {

void setBuiltInModemProfiles(ModemOptions& modem)
{
    modem.profiles[0] = {QStringLiteral("Stored Profile"), QStringLiteral("ATZ"), QStringLiteral("ATZ")};
    modem.profiles[1] = {QStringLiteral("Factory Settings"), QStringLiteral("AT&F"), QStringLiteral("AT&F")};
    modem.profiles[2] = {QStringLiteral("Hayes Compatible"), QStringLiteral("AT&F E0 V1 &D2 &C1"),
                         QStringLiteral("AT&F E0 V1 &D2 &C1 &Q0")};
    if (modem.lastIndex < kBuiltInModemProfiles - 1) {
        modem.lastIndex = kBuiltInModemProfiles - 1;
    }
}

const ModemProfile& selectedModemProfile(const ModemOptions& modem)
{
    if (modem.selected < 0 || modem.selected > modem.lastIndex || modem.selected >= kModemSlots) {
        return modem.profiles[0];
    }
    return modem.profiles[static_cast<size_t>(modem.selected)];
}

} // namespace kestrova::core
