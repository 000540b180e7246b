#pragma once

namespace kestrova::gui {

// The whole desktop program behind main(): reads the command line (printing --help and
// --version without needing a display), builds the application and the main window,
// runs start-up and the event loop.
int runDesktop(int& argc, char** argv);

} // namespace kestrova::gui
