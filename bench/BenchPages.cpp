#include "BenchPages.h"
#include "support/EventWait.h"

#include "sim/DemoMarket.h"
#include "support/Clock.h"


namespace kestrova::bench {

QString largeQuotePage(int bytes)
{
    support::MockClock clock;
    sim::DemoMarket market(clock, 1);
    const QString quote = QString::fromLatin1(market.stockPage(QStringLiteral("ACME")));
    const QString bodyStart = QStringLiteral("<body>");
    const qsizetype cut = quote.indexOf(bodyStart) + bodyStart.size();

    QString filler;
    int i = 0;
    while (filler.size() * 2 + quote.size() < bytes) {
        filler +=
            QStringLiteral("<tr class=\"n\"><td><a href=\"/news/story?id=%1&amp;src=wire\">Markets edge higher as "
                           "traders weigh rates &#8212; story %1</a></td><td>10:%2&nbsp;AM</td></tr>\r\n"
                           "<!-- ad slot %1 --><script>var s%1 = \"<td>\" + %1;</script>\r\n")
                .arg(i)
                .arg(i % 60, 2, 10, QLatin1Char('0'));
        ++i;
    }
    return quote.left(cut) + QStringLiteral("<table>") + filler + QStringLiteral("</table>") + quote.mid(cut) +
           QStringLiteral("<table>") + filler + QStringLiteral("</table>");
}

void QuietHost::yield(int maxWaitMs)
{
    support::waitForEvents(maxWaitMs);
}

} // namespace kestrova::bench
