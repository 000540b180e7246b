#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "core/OptionChecks.h"
#include "core/OptionRegistry.h"
#include "core/ScheduleRules.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include <QFileInfo>
#include <QTextStream>

#include <cstdio>

namespace kestrova::cli {

namespace {

using core::OptionDef;
using core::OptionRegistry;
using core::OptionType;

// The options of a watch setup live in the portfolio file; a missing file is fine for
// reading (the defaults show) and is created by the first change.
bool loadIfPresent(CliContext& ctx)
{
    return !QFileInfo::exists(ctx.portfolioPath) || ctx.loadPortfolio();
}

QString shownValue(const OptionDef& def, const CliContext& ctx)
{
    return OptionRegistry::display(def, ctx.options, ctx.prefs);
}

const QString kListUsage =
    QStringLiteral("Usage: kestrova-cli [global options] options list\n"
                   "Lists every option: name, type and value (passwords as ***), and under each one what\n"
                   "it is and the values it takes. Options named prefs.*, modem.device, fetch.host_connections\n"
                   "are kept in the settings store for this user, sources.key.* in the secret store (the\n"
                   "desktop's secret service, or without one ~/.config/Kestrova/secrets); all others travel\n"
                   "with the portfolio file.\n");

int listCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kListUsage;
        return kExitOk;
    }
    if (!args.isEmpty()) {
        return usageError(kListUsage, QStringLiteral("unexpected argument ") + args.first());
    }
    CliContext ctx(g);
    if (!loadIfPresent(ctx)) {
        return kExitFailure;
    }
    QTextStream out(stdout);
    for (const OptionDef& def : OptionRegistry::all()) {
        out << def.name.leftJustified(28) << ' ' << OptionRegistry::typeName(def.type).leftJustified(9) << ' '
            << shownValue(def, ctx) << "\n    " << def.description << " (" << OptionRegistry::allowedValues(def)
            << ")\n";
    }
    return kExitOk;
}

const QString kGetUsage = QStringLiteral("Usage: kestrova-cli [global options] options get NAME\n"
                                         "Prints one option's value (a password that is set prints as ***).\n");

int getCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kGetUsage;
        return kExitOk;
    }
    if (args.size() != 1) {
        return usageError(kGetUsage, QStringLiteral("exactly one option name is needed"));
    }
    const OptionDef* def = OptionRegistry::find(args.first());
    if (!def) {
        return usageError(kGetUsage, QStringLiteral("unknown option ") + args.first());
    }
    CliContext ctx(g);
    if (!loadIfPresent(ctx)) {
        return kExitFailure;
    }
    QTextStream(stdout) << shownValue(*def, ctx) << '\n';
    return kExitOk;
}

const QString kSetUsage =
    QStringLiteral("Usage: kestrova-cli [global options] options set NAME VALUE [NAME VALUE]...\n"
                   "Checks the values as the options dialog checks its form and saves them all, or nothing\n"
                   "when one is refused: each value against its option's type and range, the setup as a\n"
                   "whole (a pager ID without dashes, a non-zero page length, a recipient when e-mail paging\n"
                   "is on, a host when the proxy is on), and the schedule's times and interval. Related\n"
                   "options can so be changed together. Options are saved in the portfolio file, or the\n"
                   "settings store for modem.device, prefs.*, history.* and fetch.host_connections, or the\n"
                   "secret store for the sources.key.* keys. A VALUE of - reads the value from the next line\n"
                   "of standard input, which is the way to give a password, a key or a push URL that\n"
                   "carries a log-on.\n");

int setCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kSetUsage;
        return kExitOk;
    }
    if (args.isEmpty() || args.size() % 2 != 0) {
        return usageError(kSetUsage, QStringLiteral("an option name and a value are needed for each option"));
    }
    QList<core::OptionText> entered;
    QList<const OptionDef*> defs;
    bool setupEntered = false;
    QTextStream in(stdin);
    for (qsizetype i = 0; i < args.size(); i += 2) {
        const OptionDef* def = OptionRegistry::find(args[i]);
        if (!def) {
            return usageError(kSetUsage, QStringLiteral("unknown option ") + args[i]);
        }
        QString value = args[i + 1];
        if (value == QLatin1String("-")) {
            value = in.readLine();
            if (value.endsWith(u'\r')) {
                value.chop(1);
            }
        }
        entered.append({def->name, value});
        defs.append(def);
        setupEntered = setupEntered || !def->inStore();
    }
    QTextStream err(stderr);
    CliContext ctx(g);
    // Preferences alone leave the portfolio file as it is, unread and unlocked.
    if (setupEntered && (!ctx.lockPortfolio() || !loadIfPresent(ctx))) {
        return kExitFailure;
    }
    const core::OptionCheck check = core::checkOptions(ctx.options, entered);
    if (!check.ok()) {
        err << check.failure->withOptionName() << '\n';
        return kExitUsage;
    }
    // The file first: when it cannot be saved (another program holds or changed it), the
    // settings store is left as it was too.
    if (setupEntered) {
        ctx.options = check.options;
        if (!ctx.savePortfolio()) {
            return kExitFailure;
        }
    }
    settings::SettingsStore store;
    if (!check.storeTexts.isEmpty()) {
        if (const QStringList failures = OptionRegistry::keepStoreTexts(check.storeTexts, store); !failures.isEmpty()) {
            err << failures.join(u'\n') << '\n';
            return kExitFailure;
        }
        if (!store.sync()) {
            err << "the settings store could not be written (" << store.fileName() << ")\n";
            return kExitFailure;
        }
    }
    // Never echo a password back, not even to say what was stored.
    const settings::Preferences prefs = settings::readPreferences(store, g.dataDir);
    QTextStream out(stdout);
    for (const OptionDef* def : defs) {
        out << def->name << " = " << OptionRegistry::display(*def, ctx.options, prefs) << '\n';
    }
    if (check.shortInterval) {
        err << core::kShortIntervalWarning << '\n';
    }
    return kExitOk;
}

} // namespace

void registerOptionsCommands(Registry& r)
{
    r.add({QStringLiteral("options list"), QStringLiteral("list every option with its type and value"), listCommand});
    r.add({QStringLiteral("options get"), QStringLiteral("print one option"), getCommand});
    r.add({QStringLiteral("options set"), QStringLiteral("check and save options, all or none"), setCommand});
}

} // namespace kestrova::cli
