#include "gui/MainWindow.h"

#include "app/Application.h"
#include "core/Quote.h"
#include "gui/Dialogs.h"
#include "gui/GuiHost.h"
#include "gui/Icons.h"
#include "gui/Mnemonics.h"
#include "gui/PriceChart.h"
#include "gui/QuoteTableModel.h"
#include "gui/ResizingPane.h"
#include "gui/ScreenFit.h"
#include "gui/SetupWizard.h"
#include "gui/TerminalWindow.h"
#include "gui/TextWindow.h"
#include "support/Browser.h"
#include "support/Format.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QResizeEvent>
#include <QScrollBar>
#include <QSplitter>
#include <QStatusBar>
#include <QSystemTrayIcon>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QUrl>
#include <QVBoxLayout>
#include <QWindowStateChangeEvent>

namespace kestrova::gui {

namespace {

const QString kTrayTip = QStringLiteral("Kestrova 2.0");

// The web-site buttons: the home pages of the quote services the program was first
// written for.
struct WebSite
{
    const char* name;
    const char* text;
    const char* url;
};
constexpr WebSite kWebSites[] = {
    {"cmdCBOE", "C&BOE", "https://www.cboe.com/"},
    {"cmdQuoteCom", "&Quote.com", "https://www.quote.com/"},
    {"cmdEtrade", "E*&Trade", "https://us.etrade.com/"},
    {"cmdMarketWatch", "Market&Watch", "https://www.marketwatch.com/"},
    {"cmdPCQuote", "P&C Quote", "https://www.pcquote.com/"},
    {"cmdYahoo", "&Yahoo", "https://finance.yahoo.com/"},
};

// Sections of the user guide the help menu's support items open.
const QString kGuideBugs = QStringLiteral("reporting-a-problem");
const QString kGuideKnownProblems = QStringLiteral("known-problems");
const QString kGuideFaq = QStringLiteral("troubleshooting");
const QString kGuideUpdates = QStringLiteral("whats-new");

QLabel* valueLabel(const char* name, QWidget* parent)
{
    auto* l = new QLabel(parent);
    l->setObjectName(QLatin1String(name));
    l->setTextFormat(Qt::PlainText);
    l->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return l;
}

} // namespace

MainWindow::MainWindow(app::Application& app, GuiHost& host, QWidget* parent)
    : QMainWindow(parent), m_app(app), m_host(host)
{
    trayAvailable = [] { return QSystemTrayIcon::isSystemTrayAvailable(); };
    setObjectName(QStringLiteral("frmMain"));
    setWindowTitle(QStringLiteral("Kestrova"));
    setWindowIcon(icon(IconName::App));
    m_host.setDialogParent(this);
    m_host.setCancelFlag(&m_app.cancelFlag());
    m_dialogs = new Dialogs(this, m_app, m_host);
    // Every security of the setup has its row from the start; its prices come with an update.
    m_quoteModel = new QuoteTableModel(m_app.stockQuotes(), m_app.optionQuotes(), this, &m_app.state().portfolio);
    // No window of the program opens partly off the screen.
    fitWindowsWhenShown(this);

    buildCentral();
    buildMenus();
    buildToolbar();
    buildTray();

    m_time = valueLabel("lblTime", this);
    statusBar()->addPermanentWidget(m_time);
    // Without the status window the one-line status text still has somewhere to go.
    connect(&m_host, &GuiHost::statusTextChanged, this, [this](const QString& text) {
        if (!m_host.showStatus()) {
            statusBar()->showMessage(text);
        }
    });

    m_minute = new QTimer(this);
    m_minute->setObjectName(QStringLiteral("tmrMinute"));
    m_app.minuteCycle().setTimer(m_minute);
    m_blink = new QTimer(this);
    m_blink->setObjectName(QStringLiteral("tmrBlink"));
    m_blink->setInterval(1500);
    connect(m_blink, &QTimer::timeout, this, &MainWindow::blinkTick);

    app::AppObserver observer;
    observer.updateStarted = [this] { onUpdateStarted(); };
    observer.updateFinished = [this](const app::UpdateOutcome& o) { onUpdateFinished(o); };
    observer.clockLabel = [this](const QString& text) { m_time->setText(text); };
    m_app.setObserver(std::move(observer));
}

MainWindow::~MainWindow()
{
    // The engine outlives the window; it must not call back into a window that is gone.
    m_app.setObserver({});
    m_app.minuteCycle().stop();
    m_host.setStatusList(nullptr);
}

QAction* MainWindow::addItem(QMenu* menu, const char* name, const QString& text, const std::function<void()>& run)
{
    auto* a = new QAction(text, this);
    a->setObjectName(QLatin1String(name));
    connect(a, &QAction::triggered, this, [run] { run(); });
    menu->addAction(a);
    return a;
}

void MainWindow::buildMenus()
{
    QMenuBar* bar = menuBar();
    auto menu = [&](const char* name, const QString& title) {
        QMenu* m = bar->addMenu(title);
        m->setObjectName(QLatin1String(name));
        return m;
    };

    QMenu* file = menu("mnuFile", QStringLiteral("&File"));
    QAction* newFile = addItem(file, "mnuNew", QStringLiteral("&New"), [this] { fileNew(); });
    newFile->setShortcut(QKeySequence::New);
    QAction* setup = addItem(file, "mnuNewSetup", QStringLiteral("New Set&up..."), [this] { newSetup(); });
    QAction* open = addItem(file, "mnuOpen", QStringLiteral("&Open..."), [this] { fileOpen(); });
    open->setShortcut(QKeySequence::Open);
    addItem(file, "mnuSave", QStringLiteral("&Save"), [this] { fileSave(); })->setShortcut(QKeySequence::Save);
    QAction* saveAs = addItem(file, "mnuSaveAs", QStringLiteral("Save &As..."), [this] { fileSaveAs(); });
    file->addSeparator();
    addItem(file, "mnuExit", QStringLiteral("E&xit"), [this] { requestExit(); })->setShortcut(QKeySequence::Quit);

    m_mnuEdit = menu("mnuEdit", QStringLiteral("&Edit"));
    QAction* portfolio = addItem(m_mnuEdit, "mnuPortfolio", QStringLiteral("&Portfolio..."),
                                 [this] { afterDialog(m_dialogs->portfolio()); });
    QAction* options2 =
        addItem(m_mnuEdit, "mnuOptions2", QStringLiteral("&Options..."), [this] { afterDialog(m_dialogs->options()); });

    m_mnuPaging = menu("mnuPaging", QStringLiteral("&Paging"));
    QAction* send =
        addItem(m_mnuPaging, "mnuSend", QStringLiteral("&Send a Page..."), [this] { m_dialogs->sendPage(); });
    m_enablePaging = addItem(m_mnuPaging, "mnuEnablePaging", QStringLiteral("&Enable Paging"), [] {});
    m_enablePaging->setCheckable(true);
    connect(m_enablePaging, &QAction::toggled, this, &MainWindow::setPagingEnabled);
    m_mnuPaging->addSeparator();
    QAction* modem = addItem(m_mnuPaging, "mnuModem", QStringLiteral("&Modem Settings..."),
                             [this] { afterDialog(m_dialogs->modem(false)); });
    QAction* modem2 = addItem(m_mnuPaging, "mnuModemNonInternet", QStringLiteral("&Non-Internet Modem Settings..."),
                              [this] { afterDialog(m_dialogs->modem(true)); });

    m_mnuSettings = menu("mnuSettings", QStringLiteral("&Settings"));
    QAction* schedule = addItem(m_mnuSettings, "mnuSchedule", QStringLiteral("S&chedule..."),
                                [this] { afterDialog(m_dialogs->schedule()); });
    m_enableSchedule = addItem(m_mnuSettings, "mnuEnableSchedule", QStringLiteral("&Enable Schedule"), [] {});
    m_enableSchedule->setCheckable(true);
    connect(m_enableSchedule, &QAction::toggled, this, &MainWindow::setScheduleEnabled);
    QAction* options = addItem(m_mnuSettings, "mnuOptions", QStringLiteral("&Options..."),
                               [this] { afterDialog(m_dialogs->options()); });
    m_mnuSettings->addSeparator();
    addItem(m_mnuSettings, "mnuUpdateServers", QStringLiteral("&Update Server Files"),
            [this] { m_app.updateServerFiles(); });
    addItem(m_mnuSettings, "mnuCheckUpdates", QStringLiteral("Check for &Newer Version"),
            [this] { m_app.checkForNewerVersion(); });

    QMenu* view = menu("mnuView", QStringLiteral("&View"));
    addItem(view, "mnuViewQuotes", QStringLiteral("&Quotes"), [this] { m_dialogs->quoteViewer(); });
    addItem(view, "mnuViewNews", QStringLiteral("&News"), [this] { m_dialogs->newsViewer(); });
    addItem(view, "mnuviewMail", QStringLiteral("&Mail"), [this] {
        if (m_app.state().mailBox.messageCount < 1) {
            m_host.messageBox(QStringLiteral("Mailbox is empty"), support::MsgButtons::Ok,
                              support::MsgIcon::Information);
            return;
        }
        m_dialogs->mailViewer();
    });
    view->addSeparator();
    addItem(view, "mnuTerminal", QStringLiteral("&Terminal Window"), [this] { showTerminal(); });
    addItem(view, "mnuShowHTTP", QStringLiteral("Show &HTTP"), [this] { showRawPage(); });
    addItem(view, "mnuDiagnostics", QStringLiteral("&Diagnostics"), [this] { showDiagnostics(); });

    QMenu* mail = menu("mnuMail", QStringLiteral("&Mail"));
    QAction* checkMail = addItem(mail, "mnuCheckMail", QStringLiteral("&Check Mail Now"), [this] { checkMailNow(); });
    addItem(mail, "mnuMailViewer", QStringLiteral("&Mail Viewer"), [this] {
        if (m_app.state().mailBox.messageCount < 1) {
            m_host.messageBox(QStringLiteral("Mailbox is empty"), support::MsgButtons::Ok,
                              support::MsgIcon::Information);
            return;
        }
        m_dialogs->mailViewer();
    });

    QMenu* help = menu("mnuHelp", QStringLiteral("&Help"));
    addItem(help, "mnuHelpContents", QStringLiteral("&Contents"), [this] {
        openHelp();
    })->setShortcut(QKeySequence::HelpContents);
    addItem(help, "mnuHelpSearch", QStringLiteral("&Search for Help On..."), [this] { openHelp(); });
    help->addSeparator();
    addItem(help, "mnuBug", QStringLiteral("&Report a Problem"), [this] { openHelp(kGuideBugs); });
    addItem(help, "mnuKnownProblems", QStringLiteral("&Known Problems"), [this] { openHelp(kGuideKnownProblems); });
    addItem(help, "mnuTroubleFAQ", QStringLiteral("&Troubleshooting"), [this] { openHelp(kGuideFaq); });
    addItem(help, "mnuViewUpdates", QStringLiteral("&What's New"), [this] { openHelp(kGuideUpdates); });
    help->addSeparator();
    addItem(help, "mnuAbout", QStringLiteral("&About Kestrova"), [this] { showAbout(); });

    m_lockedWhileRunning = {newFile, setup, open,   saveAs,   portfolio, options2,
                            send,    modem, modem2, schedule, options,   checkMail};
}

void MainWindow::buildToolbar()
{
    m_toolbar = addToolBar(QStringLiteral("Main"));
    m_toolbar->setObjectName(QStringLiteral("tlbMain"));
    m_toolbar->setMovable(false);
    m_toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    struct Key
    {
        const char* key;
        const char* text;
        IconName icon;
        const char* menuItem; // the menu command the key runs, or null for the update
        const char* tip;
    };
    static const Key kKeys[] = {
        {"open", "Open", IconName::Open, "mnuOpen", "Open a portfolio file"},
        {"save", "Save", IconName::Save, "mnuSave", "Save the portfolio file"},
        {"portfolio", "Portfolio", IconName::Portfolio, "mnuPortfolio", "Edit the portfolio"},
        {"schedule", "Schedule", IconName::Schedule, "mnuSchedule", "Set the update schedule"},
        {"update", "Update", IconName::Update, nullptr, "Update quotes now (and page when paging is on)"},
        {"page", "Page", IconName::Page, "mnuSend", "Send a page"},
        {"quotes", "Quotes", IconName::Quotes, "mnuViewQuotes", "Open the quote viewer"},
        {"news", "News", IconName::News, "mnuViewNews", "Open the news viewer"},
        {"mail", "Mail", IconName::Mail, "mnuviewMail", "Open the mail viewer"},
        {"options", "Options", IconName::Options, "mnuOptions", "Change the options"},
        {"help", "Help", IconName::Help, "mnuHelpContents", "Open the user guide"},
    };
    for (const Key& k : kKeys) {
        auto* a = new QAction(icon(k.icon), QLatin1String(k.text), this);
        a->setObjectName(QLatin1String(k.key));
        a->setToolTip(QLatin1String(k.tip));
        a->setData(QLatin1String(k.tip));
        if (k.menuItem) {
            QAction* item = findChild<QAction*>(QLatin1String(k.menuItem));
            connect(a, &QAction::triggered, item, &QAction::trigger);
            // The key is usable exactly when its menu command is.
            connect(item, &QAction::enabledChanged, a, &QAction::setEnabled);
        } else {
            connect(a, &QAction::triggered, this, &MainWindow::runUpdate);
            m_lockedWhileRunning << a;
        }
        m_toolbar->addAction(a);
        if (qstrcmp(k.key, "save") == 0 || qstrcmp(k.key, "schedule") == 0 || qstrcmp(k.key, "page") == 0 ||
            qstrcmp(k.key, "mail") == 0) {
            m_toolbar->addSeparator();
        }
    }
    m_toolbarLabelledWidth = m_toolbar->sizeHint().width();
}

void MainWindow::buildCentral()
{
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);

    // The market summary heads the window, as it heads every page.
    m_market = new QGroupBox(QStringLiteral("Markets"), central);
    m_market->setObjectName(QStringLiteral("fraMarket"));
    auto* marketGrid = new QHBoxLayout(m_market);
    static const char* const kIndex[3] = {"DOW", "NASDAQ", "S&P 500"};
    static const char* const kNames[6] = {"lblDow",       "lblDowChg", "lblNASDAQ",
                                          "lblNASDAQChg", "lblSP500",  "lblSP500Chg"};
    for (int i = 0; i < 3; ++i) {
        auto* name = new QLabel(QLatin1String(kIndex[i]), m_market);
        QFont bold = name->font();
        bold.setBold(true);
        name->setFont(bold);
        marketGrid->addWidget(name);
        for (int j = 0; j < 2; ++j) {
            m_marketLabels[i * 2 + j] = valueLabel(kNames[i * 2 + j], m_market);
            marketGrid->addWidget(m_marketLabels[i * 2 + j]);
        }
        marketGrid->addStretch();
    }
    m_pager = new QLabel(m_market);
    m_pager->setObjectName(QStringLiteral("picPager"));
    m_pager->setPixmap(icon(IconName::Pager).pixmap(32, 32));
    m_pager->setToolTip(QStringLiteral("New quotes or mail since you last looked"));
    QSizePolicy keep = m_pager->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    m_pager->setSizePolicy(keep);
    m_pager->hide();
    marketGrid->addWidget(m_pager);
    layout->addWidget(m_market);

    m_quoteTable = new QTableView(central);
    m_quoteTable->setObjectName(QStringLiteral("grdQuotes"));
    m_quoteTable->setModel(m_quoteModel);
    m_quoteTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_quoteTable->setSelectionMode(QAbstractItemView::SingleSelection);
    // Portfolio order until the user picks a column to sort by.
    m_quoteTable->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    m_quoteTable->setSortingEnabled(true);
    m_quoteTable->setAlternatingRowColors(true);
    m_quoteTable->setWordWrap(false);
    m_quoteTable->verticalHeader()->hide();
    m_quoteTable->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_quoteTable->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    m_quoteTable->horizontalHeader()->setStretchLastSection(true);
    m_quoteTable->setContextMenuPolicy(Qt::CustomContextMenu);
    // Where the eye goes on a first start: what to do next, and why the menus are off.
    m_tableHint = new QLabel(m_quoteTable->viewport());
    m_tableHint->setObjectName(QStringLiteral("lblSetupHint"));
    m_tableHint->setAlignment(Qt::AlignCenter);
    m_tableHint->setWordWrap(true);
    m_tableHint->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_tableHint->setForegroundRole(QPalette::PlaceholderText);
    m_tableHint->hide();
    auto* hintLayout = new QVBoxLayout(m_quoteTable->viewport());
    hintLayout->addWidget(m_tableHint);
    connect(m_quoteModel, &QAbstractItemModel::modelReset, this, &MainWindow::showSetupHint);
    m_quoteMenu = new QMenu(m_quoteTable);
    QAction* news = m_quoteMenu->addAction(icon(IconName::News), QStringLiteral("&News Headlines"));
    connect(news, &QAction::triggered, this, [this] { m_dialogs->newsViewer(); });
    QAction* chart = m_quoteMenu->addAction(icon(IconName::Quotes), QStringLiteral("Price &Chart..."));
    chart->setObjectName(QStringLiteral("mnuPriceChart"));
    connect(chart, &QAction::triggered, this, [this] { showPriceChart(currentTicker()); });
    connect(m_quoteTable, &QTableView::customContextMenuRequested, this, [this](const QPoint& at) {
        if (m_quoteTable->indexAt(at).isValid()) {
            m_quoteMenu->popup(m_quoteTable->viewport()->mapToGlobal(at));
        }
    });
    connect(m_quoteTable, &QTableView::doubleClicked, this, [this](const QModelIndex& index) {
        if (index.column() == QuoteTableModel::News) {
            m_dialogs->newsViewer();
        }
        Q_EMIT quoteActivated(m_quoteModel->tickerAt(index.row()));
    });

    // The status list is the pane's one control and follows its size.
    m_status = new QPlainTextEdit;
    m_status->setObjectName(QStringLiteral("txtStatus"));
    m_status->setReadOnly(true);
    m_status->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_statusPane = new ResizingPane;
    m_statusPane->setObjectName(QStringLiteral("paneStatus"));
    m_statusPane->onError = [this](const QString& error) { m_app.log().LogMessage(error); };
    const QSize design(600, 120);
    m_statusPane->setControl(m_status, QRect(0, 0, design.width(), design.height()), design);
    m_statusPane->setMinimumHeight(m_status->fontMetrics().height() * 3);
    m_host.setStatusList(m_status);

    m_splitter = new QSplitter(Qt::Vertical, central);
    m_splitter->addWidget(m_quoteTable);
    m_splitter->addWidget(m_statusPane);
    m_splitter->setStretchFactor(0, 3);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setChildrenCollapsible(false);
    // However small the window, a few rows of quotes stay in view; the status list gives
    // way first when the window shrinks.
    m_quoteTable->setMinimumHeight(quoteTableHeight(kLeastQuoteRows));
    m_splitter->installEventFilter(this);
    layout->addWidget(m_splitter, 1);

    auto* config = new QGridLayout;
    auto caption = [&](const QString& text, int row, int column) {
        auto* l = new QLabel(text, central);
        config->addWidget(l, row, column, Qt::AlignRight);
    };
    m_paging = valueLabel("lblPaging", central);
    m_connection = valueLabel("lblConnection", central);
    m_email = valueLabel("lblEmail", central);
    m_server = valueLabel("lblServer", central);
    caption(QStringLiteral("Paging:"), 0, 0);
    config->addWidget(m_paging, 0, 1);
    caption(QStringLiteral("Connection:"), 0, 2);
    config->addWidget(m_connection, 0, 3);
    caption(QStringLiteral("E-mail:"), 1, 0);
    config->addWidget(m_email, 1, 1);
    caption(QStringLiteral("Server:"), 1, 2);
    config->addWidget(m_server, 1, 3);
    config->setColumnStretch(1, 1);
    config->setColumnStretch(3, 1);
    m_chkPaging = new QCheckBox(QStringLiteral("Pa&ging enabled"), central);
    m_chkPaging->setObjectName(QStringLiteral("chkPageEnable"));
    connect(m_chkPaging, &QCheckBox::toggled, this, &MainWindow::setPagingEnabled);
    m_chkSchedule = new QCheckBox(QStringLiteral("Sche&dule enabled"), central);
    m_chkSchedule->setObjectName(QStringLiteral("chkScheduleEnable"));
    connect(m_chkSchedule, &QCheckBox::toggled, this, &MainWindow::setScheduleEnabled);
    config->addWidget(m_chkPaging, 0, 4);
    config->addWidget(m_chkSchedule, 1, 4);
    layout->addLayout(config);

    m_wwwButtons = new QWidget(central);
    m_wwwButtons->setObjectName(QStringLiteral("picWWWButtons"));
    auto* www = new QHBoxLayout(m_wwwButtons);
    www->setContentsMargins(0, 0, 0, 0);
    for (const WebSite& site : kWebSites) {
        auto* b = new QPushButton(QLatin1String(site.text), m_wwwButtons);
        b->setObjectName(QLatin1String(site.name));
        b->setFlat(true);
        b->setToolTip(QLatin1String(site.url));
        const QString url = QLatin1String(site.url);
        connect(b, &QPushButton::clicked, this, [this, url] { support::openInBrowser(m_host, url); });
        www->addWidget(b);
    }
    www->addStretch();
    layout->addWidget(m_wwwButtons);

    setCentralWidget(central);
}

void MainWindow::buildTray()
{
    m_tray = new QSystemTrayIcon(icon(IconName::App), this);
    m_tray->setObjectName(QStringLiteral("trayIcon"));
    m_tray->setToolTip(kTrayTip);
    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("mnuPopup"));
    addItem(menu, "mnuShowPopup", QStringLiteral("&Show"), [this] { restoreFromTray(); });
    addItem(menu, "mnuQuitPopup", QStringLiteral("&Quit"), [this] {
        requestExit();
        m_app.state().exitCancelled = false;
    });
    m_tray->setContextMenu(menu);
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick) {
            restoreFromTray();
        }
    });
}

void MainWindow::startup(const QString& commandLineFile)
{
    if (!(windowState() & Qt::WindowMinimized)) {
        // The classic 5,508 x 7,284 twips is the least; the quote table wants the width
        // of its columns.
        const QFontMetrics fm(font());
        resize(std::max(5508 / 15, fm.averageCharWidth() * 165), std::max(7284 / 15, fm.height() * 44));
        // Three parts quotes to one part status list, whatever the splitter's size will be.
        m_splitter->setSizes({3000, 1000});
    }
    m_app.reportMissingStartupFile = false;
    m_app.startup(commandLineFile);
    refreshDisplay();
    m_quoteModel->reload();
    fitQuoteColumns();
    m_app.startMinuteCycle();
    if (m_firstRunAssistant && commandLineFile.isEmpty() && m_app.state().currentFile.isEmpty()) {
        // Once the window is up, so the assistant opens over it.
        QTimer::singleShot(0, this, &MainWindow::newSetup);
    }
}

void MainWindow::newSetup()
{
    if (m_app.updating() || !m_app.offerSave(QStringLiteral("Save the setup in use before you make a new one?"))) {
        return;
    }
    refreshDisplay(); // a save just now changed the caption
    SetupWizard wizard(this, m_app, m_host);
    connect(&wizard, &SetupWizard::desktopTestRequested, this, [this] {
        notify(QStringLiteral("Kestrova test"), QStringLiteral("This is how alarms show on this computer."));
    });
    if (wizard.exec() != QDialog::Accepted) {
        return;
    }
    m_quoteModel->reload();
    m_columnsFitted = false;
    refreshDisplay();
    // The table fills now, and an alarm that is already true goes out now.
    runUpdate();
}

void MainWindow::refreshDisplay()
{
    const app::AppState& s = m_app.state();
    setWindowTitle(s.caption);
    m_time->setText(s.clockLabel);
    m_paging->setText(s.labels.paging);
    m_connection->setText(s.labels.connection);
    m_email->setText(s.labels.email);
    m_server->setText(s.labels.server);
    for (QMenu* m : {m_mnuEdit, m_mnuPaging, m_mnuSettings}) {
        m->menuAction()->setEnabled(s.menusEnabled);
        m->setEnabled(s.menusEnabled);
        for (QAction* a : m->actions()) {
            if (!a->isSeparator() && !m_lockedWhileRunning.contains(a)) {
                a->setEnabled(s.menusEnabled);
            }
        }
    }
    setRunning(m_app.updating());
    {
        const QSignalBlocker b1(m_enablePaging), b2(m_chkPaging), b3(m_enableSchedule), b4(m_chkSchedule);
        m_enablePaging->setChecked(s.options.paging.enabled);
        m_chkPaging->setChecked(s.options.paging.enabled);
        m_enableSchedule->setChecked(s.options.schedule.enabled);
        m_chkSchedule->setChecked(s.options.schedule.enabled);
    }
    m_wwwButtons->setVisible(s.prefs.wwwButtons);
    m_host.setShowStatus(s.prefs.showStatus);
    refreshMarket();
    showSetupHint();
}

void MainWindow::showSetupHint()
{
    const QString hint = m_app.setupHint();
    m_tableHint->setText(hint);
    m_tableHint->setVisible(!hint.isEmpty() && m_quoteModel->rowCount() == 0);
    // A key that is off for want of a file says so where the pointer rests.
    const bool noFile = !m_app.state().menusEnabled;
    for (QAction* a : m_toolbar->actions()) {
        const QString tip = a->data().toString();
        if (!tip.isEmpty()) {
            a->setToolTip(noFile && !a->isEnabled() ? tip + QStringLiteral("\n") + hint : tip);
        }
    }
}

void MainWindow::refreshMarket()
{
    const auto& m = m_app.state().market;
    m_market->setTitle(m.caption.isEmpty() ? QStringLiteral("Markets") : m.caption);
    const QString texts[6] = {m.lblDow, m.lblDowChg, m.lblNASDAQ, m.lblNASDAQChg, m.lblSP500, m.lblSP500Chg};
    for (int i = 0; i < 6; ++i) {
        m_marketLabels[i]->setText(texts[i].isEmpty() ? QStringLiteral("-") : texts[i]);
    }
}

void MainWindow::setRunning(bool running)
{
    const bool file = m_app.state().menusEnabled;
    for (QAction* a : std::as_const(m_lockedWhileRunning)) {
        bool fileDependent = false;
        for (QMenu* m : {m_mnuEdit, m_mnuPaging, m_mnuSettings}) {
            fileDependent = fileDependent || m->actions().contains(a);
        }
        a->setEnabled(!running && (file || !fileDependent));
    }
}

QAction* MainWindow::toolbarAction(const QString& key) const
{
    for (QAction* a : m_toolbar->actions()) {
        if (a->objectName() == key) {
            return a;
        }
    }
    return nullptr;
}

QString MainWindow::currentTicker() const
{
    const QModelIndex i = m_quoteTable->currentIndex();
    return i.isValid() ? m_quoteModel->tickerAt(i.row()) : QString();
}

void MainWindow::addQuoteAction(QAction* action)
{
    m_quoteMenu->addAction(action);
}

PriceChart* MainWindow::priceChart() const
{
    return m_chart;
}

void MainWindow::showPriceChart(const QString& ticker)
{
    if (ticker.isEmpty()) {
        return;
    }
    // The row's own quote: priced, or the portfolio entry's settings before its first quote.
    std::shared_ptr<const core::Quote> quote;
    for (int row = 0; row < m_quoteModel->rowCount() && !quote; ++row) {
        if (m_quoteModel->tickerAt(row).compare(ticker, Qt::CaseInsensitive) == 0) {
            quote = m_quoteModel->quoteAt(row);
        }
    }
    if (!m_chart) {
        // A window of its own beside the main window; it reads the store on a thread of
        // its own, so opening it never waits for a year of rows.
        m_chart = new PriceChart(m_host, m_app.historyPath(), m_app.clock(), this);
        m_chart->setObjectName(QStringLiteral("frmPriceChart"));
        m_chart->setWindowFlag(Qt::Window);
        m_chart->setAttribute(Qt::WA_DeleteOnClose);
        m_chart->resize(900, 560);
    }
    m_chart->showSecurity(ticker, quote ? chartLimitsOf(*quote) : ChartLimits{});
    m_chart->show();
    m_chart->raise();
    m_chart->activateWindow();
}

void MainWindow::fitQuoteColumns()
{
    // Holdings columns only for a portfolio that carries holdings.
    const bool holdings = m_quoteModel->hasHoldings();
    m_quoteTable->setColumnHidden(QuoteTableModel::Value, !holdings);
    m_quoteTable->setColumnHidden(QuoteTableModel::Gain, !holdings);
    // To the rows as they come until the first prices are in; after that the widths are
    // the user's.
    if (m_columnsFitted || m_quoteModel->rowCount() == 0) {
        return;
    }
    for (int row = 0; row < m_quoteModel->rowCount() && !m_columnsFitted; ++row) {
        m_columnsFitted = !m_quoteModel->quoteAt(row)->last().isEmpty();
    }
    m_quoteTable->resizeColumnsToContents();
    // Fitting gave the last column its content width; it takes the rest of the row again.
    m_quoteTable->horizontalHeader()->setStretchLastSection(false);
    m_quoteTable->horizontalHeader()->setStretchLastSection(true);
}

bool MainWindow::noticePending() const
{
    return m_blink->isActive();
}

// ---- File menu ----

void MainWindow::fileNew()
{
    m_app.mnuNew();
    refreshDisplay();
    m_quoteModel->reload();
    fitQuoteColumns();
}

void MainWindow::fileOpen()
{
    const QString path = m_host.openFileName(QStringLiteral("Open File"), app::kPortfolioFileFilter);
    if (path.isEmpty()) {
        return;
    }
    // A file that cannot be read leaves the setup in use as it was; the engine says why.
    if (m_app.openFile(QFileInfo(path).absoluteFilePath())) {
        refreshDisplay();
        m_quoteModel->reload();
        fitQuoteColumns();
    }
}

void MainWindow::fileSave()
{
    if (m_app.state().currentFile.isEmpty()) {
        fileSaveAs();
        return;
    }
    m_app.save();
    refreshDisplay();
}

bool MainWindow::fileSaveAs()
{
    const QString path =
        m_host.saveFileName(QStringLiteral("Save File As"), app::kPortfolioFileFilter, QStringLiteral("pgr"));
    if (path.isEmpty()) {
        return false;
    }
    const bool saved = m_app.saveAs(QFileInfo(path).absoluteFilePath());
    refreshDisplay();
    return saved;
}

void MainWindow::setPagingEnabled(bool on)
{
    auto& flag = m_app.state().options.paging.enabled;
    if (flag == on) {
        return;
    }
    // The flag is stored in the portfolio file.
    flag = on;
    m_app.markModified();
    m_app.UpdateSettings();
    refreshDisplay();
}

void MainWindow::setScheduleEnabled(bool on)
{
    auto& flag = m_app.state().options.schedule.enabled;
    if (flag == on) {
        return;
    }
    flag = on;
    m_app.markModified();
    m_app.UpdateSettings();
    refreshDisplay();
}

void MainWindow::afterDialog(bool stored)
{
    if (!stored) {
        return;
    }
    m_app.UpdateSettings();
    refreshDisplay();
    // A saved portfolio shows its rows at once, not after the next update.
    m_quoteModel->reload();
    fitQuoteColumns();
}

// ---- Commands ----

void MainWindow::runUpdate()
{
    m_app.update(m_app.state().options.paging.enabled, false);
}

void MainWindow::checkMailNow()
{
    setRunning(true);
    const int fresh = m_app.checkMailNow();
    setRunning(false);
    m_dialogs->refreshViewers();
    if (fresh > 0) {
        if (!isActiveWindow()) {
            raiseNotice();
        }
        notify(QStringLiteral("New mail"), QString::number(fresh) + QStringLiteral(" new message(s) waiting"));
    }
}

void MainWindow::showTerminal()
{
    TerminalWindow* t = m_host.terminalWindow();
    t->show();
    t->raise();
    t->activateWindow();
}

void MainWindow::showRawPage()
{
    if (!m_rawPage) {
        m_rawPage = new TextWindow(QStringLiteral("frmShowHTTP"), QStringLiteral("Show HTTP"), this);
    }
    const QString url = m_app.lastFetchUrl();
    m_rawPage->setWindowTitle(url.isEmpty() ? QStringLiteral("Show HTTP") : QStringLiteral("Show HTTP - ") + url);
    m_rawPage->setText(url.isEmpty() ? QStringLiteral("No page has been fetched yet.") : m_app.lastFetchPage());
    m_rawPage->show();
    m_rawPage->raise();
}

void MainWindow::showDiagnostics()
{
    if (!m_diagnostics) {
        m_diagnostics = new TextWindow(QStringLiteral("frmDiagnostics"), QStringLiteral("Kestrova Diagnostics"), this);
    }
    m_diagnostics->setText(m_app.diagnostics());
    m_diagnostics->show();
    m_diagnostics->raise();
}

void MainWindow::showAbout()
{
    // Modeless, so a running update and the tests go on while it is open.
    auto* box = new QMessageBox(this);
    box->setObjectName(QStringLiteral("frmAbout"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle(QStringLiteral("Kestrova - ") + QCoreApplication::applicationVersion());
    box->setIconPixmap(icon(IconName::App).pixmap(64, 64));
    box->setTextFormat(Qt::PlainText);
    box->setText(QStringLiteral("Kestrova ") + QCoreApplication::applicationVersion());
    box->setInformativeText(QStringLiteral("Watches a portfolio's quotes, tests them against your alarm limits and "
                                           "pages you by modem or e-mail.\n\nQt ") +
                            QString::fromLatin1(qVersion()) + QStringLiteral("\nData: ") +
                            QDir::toNativeSeparators(m_app.dataDir()));
    box->setStandardButtons(QMessageBox::Ok);
    giveMnemonics(box->findChild<QDialogButtonBox*>());
    box->open();
}

QString MainWindow::helpFile()
{
    const QString installed = QDir(QCoreApplication::applicationDirPath())
                                  .absoluteFilePath(QStringLiteral("../share/doc/kestrova/user-guide.html"));
    if (QFileInfo::exists(installed)) {
        return QFileInfo(installed).canonicalFilePath();
    }
#ifdef KESTROVA_BUILD_GUIDE
    // Run from the build tree: the guide made by this build.
    if (QFileInfo::exists(QStringLiteral(KESTROVA_BUILD_GUIDE))) {
        return QStringLiteral(KESTROVA_BUILD_GUIDE);
    }
#endif
    return installed;
}

void MainWindow::openHelp(const QString& anchor)
{
    const QString file = helpFile();
    if (!QFileInfo::exists(file)) {
        m_host.messageBox(QStringLiteral("The user guide ") + QDir::toNativeSeparators(file) +
                              QStringLiteral(" is not installed."),
                          support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        return;
    }
    QUrl url = QUrl::fromLocalFile(file);
    if (!anchor.isEmpty()) {
        url.setFragment(anchor);
    }
    support::openInBrowser(m_host, url.toString());
}

// ---- Update runs, notices, tray ----

void MainWindow::onUpdateStarted()
{
    setRunning(true);
}

void MainWindow::onUpdateFinished(const app::UpdateOutcome& outcome)
{
    setRunning(false);
    m_quoteModel->reload();
    fitQuoteColumns();
    refreshMarket();
    m_dialogs->refreshViewers();
    if (m_chart && outcome.quotesRetrieved) {
        m_chart->reload();
    }
    if ((outcome.quotesRetrieved || outcome.newMessages > 0) && !isActiveWindow()) {
        raiseNotice();
    }
    if (outcome.alarms) {
        QStringList alarmed;
        for (int row = 0; row < m_quoteModel->rowCount(); ++row) {
            if (m_quoteModel->index(row, 0).data(QuoteTableModel::AlarmedRole).toBool()) {
                alarmed << m_quoteModel->tickerAt(row);
            }
        }
        // Without a page that carried it (no route set up, or the route failed) the desktop
        // still tells.
        notify(outcome.alarmPageSent ? QStringLiteral("Alarm page sent") : QStringLiteral("Alarm"),
               alarmed.join(QStringLiteral(", ")));
    }
    if (outcome.newMessages > 0) {
        notify(QStringLiteral("New mail"),
               QString::number(outcome.newMessages) + QStringLiteral(" new message(s) waiting"));
    }
    Q_EMIT updateFinished();
    if (m_closePending) {
        // Ask the exit question once the run's stack has unwound.
        m_closePending = false;
        QTimer::singleShot(0, this, &MainWindow::requestExit);
    }
}

void MainWindow::notify(const QString& title, const QString& message)
{
    if (!m_app.state().prefs.notifications) {
        return;
    }
    m_tray->showMessage(title, message, icon(IconName::App), 10000);
    Q_EMIT notified(title, message);
}

void MainWindow::raiseNotice()
{
    if (!m_blink->isActive()) {
        m_blinkPhase = false;
        m_blink->start();
    }
}

void MainWindow::blinkTick()
{
    m_blinkPhase = !m_blinkPhase;
    m_pager->setVisible(m_blinkPhase);
}

void MainWindow::stopNotice()
{
    m_blink->stop();
    m_blinkPhase = false;
    m_pager->hide();
}

void MainWindow::hideToTray()
{
    if (!(windowState() & Qt::WindowMinimized)) {
        return;
    }
    m_toolbar->hide();
    hide();
    m_tray->show();
}

void MainWindow::restoreFromTray()
{
    m_tray->hide();
    m_toolbar->show();
    showNormal();
    raise();
    activateWindow();
}

int MainWindow::quoteTableHeight(int rows) const
{
    const int row = std::max(m_quoteTable->verticalHeader()->defaultSectionSize(), fontMetrics().height() + 4);
    return m_quoteTable->horizontalHeader()->sizeHint().height() + rows * row + 2 * m_quoteTable->frameWidth() +
           m_quoteTable->horizontalScrollBar()->sizeHint().height();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_splitter && event->type() == QEvent::Resize) {
        // The window was resized: the table keeps a screenful of rows while the status list
        // can spare height. A handle the user drags is left where it is put.
        QList<int> sizes = m_splitter->sizes();
        const int want = quoteTableHeight(kComfortableQuoteRows);
        const int spare = sizes.value(1) - m_statusPane->minimumHeight();
        if (sizes.size() == 2 && sizes[0] < want && spare > 0) {
            const int give = std::min(want - sizes[0], spare);
            sizes[0] += give;
            sizes[1] -= give;
            m_splitter->setSizes(sizes);
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::resizeEvent(QResizeEvent* event)
{
    QMainWindow::resizeEvent(event);
    // A small window drops the keys' words before it drops keys: every key stays on the
    // toolbar, and its words are in its tooltip.
    const bool roomy = width() >= m_toolbarLabelledWidth && height() >= fontMetrics().height() * 30;
    const Qt::ToolButtonStyle style = roomy ? Qt::ToolButtonTextUnderIcon : Qt::ToolButtonIconOnly;
    if (m_toolbar->toolButtonStyle() != style) {
        m_toolbar->setToolButtonStyle(style);
    }
}

void MainWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange) {
        if ((windowState() & Qt::WindowMinimized) && m_app.state().prefs.systemTray && trayAvailable &&
            trayAvailable()) {
            // Hiding from inside the state change confuses some window managers.
            QTimer::singleShot(0, this, &MainWindow::hideToTray);
        }
    } else if (event->type() == QEvent::ActivationChange && isActiveWindow()) {
        stopNotice();
    }
}

// ---- Exit path ----

void MainWindow::requestExit()
{
    if (m_closed) {
        return;
    }
    if (m_app.updating()) {
        // The run's waits poll the cancel flag and end within a second; the question comes
        // when the run has ended, so the file is never saved under a half-done update.
        m_closePending = true;
        m_app.cancelFlag().set();
        return;
    }
    if (!m_app.queryExit()) {
        refreshDisplay();
        return;
    }
    shutdown();
}

void MainWindow::shutdown()
{
    m_closed = true;
    m_app.minuteCycle().stop();
    m_blink->stop();
    m_tray->hide();
    m_dialogs->closeAll();
    m_host.closeWindows();
    for (QPointer<TextWindow> w : {m_rawPage, m_diagnostics}) {
        if (w) {
            w->close();
        }
    }
    if (m_chart) {
        m_chart->close();
    }
    m_app.services().StatusMessage(QStringLiteral("Kestrova stopped"));
    close();
    Q_EMIT exitAccepted();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_closed) {
        event->accept();
        return;
    }
    event->ignore();
    requestExit();
}

} // namespace kestrova::gui
