#pragma once

class QObject;
class QWidget;

namespace kestrova::gui {

// Keeps a window inside the available area of its screen (the screen without its panels):
// a window larger than the area is made smaller, never below the size its layout needs,
// and one that sticks out is moved in. A window that has not been placed yet opens over
// the window it belongs to (or in the middle of the screen), as a dialog does.
void fitOnScreen(QWidget* window);

// From now on, every window of the program is fitted as it is shown, so no window opens
// partly off the screen whatever its own size was worked out from (a font, a remembered
// geometry, a larger screen). The watch ends with `owner`.
void fitWindowsWhenShown(QObject* owner);

} // namespace kestrova::gui
