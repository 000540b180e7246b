#include "quotes/PageBody.h"

#include "support/Cp1252.h"

namespace kestrova::quotes {

QString PageBody::text() const
{
    return decodePage(bytes, charset);
}

PageCharset charsetOf(QByteArrayView contentType)
{
    const QByteArray type = contentType.toByteArray().toLower();
    return type.contains("charset=utf-8") || type.contains("charset=\"utf-8\"") ? PageCharset::Utf8
                                                                                : PageCharset::Cp1252;
}

QString decodePage(QByteArrayView bytes, PageCharset charset)
{
    return charset == PageCharset::Utf8 ? QString::fromUtf8(bytes) : support::decodeCp1252(bytes);
}

} // namespace kestrova::quotes
