// server.dat on arbitrary bytes. Reading stops at the first error with the error's message;
// the news servers that were read are then put to work on a real news page, where their
// markers (whatever the file said) must cut stories without fault.

#include "FuzzSupport.h"

#include "news/NewsServer.h"
#include "news/ServerDat.h"
#include "sim/DemoMarket.h"

using namespace kestrova;

namespace {
fuzz::ScratchFile* g_file = nullptr;
QString* g_page = nullptr;
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_file = new fuzz::ScratchFile(QStringLiteral("server.dat"));
    support::MockClock clock;
    sim::DemoMarket market(clock);
    g_page = new QString(QString::fromLatin1(market.newsPage(QStringLiteral("IBM"))));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    news::NewsServers servers;
    const news::ServerDatResult result = news::readServerDat(g_file->write(fuzz::bytesOf(data, size)), servers);
    fuzzCheck(result.error == 0 || !news::serverDatMessage(result).isEmpty());
    for (const auto& server : servers) {
        for (const news::ScrapedStory& story : server->ExtractStories(*g_page)) {
            fuzz::checkStory(story);
        }
    }
    return 0;
}
