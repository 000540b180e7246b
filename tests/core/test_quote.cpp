#include "core/Quote.h"
#include "core/Quotes.h"

#include <QTest>

using namespace kestrova::core;

namespace {

using Setter = void (Quote::*)(const QString&);
using Getter = QString (Quote::*)() const;

std::pair<Setter, Getter> field(const QString& name)
{
    static const QHash<QString, std::pair<Setter, Getter>> fields{
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
        {"PercentChg", {&Quote::setPercentChg, &Quote::percentChg}},
        {"Volume", {&Quote::setVolume, &Quote::volume}},
        {"EPS", {&Quote::setEPS, &Quote::eps}},
        {"PE", {&Quote::setPE, &Quote::pe}},
    };
    return fields.value(name);
}

// The alarm flags of a quote as letters: H high, L low, C high change, D low change,
// V volume, N new alarm.
QString flags(const Quote& q)
{
    QString f;
    f += q.highAlarm() ? "H" : "";
    f += q.lowAlarm() ? "L" : "";
    f += q.highChgAlarm() ? "C" : "";
    f += q.lowChgAlarm() ? "D" : "";
    f += q.volumeAlarm() ? "V" : "";
    f += q.newLimit() ? "N" : "";
    return f;
}

} // namespace

class TestQuote : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void unsetLimitsReadBackAsSentinels()
    {
        Quote q;
        q.setHighLimit(0);
        q.setLowLimit(0);
        q.setHighChgLimit(0);
        q.setLowChgLimit(0);
        q.setVolumeLimit(0);
        QCOMPARE(q.highLimit(), 9999999.0F);
        QCOMPARE(q.lowLimit(), -999999.0F);
        QCOMPARE(q.highChgLimit(), 9999999.0F);
        QCOMPARE(q.lowChgLimit(), -9999999.0F);
        QCOMPARE(q.volumeLimit(), 10000000000.0F);
        q.setLowLimit(-1);
        QCOMPARE(q.lowLimit(), -1.0F);
    }

    void fieldText_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("digitsAfter");
        // clang-format off
        QTest::newRow("fraction with whole") << "Last" << 3 << "45 3/8" << "45.375" << 3;
        QTest::newRow("fraction alone") << "Bid" << 2 << "3/8" << "0.38" << 2;
        QTest::newRow("negative fraction") << "Change" << 2 << "-1 1/4" << "-1.25" << 2;
        QTest::newRow("unset digits become 2") << "Bid" << -1 << "3" << "3.00" << 2;
        QTest::newRow("n/a still fixes digits") << "Ask" << -5 << "n/a" << "n/a" << 2;
        QTest::newRow("zero digits, trailing point") << "DayLow" << 0 << "45" << "45." << 0;
        QTest::newRow("zero digits rounds") << "YearHigh" << 0 << "45.5" << "46." << 0;
        QTest::newRow("trailing words") << "YearLow" << 1 << "  12.34 USD" << "12.3" << 1;
        QTest::newRow("grouping stops the number") << "OpenPrice" << 2 << "1,234.5" << "1.00" << 2;
        QTest::newRow("empty") << "PreviousClose" << 2 << "" << "0.00" << 2;
        QTest::newRow("percent suffix") << "PercentChg" << 2 << "+1.25%" << "1.25" << 2;
        QTest::newRow("leading percent stays") << "PercentChg" << 2 << "%1.5" << "0.00" << 2;
        QTest::newRow("percent n/a") << "PercentChg" << -1 << "n/a%" << "n/a" << 2;
        QTest::newRow("volume grouped") << "Volume" << 2 << " 1,234,567 " << "1234567" << 2;
        QTest::newRow("volume n/a") << "Volume" << 2 << "n/a" << "0" << 2;
        QTest::newRow("volume largest") << "Volume" << 2 << "2,147,483,647" << "2147483647" << 2;
        // A number past what the field holds is not known as a number: "n/a", never 0.
        QTest::newRow("volume overflow") << "Volume" << 2 << "2147483648" << "n/a" << 2;
        QTest::newRow("volume huge") << "Volume" << 2 << "99999999999999999999999" << "n/a" << 2;
        QTest::newRow("volume past a double") << "Volume" << 2 << QString(400, u'9') << "n/a" << 2;
        QTest::newRow("price past what can be shown") << "Last" << 2 << u'1' + QString(308, u'0') << "n/a" << 2;
        QTest::newRow("negative price past it") << "Bid" << 2 << "-1" + QString(20, u'0') << "n/a" << 2;
        QTest::newRow("largest price shown") << "Ask" << 0 << QString(15, u'9') << QString(15, u'9') + u'.' << 0;
        QTest::newRow("percent past it") << "PercentChg" << 2 << "1" + QString(20, u'0') + u'%' << "n/a" << 2;
        QTest::newRow("eps past it") << "EPS" << 2 << "1" + QString(20, u'0') << "n/a" << 2;
        QTest::newRow("volume smallest") << "Volume" << 2 << "-2147483648" << "-2147483648" << 2;
        QTest::newRow("volume half up") << "Volume" << 2 << "3.5" << "4" << 2;
        QTest::newRow("volume suffix") << "Volume" << 2 << "1.2M" << "0" << 2;
        QTest::newRow("eps n/a") << "EPS" << -1 << " n/a" << "n/a" << -1;
        QTest::newRow("eps two decimals") << "EPS" << -1 << "1.5" << "1.50" << -1;
        QTest::newRow("pe rounds") << "PE" << 0 << "-0.456" << "-0.46" << 0;
        // clang-format on
    }
    void fieldText()
    {
        QFETCH(QString, name);
        QFETCH(int, digits);
        QFETCH(QString, text);
        QFETCH(QString, stored);
        QFETCH(int, digitsAfter);
        const auto [set, get] = field(name);
        QVERIFY(set);
        Quote q;
        q.setDigits(qint16(digits));
        (q.*set)(text);
        QCOMPARE((q.*get)(), stored);
        QCOMPARE(int(q.digits()), digitsAfter);
    }

    // Columns: digits, last, change, previous close -> price change, price percent change,
    // and the change and percent change a source that gives neither ends up with.
    void priceChanges_data()
    {
        QTest::addColumn<QStringList>("in");
        QTest::addColumn<float>("priceChg");
        QTest::addColumn<float>("pricePct");
        QTest::addColumn<QString>("derived");
        QTest::addColumn<QString>("derivedPct");
        // clang-format off
        QTest::newRow("up") << QStringList{"2", "105.25", "5.15", "100.10"} << 5.15F << float(515 / 100.1) << "5.15" << "5.1";
        QTest::newRow("rounded to digits") << QStringList{"2", "99", "-1", "100.125"} << -1.13F << float(-100 / 100.13) << "-1.13" << "-1.1";
        QTest::newRow("zero digits") << QStringList{"0", "10.4", "0", "5"} << 5.0F << 0.0F << "5." << "100.0";
        QTest::newRow("no previous close") << QStringList{"2", "10", "1", "0"} << 0.0F << 0.0F << "n/a" << "n/a";
        QTest::newRow("previous close n/a") << QStringList{"-1", "10", "1", "n/a"} << 0.0F << 0.0F << "n/a" << "n/a";
        QTest::newRow("previous close ???") << QStringList{"2", "10", "1", "???"} << 0.0F << 0.0F << "n/a" << "n/a";
        QTest::newRow("a change in the millions") << QStringList{"2", "30000000", "0", "10000000"} << 2e7F << 0.0F << "20000000.00" << "200.0";
        // clang-format on
    }
    void priceChanges()
    {
        QFETCH(QStringList, in);
        QFETCH(float, priceChg);
        QFETCH(float, pricePct);
        QFETCH(QString, derived);
        QFETCH(QString, derivedPct);
        Quote q;
        q.setDigits(qint16(in[0].toInt()));
        q.setLast(in[1]);
        q.setChange(in[2]);
        q.setPreviousClose(in[3]);
        QCOMPARE(q.Calc_PriceChg(), priceChg);
        QCOMPARE(q.Calc_PricePercentChg(), pricePct);
        q.setChange(q.changeFromPreviousClose());
        QCOMPARE(q.change(), derived);
        QCOMPARE(q.percentFromPreviousClose(), derivedPct);
    }

    // setup: limits as Name=value, "+L" presets LowAlarm, Digits=n; then one field write.
    void alarms_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("result");
        // clang-format off
        QTest::newRow("no limits") << "" << "Last" << "50" << "";
        QTest::newRow("high inclusive") << "High=50" << "Last" << "50" << "HN";
        QTest::newRow("low inclusive") << "Low=40" << "Last" << "40" << "LN";
        QTest::newRow("fraction reaches low") << "Low=40.5" << "Last" << "40 1/2" << "LN";
        QTest::newRow("zero price keeps low") << "Low=40 +L" << "Last" << "0" << "L";
        QTest::newRow("n/a price raises nothing") << "Low=40" << "Last" << "n/a" << "";
        QTest::newRow("price clears low") << "Low=40 +L" << "Last" << "41" << "";
        QTest::newRow("preset low is not new") << "Low=40 +L" << "Last" << "39" << "L";
        QTest::newRow("both price alarms") << "High=50 Low=60" << "Last" << "55" << "HLN";
        QTest::newRow("negative price") << "Low=-1" << "Last" << "-1 1/4" << "LN";
        QTest::newRow("change inclusive") << "HighChg=5" << "PercentChg" << "5%" << "CN";
        QTest::newRow("stored text decides") << "HighChg=5 Digits=0" << "PercentChg" << "4.6%" << "CN";
        QTest::newRow("low change inclusive") << "LowChg=-2" << "PercentChg" << "-2%" << "DN";
        QTest::newRow("no exemption for 0") << "LowChg=1" << "PercentChg" << "%7" << "DN";
        QTest::newRow("volume inclusive") << "Volume=1000000" << "Volume" << "1,000,000" << "VN";
        QTest::newRow("unset volume limit") << "" << "Volume" << "2147483647" << "";
        QTest::newRow("unreadable volume") << "Volume=1" << "Volume" << "3000000000" << "";
        // An unknown change, or a price that cannot be shown, is beyond no limit.
        QTest::newRow("unknown change, low limit above 0") << "LowChg=1" << "PercentChg" << "n/a" << "";
        QTest::newRow("unknown change, high limit below 0") << "HighChg=-1" << "PercentChg" << "n/a" << "";
        QTest::newRow("change past range") << "LowChg=1" << "PercentChg" << "-1" + QString(20, u'0') << "";
        QTest::newRow("price past range") << "High=50" << "Last" << "1" + QString(20, u'0') << "";
        // clang-format on
    }
    void alarms()
    {
        QFETCH(QString, setup);
        QFETCH(QString, name);
        QFETCH(QString, text);
        QFETCH(QString, result);
        Quote q;
        q.setDigits(2);
        for (const QString& item : setup.split(u' ', Qt::SkipEmptyParts)) {
            const float v = item.section(u'=', 1).toFloat();
            const QString key = item.section(u'=', 0, 0);
            if (key == "High")
                q.setHighLimit(v);
            else if (key == "Low")
                q.setLowLimit(v);
            else if (key == "HighChg")
                q.setHighChgLimit(v);
            else if (key == "LowChg")
                q.setLowChgLimit(v);
            else if (key == "Volume")
                q.setVolumeLimit(v);
            else if (key == "Digits")
                q.setDigits(qint16(v));
            else if (key == "+L")
                q.setLowAlarm(true);
            else
                QFAIL(qPrintable(item));
        }
        (q.*field(name).first)(text);
        QCOMPARE(flags(q), result);
    }

    void newLimitOnlyOnSwitchOn()
    {
        Quote q;
        q.setDigits(2);
        q.setHighLimit(50);
        q.setLast(QStringLiteral("60"));
        q.setLast(QStringLiteral("61"));
        QCOMPARE(flags(q), QStringLiteral("HN")); // never cleared by a test
        q.setNewLimit(false);
        q.setLast(QStringLiteral("62"));
        QCOMPARE(flags(q), QStringLiteral("H")); // still on: nothing new
        q.setLast(QStringLiteral("10"));
        q.setLast(QStringLiteral("50"));
        QCOMPARE(flags(q), QStringLiteral("HN")); // off, then on again
    }

    void newLimitPage()
    {
        Quotes set;
        QVERIFY(!set.NewLimitPage());
        auto a = set.Add(std::make_shared<Quote>(), QStringLiteral("A"));
        auto b = set.Add(std::make_shared<Quote>(), QStringLiteral("B"));
        QVERIFY(!set.NewLimitPage());
        a->setNewLimit(true);
        QVERIFY(set.NewLimitPage()); // a later quiet member does not reset it
        a->setNewLimit(false);
        QVERIFY(!set.NewLimitPage());
        b->setVolumeLimit(5);
        b->setVolume(QStringLiteral("5"));
        QVERIFY(set.NewLimitPage());
    }
};

QTEST_GUILESS_MAIN(TestQuote)
#include "test_quote.moc"
