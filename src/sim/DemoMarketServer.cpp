#include "sim/DemoMarketServer.h"

#include "quotes/BuiltInServers.h"

namespace kestrova::sim {

using Field = quotes::Qserver::Field;

std::shared_ptr<quotes::Qserver> demoMarketServer(const QString& baseUrl, bool option)
{
    auto s = std::make_shared<quotes::Qserver>();
    s->setServerName(QStringLiteral("Demo Market"));
    s->setServerIndex(quotes::BuiltInServers::kDemoMarket);
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

} // namespace kestrova::sim
