#include "support/Cp1252.h"

#include <array>

namespace kestrova::support {

namespace {
// 0x80..0x9F; the rest of the page is identical to Latin-1.
constexpr std::array<char16_t, 32> kHigh = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};
} // namespace

QString decodeCp1252(const QByteArray& bytes)
{
    QString out(bytes.size(), Qt::Uninitialized);
    QChar* d = out.data();
    for (const char ch : bytes) {
        const auto b = static_cast<unsigned char>(ch);
        *d++ = (b >= 0x80 && b < 0xA0) ? QChar(kHigh[b - 0x80]) : QChar(b);
    }
    return out;
}

int cp1252Byte(QChar c)
{
    const char16_t u = c.unicode();
    if (u < 0x80 || (u >= 0xA0 && u <= 0xFF)) {
        return u;
    }
    for (size_t i = 0; i < kHigh.size(); ++i) {
        if (kHigh[i] == u) {
            return static_cast<int>(0x80 + i);
        }
    }
    return -1;
}

QByteArray encodeCp1252(const QString& text)
{
    QByteArray out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const int b = cp1252Byte(c);
        out.append(b < 0 ? '?' : static_cast<char>(b));
    }
    return out;
}

} // namespace kestrova::support
