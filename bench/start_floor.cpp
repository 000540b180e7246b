// The floor that start-up is measured against: the least a Qt program of each face does.
//
//   start_floor_core      a bare QCoreApplication that prints one line (Qt Core only)
//   start_floor_widgets   a bare QApplication showing a main window with a table
//
// Each prints "ready" once it is up (the window shown and painted), then waits until its
// standard input closes, so that the driver can read /proc/PID/maps while it runs.
// bench/cli_start_rss.py and bench/desktop_start.py run these side by side with the program.

#include <QCoreApplication>

#ifdef KESTROVA_FLOOR_WIDGETS
#include <QApplication>
#include <QMainWindow>
#include <QTableWidget>
#include <QWindow>
#endif

#include <cstdio>

namespace {

void readyAndWait()
{
    std::fputs("ready\n", stdout);
    std::fflush(stdout);
    while (std::fgetc(stdin) != EOF) {
    }
}

} // namespace

int main(int argc, char** argv)
{
#ifdef KESTROVA_FLOOR_WIDGETS
    QApplication app(argc, argv);
    QMainWindow window;
    auto* table = new QTableWidget(50, 12, &window);
    for (int r = 0; r < table->rowCount(); ++r) {
        for (int c = 0; c < table->columnCount(); ++c) {
            table->setItem(r, c, new QTableWidgetItem(QStringLiteral("%1.%2").arg(r).arg(c)));
        }
    }
    window.setCentralWidget(table);
    window.resize(1000, 700);
    window.show();
    while (!window.windowHandle() || !window.windowHandle()->isExposed()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
    }
    QCoreApplication::processEvents();
    readyAndWait();
    return 0;
#else
    QCoreApplication app(argc, argv);
    readyAndWait();
    return 0;
#endif
}
