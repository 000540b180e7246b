#include "cli/Cli.h"
#include "news/ServerFiles.h"
#include "sim/DemoMarket.h"
#include "sim/ModemSimulator.h"
#include "support/Clock.h"
#include "support/Paths.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTextStream>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace kestrova::cli {

namespace {

int g_signalPipe[2] = {-1, -1};

void onStopSignal(int)
{
    const char c = 1;
    [[maybe_unused]] const ssize_t n = ::write(g_signalPipe[1], &c, 1);
}

// Runs the event loop until SIGINT or SIGTERM; the handler only writes to a pipe, the
// loop does the rest.
int runUntilStopped()
{
    if (g_signalPipe[0] < 0 && ::pipe2(g_signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return kExitFailure;
    }
    struct sigaction sa = {};
    sa.sa_handler = onStopSignal;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGINT, &sa, nullptr);
    ::sigaction(SIGTERM, &sa, nullptr);
    QSocketNotifier notifier(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, [] {
        char buf[16];
        while (::read(g_signalPipe[0], buf, sizeof buf) > 0) {
        }
        QCoreApplication::quit();
    });
    return QCoreApplication::exec();
}

// Control characters of a page shown as \xNN so one page stays one output line.
QString printable(const QString& text)
{
    QString out;
    for (const QChar c : text) {
        if (c.unicode() < 32 || c.unicode() == 127) {
            out += QStringLiteral("\\x") + QString::number(c.unicode(), 16).rightJustified(2, u'0').toUpper();
        } else if (c == u'\\') {
            out += QStringLiteral("\\\\");
        } else {
            out += c;
        }
    }
    return out;
}

int modemSimCommand(const GlobalOptions&, const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    QString link;
    QString scriptFile;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            out << "Usage: kestrova-cli modem-sim --link PATH [--script FILE]\n\n"
                   "Runs a Hayes modem with a TAP paging terminal on a pty until SIGINT/SIGTERM.\n"
                   "PATH becomes a symlink to the pty; point the ModemDevice setting at it.\n"
                   "Every page and call received is printed as one line.\n\n"
                   "Script lines (\"key value\"): connect-delay-ms N, guard-ms N, noise-chars N,\n"
                   "busy|no-dialtone|no-carrier|silent|noise|numeric NUMBER,\n"
                   "fault mute|never-id|no-carrier-at-logon|refuse-logon|noise|nak|rs|esc-eot|silence\n";
            return kExitOk;
        }
        if (a == QLatin1String("--link") && i + 1 < args.size()) {
            link = args[++i];
        } else if (a == QLatin1String("--script") && i + 1 < args.size()) {
            scriptFile = args[++i];
        } else {
            err << "kestrova-cli modem-sim: unexpected argument " << a << '\n';
            return kExitUsage;
        }
    }
    if (link.isEmpty()) {
        err << "kestrova-cli modem-sim: --link PATH is required\n";
        return kExitUsage;
    }
    sim::ModemScript script;
    // Standalone the program runs on the real clock, so use a modem's usual guard time.
    script.guardMs = 1000;
    if (!scriptFile.isEmpty()) {
        QFile f(scriptFile);
        if (!f.open(QIODevice::ReadOnly)) {
            err << "kestrova-cli modem-sim: cannot read " << scriptFile << ": " << f.errorString() << '\n';
            return kExitFailure;
        }
        QString problem;
        const QString text = QString::fromUtf8(f.readAll());
        const QString withDefault = QStringLiteral("guard-ms 1000\n") + text;
        script = sim::ModemScript::parse(withDefault, &problem);
        if (!problem.isEmpty()) {
            err << "kestrova-cli modem-sim: " << problem << '\n';
            return kExitUsage;
        }
    }
    sim::ModemSimulator simulator(script);
    if (!simulator.isValid()) {
        err << "kestrova-cli modem-sim: cannot create a pty: " << simulator.error() << '\n';
        return kExitFailure;
    }
    const QFileInfo existing(link);
    if (existing.isSymLink()) {
        QFile::remove(link);
    } else if (existing.exists()) {
        err << "kestrova-cli modem-sim: " << link << " exists and is not a symlink\n";
        return kExitFailure;
    }
    if (!QFile::link(simulator.slavePath(), link)) {
        err << "kestrova-cli modem-sim: cannot create the link " << link << '\n';
        return kExitFailure;
    }
    QObject::connect(&simulator, &sim::ModemSimulator::pageReceived, [&out](const QString& id, const QString& text) {
        out << "PAGE " << id << ' ' << printable(text) << '\n';
        out.flush();
    });
    QObject::connect(&simulator, &sim::ModemSimulator::callReceived,
                     [&out](const QString& number, const QString& digits, bool numeric) {
                         if (numeric) {
                             out << "NUMERIC " << number << " DIGITS " << digits << '\n';
                         } else {
                             out << "CALL " << number << '\n';
                         }
                         out.flush();
                     });
    out << "modem-sim: listening on " << simulator.slavePath() << " (link " << link << ")\n";
    out.flush();
    const int rc = runUntilStopped();
    QFile::remove(link);
    out << "modem-sim: " << simulator.pages.size() << " pages, " << simulator.calls.size() << " calls\n";
    out.flush();
    return rc == 0 ? kExitOk : kExitFailure;
}

int demoMarketCommand(const GlobalOptions& global, const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    quint16 port = news::kDemoMarketPort;
    int latencyMs = 0;
    quint32 walkSeed = 1;
    bool retarget = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            out << "Usage: kestrova-cli demo-market [--port N] [--latency-ms M] [--walk-start S] [--retarget]\n\n"
                   "Serves simulated quote, option, index and news pages on 127.0.0.1 until SIGINT/SIGTERM.\n"
                   "--port N        port to listen on (default 8099, the port of the shipped Demo Market\n"
                   "                definitions; 0 picks a free one)\n"
                   "--latency-ms M  answer every page after M milliseconds\n"
                   "--walk-start S  starting value of the price walk (default 1)\n"
                   "--retarget      point the Demo Market definitions in the data directory at this port\n"
                   "Tickers ERR500, EMPTY, HANG and CUT misbehave on purpose.\n";
            return kExitOk;
        }
        bool ok = true;
        if (a == QLatin1String("--port") && i + 1 < args.size()) {
            const uint v = args[++i].toUInt(&ok);
            ok = ok && v <= 65535;
            port = static_cast<quint16>(v);
        } else if (a == QLatin1String("--latency-ms") && i + 1 < args.size()) {
            latencyMs = args[++i].toInt(&ok);
            ok = ok && latencyMs >= 0;
        } else if (a == QLatin1String("--walk-start") && i + 1 < args.size()) {
            walkSeed = args[++i].toUInt(&ok);
        } else if (a == QLatin1String("--retarget")) {
            retarget = true;
        } else {
            ok = false;
        }
        if (!ok) {
            err << "kestrova-cli demo-market: bad argument " << a << '\n';
            return kExitUsage;
        }
    }
    support::SystemClock clock;
    sim::DemoMarket market(clock, walkSeed);
    market.setLatencyMs(latencyMs);
    if (!market.listen(port)) {
        err << "kestrova-cli demo-market: cannot listen on 127.0.0.1:" << port << ": " << market.errorString() << '\n';
        return kExitFailure;
    }
    if (retarget) {
        news::installServerFiles(global.dataDir, support::installedDataDir());
        if (!news::retargetDemoMarket(global.dataDir, market.port())) {
            err << "kestrova-cli demo-market: cannot rewrite the server files in " << global.dataDir << '\n';
            return kExitFailure;
        }
    }
    out << "demo-market: listening on " << market.baseUrl() << " (walk " << walkSeed << ", latency " << latencyMs
        << " ms)\n";
    out.flush();
    const int rc = runUntilStopped();
    out << "demo-market: " << market.requestCount() << " requests\n";
    out.flush();
    return rc == 0 ? kExitOk : kExitFailure;
}

} // namespace

void registerSimCommands(Registry& r)
{
    r.add({QStringLiteral("modem-sim"), QStringLiteral("run the modem and paging terminal simulator on a pty"),
           modemSimCommand});
    r.add({QStringLiteral("demo-market"), QStringLiteral("serve simulated quote and news pages on 127.0.0.1"),
           demoMarketCommand});
}

} // namespace kestrova::cli
