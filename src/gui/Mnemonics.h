#pragma once

#include <QChar>

class QDialogButtonBox;
class QString;

namespace kestrova::gui {

// Gives the standard buttons of a box ("Save", "Cancel", "Close", ...) an underlined
// letter that no other control of the window (on any of its pages) uses: the first free
// letter of the button's word, so "Save" keeps its S unless a field has it. The platform
// theme decides whether such buttons have a letter at all (GNOME's do, the generic one's
// do not), so the letters could clash on one desktop and be missing on another; chosen
// here they are the same everywhere. Call it when the window has all its controls. A
// button whose text already carries a letter is left as it is.
void giveMnemonics(QDialogButtonBox* box);

// The underlined letter a control's text gives it ("&Save" -> 's'; "&&" is a plain
// ampersand), lower case; null when it has none.
QChar mnemonicOf(const QString& text);

} // namespace kestrova::gui
