#include "core/Quote.h"
#include "core/Quotes.h"

#include <QTest>

#include <functional>

using namespace kestrova::core;

namespace {

using Setter = void (Quote::*)(const QString&);
using Getter = QString (Quote::*)() const;

struct PriceField
{
    Setter set;
    Getter get;
};

PriceField priceField(const QString& name)
{
    static const QHash<QString, PriceField> fields{
        {"Last", {&Quote::setLast, &Quote::last}},
        {"Bid", {&Quote::setBid, &Quote::bid}},
        {"Ask", {&Quote::setAsk, &Quote::ask}},
        {"DayHigh", {&Quote::setDayHigh, &Quote::dayHigh}},
        {"DayLow", {&Quote::setDayLow, &Quote::dayLow}},
        {"YearHigh", {&Quote::setYearHigh, &Quote::yearHigh}},
        {"YearLow", {&Quote::setYearLow, &Quote::yearLow}},
        {"Change", {&Quote::setChange, &Quote::change}},
        {"OpenPrice", {&Quote::setOpenPrice, &Quote::openPrice}},
        {"PreviousClose", {&Quote::setPreviousClose, &Quote::previousClose}},
    };
    return fields.value(name);
}

} // namespace

class TestQuote : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void limitSentinels_data()
    {
        QTest::addColumn<QString>("limit");
        QTest::addColumn<float>("given");
        QTest::addColumn<float>("stored");
        QTest::newRow("high unset") << "High" << 0.0F << 9999999.0F;
        QTest::newRow("low unset") << "Low" << 0.0F << -999999.0F;
        QTest::newRow("high chg unset") << "HighChg" << 0.0F << 9999999.0F;
        QTest::newRow("low chg unset") << "LowChg" << 0.0F << -9999999.0F;
        QTest::newRow("volume unset") << "Volume" << 0.0F << 10000000000.0F;
        QTest::newRow("high set") << "High" << 50.5F << 50.5F;
        QTest::newRow("low negative") << "Low" << -1.0F << -1.0F;
        QTest::newRow("low chg set") << "LowChg" << -2.0F << -2.0F;
        QTest::newRow("volume set") << "Volume" << 1e6F << 1e6F;
    }
    void limitSentinels()
    {
        QFETCH(QString, limit);
        QFETCH(float, given);
        QFETCH(float, stored);
        Quote q;
        const QHash<QString, std::pair<void (Quote::*)(float), float (Quote::*)() const>> access{
            {"High", {&Quote::setHighLimit, &Quote::highLimit}},
            {"Low", {&Quote::setLowLimit, &Quote::lowLimit}},
            {"HighChg", {&Quote::setHighChgLimit, &Quote::highChgLimit}},
            {"LowChg", {&Quote::setLowChgLimit, &Quote::lowChgLimit}},
            {"Volume", {&Quote::setVolumeLimit, &Quote::volumeLimit}},
        };
        const auto [set, get] = access.value(limit);
        (q.*set)(given);
        QCOMPARE((q.*get)(), stored);
    }

    void priceRule_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("digitsAfter");
        QTest::newRow("fraction with whole") << "Last" << 3 << "45 3/8"
                                             << "45.375" << 3;
        QTest::newRow("fraction alone") << "Bid" << 2 << "3/8"
                                        << "0.38" << 2;
        QTest::newRow("negative fraction") << "Change" << 2 << "-1 1/4"
                                           << "-1.25" << 2;
        QTest::newRow("fraction zero denominator") << "Ask" << 2 << "5 1/0"
                                                   << "5.00" << 2;
        QTest::newRow("n/a kept") << "DayHigh" << 2 << " n/a "
                                  << "n/a" << 2;
        QTest::newRow("unset digits become 2") << "Bid" << -1 << "3"
                                               << "3.00" << 2;
        QTest::newRow("n/a still fixes digits") << "Ask" << -5 << "n/a"
                                                << "n/a" << 2;
        QTest::newRow("zero digits trailing point") << "DayLow" << 0 << "45"
                                                    << "45." << 0;
        QTest::newRow("zero digits rounds") << "YearHigh" << 0 << "45.5"
                                            << "46." << 0;
        QTest::newRow("trailing words") << "YearLow" << 1 << "  12.34 USD"
                                        << "12.3" << 1;
        QTest::newRow("grouped number reads leading part") << "OpenPrice" << 2 << "1,234.5"
                                                           << "1.00" << 2;
        QTest::newRow("empty") << "PreviousClose" << 2 << ""
                               << "0.00" << 2;
        QTest::newRow("garbage") << "Last" << 2 << "<b>"
                                 << "0.00" << 2;
        QTest::newRow("no grouping") << "Last" << 2 << "12345.678"
                                     << "12345.68" << 2;
        QTest::newRow("explicit plus") << "Change" << 2 << "+0.5"
                                       << "0.50" << 2;
    }
    void priceRule()
    {
        QFETCH(QString, field);
        QFETCH(int, digits);
        QFETCH(QString, text);
        QFETCH(QString, stored);
        QFETCH(int, digitsAfter);
        const PriceField f = priceField(field);
        QVERIFY(f.set);
        Quote q;
        q.setDigits(qint16(digits));
        (q.*f.set)(text);
        QCOMPARE((q.*f.get)(), stored);
        QCOMPARE(int(q.digits()), digitsAfter);
    }

    void lastKeepsItsValue_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<float>("value");
        QTest::newRow("fraction, two digits") << "45 3/8" << 45.38F;
        QTest::newRow("n/a") << "n/a" << 0.0F;
        QTest::newRow("rounded first") << "1.006" << 1.01F;
    }
    void lastKeepsItsValue()
    {
        QFETCH(QString, text);
        QFETCH(float, value);
        Quote q;
        q.setDigits(2);
        q.setLast(text);
        QCOMPARE(q.lastValue(), value);
    }

    void percentText_data()
    {
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("stored");
        QTest::newRow("suffix") << 2 << "+1.25%"
                                << "1.25";
        QTest::newRow("suffix and more") << 2 << " -0.7 % today"
                                         << "-0.70";
        QTest::newRow("leading percent stays") << 2 << "%1.5"
                                               << "0.00";
        QTest::newRow("second percent cuts") << 2 << "%1.5%"
                                             << "0.00";
        QTest::newRow("no percent") << 1 << "3.46"
                                    << "3.5";
        QTest::newRow("n/a") << 2 << "n/a%"
                             << "n/a";
        QTest::newRow("fraction") << 3 << "1/8%"
                                  << "0.125";
    }
    void percentText()
    {
        QFETCH(int, digits);
        QFETCH(QString, text);
        QFETCH(QString, stored);
        Quote q;
        q.setDigits(qint16(digits));
        q.setPercentChg(text);
        QCOMPARE(q.percentChg(), stored);
    }

    void volumeText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("stored");
        QTest::newRow("grouped") << "1,234,567"
                                 << "1234567";
        QTest::newRow("blanks") << "  42 "
                                << "42";
        QTest::newRow("n/a") << "n/a"
                             << "0";
        QTest::newRow("empty") << ""
                               << "0";
        QTest::newRow("largest") << "2,147,483,647"
                                 << "2147483647";
        QTest::newRow("overflow") << "2147483648"
                                  << "0";
        QTest::newRow("huge") << "99999999999999999999999"
                              << "0";
        QTest::newRow("smallest") << "-2147483648"
                                  << "-2147483648";
        QTest::newRow("plus sign") << "+7"
                                   << "7";
        QTest::newRow("half to even down") << "2.5"
                                           << "2";
        QTest::newRow("half to even up") << "3.5"
                                         << "4";
        QTest::newRow("suffix") << "1.2M"
                                << "0";
        QTest::newRow("sign only") << "-"
                                   << "0";
        QTest::newRow("inner blank") << "12 000"
                                     << "0";
    }
    void volumeText()
    {
        QFETCH(QString, text);
        QFETCH(QString, stored);
        Quote q;
        q.setVolume(text);
        QCOMPARE(q.volume(), stored);
    }

    void ratioText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("stored");
        QTest::newRow("n/a") << " n/a"
                             << "n/a";
        QTest::newRow("two decimals") << "1.5"
                                      << "1.50";
        QTest::newRow("rounds") << "-0.456"
                                << "-0.46";
        QTest::newRow("below one") << ".5x"
                                   << "0.50";
        QTest::newRow("garbage") << "N/A"
                                 << "0.00";
        QTest::newRow("large") << "12345.6"
                               << "12345.60";
    }
    void ratioText()
    {
        QFETCH(QString, text);
        QFETCH(QString, stored);
        Quote q;
        q.setDigits(-1); // ratios ignore the price digits and must not touch them
        q.setEPS(text);
        q.setPE(text);
        QCOMPARE(q.eps(), stored);
        QCOMPARE(q.pe(), stored);
        QCOMPARE(int(q.digits()), -1);
    }

    void priceChanges_data()
    {
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("last");
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("previous");
        QTest::addColumn<float>("priceChg");
        QTest::addColumn<float>("pricePct");
        QTest::newRow("up") << 2 << "105.25"
                            << "5.15"
                            << "100.10" << 5.15F << float(5.15 * 100 / 100.1);
        QTest::newRow("down") << 3 << "99"
                              << "-1.125"
                              << "100.125" << -1.125F << float(-1.125 * 100 / 100.125);
        QTest::newRow("down to two digits") << 2 << "99"
                                            << "-1"
                                            << "100.125" << -1.13F << float(-100 / 100.13);
        QTest::newRow("zero digits") << 0 << "10.4"
                                     << "0"
                                     << "5" << 5.0F << 0.0F;
        QTest::newRow("no previous close") << 2 << "10"
                                           << "1"
                                           << "0" << 0.0F << 0.0F;
        QTest::newRow("previous close n/a") << 2 << "10"
                                            << "1"
                                            << "n/a" << 0.0F << 0.0F;
        QTest::newRow("unchanged") << 2 << "7.25"
                                   << "0"
                                   << "7.25" << 0.0F << 0.0F;
    }
    void priceChanges()
    {
        QFETCH(int, digits);
        QFETCH(QString, last);
        QFETCH(QString, change);
        QFETCH(QString, previous);
        QFETCH(float, priceChg);
        QFETCH(float, pricePct);
        Quote q;
        q.setDigits(qint16(digits));
        q.setLast(last);
        q.setChange(change);
        q.setPreviousClose(previous);
        QCOMPARE(q.Calc_PriceChg(), priceChg);
        QCOMPARE(q.Calc_PricePercentChg(), pricePct);
    }

    void priceChangeFixesUnsetDigits()
    {
        Quote q;
        q.setDigits(-1);
        QVERIFY(q.last().isEmpty());
        QCOMPARE(q.Calc_PriceChg(), 0.0F);
        QCOMPARE(int(q.digits()), 2);
    }
};

QTEST_GUILESS_MAIN(TestQuote)
#include "test_quote.moc"
