#include "app/Application.h"

#include "core/ModemProfiles.h"
#include "core/OptionChecks.h"
#include "core/OptionRegistry.h"
#include "core/PortfolioEntries.h"
#include "core/PortfolioFile.h"
#include "delivery/CurlSmtpSender.h"
#include "delivery/MailServers.h"
#include "delivery/ManualPage.h"
#include "delivery/ModemLine.h"
#include "delivery/NumericPager.h"
#include "delivery/PageTable.h"
#include "delivery/PushNotifier.h"
#include "delivery/SerialLine.h"
#include "delivery/SmtpPager.h"
#include "delivery/TapPager.h"
#include "history/HistoryRecorder.h"
#include "history/HistoryStore.h"
#include "mail/MailWatch.h"
#include "mail/PopClient.h"
#include "net/DialBackend.h"
#include "net/DialupConnection.h"
#include "news/NewsRetrieval.h"
#include "news/NewsServer.h"
#include "news/NewsStories.h"
#include "news/ServerFiles.h"
#include "quotes/CurlFetcher.h"
#include "quotes/QuoteCycle.h"
#include "secrets/SecretStore.h"
#include "settings/IniMigration.h"
#include "settings/SettingsStore.h"
#include "support/Clock.h"
#include "support/Cp1252.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/Secrets.h"
#include "support/VbError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTextStream>
#include <QUrl>

namespace kestrova::app {

namespace {
constexpr qint16 kConnectionDialup = 0;

// A quote source's API key, from the user's secret store.
QString sourceKey(const QString& sourceName)
{
    return core::OptionRegistry::storedSourceKey(sourceName);
}
constexpr qint16 kConnectionDirect = 1;
constexpr qint16 kConnectionExternal = 2;

constexpr int kDiagnosticErrors = 10;

// The last lines of the activity log that report a failure: routine traps write
// "Routine:: text", the transports "... Error ...".
QStringList lastLogErrors(const QString& logPath, int count)
{
    QFile file(logPath);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    constexpr qint64 kTail = 64 * 1024;
    file.seek(std::max<qint64>(0, file.size() - kTail));
    const QStringList lines = support::decodeCp1252(file.readAll()).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    QStringList errors;
    for (auto it = lines.crbegin(); it != lines.crend() && errors.size() < count; ++it) {
        if (it->contains(QStringLiteral("::")) || it->contains(QStringLiteral("error"), Qt::CaseInsensitive)) {
            errors.prepend(*it);
        }
    }
    return errors;
}

// What start-up gives every setup before a portfolio file may say otherwise.
void setStartDefaults(core::Options& o)
{
    o.schedule.openTime = QStringLiteral("9:30 am");
    o.schedule.middayTime = QStringLiteral("12:00 pm");
    o.schedule.closeTime = QStringLiteral("4:00 pm");
    o.schedule.startTime = QStringLiteral("9:00 am");
    o.schedule.stopTime = QStringLiteral("4:00 pm");
    core::setBuiltInModemProfiles(o.modem);
}

// A pager service to dial: without its phone number the modem has nowhere to page.
bool hasPagerService(const core::Options& o)
{
    return !o.paging.phone.trimmed().isEmpty();
}

bool anyAlarm(const core::Quotes& set)
{
    for (const auto& q : set) {
        if (q->highAlarm() || q->lowAlarm() || q->volumeAlarm() || q->highChgAlarm() || q->lowChgAlarm()) {
            return true;
        }
    }
    return false;
}

// The mail-header pages a paging route sends for the last mail check, in its order.
QStringList mailHeaderTexts(const core::Options& o, const core::MailBox& box)
{
    QStringList texts;
    if (!box.mailWaiting || box.messageCount < 1) {
        return texts;
    }
    const int count = std::min<int>(box.messageCount, core::MailBox::kMaxRecords);
    for (int rec = 1; rec <= count; ++rec) {
        if (!box.records.at(static_cast<std::size_t>(rec)).isNew) {
            continue;
        }
        const QString text = delivery::TapPager::mailPageText(o, box, rec);
        if (text.isEmpty()) {
            break;
        }
        texts << text;
    }
    return texts;
}
} // namespace

Application::Application(support::Clock& clock, support::Host& host, QString dataDir, Transports transports)
    : m_clock(clock), m_shownHost(host), m_host(m_shownHost), m_dataDir(std::move(dataDir)),
      m_log(clock, m_host), m_services{clock, m_host, m_cancel, m_log},
      m_newsServers(std::make_unique<news::NewsServers>()),
      m_news(std::make_unique<news::NewsStories>(clock, QDir(m_dataDir).filePath(QStringLiteral("news.dat")))),
      m_fetcher(std::make_unique<quotes::CurlFetcher>(m_host, m_state.options.proxy)),
      m_serial(transports.serial ? std::move(transports.serial) : delivery::createSerialLine()),
      m_smtpSender(std::make_unique<delivery::CurlSmtpSender>(m_host)),
      m_push(std::make_unique<delivery::PushNotifier>(m_services, m_state.options.push)),
      m_history(std::make_unique<history::HistoryRecorder>(
          m_services, QDir(m_dataDir).filePath(history::HistoryStore::defaultFileName()))),
      m_connection(transports.connection
                       ? std::move(transports.connection)
                       : std::make_unique<net::DialupConnection>(m_services, m_state.options.connection)),
      m_pop(std::make_unique<mail::PopClient>(m_services)), m_mailSettings(std::make_unique<mail::MailWatchSettings>())
{
    m_modem = std::make_unique<delivery::ModemLine>(m_services, *m_serial, m_state.options.modem);
    m_mailWatch =
        std::make_unique<mail::MailWatch>(m_services, m_state.options.mail, *m_mailSettings, m_state.mailBox, *m_pop);
    // A Cancel or a signal drops transfers in flight instead of waiting out their time-out.
    m_fetcher->setCancelCheck([this] { return m_cancel.isSet() || m_state.stop; });
    m_smtpSender->setCancelCheck([this] { return m_cancel.isSet(); });
    m_fetcher->setErrorCallback([this](const QString& url, const QString& message) {
        const QString shown = quotes::CurlFetcher::redactUrl(url);
        m_log.LogMessage(QStringLiteral("GetQuote: ") + shown + QStringLiteral(": ") + message);
        // Fifty tickers on one dead host are one failure to the user, not fifty.
        const QString key = QUrl(shown).host() + u'|' + message;
        if (!m_cancel.isSet() && !m_failuresShown.contains(key)) {
            m_failuresShown.insert(key);
            m_services.Failure(QStringLiteral("Could not fetch ") + shown + QStringLiteral(": ") + message);
        }
    });

    MinuteCycle::Hooks hooks;
    hooks.beforeCheck = [this] { reloadIfChangedOnDisk(); };
    hooks.scheduleEnabled = [this] { return m_state.options.schedule.enabled && ownsSchedule(); };
    hooks.portOpen = [this] { return portOpen(); };
    hooks.setClockLabel = [this](const QString& s) {
        m_state.clockLabel = s;
        if (m_observer.clockLabel) {
            m_observer.clockLabel(s);
        }
    };
    hooks.options = [this]() -> const core::ScheduleOptions& { return m_state.options.schedule; };
    hooks.schedule.runUpdate = [this](bool marketMoment) { update(m_state.options.paging.enabled, marketMoment); };
    hooks.schedule.internetService = [this] { return !m_state.options.modem.quoteService; };
    hooks.schedule.status = [this](const QString& s) { m_services.StatusMessage(s); };
    m_cycle = std::make_unique<MinuteCycle>(clock, m_host, std::move(hooks));
}

Application::~Application() = default;

bool Application::portOpen() const
{
    return m_serial->isOpen();
}

void Application::startup(const QString& commandLineFile)
{
    // Failures during start-up go to the status list, where the user sees them at once.
    m_starting = true;
    // The activity log comes first so that every later step can report.
    m_log.setLogFileName(QStringLiteral("activity.txt"));
    m_log.setPath(m_dataDir);
    m_log.setLogEnable(true);

    settings::SettingsStore store;
    runStep("INI_to_Registry", [&] { settings::migrateLegacyIni(m_dataDir, store); });
    secrets::SecretStore(&store).moveLegacySecrets();
    m_state.clockLabel = support::formatDate(m_clock.now(), u"m/d/yy  h:mm am/pm");
    m_services.StatusMessage(QStringLiteral("Kestrova started on"));

    m_state.prefs = settings::readPreferences(store, m_dataDir);
    m_fetcher->setHostConnections(m_state.prefs.hostConnections);
    m_mailSettings->checkMail = m_state.prefs.checkMail;
    m_mailSettings->mailSizeKb = m_state.prefs.mailSize;
    m_fetcher->setMaxBodyBytes(qint64(m_state.prefs.maxPageKb) * 1024);

    // Schedule defaults and the built-in modem profiles; the portfolio file may override both.
    setStartDefaults(m_state.options);

    const QString startupFile = commandLineFile.isEmpty() ? m_state.prefs.defaultFile : commandLineFile;
    if (startupFile.isEmpty() ||
        (commandLineFile.isEmpty() && !reportMissingStartupFile && !QFileInfo::exists(startupFile))) {
        // A first run of the desktop has no DEFAULT.PGR yet: that is no error worth a box.
        m_state.menusEnabled = false;
    } else if (!openFile(startupFile)) {
        // A missing startup file leaves the program usable with the file menus only.
        m_state.menusEnabled = false;
    }

    runStep("LoadServers", [&] {
        m_builtIn = quotes::BuiltInServers(m_state.options.quotes);
        news::loadServerDefinitions(m_dataDir, *m_newsServers, m_servers, m_builtIn, m_host);
    });
    runStep("LoadSources", [&] {
        m_sources.setPath(news::serverFilePath(m_dataDir, QStringLiteral("sources.json")));
        m_sources.refresh();
        for (const QString& problem : m_sources.file().problems) {
            m_services.StatusMessage(problem);
        }
    });
    runStep("ReadNews", [&] { m_news->ReadNews(); });
    m_state.lastNewsDay = m_clock.now().date().day();
    runStep("SetupComm", [&] { setUpSerial(); });
    UpdateSettings();
    // There is no version service to ask; CheckUpdates is read and kept for the options dialog.
    if (support::leadingNumber(m_state.options.proxy.port) == 0) {
        m_state.options.proxy.port = QStringLiteral("80");
    }
    m_starting = false;
}

void Application::setUpSerial()
{
    const auto& modem = m_state.options.modem;
    m_serial->setPort(modem.port);
    if (!m_state.prefs.modemDevice.isEmpty()) {
        m_serial->setDevice(m_state.prefs.modemDevice);
    }
    m_serial->setSettings(modem.settings);
    m_serial->setFlowControl(modem.flowControl);
}

namespace {

// Whether two setups differ in anything the portfolio file stores.
bool storedDiffers(const core::PortfolioTable& t1, const core::Options& o1, const core::PortfolioTable& t2,
                   const core::Options& o2)
{
    try {
        return core::PortfolioFile::encode(t1, o1) != core::PortfolioFile::encode(t2, o2);
    } catch (const support::VbError&) {
        return true; // the next save reports what cannot be written
    }
}

} // namespace

void Application::applyOptions(const core::Options& options)
{
    if (storedDiffers(m_state.portfolio, m_state.options, m_state.portfolio, options)) {
        m_state.fileModified = true;
    }
    m_state.options = options;
    core::rememberSecrets(m_state.options);
    m_builtIn = quotes::BuiltInServers(m_state.options.quotes);
    m_fetcher->setProxy(m_state.options.proxy);
    setUpSerial();
    UpdateSettings();
}

void Application::applyStoreValues(const QHash<QString, QString>& values)
{
    settings::SettingsStore store;
    QStringList failures = core::OptionRegistry::keepStoreTexts(values, store);
    if (!store.sync()) {
        failures << QStringLiteral("The settings could not be saved in ") + store.fileName();
    }
    if (!failures.isEmpty()) {
        m_host.messageBox(failures.join(u'\n'), support::MsgButtons::Ok, support::MsgIcon::Exclamation);
    }
    m_state.prefs = settings::readPreferences(store, m_dataDir);
    m_mailSettings->checkMail = m_state.prefs.checkMail;
    m_mailSettings->mailSizeKb = m_state.prefs.mailSize;
    m_fetcher->setMaxBodyBytes(qint64(m_state.prefs.maxPageKb) * 1024);
    setUpSerial();
    UpdateSettings();
}

void Application::applyPortfolio(const core::PortfolioTable& table)
{
    if (storedDiffers(m_state.portfolio, m_state.options, table, m_state.options)) {
        m_state.fileModified = true;
    }
    m_state.portfolio = table;
}

delivery::ManualPageResult Application::sendManualPage(const QString& text)
{
    m_cancel.clear();
    m_host.setBusy(true);
    const core::Options& o = m_state.options;
    delivery::ManualPage page(*m_modem, o, &m_state.mailBox);
    page.setPush(m_push.get());
    page.setSmtpSender([this, &o](const QString& message) {
        delivery::SmtpPager pager(m_services, o, *m_smtpSender, m_connection.get());
        const bool sent = pager.sendSmtpMessage(message);
        if (o.connection.type == kConnectionDialup) {
            m_connection->hangUp();
        }
        return delivery::ManualPageResult{
            sent ? QStringLiteral("SMTP: Message Sent") : QStringLiteral("Unable to send message"), sent, {}};
    });
    delivery::ManualPageResult result;
    runStep("SendPage", [&] { result = page.send(text); });
    if (m_cancel.isSet()) {
        m_services.StatusMessage(QStringLiteral("Operation Cancelled"));
    }
    m_host.setBusy(false);
    m_host.setStatusText(QString());
    return result;
}

delivery::ManualPageResult Application::sendTestPage(const core::Options& shown)
{
    m_cancel.clear();
    m_host.setBusy(true);
    // The test dials with the port and profile on screen; the saved ones are put back after.
    delivery::ModemLine modem(m_services, *m_serial, shown.modem);
    m_serial->setFlowControl(shown.modem.flowControl);
    delivery::PageTable table;
    table.pages << delivery::ManualPage::testPageText(shown);
    delivery::NumericPager pager(modem, shown);
    bool sent = false;
    runStep("SendTestPage", [&] { sent = pager.SendDigitalPage(table); });
    setUpSerial();
    m_host.setBusy(false);
    m_host.setStatusText(QString());
    return {pager.outcomes().isEmpty() ? QString() : pager.outcomes().constLast(), sent, {}};
}

QString Application::testConnection(const core::ConnectionOptions& shown)
{
    m_cancel.clear();
    m_host.setBusy(true);
    bool ok = false;
    runStep("RASDial", [&] {
        net::DialupConnection probe(m_services, shown);
        ok = probe.connect();
        // Only a link the test itself dialled is closed again; Direct and External Dialer
        // links are not the program's to close.
        if (ok && shown.type == kConnectionDialup) {
            probe.hangUp();
        }
    });
    if (!ok) {
        m_services.StatusMessage(QStringLiteral("Internet: Connection was not established..."));
    }
    m_host.setBusy(false);
    m_host.setStatusText(QString());
    return ok ? QStringLiteral("Successful Connection!") : QStringLiteral("Failed to Connect...");
}

QString Application::newsPageUrl(const QString& ticker) const
{
    return news::newsPageUrl(m_state.portfolio, m_state.options.quotes, m_builtIn, *m_newsServers, ticker);
}

std::optional<float> Application::lastPrice(const QString& ticker) const
{
    for (const core::Quotes* set : {&m_stockQuotes, &m_optionQuotes}) {
        for (const auto& q : *set) {
            if (q->ticker().compare(ticker.trimmed(), Qt::CaseInsensitive) == 0) {
                // "n/a" and an empty price are no price at all, not a price of 0.
                const QString last = q->last();
                if (last.isEmpty() || last == QLatin1String("n/a")) {
                    return std::nullopt;
                }
                return q->lastValue();
            }
        }
    }
    return std::nullopt;
}

void Application::mnuNew()
{
    m_state.menusEnabled = false;
    m_state.currentFile.clear();
    m_state.caption = QStringLiteral("Kestrova");
    m_state.portfolio.count = 0;
    m_state.fileModified = true;
    // A new setup starts empty: no quotes of the securities that were just dropped, and
    // neither paging nor the schedule running for a setup that has none yet.
    m_stockQuotes.Clear();
    m_optionQuotes.Clear();
    m_state.quotesAvailable = false;
    m_state.options.paging.enabled = false;
    m_state.options.schedule.enabled = false;
    UpdateSettings();
}

QString Application::setupHint() const
{
    if (!m_state.menusEnabled) {
        return QStringLiteral("Save your setup with File \u25B8 Save As\u2026 to start");
    }
    if (m_state.portfolio.count == 0) {
        return QStringLiteral("Add the securities to watch with Edit \u25B8 Portfolio\u2026");
    }
    return {};
}

bool Application::openFile(const QString& path)
{
    // Read into copies: a damaged file must not leave half of itself in the setup in use.
    auto portfolio = std::make_unique<core::PortfolioTable>(m_state.portfolio);
    auto options = std::make_unique<core::Options>(m_state.options);
    const core::FileStamp stamp = core::FileStamp::of(path);
    const core::PortfolioFileResult r = core::PortfolioFile::read(path, *portfolio, *options);
    if (!r.ok()) {
        m_host.messageBox(r.message, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        m_log.LogMessage(r.message);
        if (!r.olderVersion()) {
            return false;
        }
    }
    // Assigned, not replaced: the modem line, the mail watch and the connection keep
    // references into the options.
    m_state.portfolio = *portfolio;
    m_state.options = *options;
    core::rememberSecrets(m_state.options);
    m_state.currentFile = path;
    m_fileStamp = stamp;
    m_state.caption = QStringLiteral("Kestrova - ") + path;
    m_state.menusEnabled = true;
    m_state.fileModified = false;
    m_builtIn = quotes::BuiltInServers(m_state.options.quotes);
    m_fetcher->setProxy(m_state.options.proxy);
    setUpSerial();
    UpdateSettings();
    return true;
}

bool Application::save()
{
    if (m_state.currentFile.isEmpty()) {
        const QString name =
            m_host.saveFileName(QStringLiteral("Save File As"), kPortfolioFileFilter, QStringLiteral("pgr"));
        return !name.isEmpty() && saveAs(name);
    }
    const QString& file = m_state.currentFile;
    core::FileLock lock(core::portfolioLockPath(file));
    if (!lockPortfolioFile(lock, file)) {
        return false;
    }
    if (!core::FileStamp::of(file).sameContentAs(m_fileStamp) &&
        m_host.messageBox(core::portfolioChangedQuestion(file), support::MsgButtons::OkCancel,
                          support::MsgIcon::Exclamation) != support::MsgAnswer::Ok) {
        m_log.LogMessage(core::portfolioChangedRefusal(file));
        return false;
    }
    const core::PortfolioFileResult r = core::PortfolioFile::write(file, m_state.portfolio, m_state.options);
    if (!r.ok()) {
        m_host.messageBox(r.message, support::MsgButtons::Ok, support::MsgIcon::Critical);
        m_log.LogMessage(core::portfolioSaveFailure(r.message, file));
        return false;
    }
    m_fileStamp = core::FileStamp::of(file);
    m_state.fileModified = false;
    return true;
}

bool Application::writeAs(const QString& name, const core::PortfolioTable& portfolio, const core::Options& options)
{
    core::FileLock lock(core::portfolioLockPath(name));
    if (!lockPortfolioFile(lock, name)) {
        return false;
    }
    const core::PortfolioFileResult r = core::PortfolioFile::write(name, portfolio, options);
    if (!r.ok()) {
        m_host.messageBox(r.message, support::MsgButtons::Ok, support::MsgIcon::Critical);
        m_log.LogMessage(core::portfolioSaveFailure(r.message, name));
        return false;
    }
    m_fileStamp = core::FileStamp::of(name);
    return true;
}

namespace {

QString withPgrSuffix(const QString& path)
{
    return QFileInfo(path).suffix().isEmpty() ? path + QStringLiteral(".pgr") : path;
}

} // namespace

bool Application::saveAs(const QString& path)
{
    if (!saveAsQuietly(path)) {
        return false;
    }
    const QString& name = m_state.currentFile;
    if (m_host.messageBox(QStringLiteral("Do you want this to be your startup file?"), support::MsgButtons::YesNo,
                          support::MsgIcon::Question) == support::MsgAnswer::Yes) {
        settings::SettingsStore store;
        store.save(settings::kSettingsSection, QStringLiteral("DefaultFile"), name);
        m_state.prefs.defaultFile = name;
    }
    return true;
}

bool Application::saveAsQuietly(const QString& path)
{
    const QString name = withPgrSuffix(path);
    if (!writeAs(name, m_state.portfolio, m_state.options)) {
        return false;
    }
    m_state.currentFile = name;
    m_state.caption = QStringLiteral("Kestrova - ") + name;
    m_state.fileModified = false;
    // The setup has a file now, as after opening one: a new user who started with none
    // reaches the portfolio, paging and settings menus this way.
    m_state.menusEnabled = true;
    return true;
}

bool Application::reloadIfChangedOnDisk()
{
    if (!m_followFileOnDisk || m_updating || m_state.fileModified || m_state.currentFile.isEmpty()) {
        return false;
    }
    const core::FileStamp onDisk = core::FileStamp::of(m_state.currentFile);
    if (!onDisk.exists || onDisk.sameContentAs(m_fileStamp) || onDisk.sameContentAs(m_unreadableStamp)) {
        return false;
    }
    m_services.StatusMessage(QStringLiteral("The portfolio file ") + m_state.currentFile +
                             QStringLiteral(" was changed by another program; it is read again"));
    if (openFile(m_state.currentFile)) {
        m_unreadableStamp = {};
        return true;
    }
    // The setup read before stays in force; the same damaged file is not reported every minute.
    m_unreadableStamp = onDisk;
    return false;
}

bool Application::lockPortfolioFile(core::FileLock& lock, const QString& file)
{
    if (!lock.acquire(core::kPortfolioLockWaitMs)) {
        const QString message = core::portfolioLockMessage(file, lock);
        m_host.messageBox(message, support::MsgButtons::Ok, support::MsgIcon::Critical);
        m_log.LogMessage(message);
        return false;
    }
    if (!lock.tookOver().isEmpty()) {
        m_log.LogMessage(lock.tookOver());
    }
    return true;
}

core::Options Application::freshOptions() const
{
    core::Options o;
    setStartDefaults(o);
    return o;
}

QString Application::suggestedSetupFile() const
{
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (folder.isEmpty()) {
        folder = QDir::homePath();
    }
    const QDir dir(folder);
    QString name = dir.filePath(QStringLiteral("Kestrova.pgr"));
    for (int n = 2; QFileInfo::exists(name); ++n) {
        name = dir.filePath(QStringLiteral("Kestrova %1.pgr").arg(n));
    }
    return name;
}

bool Application::finishSetup(const core::PortfolioTable& portfolio, const core::Options& options, const QString& path)
{
    core::Options o = options;
    o.paging.enabled = true;
    o.schedule.enabled = true;
    const QString name = withPgrSuffix(path);
    // The documents folder of a fresh account may not exist yet.
    QDir().mkpath(QFileInfo(name).absolutePath());
    if (!writeAs(name, portfolio, o)) {
        return false;
    }
    // Assigned, not replaced: the modem line, the mail watch and the connection keep
    // references into the options.
    m_state.portfolio = portfolio;
    m_state.options = o;
    m_state.currentFile = name;
    m_state.caption = QStringLiteral("Kestrova - ") + name;
    m_state.fileModified = false;
    m_state.menusEnabled = true;
    settings::SettingsStore store;
    store.save(settings::kSettingsSection, QStringLiteral("DefaultFile"), name);
    store.sync();
    m_state.prefs.defaultFile = name;
    m_builtIn = quotes::BuiltInServers(m_state.options.quotes);
    m_fetcher->setProxy(m_state.options.proxy);
    setUpSerial();
    UpdateSettings();
    m_services.StatusMessage(QStringLiteral("New setup saved as ") + name);
    return true;
}

std::vector<RouteTest> Application::sendRouteTests(const core::Options& shown)
{
    m_cancel.clear();
    m_host.setBusy(true);
    std::vector<RouteTest> out;
    const QString text = QStringLiteral("Kestrova test: this is how your alarms will arrive.");
    if (shown.push.enabled) {
        delivery::PushNotifier push(m_services, shown.push);
        RouteTest t{QStringLiteral("Push"), false, {}};
        runStep("SendTestPush", [&] { t.sent = push.notify(text, delivery::PushKind::Manual); });
        t.text = t.sent ? QStringLiteral("Sent \u2014 check your phone") : push.lastOutcome();
        out.push_back(t);
    }
    if (shown.smtp.enabled && !m_cancel.isSet()) {
        RouteTest t{QStringLiteral("E-mail"), false, {}};
        runStep("SendTestMail", [&] {
            delivery::SmtpMail mail = delivery::smtpMailFor(shown.smtp);
            mail.body = text;
            mail.date = m_clock.now();
            // The pager is only the listener that echoes the server's replies to the terminal.
            delivery::SmtpPager echo(m_services, shown, *m_smtpSender);
            t.sent = m_smtpSender->send(mail, &echo) == 0;
            t.text = t.sent ? QStringLiteral("Sent \u2014 check your mailbox") : m_smtpSender->lastFailure();
        });
        out.push_back(t);
    }
    for (RouteTest& t : out) {
        if (!t.sent && t.text.isEmpty()) {
            t.text = m_cancel.isSet() ? QStringLiteral("Cancelled") : QStringLiteral("Not sent");
        }
    }
    m_host.setBusy(false);
    m_host.setStatusText(QString());
    return out;
}

quotes::LookupSetup Application::lookupSetup(const core::Options* shown)
{
    const core::Options& o = shown ? *shown : m_state.options;
    // An edited sources.json counts at once, as it does for the next update.
    if (m_sources.refresh()) {
        for (const QString& problem : m_sources.file().problems) {
            m_services.StatusMessage(problem);
        }
    }
    m_health.load(sourceHealthPath());
    return quotes::makeLookupSetup(m_sources.file(), o, m_servers, sourceKey, &m_health, m_clock.now(),
                                   m_state.prefs.hostConnections);
}

void Application::startMinuteCycle(int intervalMs)
{
    if (m_state.options.schedule.enabled) {
        ownsSchedule();
    }
    m_cycle->start(intervalMs);
}

bool Application::ownsSchedule()
{
    if (!m_scheduleLock) {
        m_scheduleLock = std::make_unique<core::FileLock>(QDir(m_dataDir).filePath(QStringLiteral("schedule.lock")));
    }
    if (m_scheduleLock->acquire(0)) {
        if (!m_scheduleLock->tookOver().isEmpty()) {
            m_services.StatusMessage(m_scheduleLock->tookOver());
        }
        if (m_scheduleHolder) {
            m_scheduleHolder.reset();
            m_services.StatusMessage(QStringLiteral("The schedule now runs in this process"));
        }
        return true;
    }
    if (!m_scheduleLock->heldElsewhere()) {
        // No lock can be made here (a read-only folder): nobody else can hold one either.
        return true;
    }
    // A holder that has not written its name yet is still another process: said all the same.
    QString who = m_scheduleLock->holder();
    if (who.isEmpty()) {
        who = QStringLiteral("not named in ") + m_scheduleLock->path();
    }
    if (who != m_scheduleHolder) {
        m_scheduleHolder = who;
        m_services.StatusMessage(QStringLiteral("The schedule runs in another process (") + who +
                                 QStringLiteral("); this one runs without it"));
    }
    return false;
}

bool Application::queryExit()
{
    m_state.exitCancelled = !offerSave(QStringLiteral("Save File Before Exiting?"));
    return !m_state.exitCancelled;
}

bool Application::offerSave(const QString& question)
{
    if (!m_state.fileModified) {
        return true;
    }
    switch (m_host.messageBox(question, support::MsgButtons::YesNoCancel, support::MsgIcon::Question)) {
    case support::MsgAnswer::Yes: {
        // Without a file the save dialog chooses one; this is no time to ask about the
        // startup file as Save As does. A save that fails, or a dialog cancelled, keeps
        // everything as it is: going on would lose the changes.
        bool saved = false;
        if (m_state.currentFile.isEmpty()) {
            const QString name =
                m_host.saveFileName(QStringLiteral("Save File As"), kPortfolioFileFilter, QStringLiteral("pgr"));
            saved = !name.isEmpty() && saveAsQuietly(name);
        } else {
            saved = save();
        }
        return saved;
    }
    case support::MsgAnswer::No:
        return true;
    default:
        return false;
    }
}

void Application::UpdateSettings()
{
    const core::Options& o = m_state.options;
    ConfigLabels& l = m_state.labels;
    const bool internet = !o.modem.quoteService;

    if (!o.paging.enabled) {
        l.paging = QStringLiteral("None");
    } else {
        l.paging = o.smtp.enabled       ? QStringLiteral("SMTP Paging")
                   : hasPagerService(o) ? QStringLiteral("Direct Dial")
                   : o.push.enabled     ? QStringLiteral("Push")
                                        : QStringLiteral("Desktop Only");
    }

    if (internet) {
        switch (o.connection.type) {
        case kConnectionDirect:
            l.connection = QStringLiteral("Internet: Direct");
            break;
        case kConnectionExternal:
            l.connection = QStringLiteral("Internet: External Dialer");
            break;
        default:
            l.connection = QStringLiteral("Internet: ") + o.connection.entry;
            break;
        }
    } else {
        l.connection = QStringLiteral("Modem: COM") + QString::number(o.modem.port) + u':' + o.modem.settings;
    }

    if (!m_state.prefs.checkMail) {
        l.email = QStringLiteral("Not checked");
    } else if (!m_state.prefs.getMail || !internet) {
        l.email = QStringLiteral("Notify Only");
    } else if (o.paging.enabled && o.mail.pageHeaders) {
        l.email = QStringLiteral("Download, Page MSG Header");
    } else if (o.paging.enabled) {
        l.email = QStringLiteral("Download and Notify");
    } else {
        l.email = QStringLiteral("Download Messages");
    }

    if (o.quotes.fastest && internet) {
        l.server = QStringLiteral("(Fastest)");
    } else {
        const int i = std::clamp<int>(o.quotes.server, 0, quotes::BuiltInServers::kCount - 1);
        l.server = m_builtIn.at(i).name;
    }
}

void Application::runStep(const char* name, const std::function<void()>& step)
{
    // Each step traps its own failure so that the steps after it still run.
    QString failure;
    try {
        step();
        return;
    } catch (const support::VbError& e) {
        failure = e.description();
    } catch (const std::exception& e) {
        failure = QString::fromUtf8(e.what());
    }
    const QString line = QString::fromLatin1(name) + QStringLiteral(":: ") + failure;
    if (m_starting) {
        m_services.StatusMessage(line);
    } else {
        m_log.LogMessage(line);
    }
}

void Application::checkMail()
{
    m_mailSettings->checkMail = m_state.prefs.checkMail;
    m_mailSettings->mailSizeKb = m_state.prefs.mailSize;
    m_mailWatch->checkMail(m_state.prefs.getMail);
}

int Application::newMessages(qint16 previousCount) const
{
    const core::MailBox& box = m_state.mailBox;
    if (!box.mailWaiting) {
        return 0;
    }
    // Downloaded headers say which messages are new; without them only a grown count does.
    int fresh = 0;
    for (int n = 1; n <= std::min<int>(box.messageCount, core::MailBox::kMaxRecords); ++n) {
        fresh += box.records[static_cast<size_t>(n)].isNew ? 1 : 0;
    }
    return fresh > 0 ? fresh : std::max(0, box.messageCount - previousCount);
}

int Application::checkMailNow()
{
    if (m_updating) {
        return 0;
    }
    m_updating = true;
    m_cancel.clear();
    m_host.setBusy(true);
    int fresh = 0;
    if (connectAndReport()) {
        const qint16 before = m_state.mailBox.messageCount;
        runStep("CheckMail", [&] {
            m_mailSettings->checkMail = true;
            m_mailSettings->mailSizeKb = m_state.prefs.mailSize;
            m_mailWatch->checkMail(m_state.prefs.getMail);
        });
        fresh = newMessages(before);
    }
    m_host.setBusy(false);
    m_host.setStatusText(QString());
    m_updating = false;
    return fresh;
}

bool Application::connectAndReport()
{
    bool online = false;
    runStep("Connect", [&] { online = m_connection->connect(); });
    m_services.StatusMessage(online ? QStringLiteral("Internet: Connection established...")
                                    : QStringLiteral("Internet: Connection was not established..."));
    return online;
}

void Application::checkForNewerVersion()
{
    m_host.messageBox(kNoUpdateServer, support::MsgButtons::Ok, support::MsgIcon::Information);
}

void Application::updateServerFiles()
{
    m_host.messageBox(kNoUpdateServer, support::MsgButtons::Ok, support::MsgIcon::Information);
}

QString Application::lastFetchUrl() const
{
    return quotes::CurlFetcher::redactUrl(m_fetcher->lastUrl());
}

QString Application::lastFetchPage() const
{
    return support::redactSecrets(m_fetcher->lastPage());
}

QString Application::diagnostics() const
{
    settings::SettingsStore store;
    const auto& modem = m_state.options.modem;
    const QString device = !m_state.prefs.modemDevice.isEmpty()
                               ? m_state.prefs.modemDevice
                               : QStringLiteral("/dev/ttyS") + QString::number(std::max(0, modem.port - 1));
    QString text;
    QTextStream out(&text);
    out << "Kestrova " << KESTROVA_VERSION << '\n'
        << "Qt " << qVersion() << ", " << quotes::CurlFetcher::libraryVersion() << "\n\n"
        << "Data directory: " << QDir::toNativeSeparators(m_dataDir) << '\n'
        << "Activity log: " << QDir::toNativeSeparators(m_log.fullPath()) << '\n'
        << "Settings file: " << QDir::toNativeSeparators(store.fileName()) << '\n'
        << "Secrets: " << secrets::SecretStore(&store).where() << '\n'
        << "Portfolio file: "
        << (m_state.currentFile.isEmpty() ? QStringLiteral("(none)") : QDir::toNativeSeparators(m_state.currentFile))
        << '\n'
        << "Serial device: COM" << modem.port << " -> " << device << " (" << modem.settings << ")\n\n"
        << "Last errors in the activity log:\n";
    const QStringList errors = lastLogErrors(m_log.fullPath(), kDiagnosticErrors);
    if (errors.isEmpty()) {
        out << "  (none)\n";
    }
    for (const QString& e : errors) {
        out << "  " << e << '\n';
    }
    return text;
}

QString Application::composePageText(bool smtpRoute, bool includeAll)
{
    const core::Options& o = m_state.options;
    QString quotesText =
        m_stockQuotes.PageMessageString(o.paging.layout, includeAll, o.alarms.select, o.alarms.selectMode);
    const QString optionText =
        m_optionQuotes.PageMessageString(o.paging.layout, includeAll, o.alarms.select, o.alarms.selectMode);
    if (!quotesText.isEmpty() && !optionText.isEmpty()) {
        quotesText += QStringLiteral(", ");
    }
    quotesText += optionText;
    // The market text carries its own trailing ", " after every row.
    QString text = o.quotes.marketSummary ? quotes::MarketSummaryPageText(m_state.market, o.quotes) : QString();
    if (quotesText.isEmpty()) {
        text = QStringLiteral("Quotes unavailable...");
    } else {
        text += quotesText;
    }
    if (m_state.mailBox.mailWaiting) {
        text = mail::MailWatch::addEmailMarker(text, m_state.mailBox, o.mail);
    }
    if (o.paging.pageNews && o.news.retrieve) {
        int marked = 0;
        text += (smtpRoute ? QStringLiteral("\n") : QStringLiteral("\r\n")) +
                m_news->PageMessageString(o.news.maxStories, m_stockQuotes, &marked);
        // news.dat was written by the retrieval, before these stories were paged; without
        // the marks the next start (or the next one-shot update) pages the same headlines.
        if (marked > 0 && !m_news->WriteNews()) {
            m_log.LogMessage(QStringLiteral("WriteNews:: Path/File access error (") + m_news->fileName() + u')');
        }
    }
    return text;
}

QString Application::sourceHealthPath() const
{
    return QDir(m_dataDir).filePath(QStringLiteral("sources.state"));
}

void Application::saveSourceHealth()
{
    const QString path = sourceHealthPath();
    if (const support::SaveResult saved = m_health.save(path, m_clock.today()); !saved) {
        m_services.Failure(quotes::SourceHealth::saveFailure(path, saved));
    }
}

void Application::waitForLine()
{
    // Another page may still hold the modem (a send started from a timer during a yield).
    m_host.setStatusText(QStringLiteral("Waiting to Dial Pager"));
    while (portOpen() && !m_cancel.isSet()) {
        m_host.yield(100);
    }
}

QString Application::historyPath() const
{
    return QDir(m_dataDir).filePath(history::HistoryStore::defaultFileName());
}

bool Application::mirrorPage(const QString& text, delivery::PushKind kind)
{
    return m_push->notify(text, kind);
}

void Application::mirrorMailHeaders()
{
    for (const QString& text : mailHeaderTexts(m_state.options, m_state.mailBox)) {
        mirrorPage(text, delivery::PushKind::Mail);
    }
}

bool Application::deliverText(const QString& text, bool waitFirst, delivery::PushKind kind)
{
    // The page goes first and the push after it: a slow or dead push server can hold up
    // only what follows the page, never the page itself.
    const core::Options& o = m_state.options;
    bool sent = false;
    if (o.smtp.enabled) {
        delivery::SmtpPager pager(m_services, o, *m_smtpSender, m_connection.get());
        sent = pager.sendSmtpMessage(text);
        mirrorPage(text, kind);
        return sent;
    }
    if (!hasPagerService(o)) {
        // No paging service to dial: the push route, when there is one, is the page.
        return mirrorPage(text, kind);
    }
    if (waitFirst && o.gateFlag == 0) {
        waitForLine();
    }
    delivery::TapPager pager(*m_modem, o, &m_state.mailBox);
    pager.SendPage(text);
    sent = pager.result() == 0;
    mirrorPage(text, kind);
    if (o.paging.forwardMail) {
        // The same call carried the new mail's headers.
        mirrorMailHeaders();
    }
    return sent;
}

void Application::update(bool pagingEnabled, bool marketMoment)
{
    if (m_updating) {
        return; // never two updates at once
    }
    m_updating = true;
    m_cancel.clear();
    m_failuresShown.clear();
    m_outcome = {};
    if (m_observer.updateStarted) {
        m_observer.updateStarted();
    }
    m_host.setBusy(true);
    const core::Options& o = m_state.options;
    const qint16 mailBefore = m_state.mailBox.messageCount;
    bool mailChecked = false;
    bool pageSent = false;

    runStep("Update", [&] {
        const int day = m_clock.now().date().day();
        if (day != m_state.lastNewsDay) {
            m_news->UpdateNewsOut();
            m_state.lastNewsDay = day;
        }
    });

    bool online = false;
    bool cycleCompleted = false;
    QDateTime fetchedAt;
    QStringList healthWarnings;
    runStep("Update", [&] { online = m_connection->connect(); });
    m_services.StatusMessage(online ? QStringLiteral("Internet: Connection established...")
                                    : QStringLiteral("Internet: Connection was not established..."));
    if (!online) {
        // Last update's quotes must not go out as if they were fresh: without a connection
        // the page says "Quotes unavailable...".
        m_stockQuotes.Clear();
        m_optionQuotes.Clear();
        m_state.quotesAvailable = false;
    }

    // Fresh server files would come from the maker's FTP server, which this program has
    // never had; the switch is kept in the portfolio file and does nothing here.

    if (online) {
        // Without a POP server there is no mailbox to look into, only an error to log.
        if (m_state.prefs.checkMail && !o.mail.server.trimmed().isEmpty() && !m_cancel.isSet()) {
            runStep("CheckMail", [&] { checkMail(); });
            mailChecked = true;
            if (o.smtp.enabled && o.mail.pageHeaders && pagingEnabled && !m_cancel.isSet()) {
                runStep("SendEmail", [&] {
                    delivery::SmtpPager pager(m_services, o, *m_smtpSender, m_connection.get());
                    pager.sendEmailMessages(m_state.mailBox);
                    if (o.paging.forwardMail) {
                        mirrorMailHeaders();
                    }
                });
            }
        }
        // An edited sources.json is read again before the market summary and the quotes,
        // which ask the same sources in the same order.
        runStep("GetQuotes", [&] {
            if (m_sources.refresh()) {
                for (const QString& problem : m_sources.file().problems) {
                    m_services.StatusMessage(problem);
                }
            }
            m_health.load(sourceHealthPath());
        });
        const quotes::SourceSetup sources{m_sources.file(), quotes::effectiveOrder(o.sources.order, m_sources.file()),
                                          sourceKey, &m_health};
        if (o.quotes.marketSummary && !m_cancel.isSet()) {
            runStep("GetMarketData", [&] {
                quotes::GetMarketData(m_state.market, *m_fetcher, o.quotes.marketUrl, m_services, &sources);
            });
        }
        if (o.quotes.fastest && !m_cancel.isSet() && o.gateFlag == 0) {
            runStep("FastestServer", [&] {
                const QString host = quotes::FastestServer(
                    true, m_builtIn, m_services,
                    [this](const QString& h) { return quotes::ResponseTime(h, 80, 3000, m_services); },
                    m_state.options.quotes.server);
                m_services.StatusMessage(QStringLiteral("Connecting to: ") + host);
                UpdateSettings();
            });
        }
        if (!m_cancel.isSet()) {
            runStep("GetQuotes", [&] {
                fetchedAt = m_clock.now();
                quotes::CycleContext cycle{m_services, *m_fetcher, m_builtIn, m_servers, o, m_state.portfolio, {}};
                cycle.sources = &sources;
                cycle.stop = &m_state.stop;
                cycle.retrieveNews = [this, &o] {
                    if (o.news.retrieve) {
                        news::RetrieveNews(m_state.portfolio, o.quotes, m_builtIn, *m_newsServers, *m_fetcher, *m_news,
                                           m_services, o.news.purgeDays);
                    }
                };
                const quotes::CycleResult r = quotes::GetQuotes(cycle, m_stockQuotes, m_optionQuotes);
                m_state.quotesAvailable = r.quotesAvailable;
                cycleCompleted = r.completed;
                healthWarnings = r.healthWarnings;
                saveSourceHealth();
                if (o.news.retrieve) {
                    news::markFreshNews(m_stockQuotes, *m_news);
                }
            });
        }
    }

    if (pagingEnabled && !m_cancel.isSet()) {
        if (o.paging.numeric) {
            runStep("PageDigital", [&] {
                const QString digits = m_stockQuotes.PageDigitalString(o.alarms.select, o.alarms.selectMode,
                                                                       o.paging.numericPause, o.paging.numericPrefix) +
                                       m_optionQuotes.PageDigitalString(o.alarms.select, o.alarms.selectMode,
                                                                        o.paging.numericPause, o.paging.numericPrefix);
                if (o.gateFlag == 0) {
                    waitForLine();
                }
                const delivery::PageTable pages = delivery::splitPages(digits, o.paging.maxLength, false);
                delivery::NumericPager pager(*m_modem, o);
                pageSent = pager.SendDigitalPage(pages);
                mirrorPage(digits, anyAlarm(m_stockQuotes) || anyAlarm(m_optionQuotes) ? delivery::PushKind::Alarm
                                                                                       : delivery::PushKind::Quotes);
            });
        } else {
            runStep("Page", [&] {
                auto kindOfPage = [this] {
                    // Composing the text is what tells whether it carries an alarm mark.
                    return m_stockQuotes.LimitPage() || m_optionQuotes.LimitPage() ? delivery::PushKind::Alarm
                                                                                   : delivery::PushKind::Quotes;
                };
                if (!o.alarms.select) {
                    const QString text = composePageText(o.smtp.enabled);
                    pageSent = deliverText(text, false, kindOfPage());
                    return;
                }
                // Alarm-only selection: the page holds the selected members (every member at a
                // market moment, which always pages) and goes out only when it is due. Composing
                // it is also what sets LimitPage.
                const QString text = composePageText(o.smtp.enabled, marketMoment);
                bool due = false;
                if (o.alarms.mode == 2) {
                    const bool stockNew = m_stockQuotes.NewLimitPage();
                    const bool optionNew = m_optionQuotes.NewLimitPage();
                    due = stockNew || optionNew;
                } else {
                    due = m_stockQuotes.LimitPage() || m_optionQuotes.LimitPage();
                }
                if (due || marketMoment) {
                    pageSent = deliverText(text, true, kindOfPage());
                }
            });
        }
    }

    runStep("History", [&] {
        m_history->recordCycle(
            cycleCompleted, m_stockQuotes, m_optionQuotes, fetchedAt,
            [this](const core::Quote& q) { return quotes::sourceName(q, m_builtIn, m_state.options.quotes.server); },
            pageSent);
    });

    // A quote source that seems to have changed its format is worth a page, but not more
    // than one a day, and only to a pager that shows text.
    if (pagingEnabled && o.sources.pageHealth && !healthWarnings.isEmpty() && !o.paging.numeric &&
        !m_health.pagedOn(m_clock.today()) && !m_cancel.isSet()) {
        runStep("PageSourceHealth", [&] {
            deliverText(healthWarnings.join(QStringLiteral("; ")), true, delivery::PushKind::Manual);
            m_health.setPaged(m_clock.today());
            saveSourceHealth();
        });
    }

    if (o.connection.hangUpAfterUpdate && o.connection.type == kConnectionDialup) {
        runStep("RASHangup", [&] { m_connection->hangUp(); });
    }
    if (m_cancel.isSet()) {
        m_services.StatusMessage(QStringLiteral("Operation Cancelled"));
    }
    m_host.setBusy(false);
    m_host.setStatusText(QString());
    m_outcome.cancelled = m_cancel.isSet();
    m_outcome.quotesRetrieved = m_state.quotesAvailable;
    m_outcome.alarms = anyAlarm(m_stockQuotes) || anyAlarm(m_optionQuotes);
    m_outcome.alarmPageSent = pageSent && m_outcome.alarms;
    m_outcome.newMessages = mailChecked ? newMessages(mailBefore) : 0;
    m_updating = false;
    if (m_observer.updateFinished) {
        m_observer.updateFinished(m_outcome);
    }
}

} // namespace kestrova::app
