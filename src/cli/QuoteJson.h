#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

namespace kestrova::core {
class Quote;
} // namespace kestrova::core

namespace kestrova::cli {

// Every field of one quote of a retrieval cycle as `quotes --json` prints it (the shape is
// documented in docs/quotes-json.md): the display texts as the tables show them, each
// readable number beside its text as a JSON number (null when the service did not offer
// it), the limits, the alarm state and the service that priced the quote.
// sourceIndex is the built-in service's number, or null for a source of sources.json.
QJsonObject quoteJson(const core::Quote& quote, const QJsonValue& sourceIndex, const QString& sourceName);

} // namespace kestrova::cli
