#pragma once

#include "quotes/PageBody.h"

#include <QByteArrayView>
#include <QString>

namespace kestrova::quotes {

// Turns a web page into tab-separated text: the server definitions address a value as
// "the N-th cell after a key", so the conversion must be stable and predictable.
//
//  - Every tag becomes exactly one tab; runs of tags are never merged, and the text between
//    tags is kept as it stands (blanks and line breaks included). A "<" that does not open
//    a tag (followed by anything but a letter, "/", "!" or "?") is ordinary text.
//  - Inside a tag, quoted attribute values may hold ">" without ending the tag.
//  - A comment "<!-- ... -->" is one tag: one tab, whatever it holds.
//  - <script> and <style> elements: the opening and the closing tag give one tab each and
//    the contents between them are dropped. A script's text changes with every visit and
//    may hold "<" and ">" of its own, so dropping it keeps the cell count of the page the
//    same from day to day, which is what the offsets of a definition depend on.
//  - Entities are decoded in the text: &amp; &lt; &gt; &quot; &apos; &nbsp; (a blank) and
//    numeric &#NN; / &#xNN;. Unknown or malformed entities stay as written. A decoded "<"
//    never starts a tag.
//  - A tag or comment left open at the end of the page is one tab and ends the text.
//
// One pass, no regular expressions: it runs on every fetched page.
QString markupToTabs(const QString& page);
// The same from a page's bytes as they came over the wire: markupToTabs(decodePage(page,
// charset)), decoding only the text it keeps, not the tags, scripts and comments around it.
QString markupToTabs(QByteArrayView page, PageCharset charset);

} // namespace kestrova::quotes
