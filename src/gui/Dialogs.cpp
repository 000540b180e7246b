#include "gui/Dialogs.h"

#include "app/Application.h"
#include "gui/GuiHost.h"

#include <QWidget>

namespace kestrova::gui {

namespace {

void notYet(GuiHost& host, const QString& what)
{
    host.messageBox(what + QStringLiteral(" is not available yet in this version."), support::MsgButtons::Ok,
                    support::MsgIcon::Information);
}

} // namespace

Dialogs::Dialogs(QWidget* parent, app::Application& app, GuiHost& host)
    : QObject(parent), m_parent(parent), m_app(app), m_host(host)
{}

Dialogs::~Dialogs() = default;

bool Dialogs::portfolio()
{
    notYet(m_host, QStringLiteral("The portfolio editor"));
    return false;
}

bool Dialogs::options()
{
    notYet(m_host, QStringLiteral("The options dialog"));
    return false;
}

bool Dialogs::schedule()
{
    notYet(m_host, QStringLiteral("The schedule dialog"));
    return false;
}

bool Dialogs::modem(bool)
{
    notYet(m_host, QStringLiteral("The modem dialog"));
    return false;
}

void Dialogs::sendPage()
{
    notYet(m_host, QStringLiteral("The send-a-page dialog"));
}

void Dialogs::quoteViewer()
{
    notYet(m_host, QStringLiteral("The quote viewer"));
}

void Dialogs::newsViewer()
{
    notYet(m_host, QStringLiteral("The news viewer"));
}

void Dialogs::mailViewer()
{
    notYet(m_host, QStringLiteral("The mail viewer"));
}

void Dialogs::refreshViewers() {}

void Dialogs::closeAll() {}

} // namespace kestrova::gui
