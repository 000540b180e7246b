#pragma once

#include "core/Options.h"

#include <QDate>
#include <QDateTime>
#include <QString>
#include <QTime>
#include <QTimeZone>

#include <optional>

namespace kestrova::app {

// The regular session of the New York exchanges, in their own time zone.
inline const QTime kMarketOpen{9, 30};
inline const QTime kMarketClose{16, 0};
inline const QByteArray kMarketZone = QByteArrayLiteral("America/New_York");
constexpr int kMarketHoursInterval = 15;

// The session's open and close as clock times in another zone.
struct MarketHours
{
    QTime open;
    QTime close;
};

// The session of the given day as clock times in `zone` (daylight saving of both zones
// taken into account for that day). Nothing when the session does not fall on the same
// calendar day there (it crosses midnight, or lies on the next day, as east of India): a
// schedule of weekday times cannot hold it. *why then says so in words.
std::optional<MarketHours> marketHoursIn(const QDate& day, const QTimeZone& zone, QString* why = nullptr);

// The schedule that follows those hours: every weekday, one update at the open and one at
// the close, and interval updates every `interval` minutes after the open until the
// close (starting one interval after the open, so the open is not updated twice). The
// midday update is off. Everything else is kept from `base`.
core::ScheduleOptions marketHoursSchedule(const core::ScheduleOptions& base, const MarketHours& hours,
                                          int interval = kMarketHoursInterval);

// When the once-a-minute check will first run an update at or after `now` with this
// schedule (to the minute it becomes due); invalid when it never will (no weekday ticked,
// or neither market moments nor interval updates on).
QDateTime nextScheduledUpdate(const core::ScheduleOptions& schedule, const QDateTime& now);

// What a person is told about it: "The first scheduled update runs today at 3:45 pm.",
// "Today's updates are over: the first scheduled update runs on Monday at 9:31 am.", or
// that none will run.
QString firstUpdateText(const core::ScheduleOptions& schedule, const QDateTime& now);

} // namespace kestrova::app
