#include "gui/SecurityDialog.h"

#include "app/Application.h"
#include "core/PortfolioEntries.h"
#include "core/PriceFormat.h"
#include "core/SecurityType.h"
#include "gui/GuiHost.h"
#include "gui/LookupLabel.h"
#include "gui/Mnemonics.h"
#include "gui/WindowPlacement.h"
#include "quotes/BuiltInServers.h"
#include "quotes/SymbolLookup.h"
#include "support/Format.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

QString money(support::Currency c)
{
    return support::formatNumber(c.toDouble(), u"#,##0.00");
}

QLineEdit* numberEdit(const QString& placeholder)
{
    auto* edit = new QLineEdit;
    edit->setPlaceholderText(placeholder);
    edit->setAlignment(Qt::AlignRight);
    return edit;
}

} // namespace

SecurityDialog::SecurityDialog(QWidget* parent, app::Application& app, GuiHost& host, core::PortfolioTable& table,
                               int slot)
    : QDialog(parent), m_app(app), m_host(host), m_table(table), m_slot(slot)
{
    setObjectName(QStringLiteral("SecurityDialog"));
    const bool adding = slot < 0;
    setWindowTitle(adding ? tr("Add Security")
                          : tr("Edit Security - %1").arg(table.records[static_cast<size_t>(slot)].ticker.trimmed()));

    m_type = new QComboBox;
    m_type->setObjectName(QStringLiteral("cboType"));
    for (qint16 t = 0; t <= 3; ++t) {
        m_type->addItem(core::securityTypeName(t));
    }
    m_ticker = new QLineEdit;
    m_ticker->setObjectName(QStringLiteral("txtTicker"));
    m_ticker->setMaxLength(core::kMaxTickerLength + 10); // the check explains the limit
    m_name = new QLineEdit;
    m_name->setObjectName(QStringLiteral("txtName"));
    m_name->setMinimumWidth(fontMetrics().averageCharWidth() * 32);
    m_server = new QComboBox;
    m_server->setObjectName(QStringLiteral("cboServer"));
    const quotes::BuiltInServers servers;
    for (int i = 0; i < quotes::BuiltInServers::kCount; ++i) {
        m_server->addItem(servers.at(i).name);
    }
    m_digits = new QSpinBox;
    m_digits->setObjectName(QStringLiteral("spnDigits"));
    m_digits->setRange(0, core::kMaxDigits);
    m_digits->setToolTip(tr("Decimal places shown for this security's prices"));

    auto* what = new QGroupBox(tr("Security"));
    auto* whatForm = new QFormLayout(what);
    whatForm->addRow(tr("&Type:"), m_type);
    whatForm->addRow(tr("Tic&ker:"), m_ticker);
    // What the quote sources know of the ticker: a warning when none does, not a refusal,
    // since a servers.dat page may know symbols the sources do not.
    m_lookupResult = new LookupLabel;
    m_lookupResult->setObjectName(QStringLiteral("lblLookup"));
    whatForm->addRow(QString(), m_lookupResult);
    connect(m_ticker, &QLineEdit::editingFinished, this, &SecurityDialog::lookUpTicker);
    whatForm->addRow(tr("&Name:"), m_name);
    whatForm->addRow(tr("Quote &server:"), m_server);
    whatForm->addRow(tr("&Digits:"), m_digits);

    m_shares = numberEdit(QStringLiteral("0"));
    m_shares->setObjectName(QStringLiteral("txtShares"));
    m_costBasis = numberEdit(QStringLiteral("0.00"));
    m_costBasis->setObjectName(QStringLiteral("txtCostBasis"));
    m_costBasis->setToolTip(tr("What one share cost"));
    m_lastPrice = new QLabel;
    m_lastPrice->setObjectName(QStringLiteral("lblLastPrice"));
    m_marketValue = new QLabel;
    m_marketValue->setObjectName(QStringLiteral("lblMarketValue"));
    m_costValue = new QLabel;
    m_costValue->setObjectName(QStringLiteral("lblCostValue"));
    m_gain = new QLabel;
    m_gain->setObjectName(QStringLiteral("lblGain"));
    for (QLabel* l : {m_lastPrice, m_marketValue, m_costValue, m_gain}) {
        l->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    auto* holding = new QGroupBox(tr("Holding"));
    auto* holdingForm = new QFormLayout(holding);
    holdingForm->addRow(tr("Sha&res:"), m_shares);
    holdingForm->addRow(tr("Cost &basis (per share):"), m_costBasis);
    holdingForm->addRow(tr("Last price:"), m_lastPrice);
    holdingForm->addRow(tr("Market value:"), m_marketValue);
    holdingForm->addRow(tr("Cost value:"), m_costValue);
    holdingForm->addRow(tr("Gain:"), m_gain);

    const QString none = tr("none");
    m_highLimit = numberEdit(none);
    m_highLimit->setObjectName(QStringLiteral("txtHighLimit"));
    m_lowLimit = numberEdit(none);
    m_lowLimit->setObjectName(QStringLiteral("txtLowLimit"));
    m_highChg = numberEdit(none);
    m_highChg->setObjectName(QStringLiteral("txtHighChg"));
    m_lowChg = numberEdit(none);
    m_lowChg->setObjectName(QStringLiteral("txtLowChg"));
    m_volume = numberEdit(none);
    m_volume->setObjectName(QStringLiteral("txtVolume"));
    auto* limits = new QGroupBox(tr("Alarm limits (empty or 0: no alarm)"));
    auto* limitsForm = new QFormLayout(limits);
    limitsForm->addRow(tr("&High price:"), m_highLimit);
    limitsForm->addRow(tr("&Low price:"), m_lowLimit);
    limitsForm->addRow(tr("H&igh % change:"), m_highChg);
    limitsForm->addRow(tr("Low % chan&ge:"), m_lowChg);
    limitsForm->addRow(tr("&Volume (shares):"), m_volume);

    m_toPager = new QCheckBox(tr("Include in &pages"));
    m_toPager->setObjectName(QStringLiteral("chkToPager"));
    m_marketOnly = new QCheckBox(tr("Page only at &market moments (open, midday, close)"));
    m_marketOnly->setObjectName(QStringLiteral("chkMarketOnly"));
    m_news = new QCheckBox(tr("Fetch ne&ws headlines"));
    m_news->setObjectName(QStringLiteral("chkNews"));
    auto* paging = new QGroupBox(tr("Paging and news"));
    auto* pagingBox = new QVBoxLayout(paging);
    pagingBox->addWidget(m_toPager);
    pagingBox->addWidget(m_marketOnly);
    pagingBox->addWidget(m_news);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &SecurityDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &SecurityDialog::reject);

    auto* columns = new QHBoxLayout;
    auto* left = new QVBoxLayout;
    left->addWidget(what);
    left->addWidget(holding);
    left->addStretch();
    auto* right = new QVBoxLayout;
    right->addWidget(limits);
    right->addWidget(paging);
    right->addStretch();
    columns->addLayout(left);
    columns->addLayout(right);
    auto* main = new QVBoxLayout(this);
    main->addLayout(columns);
    main->addWidget(buttons);

    // Fill from the stored entry, or from the defaults a new entry starts with.
    core::EntryInput in;
    if (adding) {
        in.server = core::defaultServerFor(app.state().options.quotes, in.type);
    } else {
        in = core::EntryInput::fromRecord(table.records[static_cast<size_t>(slot)]);
    }
    m_type->setCurrentIndex(std::clamp<int>(in.type, 0, 3));
    m_ticker->setText(in.ticker);
    m_name->setText(in.name);
    m_name->setCursorPosition(0); // a long name shows its start, not its end
    m_server->setCurrentIndex(std::clamp<int>(in.server, 0, quotes::BuiltInServers::kCount - 1));
    m_digits->setValue(in.digits);
    m_shares->setText(in.shares);
    m_costBasis->setText(in.costBasis);
    m_highLimit->setText(in.highLimit);
    m_lowLimit->setText(in.lowLimit);
    m_highChg->setText(in.highChgLimit);
    m_lowChg->setText(in.lowChgLimit);
    m_volume->setText(in.volumeLimit);
    m_toPager->setChecked(in.toPager);
    m_marketOnly->setChecked(in.marketOnly);
    m_news->setChecked(in.news);

    if (adding) {
        // A new option is priced by the option service unless the user picks another.
        connect(m_type, &QComboBox::currentIndexChanged, this, [this](int type) {
            m_server->setCurrentIndex(
                std::clamp<int>(core::defaultServerFor(m_app.state().options.quotes, static_cast<qint16>(type)), 0,
                                quotes::BuiltInServers::kCount - 1));
        });
    }
    for (QLineEdit* e : {m_ticker, m_shares, m_costBasis}) {
        connect(e, &QLineEdit::textChanged, this, &SecurityDialog::updateFigures);
    }
    connect(m_digits, &QSpinBox::valueChanged, this, &SecurityDialog::updateFigures);
    updateFigures();
    m_ticker->setFocus();
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

void SecurityDialog::lookUpTicker()
{
    const QString ticker = m_ticker->text().trimmed();
    if (ticker.isEmpty() || ticker.compare(m_lookedUp, Qt::CaseInsensitive) == 0) {
        return;
    }
    m_lookedUp = ticker;
    if (!m_lookup) {
        m_lookup = new quotes::SymbolLookup(m_app.lookupSetup(), this);
        connect(m_lookup, &quotes::SymbolLookup::resolved, this, &SecurityDialog::showLookup);
    }
    m_lookup->cancel();
    m_lookupResult->showAsking(ticker);
    m_lookup->lookUp({ticker}, static_cast<qint16>(m_type->currentIndex()));
}

void SecurityDialog::showLookup(const quotes::LookupResult& result)
{
    if (result.symbol.compare(m_lookedUp, Qt::CaseInsensitive) != 0) {
        return;
    }
    m_lookupResult->showResult(result);
    if (result.known && m_name->text().trimmed().isEmpty() && !result.name.isEmpty()) {
        m_name->setText(result.name);
        m_name->setCursorPosition(0);
    }
}

SecurityDialog::~SecurityDialog()
{
    // The ticker field loses its focus while QDialog's destructor takes the children down,
    // and its editingFinished would then start a look-up on a half-destroyed dialog.
    disconnect(m_ticker, nullptr, this, nullptr);
}

QString SecurityDialog::lookupResult() const
{
    return m_lookupResult->text();
}

void SecurityDialog::updateFigures()
{
    const std::optional<float> last = m_app.lastPrice(m_ticker->text());
    m_lastPrice->setText(last ? core::priceValueText(*last, static_cast<qint16>(m_digits->value()))
                              : tr("no quote yet"));
    const std::optional<double> shares = core::parseEntryNumber(m_shares->text());
    const std::optional<double> cost = core::parseEntryNumber(m_costBasis->text());
    if (!shares || !cost || *shares < 0 || *cost < 0 || *cost > 9e11) {
        const QString unknown = QStringLiteral("-");
        m_marketValue->setText(unknown);
        m_costValue->setText(unknown);
        m_gain->setText(unknown);
        return;
    }
    const core::HoldingFigures f =
        core::holdingFigures(static_cast<float>(*shares), support::Currency::fromDouble(*cost), last);
    if (f.overflow) {
        m_marketValue->setText(tr("too large"));
        m_costValue->setText(tr("too large"));
        m_gain->setText(QString());
        return;
    }
    m_costValue->setText(money(f.costValue));
    if (!f.priced) {
        m_marketValue->setText(tr("no quote yet"));
        m_gain->setText(QStringLiteral("-"));
        return;
    }
    m_marketValue->setText(money(f.marketValue));
    const QString sign = f.gain > support::Currency() ? QStringLiteral("+") : QString();
    m_gain->setText(sign + money(f.gain) + QStringLiteral(" (") +
                    support::formatNumber(f.gainPercent.toDouble(), u"+0.00;-0.00") + QStringLiteral("%)"));
}

QWidget* SecurityDialog::fieldFor(core::EntryField field) const
{
    using F = core::EntryField;
    switch (field) {
    case F::Type:
        return m_type;
    case F::Ticker:
        return m_ticker;
    case F::Name:
        return m_name;
    case F::Shares:
        return m_shares;
    case F::CostBasis:
        return m_costBasis;
    case F::HighLimit:
        return m_highLimit;
    case F::LowLimit:
        return m_lowLimit;
    case F::HighChgLimit:
        return m_highChg;
    case F::LowChgLimit:
        return m_lowChg;
    case F::VolumeLimit:
        return m_volume;
    case F::Digits:
        return m_digits;
    case F::Server:
        return m_server;
    }
    return m_ticker;
}

void SecurityDialog::accept()
{
    core::EntryInput in;
    in.type = static_cast<qint16>(m_type->currentIndex());
    in.ticker = m_ticker->text();
    in.name = m_name->text();
    in.shares = m_shares->text();
    in.costBasis = m_costBasis->text();
    in.highLimit = m_highLimit->text();
    in.lowLimit = m_lowLimit->text();
    in.highChgLimit = m_highChg->text();
    in.lowChgLimit = m_lowChg->text();
    in.volumeLimit = m_volume->text();
    in.digits = static_cast<qint16>(m_digits->value());
    in.server = static_cast<qint16>(m_server->currentIndex());
    in.toPager = m_toPager->isChecked();
    in.marketOnly = m_marketOnly->isChecked();
    in.news = m_news->isChecked();

    core::PortfolioRecord record;
    if (const auto problem = core::parseEntry(in, record)) {
        m_host.messageBox(problem->message, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        if (QWidget* w = fieldFor(problem->field)) {
            w->setFocus();
            if (auto* edit = qobject_cast<QLineEdit*>(w)) {
                edit->selectAll();
            }
        }
        return;
    }
    const QString refusal = m_slot < 0 ? core::addEntry(m_table, record) : core::replaceEntry(m_table, m_slot, record);
    if (!refusal.isEmpty()) {
        m_host.messageBox(refusal, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        m_ticker->setFocus();
        m_ticker->selectAll();
        return;
    }
    if (m_slot < 0) {
        m_slot = m_table.count - 1;
    }
    QDialog::accept();
}

} // namespace kestrova::gui
