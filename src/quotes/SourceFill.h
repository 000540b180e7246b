#pragma once

#include "quotes/SourceAnswer.h"

namespace kestrova::core {
class Quote;
}

namespace kestrova::quotes {

// Writes what a source gave into a quote the way the page scraper writes a page: the
// same fields in the same order (so the alarms run as they always have), "n/a" for what
// the source does not give, and the change and percent change worked out from the
// previous close when the source leaves them out. Numbers become text through the one
// formatting module, and the quote's own rules then shape them with its digits.
void fillFromSource(core::Quote& quote, const SourceValues& values, const QString& sourceName);

} // namespace kestrova::quotes
