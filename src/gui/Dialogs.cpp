#include "gui/Dialogs.h"

#include "app/Application.h"
#include "gui/GuiHost.h"
#include "gui/MailViewer.h"
#include "gui/ModemDialog.h"
#include "gui/NewsViewer.h"
#include "gui/OptionsDialog.h"
#include "gui/PortfolioDialog.h"
#include "gui/QuoteViewer.h"
#include "gui/ScheduleDialog.h"
#include "gui/SendPageDialog.h"

#include <QWidget>

namespace kestrova::gui {

Dialogs::Dialogs(QWidget* parent, app::Application& app, GuiHost& host)
    : QObject(parent), m_parent(parent), m_app(app), m_host(host)
{}

Dialogs::~Dialogs() = default;

bool Dialogs::portfolio()
{
    PortfolioDialog dlg(m_parent, m_app, m_host);
    return dlg.exec() == QDialog::Accepted;
}

bool Dialogs::options()
{
    OptionsDialog dlg(m_parent, m_app, m_host);
    return dlg.exec() == QDialog::Accepted;
}

bool Dialogs::schedule()
{
    ScheduleDialog dlg(m_parent, m_app, m_host);
    return dlg.exec() == QDialog::Accepted;
}

bool Dialogs::modem(bool nonInternet)
{
    core::Options edited = m_app.state().options;
    ModemDialog dlg(m_parent, m_host, edited, nonInternet);
    if (dlg.exec() != QDialog::Accepted) {
        return false;
    }
    m_app.applyOptions(edited);
    return true;
}

void Dialogs::sendPage()
{
    SendPageDialog dlg(m_parent, m_app, m_host);
    dlg.exec();
}

void Dialogs::quoteViewer()
{
    showViewer(m_quotes, m_app);
}

template <class T, class... Args> T* Dialogs::showViewer(QPointer<T>& slot, Args&&... args)
{
    // One window of each kind: asking again brings the open one to the front, restored.
    if (!slot) {
        slot = new T(m_parent, std::forward<Args>(args)...);
        slot->setAttribute(Qt::WA_DeleteOnClose);
    }
    slot->setWindowState(slot->windowState() & ~Qt::WindowMinimized);
    slot->show();
    slot->raise();
    slot->activateWindow();
    return slot;
}

void Dialogs::newsViewer()
{
    showViewer(m_news, m_app, m_host);
}

void Dialogs::mailViewer()
{
    showViewer(m_mail, m_app);
}

void Dialogs::refreshViewers()
{
    if (m_quotes) {
        m_quotes->refresh();
    }
    if (m_news) {
        m_news->refresh();
    }
    if (m_mail) {
        m_mail->refresh();
    }
}

void Dialogs::closeAll()
{
    for (QWidget* w : std::initializer_list<QWidget*>{m_quotes, m_news, m_mail}) {
        if (w) {
            w->close();
        }
    }
}

} // namespace kestrova::gui
