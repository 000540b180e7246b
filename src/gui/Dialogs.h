#pragma once

#include <QObject>
#include <QPointer>

class QWidget;

namespace kestrova::app {
class Application;
}

namespace kestrova::gui {

class GuiHost;
class MailViewer;
class NewsViewer;
class QuoteViewer;

// Opens the program's dialogs and viewers for the main window. The main window only asks
// for a dialog by name; what each dialog edits and how it commits is the dialog's own
// business. A modal dialog returns true when it stored something, so the caller refreshes
// its labels and caption; the viewers are modeless and stay open beside the main window.
class Dialogs : public QObject
{
    Q_OBJECT
public:
    Dialogs(QWidget* parent, app::Application& app, GuiHost& host);
    ~Dialogs() override;

    bool portfolio();             // mnuPortfolio
    bool options();               // mnuOptions, mnuOptions2
    bool schedule();              // mnuSchedule
    bool modem(bool nonInternet); // "Modem Settings" / "Non-Internet Modem Settings"
    void sendPage();              // mnuSend
    void quoteViewer();           // mnuViewQuotes: restores the viewer if minimised
    void newsViewer();            // mnuViewNews
    void mailViewer();            // mnuviewMail, mnuMailViewer; the main window says "Mailbox is empty" itself

    // The quote sets, the news or the mail box changed (an update run ended): open
    // viewers show the new state.
    void refreshViewers();
    // Exit path: every other window is closed.
    void closeAll();

private:
    template <class T, class... Args> T* showViewer(QPointer<T>& slot, Args&&... args);

    QWidget* m_parent;
    app::Application& m_app;
    GuiHost& m_host;
    QPointer<QuoteViewer> m_quotes;
    QPointer<NewsViewer> m_news;
    QPointer<MailViewer> m_mail;
};

} // namespace kestrova::gui
