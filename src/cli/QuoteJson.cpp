#include "cli/QuoteJson.h"

#include "cli/QuoteTable.h"
#include "core/Quote.h"
#include "core/SecurityType.h"
#include "support/Format.h"

#include <QJsonValue>

#include <cmath>

namespace kestrova::cli {

namespace {

// A display text read back as a number. The quote keeps normalised texts ("105.25",
// "-0.50", "1234567"), so a plain conversion suffices; "n/a", an empty text (a field the
// service does not offer) and anything else unreadable give null, never a made-up 0.
QJsonValue numberOf(const QString& text)
{
    QString plain = text.trimmed();
    plain.remove(u',');
    bool ok = false;
    const double value = plain.toDouble(&ok);
    return ok && std::isfinite(value) ? QJsonValue(value) : QJsonValue(QJsonValue::Null);
}

// A limit the user did not set is kept as a value no market reaches; here it is null. A
// limit is single precision: it goes out as the user typed it (1.1, not 1.100000023841858).
QJsonValue limitOf(float value, float none)
{
    return value == none ? QJsonValue(QJsonValue::Null) : QJsonValue(support::singleToExactText(value).toDouble());
}

} // namespace

QJsonObject quoteJson(const core::Quote& q, const QJsonValue& sourceIndex, const QString& sourceName)
{
    QJsonObject o{
        {QStringLiteral("ticker"), q.ticker()},
        {QStringLiteral("name"), q.name()},
        {QStringLiteral("type"), core::securityTypeName(q.securityType())},
        {QStringLiteral("slot"), q.securityIndex()},
        {QStringLiteral("digits"), q.digits()},
        {QStringLiteral("source"),
         QJsonObject{{QStringLiteral("index"), sourceIndex}, {QStringLiteral("name"), sourceName}}},
        {QStringLiteral("update"), q.update()},
        {QStringLiteral("news"), q.news() != 0},
        {QStringLiteral("alarms"), alarmMarks(q)},
        {QStringLiteral("alarm"), QJsonObject{{QStringLiteral("high"), q.highAlarm()},
                                              {QStringLiteral("low"), q.lowAlarm()},
                                              {QStringLiteral("volume"), q.volumeAlarm()},
                                              {QStringLiteral("percentUp"), q.highChgAlarm()},
                                              {QStringLiteral("percentDown"), q.lowChgAlarm()},
                                              {QStringLiteral("new"), q.newLimit()}}},
        {QStringLiteral("limits"),
         QJsonObject{{QStringLiteral("high"), limitOf(q.highLimit(), core::Quote::kNoHighLimit)},
                     {QStringLiteral("low"), limitOf(q.lowLimit(), core::Quote::kNoLowLimit)},
                     {QStringLiteral("percentUp"), limitOf(q.highChgLimit(), core::Quote::kNoHighChgLimit)},
                     {QStringLiteral("percentDown"), limitOf(q.lowChgLimit(), core::Quote::kNoLowChgLimit)},
                     {QStringLiteral("volume"), limitOf(q.volumeLimit(), core::Quote::kNoVolumeLimit)}}},
        {QStringLiteral("toPager"), q.toPager()},
        {QStringLiteral("pageCloseOnly"), q.pageCloseOnly()},
    };
    // The stamp as the service wrote it, and as a time when it reads as one.
    const QDateTime when = q.updateDate();
    o.insert(QStringLiteral("updated"), when.isValid() && when.date() != support::zeroDate()
                                            ? QJsonValue(when.toString(Qt::ISODate))
                                            : QJsonValue(QJsonValue::Null));

    const std::pair<const char*, QString> texts[] = {
        {"last", q.last()},
        {"change", q.change()},
        {"percentChg", q.percentChg()},
        {"volume", q.volume()},
        {"bid", q.bid()},
        {"ask", q.ask()},
        {"open", q.openPrice()},
        {"previousClose", q.previousClose()},
        {"dayHigh", q.dayHigh()},
        {"dayLow", q.dayLow()},
        {"yearHigh", q.yearHigh()},
        {"yearLow", q.yearLow()},
        {"eps", q.eps()},
        {"pe", q.pe()},
        {"openInterest", q.openInterest()},
    };
    for (const auto& [key, text] : texts) {
        const QString name = QString::fromLatin1(key);
        o.insert(name, text);
        o.insert(name + QStringLiteral("Value"), numberOf(text));
    }
    // An unknown change is no figure at all: a reader that takes the text for a number must
    // not find "n/a" there.
    if (q.change() == support::kNotAvailable)
        o.insert(QStringLiteral("change"), QJsonValue(QJsonValue::Null));
    return o;
}

} // namespace kestrova::cli
