// The old kestrova.ini on arbitrary bytes, migrated into the settings store as start-up
// does it. Each of the four keys must arrive in the store exactly as the ini reader read it
// (a DefaultFile path with odd characters must not come back changed), within the old
// 254-character limit, and the ini file must be gone afterwards so it migrates only once.

#include "FuzzSupport.h"

#include "settings/IniMigration.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace kestrova;

namespace {
fuzz::ScratchFile* g_ini = nullptr;
const char* const kKeys[] = {"DefaultFile", "ShowStatus", "CheckMail", "GetMail"};
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_ini = new fuzz::ScratchFile(settings::kLegacyIniName);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = fuzz::bytesOf(data, size);
    const QString dataDir = QFileInfo(g_ini->write(bytes)).path();
    const QString storeFile = g_ini->sibling(QStringLiteral("store.ini"));
    QFile::remove(storeFile);

    QString expected[4];
    for (int i = 0; i < 4; ++i) {
        const QString key = QString::fromLatin1(kKeys[i]);
        expected[i] = settings::readIniString(bytes, QStringLiteral("Kestrova"), key,
                                              i == 3 ? QStringLiteral("1") : QString());
        fuzzCheck(expected[i].size() <= 254);
    }
    {
        settings::SettingsStore store(storeFile);
        const std::optional<QString> migrated = settings::migrateLegacyIni(dataDir, store);
        fuzzCheck(migrated && *migrated == expected[0]);
    }
    fuzzCheck(!QFile::exists(g_ini->path()));
    settings::SettingsStore reread(storeFile);
    for (int i = 0; i < 4; ++i) {
        fuzzCheck(reread.get(settings::kSettingsSection, QString::fromLatin1(kKeys[i]), QStringLiteral("<absent>")) ==
                  expected[i]);
    }
    return 0;
}
