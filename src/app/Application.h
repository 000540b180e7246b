#pragma once

#include "app/MinuteCycle.h"
#include "core/FileGuard.h"
#include "core/MailRecords.h"
#include "core/Options.h"
#include "core/PortfolioTable.h"
#include "core/Quotes.h"
#include "delivery/ManualPage.h"
#include "delivery/SerialLine.h"
#include "net/InternetConnection.h"
#include "quotes/BuiltInServers.h"
#include "quotes/MarketSummary.h"
#include "quotes/QServers.h"
#include "quotes/ServersDat.h"
#include "quotes/SourceDefinition.h"
#include "quotes/SourceHealth.h"
#include "quotes/SymbolLookup.h"
#include "settings/Preferences.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Secrets.h"
#include "support/Services.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kestrova::quotes {
class CurlFetcher;
}
namespace kestrova::news {
class NewsServers;
class NewsStories;
} // namespace kestrova::news
namespace kestrova::delivery {
class CurlSmtpSender;
class ModemLine;
class PushNotifier;
class SerialLine;
enum class PushKind;
} // namespace kestrova::delivery
namespace kestrova::history {
class HistoryRecorder;
}
namespace kestrova::mail {
class MailWatch;
class PopClient;
struct MailWatchSettings;
} // namespace kestrova::mail
namespace kestrova::net {
class InternetConnection;
}

namespace kestrova::app {

// What the version check and the server-file update say: there is nobody to ask.
inline const QString kNoUpdateServer = QStringLiteral("No update server is configured for this version.");

// The file chooser filter of every portfolio open and save.
inline const QString kPortfolioFileFilter = QStringLiteral("Kestrova Files (*.pgr *.PGR);;All Files (*)");

// The configuration labels of the main window, kept as data so both faces show them.
struct ConfigLabels
{
    QString paging;     // lblPaging
    QString connection; // lblConnection
    QString email;      // lblEmail
    QString server;     // lblServer
};

// What the main window owns for the whole run.
struct AppState
{
    QString currentFile;
    bool fileModified = false;
    bool exitCancelled = false;
    bool menusEnabled = true; // mnuEdit, mnuPaging, mnuSettings
    QString caption = QStringLiteral("Kestrova");
    QString clockLabel; // lblTime
    settings::Preferences prefs;
    core::Options options;
    core::PortfolioTable portfolio;
    quotes::MarketSummary market;
    core::MailBox mailBox;
    bool quotesAvailable = false;
    bool stop = false; // the main window's stop flag, read between securities
    int lastNewsDay = 0;
    ConfigLabels labels;
};

// What one update run brought, for a face that tells the user about it.
struct UpdateOutcome
{
    bool cancelled = false;
    bool quotesRetrieved = false;
    bool alarmPageSent = false; // a page went out while an alarm limit was crossed
    bool alarms = false;        // an alarm limit was crossed, whether or not a page carried it
    int newMessages = 0;        // mail the check found that the previous check had not seen
};

// What a face wants to hear of the engine: an update run starting and ending (to lock
// what must not change under the run, then refresh its views) and the minute cycle's clock.
struct AppObserver
{
    std::function<void()> updateStarted;
    std::function<void(const UpdateOutcome&)> updateFinished;
    std::function<void(const QString&)> clockLabel;
};

// The outcome of a test notification by one route, in the words the user reads.
struct RouteTest
{
    QString route; // "Push", "E-mail"
    bool sent = false;
    QString text; // "Sent — check your phone", or why not
};

// Transport overrides for tests and the demo; empty members mean "the real one".
struct Transports
{
    std::unique_ptr<delivery::SerialLine> serial;
    std::unique_ptr<net::InternetConnection> connection;
};

// The engine behind both faces: start-up, the portfolio file operations, the exit
// decision, the update run and the minute cycle.
class Application
{
public:
    Application(support::Clock& clock, support::Host& host, QString dataDir, Transports transports = {});
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    // Start-up in its fixed order; commandLineFile, when given, wins over DefaultFile.
    void startup(const QString& commandLineFile = {});
    // Whether a DefaultFile that does not exist is reported ("File ... does not exist.").
    // The desktop leaves it quiet and only disables the menus that need a file; a headless
    // run, which cannot go on without one, says why.
    bool reportMissingStartupFile = true;

    // File menu. New starts an empty setup without a file: no securities, no quotes, and
    // paging and the schedule off.
    void mnuNew();
    // What the user should do next with the setup as it stands, for a face to show where
    // the eye goes (an empty quote table): why the Edit, Paging and Settings menus are off
    // while the setup has no file, or that the portfolio is empty. Empty when neither.
    QString setupHint() const;
    bool openFile(const QString& path);
    // Saves to the current file; with none, asks for a name (Host::inputBox) as Save As.
    // Holds the file's lock while it saves, and asks before overwriting a file another
    // program has written since it was opened.
    bool save();
    // Saves under a new name, then asks whether it becomes the startup file.
    bool saveAs(const QString& path);
    // The exit path: true when the program may end ("Save File Before Exiting?"). With no
    // current file, Yes saves where the save dialog says and sets the caption, nothing more.
    bool queryExit();
    // Before the setup in use is replaced: with unsaved changes, asks the question (Yes
    // saves, No drops them, Cancel keeps everything); true when the program may go on.
    bool offerSave(const QString& question);

    // The options a new setup starts from: the defaults, with the schedule times and the
    // built-in modem profiles start-up gives, and the program's own preferences untouched.
    core::Options freshOptions() const;
    // Where the set-up assistant proposes to keep a new setup: "Kestrova.pgr" in the
    // user's documents folder ("Kestrova 2.pgr" and so on when that exists).
    QString suggestedSetupFile() const;
    // The assistant's Finish: saves the setup to path (adding ".pgr"), makes it the setup
    // in use and the startup file, with paging and the schedule on. Nothing changes when
    // the file cannot be written (the user is told why).
    bool finishSetup(const core::PortfolioTable& portfolio, const core::Options& options, const QString& path);
    // A real test notification by every route the shown options turn on (push, e-mail),
    // each with its outcome; the options in use are left alone.
    std::vector<RouteTest> sendRouteTests(const core::Options& shown);
    // What a symbol look-up asks with: the quote sources of the data folder in the failure
    // order the options give (those shown, else the ones in use), their keys, and the
    // servers.dat definitions the options choose.
    quotes::LookupSetup lookupSetup(const core::Options* shown = nullptr);

    // Refreshes the configuration labels from the options and preferences.
    void UpdateSettings();
    // Marks a change to what the portfolio file stores.
    void markModified() { m_state.fileModified = true; }

    // One update: connection, mail, market summary, fastest server, quotes, pages, alarms.
    void update(bool pagingEnabled, bool marketMoment);
    void setObserver(AppObserver observer) { m_observer = std::move(observer); }
    const UpdateOutcome& lastOutcome() const { return m_outcome; }

    // A mail check now (the menu's Check Mail), whatever the CheckMail preference says;
    // returns the number of new messages. Does nothing while an update runs.
    int checkMailNow();
    // Brings the connection up and reports it on the status line (the mail check's first step).
    bool connectAndReport();
    // The menu's Check for Newer Version and Update Server Files. This version has no
    // update server to ask, and says so in a box rather than pretending to check.
    void checkForNewerVersion();
    void updateServerFiles();

    // The raw page of the last fetch (its URL with any password replaced by "***").
    QString lastFetchUrl() const;
    QString lastFetchPage() const;
    // What a person reporting a problem is asked for: versions, places, the serial device
    // and the last errors of the activity log.
    QString diagnostics() const;

    // Applies the modem options (and the machine's device override) to the serial line.
    void setUpSerial();

    // What the dialogs commit, each in one step. A change to what the portfolio file stores
    // marks the file modified; the labels and the transports follow the new values.
    void applyOptions(const core::Options& options);
    // Preferences arrive as settings-store texts by key (as the option registry stores them;
    // API keys go on to the secret store) and are read back by start-up's own rules.
    void applyStoreValues(const QHash<QString, QString>& values);
    void applyPortfolio(const core::PortfolioTable& table);

    // The send-a-page dialog: the numeric pager, else e-mail, else the alphanumeric
    // service, then the push route's mirror (delivery::ManualPage::send). A dial-up link
    // that an e-mail page brought up is hung up afterwards.
    delivery::ManualPageResult sendManualPage(const QString& text);
    // The options dialog's test page, sent with the options the dialog shows (not yet saved).
    delivery::ManualPageResult sendTestPage(const core::Options& shown);
    // The options dialog's connection test with the connection it shows: the text to show,
    // "Successful Connection!" or "Failed to Connect...".
    QString testConnection(const core::ConnectionOptions& shown);

    AppState& state() { return m_state; }
    const support::Services& services() const { return m_services; }
    support::CancelFlag& cancelFlag() { return m_cancel; }
    support::CLogFile& log() { return m_log; }
    const QString& dataDir() const { return m_dataDir; }
    core::Quotes& stockQuotes() { return m_stockQuotes; }
    core::Quotes& optionQuotes() { return m_optionQuotes; }
    news::NewsStories& news() { return *m_news; }
    quotes::ServerDefinitions& servers() { return m_servers; }
    // The modern quote sources (sources.json of the data directory) and what is known of
    // their health.
    quotes::SourceCatalog& sources() { return m_sources; }
    quotes::SourceHealth& sourceHealth() { return m_health; }
    quotes::CurlFetcher& fetcher() { return *m_fetcher; }
    delivery::SerialLine& serial() { return *m_serial; }
    delivery::ModemLine& modem() { return *m_modem; }
    delivery::CurlSmtpSender& smtpSender() { return *m_smtpSender; }
    delivery::PushNotifier& push() { return *m_push; }
    history::HistoryRecorder& history() { return *m_history; }
    // The history database of the data directory (the chart reads it).
    QString historyPath() const;
    const support::Clock& clock() const { return m_clock; }
    mail::PopClient& popClient() { return *m_pop; }
    MinuteCycle& minuteCycle() { return *m_cycle; }
    // A face that never holds unsaved edits (the daemon) follows the portfolio file: before
    // each minute's schedule check, a file that another program changed is read again, so
    // a `portfolio add` or an `options set` beside it takes effect at the next update. A
    // face that may hold edits (the desktop) leaves this off and asks before it saves.
    void setFollowFileOnDisk(bool follow) { m_followFileOnDisk = follow; }
    // Reads the current file again when its content on disk is not what was read; true
    // when it did.
    bool reloadIfChangedOnDisk();
    // Starts the minute cycle. Only one process on a data folder runs the schedule: a
    // second one says which process holds it and runs without it until that one ends.
    void startMinuteCycle(int intervalMs = 60000);
    // Takes or keeps the schedule's lock; false while another process holds it.
    bool ownsSchedule();
    bool portOpen() const;
    bool updating() const { return m_updating; }

    // The news page a ticker's headlines were found on (empty without news servers).
    QString newsPageUrl(const QString& ticker) const;

    // The last price of a ticker in the quote sets of the last update, when it had one.
    std::optional<float> lastPrice(const QString& ticker) const;

    // The page text of the alphanumeric routes: market summary, quotes, e-mail marker, news.
    // includeAll puts every member meant for the pager in, whatever the selection says.
    QString composePageText(bool smtpRoute, bool includeAll = false);

    // Mirrors a page that was just sent (or tried) to the push route, when one is set up.
    bool mirrorPage(const QString& text, delivery::PushKind kind);

private:
    // Save As without the startup-file question.
    bool saveAsQuietly(const QString& path);
    // Writes a setup to a file under its lock; reports a failure to the user and the log.
    bool writeAs(const QString& name, const core::PortfolioTable& portfolio, const core::Options& options);
    void runStep(const char* name, const std::function<void()>& step);
    void checkMail();
    int newMessages(qint16 previousCount) const;
    // Sends a composed page by the configured route, then mirrors it; true when it went out.
    bool deliverText(const QString& text, bool waitForLine, delivery::PushKind kind);
    void mirrorMailHeaders();
    void waitForLine();
    QString sourceHealthPath() const;
    void saveSourceHealth();
    // Takes a portfolio file's lock for a save; says why and returns false when it cannot.
    bool lockPortfolioFile(core::FileLock& lock, const QString& file);

    support::Clock& m_clock;
    // The face as the engine talks to it: no text reaches it with a secret in it.
    support::RedactingHost m_shownHost;
    support::Host& m_host;
    QString m_dataDir;
    support::CancelFlag m_cancel;
    support::CLogFile m_log;
    support::Services m_services;
    AppState m_state;
    quotes::BuiltInServers m_builtIn;
    quotes::ServerDefinitions m_servers;
    quotes::SourceCatalog m_sources;
    quotes::SourceHealth m_health;
    std::unique_ptr<news::NewsServers> m_newsServers;
    std::unique_ptr<news::NewsStories> m_news;
    core::Quotes m_stockQuotes;
    core::Quotes m_optionQuotes;
    std::unique_ptr<quotes::CurlFetcher> m_fetcher;
    std::unique_ptr<delivery::SerialLine> m_serial;
    std::unique_ptr<delivery::ModemLine> m_modem;
    std::unique_ptr<delivery::CurlSmtpSender> m_smtpSender;
    std::unique_ptr<delivery::PushNotifier> m_push;
    std::unique_ptr<history::HistoryRecorder> m_history;
    std::unique_ptr<net::InternetConnection> m_connection;
    std::unique_ptr<mail::PopClient> m_pop;
    std::unique_ptr<mail::MailWatch> m_mailWatch;
    std::unique_ptr<mail::MailWatchSettings> m_mailSettings;
    std::unique_ptr<MinuteCycle> m_cycle;
    core::FileStamp m_fileStamp;
    std::unique_ptr<core::FileLock> m_scheduleLock;
    std::optional<QString> m_scheduleHolder; // the other process last reported as running the schedule
    QSet<QString> m_failuresShown;           // host and cause of each fetch failure this update reported
    bool m_updating = false;
    bool m_starting = false;
    bool m_followFileOnDisk = false;
    core::FileStamp m_unreadableStamp; // a changed file that could not be read, not tried again
    AppObserver m_observer;
    UpdateOutcome m_outcome;
};

} // namespace kestrova::app
