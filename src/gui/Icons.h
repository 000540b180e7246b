#pragma once

#include <QIcon>

namespace kestrova::gui {

enum class IconName {
    App,
    Open,
    Save,
    Portfolio,
    Schedule,
    Update,
    Page,
    Quotes,
    News,
    Mail,
    Options,
    Help,
    Alarm,
    Pager,
    Terminal
};

// The desktop theme's icon where the theme has one, else the one drawn for Kestrova, so
// the toolbar looks native on a desktop with a theme and complete on one without.
QIcon icon(IconName name);

} // namespace kestrova::gui
