#pragma once

#include "cli/Cli.h"
#include "cli/ConsoleHost.h"
#include "core/FileGuard.h"
#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "settings/Preferences.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Secrets.h"
#include "support/Services.h"

#include <memory>
#include <optional>

namespace kestrova::cli {

// What a one-shot command works with: the headless face, the activity log in the data
// directory, and the portfolio (table + options) it was pointed at.
class CliContext
{
public:
    explicit CliContext(const GlobalOptions& global);

    // Loads --portfolio, else the DefaultFile setting. Prints the reader's message and
    // returns false when the file cannot be read.
    bool loadPortfolio();
    // Takes the portfolio file's lock for a read-change-save, waiting a few seconds for
    // another process to finish its own. Prints why and returns false when it cannot.
    bool lockPortfolio();
    // Saves back to the file that was loaded (atomically). Refuses when another program
    // wrote the file since it was read.
    bool savePortfolio();
    // Commands that print a result of their own keep status lines off the console unless
    // --verbose asks for them (with the status texts and the terminal traffic).
    void showOnlyResults();
    // A quote source's API key from the settings store (empty: none set).
    static QString sourceKey(const QString& sourceName);

    GlobalOptions global;
    support::SystemClock clock;
    ConsoleHost host;
    // The console as the engine talks to it: no text reaches it with a secret in it.
    support::RedactingHost shownHost{host};
    support::CancelFlag cancel;
    support::CLogFile log;
    support::Services services;

    core::Options options;
    core::PortfolioTable portfolio;
    QString portfolioPath;
    settings::Preferences prefs;
    QString modemDevice; // settings store: a device path overriding the COM-number mapping

private:
    bool fail(const QString& message);

    std::unique_ptr<core::FileLock> m_lock;
    std::optional<core::FileStamp> m_stamp;
};

} // namespace kestrova::cli
