#include "core/ScheduleRules.h"

#include "support/Format.h"

#include <cmath>

namespace kestrova::core {

namespace {

struct NamedField
{
    const char* option;
    ScheduleField field;
    QString ScheduleEntry::*text;
};

const NamedField kFields[] = {
    {"schedule.open_time", ScheduleField::OpenTime, &ScheduleEntry::openTime},
    {"schedule.midday_time", ScheduleField::MiddayTime, &ScheduleEntry::middayTime},
    {"schedule.close_time", ScheduleField::CloseTime, &ScheduleEntry::closeTime},
    {"schedule.start_time", ScheduleField::StartTime, &ScheduleEntry::startTime},
    {"schedule.stop_time", ScheduleField::StopTime, &ScheduleEntry::stopTime},
    {"schedule.interval", ScheduleField::Interval, &ScheduleEntry::interval},
};

ScheduleVerdict failure(ScheduleField field, const QString& message)
{
    ScheduleVerdict v;
    v.field = field;
    v.error = message;
    return v;
}

} // namespace

ScheduleEntry ScheduleEntry::from(const ScheduleOptions& o)
{
    return {o.openTime, o.middayTime, o.closeTime, o.startTime, o.stopTime, QString::number(o.intervalMinutes)};
}

QString timeFieldError(ScheduleField field, const QString& text)
{
    if (support::parseTimeOfDay(text)) {
        return {};
    }
    return field == ScheduleField::CloseTime ? QStringLiteral("Invalid Time:") + text : kInvalidTimeExample;
}

ScheduleVerdict validateSchedule(const ScheduleEntry& entry)
{
    for (const NamedField& f : kFields) {
        if (f.field == ScheduleField::Interval) {
            continue;
        }
        const QString why = timeFieldError(f.field, entry.*f.text);
        if (!why.isEmpty()) {
            return failure(f.field, why);
        }
    }
    if (*support::parseTimeOfDay(entry.startTime) > *support::parseTimeOfDay(entry.stopTime)) {
        return failure(ScheduleField::StartTime, kStartAfterStop);
    }
    const double minutes = std::trunc(support::leadingNumber(entry.interval));
    if (minutes < kMinInterval || minutes > kMaxInterval) {
        return failure(ScheduleField::Interval, QStringLiteral("The update interval must be a number of minutes "
                                                               "from %1 to %2.")
                                                    .arg(kMinInterval)
                                                    .arg(kMaxInterval));
    }
    ScheduleVerdict v;
    v.intervalMinutes = static_cast<qint16>(minutes);
    v.shortInterval = v.intervalMinutes < 5;
    return v;
}

void storeSchedule(ScheduleOptions& options, const ScheduleEntry& entry, const ScheduleVerdict& verdict)
{
    options.openTime = entry.openTime;
    options.middayTime = entry.middayTime;
    options.closeTime = entry.closeTime;
    options.startTime = entry.startTime;
    options.stopTime = entry.stopTime;
    options.intervalMinutes = verdict.intervalMinutes;
}

bool setScheduleField(ScheduleEntry& entry, const QString& name, const QString& value)
{
    for (const NamedField& f : kFields) {
        if (name.compare(QLatin1String(f.option), Qt::CaseInsensitive) == 0) {
            entry.*f.text = value;
            return true;
        }
    }
    return false;
}

QString scheduleOptionName(ScheduleField field)
{
    for (const NamedField& f : kFields) {
        if (f.field == field) {
            return QString::fromLatin1(f.option);
        }
    }
    return {};
}

std::optional<ScheduleVerdict> checkScheduleOption(const ScheduleOptions& options, const QString& name,
                                                   const QString& value, ScheduleEntry* changed)
{
    ScheduleEntry entry = ScheduleEntry::from(options);
    if (!setScheduleField(entry, name, value)) {
        return std::nullopt;
    }
    if (changed) {
        *changed = entry;
    }
    return validateSchedule(entry);
}

} // namespace kestrova::core
