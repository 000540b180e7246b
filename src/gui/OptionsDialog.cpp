#include "gui/OptionsDialog.h"

#include "app/Application.h"
#include "core/OptionChecks.h"
#include "core/OptionRegistry.h"
#include "delivery/SerialLine.h"
#include "gui/FieldCheck.h"
#include "gui/GuiHost.h"
#include "gui/Mnemonics.h"
#include "gui/ModemDialog.h"
#include "gui/WindowPlacement.h"
#include "quotes/BuiltInServers.h"
#include "quotes/QuoteCycle.h"
#include "quotes/SourceDefinition.h"
#include "secrets/SecretStore.h"
#include "settings/SettingsStore.h"
#include "support/Text.h"

#include <QAction>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

const QString kTrue = QStringLiteral("true");
const QString kFalse = QStringLiteral("false");

QString flag(bool on)
{
    return on ? kTrue : kFalse;
}

bool isTrue(const QString& text)
{
    return text == kTrue;
}

QGroupBox* group(const QString& title, QFormLayout** form)
{
    auto* box = new QGroupBox(title);
    *form = new QFormLayout(box);
    (*form)->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    return box;
}

// A tab whose content scrolls when the window is smaller than the form (large fonts,
// a 200 % scale on a small screen) instead of being cut off. It asks for the room its form
// needs, so the dialog opens without scrolling wherever the screen allows it.
class FormScrollArea : public QScrollArea
{
public:
    QSize sizeHint() const override
    {
        const QSize inner = widget() ? widget()->sizeHint() : QSize();
        return inner + QSize(2 * frameWidth() + verticalScrollBar()->sizeHint().width(), 2 * frameWidth());
    }
};

QWidget* page(const QList<QWidget*>& left, const QList<QWidget*>& right = {})
{
    auto* inner = new QWidget;
    auto* columns = new QHBoxLayout(inner);
    for (const QList<QWidget*>* boxes : {&left, &right}) {
        if (boxes->isEmpty()) {
            continue;
        }
        auto* column = new QVBoxLayout;
        for (QWidget* b : *boxes) {
            column->addWidget(b);
        }
        column->addStretch();
        columns->addLayout(column, 1);
    }
    auto* scroll = new FormScrollArea;
    scroll->setWidget(inner);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    return scroll;
}

} // namespace

OptionsDialog::OptionsDialog(QWidget* parent, app::Application& app, GuiHost& host)
    : OptionsDialog(parent, app, host, app.state().options, nullptr, nullptr)
{}

OptionsDialog::OptionsDialog(QWidget* parent, app::Application& app, GuiHost& host, core::Options& target,
                             QHash<QString, QString>& storeTarget)
    : OptionsDialog(parent, app, host, target, &target, &storeTarget)
{}

OptionsDialog::OptionsDialog(QWidget* parent, app::Application& app, GuiHost& host, const core::Options& start,
                             core::Options* target, QHash<QString, QString>* storeTarget)
    : QDialog(parent), m_app(app), m_host(host), m_options(start), m_target(target), m_storeTarget(storeTarget),
      m_prefs(app.state().prefs), m_logons(m_options.quotes.logons)
{
    setObjectName(QStringLiteral("OptionsDialog"));
    setWindowTitle(tr("Options"));

    m_tabs = new QTabWidget;
    m_tabs->setObjectName(QStringLiteral("tabOptions"));
    m_tabs->addTab(pagerPage(), tr("Pager"));
    m_tabs->addTab(emailPage(), tr("E-mail Paging"));
    m_tabs->addTab(pushPage(), tr("Push"));
    m_tabs->addTab(mailPage(), tr("Mail Check"));
    m_tabs->addTab(connectionPage(), tr("Connection"));
    m_tabs->addTab(quotesPage(), tr("Quotes and News"));
    m_tabs->addTab(sourcesPage(), tr("Sources"));
    m_tabs->addTab(serialPage(), tr("Serial Port"));
    m_tabs->addTab(programPage(), tr("Program"));

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Save)->setObjectName(QStringLiteral("cmdSave"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cmdCancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &OptionsDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &OptionsDialog::reject);

    auto* main = new QVBoxLayout(this);
    main->addWidget(m_tabs, 1);
    main->addWidget(buttons);

    loadFields();
    for (const auto& settle : m_afterLoad) {
        settle();
    }
    if (const QScreen* screen = this->screen()) {
        // Every tab's title in view, and every tab's form without scrolling where the screen allows.
        const QSize want(std::max(sizeHint().width(), m_tabs->tabBar()->sizeHint().width() +
                                                          4 * style()->pixelMetric(QStyle::PM_LayoutLeftMargin)),
                         sizeHint().height());
        resize(want.boundedTo(screen->availableSize() * 0.9));
    }
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

// ---- field builders ----

void OptionsDialog::bind(const char* option, const QString& label, QWidget* editor, std::function<QString()> read,
                         std::function<void(const QString&)> write)
{
    Field f;
    f.name = QString::fromLatin1(option);
    f.label = label;
    f.editor = editor;
    f.read = std::move(read);
    f.write = std::move(write);
    f.def = core::OptionRegistry::find(f.name);
    if (!f.def || (!f.def->get && !f.def->getPref)) {
        qFatal("no option %s", option);
    }
    // The engine's one-line description is the tooltip unless the field has its own.
    if (editor->toolTip().isEmpty()) {
        editor->setToolTip(f.def->description);
    }
    editor->setObjectName(f.name);
    m_fields.push_back(std::move(f));
}

void OptionsDialog::bindPreference(const char* key, const QString& label, QWidget* editor,
                                   std::function<QString()> read, std::function<void(const QString&)> write)
{
    // Preferences are options of the settings store: read, checked and stored by the same rules.
    bind(key, label, editor, std::move(read), std::move(write));
    m_fields.back().preference = true;
}

QLineEdit* OptionsDialog::text(QFormLayout* form, const char* option, const QString& label, const QString& tip)
{
    auto* edit = new QLineEdit;
    edit->setToolTip(tip);
    form->addRow(label, edit);
    bind(
        option, label, edit, [edit] { return edit->text(); }, [edit](const QString& v) { edit->setText(v); });
    return edit;
}

QLineEdit* OptionsDialog::number(QFormLayout* form, const char* option, const QString& label, const QString& tip)
{
    QLineEdit* edit = text(form, option, label, tip);
    edit->setAlignment(Qt::AlignRight);
    edit->setMaximumWidth(fontMetrics().averageCharWidth() * 12);
    return edit;
}

QLineEdit* OptionsDialog::password(QFormLayout* form, const char* option, const QString& label)
{
    // The stored password never goes into the field: the field starts empty, says whether
    // one is stored, and whatever is typed replaces it. "Forget" removes the stored one.
    auto* edit = new QLineEdit;
    edit->setEchoMode(QLineEdit::Password);
    edit->setToolTip(tr("Type a new password to replace the stored one"));
    auto* forget = edit->addAction(QIcon::fromTheme(QStringLiteral("edit-clear")), QLineEdit::TrailingPosition);
    forget->setToolTip(tr("Forget the stored password"));
    auto forgotten = std::make_shared<bool>(false);
    auto stored = std::make_shared<bool>(false);
    auto showState = [edit, forget, stored, forgotten] {
        const bool has = *stored && !*forgotten;
        edit->setPlaceholderText(has ? tr("stored - type to replace") : QString());
        forget->setVisible(has);
    };
    connect(forget, &QAction::triggered, edit, [edit, forgotten, showState] {
        *forgotten = true;
        edit->clear();
        showState();
    });
    form->addRow(label, edit);
    const QString name = QString::fromLatin1(option);
    bind(
        option, label, edit,
        [this, edit, forgotten, name] {
            if (!edit->text().isEmpty()) {
                return edit->text();
            }
            return *forgotten ? QString() : core::OptionRegistry::find(name)->get(m_options);
        },
        [edit, stored, forgotten, showState](const QString& value) {
            edit->clear();
            *stored = !value.isEmpty();
            *forgotten = false;
            showState();
        });
    return edit;
}

QLineEdit* OptionsDialog::secretPreference(QFormLayout* form, const QString& option, const QString& label)
{
    // Like a password: the field starts empty and only says whether a secret is stored.
    // Left alone, the stored secret is not touched (it is not even read: a keyring that
    // cannot be asked just now must not cost the key); "Forget" removes it.
    auto* edit = new QLineEdit;
    edit->setEchoMode(QLineEdit::Password);
    auto* forget = edit->addAction(QIcon::fromTheme(QStringLiteral("edit-clear")), QLineEdit::TrailingPosition);
    forget->setToolTip(tr("Forget the stored key"));
    auto forgotten = std::make_shared<bool>(false);
    auto stored = std::make_shared<bool>(false);
    auto showState = [edit, forget, stored, forgotten] {
        const bool has = *stored && !*forgotten;
        edit->setPlaceholderText(has ? tr("stored - type to replace") : tr("none"));
        forget->setVisible(has);
    };
    connect(forget, &QAction::triggered, edit, [edit, forgotten, showState] {
        *forgotten = true;
        edit->clear();
        showState();
    });
    form->addRow(label, edit);
    bindPreference(
        option.toLatin1().constData(), label, edit,
        [edit, forgotten] {
            const QString typed = edit->text().trimmed();
            if (!typed.isEmpty()) {
                return typed;
            }
            // Null: left alone; empty: forgotten.
            return *forgotten ? QStringLiteral("") : QString();
        },
        [edit, stored, forgotten, showState](const QString& shown) {
            edit->clear();
            *stored = !shown.isEmpty();
            *forgotten = false;
            showState();
        });
    return edit;
}

QCheckBox* OptionsDialog::check(QFormLayout* form, const char* option, const QString& label, const QString& tip)
{
    auto* box = new QCheckBox(label);
    box->setToolTip(tip);
    form->addRow(box);
    bind(
        option, label, box, [box] { return flag(box->isChecked()); },
        [box](const QString& v) { box->setChecked(isTrue(v)); });
    return box;
}

QCheckBox* OptionsDialog::numberCheck(QFormLayout* form, const char* option, const QString& label)
{
    // A switch the file keeps as a number: ticked is 1, unticked 0.
    auto* box = new QCheckBox(label);
    form->addRow(box);
    bind(
        option, label, box, [box] { return QString::number(box->isChecked() ? 1 : 0); },
        [box](const QString& v) { box->setChecked(v.toInt() == 1); });
    return box;
}

QComboBox* OptionsDialog::choice(QFormLayout* form, const char* option, const QString& label, const QStringList& items)
{
    auto* combo = new QComboBox;
    combo->addItems(items);
    form->addRow(label, combo);
    bind(
        option, label, combo, [combo] { return QString::number(combo->currentIndex()); },
        [combo](const QString& v) { combo->setCurrentIndex(v.toInt()); });
    return combo;
}

// ---- pages ----

QWidget* OptionsDialog::pagerPage()
{
    QFormLayout* form = nullptr;
    QGroupBox* pager = group(tr("Pager"), &form);
    QCheckBox* numericPager =
        check(form, "pager.numeric", tr("&Digital Pager?"), tr("Does you pager only display numbers?"));
    text(form, "pager.id", tr("Pager &Identifier:"), tr("Please enter Pager ID without dashes"));
    text(form, "pager.phone", tr("PGR Service &Phone No.:"));
    text(form, "pager.user", tr("Pager &User:"), tr("Shown as the addressee when a page is sent by hand"));
    number(form, "pager.max_length", tr("Max Page &Length:"),
           tr("Max number of characters per line on your pager display."));

    QFormLayout* numForm = nullptr;
    QGroupBox* numeric = group(tr("Numeric pages"), &numForm);
    text(numForm, "pager.numeric_prefix", tr("Characters to p&recede:"), tr("Characters to precede the numeric page."));
    number(numForm, "pager.numeric_wait", tr("Dela&y (sec):"), tr("Delay after dialing pager before message is sent"));
    number(numForm, "pager.numeric_pause", tr("Pause settin&g:"),
           tr("Half of it gives the number of commas a numeric page starts with"));
    auto* testButton = new QPushButton(tr("Send &Test Page"));
    testButton->setObjectName(QStringLiteral("cmdTestPage"));
    testButton->setAutoDefault(false);
    connect(testButton, &QPushButton::clicked, this, &OptionsDialog::sendTestPage);
    // The test page is a numeric page: it means something only for a numeric pager.
    connect(numericPager, &QCheckBox::toggled, testButton, &QPushButton::setEnabled);
    m_afterLoad.push_back([numericPager, testButton] { testButton->setEnabled(numericPager->isChecked()); });
    m_testResult = new QLabel;
    m_testResult->setObjectName(QStringLiteral("lblTestResult"));
    m_testResult->setWordWrap(true);
    auto* testRow = new QHBoxLayout;
    testRow->addWidget(testButton);
    testRow->addWidget(m_testResult, 1);
    numForm->addRow(testRow);

    QFormLayout* dialForm = nullptr;
    QGroupBox* dialling = group(tr("Dialing"), &dialForm);
    number(dialForm, "pager.retries", tr("No. of R&etries:"));
    number(dialForm, "pager.retry_seconds", tr("Seconds &between retries:"));
    auto* modemButton = new QPushButton(tr("&Modem Settings..."));
    modemButton->setObjectName(QStringLiteral("cmdModem"));
    modemButton->setAutoDefault(false);
    connect(modemButton, &QPushButton::clicked, this, &OptionsDialog::openModemSettings);
    dialForm->addRow(modemButton);

    QFormLayout* contentForm = nullptr;
    QGroupBox* content = group(tr("What the page carries"), &contentForm);
    numberCheck(contentForm, "page.layout", tr("Include the price c&hange"));
    check(contentForm, "page.news", tr("Add fresh ne&ws"));
    check(contentForm, "pager.forward_mail", tr("&Forward new mail headers"));
    // Modes 0 and 1 both page while any alarm is on; 2 pages only when an alarm is new.
    auto* newOnly = new QCheckBox(tr("&Alarm pages only for new alarms"));
    contentForm->addRow(newOnly);
    bind(
        "alarms.mode", newOnly->text(), newOnly,
        [this, newOnly] {
            if (newOnly->isChecked()) {
                return QStringLiteral("2");
            }
            return m_options.alarms.mode == 2 ? QStringLiteral("0") : QString::number(m_options.alarms.mode);
        },
        [newOnly](const QString& v) { newOnly->setChecked(v.toInt() == 2); });
    check(contentForm, "alarms.select", tr("Page &only selected securities"));
    choice(contentForm, "alarms.select_mode", tr("Selectio&n:"),
           {tr("All securities"), tr("Securities with an alarm"), tr("Securities with a new alarm")});
    return page({pager, numeric}, {dialling, content});
}

QWidget* OptionsDialog::emailPage()
{
    QFormLayout* form = nullptr;
    QGroupBox* smtp = group(tr("SMTP"), &form);
    check(form, "smtp.enabled", tr("&Enable SMTP (Internet email) Paging"));
    text(form, "smtp.host", tr("SMTP &Host Name:"), tr("Host name of SMTP server (i.e. xyz.com)"));
    text(form, "smtp.address", tr("SMTP Host &Address:"), tr("IP address of SMTP server"));
    number(form, "smtp.port", tr("SMTP &Port:"));
    choice(form, "smtp.security", tr("Secur&ity:"), {tr("None"), tr("STARTTLS"), tr("TLS")});
    text(form, "smtp.user", tr("&User Name:"), tr("Leave empty when the server takes mail without a log-on"));
    password(form, "smtp.password", tr("Pass&word:"));
    text(form, "smtp.from", tr("&Return Email Address:"));
    text(form, "smtp.recipient", tr("Recipie&nt Email Address:"));
    text(form, "smtp.domain", tr("&Domain Name:"), tr("The name this computer gives the server"));
    number(form, "smtp.max_length", tr("Max Page &Length:"));
    return page({smtp});
}

QWidget* OptionsDialog::pushPage()
{
    QFormLayout* form = nullptr;
    QGroupBox* push = group(tr("Push notifications"), &form);
    QCheckBox* on = check(form, "push.enabled", tr("&Mirror every page to a push server"));
    choice(form, "push.style", tr("St&yle:"), {tr("ntfy-style topic"), tr("JSON webhook")});

    // A log-on in the URL is a password: the field shows it as "***" and keeps the stored
    // URL for as long as that text is left as it is; a URL typed in replaces it.
    auto* url = new QLineEdit;
    url->setPlaceholderText(QStringLiteral("https://ntfy.example.net/my-stocks"));
    const QString urlLabel = tr("&URL:");
    form->addRow(urlLabel, url);
    auto shownUrl = std::make_shared<QString>();
    bind(
        "push.url", urlLabel, url,
        [this, url, shownUrl] {
            const QString typed = url->text().trimmed();
            return !typed.isEmpty() && typed == *shownUrl ? m_options.push.url : typed;
        },
        [url, shownUrl](const QString& v) {
            *shownUrl = support::redactUrl(v);
            url->setText(*shownUrl);
        });
    password(form, "push.token", tr("&Token:"));
    number(form, "push.timeout", tr("T&ime-out (sec):"));

    const auto fields = form->parentWidget()->findChildren<QWidget*>();
    auto pushOnly = [on, fields] {
        for (QWidget* w : fields) {
            if (w != on) {
                w->setEnabled(on->isChecked());
            }
        }
    };
    connect(on, &QCheckBox::toggled, this, pushOnly);
    m_afterLoad.push_back(pushOnly);
    return page({push});
}

QWidget* OptionsDialog::mailPage()
{
    QFormLayout* form = nullptr;
    QGroupBox* pop = group(tr("POP mailbox"), &form);
    auto* checkMail = new QCheckBox(tr("Chec&k for mail at each update"));
    form->addRow(checkMail);
    bindPreference(
        "prefs.check_mail", checkMail->text(), checkMail, [checkMail] { return flag(checkMail->isChecked()); },
        [checkMail](const QString& v) { checkMail->setChecked(isTrue(v)); });
    auto* getMail = new QCheckBox(tr("&Download the mail found"));
    form->addRow(getMail);
    bindPreference(
        "prefs.get_mail", getMail->text(), getMail, [getMail] { return flag(getMail->isChecked()); },
        [getMail](const QString& v) { getMail->setChecked(isTrue(v)); });
    text(form, "mail.server", tr("POP Se&rver:"));
    number(form, "mail.port", tr("POP &Port:"));
    choice(form, "mail.security", tr("Sec&urity:"), {tr("None"), tr("STLS"), tr("TLS")});
    text(form, "mail.user", tr("User &Name:"));
    password(form, "mail.password", tr("Pass&word:"));
    auto* size = new QLineEdit;
    size->setAlignment(Qt::AlignRight);
    size->setMaximumWidth(fontMetrics().averageCharWidth() * 12);
    const QString sizeLabel = tr("Max Message Si&ze (KB):");
    form->addRow(sizeLabel, size);
    bindPreference(
        "prefs.mail_size", sizeLabel, size, [size] { return size->text(); },
        [size](const QString& v) { size->setText(v); });

    QFormLayout* modeForm = nullptr;
    QGroupBox* modes = group(tr("What to do with new mail"), &modeForm);
    choice(modeForm, "mail.mode", tr("M&ode:"),
           {tr("Notify Only"), tr("Download and Notify"), tr("Download, Page MSG Header"), tr("Download Messages")});
    check(modeForm, "mail.page_headers", tr("Page Email &Headers"),
          tr("Page Date, From, and Subject of email message"));
    check(modeForm, "mail.notify_waiting", tr("Notify if Email is wa&iting"));
    check(modeForm, "mail.marker_comma", tr("Follow the e-mail &marker with a comma"));
    return page({pop, modes});
}

QWidget* OptionsDialog::connectionPage()
{
    QFormLayout* form = nullptr;
    QGroupBox* link = group(tr("Internet connection"), &form);
    auto* dialup = new QRadioButton(tr("&Dial-up connection"));
    auto* direct = new QRadioButton(tr("D&irect (always on)"));
    auto* external = new QRadioButton(tr("E&xternal Dialer"));
    auto* types = new QButtonGroup(this);
    types->addButton(dialup, 0);
    types->addButton(direct, 1);
    types->addButton(external, 2);
    auto* typeBox = new QWidget;
    auto* typeLayout = new QVBoxLayout(typeBox);
    typeLayout->setContentsMargins(0, 0, 0, 0);
    for (QRadioButton* r : {dialup, direct, external}) {
        typeLayout->addWidget(r);
    }
    form->addRow(tr("Connect by:"), typeBox);
    bind(
        "connection.type", tr("Connect by:"), typeBox,
        [types] { return QString::number(std::max(0, types->checkedId())); },
        [types](const QString& v) {
            if (QAbstractButton* b = types->button(v.toInt())) {
                b->setChecked(true);
            }
        });
    QLineEdit* entry =
        text(form, "connection.entry", tr("Connection &Name:"), tr("The NetworkManager connection to bring up"));
    QLineEdit* user = text(form, "connection.user", tr("&User Name:"));
    QLineEdit* timeout = number(form, "connection.timeout", tr("&Time-out (sec):"));
    QCheckBox* hangUp = check(form, "connection.hang_up", tr("&Hang up after each update"));
    auto dialupOnly = [=] {
        for (QWidget* w : std::initializer_list<QWidget*>{entry, user, timeout, hangUp}) {
            w->setEnabled(dialup->isChecked());
        }
    };
    connect(dialup, &QRadioButton::toggled, this, dialupOnly);
    m_afterLoad.push_back(dialupOnly);
    auto* testButton = new QPushButton(tr("T&est Connection"));
    testButton->setObjectName(QStringLiteral("cmdTestConnection"));
    testButton->setAutoDefault(false);
    connect(testButton, &QPushButton::clicked, this, &OptionsDialog::testConnection);
    form->addRow(testButton);

    QFormLayout* proxyForm = nullptr;
    QGroupBox* proxy = group(tr("Proxy server"), &proxyForm);
    QCheckBox* useProxy = check(proxyForm, "proxy.enabled", tr("Fetch pages through a &proxy server"));
    QLineEdit* host = text(proxyForm, "proxy.host", tr("Proxy host na&me:"));
    QLineEdit* address = text(proxyForm, "proxy.address", tr("Proxy Host &Address:"));
    QLineEdit* port = number(proxyForm, "proxy.port", tr("Proxy P&ort:"));
    auto proxyOnly = [=] {
        for (QWidget* w : std::initializer_list<QWidget*>{host, address, port}) {
            w->setEnabled(useProxy->isChecked());
        }
    };
    connect(useProxy, &QCheckBox::toggled, this, proxyOnly);
    m_afterLoad.push_back(proxyOnly);
    return page({link}, {proxy});
}

QWidget* OptionsDialog::quotesPage()
{
    const quotes::BuiltInServers servers;
    QStringList names;
    for (int i = 0; i < quotes::BuiltInServers::kCount; ++i) {
        names << servers.at(i).name;
    }
    QFormLayout* form = nullptr;
    QGroupBox* service = group(tr("Quote service"), &form);
    choice(form, "quotes.server", tr("S&tock quotes from:"), names);
    choice(form, "quotes.option_server", tr("&Option quotes from:"), names);
    check(form, "quotes.fastest", tr("Use the &fastest service (Fastest)"),
          tr("Measures the services before each update and uses the quickest"));
    check(form, "modem.quote_service", tr("Quotes come by &modem, not the Internet"));
    check(form, "quotes.update_servers", tr("Fetch fresh server &definitions at each update"));

    QFormLayout* logonForm = nullptr;
    QGroupBox* logons = group(tr("Log-ons of the real-time services"), &logonForm);
    m_logonService = new QComboBox;
    m_logonService->setObjectName(QStringLiteral("cboLogonService"));
    m_logonService->addItems(names);
    m_logonUser = new QLineEdit;
    m_logonUser->setObjectName(QStringLiteral("txtLogonUser"));
    m_logonPassword = new QLineEdit;
    m_logonPassword->setObjectName(QStringLiteral("txtLogonPassword"));
    m_logonPassword->setEchoMode(QLineEdit::Password);
    logonForm->addRow(tr("Ser&vice:"), m_logonService);
    logonForm->addRow(tr("&User Name:"), m_logonUser);
    logonForm->addRow(tr("Pass&word:"), m_logonPassword);
    auto showLogon = [this](int i) {
        const auto idx = static_cast<size_t>(std::max(0, i));
        const QSignalBlocker b1(m_logonUser);
        const QSignalBlocker b2(m_logonPassword);
        m_logonUser->setText(m_logons[idx].user);
        m_logonPassword->clear();
        m_logonPassword->setPlaceholderText(m_logons[idx].password.isEmpty() ? QString()
                                                                             : tr("stored - type to replace"));
    };
    connect(m_logonService, &QComboBox::currentIndexChanged, this, showLogon);
    connect(m_logonUser, &QLineEdit::textEdited, this,
            [this](const QString& t) { m_logons[static_cast<size_t>(m_logonService->currentIndex())].user = t; });
    connect(m_logonPassword, &QLineEdit::textEdited, this, [this](const QString& t) {
        if (!t.isEmpty()) {
            m_logons[static_cast<size_t>(m_logonService->currentIndex())].password = t;
        }
    });
    auto* forget =
        m_logonPassword->addAction(QIcon::fromTheme(QStringLiteral("edit-clear")), QLineEdit::TrailingPosition);
    forget->setToolTip(tr("Forget the stored password"));
    connect(forget, &QAction::triggered, this, [this, showLogon] {
        m_logons[static_cast<size_t>(m_logonService->currentIndex())].password.clear();
        showLogon(m_logonService->currentIndex());
    });
    for (int i = 0; i < core::kBuiltInServers; ++i) {
        const auto idx = static_cast<size_t>(i);
        const QByteArray user = QStringLiteral("quotes.logon.%1.user").arg(i).toLatin1();
        const QByteArray pass = QStringLiteral("quotes.logon.%1.password").arg(i).toLatin1();
        const QString label = names[i] + QStringLiteral(" log-on");
        // Both bind to the one pair of fields on screen; the object names stay those of the fields.
        Field u;
        u.name = QString::fromLatin1(user);
        u.label = label + tr(" user name");
        u.editor = m_logonUser;
        u.def = core::OptionRegistry::find(u.name);
        u.read = [this, idx] { return m_logons[idx].user; };
        u.write = [this, idx, showLogon](const QString& v) {
            m_logons[idx].user = v;
            showLogon(m_logonService->currentIndex());
        };
        m_fields.push_back(u);
        Field p = u;
        p.name = QString::fromLatin1(pass);
        p.label = label + tr(" password");
        p.def = core::OptionRegistry::find(p.name);
        p.read = [this, idx] { return m_logons[idx].password; };
        p.write = [this, idx, showLogon](const QString& v) {
            m_logons[idx].password = v;
            showLogon(m_logonService->currentIndex());
        };
        m_fields.push_back(p);
    }

    QFormLayout* marketForm = nullptr;
    QGroupBox* market = group(tr("Market summary"), &marketForm);
    check(marketForm, "quotes.market_summary", tr("Fetch the market summar&y"));
    check(marketForm, "quotes.page_dow", tr("Dow &in the page"));
    check(marketForm, "quotes.page_nasdaq", tr("N&ASDAQ in the page"));
    check(marketForm, "quotes.page_sp500", tr("S&&P &500 in the page"));
    text(marketForm, "quotes.market_url", tr("Summary &page:"));

    QFormLayout* newsForm = nullptr;
    QGroupBox* news = group(tr("News"), &newsForm);
    check(newsForm, "news.retrieve", tr("Fetch &headlines before each update"));
    number(newsForm, "news.max_stories", tr("Stories per pa&ge:"));
    number(newsForm, "news.purge_days", tr("&Keep stories (days):"));
    return page({service, logons}, {market, news});
}

QWidget* OptionsDialog::sourcesPage()
{
    // The definitions as the next update will read them, so the list offers what is there.
    m_app.sources().refresh();
    const quotes::SourceFile file = m_app.sources().file();
    QStringList known;
    for (const quotes::SourceDefinition& s : file.sources) {
        known << s.name;
    }
    known << quotes::kServersDatEntry;

    auto* orderBox = new QGroupBox(tr("Quote sources, asked in turn"));
    auto* orderLayout = new QVBoxLayout(orderBox);
    auto* hint = new QLabel(tr("A security that a ticked source cannot price is asked of the next one. "
                               "servers.dat stands for the quote service chosen on the Quotes and News tab."));
    hint->setWordWrap(true);
    orderLayout->addWidget(hint);
    auto* list = new QListWidget;
    auto* listLabel = new QLabel(tr("S&ources to ask:"));
    listLabel->setBuddy(list);
    orderLayout->addWidget(listLabel);
    list->setToolTip(tr("Tick the sources to ask and put them in order; none ticked: the order sources.json "
                        "recommends"));
    auto* up = new QPushButton(tr("Move &Up"));
    up->setObjectName(QStringLiteral("cmdSourceUp"));
    auto* down = new QPushButton(tr("Move Do&wn"));
    down->setObjectName(QStringLiteral("cmdSourceDown"));
    for (QPushButton* b : {up, down}) {
        b->setAutoDefault(false);
    }
    auto* buttons = new QVBoxLayout;
    buttons->addWidget(up);
    buttons->addWidget(down);
    buttons->addStretch();
    auto* row = new QHBoxLayout;
    row->addWidget(list, 1);
    row->addLayout(buttons);
    orderLayout->addLayout(row);
    auto* healthForm = new QFormLayout;
    orderLayout->addLayout(healthForm);
    check(healthForm, "sources.page_health", tr("&Page a warning when a source stops pricing (once a day at most)"));

    // Until the user changes the list, Save keeps the stored text as it was: an empty order
    // goes on following what sources.json recommends, even when that file changes.
    auto touched = std::make_shared<bool>(false);
    auto stored = std::make_shared<QString>();
    bind(
        "sources.order", tr("Quote sources"), list,
        [list, touched, stored] {
            if (!*touched) {
                return *stored;
            }
            QStringList order;
            for (int i = 0; i < list->count(); ++i) {
                if (list->item(i)->checkState() == Qt::Checked) {
                    order << list->item(i)->text();
                }
            }
            return order.join(u',');
        },
        [list, touched, stored, file, known](const QString& v) {
            const QSignalBlocker blocker(list);
            *stored = v;
            *touched = false;
            list->clear();
            const QStringList order = quotes::effectiveOrder(v, file);
            auto add = [list](const QString& name, bool on) {
                auto* item = new QListWidgetItem(name, list);
                item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
                item->setCheckState(on ? Qt::Checked : Qt::Unchecked);
            };
            // A name the order holds but no definition has any more stays, ticked, so that
            // saving the dialog does not drop it unasked.
            for (const QString& name : order) {
                add(name, true);
            }
            for (const QString& name : known) {
                if (!order.contains(name, Qt::CaseInsensitive)) {
                    add(name, false);
                }
            }
            list->setCurrentRow(0);
        });
    connect(list, &QListWidget::itemChanged, this, [touched] { *touched = true; });
    auto move = [list, touched](int by) {
        const int from = list->currentRow();
        const int to = from + by;
        if (from < 0 || to < 0 || to >= list->count()) {
            return;
        }
        const QSignalBlocker blocker(list);
        list->insertItem(to, list->takeItem(from));
        list->setCurrentRow(to);
        *touched = true;
    };
    connect(up, &QPushButton::clicked, this, [move] { move(-1); });
    connect(down, &QPushButton::clicked, this, [move] { move(1); });

    QFormLayout* keysForm = nullptr;
    QGroupBox* keys = group(tr("API keys"), &keysForm);
    auto* keysHint = new QLabel(
        tr("Kept in %1, never in the portfolio file or the activity log.").arg(secrets::SecretStore().where()));
    keysHint->setWordWrap(true);
    keysForm->addRow(keysHint);
    // The names come from the file, so each label takes the first of its letters that no
    // other control on this tab underlines.
    QString taken = QStringLiteral("uwposc");
    auto withMnemonic = [&taken](const QString& name) -> QString {
        QString label = QString(name).replace(u'&', QStringLiteral("&&"));
        for (int i = 0; i < label.size(); ++i) {
            const QChar c = label[i].toLower();
            if (c.isLetter() && c.unicode() < 128 && !taken.contains(c)) {
                taken += c;
                return label.insert(i, u'&') + u':';
            }
        }
        return label + u':';
    };
    bool anyKey = false;
    for (const quotes::SourceDefinition& s : file.sources) {
        if (s.needsKey()) {
            secretPreference(keysForm, core::OptionRegistry::sourceKeyOption(s.name), withMnemonic(s.name));
            anyKey = true;
        }
    }
    if (!anyKey) {
        keysForm->addRow(new QLabel(tr("No source in sources.json needs a key.")));
    }
    if (!file.problems.isEmpty()) {
        // The broken definitions are left out of the list; say why, as the update will.
        auto* problems = new QLabel(file.problems.join(u'\n'));
        problems->setObjectName(QStringLiteral("lblSourceProblems"));
        problems->setWordWrap(true);
        problems->setTextInteractionFlags(Qt::TextSelectableByMouse);
        orderLayout->addWidget(problems);
    }
    return page({orderBox}, {keys});
}

QWidget* OptionsDialog::serialPage()
{
    QFormLayout* form = nullptr;
    QGroupBox* port = group(tr("Serial port"), &form);
    QStringList ports;
    for (int i = 1; i <= 8; ++i) {
        ports << QStringLiteral("COM%1").arg(i);
    }
    auto* portBox = new QComboBox;
    portBox->addItems(ports);
    form->addRow(tr("&Port:"), portBox);
    bind(
        "modem.port", tr("Port:"), portBox, [portBox] { return QString::number(portBox->currentIndex() + 1); },
        [portBox](const QString& v) { portBox->setCurrentIndex(v.toInt() - 1); });

    auto* device = new QLineEdit;
    device->setPlaceholderText(tr("from the port number"));
    device->setToolTip(tr("A device that replaces the port on this computer, such as /dev/ttyUSB0"));
    const QString deviceLabel = tr("&Device (this computer):");
    form->addRow(deviceLabel, device);
    bindPreference(
        "modem.device", deviceLabel, device, [device] { return device->text().trimmed(); },
        [device](const QString& v) { device->setText(v); });

    // The speed, parity, data and stop bits travel together as one "9600,N,8,1" setting.
    auto* speed = new QComboBox;
    speed->setObjectName(QStringLiteral("cboSpeed"));
    speed->addItems({"300", "1200", "2400", "4800", "9600", "14400", "19200"});
    auto* parity = new QComboBox;
    parity->setObjectName(QStringLiteral("cboParity"));
    parity->addItems({"NONE", "EVEN", "ODD"});
    auto* dataBits = new QComboBox;
    dataBits->setObjectName(QStringLiteral("cboDataBits"));
    dataBits->addItems({"7", "8"});
    auto* stopBits = new QComboBox;
    stopBits->setObjectName(QStringLiteral("cboStopBits"));
    stopBits->addItems({"1", "1.5", "2"});
    form->addRow(tr("Sp&eed:"), speed);
    form->addRow(tr("P&arity:"), parity);
    form->addRow(tr("Data &Bits:"), dataBits);
    form->addRow(tr("S&top Bits:"), stopBits);
    auto* settingsBox = new QWidget; // stands for the four lists in the field table
    settingsBox->hide();
    form->addRow(settingsBox);
    bind(
        "modem.settings", tr("Speed"), settingsBox,
        [=]() -> QString {
            return speed->currentText() + u',' + parity->currentText().left(1) + u',' + dataBits->currentText() + u',' +
                   stopBits->currentText();
        },
        [=](const QString& v) {
            const delivery::PortSettings s = delivery::parsePortSettings(v);
            auto pick = [](QComboBox* box, const QString& text) {
                const int i = box->findText(text, Qt::MatchStartsWith);
                if (i >= 0) {
                    box->setCurrentIndex(i);
                } else {
                    // A value the lists do not offer (an old file's 115200) stays selectable.
                    box->addItem(text);
                    box->setCurrentIndex(box->count() - 1);
                }
            };
            pick(speed, QString::number(s.baud));
            pick(parity, QString(s.parity.toUpper()));
            pick(dataBits, QString::number(s.dataBits));
            pick(stopBits, QString::number(s.stopBits));
        });
    choice(form, "modem.flow_control", tr("&Flow Control:"), {tr("None"), tr("XON/XOFF"), tr("RTS/CTS"), tr("BOTH")});
    return page({port});
}

QWidget* OptionsDialog::programPage()
{
    QFormLayout* form = nullptr;
    QGroupBox* program = group(tr("This program"), &form);
    auto boolPref = [this, form](const char* key, const QString& label, const QString& tip = {}) {
        auto* box = new QCheckBox(label);
        box->setToolTip(tip);
        form->addRow(box);
        bindPreference(
            key, label, box, [box] { return flag(box->isChecked()); },
            [box](const QString& v) { box->setChecked(isTrue(v)); });
    };
    boolPref("prefs.show_status", tr("Show the status &window during long operations"));
    boolPref("prefs.system_tray", tr("Minimize to the notification &area"));
    boolPref("prefs.www_buttons", tr("Show the quote service &buttons"));
    boolPref("prefs.notifications", tr("Desktop &notifications for alarm pages and new mail"));
    boolPref("prefs.check_updates", tr("Check for a newer &version at start-up"));
    auto* file = new QLineEdit;
    const QString fileLabel = tr("Start-up &portfolio file:");
    form->addRow(fileLabel, file);
    bindPreference(
        "prefs.default_file", fileLabel, file, [file] { return file->text().trimmed(); },
        [file](const QString& v) { file->setText(v); });
    numberCheck(form, "gate_flag", tr("S&kip the fastest-service test and the wait for the modem"));
    return page({program});
}

// ---- values in and out ----

void OptionsDialog::loadFields()
{
    for (const Field& f : m_fields) {
        f.write(f.preference ? f.def->getPref(m_prefs) : f.def->get(m_options));
    }
}

const OptionsDialog::Field* OptionsDialog::field(const QString& name) const
{
    for (const Field& f : m_fields) {
        if (f.name == name) {
            return &f;
        }
    }
    return nullptr;
}

void OptionsDialog::focusField(const Field& f)
{
    for (int i = 0; i < m_tabs->count(); ++i) {
        if (m_tabs->widget(i)->isAncestorOf(f.editor)) {
            m_tabs->setCurrentIndex(i);
        }
    }
    // The serial settings field stands for its four lists; the first of them takes the focus.
    QWidget* w =
        f.name == QLatin1String("modem.settings") ? findChild<QComboBox*>(QStringLiteral("cboSpeed")) : f.editor;
    if (w) {
        w->setFocus();
        if (auto* edit = qobject_cast<QLineEdit*>(w)) {
            edit->selectAll();
        }
    }
}

QList<core::OptionText> OptionsDialog::entered(bool withPreferences) const
{
    QList<core::OptionText> out;
    for (const Field& f : m_fields) {
        if (f.preference && !withPreferences) {
            continue;
        }
        const QString text = f.read();
        if (f.preference && f.def->secret && text.isNull()) {
            continue;
        }
        out.append({f.name, text});
    }
    return out;
}

bool OptionsDialog::passes(const core::OptionCheck& check)
{
    if (check.ok()) {
        return true;
    }
    const Field* f = field(check.failure->option);
    m_host.messageBox(f ? check.failure->namedAs(plainLabel(f->label)) : check.failure->withOptionName(),
                      support::MsgButtons::Ok, support::MsgIcon::Exclamation);
    if (f) {
        focusField(*f);
    }
    return false;
}

// ---- buttons ----

QString OptionsDialog::testPageResult() const
{
    return m_testResult->text();
}

void OptionsDialog::sendTestPage()
{
    // The test dials with what the form shows; the form need not be complete for that.
    const core::OptionCheck check = core::checkOptions(m_options, entered(false), core::CheckScope::OwnChecks);
    if (!passes(check)) {
        return;
    }
    const core::Options& shown = check.options;
    m_testResult->setText(tr("Sending..."));
    setEnabled(false);
    const delivery::ManualPageResult r = m_app.sendTestPage(shown);
    setEnabled(true);
    m_testResult->setText(r.text.isEmpty() ? tr("Test page not sent") : r.text);
}

void OptionsDialog::testConnection()
{
    const core::OptionCheck check = core::checkOptions(m_options, entered(false), core::CheckScope::OwnChecks);
    if (!passes(check)) {
        return;
    }
    const core::Options& shown = check.options;
    setEnabled(false);
    const QString answer = m_app.testConnection(shown.connection);
    setEnabled(true);
    m_host.messageBox(answer, support::MsgButtons::Ok,
                      answer.startsWith(QLatin1String("Successful")) ? support::MsgIcon::Information
                                                                     : support::MsgIcon::Exclamation);
}

void OptionsDialog::openModemSettings()
{
    // The modem dialog and this one share a few fields; it starts from what is shown here.
    static const char* const shared[] = {"modem.port", "modem.flow_control", "pager.retries", "pager.retry_seconds"};
    core::Options shown = m_options;
    for (const char* name : shared) {
        // A value the form would refuse stays as stored; Save names it later.
        if (const Field* f = field(QString::fromLatin1(name))) {
            const core::OptionCheck c = core::checkOptions(shown, {{f->name, f->read()}}, core::CheckScope::OwnChecks);
            if (c.ok()) {
                shown = c.options;
            }
        }
    }
    ModemDialog modem(this, m_host, shown, m_options.modem.quoteService);
    if (modem.exec() != QDialog::Accepted) {
        return;
    }
    m_options.modem = shown.modem;
    m_options.paging.retries = shown.paging.retries;
    m_options.paging.retrySeconds = shown.paging.retrySeconds;
    for (const char* name : shared) {
        if (const Field* f = field(QString::fromLatin1(name))) {
            f->write(f->def->get(m_options));
        }
    }
}

void OptionsDialog::accept()
{
    // The engine's checks, in their order, over everything the form shows.
    const core::OptionCheck check = core::checkOptions(m_options, entered(true));
    if (!passes(check)) {
        return;
    }
    if (m_target) {
        *m_target = check.options;
        m_storeTarget->insert(check.storeTexts);
        QDialog::accept();
        return;
    }
    m_app.applyOptions(check.options);
    m_app.applyStoreValues(check.storeTexts);
    QDialog::accept();
}

} // namespace kestrova::gui
