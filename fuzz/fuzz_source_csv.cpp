// A CSV quote source's answer on arbitrary bytes, read by every shipped CSV definition for
// a batch of symbols: one entry per symbol, a price or a reason, never a crash.

#include "FuzzSources.h"

using namespace kestrova;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    fuzzCheck(fuzz::shippedSources().problems.isEmpty());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body = fuzz::bytesOf(data, size);
    const QStringList symbols{QStringLiteral("ibm.us"), QStringLiteral("xyz.us"), QStringLiteral("^dji"),
                              QStringLiteral("IBM.US")};
    for (const quotes::SourceDefinition& source : fuzz::shippedSources().sources) {
        if (source.format != quotes::SourceFormat::Csv)
            continue;
        fuzz::checkAnswer(quotes::parseSourceAnswer(source, body, symbols), symbols);
    }
    return 0;
}
