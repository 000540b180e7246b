#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "core/EntryRules.h"
#include "core/SecurityType.h"
#include "support/Format.h"
#include "support/Text.h"

#include <QFileInfo>
#include <QTextStream>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace kestrova::cli {

namespace {

const QString kTooMany = QStringLiteral("Too Many Tickers (50 Max)");

QString priceText(float value, qint16 digits)
{
    return support::formatNumber(value, support::pricePattern(std::clamp<int>(digits, 0, 9)));
}

QString yesNo(qint16 flag)
{
    return flag ? QStringLiteral("yes") : QStringLiteral("no");
}

int findTicker(const core::PortfolioTable& t, const QString& ticker)
{
    for (int i = 0; i < t.count; ++i) {
        if (t.records[static_cast<size_t>(i)].ticker.trimmed().compare(ticker.trimmed(), Qt::CaseInsensitive) == 0) {
            return i;
        }
    }
    return -1;
}

const QString kShowUsage = QStringLiteral("Usage: kestrova-cli [global options] portfolio show\n"
                                          "Lists every portfolio entry with its limits and switches.\n");

int showCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kShowUsage;
        return kExitOk;
    }
    if (!args.isEmpty()) {
        return usageError(kShowUsage, QStringLiteral("unexpected argument ") + args.first());
    }
    CliContext ctx(g);
    if (!ctx.loadPortfolio()) {
        return kExitFailure;
    }
    QTextStream out(stdout);
    out << QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8 %9")
               .arg(QStringLiteral("Slot"), 4)
               .arg(QStringLiteral("Ticker"), -12)
               .arg(QStringLiteral("Type"), -11)
               .arg(QStringLiteral("High"), 10)
               .arg(QStringLiteral("Low"), 10)
               .arg(QStringLiteral("High chg"), 9)
               .arg(QStringLiteral("Low chg"), 9)
               .arg(QStringLiteral("Volume"), 20)
               .arg(QStringLiteral("Digits"), 6)
        << QStringLiteral(" %1 %2 %3 %4\n")
               .arg(QStringLiteral("Server"), 6)
               .arg(QStringLiteral("Pager"), -5)
               .arg(QStringLiteral("MktOnly"), -7)
               .arg(QStringLiteral("News"), -4);
    for (int i = 0; i < ctx.portfolio.count; ++i) {
        const core::PortfolioRecord& r = ctx.portfolio.records[static_cast<size_t>(i)];
        out << QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8 %9")
                   .arg(i, 4)
                   .arg(r.ticker, -12)
                   .arg(core::securityTypeName(r.effectiveType()), -11)
                   .arg(priceText(r.highLimit, r.digits), 10)
                   .arg(priceText(r.lowLimit, r.digits), 10)
                   .arg(support::formatNumber(r.highChgLimit, u"###.0") + u'%', 9)
                   .arg(support::formatNumber(r.lowChgLimit, u"###.0") + u'%', 9)
                   .arg(support::formatNumber(r.volumeLimit, u"#,##0") + QStringLiteral(" Shares"), 20)
                   .arg(r.digits, 6)
            << QStringLiteral(" %1 %2 %3 %4\n")
                   .arg(r.server, 6)
                   .arg(yesNo(r.toPager), -5)
                   .arg(yesNo(r.marketOnly), -7)
                   .arg(yesNo(r.news), -4);
    }
    return kExitOk;
}

const QString kEntrySwitches =
    QStringLiteral("         [--type stock|option|fund|future] [--high P] [--low P] [--high-chg PCT] [--low-chg PCT]\n"
                   "         [--volume N] [--digits N] [--server N] [--pager|--no-pager]\n"
                   "         [--market-only|--no-market-only] [--news|--no-news]\n");

const QString kAddUsage =
    QStringLiteral("Usage: kestrova-cli [global options] portfolio add TICKER\n") + kEntrySwitches +
    QStringLiteral("Adds an entry and saves the portfolio file (created when it does not exist yet).\n"
                   "A limit of 0 means no limit; price limits are never negative, change limits may be.\n"
                   "--server is an index 0..12 into the built-in quote services (default: the portfolio's\n"
                   "default stock or option service). New entries go to the pager unless --no-pager.\n");

const QString kSetUsage = QStringLiteral("Usage: kestrova-cli [global options] portfolio set TICKER\n") +
                          kEntrySwitches +
                          QStringLiteral("Changes only the given fields of an entry and saves the portfolio file.\n");

bool parseFloat(const QString& text, float* out)
{
    bool ok = false;
    const double d = text.toDouble(&ok);
    if (!ok || !std::isfinite(d) || std::fabs(d) > std::numeric_limits<float>::max()) {
        return false;
    }
    *out = static_cast<float>(d);
    return true;
}

bool parseInt(const QString& text, qint64 lo, qint64 hi, qint64* out)
{
    bool ok = false;
    const qint64 n = text.toLongLong(&ok);
    if (!ok || n < lo || n > hi) {
        return false;
    }
    *out = n;
    return true;
}

// The ticker and the fields given on the command line, as changes to apply to an entry.
struct EntryArgs
{
    QString ticker;
    std::vector<std::function<void(core::PortfolioRecord&)>> changes;
    bool serverGiven = false;
};

// Reads TICKER and the entry switches; returns why they are wrong, or nothing.
QString parseEntryArgs(const QStringList& args, EntryArgs& out)
{
    using Rec = core::PortfolioRecord;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        QString v;
        const bool hasValue = i + 1 < args.size();
        auto takeValue = [&] { v = args[++i]; };
        qint64 n = 0;
        float f = 0;
        if (a == QLatin1String("--pager") || a == QLatin1String("--no-pager")) {
            const qint16 on = a == QLatin1String("--pager") ? 1 : 0;
            out.changes.push_back([on](Rec& r) { r.toPager = on; });
        } else if (a == QLatin1String("--market-only") || a == QLatin1String("--no-market-only")) {
            const qint16 on = a == QLatin1String("--market-only") ? 1 : 0;
            out.changes.push_back([on](Rec& r) { r.marketOnly = on; });
        } else if (a == QLatin1String("--news") || a == QLatin1String("--no-news")) {
            const qint16 on = a == QLatin1String("--news") ? 1 : 0;
            out.changes.push_back([on](Rec& r) { r.news = on; });
        } else if (a == QLatin1String("--type")) {
            if (!hasValue) {
                return QStringLiteral("--type needs a value");
            }
            takeValue();
            static const QStringList types{QStringLiteral("stock"), QStringLiteral("option"), QStringLiteral("fund"),
                                           QStringLiteral("future")};
            const auto t = static_cast<qint16>(types.indexOf(v.toLower()));
            if (t < 0) {
                return QStringLiteral("unknown type ") + v + QStringLiteral(" (stock, option, fund or future)");
            }
            // The legacy flag would keep showing the entry as an option whatever type is chosen.
            out.changes.push_back([t](Rec& r) {
                r.securityType = t;
                r.legacyOption = 0;
            });
        } else if (a == QLatin1String("--high") || a == QLatin1String("--low") || a == QLatin1String("--high-chg") ||
                   a == QLatin1String("--low-chg")) {
            if (!hasValue) {
                return a + QStringLiteral(" needs a number");
            }
            takeValue();
            if (!parseFloat(v, &f)) {
                return a + QStringLiteral(" needs a number, not \"") + v + u'"';
            }
            float Rec::*field = a == QLatin1String("--high")       ? &Rec::highLimit
                                : a == QLatin1String("--low")      ? &Rec::lowLimit
                                : a == QLatin1String("--high-chg") ? &Rec::highChgLimit
                                                                   : &Rec::lowChgLimit;
            out.changes.push_back([field, f](Rec& r) { r.*field = f; });
        } else if (a == QLatin1String("--volume")) {
            if (!hasValue || (takeValue(), !parseInt(v, 0, std::numeric_limits<qint32>::max(), &n))) {
                return QStringLiteral("--volume needs a whole number of shares");
            }
            out.changes.push_back([n](Rec& r) { r.volumeLimit = static_cast<qint32>(n); });
        } else if (a == QLatin1String("--digits")) {
            if (!hasValue || (takeValue(), !parseInt(v, 0, 9, &n))) {
                return QStringLiteral("--digits needs a number from 0 to 9");
            }
            out.changes.push_back([n](Rec& r) { r.digits = static_cast<qint16>(n); });
        } else if (a == QLatin1String("--server")) {
            if (!hasValue || (takeValue(), !parseInt(v, 0, core::kBuiltInServers - 1, &n))) {
                return QStringLiteral("--server needs a number from 0 to 12");
            }
            out.changes.push_back([n](Rec& r) { r.server = static_cast<qint16>(n); });
            out.serverGiven = true;
        } else if (a.startsWith(u'-') && a.size() > 1) {
            return QStringLiteral("unknown switch ") + a;
        } else if (out.ticker.isNull()) {
            out.ticker = a;
        } else {
            return QStringLiteral("unexpected argument ") + a;
        }
    }
    if (out.ticker.isNull()) {
        return QStringLiteral("a ticker is needed");
    }
    return {};
}

int addCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kAddUsage;
        return kExitOk;
    }
    EntryArgs given;
    if (const QString why = parseEntryArgs(args, given); !why.isEmpty()) {
        return usageError(kAddUsage, why);
    }
    core::PortfolioRecord rec;
    rec.ticker = given.ticker;
    rec.toPager = 1;
    for (const auto& change : given.changes) {
        change(rec);
    }
    if (const QString why = core::storableEntry(rec); !why.isEmpty()) {
        return usageError(kAddUsage, why);
    }

    CliContext ctx(g);
    if (!ctx.lockPortfolio()) {
        return kExitFailure;
    }
    if (QFileInfo::exists(ctx.portfolioPath)) {
        if (!ctx.loadPortfolio()) {
            return kExitFailure;
        }
    }
    QTextStream err(stderr);
    if (findTicker(ctx.portfolio, rec.ticker) >= 0) {
        err << rec.ticker << " is already in the portfolio; portfolio set changes it\n";
        return kExitFailure;
    }
    if (ctx.portfolio.count >= core::PortfolioTable::kMaxInUse) {
        err << kTooMany << '\n';
        return kExitFailure;
    }
    if (!given.serverGiven) {
        rec.server = rec.securityType == 1 ? ctx.options.quotes.optionServer : ctx.options.quotes.server;
    }
    ctx.portfolio.records[static_cast<size_t>(ctx.portfolio.count)] = rec;
    ++ctx.portfolio.count;
    if (!ctx.savePortfolio()) {
        return kExitFailure;
    }
    QTextStream(stdout) << "Added " << rec.ticker << " in slot " << (ctx.portfolio.count - 1) << '\n';
    return kExitOk;
}

int setCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kSetUsage;
        return kExitOk;
    }
    EntryArgs given;
    if (const QString why = parseEntryArgs(args, given); !why.isEmpty()) {
        return usageError(kSetUsage, why);
    }
    if (given.changes.empty()) {
        return usageError(kSetUsage, QStringLiteral("nothing to change: give at least one of the switches"));
    }
    CliContext ctx(g);
    if (!ctx.lockPortfolio() || !ctx.loadPortfolio()) {
        return kExitFailure;
    }
    const int at = findTicker(ctx.portfolio, given.ticker);
    if (at < 0) {
        QTextStream(stderr) << given.ticker << " is not in the portfolio\n";
        return kExitFailure;
    }
    core::PortfolioRecord rec = ctx.portfolio.records[static_cast<size_t>(at)];
    for (const auto& change : given.changes) {
        change(rec);
    }
    if (const QString why = core::storableEntry(rec); !why.isEmpty()) {
        return usageError(kSetUsage, why);
    }
    ctx.portfolio.records[static_cast<size_t>(at)] = rec;
    if (!ctx.savePortfolio()) {
        return kExitFailure;
    }
    QTextStream(stdout) << "Changed " << rec.ticker << " in slot " << at << '\n';
    return kExitOk;
}

const QString kRemoveUsage = QStringLiteral("Usage: kestrova-cli [global options] portfolio remove TICKER\n"
                                            "Removes the entry and saves the portfolio file.\n");

int removeCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kRemoveUsage;
        return kExitOk;
    }
    if (args.size() != 1 || args.first().startsWith(u'-')) {
        return usageError(kRemoveUsage, QStringLiteral("exactly one ticker is needed"));
    }
    CliContext ctx(g);
    if (!ctx.lockPortfolio() || !ctx.loadPortfolio()) {
        return kExitFailure;
    }
    const int at = findTicker(ctx.portfolio, args.first());
    if (at < 0) {
        QTextStream(stderr) << args.first() << " is not in the portfolio\n";
        return kExitFailure;
    }
    for (int i = at; i + 1 < ctx.portfolio.count; ++i) {
        ctx.portfolio.records[static_cast<size_t>(i)] = ctx.portfolio.records[static_cast<size_t>(i + 1)];
    }
    --ctx.portfolio.count;
    ctx.portfolio.records[static_cast<size_t>(ctx.portfolio.count)] = core::PortfolioRecord{};
    if (!ctx.savePortfolio()) {
        return kExitFailure;
    }
    QTextStream(stdout) << "Removed " << args.first() << '\n';
    return kExitOk;
}

} // namespace

void registerPortfolioCommands(Registry& r)
{
    r.add({QStringLiteral("portfolio show"), QStringLiteral("list the portfolio entries"), showCommand});
    r.add({QStringLiteral("portfolio add"), QStringLiteral("add an entry and save"), addCommand});
    r.add({QStringLiteral("portfolio set"), QStringLiteral("change fields of an entry and save"), setCommand});
    r.add({QStringLiteral("portfolio remove"), QStringLiteral("remove an entry and save"), removeCommand});
}

} // namespace kestrova::cli
