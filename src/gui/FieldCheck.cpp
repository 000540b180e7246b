#include "gui/FieldCheck.h"

#include "core/OptionRegistry.h"

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

QString checkOptionText(const core::OptionDef& def, const QString& label, const core::Options& options,
                        const QString& text, QString* normalised)
{
    const QString refusal = core::OptionRegistry::validate(def, options, text, normalised);
    if (refusal.isEmpty()) {
        return {};
    }
    // The engine names the option by its setting name; the dialog names the field.
    const QString prefix = def.name + QStringLiteral(": ");
    const QString why = refusal.startsWith(prefix) ? refusal.mid(prefix.size()) : refusal;
    return plainLabel(label) + QStringLiteral(": ") + why;
}

} // namespace kestrova::gui
