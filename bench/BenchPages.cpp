#include "BenchPages.h"

#include "sim/DemoMarket.h"
#include "support/Clock.h"

#include <QCoreApplication>
#include <QTimer>

namespace kestrova::bench {

using Field = quotes::Qserver::Field;

std::shared_ptr<quotes::Qserver> demoServer(const QString& baseUrl, bool option)
{
    auto s = std::make_shared<quotes::Qserver>();
    s->setServerName(QStringLiteral("Demo Market"));
    s->setServerIndex(12);
    s->setUrl(baseUrl + (option ? QStringLiteral("/option?t=") : QStringLiteral("/stock?t=")));
    for (int f = 0; f < quotes::Qserver::kFieldCount; ++f)
        s->setOffset(Field(f), -1);
    const std::pair<Field, const char*> cells[] = {{Field::Name, "Name:"},        {Field::Last, "Last Trade:"},
                                                   {Field::Change, "Change:"},    {Field::PercentChg, "Pct Change:"},
                                                   {Field::Bid, "Bid:"},          {Field::Ask, "Ask:"},
                                                   {Field::Open, "Open:"},        {Field::Previous, "Prev Close:"},
                                                   {Field::DayHigh, "Day High:"}, {Field::DayLow, "Day Low:"},
                                                   {Field::Update, "Updated:"}};
    for (const auto& [f, key] : cells) {
        s->setKey(f, QString::fromLatin1(key));
        s->setOffset(f, 2);
    }
    s->setVolumeKey(QStringLiteral("Volume:"));
    s->setVolumeOffset(0);
    if (option) {
        s->setInterestKey(QStringLiteral("Open Int:"));
        s->setInterestOffset(2);
    } else {
        const std::pair<Field, const char*> more[] = {{Field::YearHigh, "52-Week High:"},
                                                      {Field::YearLow, "52-Week Low:"},
                                                      {Field::EPS, "EPS:"},
                                                      {Field::PE, "P/E:"}};
        for (const auto& [f, key] : more) {
            s->setKey(f, QString::fromLatin1(key));
            s->setOffset(f, 2);
        }
    }
    return s;
}

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
    if (maxWaitMs > 0) {
        QTimer t;
        t.setSingleShot(true);
        t.start(maxWaitMs);
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    } else {
        QCoreApplication::processEvents();
    }
}

} // namespace kestrova::bench
