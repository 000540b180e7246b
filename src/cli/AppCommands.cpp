#include "app/Application.h"
#include "cli/Cli.h"
#include "cli/ConsoleHost.h"
#include "cli/QuoteTable.h"
#include "cli/SignalWatcher.h"
#include "core/Quote.h"
#include "core/Quotes.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"
#include "sim/DemoMarket.h"
#include "sim/ModemSimulator.h"
#include "support/Clock.h"
#include "support/Paths.h"
#include "support/PrivateFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <csignal>

namespace kestrova::cli {

namespace {

int usage(const QString& text, const QString& why = {})
{
    QTextStream err(stderr);
    if (!why.isEmpty()) {
        err << "kestrova-cli: " << why << '\n';
    }
    err << text;
    return kExitUsage;
}

const QString kUpdateUsage =
    QStringLiteral("Usage: kestrova-cli [global options] update [--market-moment]\n"
                   "Runs one update, as the toolbar's update button: connection, mail check, market\n"
                   "summary, quotes, and the page when paging is on. --market-moment runs it as an\n"
                   "open/midday/close update, which always pages in alarm-only mode.\n"
                   "Exit code 1 when a step failed; the error output names each failure.\n");

const QString kRunUsage =
    QStringLiteral("Usage: kestrova-cli [global options] run [--save-on-exit yes|no]\n"
                   "Runs the minute cycle until SIGINT or SIGTERM: every minute the schedule decides whether\n"
                   "an update is due. On exit, --save-on-exit answers \"Save File Before Exiting?\" (default no).\n"
                   "Ends at once with exit code 1 when the portfolio file cannot be opened.\n");

const QString kDemoUsage =
    QStringLiteral("Usage: kestrova-cli demo\n"
                   "Runs the offline demo: a demo market on loopback and a simulated modem with a TAP\n"
                   "paging terminal on a pty, the bundled demo portfolio in a temporary data folder, one\n"
                   "update with paging, then the quotes, the alarms that fired and the page received.\n");

int updateCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kUpdateUsage;
        return kExitOk;
    }
    bool marketMoment = false;
    for (const QString& a : args) {
        if (a == QLatin1String("--market-moment")) {
            marketMoment = true;
        } else {
            return usage(kUpdateUsage, QStringLiteral("unexpected argument ") + a);
        }
    }
    support::SystemClock clock;
    ConsoleHost host;
    host.showTerminal = g.verbose;
    host.showStatusTexts = g.verbose;
    app::Application application(clock, host, g.dataDir);
    // SIGINT and SIGTERM work as the status window's Cancel: transfers in flight are
    // dropped, a modem call is hung up and "Operation Cancelled" is logged.
    bool stopping = false;
    SignalWatcher signals([&](int) {
        stopping = true;
        application.cancelFlag().set();
        application.state().stop = true;
    });
    application.startup(g.portfolioFile);
    if (application.state().currentFile.isEmpty()) {
        QTextStream(stderr) << "kestrova-cli: no portfolio file could be opened\n";
        return kExitFailure;
    }
    if (!stopping) {
        application.update(application.state().options.paging.enabled, marketMoment);
    }
    if (stopping) {
        if (!application.lastOutcome().cancelled) {
            application.services().StatusMessage(QStringLiteral("Operation Cancelled"));
        }
        return signals.exitStatus(kExitFailure);
    }
    // A run from cron or a script must be able to tell that no quote came.
    return host.failuresReported == 0 ? kExitOk : kExitFailure;
}

int runCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kRunUsage;
        return kExitOk;
    }
    bool saveOnExit = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--save-on-exit") && i + 1 < args.size()) {
            const QString v = args[++i];
            if (v != QLatin1String("yes") && v != QLatin1String("no")) {
                return usage(kRunUsage, QStringLiteral("--save-on-exit takes yes or no"));
            }
            saveOnExit = v == QLatin1String("yes");
        } else {
            return usage(kRunUsage, QStringLiteral("unexpected argument ") + args[i]);
        }
    }
    support::SystemClock clock;
    ConsoleHost host;
    host.showTerminal = g.verbose;
    host.yesNoAnswer = saveOnExit ? support::MsgAnswer::Yes : support::MsgAnswer::No;
    app::Application application(clock, host, g.dataDir);
    bool stopping = false;
    // Watched before start-up: a signal that comes while start-up still reads its files
    // (after the first status line) would otherwise kill the process unsaved. It is
    // handled once the event loop runs.
    SignalWatcher signals([&](int) {
        // Ends any wait of an update in progress; the loop quits once the tick has returned.
        stopping = true;
        application.cancelFlag().set();
        application.state().stop = true;
        QCoreApplication::quit();
    });
    application.startup(g.portfolioFile);
    // Start-up has said why ("File ... does not exist."). A daemon with no portfolio would
    // look alive to its service manager while it can never do anything.
    if (application.state().currentFile.isEmpty()) {
        return kExitFailure;
    }
    // The daemon holds no edits of its own: what one-shot commands save beside it is taken
    // up before the next scheduled update.
    application.setFollowFileOnDisk(true);
    application.startMinuteCycle();
    QCoreApplication::exec();
    application.minuteCycle().stop();
    if (!stopping) {
        return kExitFailure;
    }
    application.queryExit();
    application.services().StatusMessage(QStringLiteral("Kestrova stopped"));
    return kExitOk;
}

// Copies a file from the installed data folder, refusing to run on without it.
bool copyData(const QString& name, const QString& to, QTextStream& err)
{
    const QString from = QDir(support::installedDataDir()).filePath(name);
    QFile::remove(to);
    if (!QFile::copy(from, to)) {
        err << "kestrova-cli demo: cannot copy " << from << '\n';
        return false;
    }
    support::makePrivate(to);
    return true;
}

int demoCommand(const GlobalOptions&, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kDemoUsage;
        return kExitOk;
    }
    if (!args.isEmpty()) {
        return usage(kDemoUsage, QStringLiteral("unexpected argument ") + args.first());
    }
    // A fixed start for the price walk makes every run of the demo show the same alarms.
    const quint32 walkSeed = 7;
    QTextStream out(stdout);
    QTextStream err(stderr);
    QTemporaryDir home;
    if (!home.isValid()) {
        err << "kestrova-cli demo: cannot create a temporary folder\n";
        return kExitFailure;
    }
    // The demo must not read or change the user's own settings.
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
    const QString dataDir = home.filePath(QStringLiteral("data"));
    support::makePrivateDir(dataDir);
    const QString portfolio = QDir(dataDir).filePath(QStringLiteral("DEMO.PGR"));
    if (!copyData(QStringLiteral("demo.pgr"), portfolio, err)) {
        return kExitFailure;
    }

    support::SystemClock clock;
    sim::DemoMarketThread market(clock, walkSeed);
    if (!market.start(0)) {
        err << "kestrova-cli demo: the demo market could not listen on 127.0.0.1\n";
        return kExitFailure;
    }
    sim::ModemSimulator modem;
    if (!modem.isValid()) {
        err << "kestrova-cli demo: no pty for the simulated modem: " << modem.error() << '\n';
        return kExitFailure;
    }
    news::installServerFiles(dataDir, support::installedDataDir());
    news::retargetDemoMarket(dataDir, market.port());
    {
        settings::SettingsStore store;
        store.save(settings::kSettingsSection, QStringLiteral("ModemDevice"), modem.slavePath());
        store.save(settings::kSettingsSection, QStringLiteral("CheckMail"), QStringLiteral("0"));
        store.save(settings::kSettingsSection, QStringLiteral("DefaultFile"), portfolio);
    }

    ConsoleHost host;
    app::Application application(clock, host, dataDir);
    application.startup(portfolio);
    if (application.state().currentFile.isEmpty()) {
        err << "kestrova-cli demo: the demo portfolio could not be opened\n";
        return kExitFailure;
    }
    // Point the setup at the two simulated peers: quotes from the demo market over a direct
    // line, pages through the simulated modem to its TAP terminal.
    core::Options& o = application.state().options;
    o.connection.type = 1;
    o.quotes.server = quotes::BuiltInServers::kDemoMarket;
    o.quotes.optionServer = quotes::BuiltInServers::kDemoMarket;
    o.quotes.fastest = false;
    // The demo market's CSV and JSON in the shapes of the shipped sources first, its pages
    // for what they leave (options).
    o.sources.order = QStringLiteral("Demo CSV,Demo JSON,servers.dat");
    o.quotes.marketSummary = true;
    o.quotes.marketUrl = market.baseUrl() + QStringLiteral("/cgi-bin/getquote.dll?ticker=csco");
    o.paging.enabled = true;
    o.paging.numeric = false;
    o.smtp.enabled = false;
    if (o.paging.pagerId.isEmpty()) {
        o.paging.pagerId = QStringLiteral("1234567");
    }
    if (o.paging.phone.isEmpty()) {
        o.paging.phone = QStringLiteral("5551234");
    }
    o.paging.retries = 1;
    application.setUpSerial();
    application.UpdateSettings();

    out << "Demo market at " << market.baseUrl() << ", simulated modem on " << modem.slavePath() << "\n\n";
    application.update(true, true);

    out << '\n';
    const auto& state = application.state();
    out << state.market.caption << ": DOW " << state.market.lblDow << ' ' << state.market.lblDowChg << ", NASDAQ "
        << state.market.lblNASDAQ << ' ' << state.market.lblNASDAQChg << ", S&P 500 " << state.market.lblSP500 << ' '
        << state.market.lblSP500Chg << "\n\n";
    printQuoteTable(out, QStringLiteral("Stocks"), application.stockQuotes());
    printQuoteTable(out, QStringLiteral("Options"), application.optionQuotes());

    out << "\nAlarms that fired:\n";
    int alarms = 0;
    for (const core::Quotes* set : {&application.stockQuotes(), &application.optionQuotes()}) {
        for (const auto& q : *set) {
            const QString marks = alarmMarks(*q);
            if (!marks.isEmpty() && marks != QLatin1String("*")) {
                out << "  " << q->ticker().leftJustified(10) << ' ' << marks << "  last " << q->last() << '\n';
                ++alarms;
            }
        }
    }
    if (alarms == 0) {
        out << "  (none)\n";
    }
    out << "\nPages received by the paging terminal:\n";
    for (const sim::SimPage& p : modem.pages) {
        out << "  [" << p.pagerId << "] " << p.text << '\n';
    }
    if (modem.pages.isEmpty()) {
        out << "  (none)\n";
    }
    out.flush();
    market.stop();
    const int got = application.stockQuotes().Count() + application.optionQuotes().Count();
    return got > 0 && !modem.pages.isEmpty() ? kExitOk : kExitFailure;
}

} // namespace

void registerAppCommands(Registry& r)
{
    r.add({QStringLiteral("update"), QStringLiteral("run one update (quotes, alarms, pages)"), updateCommand});
    r.add({QStringLiteral("run"), QStringLiteral("run the minute cycle until SIGINT/SIGTERM"), runCommand});
    r.add({QStringLiteral("demo"), QStringLiteral("offline demo: demo market + simulated modem"), demoCommand});
}

} // namespace kestrova::cli
