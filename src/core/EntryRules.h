#pragma once

#include "core/PortfolioTable.h"

#include <QString>

namespace kestrova::core {

// The longest ticker an entry takes: an option's full symbol (root, expiry, type and
// strike) is 21 characters, and nothing a quote service knows is longer.
constexpr int kMaxTickerLength = 21;

// Why a text cannot be kept in the portfolio file, or nothing: the file is Windows-1252,
// and any other character would come back as "?".
QString unstorableCharacter(const QString& text);

// Why a portfolio entry cannot be stored, naming the field, or nothing. Checked before
// anything is saved, by every face that edits entries:
// - the ticker: not empty, no blanks before or after it (a lookup by name would never
//   match), at most kMaxTickerLength characters, no double quotes or line breaks (they
//   would end the item in the file), only Windows-1252 characters;
// - the price limits are 0 (no limit) or more, the volume limit is not negative, the type,
//   digits and quote service are in range.
QString entryProblem(const PortfolioRecord& record);

// Brings an entry to the form it is stored in, then checks it (entryProblem). Blanks
// around a ticker are never meant (they come with a paste or a quoted argument), so the
// ticker loses them here, for every face, rather than being refused.
QString storableEntry(PortfolioRecord& record);

} // namespace kestrova::core
