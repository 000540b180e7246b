#include "gui/ModemDialog.h"

#include "core/OptionChecks.h"
#include "gui/FieldCheck.h"
#include "gui/GuiHost.h"
#include "gui/Mnemonics.h"
#include "gui/WindowPlacement.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

QComboBox* choices(const char* name, const QStringList& items, int current)
{
    auto* combo = new QComboBox;
    combo->setObjectName(QString::fromLatin1(name));
    combo->addItems(items);
    combo->setCurrentIndex(std::clamp(current, 0, static_cast<int>(items.size()) - 1));
    return combo;
}

// The label a form row shows beside a field.
QString labelFor(QWidget* field)
{
    auto* form = field->parentWidget() ? qobject_cast<QFormLayout*>(field->parentWidget()->layout()) : nullptr;
    auto* label = form ? qobject_cast<QLabel*>(form->labelForField(field)) : nullptr;
    return label ? label->text() : field->objectName();
}

} // namespace

ModemDialog::ModemDialog(QWidget* parent, GuiHost& host, core::Options& target, bool nonInternet)
    : QDialog(parent), m_host(host), m_target(target), m_copy(target), m_profiles(m_copy.modem, host)
{
    setObjectName(QStringLiteral("ModemDialog"));
    setWindowTitle(nonInternet ? tr("Non-Internet Modem Settings") : tr("Modem Settings"));

    auto* intro = new QLabel(nonInternet ? tr("The modem that fetches quotes when they do not come over the Internet.")
                                         : tr("Needed only for direct dial-up paging."));
    intro->setWordWrap(true);

    m_list = new QListWidget;
    m_list->setObjectName(QStringLiteral("lstModems"));
    m_init = new QLineEdit;
    m_init->setObjectName(QStringLiteral("txtInit"));
    m_pagerInit = new QLineEdit;
    m_pagerInit->setObjectName(QStringLiteral("txtPagerInit"));
    m_add = new QPushButton(QIcon::fromTheme(QStringLiteral("list-add")), tr("&Add..."));
    m_add->setObjectName(QStringLiteral("cmdAdd"));
    m_delete = new QPushButton(
        QIcon::fromTheme(QStringLiteral("list-remove"), style()->standardIcon(QStyle::SP_TrashIcon)), tr("De&lete"));
    m_delete->setObjectName(QStringLiteral("cmdDelete"));
    for (QPushButton* b : {m_add, m_delete}) {
        b->setAutoDefault(false);
    }
    connect(m_add, &QPushButton::clicked, this, &ModemDialog::addProfile);
    connect(m_delete, &QPushButton::clicked, this, &ModemDialog::deleteProfile);
    connect(m_list, &QListWidget::currentRowChanged, this, &ModemDialog::showProfile);

    auto* profileBox = new QGroupBox(tr("&Modem"));
    auto* profileLayout = new QVBoxLayout(profileBox);
    auto* listRow = new QHBoxLayout;
    listRow->addWidget(m_list, 1);
    auto* listButtons = new QVBoxLayout;
    listButtons->addWidget(m_add);
    listButtons->addWidget(m_delete);
    listButtons->addStretch();
    listRow->addLayout(listButtons);
    profileLayout->addLayout(listRow);
    auto* strings = new QFormLayout;
    strings->addRow(tr("&Init String:"), m_init);
    strings->addRow(tr("Pa&ger Init String:"), m_pagerInit);
    profileLayout->addLayout(strings);

    const core::ModemOptions& m = m_copy.modem;
    QStringList ports;
    for (int i = 1; i <= 8; ++i) {
        ports << QStringLiteral("COM%1").arg(i);
    }
    m_port = choices("cboPort", ports, m.port - 1);
    m_flow = choices("cboFlow", {tr("None"), tr("XON/XOFF"), tr("RTS/CTS"), tr("BOTH")}, m.flowControl);
    m_dialling = choices("cboDialing", {tr("Tone"), tr("Pulse")}, m.pulse ? 1 : 0);
    m_volume = choices("cboVolume", {tr("Low"), tr("Med"), tr("High")}, m.speakerVolume);
    m_speaker = choices("cboSpeaker",
                        {tr("Off"), tr("On Until Carrier Detected"), tr("On Always"), tr("On Until CD except Dialing")},
                        m.speakerMode);
    m_retries = new QLineEdit(QString::number(m_copy.paging.retries));
    m_retries->setObjectName(QStringLiteral("txtRetries"));
    m_retrySeconds = new QLineEdit(QString::number(m_copy.paging.retrySeconds));
    m_retrySeconds->setObjectName(QStringLiteral("txtRetrySeconds"));
    for (QLineEdit* e : {m_retries, m_retrySeconds}) {
        e->setAlignment(Qt::AlignRight);
        e->setMaximumWidth(fontMetrics().averageCharWidth() * 10);
    }

    auto* line = new QGroupBox(tr("Line"));
    auto* lineForm = new QFormLayout(line);
    lineForm->addRow(tr("&Port:"), m_port);
    lineForm->addRow(tr("&Flow Control:"), m_flow);
    lineForm->addRow(tr("&Dialing:"), m_dialling);
    lineForm->addRow(tr("Speaker &Volume:"), m_volume);
    lineForm->addRow(tr("Speaker C&ontrol:"), m_speaker);
    lineForm->addRow(tr("No. of &Retries:"), m_retries);
    lineForm->addRow(tr("Seconds &between retries:"), m_retrySeconds);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Save)->setObjectName(QStringLiteral("cmdSave"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cmdCancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &ModemDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ModemDialog::reject);

    auto* columns = new QHBoxLayout;
    columns->addWidget(profileBox, 1);
    columns->addWidget(line);
    auto* main = new QVBoxLayout(this);
    main->addWidget(intro);
    main->addLayout(columns, 1);
    main->addWidget(buttons);

    fillProfiles();
    m_list->setFocus();
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

void ModemDialog::fillProfiles()
{
    const QSignalBlocker block(m_list);
    m_list->clear();
    m_list->addItems(m_profiles.names());
    const int selected = std::clamp(m_profiles.selected(), 0, m_profiles.count() - 1);
    m_list->setCurrentRow(selected);
    showProfile(selected);
}

void ModemDialog::showProfile(int index)
{
    if (index < 0 || !m_profiles.select(index)) {
        return;
    }
    m_init->setText(m_profiles.profile(index).init);
    m_pagerInit->setText(m_profiles.profile(index).pagerInit);
    m_delete->setEnabled(m_profiles.canRemove(index));
}

void ModemDialog::addProfile()
{
    if (m_profiles.add(m_init->text(), m_pagerInit->text())) {
        fillProfiles();
    }
}

void ModemDialog::deleteProfile()
{
    if (m_profiles.remove()) {
        fillProfiles();
    }
}

void ModemDialog::accept()
{
    // The retry fields take numbers: the engine checks them before anything is kept.
    const std::pair<QLineEdit*, QString> fields[] = {{m_retries, QStringLiteral("pager.retries")},
                                                     {m_retrySeconds, QStringLiteral("pager.retry_seconds")}};
    const core::OptionCheck check =
        core::checkOptions(m_copy, {{fields[0].second, m_retries->text()}, {fields[1].second, m_retrySeconds->text()}},
                           core::CheckScope::OwnChecks);
    if (!check.ok()) {
        QLineEdit* edit = check.failure->option == fields[0].second ? m_retries : m_retrySeconds;
        m_host.messageBox(check.failure->namedAs(plainLabel(labelFor(edit))), support::MsgButtons::Ok,
                          support::MsgIcon::Exclamation);
        edit->setFocus();
        edit->selectAll();
        return;
    }
    m_profiles.store(m_init->text(), m_pagerInit->text());
    core::ModemOptions& m = m_copy.modem;
    m.port = static_cast<qint16>(m_port->currentIndex() + 1);
    m.flowControl = static_cast<qint16>(m_flow->currentIndex());
    m.pulse = m_dialling->currentIndex() == 1;
    m.speakerVolume = static_cast<qint16>(m_volume->currentIndex());
    m.speakerMode = static_cast<qint16>(m_speaker->currentIndex());
    m_copy.paging.retries = check.options.paging.retries;
    m_copy.paging.retrySeconds = check.options.paging.retrySeconds;
    // Only the modem part goes back: the caller's other options may be mid-edit elsewhere.
    m_target.modem = m_copy.modem;
    m_target.paging.retries = m_copy.paging.retries;
    m_target.paging.retrySeconds = m_copy.paging.retrySeconds;
    QDialog::accept();
}

} // namespace kestrova::gui
