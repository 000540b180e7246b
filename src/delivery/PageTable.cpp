#include "delivery/PageTable.h"

#include "support/Cp1252.h"
#include "support/VbError.h"

namespace kestrova::delivery {

PageTable splitPages(const QString& message, int maxLength, bool crHandling)
{
    PageTable table;
    QString text = message;
    const qsizetype len = text.size();
    if (maxLength < 1) {
        // A zero page length would cut nothing; the options dialog refuses it, so keep the
        // whole message as one page rather than divide by zero.
        table.pages << text;
        return table;
    }
    int p = 1;
    for (qsizetype i = 1; i <= len; ++i) {
        if (crHandling && text[i - 1] == QChar(13)) {
            text[i - 1] = u' ';
            if (i < len) {
                text[i] = QChar(8);
            }
        }
        if (i % maxLength == 0) {
            if (p > PageTable::kMaxPages) {
                throw support::VbError(support::VbError::Subscript);
            }
            table.pages << text.mid((p - 1) * maxLength, maxLength);
            ++p;
        }
    }
    if (p == 1) {
        table.pages = QStringList{text};
        return table;
    }
    const QString rest = text.right(len - qsizetype(maxLength) * (p - 1)).trimmed();
    if (rest.isEmpty()) {
        return table;
    }
    if (p > PageTable::kMaxPages) {
        throw support::VbError(support::VbError::Subscript);
    }
    table.pages << rest;
    return table;
}

QString tapChecksum(const QString& block)
{
    unsigned sum = 0;
    // The block goes out in the code page, so the service sums those bytes; a character
    // the code page lacks is sent as '?'.
    for (const QChar c : block) {
        const int b = support::cp1252Byte(c);
        sum += static_cast<unsigned>(b < 0 ? '?' : b);
    }
    QChar d1 = QChar(static_cast<char16_t>((sum % 16) + 48));
    QChar d2 = QChar(0);
    QChar d3 = QChar(0);
    unsigned q = sum / 16;
    if (q != 0) {
        d2 = QChar(static_cast<char16_t>((q % 16) + 48));
        q /= 16;
        if (q != 0) {
            d3 = QChar(static_cast<char16_t>((q % 16) + 48));
        }
    }
    QString out;
    out += d3;
    out += d2;
    out += d1;
    return out;
}

} // namespace kestrova::delivery
