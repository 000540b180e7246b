#pragma once

namespace kestrova::gui {

// The whole desktop program behind main(): reads the command line (printing --help and
// --version without needing a display), builds the application and the main window,
// runs start-up and the event loop.
int runDesktop(int& argc, char** argv);

// Who the program is to the desktop: its name (the title of its message boxes), version,
// desktop file and icon. No display name is set, because the platform would append it to
// every window title ("Kestrova - DEMO.PGR — Kestrova"); the captions name the
// program themselves.
void setDesktopIdentity();

} // namespace kestrova::gui
