#include "gui/FieldCheck.h"

namespace kestrova::gui {

QString plainLabel(const QString& label)
{
    QString out = label;
    out.replace(QStringLiteral("&&"), QStringLiteral("\x01"));
    out.remove(u'&');
    out.replace(u'\x01', u'&');
    out = out.trimmed();
    while (out.endsWith(u':')) {
        out.chop(1);
    }
    return out;
}

} // namespace kestrova::gui
