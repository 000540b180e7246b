#include "app/ScheduleRules.h"
#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "core/OptionRegistry.h"
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
                   "and sources.key.* are kept in the settings store for this user (the keys scrambled);\n"
                   "all others travel with the portfolio file.\n");

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
    QStringLiteral("Usage: kestrova-cli [global options] options set NAME VALUE\n"
                   "Checks the value against the option's type and range and saves it (the portfolio file,\n"
                   "or the settings store for modem.device, prefs.*, history.*, fetch.host_connections and\n"
                   "the sources.key.* keys). A VALUE of - reads the value from the first line of standard\n"
                   "input, which is the way to give a password, a key or a push URL that carries a log-on.\n");

int setCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kSetUsage;
        return kExitOk;
    }
    if (args.size() != 2) {
        return usageError(kSetUsage, QStringLiteral("an option name and a value are needed"));
    }
    const OptionDef* def = OptionRegistry::find(args[0]);
    if (!def) {
        return usageError(kSetUsage, QStringLiteral("unknown option ") + args[0]);
    }
    QString value = args[1];
    if (value == QLatin1String("-")) {
        QTextStream in(stdin);
        value = in.readLine();
        if (value.endsWith(u'\r')) {
            value.chop(1);
        }
    }
    QTextStream err(stderr);
    CliContext ctx(g);
    if (def->inStore()) {
        QString checked;
        if (const QString refusal = OptionRegistry::validate(*def, ctx.options, value, &checked); !refusal.isEmpty()) {
            err << refusal << '\n';
            return kExitUsage;
        }
        settings::SettingsStore store;
        store.save(settings::kSettingsSection, def->storeKey, def->storeText(checked));
        if (!store.sync()) {
            err << def->name << ": the settings store could not be written (" << store.fileName() << ")\n";
            return kExitFailure;
        }
        QTextStream(stdout) << def->name << " = "
                            << OptionRegistry::display(*def, ctx.options, settings::readPreferences(store, g.dataDir))
                            << '\n';
        return kExitOk;
    }
    if (!ctx.lockPortfolio() || !loadIfPresent(ctx)) {
        return kExitFailure;
    }
    // The schedule's times and interval follow the schedule dialog's rules, which look at the
    // whole schedule (a start after the stop is refused whichever of the two is changed).
    bool shortInterval = false;
    app::ScheduleEntry entry;
    if (const auto verdict = app::checkScheduleOption(ctx.options.schedule, def->name, value, &entry)) {
        if (!verdict->ok()) {
            err << def->name << ": " << verdict->error << '\n';
            return kExitUsage;
        }
        app::storeSchedule(ctx.options.schedule, entry, *verdict);
        shortInterval = verdict->shortInterval;
    } else if (const QString refusal = OptionRegistry::assign(*def, ctx.options, value); !refusal.isEmpty()) {
        err << refusal << '\n';
        return kExitUsage;
    }
    if (!ctx.savePortfolio()) {
        return kExitFailure;
    }
    // Never echo a password back, not even to say what was stored.
    QTextStream(stdout) << def->name << " = " << OptionRegistry::display(*def, ctx.options) << '\n';
    if (shortInterval) {
        err << app::kShortIntervalWarning << '\n';
    }
    return kExitOk;
}

} // namespace

void registerOptionsCommands(Registry& r)
{
    r.add({QStringLiteral("options list"), QStringLiteral("list every option with its type and value"), listCommand});
    r.add({QStringLiteral("options get"), QStringLiteral("print one option"), getCommand});
    r.add({QStringLiteral("options set"), QStringLiteral("check and save one option"), setCommand});
}

} // namespace kestrova::cli
