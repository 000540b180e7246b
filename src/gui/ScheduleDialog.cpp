#include "gui/ScheduleDialog.h"

#include "app/Application.h"
#include "core/ScheduleRules.h"
#include "gui/GuiHost.h"
#include "gui/Mnemonics.h"
#include "gui/WindowPlacement.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFocusEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QTimer>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

// A time field takes what a time is written with and nothing else ("03:42:00 pm", "16:00");
// whether the whole is a time is the schedule's check on Save.
QLineEdit* timeField(const char* name, const QString& value, QWidget* parent)
{
    auto* edit = new QLineEdit(value);
    edit->setObjectName(QString::fromLatin1(name));
    static const QRegularExpression chars(QStringLiteral("[0-9: aApPmM]{0,11}"));
    edit->setValidator(new QRegularExpressionValidator(chars, parent));
    edit->setPlaceholderText(QStringLiteral("03:42:00 pm"));
    edit->setMaximumWidth(edit->fontMetrics().horizontalAdvance(QStringLiteral("00:00:00 pm")) +
                          edit->fontMetrics().averageCharWidth() * 4);
    return edit;
}

QCheckBox* box(const char* name, const QString& text, bool checked)
{
    auto* b = new QCheckBox(text);
    b->setObjectName(QString::fromLatin1(name));
    b->setChecked(checked);
    return b;
}

} // namespace

ScheduleDialog::ScheduleDialog(QWidget* parent, app::Application& app, GuiHost& host)
    : ScheduleDialog(parent, host, app.state().options.schedule)
{
    m_stored = [&app] { app.markModified(); };
}

ScheduleDialog::ScheduleDialog(QWidget* parent, GuiHost& host, core::ScheduleOptions& target)
    : QDialog(parent), m_host(host), m_schedule(target)
{
    setObjectName(QStringLiteral("frmSchedule"));
    setWindowTitle(tr("Update Schedule"));
    const core::ScheduleOptions& s = target;

    static const char* const dayNames[] = {"chkMonday", "chkTuesday", "chkWednesday", "chkThursday", "chkFriday"};
    const QStringList dayTexts{tr("&Monday"), tr("&Tuesday"), tr("&Wednesday"), tr("T&hursday"), tr("&Friday")};
    auto* days = new QGroupBox(tr("Update on"));
    auto* daysRow = new QHBoxLayout(days);
    for (size_t i = 0; i < m_days.size(); ++i) {
        m_days[i] = box(dayNames[i], dayTexts[static_cast<int>(i)], s.days[i]);
        daysRow->addWidget(m_days[i]);
    }

    m_open = box("chkMktOpen", tr("Market &open at"), s.marketOpen);
    m_openTime = timeField("mskOpenTime", s.openTime, this);
    m_midday = box("chkMktMidday", tr("Mi&dday at"), s.midday);
    m_middayTime = timeField("mskMiddayTime", s.middayTime, this);
    m_close = box("chkMktClose", tr("Market c&lose at"), s.marketClose);
    m_closeTime = timeField("mskCloseTime", s.closeTime, this);
    auto* moments = new QGroupBox(tr("Market updates (one each a day)"));
    auto* momentGrid = new QGridLayout(moments);
    int row = 0;
    for (auto [check, time] : {std::pair{m_open, m_openTime}, {m_midday, m_middayTime}, {m_close, m_closeTime}}) {
        momentGrid->addWidget(check, row, 0);
        momentGrid->addWidget(time, row, 1);
        ++row;
    }
    momentGrid->setColumnStretch(2, 1);

    m_other = box("chkOther", tr("&Every"), s.interval);
    m_frequency = new QLineEdit(QString::number(s.intervalMinutes));
    m_frequency->setObjectName(QStringLiteral("txtFrequency"));
    m_frequency->setAlignment(Qt::AlignRight);
    m_frequency->setMaximumWidth(fontMetrics().averageCharWidth() * 8);
    m_frequencyLabel = new QLabel(tr("minutes"));
    m_startTime = timeField("mskStartTime", s.startTime, this);
    m_stopTime = timeField("mskStopTime", s.stopTime, this);
    m_startLabel = new QLabel(tr("Sta&rt:"));
    m_startLabel->setBuddy(m_startTime);
    m_stopLabel = new QLabel(tr("Sto&p:"));
    m_stopLabel->setBuddy(m_stopTime);
    auto* interval = new QGroupBox(tr("Interval updates"));
    auto* intervalGrid = new QGridLayout(interval);
    intervalGrid->addWidget(m_other, 0, 0);
    intervalGrid->addWidget(m_frequency, 0, 1);
    intervalGrid->addWidget(m_frequencyLabel, 0, 2);
    intervalGrid->addWidget(m_startLabel, 1, 0, Qt::AlignRight);
    intervalGrid->addWidget(m_startTime, 1, 1, 1, 2);
    intervalGrid->addWidget(m_stopLabel, 2, 0, Qt::AlignRight);
    intervalGrid->addWidget(m_stopTime, 2, 1, 1, 2);
    intervalGrid->setColumnStretch(3, 1);
    connect(m_other, &QCheckBox::toggled, this, &ScheduleDialog::intervalToggled);
    intervalToggled(m_other->isChecked());

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Save)->setObjectName(QStringLiteral("cmdSave"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cmdCancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &ScheduleDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ScheduleDialog::reject);

    auto* main = new QVBoxLayout(this);
    main->addWidget(days);
    main->addWidget(moments);
    main->addWidget(interval);
    main->addStretch();
    main->addWidget(buttons);
    // A rejected time is pointed out as soon as the field is left, not only on Save.
    const std::pair<QLineEdit*, core::ScheduleField> timeFields[] = {{m_openTime, core::ScheduleField::OpenTime},
                                                                     {m_middayTime, core::ScheduleField::MiddayTime},
                                                                     {m_closeTime, core::ScheduleField::CloseTime},
                                                                     {m_startTime, core::ScheduleField::StartTime},
                                                                     {m_stopTime, core::ScheduleField::StopTime}};
    for (const auto& [edit, field] : timeFields) {
        m_timeFields.insert(edit, field);
        edit->installEventFilter(this);
    }
    m_days[0]->setFocus();
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

QString ScheduleDialog::fieldName(core::ScheduleField field)
{
    switch (field) {
    case core::ScheduleField::OpenTime:
        return tr("Market open time");
    case core::ScheduleField::MiddayTime:
        return tr("Midday time");
    case core::ScheduleField::CloseTime:
        return tr("Market close time");
    case core::ScheduleField::StartTime:
        return tr("Start time");
    case core::ScheduleField::StopTime:
        return tr("Stop time");
    case core::ScheduleField::Interval:
        return tr("Interval");
    case core::ScheduleField::None:
        break;
    }
    return {};
}

bool ScheduleDialog::eventFilter(QObject* watched, QEvent* event)
{
    auto* edit = qobject_cast<QLineEdit*>(watched);
    if (edit && event->type() == QEvent::FocusOut && m_timeFields.contains(edit)) {
        const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
        // Another window (the message box itself) taking the focus is not leaving the field.
        if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason) {
            checkTimeField(edit);
        }
    }
    return QDialog::eventFilter(watched, event);
}

void ScheduleDialog::checkTimeField(QLineEdit* edit)
{
    const QString text = edit->text();
    // Once for each text: leaving the field again without a change says nothing new.
    if (m_reported.contains(edit) && m_reported.value(edit) == text) {
        return;
    }
    const core::ScheduleField field = m_timeFields.value(edit);
    const QString why = core::timeFieldError(field, text);
    if (why.isEmpty()) {
        m_reported.remove(edit);
        return;
    }
    m_reported.insert(edit, text);
    // After the focus has moved on, so the box does not open in the middle of the change.
    QTimer::singleShot(0, this, [this, field, why] {
        m_host.messageBox(fieldName(field) + QStringLiteral(": ") + why, support::MsgButtons::Ok,
                          support::MsgIcon::Exclamation);
    });
}

void ScheduleDialog::intervalToggled(bool on)
{
    for (QWidget* w : std::initializer_list<QWidget*>{m_frequency, m_frequencyLabel, m_startTime, m_stopTime,
                                                      m_startLabel, m_stopLabel}) {
        w->setEnabled(on);
    }
}

void ScheduleDialog::accept()
{
    const core::ScheduleEntry entry{m_openTime->text(),  m_middayTime->text(), m_closeTime->text(),
                                    m_startTime->text(), m_stopTime->text(),   m_frequency->text()};
    const core::ScheduleVerdict verdict = core::validateSchedule(entry);
    if (!verdict.ok()) {
        m_host.messageBox(verdict.error, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
        QLineEdit* field = fieldFor(verdict.field);
        field->setFocus();
        field->selectAll();
        return;
    }
    // Everything is stored at once, and only now.
    core::ScheduleOptions& s = m_schedule;
    for (size_t i = 0; i < m_days.size(); ++i) {
        s.days[i] = m_days[i]->isChecked();
    }
    s.marketOpen = m_open->isChecked();
    s.midday = m_midday->isChecked();
    s.marketClose = m_close->isChecked();
    s.interval = m_other->isChecked();
    core::storeSchedule(s, entry, verdict);
    if (m_stored) {
        m_stored();
    }
    if (verdict.shortInterval) {
        m_host.messageBox(core::kShortIntervalWarning, support::MsgButtons::Ok, support::MsgIcon::Exclamation);
    }
    QDialog::accept();
}

QLineEdit* ScheduleDialog::fieldFor(core::ScheduleField field) const
{
    switch (field) {
    case core::ScheduleField::OpenTime:
        return m_openTime;
    case core::ScheduleField::MiddayTime:
        return m_middayTime;
    case core::ScheduleField::CloseTime:
        return m_closeTime;
    case core::ScheduleField::StopTime:
        return m_stopTime;
    case core::ScheduleField::Interval:
        return m_frequency;
    case core::ScheduleField::StartTime:
    case core::ScheduleField::None:
        break;
    }
    return m_startTime;
}

} // namespace kestrova::gui
