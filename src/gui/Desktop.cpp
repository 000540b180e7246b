#include "gui/Desktop.h"

#include "app/Application.h"
#include "gui/DemoSession.h"
#include "gui/GuiHost.h"
#include "gui/Icons.h"
#include "gui/MainWindow.h"
#include "support/Clock.h"
#include "support/Paths.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QTextStream>
#include <QTimer>

#include <cstring>
#include <memory>

namespace kestrova::gui {

namespace {

const char* const kUsage = "Usage: kestrova [options] [FILE.pgr]\n"
                           "The Kestrova desktop program: watches a portfolio's quotes on a schedule, tests them\n"
                           "against alarm limits and pages you by modem or e-mail.\n"
                           "\n"
                           "  FILE.pgr          portfolio file to open (wins over the startup file)\n"
                           "  --data-dir DIR    data directory (else $KESTROVA_HOME, else ~/.local/share/kestrova)\n"
                           "  --demo            the offline demo: demo market and simulated modem, one update\n"
                           "  -h, --help        this text\n"
                           "  -v, --version     the version\n"
                           "\n"
                           "Qt's own options (-platform, -style, ...) are accepted too. The headless face of the\n"
                           "same engine is kestrova-cli.\n";

} // namespace

void setDesktopIdentity()
{
    QCoreApplication::setApplicationName(QStringLiteral("Kestrova"));
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrova"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KESTROVA_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("org.kestrova.Kestrova"));
    QGuiApplication::setWindowIcon(icon(IconName::App));
}

int runDesktop(int& argc, char** argv)
{
    // --help and --version must work where there is no display to connect to.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            QTextStream(stdout) << kUsage;
            return 0;
        }
        if (std::strcmp(argv[i], "--version") == 0 || std::strcmp(argv[i], "-v") == 0) {
            QTextStream(stdout) << "kestrova " << KESTROVA_VERSION << '\n';
            return 0;
        }
    }

    QApplication qapp(argc, argv);
    setDesktopIdentity();
    // The window may sit in the notification area with no window shown; the program ends
    // through its exit path only.
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("portfolio file"));
    const QCommandLineOption dataDirOption(QStringLiteral("data-dir"), QStringLiteral("data directory"),
                                           QStringLiteral("DIR"));
    const QCommandLineOption demoOption(QStringLiteral("demo"), QStringLiteral("offline demo"));
    parser.addOption(dataDirOption);
    parser.addOption(demoOption);
    if (!parser.parse(QApplication::arguments()) || parser.positionalArguments().size() > 1) {
        QTextStream err(stderr);
        err << "kestrova: "
            << (parser.errorText().isEmpty() ? QStringLiteral("more than one file given") : parser.errorText())
            << "\n\n"
            << kUsage;
        return 2;
    }

    support::SystemClock clock;
    std::unique_ptr<DemoSession> demo;
    QString dataDir;
    QString file = parser.positionalArguments().value(0);
    if (parser.isSet(demoOption)) {
        demo = std::make_unique<DemoSession>(clock);
        QString why;
        if (!demo->start(&why)) {
            QTextStream(stderr) << "kestrova --demo: " << why << '\n';
            return 1;
        }
        dataDir = demo->dataDir();
        file = demo->portfolioFile();
    } else {
        dataDir = support::resolveDataDir(parser.value(dataDirOption));
    }
    if (!file.isEmpty()) {
        file = QFileInfo(file).absoluteFilePath();
    }

    GuiHost host;
    app::Application application(clock, host, dataDir);
    MainWindow window(application, host);
    QObject::connect(&window, &MainWindow::exitAccepted, &qapp, &QCoreApplication::quit, Qt::QueuedConnection);
    // A first start with nothing to open begins with the set-up assistant.
    window.setFirstRunAssistant(!demo);
    window.startup(file);
    window.show();
    if (demo) {
        demo->configure(application);
        window.refreshDisplay();
        // The demo shows what an update brings as soon as the window is up.
        QTimer::singleShot(0, &window, &MainWindow::runUpdate);
    }
    return QApplication::exec();
}

} // namespace kestrova::gui
