#pragma once

#include "core/Options.h"

#include <QString>
#include <QTime>

#include <functional>

namespace kestrova::support {
class Clock;
}

namespace kestrova::app {

// The day record: which market moments ran today and when the next interval update is.
struct ScheduleState
{
    int lastWeekday = 0; // Sunday = 1 ... Saturday = 7; 0 before the first check
    bool openDone = false;
    bool middayDone = false;
    bool closeDone = false;
    QString nextUpdate; // a time of day as text; empty until set
    // The next update was pushed past midnight: it belongs to tomorrow, whose first check
    // starts again from the start time, so nothing more is due today.
    bool nextAfterMidnight = false;
};

// A market moment is reached strictly after its time and strictly before five minutes later.
bool TimeReached(const QTime& now, const QTime& moment);
// The next interval update is due once the time of day is strictly later than it.
bool IntervalDue(const QTime& now, const QTime& next);
// This hour, this minute plus the interval, zero seconds (minutes carry into the hour).
QTime NextUpdateTime(const QTime& now, int intervalMinutes);

// What the check needs from the program around it.
struct ScheduleHooks
{
    // Runs one update: update(paging enabled, market moment).
    std::function<void(bool marketMoment)> runUpdate;
    // Quotes come over the Internet (not by modem): only then do updates run.
    std::function<bool()> internetService;
    // StatusMessage.
    std::function<void(const QString&)> status;
};

// The once-a-minute check. Market moments fire once a day on ticked weekdays; interval
// updates repeat between the start and stop times.
void CheckSchedule(const core::ScheduleOptions& options, ScheduleState& state, const support::Clock& clock,
                   const ScheduleHooks& hooks);

} // namespace kestrova::app
