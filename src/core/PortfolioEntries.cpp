#include "core/PortfolioEntries.h"

#include "core/EntryRules.h"
#include "core/Options.h"
#include "core/Security.h"
#include "support/Cp1252.h"
#include "support/Format.h"
#include "support/VbError.h"

#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrova::core {

namespace {

using support::Currency;

const QString kTooMany = QStringLiteral("Too Many Tickers (50 Max)");

QString numberText(float value)
{
    return value == 0 ? QString() : support::singleToText(value);
}

// A name goes into the file between double quotes, one item per line.
QString textProblem(const QString& text)
{
    if (text.contains(u'"') || text.contains(u'\r') || text.contains(u'\n')) {
        return QStringLiteral("may not hold double quotes or line breaks");
    }
    return unstorableCharacter(text);
}

struct Checker
{
    std::optional<EntryProblem> problem;

    bool fail(EntryField field, const QString& message)
    {
        if (!problem) {
            problem = EntryProblem{field, entryFieldLabel(field) + QStringLiteral(": ") + message};
        }
        return false;
    }

    // The stored-entry rules (EntryRules), reported for the form's field. With `only`, just
    // a problem of those fields counts.
    void record(PortfolioRecord& r, std::initializer_list<EntryField> only)
    {
        static const std::pair<const char*, EntryField> prefixes[] = {
            {"ticker: ", EntryField::Ticker},       {"high limit: ", EntryField::HighLimit},
            {"low limit: ", EntryField::LowLimit},  {"volume limit: ", EntryField::VolumeLimit},
            {"type: ", EntryField::Type},           {"digits: ", EntryField::Digits},
            {"quote service: ", EntryField::Server}};
        const QString why = storableEntry(r);
        for (const auto& [prefix, field] : prefixes) {
            if (why.startsWith(QLatin1String(prefix))) {
                if (only.size() == 0 || std::find(only.begin(), only.end(), field) != only.end()) {
                    fail(field, why.mid(static_cast<qsizetype>(qstrlen(prefix))));
                }
                return;
            }
        }
    }

    // A number field; min/max bound it, and a limit may be left empty for "no limit".
    bool number(EntryField field, const QString& text, double min, double max, double* out)
    {
        const std::optional<double> v = parseEntryNumber(text);
        if (!v) {
            return fail(field, QStringLiteral("\"%1\" is not a number.").arg(text.trimmed()));
        }
        if (*v < min) {
            return fail(field, min == 0 ? QStringLiteral("may not be negative.")
                                        : QStringLiteral("may not be below %1.").arg(min));
        }
        if (*v > max) {
            return fail(field, QStringLiteral("may not be above %1.").arg(max, 0, 'f', 0));
        }
        *out = *v;
        return true;
    }
};

} // namespace

QString entryFieldLabel(EntryField field)
{
    switch (field) {
    case EntryField::Type:
        return QStringLiteral("Type");
    case EntryField::Ticker:
        return QStringLiteral("Ticker");
    case EntryField::Name:
        return QStringLiteral("Name");
    case EntryField::Shares:
        return QStringLiteral("Shares");
    case EntryField::CostBasis:
        return QStringLiteral("Cost Basis");
    case EntryField::HighLimit:
        return QStringLiteral("High Limit");
    case EntryField::LowLimit:
        return QStringLiteral("Low Limit");
    case EntryField::HighChgLimit:
        return QStringLiteral("High % Change");
    case EntryField::LowChgLimit:
        return QStringLiteral("Low % Change");
    case EntryField::VolumeLimit:
        return QStringLiteral("Volume Limit");
    case EntryField::Digits:
        return QStringLiteral("Digits");
    case EntryField::Server:
        return QStringLiteral("Quote Server");
    }
    return {};
}

EntryInput EntryInput::fromRecord(const PortfolioRecord& r)
{
    EntryInput in;
    in.type = r.effectiveType();
    in.ticker = r.ticker.trimmed();
    in.name = r.name;
    in.shares = numberText(r.shares);
    in.costBasis = r.costBasis == Currency() ? QString() : r.costBasis.toString();
    in.highLimit = numberText(r.highLimit);
    in.lowLimit = numberText(r.lowLimit);
    in.highChgLimit = numberText(r.highChgLimit);
    in.lowChgLimit = numberText(r.lowChgLimit);
    in.volumeLimit = r.volumeLimit == 0 ? QString() : QString::number(r.volumeLimit);
    in.digits = r.digits;
    in.server = r.server;
    in.toPager = r.toPager != 0;
    in.marketOnly = r.marketOnly != 0;
    in.news = r.news != 0;
    return in;
}

std::optional<double> parseEntryNumber(const QString& text)
{
    static const QRegularExpression re(QStringLiteral("^[+-]?(\\d{1,3}(,\\d{3})+|\\d*)(\\.\\d*)?$"));
    const QString t = text.trimmed();
    if (t.isEmpty()) {
        return 0.0;
    }
    if (!re.match(t).hasMatch() || !t.contains(QRegularExpression(QStringLiteral("\\d")))) {
        return std::nullopt;
    }
    QString plain = t;
    plain.remove(u',');
    bool ok = false;
    const double v = plain.toDouble(&ok);
    if (!ok || !std::isfinite(v)) {
        return std::nullopt;
    }
    return v;
}

std::optional<EntryProblem> parseEntry(const EntryInput& in, PortfolioRecord& record)
{
    Checker c;
    const double floatMax = std::numeric_limits<float>::max();

    PortfolioRecord r;
    r.ticker = in.ticker;
    r.name = in.name.trimmed();
    r.securityType = in.type;
    r.legacyOption = 0; // the type is now stated outright
    r.digits = in.digits;
    r.server = in.server;
    r.toPager = in.toPager ? 1 : 0;
    r.marketOnly = in.marketOnly ? 1 : 0;
    r.news = in.news ? 1 : 0;

    // The rules every face applies to a stored entry come first for the fields at the top of
    // the form (type and ticker); the number fields are read before their own rules run.
    c.record(r, {EntryField::Type, EntryField::Ticker});
    if (r.name.size() > kMaxNameLength) {
        c.fail(EntryField::Name, QStringLiteral("a name has at most %1 characters.").arg(kMaxNameLength));
    } else if (const QString why = textProblem(r.name); !why.isEmpty()) {
        c.fail(EntryField::Name, why);
    }
    double shares = 0, cost = 0, high = 0, low = 0, highChg = 0, lowChg = 0, volume = 0;
    c.number(EntryField::Shares, in.shares, 0, floatMax, &shares);
    c.number(EntryField::CostBasis, in.costBasis, 0, 9e11, &cost);
    c.number(EntryField::HighLimit, in.highLimit, -floatMax, floatMax, &high);
    c.number(EntryField::LowLimit, in.lowLimit, -floatMax, floatMax, &low);
    c.number(EntryField::HighChgLimit, in.highChgLimit, -floatMax, floatMax, &highChg);
    c.number(EntryField::LowChgLimit, in.lowChgLimit, -floatMax, floatMax, &lowChg);
    if (c.number(EntryField::VolumeLimit, in.volumeLimit, -floatMax, std::numeric_limits<qint32>::max(), &volume) &&
        volume != std::floor(volume)) {
        c.fail(EntryField::VolumeLimit, QStringLiteral("enter a whole number of shares."));
    }
    if (c.problem) {
        return c.problem;
    }
    r.shares = static_cast<float>(shares);
    r.costBasis = Currency::fromDouble(cost);
    r.highLimit = static_cast<float>(high);
    r.lowLimit = static_cast<float>(low);
    r.highChgLimit = static_cast<float>(highChg);
    r.lowChgLimit = static_cast<float>(lowChg);
    r.volumeLimit = static_cast<qint32>(std::max(volume, double(std::numeric_limits<qint32>::min())));
    c.record(r, {});
    // Limits that can never both hold are a typing slip the form points out.
    if (!c.problem && r.highLimit != 0 && r.lowLimit != 0 && r.lowLimit > r.highLimit) {
        c.fail(EntryField::LowLimit, QStringLiteral("must be below the high limit."));
    }
    if (!c.problem && r.highChgLimit != 0 && r.lowChgLimit != 0 && r.lowChgLimit > r.highChgLimit) {
        c.fail(EntryField::LowChgLimit, QStringLiteral("must be below the high % change."));
    }
    if (c.problem) {
        return c.problem;
    }
    record = r;
    return std::nullopt;
}

QStringList splitTickers(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[\\s,;]+"));
    QStringList tickers;
    for (const QString& part : text.split(separators, Qt::SkipEmptyParts)) {
        const QString ticker = part.toUpper();
        if (!tickers.contains(ticker)) {
            tickers << ticker;
        }
    }
    return tickers;
}

int findEntry(const PortfolioTable& table, const QString& ticker, int exceptSlot)
{
    const QString wanted = ticker.trimmed();
    for (int i = 0; i < table.count && i < PortfolioTable::kSlots; ++i) {
        if (i != exceptSlot &&
            table.records[static_cast<size_t>(i)].ticker.trimmed().compare(wanted, Qt::CaseInsensitive) == 0) {
            return i;
        }
    }
    return -1;
}

qint16 defaultServerFor(const QuoteOptions& quotes, qint16 type)
{
    return type == 1 ? quotes.optionServer : quotes.server;
}

QString canAddEntry(const PortfolioTable& table)
{
    return table.count >= PortfolioTable::kMaxInUse ? kTooMany : QString();
}

QString priceLimitText(float value, qint16 digits)
{
    if (value == 0) {
        return {};
    }
    const QString pattern = QStringLiteral("##0.") + QString(std::clamp<int>(digits, 0, 15), u'0');
    return support::formatNumber(value, pattern);
}

QString changeLimitText(float value)
{
    return value == 0 ? QString() : support::formatNumber(value, u"###.0") + u'%';
}

QString volumeLimitText(qint32 value)
{
    return value == 0 ? QString() : support::formatNumber(value, u"#,##0") + QStringLiteral(" Shares");
}

QString addEntry(PortfolioTable& table, const PortfolioRecord& record)
{
    if (const QString refusal = canAddEntry(table); !refusal.isEmpty()) {
        return refusal;
    }
    if (findEntry(table, record.ticker) >= 0) {
        return record.ticker.trimmed() + QStringLiteral(" is already in the portfolio.");
    }
    table.records[static_cast<size_t>(table.count)] = record;
    ++table.count;
    return {};
}

QString replaceEntry(PortfolioTable& table, int slot, const PortfolioRecord& record)
{
    if (slot < 0 || slot >= table.count) {
        return QStringLiteral("There is no entry %1 in the portfolio.").arg(slot);
    }
    if (findEntry(table, record.ticker, slot) >= 0) {
        return record.ticker.trimmed() + QStringLiteral(" is already in the portfolio.");
    }
    table.records[static_cast<size_t>(slot)] = record;
    return {};
}

void removeEntry(PortfolioTable& table, int slot)
{
    if (slot < 0 || slot >= table.count) {
        return;
    }
    for (int i = slot; i + 1 < table.count; ++i) {
        table.records[static_cast<size_t>(i)] = table.records[static_cast<size_t>(i + 1)];
    }
    --table.count;
    table.records[static_cast<size_t>(table.count)] = PortfolioRecord{};
}

bool moveEntry(PortfolioTable& table, int slot, int step)
{
    const int to = slot + step;
    if (slot < 0 || slot >= table.count || to < 0 || to >= table.count || to == slot) {
        return false;
    }
    std::swap(table.records[static_cast<size_t>(slot)], table.records[static_cast<size_t>(to)]);
    return true;
}

HoldingFigures holdingFigures(float shares, Currency costBasis, std::optional<float> lastPrice)
{
    HoldingFigures f;
    try {
        f.costValue = holdings::costValue(costBasis, shares);
        if (lastPrice) {
            f.marketValue = holdings::marketValue(shares, *lastPrice);
            f.gain = f.marketValue - f.costValue;
            f.gainPercent = holdings::totalPercentChange(f.marketValue, f.costValue);
            f.priced = true;
        }
    } catch (const support::VbError&) {
        // A holding too large for currency: the figures are shown as unknown, not as nonsense.
        f = HoldingFigures{};
        f.overflow = true;
    }
    return f;
}

} // namespace kestrova::core
