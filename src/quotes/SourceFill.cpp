#include "quotes/SourceFill.h"

#include "core/Quote.h"
#include "support/Format.h"

#include <cmath>

namespace kestrova::quotes {

void fillFromSource(core::Quote& quote, const SourceValues& v, const QString& sourceName)
{
    const QString notOffered = QStringLiteral("n/a");
    auto text = [&](SourceField f) {
        const std::optional<double>& n = v.numbers[size_t(f)];
        return n ? support::plainNumberText(*n) : notOffered;
    };
    auto has = [&](SourceField f) { return v.numbers[size_t(f)].has_value(); };

    quote.setName(v.name.isEmpty() ? notOffered : v.name);
    quote.setLast(text(SourceField::Last));
    quote.setBid(text(SourceField::Bid));
    quote.setAsk(text(SourceField::Ask));
    // A volume is a count of shares: whole, even when a service sends "1.2345e7".
    const std::optional<double>& volume = v.numbers[size_t(SourceField::Volume)];
    quote.setVolume(volume ? support::plainNumberText(std::round(*volume)) : notOffered);
    quote.setOpenPrice(text(SourceField::Open));
    quote.setPreviousClose(text(SourceField::PreviousClose));
    if (has(SourceField::Change))
        quote.setChange(text(SourceField::Change));
    else
        quote.setChange(quote.changeFromPreviousClose());
    if (has(SourceField::PercentChange))
        quote.setPercentChg(text(SourceField::PercentChange));
    else
        quote.setPercentChg(quote.percentFromPreviousClose());
    quote.setDayHigh(text(SourceField::High));
    quote.setDayLow(text(SourceField::Low));
    quote.setYearHigh(text(SourceField::YearHigh));
    quote.setYearLow(text(SourceField::YearLow));
    quote.setEPS(text(SourceField::EPS));
    quote.setPE(text(SourceField::PE));
    quote.setOpenInterest(notOffered);
    if (v.time.isValid()) {
        quote.setUpdateDate(v.time);
        quote.setUpdate(support::formatDate(v.time, v.timeOfDay ? u"mm/dd/yyyy hh:mm" : u"mm/dd/yyyy"));
    } else {
        quote.setUpdateDate(QDateTime(support::zeroDate(), QTime(0, 0)));
        quote.setUpdate(notOffered);
    }
    quote.setSource(sourceName);
}

} // namespace kestrova::quotes
