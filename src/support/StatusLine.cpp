#include "support/StatusLine.h"

#include "support/Format.h"

namespace kestrova::support {

QString statusLine(const QString& message, const QDateTime& when)
{
    return message + QStringLiteral("   ") + generalDate(when) + QStringLiteral("\r\n");
}

void appendCapped(QString& text, const QString& addition)
{
    if (text.size() >= kTextCap) {
        text.remove(0, kTextDrop);
    }
    text += addition;
}

void terminalAppend(QString& text, const QString& addition)
{
    if (text.size() >= kTextCap) {
        text.remove(0, kTextDrop);
    }
    QString piece;
    piece.reserve(addition.size());
    for (const QChar c : addition) {
        if (c == QChar(8)) {
            if (!piece.isEmpty()) {
                piece.chop(1);
            } else if (!text.isEmpty()) {
                text.chop(1);
            }
        } else {
            piece += c;
        }
    }
    piece.remove(QChar(10));
    text += piece;
}

} // namespace kestrova::support
