#pragma once

#include "FuzzSupport.h"

#include "quotes/SourceAnswer.h"
#include "quotes/SourceDefinition.h"

#include <cmath>

// What the quote source targets share: the shipped definitions, and the promises every
// answer read must keep whatever the body held.

namespace kestrova::fuzz {

inline const quotes::SourceFile& shippedSources()
{
    static const quotes::SourceFile file = quotes::loadSourcesJson(QStringLiteral(KESTROVA_FUZZ_DATA "/sources.json"));
    return file;
}

// One entry per symbol asked; a symbol is priced with a finite last price, or fails with
// a reason; a whole-answer failure carries a reason and no symbols.
inline void checkAnswer(const quotes::SourceAnswer& a, const QStringList& symbols)
{
    if (!a.failure.isEmpty())
        return;
    fuzzCheck(!a.rateLimited);
    fuzzCheck(a.symbols.size() == size_t(symbols.size()));
    for (const quotes::SymbolAnswer& s : a.symbols) {
        fuzzCheck(s.priced != !s.failure.isEmpty());
        if (!s.priced)
            continue;
        const auto& last = s.values.numbers[size_t(quotes::SourceField::Last)];
        fuzzCheck(last.has_value());
        for (const auto& n : s.values.numbers)
            fuzzCheck(!n || std::isfinite(*n));
    }
}

} // namespace kestrova::fuzz
