#include "cli/Cli.h"

#include "support/Paths.h"

#include <QFileInfo>
#include <QTextStream>

namespace kestrova::cli {

bool wantsHelp(const QStringList& args)
{
    return args.contains(QLatin1String("--help")) || args.contains(QLatin1String("-h"));
}

int usageError(const QString& usage, const QString& why)
{
    QTextStream(stderr) << "kestrova-cli: " << why << '\n' << usage;
    return kExitUsage;
}

namespace {

void printUsage(QTextStream& out, const Registry& reg)
{
    out << "Usage: kestrova-cli [--data-dir DIR] [--portfolio FILE] [--verbose] COMMAND [ARGS]\n\n"
           "Commands:\n";
    for (const Command& c : reg.commands()) {
        out << "  " << c.name.leftJustified(22) << c.summary << '\n';
    }
    out << "\nEvery command takes --help.\n";
}

} // namespace

int run(const QStringList& arguments)
{
    Registry reg;
    registerPortfolioCommands(reg);
    registerOptionsCommands(reg);
    registerQuotesCommands(reg);
    registerSourcesCommands(reg);
    registerPageCommands(reg);
    registerSimCommands(reg);
    registerAppCommands(reg);
    registerMailCommands(reg);
    registerHistoryCommands(reg);

    QTextStream out(stdout);
    QTextStream err(stderr);
    GlobalOptions global;
    QString dataDir;
    QStringList rest;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString& a = arguments[i];
        if (!rest.isEmpty()) {
            rest << a;
        } else if (a == QLatin1String("--data-dir") || a == QLatin1String("--portfolio")) {
            if (i + 1 >= arguments.size() || arguments[i + 1].isEmpty()) {
                err << "kestrova-cli: " << a << " needs a value\n";
                return kExitUsage;
            }
            (a == QLatin1String("--data-dir") ? dataDir : global.portfolioFile) = arguments[++i];
        } else if (a.startsWith(QLatin1String("--data-dir="))) {
            dataDir = a.mid(11);
        } else if (a.startsWith(QLatin1String("--portfolio="))) {
            global.portfolioFile = a.mid(12);
        } else if (a == QLatin1String("--verbose") || a == QLatin1String("-v")) {
            global.verbose = true;
        } else if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            printUsage(out, reg);
            return kExitOk;
        } else if (a == QLatin1String("--version")) {
            out << "kestrova-cli " << KESTROVA_VERSION << '\n';
            return kExitOk;
        } else if (a.startsWith(u'-')) {
            err << "kestrova-cli: unknown option " << a << '\n';
            return kExitUsage;
        } else {
            rest << a;
        }
    }
    if (rest.isEmpty()) {
        printUsage(err, reg);
        return kExitUsage;
    }
    // The longest command name whose words start the argument list wins.
    const Command* best = nullptr;
    int bestWords = 0;
    for (const Command& c : reg.commands()) {
        const QStringList words = c.name.split(u' ');
        if (words.size() <= rest.size() && rest.mid(0, words.size()) == words && words.size() > bestWords) {
            best = &c;
            bestWords = static_cast<int>(words.size());
        }
    }
    if (!best) {
        // A group word ("portfolio") without a subcommand it has: say which ones it has.
        QStringList subcommands;
        for (const Command& c : reg.commands()) {
            const QStringList words = c.name.split(u' ');
            if (words.size() > 1 && words.first() == rest.first()) {
                subcommands << words[1];
            }
        }
        if (subcommands.isEmpty()) {
            err << "kestrova-cli: unknown command " << rest.join(u' ') << '\n';
            printUsage(err, reg);
            return kExitUsage;
        }
        const bool help = rest.size() == 2 && (rest[1] == QLatin1String("--help") || rest[1] == QLatin1String("-h"));
        QTextStream& to = help ? out : err;
        if (!help) {
            if (rest.size() == 1) {
                err << "kestrova-cli: " << rest.first()
                    << " needs a subcommand: " << subcommands.join(QLatin1String(", ")) << '\n';
            } else {
                err << "kestrova-cli: " << rest.first() << " has no subcommand " << rest[1] << ": choose "
                    << subcommands.join(QLatin1String(", ")) << '\n';
            }
        }
        to << "Usage: kestrova-cli [global options] " << rest.first() << " SUBCOMMAND [ARGS]\n\n";
        for (const Command& c : reg.commands()) {
            if (c.name.startsWith(rest.first() + u' ')) {
                to << "  " << c.name.leftJustified(22) << c.summary << '\n';
            }
        }
        to << "\nEach subcommand takes --help.\n";
        return help ? kExitOk : kExitUsage;
    }
    if (!global.portfolioFile.isEmpty()) {
        global.portfolioFile = QFileInfo(global.portfolioFile).absoluteFilePath();
    }
    global.dataDir = support::resolveDataDir(dataDir);
    return best->run(global, rest.mid(bestWords));
}

} // namespace kestrova::cli
