// A quote page from the web on arbitrary text: the markup-to-tabs conversion, FindKey with
// a key and offset of the input's choosing, and both quote fills (cells by key and offset,
// and the labelled page) for every server of the shipped servers.dat, followed by the page
// texts the filled quotes make. The only errors allowed are the ones the scraping defines:
// an invalid call from FindKey, an overflow from a numeric page's price digits.

#include "FuzzSupport.h"

#include "core/Quote.h"
#include "core/Quotes.h"
#include "quotes/CurlFetcher.h"
#include "quotes/MarkupText.h"
#include "quotes/ServersDat.h"
#include "support/VbError.h"

#include <fuzzer/FuzzedDataProvider.h>

using namespace kestrova;

namespace {
struct World
{
    fuzz::FuzzServices rig;
    quotes::BuiltInServers builtIn;
    quotes::ServerDefinitions defs;
    quotes::CurlFetcher fetcher{rig.host};
    quotes::ScrapeContext ctx{fetcher, builtIn, rig.clock, rig.host};
};
World* g_world = nullptr;

// The keys of the demo market's cells, so that FindKey often finds what it looks for.
const char* const kKeys[] = {"Last Trade:", "Change:", "Volume:", "Open:", "Bid:", "Ask:", "DOW", "S&P 500", "", " "};

qsizetype countOf(const QString& text, QStringView what)
{
    return text.count(what);
}

void allowed(const support::VbError& e, int number)
{
    fuzzCheck(e.number() == number);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_world = new World;
    const quotes::ServersDatResult r =
        quotes::readServersDat(QStringLiteral(KESTROVA_FUZZ_DATA "/servers.dat"), g_world->defs, g_world->builtIn);
    if (r.error != 0 || g_world->defs.stock.Count() == 0) {
        qFatal("cannot read the shipped servers.dat: %s", qPrintable(r.description));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    World& w = *g_world;
    FuzzedDataProvider in(data, size);
    const auto offset = in.ConsumeIntegralInRange<qint16>(-3, 40);
    const auto digits = in.ConsumeIntegralInRange<qint16>(-2, 9);
    const auto type = in.ConsumeIntegralInRange<qint16>(0, 3);
    const auto keyChoice = in.ConsumeIntegral<uint8_t>();
    const auto keyLength = in.ConsumeIntegralInRange<int>(1, 12);
    const auto charset = in.ConsumeBool() ? quotes::PageCharset::Utf8 : quotes::PageCharset::Cp1252;
    const quotes::PageBody body{QByteArray::fromStdString(in.ConsumeRemainingBytesAsString()), charset};
    const QString text = body.text();

    // One tab per tag: never more tabs than tags, tabs and numeric entities in the input.
    const QString tabs = quotes::markupToTabs(text);
    fuzzCheck(countOf(tabs, u"\t") <= countOf(text, u"<") + countOf(text, u"\t") + countOf(text, u"&#"));
    // Converted from the bytes, decoding only the text kept, it is the same as from the text.
    fuzzCheck(quotes::markupToTabs(body.bytes, charset) == tabs);

    const QString page = quotes::Qserver::preparePage(body);
    // A key cut from the page itself, or one of the demo market's.
    const size_t fixed = std::size(kKeys);
    const QString key = keyChoice < fixed ? QString::fromLatin1(kKeys[keyChoice])
                                          : page.mid((keyChoice - fixed) * page.size() / 256, keyLength);
    try {
        quotes::Qserver::FindKey(key, offset, page);
    } catch (const support::VbError& e) {
        allowed(e, support::VbError::InvalidCall);
    }

    core::Quotes set;
    int n = 0;
    for (const quotes::QServers* servers : {&w.defs.stock, &w.defs.option}) {
        for (const auto& server : *servers) {
            auto quote = std::make_shared<core::Quote>();
            quote->setTicker(QStringLiteral("T%1").arg(++n));
            quote->setDigits(digits);
            quote->setSecurityType(type);
            quote->setHighLimit(100);
            quote->setLowLimit(10);
            quote->setToPager(true);
            try {
                fuzzCheck(server->fillQuote(*quote, body, w.ctx) == !body.isEmpty());
            } catch (const support::VbError& e) {
                allowed(e, support::VbError::InvalidCall);
                continue;
            }
            set.Add(quote, quote->ticker());
        }
    }
    set.PageMessageString(1);
    try {
        set.PageDigitalString(false, 0, 4, QStringLiteral("99"));
    } catch (const support::VbError& e) {
        allowed(e, support::VbError::Overflow);
    }
    return 0;
}
