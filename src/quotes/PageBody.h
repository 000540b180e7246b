#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

namespace kestrova::quotes {

// How a page's bytes are read: UTF-8 when its answer said so, Windows-1252 otherwise.
enum class PageCharset { Cp1252, Utf8 };

// A page as it came over the wire. A quote fill reads a few cells of a large page, so it
// turns the bytes into text itself and widens only the text it keeps (see MarkupText.h).
struct PageBody
{
    QByteArray bytes;
    PageCharset charset = PageCharset::Cp1252;

    bool isEmpty() const { return bytes.isEmpty(); }
    // The whole page as text.
    QString text() const;
};

// The charset a Content-Type header names for a page.
PageCharset charsetOf(QByteArrayView contentType);
QString decodePage(QByteArrayView bytes, PageCharset charset);

} // namespace kestrova::quotes
