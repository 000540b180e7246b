#pragma once

#include "core/Options.h"

#include <QString>

#include <optional>

namespace kestrova::core {

// The schedule dialog's text fields, exactly as the user typed them.
struct ScheduleEntry
{
    QString openTime;   // mskOpenTime
    QString middayTime; // mskMiddayTime
    QString closeTime;  // mskCloseTime
    QString startTime;  // mskStartTime
    QString stopTime;   // mskStopTime
    QString interval;   // txtFrequency

    // What the dialog shows for the current settings.
    static ScheduleEntry from(const ScheduleOptions& options);
};

enum class ScheduleField { None, OpenTime, MiddayTime, CloseTime, StartTime, StopTime, Interval };

inline const QString kInvalidTimeExample = QStringLiteral("Invalid Time: ex. 03:42:00 pm");
inline const QString kStartAfterStop = QStringLiteral("Start time must be less than Stop time.");
inline const QString kShortIntervalWarning = QStringLiteral("It is not recommended to update less than 5 minutes...");
constexpr int kMinInterval = 1;
constexpr int kMaxInterval = 24 * 60;

// The verdict on Save: either the first failure (the field to go back to and the message
// to show, with nothing stored) or the values to store.
struct ScheduleVerdict
{
    ScheduleField field = ScheduleField::None; // the field that failed
    QString error;                             // empty when the entry may be stored
    qint16 intervalMinutes = 0;                // the integer part of the interval field
    bool shortInterval = false;                // show kShortIntervalWarning after storing

    bool ok() const { return error.isEmpty(); }
};

// The message a time field shows when it loses the focus with text that is not a time, or
// an empty text. The close-time field has always shown the rejected text itself right after
// the colon; the other four show an example.
QString timeFieldError(ScheduleField field, const QString& text);

// Checks the fields in the dialog's order (open, midday, close, start, stop, then the start
// against the stop, then the interval) and stops at the first failure. A start equal to the
// stop is accepted: it simply leaves no room for interval updates. The interval is read by
// its leading number and cut to its integer part (7.9 is 7); below one minute or above a day
// it is refused, since it could only mean an update at every tick or none at all.
ScheduleVerdict validateSchedule(const ScheduleEntry& entry);

// Stores a verdict that is ok(): the times as typed, the interval as checked. Switches
// (weekdays, market moments, interval updates, the main window's enable) are left alone.
void storeSchedule(ScheduleOptions& options, const ScheduleEntry& entry, const ScheduleVerdict& verdict);

// The options that are fields of the schedule dialog, by option name ("schedule.start_time").
// For one of them, the verdict on the whole schedule with that field changed to value;
// nothing for any other name.
std::optional<ScheduleVerdict> checkScheduleOption(const ScheduleOptions& options, const QString& name,
                                                   const QString& value, ScheduleEntry* changed = nullptr);

// Puts value into the entry's field for the option name; false when the name is not one of
// the schedule dialog's fields.
bool setScheduleField(ScheduleEntry& entry, const QString& name, const QString& value);
// The option name of a schedule dialog field ("schedule.stop_time"); empty for None.
QString scheduleOptionName(ScheduleField field);

} // namespace kestrova::core
