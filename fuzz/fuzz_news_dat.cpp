// news.dat on arbitrary bytes: the line reader, then everything the program does with the
// stories it read. What the store writes back must read back to the same file, and the
// purge and the paging walk must stay inside the collection however the dates fall.

#include "FuzzSupport.h"

#include "core/Quote.h"
#include "core/Quotes.h"
#include "news/NewsStories.h"

#include <QFile>

using namespace kestrova;

namespace {
fuzz::ScratchFile* g_file = nullptr;

QByteArray readBack(const QString& path)
{
    QFile f(path);
    fuzzCheck(f.open(QIODevice::ReadOnly));
    return f.readAll();
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_file = new fuzz::ScratchFile(QStringLiteral("news.dat"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    support::MockClock clock;
    news::NewsStories stories(clock, g_file->write(fuzz::bytesOf(data, size)));
    stories.ReadNews();
    const int count = stories.Count();
    for (int i = 1; i <= count; ++i) {
        const auto story = stories.Item(i);
        const qint16 found = stories.FindStory(story->newsLine());
        fuzzCheck(found >= 1 && found <= i);
        stories.IsNewsOut(story->ticker());
    }
    stories.UpdateNewsOut();

    fuzzCheck(stories.WriteNews());
    const QByteArray written = readBack(g_file->path());
    news::NewsStories again(clock, g_file->path());
    again.ReadNews();
    fuzzCheck(again.Count() == count);
    fuzzCheck(again.WriteNews());
    fuzzCheck(readBack(g_file->path()) == written);

    core::Quotes quotes;
    auto watched = std::make_shared<core::Quote>();
    watched->setTicker(QStringLiteral("IBM"));
    watched->setToPager(true);
    quotes.Add(watched, watched->ticker());
    int marked = 0;
    stories.PageMessageString(2, quotes, &marked);
    fuzzCheck(marked >= 0 && marked <= 2);
    stories.PurgeNews(3);
    fuzzCheck(stories.Count() <= count);
    stories.PurgeNews(1);
    return 0;
}
