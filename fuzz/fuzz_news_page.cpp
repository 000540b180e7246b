// A news page from the web on arbitrary text, cut into stories by every news server of the
// shipped server.dat. Each story must be fit for news.dat (no tab, no line break in a
// field), and its date goes through the date reader the store uses.

#include "FuzzSupport.h"

#include "news/NewsServer.h"
#include "news/NewsStories.h"
#include "news/ServerDat.h"

using namespace kestrova;

namespace {
news::NewsServers* g_servers = nullptr;
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_servers = new news::NewsServers;
    const news::ServerDatResult result =
        news::readServerDat(QStringLiteral(KESTROVA_FUZZ_DATA "/server.dat"), *g_servers);
    if (result.error != 0 || g_servers->Count() == 0) {
        qFatal("cannot read the shipped server.dat: %s", qPrintable(result.description));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString page = QString::fromUtf8(fuzz::bytesOf(data, size));
    for (const auto& server : *g_servers) {
        for (const news::ScrapedStory& story : server->ExtractStories(page)) {
            fuzz::checkStory(story);
            news::NewsStories::storyDate(story.date);
        }
    }
    return 0;
}
