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

QString controlNames(const QString& text)
{
    static const char* const kNames[32] = {"NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "LF",
                                           "VT",  "FF",  "CR",  "SO",  "SI",  "DLE", "DC1", "DC2", "DC3", "DC4", "NAK",
                                           "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US"};
    QString shown;
    shown.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u == u'\r' || u == u'\n' || u == u'\t' || (u >= 0x20 && u != 0x7F)) {
            shown += c;
        } else {
            shown += u'<';
            shown += QLatin1String(u == 0x7F ? "DEL" : kNames[u]);
            shown += u'>';
        }
    }
    return shown;
}

} // namespace kestrova::support
