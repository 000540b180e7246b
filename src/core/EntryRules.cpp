#include "core/EntryRules.h"

#include "core/Options.h"
#include "support/Cp1252.h"

namespace kestrova::core {

QString unstorableCharacter(const QString& text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (support::cp1252Byte(text[i]) < 0) {
            // A character outside the Basic Multilingual Plane is two code units: show it whole.
            const qsizetype n = text[i].isHighSurrogate() && i + 1 < text.size() ? 2 : 1;
            return QStringLiteral("\"%1\" cannot be stored in the portfolio file, which holds Windows-1252 text only")
                .arg(text.mid(i, n));
        }
    }
    return {};
}

QString entryProblem(const PortfolioRecord& r)
{
    const QString& t = r.ticker;
    if (t.trimmed().isEmpty()) {
        return QStringLiteral("ticker: a ticker is needed");
    }
    if (t != t.trimmed()) {
        return QStringLiteral("ticker: \"%1\" may not start or end with blanks").arg(t);
    }
    if (t.size() > kMaxTickerLength) {
        return QStringLiteral("ticker: holds at most %1 characters").arg(kMaxTickerLength);
    }
    if (t.contains(u'"') || t.contains(u'\r') || t.contains(u'\n')) {
        return QStringLiteral("ticker: may not hold double quotes or line breaks");
    }
    if (const QString why = unstorableCharacter(t); !why.isEmpty()) {
        return QStringLiteral("ticker: ") + why;
    }
    // !(x >= 0) also catches a NaN.
    if (!(r.highLimit >= 0)) {
        return QStringLiteral("high limit: must be 0 (no limit) or a price above it");
    }
    if (!(r.lowLimit >= 0)) {
        return QStringLiteral("low limit: must be 0 (no limit) or a price above it");
    }
    if (r.volumeLimit < 0) {
        return QStringLiteral("volume limit: must be 0 (no limit) or more shares");
    }
    if (r.securityType < 0 || r.securityType > 3) {
        return QStringLiteral("type: must be 0 Stock, 1 Option, 2 Mutual Fund or 3 Future");
    }
    if (r.digits < 0 || r.digits > 9) {
        return QStringLiteral("digits: must be 0 to 9");
    }
    if (r.server < 0 || r.server >= kBuiltInServers) {
        return QStringLiteral("quote service: must be 0 to %1").arg(kBuiltInServers - 1);
    }
    return {};
}

QString storableEntry(PortfolioRecord& record)
{
    record.ticker = record.ticker.trimmed();
    return entryProblem(record);
}

} // namespace kestrova::core
