#pragma once

#include "TestUtil.h"
#include "app/Application.h"
#include "core/OptionRegistry.h"
#include "core/PortfolioFile.h"
#include "gui/DemoSession.h"
#include "gui/GuiHost.h"
#include "gui/MainWindow.h"
#include "support/Clock.h"

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace kestrova::testing {

// The settings store emptied, then filled with "Key=Value" preferences.
inline void resetSettings(const QStringList& prefs)
{
    QSettings store(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Kestrova"), QStringLiteral("Kestrova"));
    store.clear();
    for (const QString& p : prefs) {
        const qsizetype eq = p.indexOf(u'=');
        store.setValue(QStringLiteral("Settings/") + p.left(eq), p.mid(eq + 1));
    }
    store.sync();
}

// A portfolio file with the options named as "name=value" (option registry names) set.
inline QString writePortfolio(const QString& path, const QStringList& options, const QStringList& tickers = {})
{
    core::Options o;
    core::PortfolioTable table;
    for (const QString& item : options) {
        const qsizetype eq = item.indexOf(u'=');
        const core::OptionDef* def = core::OptionRegistry::find(item.left(eq));
        const QString refused = def ? core::OptionRegistry::assign(*def, o, item.mid(eq + 1)) : item;
        if (!refused.isEmpty()) {
            qFatal("bad test option %s", qPrintable(refused));
        }
    }
    for (const QString& t : tickers) {
        table.records[static_cast<size_t>(table.count)].ticker = t;
        table.count++;
    }
    const core::PortfolioFileResult r = core::PortfolioFile::write(path, table, o);
    if (!r.ok()) {
        qFatal("cannot write %s: %s", qPrintable(path), qPrintable(r.message));
    }
    return path;
}

// The desktop program as kestrova builds it, in a temporary data directory, with every
// box answered from the host's scripted queues.
struct DesktopRig
{
    // keepSettings: the store as someone else (the demo) has just set it up.
    explicit DesktopRig(const QStringList& prefs = {}, const QString& dataDir = {}, bool keepSettings = false)
    {
        if (!keepSettings) {
            resetSettings(prefs);
        }
        host.scripted = true;
        app = std::make_unique<app::Application>(clock, host, dataDir.isEmpty() ? dir.path() : dataDir);
        window = std::make_unique<gui::MainWindow>(*app, host);
    }
    QString path(const QString& name) const { return QDir(dir.path()).filePath(name); }
    // Status-list lines without their date stamps.
    QStringList statusMessages() const
    {
        QStringList out;
        for (const QString& line : host.statusListText().split(QStringLiteral("\r\n"), Qt::SkipEmptyParts)) {
            out << line.left(line.indexOf(QStringLiteral("   ")));
        }
        return out;
    }
    template <class T = QWidget> T* child(const char* name) const { return window->findChild<T*>(QLatin1String(name)); }

    QTemporaryDir dir;
    support::SystemClock clock;
    gui::GuiHost host;
    std::unique_ptr<app::Application> app;
    std::unique_ptr<gui::MainWindow> window;
};

// The desktop program on the offline demo, as the Demo menu opens it: the demo market and
// the simulated modem started (start), then the demo's portfolio open with its options (open).
// Between the two a test may change the demo's files or its modem's script.
struct DemoDesktop
{
    support::SystemClock clock;
    gui::DemoSession demo{clock};
    std::unique_ptr<DesktopRig> rig;
    QString why; // why the demo did not start

    DemoDesktop() { resetSettings({}); }
    bool start() { return demo.start(&why); }
    DesktopRig& open()
    {
        rig = std::make_unique<DesktopRig>(QStringList{}, demo.dataDir(), true);
        rig->window->startup(demo.portfolioFile());
        demo.configure(*rig->app);
        rig->window->refreshDisplay();
        return *rig;
    }
};

} // namespace kestrova::testing
