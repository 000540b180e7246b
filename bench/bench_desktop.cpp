// The desktop program's start to a shown main window, its peak memory, and the CPU a
// long modem wait costs the desktop face.
//
//   xvfb-run -a build-release/bench/bench_desktop        (or on a desktop session)
//
// Counters:
//   cold_start_ms  process start (exec, dynamic loading) to the first main window shown,
//                  with the demo portfolio opened: what a user waits for.
//   peak_rss_MB    the process's peak resident set after all runs.
// BM_WarmStart repeats start-up (engine start-up, window built, shown and exposed) inside
// the running process. BM_ModemWait is a 5-second dial wait against the simulated modem:
// CPU time against real time is the cost of waiting.
// Targets: start to a shown window under 300 ms; peak RSS under 80 MB; a wait ~0% CPU.
//
//   bench_desktop --start-only   starts, shows the main window, prints "ready" and waits for
//                                its standard input to close (bench/desktop_start.py times
//                                this against a bare Qt Widgets window, start_floor_widgets)

#include "app/Application.h"
#include "core/ModemProfiles.h"
#include "core/Options.h"
#include "delivery/ModemLine.h"
#include "delivery/SerialLine.h"
#include "gui/GuiHost.h"
#include "gui/MainWindow.h"
#include "news/ServerFiles.h"
#include "sim/ModemSimulator.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Paths.h"
#include "support/Services.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QWindow>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <functional>
#include <sys/resource.h>
#include <unistd.h>

using namespace kestrova;

namespace {

QTemporaryDir* g_home = nullptr;
double g_coldStartMs = 0;

QString dataDir()
{
    return g_home->filePath(QStringLiteral("data"));
}

QString portfolio()
{
    return QDir(dataDir()).filePath(QStringLiteral("DEMO.PGR"));
}

// Builds, starts and shows the desktop program's main window and waits until the window
// system has put it on screen; whileShown runs before the window goes again.
void startAndShow(const std::function<void()>& whileShown = {})
{
    support::SystemClock clock;
    gui::GuiHost host;
    host.scripted = true;
    app::Application application(clock, host, dataDir());
    gui::MainWindow window(application, host);
    window.startup(portfolio());
    window.show();
    while (!window.windowHandle() || !window.windowHandle()->isExposed()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
    }
    QCoreApplication::processEvents();
    if (whileShown) {
        whileShown();
    }
}

// Milliseconds since this process was started, from the kernel's start time.
double msSinceProcessStart()
{
    QFile stat(QStringLiteral("/proc/self/stat"));
    if (!stat.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QByteArray text = stat.readAll();
    // Field 22 (starttime) counts clock ticks since boot; fields start after the ")".
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    const double startTicks = fields.value(19).toDouble();
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const double nowMs = now.tv_sec * 1000.0 + now.tv_nsec / 1e6;
    return nowMs - startTicks * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double peakRssMb()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss / 1024.0;
}

void BM_WarmStart(benchmark::State& state)
{
    for (auto _ : state) {
        startAndShow();
    }
    state.counters["cold_start_ms"] = g_coldStartMs;
    state.counters["peak_rss_MB"] = peakRssMb();
}
BENCHMARK(BM_WarmStart)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_ModemWait(benchmark::State& state)
{
    sim::ModemScript script;
    script.silent << QStringLiteral("5550000");
    sim::ModemSimulator modemSim(script);
    support::SystemClock clock;
    gui::GuiHost host;
    host.scripted = true;
    host.setShowStatus(false);
    support::CancelFlag cancel;
    support::CLogFile log(clock, host);
    support::Services services{clock, host, cancel, log};
    core::Options options;
    core::setBuiltInModemProfiles(options.modem);
    auto line = delivery::createSerialLine();
    line->setDevice(modemSim.slavePath());
    delivery::ModemLine modem(services, *line, options.modem);
    modem.initialize(QStringLiteral("ATZ"));
    for (auto _ : state) {
        QTimer::singleShot(5000, [&] { cancel.set(); });
        benchmark::DoNotOptimize(modem.dial(QStringLiteral("5550000")));
        cancel.clear();
    }
    modem.hangUp();
}
BENCHMARK(BM_ModemWait)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime()->MeasureProcessCPUTime();

} // namespace

int main(int argc, char** argv)
{
    QTemporaryDir home;
    g_home = &home;
    // Settings and data of our own: the benchmark must not read or change the user's.
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
    QDir().mkpath(home.filePath(QStringLiteral("data")));
    QFile::copy(QDir(support::installedDataDir()).filePath(QStringLiteral("demo.pgr")), portfolio());
    QFile::setPermissions(portfolio(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    QApplication qapp(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Kestrova"));
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrova"));
    news::installServerFiles(dataDir(), support::installedDataDir());
    if (argc > 1 && qstrcmp(argv[1], "--start-only") == 0) {
        startAndShow([] {
            std::fputs("ready\n", stdout);
            std::fflush(stdout);
            while (std::fgetc(stdin) != EOF) {
            }
        });
        return 0;
    }
    startAndShow();
    g_coldStartMs = msSinceProcessStart();

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::printf("cold start to a shown main window: %.0f ms (target < 300 ms); peak RSS %.1f MB (target < 80 MB)\n",
                g_coldStartMs, peakRssMb());
    return 0;
}
