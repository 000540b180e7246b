#pragma once

#include <QJsonObject>
#include <QString>

namespace kestrova::core {
class Quote;
} // namespace kestrova::core

namespace kestrova::cli {

// Every field of one quote of a retrieval cycle as `quotes --json` prints it (the shape is
// documented in docs/quotes-json.md): the display texts as the tables show them, each
// readable number beside its text as a JSON number (null when the service did not offer
// it), the limits, the alarm state and the service that priced the quote.
QJsonObject quoteJson(const core::Quote& quote, int sourceIndex, const QString& sourceName);

} // namespace kestrova::cli
