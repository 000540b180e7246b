#include "settings/Preferences.h"

#include "settings/SettingsStore.h"
#include "support/Format.h"

#include <cmath>
#include <limits>

namespace kestrova::settings {

namespace {

std::optional<int> readPosition(const SettingsStore& store, const QString& key)
{
    if (!store.contains(kSettingsSection, key)) {
        return std::nullopt;
    }
    bool ok = false;
    const int v = store.get(kSettingsSection, key).trimmed().toInt(&ok);
    return ok ? std::optional<int>(v) : std::nullopt;
}

QString flagText(bool on)
{
    return on ? QStringLiteral("1") : QStringLiteral("0");
}

} // namespace

bool readOnUnlessZero(const QString& text)
{
    return text != QLatin1String("0");
}

Preferences readPreferences(const SettingsStore& store, const QString& dataDir)
{
    Preferences p;
    // Start-up has always asked for this key as "Defaultfile"; the store matches either spelling.
    p.defaultFile =
        store.get(kSettingsSection, QStringLiteral("Defaultfile"), dataDir + QStringLiteral("/DEFAULT.PGR"));
    p.showStatus = readOnUnlessZero(store.get(kSettingsSection, QStringLiteral("ShowStatus"), QStringLiteral("1")));
    p.checkMail = readOnUnlessZero(store.get(kSettingsSection, QStringLiteral("CheckMail"), QStringLiteral("1")));
    p.getMail = readOnUnlessZero(store.get(kSettingsSection, QStringLiteral("GetMail"), QStringLiteral("1")));
    p.systemTray = readOnUnlessZero(store.get(kSettingsSection, QStringLiteral("SystemTray"), QStringLiteral("1")));
    const double size =
        support::leadingNumber(store.get(kSettingsSection, QStringLiteral("MailSize"), QStringLiteral("20")));
    const double whole = std::trunc(size);
    p.mailSize = whole > std::numeric_limits<int>::max()   ? std::numeric_limits<int>::max()
                 : whole < std::numeric_limits<int>::min() ? std::numeric_limits<int>::min()
                                                           : static_cast<int>(whole);
    p.wwwButtons = store.get(kSettingsSection, QStringLiteral("WWWButtons"), QStringLiteral("1")) == QLatin1String("1");
    p.checkUpdates =
        store.get(kSettingsSection, QStringLiteral("CheckUpdates"), QStringLiteral("True")) == QLatin1String("True");
    p.notifications =
        readOnUnlessZero(store.get(kSettingsSection, QStringLiteral("Notifications"), QStringLiteral("1")));
    p.statusLeft = readPosition(store, QStringLiteral("StatusLeft"));
    p.statusTop = readPosition(store, QStringLiteral("StatusTop"));
    p.modemDevice = store.get(kSettingsSection, QStringLiteral("ModemDevice"));
    p.historyEnabled =
        readOnUnlessZero(store.get(kSettingsSection, QStringLiteral("HistoryEnabled"), QStringLiteral("1")));
    bool ok = false;
    const int keep = store.get(kSettingsSection, QStringLiteral("HistoryKeepDays")).trimmed().toInt(&ok);
    if (ok && keep > 0) {
        p.historyKeepDays = keep;
    }
    // Out of range or unreadable falls back to what a browser allows itself.
    const int hosts = store.get(kSettingsSection, QStringLiteral("HostConnections")).trimmed().toInt(&ok);
    p.hostConnections = ok && hosts >= 1 && hosts <= 50 ? hosts : 6;
    const int pageKb = store.get(kSettingsSection, QStringLiteral("MaxPageKB")).trimmed().toInt(&ok);
    if (ok && pageKb >= 16) {
        p.maxPageKb = pageKb;
    }
    return p;
}

void savePreferences(SettingsStore& store, const Preferences& p)
{
    store.save(kSettingsSection, QStringLiteral("DefaultFile"), p.defaultFile);
    store.save(kSettingsSection, QStringLiteral("ShowStatus"), flagText(p.showStatus));
    store.save(kSettingsSection, QStringLiteral("CheckMail"), flagText(p.checkMail));
    store.save(kSettingsSection, QStringLiteral("GetMail"), flagText(p.getMail));
    store.save(kSettingsSection, QStringLiteral("SystemTray"), flagText(p.systemTray));
    store.save(kSettingsSection, QStringLiteral("MailSize"), QString::number(p.mailSize));
    store.save(kSettingsSection, QStringLiteral("WWWButtons"), flagText(p.wwwButtons));
    store.save(kSettingsSection, QStringLiteral("CheckUpdates"),
               p.checkUpdates ? QStringLiteral("True") : QStringLiteral("False"));
    store.save(kSettingsSection, QStringLiteral("ModemDevice"), p.modemDevice);
    store.save(kSettingsSection, QStringLiteral("Notifications"), flagText(p.notifications));
    store.save(kSettingsSection, QStringLiteral("HistoryEnabled"), flagText(p.historyEnabled));
    store.save(kSettingsSection, QStringLiteral("HistoryKeepDays"), QString::number(p.historyKeepDays));
    store.save(kSettingsSection, QStringLiteral("HostConnections"), QString::number(p.hostConnections));
    store.save(kSettingsSection, QStringLiteral("MaxPageKB"), QString::number(p.maxPageKb));
}

void saveStatusPosition(SettingsStore& store, int left, int top)
{
    store.save(kSettingsSection, QStringLiteral("StatusLeft"), QString::number(left));
    store.save(kSettingsSection, QStringLiteral("StatusTop"), QString::number(top));
}

} // namespace kestrova::settings
