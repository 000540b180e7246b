#pragma once

#include <QByteArray>
#include <QString>

namespace kestrova::support {

// The program's files are 8-bit Windows-1252 text. The five codes that table leaves
// undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to the same code points, so every byte
// survives a decode/encode round trip (scrambled strings rely on that).
QString decodeCp1252(const QByteArray& bytes);
// Characters outside the code page become '?'.
QByteArray encodeCp1252(const QString& text);
// The byte a character encodes to, or -1 when it has none.
int cp1252Byte(QChar c);

} // namespace kestrova::support
