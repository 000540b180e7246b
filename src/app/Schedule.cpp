#include "app/Schedule.h"

#include "support/Clock.h"
#include "support/Format.h"

#include <QRegularExpression>

#include <cmath>

namespace kestrova::app {

std::optional<QTime> parseTimeText(const QString& text)
{
    static const QRegularExpression re(QStringLiteral(R"(^\s*(\d{1,2}):(\d{2})(?::(\d{2}))?\s*([aApP][mM])?\s*$)"));
    const auto m = re.match(text);
    if (!m.hasMatch()) {
        return std::nullopt;
    }
    int h = m.captured(1).toInt();
    const int min = m.captured(2).toInt();
    const int s = m.captured(3).isEmpty() ? 0 : m.captured(3).toInt();
    const QString ampm = m.captured(4).toLower();
    if (!ampm.isEmpty()) {
        if (h < 1 || h > 12) {
            return std::nullopt;
        }
        if (ampm == QLatin1String("am")) {
            h = h == 12 ? 0 : h;
        } else {
            h = h == 12 ? 12 : h + 12;
        }
    }
    const QTime t(h, min, s);
    if (!t.isValid()) {
        return std::nullopt;
    }
    return t;
}

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
    const auto moment = parseTimeText(timeText);
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
    const auto start = parseTimeText(options.startTime);
    const auto stop = parseTimeText(options.stopTime);
    if (!start || !stop || !(now > *start && now < *stop)) {
        return;
    }
    auto next = parseTimeText(state.nextUpdate);
    if (!next) {
        state.nextUpdate = options.startTime;
        next = start;
    }
    if (IntervalDue(now, *next)) {
        const QTime following = NextUpdateTime(now, options.intervalMinutes);
        state.nextUpdate = timeText(following);
        if (hooks.internetService()) {
            hooks.runUpdate(false);
        }
        hooks.status(QStringLiteral("Next scheduled update at ") + state.nextUpdate);
    }
}

QString validateTimeEntry(TimeField field, const QString& text)
{
    if (parseTimeText(text)) {
        return {};
    }
    // The close-time field has always shown the rejected text right after the colon.
    if (field == TimeField::Close) {
        return QStringLiteral("Invalid Time:") + text;
    }
    return QStringLiteral("Invalid Time: ex. 03:42:00 pm");
}

ScheduleSaveResult saveSchedule(core::ScheduleOptions& options, const core::ScheduleOptions& edited,
                                const QString& intervalField)
{
    ScheduleSaveResult result;
    const auto start = parseTimeText(edited.startTime);
    const auto stop = parseTimeText(edited.stopTime);
    if (start && stop && *start > *stop) {
        result.error = QStringLiteral("Start time must be less than Stop time.");
        return result;
    }
    const bool enabled = options.enabled;
    options = edited;
    options.enabled = enabled; // the enable switch lives on the main window, not in the dialog
    const double interval = std::trunc(support::leadingNumber(intervalField));
    options.intervalMinutes = static_cast<qint16>(std::clamp(interval, -32768.0, 32767.0));
    result.saved = true;
    if (options.intervalMinutes < 5) {
        result.warning = QStringLiteral("It is not recommended to update less than 5 minutes...");
    }
    return result;
}

} // namespace kestrova::app
