#pragma once

#include <QString>

class QAbstractItemView;
class QWidget;

namespace kestrova::gui {

// Brings a window back at the size and place the user left it, and remembers it again
// each time it is hidden. The geometry is kept in the settings store, section "Windows",
// under the window's name; a geometry that no longer fits a screen is ignored.
void rememberPlacement(QWidget* window, const QString& name);

// The width a list or table needs to show every column at the width of its contents (and
// header), with its frame and scroll bar: what a viewer opens at the first time, so no
// column starts cut off. The screen fitting of the window bounds it.
int widthForColumns(const QAbstractItemView* view);

} // namespace kestrova::gui
