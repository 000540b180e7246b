#pragma once

#include "core/Options.h"
#include "core/PortfolioTable.h"

#include <QHash>
#include <QWizard>

namespace kestrova::app {
class Application;
}

namespace kestrova::gui {

class GuiHost;

// The set-up assistant a new user meets first: what to watch (each symbol checked with
// the quote sources as it is typed, with optional alarm limits), how to be told (a push to
// the phone, an e-mail, the desktop's own notifications, or a pager set up in the full
// options) with a real test notification, and when to check (the market's hours in the
// user's time zone, or times of their own). It works on copies and writes nothing until
// Finish, which saves the setup to a file, makes it the startup file and turns paging and
// the schedule on; Cancel leaves everything as it was.
class SetupWizard : public QWizard
{
    Q_OBJECT
public:
    enum PageId { WatchPageId, NotifyPageId, WhenPageId };

    SetupWizard(QWidget* parent, app::Application& app, GuiHost& host);

    app::Application& application() { return m_app; }
    GuiHost& host() { return m_host; }
    // The setup the pages fill in; committed by Finish.
    core::PortfolioTable& portfolio() { return m_portfolio; }
    core::Options& options() { return m_options; }
    // Preferences changed in the full options (the pager route), stored by Finish.
    QHash<QString, QString>& storeValues() { return m_store; }

    // The last page's commit: saves and applies the setup; false (the user told why) when
    // the file cannot be written.
    bool commit(const QString& file);

Q_SIGNALS:
    // "Send a test" with no route ticked: the desktop's own notification is the test.
    void desktopTestRequested();

private:
    app::Application& m_app;
    GuiHost& m_host;
    core::PortfolioTable m_portfolio;
    core::Options m_options;
    QHash<QString, QString> m_store;
};

} // namespace kestrova::gui
