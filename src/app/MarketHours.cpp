#include "app/MarketHours.h"

#include "support/Format.h"

#include <QLocale>

#include <array>

namespace kestrova::app {

namespace {

QString timeText(const QTime& t)
{
    return support::formatDate(QDateTime(support::zeroDate(), t), u"h:mm am/pm");
}

bool updateDay(const core::ScheduleOptions& s, const QDate& day)
{
    const int weekday = day.dayOfWeek(); // Monday = 1 ... Sunday = 7
    return weekday <= 5 && s.days[size_t(weekday - 1)];
}

// The earliest moment on `day` at or after `from` (a time of day; null: the whole day)
// when the check runs an update; null when none does.
QTime firstOnDay(const core::ScheduleOptions& s, const QTime& from)
{
    QTime best;
    auto consider = [&](const QTime& t) {
        if (!best.isValid() || t < best) {
            best = t;
        }
    };
    const std::array<std::pair<bool, const QString*>, 3> moments{
        {{s.marketOpen, &s.openTime}, {s.midday, &s.middayTime}, {s.marketClose, &s.closeTime}}};
    for (const auto& [on, text] : moments) {
        const auto t = support::parseTimeOfDay(*text);
        if (!on || !t) {
            continue;
        }
        // A moment is reached until five minutes after it.
        if (!from.isValid() || from < *t) {
            consider(*t);
        } else if (from.msecsSinceStartOfDay() < t->msecsSinceStartOfDay() + 5 * 60 * 1000) {
            consider(from);
        }
    }
    const auto start = support::parseTimeOfDay(s.startTime);
    const auto stop = support::parseTimeOfDay(s.stopTime);
    if (s.interval && start && stop && *start < *stop) {
        if (!from.isValid() || from < *start) {
            consider(*start);
        } else if (from < *stop) {
            consider(from);
        }
    }
    return best;
}

} // namespace

std::optional<MarketHours> marketHoursIn(const QDate& day, const QTimeZone& zone, QString* why)
{
    const QTimeZone market(kMarketZone);
    if (!market.isValid() || !zone.isValid()) {
        if (why) {
            *why = QStringLiteral("The time zone data of this system does not know New York time.");
        }
        return std::nullopt;
    }
    const QDateTime open = QDateTime(day, kMarketOpen, market).toTimeZone(zone);
    const QDateTime close = QDateTime(day, kMarketClose, market).toTimeZone(zone);
    if (open.date() != day || close.date() != day) {
        if (why) {
            *why = QStringLiteral("Here the market's hours (%1 to %2 your time) do not fall on the same day as in "
                                  "New York; choose your own times.")
                       .arg(timeText(open.time()), timeText(close.time()));
        }
        return std::nullopt;
    }
    return MarketHours{open.time(), close.time()};
}

core::ScheduleOptions marketHoursSchedule(const core::ScheduleOptions& base, const MarketHours& hours, int interval)
{
    core::ScheduleOptions s = base;
    s.days = {true, true, true, true, true};
    s.marketOpen = true;
    s.marketClose = true;
    s.midday = false;
    s.interval = true;
    s.intervalMinutes = qint16(interval);
    s.openTime = timeText(hours.open);
    s.closeTime = timeText(hours.close);
    s.startTime = timeText(hours.open.addSecs(qint64(interval) * 60));
    s.stopTime = timeText(hours.close);
    return s;
}

QDateTime nextScheduledUpdate(const core::ScheduleOptions& schedule, const QDateTime& now)
{
    // A week and a day covers every weekday, today's rest included.
    for (int d = 0; d <= 7; ++d) {
        const QDate day = now.date().addDays(d);
        if (!updateDay(schedule, day)) {
            continue;
        }
        const QTime t = firstOnDay(schedule, d == 0 ? QTime(now.time().hour(), now.time().minute()) : QTime());
        if (t.isValid()) {
            return QDateTime(day, t, now.timeZone());
        }
    }
    return {};
}

QString firstUpdateText(const core::ScheduleOptions& schedule, const QDateTime& now)
{
    const QDateTime next = nextScheduledUpdate(schedule, now);
    if (!next.isValid()) {
        return QStringLiteral("No scheduled update will run: tick at least one weekday and one kind of update.");
    }
    const QString at = timeText(next.time());
    const qint64 days = now.date().daysTo(next.date());
    if (days == 0) {
        return QStringLiteral("The first scheduled update runs today at %1.").arg(at);
    }
    const QString when =
        days == 1 ? QStringLiteral("tomorrow") : QStringLiteral("on ") + QLocale::c().dayName(next.date().dayOfWeek());
    const QString text = QStringLiteral("the first scheduled update runs %1 at %2.").arg(when, at);
    if (updateDay(schedule, now.date())) {
        return QStringLiteral("Today's updates are over: ") + text;
    }
    return text.left(1).toUpper() + text.mid(1);
}

} // namespace kestrova::app
