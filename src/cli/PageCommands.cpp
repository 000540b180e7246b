#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "cli/SignalWatcher.h"
#include "delivery/CurlSmtpSender.h"
#include "delivery/ManualPage.h"
#include "delivery/ModemLine.h"
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
    QStringList words;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            out << "Usage: kestrova-cli page [--device PATH] TEXT\n\n"
                   "Sends TEXT at once by the paging route the portfolio configures: numeric\n"
                   "pager, e-mail, or the alphanumeric paging service. --device overrides the\n"
                   "modem device (default: the ModemDevice setting, else the COM port).\n"
                   "Exit status 0 only when the page went out.\n";
            return kExitOk;
        }
        if (a == QLatin1String("--device") && i + 1 < args.size()) {
            device = args[++i];
        } else if (a.startsWith(QLatin1String("--device="))) {
            device = a.mid(9);
        } else if (a == QLatin1String("--")) {
            words << args.mid(i + 1);
            break;
        } else {
            words << a;
        }
    }
    const QString text = delivery::ManualPage::acceptTyped(words.join(u' '));
    if (text.isEmpty()) {
        err << "kestrova-cli page: no text to send\n";
        return kExitUsage;
    }
    CliContext ctx(global);
    ctx.showOnlyResults();
    if (!ctx.loadPortfolio()) {
        return kExitFailure;
    }
    const std::unique_ptr<delivery::SerialLine> line = delivery::createSerialLine();
    line->setDevice(device.isEmpty() ? ctx.modemDevice : device);
    delivery::ModemLine modem(ctx.services, *line, ctx.options.modem);
    delivery::ManualPage page(modem, ctx.options);
    delivery::CurlSmtpSender smtpSender(ctx.host);
    net::DialupConnection connection(ctx.services, ctx.options.connection);
    delivery::SmtpPager smtp(ctx.services, ctx.options, smtpSender, &connection);
    page.setSmtpSender([&](const QString& message) {
        const bool sent = smtp.sendSmtpMessage(message);
        if (ctx.options.connection.type == net::kConnectionDialup) {
            connection.hangUp();
        }
        return delivery::ManualPageResult{
            sent ? QStringLiteral("SMTP: Message Sent") : QStringLiteral("Unable to send message"), sent};
    });
    // Ctrl-C works like the status window's Cancel button: the send stops at its next wait
    // and still hangs the modem up.
    SignalWatcher stop([&ctx](int) { ctx.cancel.set(); });
    const delivery::ManualPageResult result = page.send(text);
    out << (result.text.isEmpty() ? QStringLiteral("Page not sent") : result.text) << '\n';
    return result.sent ? kExitOk : kExitFailure;
}

} // namespace

void registerPageCommands(Registry& r)
{
    r.add({QStringLiteral("page"), QStringLiteral("send a free-text page by the configured route"), pageCommand});
}

} // namespace kestrova::cli
