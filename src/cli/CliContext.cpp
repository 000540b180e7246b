#include "cli/CliContext.h"

#include "core/ModemProfiles.h"
#include "core/PortfolioFile.h"
#include "settings/IniMigration.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include <QTextStream>

namespace kestrova::cli {

CliContext::CliContext(const GlobalOptions& g) : global(g), log(clock, host), services{clock, host, cancel, log}
{
    host.showTerminal = g.verbose;
    log.setPath(g.dataDir);
    log.setLogFileName(QStringLiteral("activity.txt"));
    // A one-shot command may run beside the daemon or the desktop program: renaming the
    // log here would take theirs away, so it only appends.
    log.setLogEnable(true, support::CLogFile::Start::Append);

    settings::SettingsStore store;
    settings::migrateLegacyIni(g.dataDir, store);
    prefs = settings::readPreferences(store, g.dataDir);
    modemDevice = prefs.modemDevice;
    portfolioPath = g.portfolioFile.isEmpty() ? prefs.defaultFile : g.portfolioFile;

    // The built-in profiles come first on every start; a portfolio file may then bring
    // its own table over them.
    core::setBuiltInModemProfiles(options.modem);
}

bool CliContext::loadPortfolio()
{
    const core::PortfolioFileResult r = core::PortfolioFile::read(portfolioPath, portfolio, options);
    if (r.ok()) {
        return true;
    }
    QTextStream(stderr) << r.message << '\n';
    log.LogMessage(r.message);
    // An older file is still usable: what it holds is in force and the next save converts it.
    return r.olderVersion();
}

void CliContext::showOnlyResults()
{
    host.quiet = !global.verbose;
    host.showStatusTexts = global.verbose;
    host.showTerminal = global.verbose;
}

bool CliContext::savePortfolio()
{
    const core::PortfolioFileResult r = core::PortfolioFile::write(portfolioPath, portfolio, options);
    if (r.ok()) {
        return true;
    }
    QTextStream(stderr) << r.message << '\n';
    log.LogMessage(r.message);
    return false;
}

} // namespace kestrova::cli
