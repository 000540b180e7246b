#pragma once

#include <QString>

class QWidget;

namespace kestrova::gui {

// Brings a window back at the size and place the user left it, and remembers it again
// each time it is hidden. The geometry is kept in the settings store, section "Windows",
// under the window's name; a geometry that no longer fits a screen is ignored.
void rememberPlacement(QWidget* window, const QString& name);

} // namespace kestrova::gui
