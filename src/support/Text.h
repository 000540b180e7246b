#pragma once

#include <QString>

namespace kestrova::support {

// Deletes every occurrence of sub.
QString RemoveAll(const QString& text, const QString& sub);
// Replaces every occurrence of find.
QString ReplaceAll(const QString& text, const QString& find, const QString& with);
// The text between the first startKey and the next endKey after it ("" when either is
// missing). An empty startKey starts the search at the second character, so the first
// character is never part of the result.
QString ExtractBetween(const QString& startKey, const QString& endKey, const QString& text);
// A price that may be written with a fraction ("12 3/8", "-1 1/4", "3/4") as decimal text
// formatted "####0." + digits zeros; "n/a" stays; a negative digit count is taken as 2.
QString ConvertFraction(const QString& text, int digits);

// The URL with the password of a "user:password@" part and every known secret (a key in
// the query) replaced by "***": the only form in which a URL that may carry a log-on
// reaches a log line, a status line or the screen.
QString redactUrl(const QString& url);

// "####0." followed by `digits` zeros: the price pattern shared by quotes and fractions.
QString pricePattern(int digits);

} // namespace kestrova::support
