#include "app/Schedule.h"

#include "support/Clock.h"
#include "support/Format.h"

namespace kestrova::app {

bool TimeReached(const QTime& now, const QTime& moment)
{
    const int n = now.msecsSinceStartOfDay();
    const int m = moment.msecsSinceStartOfDay();
    return n > m && n < m + 5 * 60 * 1000;
}

bool IntervalDue(const QTime& now, const QTime& next)
{
    return now.msecsSinceStartOfDay() / 1000 > next.msecsSinceStartOfDay() / 1000;
}

QTime NextUpdateTime(const QTime& now, int intervalMinutes)
{
    const int minutes = now.hour() * 60 + now.minute() + intervalMinutes;
    return QTime(0, 0).addSecs(static_cast<qint64>(minutes) * 60);
}

namespace {

QString timeText(const QTime& t)
{
    return support::generalDate(QDateTime(support::zeroDate(), t));
}

void marketMoment(bool updateDay, bool enabled, const QString& timeText, bool& done, bool markBefore, const QTime& now,
                  const ScheduleHooks& hooks)
{
    if (!updateDay || !enabled || done) {
        return;
    }
    const auto moment = support::parseTimeOfDay(timeText);
    if (!moment || !TimeReached(now, *moment)) {
        return;
    }
    // The close update marks itself done before it runs, so a long close update that
    // outlives its own window can never run twice.
    if (markBefore) {
        done = true;
    }
    if (hooks.internetService()) {
        hooks.runUpdate(true);
    }
    done = true;
}

} // namespace

void CheckSchedule(const core::ScheduleOptions& options, ScheduleState& state, const support::Clock& clock,
                   const ScheduleHooks& hooks)
{
    const QDateTime nowDt = clock.now();
    const int weekday = nowDt.date().dayOfWeek() % 7 + 1; // Qt: Monday = 1 ... Sunday = 7
    if (weekday != state.lastWeekday) {
        state.closeDone = false;
        state.middayDone = false;
        state.openDone = false;
        state.nextUpdate = options.startTime;
        state.nextAfterMidnight = false;
        state.lastWeekday = weekday;
    }
    const bool updateDay = weekday >= 2 && weekday <= 6 && options.days[static_cast<size_t>(weekday - 2)];
    const QTime now = nowDt.time();

    marketMoment(updateDay, options.marketOpen, options.openTime, state.openDone, false, now, hooks);
    marketMoment(updateDay, options.midday, options.middayTime, state.middayDone, false, now, hooks);
    marketMoment(updateDay, options.marketClose, options.closeTime, state.closeDone, true, now, hooks);

    if (!updateDay || !options.interval) {
        return;
    }
    const auto start = support::parseTimeOfDay(options.startTime);
    const auto stop = support::parseTimeOfDay(options.stopTime);
    if (!start || !stop || !(now > *start && now < *stop)) {
        return;
    }
    auto next = support::parseTimeOfDay(state.nextUpdate);
    if (!next) {
        state.nextUpdate = options.startTime;
        state.nextAfterMidnight = false;
        next = start;
    }
    // Taken literally, 23:50 + 15 minutes is 00:05, which every tick until the stop time is
    // later than: that would update (and page) every minute.
    if (!state.nextAfterMidnight && IntervalDue(now, *next)) {
        const QTime following = NextUpdateTime(now, options.intervalMinutes);
        state.nextUpdate = timeText(following);
        state.nextAfterMidnight = now.hour() * 60 + now.minute() + options.intervalMinutes >= 24 * 60;
        if (hooks.internetService()) {
            hooks.runUpdate(false);
        }
        hooks.status(QStringLiteral("Next scheduled update at ") + state.nextUpdate);
    }
}

} // namespace kestrova::app
