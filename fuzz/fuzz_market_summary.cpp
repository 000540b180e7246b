// The market page on arbitrary text: the index table read by cells, and the page text built
// from what was read. A page on which a cell search runs out of tabs is reported, not
// thrown; a page without a single index level leaves the panel as it was.

#include "FuzzSupport.h"

#include "quotes/MarketSummary.h"
#include "quotes/MarkupText.h"
#include "quotes/PageFetcher.h"

using namespace kestrova;

namespace {
// Hands the input over as the fetched page; the transport itself is not what is tested.
class InputFetcher final : public quotes::PageFetcher
{
public:
    QString body;
    void setUrl(const QString&) override {}
    QString host() const override { return {}; }
    QString path() const override { return QStringLiteral("/"); }
    QString get(const QString&) override { return body; }
    QStringList getMany(const QStringList& urls, int, const CompletionCallback&) override
    {
        return QStringList(urls.size(), body);
    }
    std::vector<quotes::PageBody> getPages(const QStringList& urls, int, const PageCallback&) override
    {
        return std::vector<quotes::PageBody>(size_t(urls.size()), {body.toUtf8(), quotes::PageCharset::Utf8});
    }
    std::vector<quotes::HttpResponse> fetch(const std::vector<quotes::HttpRequest>& requests,
                                            const ResponseCallback&) override
    {
        quotes::HttpResponse answer;
        answer.status = 200;
        answer.body = body.toUtf8();
        return std::vector<quotes::HttpResponse>(requests.size(), answer);
    }
    QString markupToText(const QString& page) const override { return quotes::markupToTabs(page); }
};

fuzz::FuzzServices* g_rig = nullptr;
InputFetcher* g_fetcher = nullptr;
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_rig = new fuzz::FuzzServices;
    g_fetcher = new InputFetcher;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    g_fetcher->body = QString::fromUtf8(fuzz::bytesOf(data, size));
    quotes::MarketSummary summary;
    summary.lblDow = QStringLiteral("old");
    const bool got =
        quotes::GetMarketData(summary, *g_fetcher, QStringLiteral("http://127.0.0.1/index"), g_rig->services);
    if (g_fetcher->body.isEmpty()) {
        fuzzCheck(!got && summary.lblDow == QLatin1String("old"));
    }
    core::QuoteOptions options;
    // Every row that stands in the text is a whole one; an index without a level stands in
    // none, so a page that gave nothing gives no text.
    const QString text = quotes::MarketSummaryPageText(summary, options);
    fuzzCheck(text.isEmpty() || ((text.startsWith(QLatin1String("DOW ")) || text.startsWith(QLatin1String("NASD ")) ||
                                  text.startsWith(QLatin1String("SP500 "))) &&
                                 text.endsWith(QLatin1String(", "))));
    fuzzCheck(got || summary.lblDow == QLatin1String("old"));
    return 0;
}
