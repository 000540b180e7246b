#include "gui/Icons.h"

namespace kestrova::gui {

QIcon icon(IconName name)
{
    struct Entry
    {
        const char* theme; // freedesktop icon name, or null for our own drawing only
        const char* file;
    };
    static const Entry kEntries[] = {
        {nullptr, "app"},         {"document-open", "open"}, {"document-save", "save"},
        {nullptr, "portfolio"},   {nullptr, "schedule"},     {"view-refresh", "update"},
        {nullptr, "pager"},       {nullptr, "quotes"},       {nullptr, "news"},
        {"mail-message", "mail"}, {nullptr, "options"},      {"help-contents", "help"},
        {nullptr, "alarm"},       {nullptr, "pager"},        {"utilities-terminal", "terminal"},
    };
    const Entry& e = kEntries[static_cast<int>(name)];
    const QIcon own(QStringLiteral(":/kestrova/icons/") + QLatin1String(e.file) + QStringLiteral(".svg"));
    return e.theme ? QIcon::fromTheme(QLatin1String(e.theme), own) : own;
}

} // namespace kestrova::gui
