#pragma once

#include <QMainWindow>
#include <QPointer>

#include <functional>

class QAction;
class QCheckBox;
class QGroupBox;
class QLabel;
class QMenu;
class QPlainTextEdit;
class QSplitter;
class QSystemTrayIcon;
class QTableView;
class QTimer;
class QToolBar;

namespace kestrova::app {
class Application;
struct UpdateOutcome;
} // namespace kestrova::app

namespace kestrova::gui {

class Dialogs;
class GuiHost;
class PriceChart;
class QuoteTableModel;
class ResizingPane;
class TextWindow;

// frmMain: the quote table, the market summary, the status list, the configuration
// labels, the menus and toolbar from which every dialog is reached, the tray icon and the
// exit path. It holds no rules of its own: every command asks app::Application (or opens
// a dialog through gui::Dialogs) and then shows the state the engine left.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    MainWindow(app::Application& app, GuiHost& host, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Start-up: sizes the window, runs the engine's start-up (the command-line file wins
    // over DefaultFile), shows the flags and labels, and arms the minute timer.
    void startup(const QString& commandLineFile = {});

    app::Application& application() { return m_app; }
    GuiHost& host() { return m_host; }
    Dialogs& dialogs() { return *m_dialogs; }
    QuoteTableModel& quoteModel() { return *m_quoteModel; }
    QTableView* quoteTable() const { return m_quoteTable; }
    // The toolbar button of a key ("open", "update", ...).
    QAction* toolbarAction(const QString& key) const;
    // The ticker of the quote table's current row, empty when none.
    QString currentTicker() const;
    // Adds an entry to the quote table's context menu; it acts on currentTicker().
    void addQuoteAction(QAction* action);
    // The price history of a security in the chart window (one, reused); empty: none.
    void showPriceChart(const QString& ticker);
    PriceChart* priceChart() const;
    QSystemTrayIcon* trayIcon() const { return m_tray; }
    bool noticePending() const;
    // The installed HTML user guide that Help opens.
    static QString helpFile();

    // Whether start-up opens the set-up assistant when there is no setup to open (no
    // startup file, no file on the command line). The program itself sets it; tests that
    // start without a file and drive the menus leave it off.
    void setFirstRunAssistant(bool on) { m_firstRunAssistant = on; }

    // Whether minimising may hide the window into the notification area. Defaults to the
    // platform's answer; with no tray to come back from, the window only minimises.
    std::function<bool()> trayAvailable;

public Q_SLOTS:
    // Caption, labels, clock, menus, check boxes and market panel from the engine's state.
    void refreshDisplay();
    // The toolbar's "update": one unscheduled update with the paging-enabled flag.
    void runUpdate();
    // Something new (quotes, mail) waits for the user: the pager picture blinks until the
    // window is activated.
    void raiseNotice();
    void blinkTick();
    // The exit path (mnuExit, the window's close button): asks "Save File Before
    // Exiting?" when the file is modified; during an update run it cancels the run first
    // and asks once the run has ended.
    void requestExit();
    void restoreFromTray();
    // File > New Setup...: the set-up assistant; on Finish one update runs at once.
    void newSetup();

Q_SIGNALS:
    // The exit path has run to its end: the program may quit.
    void exitAccepted();
    // An update run has ended and the views show its result.
    void updateFinished();
    void quoteActivated(const QString& ticker);
    // A desktop notification went out (alarm page, new mail).
    void notified(const QString& title, const QString& message);

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QAction* addItem(QMenu* menu, const char* name, const QString& text, const std::function<void()>& run);
    void buildMenus();
    void buildToolbar();
    void buildCentral();
    void buildTray();

    void fileNew();
    void fileOpen();
    void fileSave();
    bool fileSaveAs();
    void setPagingEnabled(bool on);
    void setScheduleEnabled(bool on);
    void afterDialog(bool stored);
    void checkMailNow();
    void showRawPage();
    void showDiagnostics();
    void showAbout();
    void openHelp(const QString& anchor = {});
    void showTerminal();

    void onUpdateStarted();
    void onUpdateFinished(const app::UpdateOutcome& outcome);
    void setRunning(bool running);
    void refreshMarket();
    void showSetupHint();
    // The height the quote table needs for `rows` rows under its header.
    int quoteTableHeight(int rows) const;
    static constexpr int kLeastQuoteRows = 4;
    static constexpr int kComfortableQuoteRows = 8;
    void fitQuoteColumns();
    void notify(const QString& title, const QString& message);
    void stopNotice();
    void hideToTray();
    void shutdown();

    app::Application& m_app;
    GuiHost& m_host;
    Dialogs* m_dialogs = nullptr;
    QuoteTableModel* m_quoteModel = nullptr;

    QTableView* m_quoteTable = nullptr;
    QLabel* m_tableHint = nullptr;
    QMenu* m_quoteMenu = nullptr;
    QPlainTextEdit* m_status = nullptr;
    ResizingPane* m_statusPane = nullptr;
    QSplitter* m_splitter = nullptr;
    QToolBar* m_toolbar = nullptr;
    int m_toolbarLabelledWidth = 0; // the toolbar with every key's word under its icon
    QLabel* m_time = nullptr;
    QLabel* m_paging = nullptr;
    QLabel* m_connection = nullptr;
    QLabel* m_email = nullptr;
    QLabel* m_server = nullptr;
    QLabel* m_pager = nullptr;
    QGroupBox* m_market = nullptr;
    QLabel* m_marketLabels[6] = {};
    QWidget* m_wwwButtons = nullptr;
    QCheckBox* m_chkPaging = nullptr;
    QCheckBox* m_chkSchedule = nullptr;

    QMenu* m_mnuEdit = nullptr;
    QMenu* m_mnuPaging = nullptr;
    QMenu* m_mnuSettings = nullptr;
    QAction* m_enablePaging = nullptr;
    QAction* m_enableSchedule = nullptr;
    // Commands that would change the setup an update run is working with.
    QList<QAction*> m_lockedWhileRunning;

    QSystemTrayIcon* m_tray = nullptr;
    QTimer* m_minute = nullptr;
    QTimer* m_blink = nullptr;
    bool m_blinkPhase = false;
    bool m_closePending = false;
    bool m_columnsFitted = false;
    bool m_closed = false;
    bool m_firstRunAssistant = false;
    QPointer<TextWindow> m_rawPage;
    QPointer<TextWindow> m_diagnostics;
    QPointer<PriceChart> m_chart;
};

} // namespace kestrova::gui
