#include "cli/CliContext.h"

#include "core/ModemProfiles.h"
#include "core/OptionChecks.h"
#include "core/OptionRegistry.h"
#include "core/PortfolioFile.h"
#include "secrets/SecretStore.h"
#include "settings/IniMigration.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include <QTextStream>

namespace kestrova::cli {

CliContext::CliContext(const GlobalOptions& g)
    : global(g), log(clock, shownHost), services{clock, shownHost, cancel, log}
{
    host.showTerminal = g.verbose;
    log.setPath(g.dataDir);
    log.setLogFileName(QStringLiteral("activity.txt"));
    // A one-shot command may run beside the daemon or the desktop program: renaming the
    // log here would take theirs away, so it only appends.
    log.setLogEnable(true, support::CLogFile::Start::Append);

    settings::SettingsStore store;
    settings::migrateLegacyIni(g.dataDir, store);
    secrets::SecretStore(&store).moveLegacySecrets();
    prefs = settings::readPreferences(store, g.dataDir);
    modemDevice = prefs.modemDevice;
    portfolioPath = g.portfolioFile.isEmpty() ? prefs.defaultFile : g.portfolioFile;

    // The built-in profiles come first on every start; a portfolio file may then bring
    // its own table over them.
    core::setBuiltInModemProfiles(options.modem);
}

bool CliContext::fail(const QString& message)
{
    QTextStream(stderr) << support::redactSecrets(message) << '\n';
    log.LogMessage(message);
    return false;
}

bool CliContext::lockPortfolio()
{
    m_lock = std::make_unique<core::FileLock>(core::portfolioLockPath(portfolioPath));
    if (!m_lock->acquire(core::kPortfolioLockWaitMs)) {
        return fail(core::portfolioLockMessage(portfolioPath, *m_lock));
    }
    if (!m_lock->tookOver().isEmpty()) {
        log.LogMessage(m_lock->tookOver());
    }
    m_stamp = core::FileStamp::of(portfolioPath);
    return true;
}

bool CliContext::loadPortfolio()
{
    m_stamp = core::FileStamp::of(portfolioPath);
    const core::PortfolioFileResult r = core::PortfolioFile::read(portfolioPath, portfolio, options);
    core::rememberSecrets(options);
    if (r.ok()) {
        return true;
    }
    QTextStream(stderr) << r.message << '\n';
    log.LogMessage(r.message);
    // An older file is still usable: what it holds is in force and the next save converts it.
    return r.olderVersion();
}

QString CliContext::sourceKey(const QString& sourceName)
{
    return core::OptionRegistry::storedSourceKey(sourceName);
}

void CliContext::showOnlyResults()
{
    host.quiet = !global.verbose;
    host.showStatusTexts = global.verbose;
    host.showTerminal = global.verbose;
}

bool CliContext::savePortfolio()
{
    // Under the lock only a program that does not take it can have written the file; its
    // save is not overwritten with a setup read before it.
    if (m_stamp && !core::FileStamp::of(portfolioPath).sameContentAs(*m_stamp)) {
        return fail(core::portfolioChangedRefusal(portfolioPath));
    }
    const core::PortfolioFileResult r = core::PortfolioFile::write(portfolioPath, portfolio, options);
    if (r.ok()) {
        m_stamp = core::FileStamp::of(portfolioPath);
        return true;
    }
    return fail(core::portfolioSaveFailure(r.message, portfolioPath));
}

} // namespace kestrova::cli
