// The portfolio file reader on arbitrary bytes. Whatever the reader makes of a file, even
// one it gave up on halfway, is what the program then holds and may save: that save must
// read back without an error, and a second save must be byte for byte the first.

#include "FuzzSupport.h"

#include "core/PortfolioFile.h"
#include "support/VbError.h"

using namespace kestrova;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = fuzz::bytesOf(data, size);
    core::PortfolioTable table;
    core::Options options;
    try {
        core::PortfolioFile::decode(bytes, table, options);
    } catch (const support::VbError& e) {
        fuzzCheck(!core::PortfolioFile::readerMessage(e.number(), QStringLiteral("x.pgr"), e.description()).isEmpty());
    }
    fuzzCheck(table.count >= 0 && table.count <= core::PortfolioTable::kMaxInUse);

    const QByteArray saved = core::PortfolioFile::encode(table, options);
    core::PortfolioTable table2;
    core::Options options2;
    core::PortfolioFile::decode(saved, table2, options2); // a VbError escaping here is a finding
    fuzzCheck(table2.count == table.count);
    // Not compared field by field with the first reading: saving turns a quote or a line
    // break inside a text into a harmless character, so only the saved form is stable.
    fuzzCheck(core::PortfolioFile::encode(table2, options2) == saved);
    return 0;
}
