#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "cli/SignalWatcher.h"
#include "delivery/CurlSmtpSender.h"
#include "delivery/ManualPage.h"
#include "delivery/ModemLine.h"
#include "delivery/PushNotifier.h"
#include "delivery/SerialLine.h"
#include "delivery/SmtpPager.h"
#include "net/DialupConnection.h"

#include <QTextStream>

namespace kestrova::cli {

namespace {

int pageCommand(const GlobalOptions& global, const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    QString device;
    bool pushOnly = false;
    QStringList words;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            out << "Usage: kestrova-cli page [--device PATH] [--push-only] TEXT\n\n"
                   "Sends TEXT at once by the paging route the portfolio configures: numeric\n"
                   "pager, e-mail, or the alphanumeric paging service; then, when the push route\n"
                   "is on (push.enabled, push.url), mirrors it to the push server. --device\n"
                   "overrides the modem device (default: the ModemDevice setting, else the COM\n"
                   "port). --push-only sends TEXT to the push server alone, which tests the push\n"
                   "set-up without paging. Exit status 0 only when the page (or the push) went out.\n";
            return kExitOk;
        }
        if (a == QLatin1String("--device") && i + 1 < args.size()) {
            device = args[++i];
        } else if (a.startsWith(QLatin1String("--device="))) {
            device = a.mid(9);
        } else if (a == QLatin1String("--push-only")) {
            pushOnly = true;
        } else if (a == QLatin1String("--")) {
            words << args.mid(i + 1);
            break;
        } else {
            words << a;
        }
    }
    const QString text = delivery::ManualPage::acceptTyped(words.join(u' '));
    if (!delivery::ManualPage::hasText(text)) {
        err << "kestrova-cli page: " << delivery::ManualPage::kNoText << '\n';
        return kExitUsage;
    }
    CliContext ctx(global);
    ctx.showOnlyResults();
    if (!ctx.loadPortfolio()) {
        return kExitFailure;
    }
    // Ctrl-C works like the status window's Cancel button: the send stops at its next wait
    // and still hangs the modem up.
    SignalWatcher stop([&ctx](int) { ctx.cancel.set(); });
    delivery::PushNotifier push(ctx.services, ctx.options.push);
    const bool pushOn = ctx.options.push.enabled && !ctx.options.push.url.isEmpty();
    if (pushOnly) {
        if (!pushOn) {
            err << "kestrova-cli page: the push route is off; set push.enabled and push.url\n";
            return kExitFailure;
        }
        // The push outcome is a status line; it is the one the console shows.
        const bool sent = push.notify(text, delivery::PushKind::Manual);
        out << (push.lastOutcome().isEmpty() ? QStringLiteral("Push: not sent") : push.lastOutcome()) << '\n';
        return sent ? kExitOk : kExitFailure;
    }
    const std::unique_ptr<delivery::SerialLine> line = delivery::createSerialLine();
    line->setDevice(device.isEmpty() ? ctx.modemDevice : device);
    delivery::ModemLine modem(ctx.services, *line, ctx.options.modem);
    delivery::ManualPage page(modem, ctx.options);
    delivery::CurlSmtpSender smtpSender(ctx.shownHost);
    smtpSender.setCancelCheck([&ctx] { return ctx.cancel.isSet(); });
    net::DialupConnection connection(ctx.services, ctx.options.connection);
    delivery::SmtpPager smtp(ctx.services, ctx.options, smtpSender, &connection);
    page.setSmtpSender([&](const QString& message) {
        const bool sent = smtp.sendSmtpMessage(message);
        if (ctx.options.connection.type == net::kConnectionDialup) {
            connection.hangUp();
        }
        return delivery::ManualPageResult{
            sent ? QStringLiteral("SMTP: Message Sent") : QStringLiteral("Unable to send message"), sent, {}};
    });
    page.setPush(&push);
    const delivery::ManualPageResult result = page.send(text);
    out << (result.text.isEmpty() ? QStringLiteral("Page not sent") : result.text) << '\n';
    if (ctx.cancel.isSet()) {
        ctx.services.StatusMessage(QStringLiteral("Operation Cancelled"));
        return stop.exitStatus(kExitFailure);
    }
    // The page went first; the push only mirrors it and never decides the exit status.
    if (pushOn) {
        out << (result.pushOutcome.isEmpty() ? QStringLiteral("Push: not sent") : result.pushOutcome) << '\n';
    }
    return result.sent ? kExitOk : kExitFailure;
}

} // namespace

void registerPageCommands(Registry& r)
{
    r.add({QStringLiteral("page"), QStringLiteral("send a free-text page by the configured route"), pageCommand});
}

} // namespace kestrova::cli
