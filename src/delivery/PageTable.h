#pragma once

#include <QString>
#include <QStringList>

namespace kestrova::delivery {

// Up to 50 page texts, filled by the splitter and sent one by one by every route.
struct PageTable
{
    static constexpr int kMaxPages = 50;
    QStringList pages; // page n is pages[n - 1]
    int count() const { return static_cast<int>(pages.size()); }
};

// Splits a message into pages of at most maxLength characters, cut at exact multiples;
// the trimmed remainder is the last page unless empty. With crHandling (the modem route)
// each CR becomes a blank and the character after it a backspace, so page boundaries do
// not move. A message that needs a 51st page raises VbError 9 (subscript out of range).
PageTable splitPages(const QString& message, int maxLength, bool crHandling);

// The 3-character TAP checksum of a block (STX through ETX): the low 12 bits of the sum
// of its Windows-1252 byte values as three characters '0'+nibble, high nibble first. A nibble
// above the highest non-zero one is NUL, not '0' (only sums below 256 show it).
QString tapChecksum(const QString& block);

} // namespace kestrova::delivery
