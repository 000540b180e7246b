#include "quotes/MarketSummary.h"

#include "quotes/PageFetcher.h"
#include "quotes/Qserver.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Host.h"
#include "support/Services.h"
#include "support/VbError.h"

namespace kestrova::quotes {

namespace {

QString signedChange(const QString& text)
{
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    if (!ok)
        return text;
    return support::formatNumber(value, u"+0.0;-0.0");
}

} // namespace

bool GetMarketData(MarketSummary& summary, PageFetcher& fetcher, const QString& url, const support::Services& services)
{
    services.host.setStatusText(QStringLiteral("Getting Market Data"));
    const QString body = fetcher.get(url);
    if (body.isEmpty())
        return false;
    const QString page = fetcher.markupToText(body);
    summary.caption = QStringLiteral("Markets at ") + support::formatDate(services.clock.now(), u"hh:mm");

    struct Row
    {
        const char* key;
        QString* level;
        QString* change;
    };
    const Row rows[] = {{"DOW", &summary.lblDow, &summary.lblDowChg},
                        {"NASDAQ", &summary.lblNASDAQ, &summary.lblNASDAQChg},
                        {"S&P 500", &summary.lblSP500, &summary.lblSP500Chg}};
    try {
        for (const Row& row : rows) {
            const QString key = QString::fromLatin1(row.key);
            *row.level = Qserver::FindKey(key, 1, page).remove(u' ');
            *row.change = Qserver::FindKey(key, 2, page).remove(u' ');
        }
    } catch (const support::VbError& e) {
        services.StatusMessage(QStringLiteral("GetMarketData: ") + e.description());
        return false;
    }
    return true;
}

QString MarketSummaryPageText(const MarketSummary& summary, const core::QuoteOptions& options)
{
    QString text;
    if (options.pageDow)
        text += QStringLiteral("DOW ") + summary.lblDow + signedChange(summary.lblDowChg) + QStringLiteral(", ");
    if (options.pageNasdaq)
        text += QStringLiteral("NASD ") + summary.lblNASDAQ + signedChange(summary.lblNASDAQChg) + QStringLiteral(", ");
    if (options.pageSp500)
        text += QStringLiteral("SP500 ") + summary.lblSP500 + signedChange(summary.lblSP500Chg) + QStringLiteral(", ");
    return text;
}

} // namespace kestrova::quotes
