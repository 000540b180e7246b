// servers.dat on arbitrary bytes. Reading stops at the first error with the error's
// message; every definition that was read must then be usable: its ServerIndex names an
// entry of the built-in list, and FindKey with its keys and offsets on a real quote page
// gives a value or the one error a bad definition may raise (invalid call).

#include "FuzzSupport.h"

#include "quotes/MarkupText.h"
#include "quotes/ServersDat.h"
#include "sim/DemoMarket.h"
#include "support/VbError.h"

using namespace kestrova;

namespace {
fuzz::ScratchFile* g_file = nullptr;
QString* g_page = nullptr;
const quotes::BuiltInServers* g_builtIn = nullptr;

void checkServers(const quotes::QServers& servers)
{
    for (const auto& server : servers) {
        fuzzCheck(server->serverIndex() >= 0 && server->serverIndex() < quotes::BuiltInServers::kCount);
        for (int f = 0; f < quotes::Qserver::kFieldCount; ++f) {
            try {
                server->FindKey(quotes::Qserver::Field(f), *g_page);
            } catch (const support::VbError& e) {
                fuzzCheck(e.number() == support::VbError::InvalidCall);
            }
        }
    }
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_file = new fuzz::ScratchFile(QStringLiteral("servers.dat"));
    support::MockClock clock;
    sim::DemoMarket market(clock);
    g_page = new QString(quotes::markupToTabs(QString::fromLatin1(market.stockPage(QStringLiteral("IBM")))));
    g_builtIn = new quotes::BuiltInServers();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    quotes::ServerDefinitions defs;
    const quotes::ServersDatResult result = quotes::readServersDat(g_file->write(fuzz::bytesOf(data, size)), defs, *g_builtIn);
    fuzzCheck(result.error == 0 || !quotes::serversDatMessage(result).isEmpty());
    checkServers(defs.stock);
    checkServers(defs.option);
    return 0;
}
