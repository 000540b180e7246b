#include "gui/SetupWizard.h"

#include "app/Application.h"
#include "app/FirstSetup.h"
#include "app/MarketHours.h"
#include "core/PortfolioEntries.h"
#include "delivery/MailServers.h"
#include "delivery/PushNotifier.h"
#include "gui/GuiHost.h"
#include "gui/LookupLabel.h"
#include "gui/OptionsDialog.h"
#include "gui/ScheduleDialog.h"
#include "quotes/SymbolLookup.h"
#include "support/Clock.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QScrollArea>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <QWizardPage>

#include <map>
#include <vector>

namespace kestrova::gui {

namespace {

QLabel* textLabel(const QString& text)
{
    auto* l = new QLabel(text);
    l->setWordWrap(true);
    return l;
}

QLabel* buddyLabel(const QString& text, QWidget* buddy)
{
    auto* l = new QLabel(text);
    l->setBuddy(buddy);
    return l;
}

// ---- What to watch ----

class WatchPage : public QWizardPage
{
public:
    explicit WatchPage(SetupWizard* wizard) : m_wizard(wizard)
    {
        setObjectName(QStringLiteral("pageWatch"));
        setTitle(tr("What to watch"));

        m_symbols = new QPlainTextEdit;
        m_symbols->setObjectName(QStringLiteral("txtSymbols"));
        m_symbols->setTabChangesFocus(true);
        m_symbols->setPlaceholderText(QStringLiteral("IBM MSFT VFIAX"));
        const QFontMetrics fm(m_symbols->font());
        m_symbols->setFixedHeight(fm.lineSpacing() * 3 + 2 * m_symbols->frameWidth() +
                                  int(m_symbols->document()->documentMargin() * 2));
        auto* symbolsLabel = buddyLabel(
            tr("&Symbols of the stocks and funds to watch, one a line or separated by blanks or commas:"), m_symbols);
        symbolsLabel->setWordWrap(true);

        m_rowsBox = new QWidget;
        m_grid = new QGridLayout(m_rowsBox);
        m_grid->setContentsMargins(0, 0, 0, 0);
        m_grid->setColumnStretch(1, 1);
        m_highHeader = new QLabel(tr("&High"));
        m_highHeader->setToolTip(tr("An alarm when the price reaches this or more"));
        m_lowHeader = new QLabel(tr("&Low"));
        m_lowHeader->setToolTip(tr("An alarm when the price falls to this or less"));
        m_moveHeader = new QLabel(tr("Mo&ve \u00B1%"));
        m_moveHeader->setToolTip(tr("An alarm when the price moves this many percent in a day, up or down"));
        auto* symbolHeader = new QLabel(tr("Symbol"));
        auto* foundHeader = new QLabel(tr("What the quote sources say"));
        int column = 0;
        for (QLabel* h : {symbolHeader, foundHeader, m_highHeader, m_lowHeader, m_moveHeader}) {
            QFont bold = h->font();
            bold.setBold(true);
            h->setFont(bold);
            m_grid->addWidget(h, 0, column++, Qt::AlignLeft | Qt::AlignBottom);
        }
        m_grid->setRowStretch(1, 1);
        auto* scroll = new QScrollArea;
        scroll->setWidget(m_rowsBox);
        scroll->setWidgetResizable(true);
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setMinimumHeight(fm.lineSpacing() * 8);

        m_hintText = tr("Each symbol is checked with the quote sources as you type. An alarm goes out when the "
                        "price reaches the high or the low price, or moves by the percentage (up or down) in a "
                        "day; leave a field empty for no alarm of that kind.");
        m_hint = textLabel(m_hintText);

        auto* layout = new QVBoxLayout(this);
        layout->addWidget(symbolsLabel);
        layout->addWidget(m_symbols);
        layout->addWidget(m_hint);
        layout->addWidget(scroll, 1);

        // A symbol is asked about once the typing pauses or a separator follows it, so the
        // sources are not asked for every prefix of it.
        m_pause.setSingleShot(true);
        m_pause.setInterval(400);
        connect(&m_pause, &QTimer::timeout, this, [this] { syncRows(); });
        connect(m_symbols, &QPlainTextEdit::textChanged, this, [this] {
            const QString text = m_symbols->toPlainText();
            if (!text.isEmpty() && QStringLiteral(" ,;\n\t").contains(text.back())) {
                syncRows();
            } else {
                m_pause.start();
            }
            Q_EMIT completeChanged();
        });
        connect(this, &QWizardPage::completeChanged, this, [this] {
            // Next waits for a symbol; the page says so while there is none.
            m_hint->setText(isComplete() ? m_hintText : tr("Type at least one symbol to go on. ") + m_hintText);
        });
        Q_EMIT completeChanged();
    }

    void initializePage() override { m_symbols->setFocus(); }

    bool isComplete() const override { return !core::splitTickers(m_symbols->toPlainText()).isEmpty(); }

    bool validatePage() override
    {
        syncRows();
        std::vector<app::WatchInput> input;
        for (const Row& r : m_rows) {
            input.push_back({r.ticker, r.high->text(), r.low->text(), r.move->text()});
        }
        const auto problem = app::buildWatchList(input, m_wizard->portfolio());
        if (!problem) {
            return true;
        }
        m_wizard->host().messageBox(problem->message, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        QWidget* field = m_symbols;
        if (problem->row >= 0 && size_t(problem->row) < m_rows.size()) {
            const Row& r = m_rows[size_t(problem->row)];
            switch (problem->field) {
            case core::EntryField::HighLimit:
                field = r.high;
                break;
            case core::EntryField::LowLimit:
                field = r.low;
                break;
            case core::EntryField::HighChgLimit:
            case core::EntryField::LowChgLimit:
                field = r.move;
                break;
            default:
                break;
            }
        }
        field->setFocus();
        return false;
    }

private:
    struct Row
    {
        QString ticker;
        QLabel* symbol = nullptr;
        LookupLabel* found = nullptr;
        QLineEdit* high = nullptr;
        QLineEdit* low = nullptr;
        QLineEdit* move = nullptr;
    };

    QLineEdit* limitEdit(const QString& name, const QString& ticker)
    {
        auto* e = new QLineEdit;
        e->setObjectName(name + u'_' + ticker);
        e->setAlignment(Qt::AlignRight);
        e->setPlaceholderText(tr("none"));
        e->setFixedWidth(e->fontMetrics().horizontalAdvance(QStringLiteral("00000.00")) +
                         e->fontMetrics().averageCharWidth() * 2);
        return e;
    }

    // The rows follow the symbols typed, in their order; limits typed into a row stay with
    // its symbol, and only symbols not asked about before go to the sources.
    void syncRows()
    {
        m_pause.stop();
        const QStringList tickers = core::splitTickers(m_symbols->toPlainText());
        std::map<QString, Row> old;
        for (Row& r : m_rows) {
            old.emplace(r.ticker, r);
        }
        std::vector<Row> rows;
        QStringList fresh;
        for (const QString& t : tickers) {
            if (auto it = old.find(t); it != old.end()) {
                rows.push_back(it->second);
                old.erase(it);
                continue;
            }
            Row r;
            r.ticker = t;
            r.symbol = new QLabel(t);
            r.symbol->setTextFormat(Qt::PlainText);
            r.found = new LookupLabel;
            r.found->setObjectName(QStringLiteral("lookup_") + t);
            r.high = limitEdit(QStringLiteral("high"), t);
            r.low = limitEdit(QStringLiteral("low"), t);
            r.move = limitEdit(QStringLiteral("move"), t);
            r.move->setPlaceholderText(tr("none"));
            if (auto known = m_results.find(t); known != m_results.end()) {
                r.found->showResult(*known);
            } else {
                r.found->showAsking(t);
                fresh << t;
            }
            rows.push_back(r);
        }
        for (auto& [ticker, r] : old) {
            for (QWidget* w : std::initializer_list<QWidget*>{r.symbol, r.found, r.high, r.low, r.move}) {
                w->deleteLater();
            }
        }
        // Laid out again in the typed order; the tab order follows the rows.
        for (const Row& r : m_rows) {
            for (QWidget* w : std::initializer_list<QWidget*>{r.symbol, r.found, r.high, r.low, r.move}) {
                m_grid->removeWidget(w);
            }
        }
        m_grid->setRowStretch(int(m_rows.size()) + 1, 0);
        m_rows = rows;
        QWidget* previous = m_symbols;
        for (size_t i = 0; i < m_rows.size(); ++i) {
            const Row& r = m_rows[i];
            const int at = int(i) + 1;
            m_grid->addWidget(r.symbol, at, 0);
            m_grid->addWidget(r.found, at, 1);
            m_grid->addWidget(r.high, at, 2);
            m_grid->addWidget(r.low, at, 3);
            m_grid->addWidget(r.move, at, 4);
            for (QWidget* w : {r.high, r.low, r.move}) {
                setTabOrder(previous, w);
                previous = w;
            }
        }
        m_grid->setRowStretch(int(m_rows.size()) + 1, 1);
        // The column headings are the labels of the first row's fields.
        m_highHeader->setBuddy(m_rows.empty() ? nullptr : m_rows.front().high);
        m_lowHeader->setBuddy(m_rows.empty() ? nullptr : m_rows.front().low);
        m_moveHeader->setBuddy(m_rows.empty() ? nullptr : m_rows.front().move);
        if (!fresh.isEmpty()) {
            lookup()->lookUp(fresh);
        }
    }

    quotes::SymbolLookup* lookup()
    {
        if (!m_lookup) {
            m_lookup = new quotes::SymbolLookup(m_wizard->application().lookupSetup(&m_wizard->options()), this);
            connect(m_lookup, &quotes::SymbolLookup::resolved, this, [this](const quotes::LookupResult& r) {
                m_results.insert(r.symbol, r);
                for (const Row& row : m_rows) {
                    if (row.ticker == r.symbol) {
                        row.found->showResult(r);
                    }
                }
            });
        }
        return m_lookup;
    }

    SetupWizard* m_wizard;
    QPlainTextEdit* m_symbols;
    QWidget* m_rowsBox;
    QGridLayout* m_grid;
    QLabel* m_highHeader;
    QLabel* m_lowHeader;
    QLabel* m_moveHeader;
    QLabel* m_hint;
    QString m_hintText;
    QTimer m_pause;
    std::vector<Row> m_rows;
    QHash<QString, quotes::LookupResult> m_results;
    quotes::SymbolLookup* m_lookup = nullptr;
};

// ---- How to tell you ----

class NotifyPage : public QWizardPage
{
public:
    explicit NotifyPage(SetupWizard* wizard) : m_wizard(wizard)
    {
        setObjectName(QStringLiteral("pageNotify"));
        setTitle(tr("How to tell you"));

        m_push = new QCheckBox(tr("Push to my &phone"));
        m_push->setObjectName(QStringLiteral("chkPush"));
        m_push->setChecked(true);
        m_pushUrl = new QLineEdit(delivery::PushNotifier::suggestedTopicUrl());
        m_pushUrl->setObjectName(QStringLiteral("push.url"));
        m_pushUrl->setMinimumWidth(m_pushUrl->fontMetrics().averageCharWidth() * 44);
        m_subscribe = textLabel(QString());
        m_subscribe->setObjectName(QStringLiteral("lblSubscribe"));
        m_subscribe->setTextFormat(Qt::RichText);
        m_subscribe->setTextInteractionFlags(Qt::TextBrowserInteraction);
        m_subscribe->setOpenExternalLinks(false);
        auto* pushForm = new QFormLayout;
        pushForm->addRow(buddyLabel(tr("Topic &URL:"), m_pushUrl), m_pushUrl);
        pushForm->addRow(m_subscribe);

        m_email = new QCheckBox(tr("Send an &e-mail"));
        m_email->setObjectName(QStringLiteral("chkEmail"));
        m_address = new QLineEdit;
        m_address->setObjectName(QStringLiteral("smtp.recipient"));
        m_address->setPlaceholderText(QStringLiteral("me@example.com"));
        m_server = new QLineEdit;
        m_server->setObjectName(QStringLiteral("smtp.host"));
        m_server->setPlaceholderText(QStringLiteral("smtp.example.com"));
        m_port = new QLineEdit(QString::number(delivery::kSubmissionPort));
        m_port->setObjectName(QStringLiteral("smtp.port"));
        m_port->setFixedWidth(m_port->fontMetrics().horizontalAdvance(QStringLiteral("000000")) +
                              m_port->fontMetrics().averageCharWidth() * 2);
        m_security = new QComboBox;
        m_security->setObjectName(QStringLiteral("smtp.security"));
        m_security->addItems({tr("None"), tr("STARTTLS"), tr("TLS")});
        m_security->setCurrentIndex(int(delivery::MailSecurity::StartTls));
        m_user = new QLineEdit;
        m_user->setObjectName(QStringLiteral("smtp.user"));
        m_user->setPlaceholderText(tr("when the server asks for a log-on"));
        m_password = new QLineEdit;
        m_password->setObjectName(QStringLiteral("smtp.password"));
        m_password->setEchoMode(QLineEdit::Password);
        auto* serverRow = new QHBoxLayout;
        serverRow->addWidget(m_server, 1);
        serverRow->addWidget(buddyLabel(tr("P&ort:"), m_port));
        serverRow->addWidget(m_port);
        serverRow->addWidget(buddyLabel(tr("Securit&y:"), m_security));
        serverRow->addWidget(m_security);
        auto* mailForm = new QFormLayout;
        mailForm->addRow(buddyLabel(tr("&Address:"), m_address), m_address);
        mailForm->addRow(buddyLabel(tr("Ser&ver:"), m_server), serverRow);
        mailForm->addRow(buddyLabel(tr("User na&me:"), m_user), m_user);
        mailForm->addRow(buddyLabel(tr("Pass&word:"), m_password), m_password);

        m_desktop = textLabel(QString());
        m_pager = new QPushButton(tr("Pa&ger by modem..."));
        m_pager->setObjectName(QStringLiteral("cmdPager"));
        m_pager->setAutoDefault(false);
        m_pagerState = textLabel(QString());
        m_pagerState->setObjectName(QStringLiteral("lblPager"));
        auto* pagerRow = new QHBoxLayout;
        pagerRow->addWidget(m_pager);
        pagerRow->addWidget(m_pagerState, 1);

        m_test = new QPushButton(tr("Send a &test"));
        m_test->setObjectName(QStringLiteral("cmdSendTest"));
        m_test->setAutoDefault(false);
        m_testResult = textLabel(QString());
        m_testResult->setObjectName(QStringLiteral("lblTestResult"));
        m_testResult->setTextFormat(Qt::PlainText);
        m_testResult->setTextInteractionFlags(Qt::TextSelectableByMouse);
        auto* testRow = new QHBoxLayout;
        testRow->addWidget(m_test, 0, Qt::AlignTop);
        testRow->addWidget(m_testResult, 1);

        auto* layout = new QVBoxLayout(this);
        layout->addWidget(m_push);
        layout->addLayout(indented(pushForm));
        layout->addWidget(m_email);
        layout->addLayout(indented(mailForm));
        layout->addWidget(m_desktop);
        layout->addLayout(pagerRow);
        layout->addStretch();
        layout->addLayout(testRow);

        m_pushFields = {m_pushUrl, m_subscribe};
        m_mailFields = {m_address, m_server, m_port, m_security, m_user, m_password};
        connect(m_push, &QCheckBox::toggled, this, [this](bool on) {
            settle();
            if (on) {
                QTimer::singleShot(0, m_pushUrl, [this] {
                    m_pushUrl->setFocus();
                    m_pushUrl->selectAll();
                });
            }
        });
        connect(m_email, &QCheckBox::toggled, this, [this](bool on) {
            settle();
            if (on) {
                // After the click that ticked the box has given it the focus.
                QTimer::singleShot(0, m_address, [this] { m_address->setFocus(); });
            }
        });
        connect(m_pushUrl, &QLineEdit::textChanged, this, [this] { settle(); });
        connect(m_address, &QLineEdit::editingFinished, this, [this] { addressLeft(); });
        connect(m_server, &QLineEdit::editingFinished, this, [this] { serverLeft(); });
        connect(m_pager, &QPushButton::clicked, this, [this] { pagerOptions(); });
        connect(m_test, &QPushButton::clicked, this, [this] { sendTest(); });
        settle();
    }

    ~NotifyPage() override
    {
        // A field that has the focus loses it while QWidget's destructor takes the children
        // down; its editingFinished must not reach this half-destroyed page.
        disconnect(m_address, nullptr, this, nullptr);
        disconnect(m_server, nullptr, this, nullptr);
    }

    void initializePage() override
    {
        // The suggested topic is the field's whole text: typing replaces it at once. Once the
        // wizard has shown the page, which gives the focus to its first control.
        QTimer::singleShot(0, m_pushUrl, [this] {
            if (m_push->isChecked()) {
                m_pushUrl->setFocus();
                m_pushUrl->selectAll();
            }
        });
    }

    bool validatePage() override
    {
        serverLeft();
        return routesInto(m_wizard->options());
    }

private:
    static QLayout* indented(QLayout* inner)
    {
        auto* row = new QHBoxLayout;
        row->addSpacing(24);
        row->addLayout(inner, 1);
        return row;
    }

    // Enable states and the words that go with what is ticked.
    void settle()
    {
        for (QWidget* w : m_pushFields) {
            w->setEnabled(m_push->isChecked());
        }
        for (QWidget* w : m_mailFields) {
            w->setEnabled(m_email->isChecked());
        }
        const QString topic = delivery::PushNotifier::topicOf(m_pushUrl->text());
        const QString server = QUrl(m_pushUrl->text().trimmed()).host();
        m_subscribe->setText(
            tr("On your phone, install the <b>ntfy</b> app, tap <b>+</b> and subscribe to the topic "
               "<b style=\"white-space:nowrap\">%1</b>%2. "
               "Whoever knows the topic's name can read it: keep it to yourself.")
                .arg(topic.toHtmlEscaped(),
                     server.isEmpty() || server == QLatin1String("ntfy.sh")
                         ? QString()
                         : tr(" on the server <b style=\"white-space:nowrap\">%1</b>").arg(server.toHtmlEscaped())));
        const bool none = !m_push->isChecked() && !m_email->isChecked();
        m_desktop->setText(none ? tr("Nothing ticked: alarms show as desktop notifications on this computer only.")
                                : tr("Alarms also show as desktop notifications on this computer."));
        const core::PagingOptions& p = m_wizard->options().paging;
        m_pagerState->setText(p.phone.trimmed().isEmpty()
                                  ? tr("A pager by modem is set up in the full options.")
                                  : tr("Pages also go to the paging service at %1.").arg(p.phone.trimmed()));
    }

    // A provider known by the address gets its server (and the address as the log-on).
    void addressLeft()
    {
        if (!m_server->text().trimmed().isEmpty()) {
            return;
        }
        const QString server = delivery::smtpServerForAddress(m_address->text());
        if (server.isEmpty()) {
            return;
        }
        m_server->setText(server);
        serverLeft();
        if (m_user->text().trimmed().isEmpty()) {
            m_user->setText(m_address->text().trimmed());
        }
    }

    // The port and security follow the server's name ("smtp.gmail.com", "host:2525").
    void serverLeft()
    {
        // Once per server typed: a port or security chosen afterwards by hand stays.
        if (m_server->text().trimmed().isEmpty() || m_server->text() == m_serverApplied) {
            return;
        }
        const delivery::SmtpEndpoint e = delivery::smtpEndpointFor(m_server->text());
        if (e.host != m_server->text()) {
            m_server->setText(e.host);
        }
        m_serverApplied = m_server->text();
        m_port->setText(QString::number(e.port));
        m_security->setCurrentIndex(int(e.security));
    }

    QString labelOf(const QString& option) const
    {
        static const std::map<QString, const char*> labels = {
            {QStringLiteral("push.url"), "Topic URL"},  {QStringLiteral("smtp.recipient"), "Address"},
            {QStringLiteral("smtp.host"), "Server"},    {QStringLiteral("smtp.address"), "Server"},
            {QStringLiteral("smtp.port"), "Port"},      {QStringLiteral("smtp.security"), "Security"},
            {QStringLiteral("smtp.user"), "User name"}, {QStringLiteral("smtp.password"), "Password"},
            {QStringLiteral("smtp.from"), "User name"},
        };
        const auto it = labels.find(option);
        return it == labels.end() ? option : tr(it->second);
    }

    QWidget* fieldOf(const QString& option) const
    {
        if (option == QLatin1String("push.url")) {
            return m_pushUrl;
        }
        if (option == QLatin1String("smtp.address")) {
            return m_server;
        }
        if (option == QLatin1String("smtp.from")) {
            return m_user;
        }
        for (QWidget* w : m_mailFields) {
            if (w->objectName() == option) {
                return w;
            }
        }
        return nullptr;
    }

    // The routes as the page shows them, set into options by the engine's rules; a refusal
    // is shown and its field gets the focus.
    bool routesInto(core::Options& options)
    {
        app::RouteInput in;
        in.push = m_push->isChecked();
        in.email = m_email->isChecked();
        in.texts.insert(QStringLiteral("push.url"), m_pushUrl->text());
        in.texts.insert(QStringLiteral("smtp.recipient"), m_address->text());
        in.texts.insert(QStringLiteral("smtp.host"), m_server->text());
        in.texts.insert(QStringLiteral("smtp.port"), m_port->text());
        in.texts.insert(QStringLiteral("smtp.security"), QString::number(m_security->currentIndex()));
        in.texts.insert(QStringLiteral("smtp.user"), m_user->text());
        in.texts.insert(QStringLiteral("smtp.password"), m_password->text());
        const auto problem = app::applyRoutes(in, options, [this](const QString& o) { return labelOf(o); });
        if (!problem) {
            return true;
        }
        m_wizard->host().messageBox(problem->message, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        if (QWidget* w = fieldOf(problem->option)) {
            w->setFocus();
            if (auto* edit = qobject_cast<QLineEdit*>(w)) {
                edit->selectAll();
            }
        }
        return false;
    }

    void pagerOptions()
    {
        OptionsDialog dlg(this, m_wizard->application(), m_wizard->host(), m_wizard->options(),
                          m_wizard->storeValues());
        dlg.tabs()->setCurrentIndex(0);
        dlg.exec();
        settle();
    }

    void sendTest()
    {
        serverLeft();
        core::Options shown = m_wizard->options();
        if (!routesInto(shown)) {
            return;
        }
        if (!shown.push.enabled && !shown.smtp.enabled) {
            Q_EMIT m_wizard->desktopTestRequested();
            m_testResult->setText(tr("Shown on this computer: look for the notification."));
            return;
        }
        m_testResult->setText(tr("Sending..."));
        setEnabled(false);
        const std::vector<app::RouteTest> outcomes = m_wizard->application().sendRouteTests(shown);
        setEnabled(true);
        QStringList lines;
        for (const app::RouteTest& t : outcomes) {
            lines << t.route + QStringLiteral(": ") + t.text;
        }
        m_testResult->setText(lines.join(u'\n'));
    }

    SetupWizard* m_wizard;
    QCheckBox* m_push;
    QLineEdit* m_pushUrl;
    QLabel* m_subscribe;
    QCheckBox* m_email;
    QLineEdit* m_address;
    QLineEdit* m_server;
    QLineEdit* m_port;
    QComboBox* m_security;
    QLineEdit* m_user;
    QLineEdit* m_password;
    QLabel* m_desktop;
    QPushButton* m_pager;
    QLabel* m_pagerState;
    QPushButton* m_test;
    QLabel* m_testResult;
    QList<QWidget*> m_pushFields;
    QList<QWidget*> m_mailFields;
    QString m_serverApplied; // the server whose port and security are shown
};

// ---- When to check ----

class WhenPage : public QWizardPage
{
public:
    explicit WhenPage(SetupWizard* wizard) : m_wizard(wizard)
    {
        setObjectName(QStringLiteral("pageWhen"));
        setTitle(tr("When to check"));
        setFinalPage(true);

        const QDateTime now = wizard->application().clock().now();
        QString why;
        m_hours = app::marketHoursIn(now.date(), QTimeZone::systemTimeZone(), &why);
        m_custom = wizard->options().schedule;

        m_marketHours = new QRadioButton(tr("During the &market's hours"));
        m_marketHours->setObjectName(QStringLiteral("optMarketHours"));
        m_hoursText = textLabel(QString());
        m_hoursText->setObjectName(QStringLiteral("lblMarketHours"));
        m_ownTimes = new QRadioButton(tr("&Your own times"));
        m_ownTimes->setObjectName(QStringLiteral("optCustom"));
        m_edit = new QPushButton(tr("&Edit the times..."));
        m_edit->setObjectName(QStringLiteral("cmdSchedule"));
        m_edit->setAutoDefault(false);
        auto* group = new QButtonGroup(this);
        group->addButton(m_marketHours);
        group->addButton(m_ownTimes);
        if (m_hours) {
            const core::ScheduleOptions local = app::marketHoursSchedule({}, *m_hours);
            m_hoursText->setText(tr("Weekdays from %1 to %2 your time (9:30 am to 4:00 pm in New York): at the "
                                    "open, every %3 minutes, and at the close.")
                                     .arg(local.openTime, local.closeTime)
                                     .arg(app::kMarketHoursInterval));
            m_marketHours->setChecked(true);
            m_custom = app::marketHoursSchedule(m_custom, *m_hours);
        } else {
            m_hoursText->setText(why);
            m_marketHours->setEnabled(false);
            m_ownTimes->setChecked(true);
        }
        m_firstUpdate = textLabel(QString());
        m_firstUpdate->setObjectName(QStringLiteral("lblFirstUpdate"));

        m_file = new QLineEdit(wizard->application().suggestedSetupFile());
        m_file->setObjectName(QStringLiteral("txtFile"));
        m_file->setMinimumWidth(m_file->fontMetrics().averageCharWidth() * 40);
        auto* browse = new QPushButton(tr("Bro&wse..."));
        browse->setObjectName(QStringLiteral("cmdBrowse"));
        browse->setAutoDefault(false);
        auto* fileRow = new QHBoxLayout;
        fileRow->addWidget(m_file, 1);
        fileRow->addWidget(browse);

        auto* layout = new QVBoxLayout(this);
        layout->addWidget(m_marketHours);
        layout->addLayout(indented(m_hoursText));
        auto* ownRow = new QHBoxLayout;
        ownRow->addWidget(m_ownTimes);
        ownRow->addWidget(m_edit);
        ownRow->addStretch();
        layout->addLayout(ownRow);
        layout->addSpacing(8);
        layout->addWidget(m_firstUpdate);
        layout->addStretch();
        layout->addWidget(buddyLabel(tr("Save the setup &as:"), m_file));
        layout->addLayout(fileRow);
        layout->addWidget(textLabel(tr("Finish saves the setup and makes it the one Kestrova opens at start, turns "
                                       "paging and the schedule on, and runs one update at once: the table fills, "
                                       "and an alarm that is already true is sent now.")));

        connect(m_marketHours, &QRadioButton::toggled, this, [this] { settle(); });
        connect(m_edit, &QPushButton::clicked, this, [this] { editTimes(); });
        connect(browse, &QPushButton::clicked, this, [this] {
            const QString name =
                QFileDialog::getSaveFileName(this, tr("Save the Setup As"), m_file->text(), app::kPortfolioFileFilter);
            if (!name.isEmpty()) {
                m_file->setText(QDir::toNativeSeparators(name));
            }
        });
        connect(m_file, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);
        settle();
    }

    bool isComplete() const override { return !m_file->text().trimmed().isEmpty(); }

    bool validatePage() override
    {
        m_wizard->options().schedule = chosen();
        return m_wizard->commit(QDir::fromNativeSeparators(m_file->text().trimmed()));
    }

private:
    static QLayout* indented(QWidget* inner)
    {
        auto* row = new QHBoxLayout;
        row->addSpacing(24);
        row->addWidget(inner, 1);
        return row;
    }

    core::ScheduleOptions chosen() const
    {
        core::ScheduleOptions s = m_marketHours->isChecked() && m_hours
                                      ? app::marketHoursSchedule(m_wizard->options().schedule, *m_hours)
                                      : m_custom;
        s.enabled = true;
        return s;
    }

    void settle() { m_firstUpdate->setText(app::firstUpdateText(chosen(), m_wizard->application().clock().now())); }

    void editTimes()
    {
        core::ScheduleOptions edited = m_custom;
        ScheduleDialog dlg(this, m_wizard->host(), edited);
        if (dlg.exec() != QDialog::Accepted) {
            return;
        }
        m_custom = edited;
        m_ownTimes->setChecked(true);
        settle();
    }

    SetupWizard* m_wizard;
    std::optional<app::MarketHours> m_hours;
    core::ScheduleOptions m_custom;
    QRadioButton* m_marketHours;
    QLabel* m_hoursText;
    QRadioButton* m_ownTimes;
    QPushButton* m_edit;
    QLabel* m_firstUpdate;
    QLineEdit* m_file;
};

} // namespace

SetupWizard::SetupWizard(QWidget* parent, app::Application& app, GuiHost& host)
    : QWizard(parent), m_app(app), m_host(host), m_options(app.freshOptions())
{
    setObjectName(QStringLiteral("SetupWizard"));
    setWindowTitle(tr("New Setup"));
    // Every button reachable by its letter; the pages keep clear of these.
    setButtonText(QWizard::CancelButton, tr("&Cancel"));
    setPage(WatchPageId, new WatchPage(this));
    setPage(NotifyPageId, new NotifyPage(this));
    setPage(WhenPageId, new WhenPage(this));
    setOption(QWizard::NoBackButtonOnStartPage);
    if (const QScreen* screen = this->screen()) {
        // Room for a symbol's name and price on one line beside its three limits.
        const QSize want(std::max(sizeHint().width(), fontMetrics().averageCharWidth() * 135),
                         std::max(sizeHint().height(), fontMetrics().lineSpacing() * 36));
        resize(want.boundedTo(screen->availableSize() * 0.9));
    }
}

bool SetupWizard::commit(const QString& file)
{
    if (!m_app.finishSetup(m_portfolio, m_options, file)) {
        return false;
    }
    if (!m_store.isEmpty()) {
        m_app.applyStoreValues(m_store);
    }
    return true;
}

} // namespace kestrova::gui
