#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "cli/SignalWatcher.h"
#include "core/OptionRegistry.h"
#include "core/PortfolioEntries.h"
#include "news/NewsServer.h"
#include "news/ServerFiles.h"
#include "quotes/CurlFetcher.h"
#include "quotes/QuoteCycle.h"
#include "quotes/ServersDat.h"
#include "quotes/SourceAnswer.h"
#include "quotes/SourceHealth.h"
#include "quotes/SymbolLookup.h"
#include "support/Format.h"
#include "support/Paths.h"
#include "support/Secrets.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QTextStream>

namespace kestrova::cli {

namespace {

quotes::SourceFile loadSources(const GlobalOptions& g, QTextStream& out)
{
    news::installServerFiles(g.dataDir, support::installedDataDir());
    quotes::SourceFile file = quotes::loadSourcesJson(news::serverFilePath(g.dataDir, QStringLiteral("sources.json")));
    for (const QString& problem : file.problems)
        out << problem << '\n';
    return file;
}

QString formatName(quotes::SourceFormat f)
{
    switch (f) {
    case quotes::SourceFormat::Csv:
        return QStringLiteral("csv");
    case quotes::SourceFormat::Json:
        return QStringLiteral("json");
    case quotes::SourceFormat::Html:
        return QStringLiteral("html");
    }
    return {};
}

const QString kListUsage =
    QStringLiteral("Usage: kestrova-cli [global options] sources list\n"
                   "Lists the quote sources of sources.json in the data directory, the failure order the\n"
                   "portfolio uses, which sources need a key and whether it is set, and which are resting.\n");

int listCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kListUsage;
        return kExitOk;
    }
    if (!args.isEmpty())
        return usageError(kListUsage, QStringLiteral("unexpected argument ") + args.first());
    CliContext ctx(g);
    if (QFileInfo::exists(ctx.portfolioPath))
        ctx.loadPortfolio();
    QTextStream out(stdout);
    const quotes::SourceFile file = loadSources(g, out);
    quotes::SourceHealth health;
    health.load(QDir(g.dataDir).filePath(QStringLiteral("sources.state")));
    out << "Order: " << quotes::effectiveOrder(ctx.options.sources.order, file).join(QStringLiteral(", ")) << '\n';
    for (const quotes::SourceDefinition& s : file.sources) {
        QString notes;
        if (s.batch)
            notes += QStringLiteral(", %1 a request").arg(s.batchSize);
        if (s.needsKey()) {
            notes += CliContext::sourceKey(s.name).isEmpty()
                         ? QStringLiteral(", needs a key (") + core::OptionRegistry::sourceKeyOption(s.name) + u')'
                         : QStringLiteral(", key set");
        }
        const QDateTime rest = health.restedUntil(s.name);
        if (rest.isValid() && rest > ctx.clock.now())
            notes += QStringLiteral(", resting until ") + support::formatDate(rest, u"hh:mm");
        out << "  " << s.name.leftJustified(16) << ' ' << formatName(s.format) << notes << "\n      " << s.url << '\n';
    }
    return file.problems.isEmpty() ? kExitOk : kExitFailure;
}

const QString kTestUsage =
    QStringLiteral("Usage: kestrova-cli [global options] sources test [NAME] [SYMBOL]\n"
                   "Asks one source (NAME), or every source of sources.json, for one symbol (default IBM)\n"
                   "and shows each field of its definition: the value it gave, \"not mapped\", \"no value\"\n"
                   "(the service said nothing today) or \"missing from the answer\" (the definition no\n"
                   "longer matches what the service sends). Exits with 1 when a source asked gave no price.\n");

QString valueText(const quotes::SymbolAnswer& a, int f)
{
    const quotes::SourceValues& v = a.values;
    switch (quotes::SourceField(f)) {
    case quotes::SourceField::Name:
        return v.name;
    case quotes::SourceField::Time:
    case quotes::SourceField::Date:
        return v.time.isValid() ? support::generalDate(v.time) : QString();
    default:
        return v.numbers[size_t(f)] ? support::doubleToText(*v.numbers[size_t(f)]) : QString();
    }
}

int testCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kTestUsage;
        return kExitOk;
    }
    if (args.size() > 2)
        return usageError(kTestUsage, QStringLiteral("at most a source name and a symbol"));
    CliContext ctx(g);
    if (QFileInfo::exists(ctx.portfolioPath))
        ctx.loadPortfolio();
    QTextStream out(stdout);
    const quotes::SourceFile file = loadSources(g, out);
    std::vector<const quotes::SourceDefinition*> chosen;
    QString symbol = QStringLiteral("IBM");
    if (!args.isEmpty()) {
        if (const quotes::SourceDefinition* s = file.find(args[0])) {
            chosen.push_back(s);
            if (args.size() == 2)
                symbol = args[1];
        } else if (args.size() == 1) {
            symbol = args[0]; // a symbol alone: every source
        } else {
            return usageError(kTestUsage,
                              QStringLiteral("no source called ") + args[0] + QStringLiteral(" in sources.json"));
        }
    }
    if (chosen.empty()) {
        for (const quotes::SourceDefinition& s : file.sources)
            chosen.push_back(&s);
    }

    quotes::CurlFetcher fetcher(ctx.shownHost, ctx.options.proxy);
    fetcher.setHostConnections(ctx.prefs.hostConnections);
    bool allPriced = !chosen.empty();
    out.flush();
    // Each source's report is printed as the rest of the program shows text: a service that
    // quotes its request back, key and all, shows "***" in the key's place.
    QString report;
    out.setString(&report);
    struct Printed
    {
        QTextStream& out;
        QString& report;
        ~Printed()
        {
            out.flush();
            QTextStream(stdout) << support::redactSecrets(report);
            report.clear();
        }
    };
    for (const quotes::SourceDefinition* s : chosen) {
        const Printed printed{out, report};
        const QString key = CliContext::sourceKey(s->name);
        if (s->needsKey() && key.isEmpty()) {
            out << s->name << ": needs a key: kestrova-cli options set "
                << core::OptionRegistry::sourceKeyOption(s->name) << " -\n\n";
            continue;
        }
        const QString asked = quotes::sourceSymbol(*s, symbol);
        const quotes::HttpRequest request = quotes::sourceHttpRequest(*s, {asked}, key);
        out << s->name << ": " << request.shownUrl << '\n';
        QElapsedTimer elapsed;
        elapsed.start();
        const quotes::HttpResponse r = fetcher.fetch({request}).front();
        if (!r.error.isEmpty() || r.status == 0) {
            out << "  no answer: " << r.error << "\n\n";
            allPriced = false;
            continue;
        }
        out << "  HTTP " << r.status << ", " << r.body.size() << " bytes, " << elapsed.elapsed() << " ms";
        if (r.retryAfterSeconds > 0)
            out << ", asked to wait " << r.retryAfterSeconds << " s";
        out << '\n';
        const quotes::SourceAnswer answer = quotes::parseSourceAnswer(*s, r.body, {asked});
        if (!answer.failure.isEmpty() || answer.symbols.empty()) {
            out << "  " << (answer.failure.isEmpty() ? QStringLiteral("nothing in the answer") : answer.failure)
                << "\n\n";
            allPriced = false;
            continue;
        }
        const quotes::SymbolAnswer& a = answer.symbols.front();
        out << "  "
            << (a.priced ? QString(QStringLiteral("priced ") + asked)
                         : QString(QStringLiteral("no price for ") + asked + u": " + a.failure))
            << '\n';
        allPriced = allPriced && a.priced && r.status < 400;
        for (int f = 0; f < quotes::kSourceFieldCount; ++f) {
            QString shown;
            if (s->fields[size_t(f)].isEmpty())
                shown = QStringLiteral("not mapped");
            else if (a.missingFields.contains(quotes::sourceFieldName(quotes::SourceField(f))))
                shown = QStringLiteral("missing from the answer");
            else
                shown = valueText(a, f);
            if (shown.isEmpty())
                shown = QStringLiteral("no value");
            out << "    " << quotes::sourceFieldName(quotes::SourceField(f)).leftJustified(14) << ' ' << shown << '\n';
        }
        out << '\n';
    }
    return allPriced ? kExitOk : kExitFailure;
}

const QString kLookupUsage =
    QStringLiteral("Usage: kestrova-cli [global options] sources lookup SYMBOL...\n"
                   "Asks the quote sources about each symbol in the failure order the portfolio uses\n"
                   "(sources list shows it) and prints, per symbol in the order given, the first source\n"
                   "that priced it with the name and last price, or that no source knows it. Symbols\n"
                   "may also be separated by commas. Exits with 1 when any symbol is unknown.\n");

int lookupCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kLookupUsage;
        return kExitOk;
    }
    const QStringList symbols = core::splitTickers(args.join(u' '));
    if (symbols.isEmpty())
        return usageError(kLookupUsage, QStringLiteral("no symbol given"));
    CliContext ctx(g);
    ctx.showOnlyResults();
    if (QFileInfo::exists(ctx.portfolioPath))
        ctx.loadPortfolio();
    QTextStream out(stdout);
    const quotes::SourceFile file = loadSources(g, out);
    const quotes::BuiltInServers builtIn(ctx.options.quotes);
    quotes::ServerDefinitions servers;
    news::NewsServers newsServers;
    news::loadServerDefinitions(g.dataDir, newsServers, servers, builtIn, ctx.host);
    quotes::SourceHealth health;
    health.load(QDir(g.dataDir).filePath(QStringLiteral("sources.state")));

    quotes::SymbolLookup lookup(quotes::makeLookupSetup(file, ctx.options, servers, &CliContext::sourceKey, &health,
                                                        ctx.clock.now(), ctx.prefs.hostConnections));
    QHash<QString, quotes::LookupResult> results;
    qsizetype printed = 0;
    bool allKnown = true;
    QEventLoop loop;
    QObject::connect(&lookup, &quotes::SymbolLookup::resolved, [&](const quotes::LookupResult& r) {
        results.insert(r.symbol, r);
        allKnown = allKnown && r.known;
        // In the order given, each as soon as the ones before it are known.
        while (printed < symbols.size() && results.contains(symbols[printed])) {
            out << quotes::lookupText(results.value(symbols[printed++])) << Qt::endl;
        }
    });
    QObject::connect(&lookup, &quotes::SymbolLookup::idle, &loop, &QEventLoop::quit);
    int signalled = 0;
    SignalWatcher stop([&](int signal) {
        signalled = signal;
        lookup.cancel();
        loop.quit();
    });
    lookup.lookUp(symbols);
    loop.exec();
    if (signalled)
        return 128 + signalled;
    return allKnown ? kExitOk : kExitFailure;
}

} // namespace

void registerSourcesCommands(Registry& r)
{
    r.add({QStringLiteral("sources list"), QStringLiteral("list the modern quote sources and the order in force"),
           listCommand});
    r.add({QStringLiteral("sources test"), QStringLiteral("ask quote sources for one symbol, show the fields"),
           testCommand});
    r.add({QStringLiteral("sources lookup"),
           QStringLiteral("ask the quote sources about symbols: name, last price and source"), lookupCommand});
}

} // namespace kestrova::cli
