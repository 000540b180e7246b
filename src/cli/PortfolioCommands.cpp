#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "core/SecurityType.h"
#include "support/Format.h"

#include <QFileInfo>
#include <QTextStream>

#include <cmath>
#include <limits>

namespace kestrova::cli {

namespace {

const QString kTooMany = QStringLiteral("Too Many Tickers (50 Max)");

bool wantsHelp(const QStringList& args)
{
    return args.contains(QLatin1String("--help")) || args.contains(QLatin1String("-h"));
}

int usageError(const QString& usage, const QString& why)
{
    QTextStream err(stderr);
    err << "kestrova-cli: " << why << '\n' << usage;
    return kExitUsage;
}

QString priceText(float value, qint16 digits)
{
    const int d = std::clamp<int>(digits, 0, 9);
    const QString pattern = d > 0 ? QStringLiteral("##0.") + QString(d, u'0') : QStringLiteral("##0");
    return support::formatNumber(value, pattern);
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

const QString kAddUsage =
    QStringLiteral("Usage: kestrova-cli [global options] portfolio add TICKER [--type stock|option|fund|future]\n"
                   "         [--high P] [--low P] [--high-chg PCT] [--low-chg PCT] [--volume N] [--digits N]\n"
                   "         [--server N] [--no-pager] [--market-only] [--news]\n"
                   "Adds an entry and saves the portfolio file (created when it does not exist yet).\n"
                   "A limit of 0 means no limit. --server is an index 0..12 into the built-in quote services\n"
                   "(default: the portfolio's default stock or option service).\n");

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

int addCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kAddUsage;
        return kExitOk;
    }
    QString ticker;
    core::PortfolioRecord rec;
    rec.toPager = 1;
    bool serverGiven = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        auto value = [&](QString* v) {
            if (i + 1 >= args.size()) {
                return false;
            }
            *v = args[++i];
            return true;
        };
        QString v;
        qint64 n = 0;
        if (a == QLatin1String("--no-pager")) {
            rec.toPager = 0;
        } else if (a == QLatin1String("--market-only")) {
            rec.marketOnly = 1;
        } else if (a == QLatin1String("--news")) {
            rec.news = 1;
        } else if (a == QLatin1String("--type")) {
            if (!value(&v)) {
                return usageError(kAddUsage, QStringLiteral("--type needs a value"));
            }
            static const QStringList types{QStringLiteral("stock"), QStringLiteral("option"), QStringLiteral("fund"),
                                           QStringLiteral("future")};
            const qsizetype t = types.indexOf(v.toLower());
            if (t < 0) {
                return usageError(kAddUsage, QStringLiteral("unknown type ") + v);
            }
            rec.securityType = static_cast<qint16>(t);
        } else if (a == QLatin1String("--high") || a == QLatin1String("--low") || a == QLatin1String("--high-chg") ||
                   a == QLatin1String("--low-chg")) {
            float f = 0;
            if (!value(&v) || !parseFloat(v, &f)) {
                return usageError(kAddUsage, a + QStringLiteral(" needs a number"));
            }
            (a == QLatin1String("--high")       ? rec.highLimit
             : a == QLatin1String("--low")      ? rec.lowLimit
             : a == QLatin1String("--high-chg") ? rec.highChgLimit
                                                : rec.lowChgLimit) = f;
        } else if (a == QLatin1String("--volume")) {
            if (!value(&v) || !parseInt(v, 0, std::numeric_limits<qint32>::max(), &n)) {
                return usageError(kAddUsage, QStringLiteral("--volume needs a whole number of shares"));
            }
            rec.volumeLimit = static_cast<qint32>(n);
        } else if (a == QLatin1String("--digits")) {
            if (!value(&v) || !parseInt(v, 0, 9, &n)) {
                return usageError(kAddUsage, QStringLiteral("--digits needs a number from 0 to 9"));
            }
            rec.digits = static_cast<qint16>(n);
        } else if (a == QLatin1String("--server")) {
            if (!value(&v) || !parseInt(v, 0, core::kBuiltInServers - 1, &n)) {
                return usageError(kAddUsage, QStringLiteral("--server needs a number from 0 to 12"));
            }
            rec.server = static_cast<qint16>(n);
            serverGiven = true;
        } else if (a.startsWith(u'-') && a.size() > 1) {
            return usageError(kAddUsage, QStringLiteral("unknown option ") + a);
        } else if (ticker.isEmpty()) {
            ticker = a;
        } else {
            return usageError(kAddUsage, QStringLiteral("unexpected argument ") + a);
        }
    }
    if (ticker.trimmed().isEmpty()) {
        return usageError(kAddUsage, QStringLiteral("a ticker is needed"));
    }
    if (ticker.contains(u'"') || ticker.contains(u'\r') || ticker.contains(u'\n')) {
        return usageError(kAddUsage, QStringLiteral("a ticker may not hold double quotes or line breaks"));
    }
    rec.ticker = ticker;

    CliContext ctx(g);
    if (QFileInfo::exists(ctx.portfolioPath)) {
        if (!ctx.loadPortfolio()) {
            return kExitFailure;
        }
    }
    QTextStream err(stderr);
    if (findTicker(ctx.portfolio, ticker) >= 0) {
        err << ticker << " is already in the portfolio\n";
        return kExitFailure;
    }
    if (ctx.portfolio.count >= core::PortfolioTable::kMaxInUse) {
        err << kTooMany << '\n';
        return kExitFailure;
    }
    if (!serverGiven) {
        rec.server = rec.securityType == 1 ? ctx.options.quotes.optionServer : ctx.options.quotes.server;
    }
    ctx.portfolio.records[static_cast<size_t>(ctx.portfolio.count)] = rec;
    ++ctx.portfolio.count;
    if (!ctx.savePortfolio()) {
        return kExitFailure;
    }
    QTextStream(stdout) << "Added " << ticker << " in slot " << (ctx.portfolio.count - 1) << '\n';
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
    if (!ctx.loadPortfolio()) {
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
    r.add({QStringLiteral("portfolio remove"), QStringLiteral("remove an entry and save"), removeCommand});
}

} // namespace kestrova::cli
