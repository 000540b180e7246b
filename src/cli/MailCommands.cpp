#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "cli/SignalWatcher.h"
#include "mail/MailWatch.h"
#include "mail/PopClient.h"
#include "net/DialupConnection.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include <QTextStream>

namespace kestrova::cli {

namespace {

int checkMailCommand(const GlobalOptions& global, const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    bool download = false;
    for (const QString& a : args) {
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            out << "Usage: kestrova-cli check-mail [--download]\n\n"
                   "Looks into the POP mailbox the portfolio configures and prints the number of\n"
                   "waiting messages. With --download it also reads every message's headers,\n"
                   "prints date, sender and subject of the new ones, and downloads those below\n"
                   "the MailSize limit. Exit status 0 when the mailbox could be read.\n";
            return kExitOk;
        }
        if (a == QLatin1String("--download")) {
            download = true;
        } else {
            err << "kestrova-cli check-mail: unknown argument " << a << '\n';
            return kExitUsage;
        }
    }
    CliContext ctx(global);
    ctx.showOnlyResults();
    if (!ctx.loadPortfolio()) {
        return kExitFailure;
    }
    if (ctx.options.mail.server.trimmed().isEmpty()) {
        err << "kestrova-cli check-mail: the portfolio names no POP server\n";
        return kExitFailure;
    }
    settings::SettingsStore store;
    const settings::Preferences prefs = settings::readPreferences(store, global.dataDir);
    mail::MailWatchSettings watchSettings;
    watchSettings.checkMail = true; // asked for explicitly, whatever the CheckMail preference says
    watchSettings.mailSizeKb = prefs.mailSize;

    net::DialupConnection connection(ctx.services, ctx.options.connection);
    if (!connection.connect()) {
        err << "kestrova-cli check-mail: no Internet connection\n";
        return kExitFailure;
    }
    core::MailBox box;
    mail::PopClient client(ctx.services);
    mail::MailWatch watch(ctx.services, ctx.options.mail, watchSettings, box, client);
    SignalWatcher stop([&ctx](int) { ctx.cancel.set(); });
    watch.checkMail(download);
    connection.hangUp();
    if (ctx.cancel.isSet()) {
        ctx.services.StatusMessage(QStringLiteral("Operation Cancelled"));
        return stop.exitStatus(kExitFailure);
    }
    if (!box.countKnown) {
        // The mail watch has said why where it knew; this covers what it could not name.
        if (ctx.host.failuresReported == 0) {
            err << "kestrova-cli check-mail: the mailbox could not be read (see activity.txt)\n";
        }
        return kExitFailure;
    }
    out << "Messages waiting: " << box.messageCount << '\n';
    if (download) {
        const int last = std::min<int>(box.messageCount, core::MailBox::kMaxRecords);
        for (int n = 1; n <= last; ++n) {
            const core::MailRecord& r = box.records[static_cast<size_t>(n)];
            if (r.isNew) {
                out << '#' << n << "  " << r.date.trimmed() << "  " << r.sender << "  " << r.subject << '\n';
            }
        }
    }
    // Headers cut off mid-way: the count is shown, but the check did not finish.
    return ctx.host.failuresReported == 0 ? kExitOk : kExitFailure;
}

} // namespace

void registerMailCommands(Registry& r)
{
    r.add({QStringLiteral("check-mail"), QStringLiteral("count (and with --download read) the POP mailbox"),
           &checkMailCommand});
}

} // namespace kestrova::cli
