// The number and date readers on arbitrary text: LeadingNumber and every display pattern
// the program formats with, fractions and prices, whole numbers, money, times of day, news
// and quote-stamp dates, the sequential-file number reader, and a quote's setters, which
// read their texts as numbers to test the alarms. Texts written by the program must read
// back as what was written: a time of day, a story date, a single's exact text.

#include "FuzzSupport.h"

#include "core/PriceFormat.h"
#include "core/Quote.h"
#include "news/NewsStories.h"
#include "quotes/Qserver.h"
#include "quotes/SequentialInput.h"
#include "support/Currency.h"
#include "support/Format.h"
#include "support/Text.h"
#include "support/VbError.h"

#include <charconv>
#include <cmath>

using namespace kestrova;

namespace {
const char16_t* const kPatterns[] = {u"###.0",   u"00",     u"0.####", u"+0.0;-0.0", u"+0.00;-0.00", u"#,##0",
                                     u"###0.00", u"###0.0", u"###%",   u"####0.00",  u"####0."};

void allowed(const support::VbError& e, std::initializer_list<int> numbers)
{
    fuzzCheck(std::find(numbers.begin(), numbers.end(), e.number()) != numbers.end());
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(fuzz::bytesOf(data, size));
    const int digits = size > 0 ? int(data[0] % 12) - 2 : 2;

    const double value = support::leadingNumber(text);
    for (const char16_t* pattern : kPatterns) {
        support::formatNumber(value, pattern);
    }
    support::formatNumber(value, support::pricePattern(std::max(digits, 0)));
    support::ConvertFraction(text, digits);
    qint16 priceDigits = static_cast<qint16>(digits);
    // A price shows its own value, rounded to its digits, or "n/a": never another number.
    const QString price = core::formatPrice(text, priceDigits);
    if (price != QLatin1String("n/a") && !text.contains(u'/')) {
        const double slack = 0.5 * std::pow(10.0, -priceDigits) + std::fabs(value) * 1e-14;
        fuzzCheck(std::fabs(support::leadingNumber(price) - value) <= slack);
    }
    bool ok = false;
    bool outOfRange = false;
    const qint32 whole = core::toWholeNumber(text, &ok, &outOfRange);
    fuzzCheck((ok || whole == 0) && !(ok && outOfRange));

    try {
        support::Currency::fromDouble(value).toString();
    } catch (const support::VbError& e) {
        allowed(e, {support::VbError::Overflow});
    }
    const float single = static_cast<float>(value);
    if (std::isfinite(single)) {
        const QByteArray exact = support::singleToExactText(single).toLatin1();
        float back = 0;
        const auto r = std::from_chars(exact.constData(), exact.constData() + exact.size(), back);
        fuzzCheck(r.ec == std::errc() && back == single);
    }
    support::singleToText(single);
    support::doubleToText(value);

    if (const auto time = support::parseTimeOfDay(text)) {
        const QString shown = support::formatDate(QDateTime(QDate(2026, 11, 23), *time), u"hh:mm:ss am/pm");
        fuzzCheck(support::parseTimeOfDay(shown) == time);
    }
    const QDate date = news::NewsStories::storyDate(text);
    if (date.isValid()) {
        const QString shown = support::formatDate(QDateTime(date, QTime(0, 0)), u"mm/dd/yyyy");
        fuzzCheck(news::NewsStories::storyDate(shown) == date);
    }
    const QDateTime stamp = quotes::Qserver::stampDate(text, QDate(2026, 11, 23));
    support::generalDate(stamp);

    quotes::SequentialInput in(text);
    try {
        for (int i = 0; i < 64; ++i) {
            if (i % 2) {
                in.readInt16();
            } else {
                in.readString();
            }
        }
    } catch (const support::VbError& e) {
        allowed(e, {support::VbError::InputPastEnd, support::VbError::TypeMismatch, support::VbError::Overflow});
    }

    core::Quote quote;
    quote.setDigits(static_cast<qint16>(digits));
    quote.setHighLimit(100);
    quote.setLowLimit(10);
    quote.setHighChgLimit(5);
    quote.setVolumeLimit(1e6F);
    quote.setOpenPrice(text);
    quote.setPreviousClose(text);
    quote.setLast(text);
    quote.setChange(text);
    quote.setPercentChg(text);
    quote.setVolume(text);
    quote.Calc_PriceChg();
    quote.Calc_PricePercentChg();
    return 0;
}
