#pragma once

#include "core/ScheduleRules.h"

#include <QDialog>
#include <QHash>

#include <array>
#include <functional>

class QCheckBox;
class QLabel;
class QLineEdit;

namespace kestrova::app {
class Application;
} // namespace kestrova::app

namespace kestrova::gui {

class GuiHost;

// frmSchedule: the weekdays, the three market moments and the interval updates between a
// start and a stop time. A time field left with no time in it says so at once, naming the
// field. Save checks each time field, refuses a start after the stop with nothing saved,
// stores everything at once and then warns about very short intervals; Cancel stores nothing.
class ScheduleDialog : public QDialog
{
    Q_OBJECT
public:
    ScheduleDialog(QWidget* parent, app::Application& app, GuiHost& host);
    // Edits a schedule that is not in use yet (the set-up assistant's): Save stores into
    // target alone.
    ScheduleDialog(QWidget* parent, GuiHost& host, core::ScheduleOptions& target);

    void accept() override;
    // How a message names a field: "Start time", "Market close time".
    static QString fieldName(core::ScheduleField field);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void intervalToggled(bool on);
    QLineEdit* fieldFor(core::ScheduleField field) const;
    // Says at once, naming the field, when a time field is left holding no time.
    void checkTimeField(QLineEdit* edit);

    GuiHost& m_host;
    core::ScheduleOptions& m_schedule;
    std::function<void()> m_stored; // after Save: the file now differs from what it holds
    std::array<QCheckBox*, 5> m_days{};
    QCheckBox* m_open;
    QCheckBox* m_midday;
    QCheckBox* m_close;
    QCheckBox* m_other;
    QLineEdit* m_openTime;
    QLineEdit* m_middayTime;
    QLineEdit* m_closeTime;
    QLineEdit* m_startTime;
    QLineEdit* m_stopTime;
    QLineEdit* m_frequency;
    QLabel* m_frequencyLabel;
    QLabel* m_startLabel;
    QLabel* m_stopLabel;
    QHash<QLineEdit*, core::ScheduleField> m_timeFields;
    QHash<QLineEdit*, QString> m_reported; // the rejected text each field last reported
};

} // namespace kestrova::gui
