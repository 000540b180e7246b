#include "support/Cp1252.h"

#include <array>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kestrova::support {

namespace {
// 0x80..0x9F; the rest of the page is identical to Latin-1.
constexpr std::array<char16_t, 32> kHigh = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};
} // namespace

char16_t* widenCp1252(const char* from, const char* to, char16_t* out)
{
    auto one = [](char ch) {
        const auto b = static_cast<unsigned char>(ch);
        return (b >= 0x80 && b < 0xA0) ? kHigh[b - 0x80] : char16_t(b);
    };
#if defined(__SSE2__)
    // Sixteen bytes at a time: a block without any of the 32 codes that differ from Latin-1
    // (0x80..0x9F, as signed bytes the ones below -96) is widened by interleaving it with
    // zero bytes.
    const __m128i zero = _mm_setzero_si128();
    const __m128i firstLatin1 = _mm_set1_epi8(char(0xA0));
    for (; to - from >= 16; from += 16, out += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        if (_mm_movemask_epi8(_mm_cmplt_epi8(bytes, firstLatin1)) == 0) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(bytes, zero));
        } else {
            for (int i = 0; i < 16; ++i) {
                out[i] = one(from[i]);
            }
        }
    }
#endif
    for (; from != to; ++from) {
        *out++ = one(*from);
    }
    return out;
}

QString decodeCp1252(QByteArrayView bytes)
{
    QString out(bytes.size(), Qt::Uninitialized);
    widenCp1252(bytes.data(), bytes.data() + bytes.size(), reinterpret_cast<char16_t*>(out.data()));
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
