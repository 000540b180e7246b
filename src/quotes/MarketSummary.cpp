#include "quotes/MarketSummary.h"

#include "core/Quote.h"
#include "quotes/PageFetcher.h"
#include "quotes/Qserver.h"
#include "quotes/QuoteCycle.h"
#include "quotes/SourceAnswer.h"
#include "quotes/SourceFill.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/Services.h"
#include "support/VbError.h"

namespace kestrova::quotes {

namespace {

// A figure that is there: a number, and one that can be shown. "???" (a key missing from
// the page), "n/a", "-" and the empty text are not.
std::optional<double> figure(const QString& text)
{
    const std::optional<double> v = sourceNumber(text);
    return v && support::isShowable(*v) ? v : std::nullopt;
}

bool hasLevel(const QString& text)
{
    const std::optional<double> v = figure(text);
    return v && *v != 0;
}

QString signedChange(const QString& text)
{
    const std::optional<double> v = figure(text);
    return v ? support::formatNumber(*v, u"+0.0;-0.0") : QString();
}

struct Index
{
    const char* key; // on the classic market page
    QString ticker;
    QString level;
    QString change;
    bool found = false;
};

} // namespace

bool GetMarketData(MarketSummary& summary, PageFetcher& fetcher, const QString& url, const support::Services& services,
                   const SourceSetup* sources)
{
    services.host.setStatusText(QStringLiteral("Getting Market Data"));
    Index indices[3] = {{"DOW", QLatin1String(kMarketIndexTickers[0]), {}, {}},
                        {"NASDAQ", QLatin1String(kMarketIndexTickers[1]), {}, {}},
                        {"S&P 500", QLatin1String(kMarketIndexTickers[2]), {}, {}}};
    auto missing = [&] {
        std::vector<Index*> out;
        for (Index& ix : indices) {
            if (!ix.found)
                out.push_back(&ix);
        }
        return out;
    };

    // The quotes that follow say in the log which sources were passed over.
    for (const SourceStage& stage : sourceStages(sources, services, false)) {
        const std::vector<Index*> wanted = missing();
        if (wanted.empty() || services.cancel.isSet())
            break;
        if (stage.source) {
            std::vector<SourceItem> items;
            for (const Index* ix : wanted)
                items.push_back({ix->ticker, 0});
            askSource(
                stage, items, fetcher, services, sources->health, false, [&] { return !services.cancel.isSet(); },
                [&](size_t i, const SymbolAnswer& answer) {
                    // The quote's own rules make the texts: two decimals, the change
                    // worked out from the previous close or "n/a".
                    core::Quote q;
                    q.setDigits(2);
                    fillFromSource(q, answer.values, stage.source->name);
                    if (!hasLevel(q.last()))
                        return;
                    wanted[i]->level = q.last();
                    // Signed, as the market page writes it: "+236.03" beside "-58.02".
                    const std::optional<double> change = figure(q.change());
                    wanted[i]->change = change ? support::formatNumber(*change, u"+0.00;-0.00") : q.change();
                    wanted[i]->found = true;
                });
            continue;
        }
        if (url.isEmpty())
            continue;
        // The classic page: no log-on, no preparation of "<sup>" and the like.
        const QString body = fetcher.get(url);
        if (body.isEmpty())
            continue;
        const QString page = fetcher.markupToText(body);
        try {
            for (Index* ix : wanted) {
                const QString key = QString::fromLatin1(ix->key);
                const QString level = Qserver::FindKey(key, 1, page).remove(u' ');
                const QString change = Qserver::FindKey(key, 2, page).remove(u' ');
                if (hasLevel(level)) {
                    ix->level = level;
                    ix->change = change;
                    ix->found = true;
                }
            }
        } catch (const support::VbError& e) {
            services.StatusMessage(QStringLiteral("GetMarketData: ") + e.description());
        }
    }

    if (missing().size() == std::size(indices))
        return false;
    summary.caption = QStringLiteral("Markets at ") + support::formatDate(services.clock.now(), u"hh:mm");
    QString* labels[3][2] = {{&summary.lblDow, &summary.lblDowChg},
                             {&summary.lblNASDAQ, &summary.lblNASDAQChg},
                             {&summary.lblSP500, &summary.lblSP500Chg}};
    for (size_t i = 0; i < std::size(indices); ++i) {
        const Index& ix = indices[i];
        *labels[i][0] = ix.found ? ix.level : support::kNotAvailable.toString();
        *labels[i][1] = ix.found ? ix.change : support::kNotAvailable.toString();
    }
    return true;
}

QString MarketSummaryPageText(const MarketSummary& summary, const core::QuoteOptions& options)
{
    QString text;
    auto row = [&](bool on, const char* prefix, const QString& level, const QString& change) {
        if (on && hasLevel(level))
            text += QLatin1String(prefix) + level + signedChange(change) + QStringLiteral(", ");
    };
    row(options.pageDow, "DOW ", summary.lblDow, summary.lblDowChg);
    row(options.pageNasdaq, "NASD ", summary.lblNASDAQ, summary.lblNASDAQChg);
    row(options.pageSp500, "SP500 ", summary.lblSP500, summary.lblSP500Chg);
    return text;
}

} // namespace kestrova::quotes
