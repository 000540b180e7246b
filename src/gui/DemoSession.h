#pragma once

#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace kestrova::app {
class Application;
}
namespace kestrova::sim {
class DemoMarketThread;
class ModemSimulator;
} // namespace kestrova::sim
namespace kestrova::support {
class Clock;
}

namespace kestrova::gui {

// The offline demo of the desktop program: a throw-away data and settings folder with the
// bundled demo portfolio, the demo market on loopback and the simulated modem with its TAP
// paging terminal on a pty. Nothing of the user's own setup is read or changed.
class DemoSession
{
public:
    explicit DemoSession(const support::Clock& clock);
    ~DemoSession();
    DemoSession(const DemoSession&) = delete;
    DemoSession& operator=(const DemoSession&) = delete;

    // Prepares the folders and starts both peers. Must run before anything reads the
    // settings store, since it moves the store into the temporary folder.
    bool start(QString* error);
    QString dataDir() const;
    QString portfolioFile() const;
    // After start-up: quotes from the demo market over a direct line, pages through the
    // simulated modem.
    void configure(app::Application& app) const;

    sim::DemoMarketThread& market() { return *m_market; }
    sim::ModemSimulator& modem() { return *m_modem; }

private:
    const support::Clock& m_clock;
    QTemporaryDir m_home;
    std::unique_ptr<sim::DemoMarketThread> m_market;
    std::unique_ptr<sim::ModemSimulator> m_modem;
};

} // namespace kestrova::gui
