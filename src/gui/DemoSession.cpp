#include "gui/DemoSession.h"

#include "app/Application.h"
#include "news/ServerFiles.h"
#include "quotes/BuiltInServers.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"
#include "sim/DemoMarket.h"
#include "sim/ModemSimulator.h"
#include "support/Paths.h"
#include "support/PrivateFiles.h"

#include <QDir>
#include <QFile>

namespace kestrova::gui {

namespace {
// A fixed start for the price walk: every run of the demo shows the same alarms.
constexpr quint32 kWalkSeed = 7;
} // namespace

DemoSession::DemoSession(const support::Clock& clock) : m_clock(clock) {}

DemoSession::~DemoSession()
{
    if (m_market) {
        m_market->stop();
    }
}

QString DemoSession::dataDir() const
{
    return m_home.filePath(QStringLiteral("data"));
}

QString DemoSession::portfolioFile() const
{
    return QDir(dataDir()).filePath(QStringLiteral("DEMO.PGR"));
}

bool DemoSession::start(QString* error)
{
    auto fail = [error](const QString& why) {
        if (error) {
            *error = why;
        }
        return false;
    };
    if (!m_home.isValid()) {
        return fail(QStringLiteral("cannot create a temporary folder"));
    }
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(QStringLiteral("config"))));
    support::makePrivateDir(dataDir());
    const QString from = QDir(support::installedDataDir()).filePath(QStringLiteral("demo.pgr"));
    if (!QFile::copy(from, portfolioFile())) {
        return fail(QStringLiteral("cannot copy ") + from);
    }
    support::makePrivate(portfolioFile());

    m_market = std::make_unique<sim::DemoMarketThread>(m_clock, kWalkSeed);
    if (!m_market->start(0)) {
        return fail(QStringLiteral("the demo market could not listen on 127.0.0.1"));
    }
    m_modem = std::make_unique<sim::ModemSimulator>();
    if (!m_modem->isValid()) {
        return fail(QStringLiteral("no pty for the simulated modem: ") + m_modem->error());
    }
    news::installServerFiles(dataDir(), support::installedDataDir());
    news::retargetDemoMarket(dataDir(), m_market->port());
    settings::SettingsStore store;
    store.save(settings::kSettingsSection, QStringLiteral("ModemDevice"), m_modem->slavePath());
    store.save(settings::kSettingsSection, QStringLiteral("CheckMail"), QStringLiteral("0"));
    store.save(settings::kSettingsSection, QStringLiteral("DefaultFile"), portfolioFile());
    store.sync();
    return true;
}

void DemoSession::configure(app::Application& app) const
{
    core::Options& o = app.state().options;
    o.connection.type = 1;
    o.quotes.server = quotes::BuiltInServers::kDemoMarket;
    o.quotes.optionServer = quotes::BuiltInServers::kDemoMarket;
    o.quotes.fastest = false;
    // The demo is offline: the shipped failure order starts with sources on the Internet.
    // The demo market answers in their shapes, and its pages give what they leave (options).
    o.sources.order = QStringLiteral("Demo CSV,Demo JSON,servers.dat");
    o.quotes.marketSummary = true;
    o.quotes.marketUrl = m_market->baseUrl() + QStringLiteral("/cgi-bin/getquote.dll?ticker=csco");
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
    app.setUpSerial();
    app.UpdateSettings();
}

} // namespace kestrova::gui
