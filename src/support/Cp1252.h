#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

namespace kestrova::support {

// The program's files are 8-bit Windows-1252 text. The five codes that table leaves
// undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to the same code points, so every byte
// survives a decode/encode round trip (scrambled strings rely on that).
QString decodeCp1252(QByteArrayView bytes);
// The characters of [from, to) written at out, one per byte; returns the end of what it wrote.
char16_t* widenCp1252(const char* from, const char* to, char16_t* out);
// Characters outside the code page become '?'.
QByteArray encodeCp1252(const QString& text);
// The byte a character encodes to, or -1 when it has none.
int cp1252Byte(QChar c);

} // namespace kestrova::support
