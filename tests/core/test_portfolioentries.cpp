#include "core/PortfolioEntries.h"

#include <QTest>

using namespace kestrova::core;
using kestrova::support::Currency;

namespace {

EntryInput goodInput()
{
    EntryInput in;
    in.type = 0;
    in.ticker = QStringLiteral("  ibm ");
    in.name = QStringLiteral(" International Business Machines ");
    in.shares = QStringLiteral("1,250");
    in.costBasis = QStringLiteral("98.1234");
    in.highLimit = QStringLiteral("150");
    in.lowLimit = QStringLiteral("90.5");
    in.highChgLimit = QStringLiteral("5");
    in.lowChgLimit = QStringLiteral("-5");
    in.volumeLimit = QStringLiteral("2,000,000");
    in.digits = 3;
    in.server = 12;
    return in;
}

} // namespace

class TestPortfolioEntries : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void goodEntryIsNormalised()
    {
        PortfolioRecord r;
        r.legacyOption = 1;
        QVERIFY(!parseEntry(goodInput(), r).has_value());
        QCOMPARE(r.ticker, QStringLiteral("ibm"));
        QCOMPARE(r.name, QStringLiteral("International Business Machines"));
        QCOMPARE(r.shares, 1250.0f);
        QCOMPARE(r.costBasis, Currency::fromTicks(981234));
        QCOMPARE(r.highLimit, 150.0f);
        QCOMPARE(r.lowLimit, 90.5f);
        QCOMPARE(r.lowChgLimit, -5.0f);
        QCOMPARE(r.volumeLimit, 2000000);
        QCOMPARE(r.legacyOption, qint16(0));
        QCOMPARE(r.server, qint16(12));
        // Typed back into the form, the record reads the same.
        PortfolioRecord again;
        QVERIFY(!parseEntry(EntryInput::fromRecord(r), again).has_value());
        QVERIFY(again == r);
    }

    void badField_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("message");
        // clang-format off
        QTest::newRow("no ticker") << "ticker" << "   " << "Ticker: a ticker is needed";
        QTest::newRow("ticker too long") << "ticker" << QString(22, u'X') << "Ticker: holds at most 21 characters";
        QTest::newRow("ticker with a quote") << "ticker" << "A\"B" << "Ticker: may not hold double quotes or line breaks";
        QTest::newRow("ticker outside the code page")
            << "ticker" << QStringLiteral("漢字")
            << QStringLiteral(
                   "Ticker: \"漢\" cannot be stored in the portfolio file, which holds Windows-1252 text only");
        QTest::newRow("price is text") << "high" << "12a" << "High Limit: \"12a\" is not a number.";
        QTest::newRow("negative price") << "low" << "-5" << "Low Limit: must be 0 (no limit) or a price above it";
        QTest::newRow("low above high") << "low" << "151" << "Low Limit: must be below the high limit.";
        QTest::newRow("bad grouping") << "shares" << "12,34" << "Shares: \"12,34\" is not a number.";
        QTest::newRow("cost is a sign alone") << "cost" << "-" << "Cost Basis: \"-\" is not a number.";
        QTest::newRow("low change above high") << "lowchg" << "6" << "Low % Change: must be below the high % change.";
        QTest::newRow("volume with decimals") << "volume" << "10.5" << "Volume Limit: enter a whole number of shares.";
        QTest::newRow("volume beyond 32 bits") << "volume" << "3000000000" << "Volume Limit: may not be above 2147483647.";
        // clang-format on
    }
    void badField()
    {
        QFETCH(QString, field);
        QFETCH(QString, value);
        QFETCH(QString, message);
        EntryInput in = goodInput();
        QString* target = field == QLatin1String("ticker")   ? &in.ticker
                          : field == QLatin1String("high")   ? &in.highLimit
                          : field == QLatin1String("low")    ? &in.lowLimit
                          : field == QLatin1String("shares") ? &in.shares
                          : field == QLatin1String("cost")   ? &in.costBasis
                          : field == QLatin1String("lowchg") ? &in.lowChgLimit
                                                             : &in.volumeLimit;
        *target = value;
        PortfolioRecord r;
        r.ticker = QStringLiteral("untouched");
        const auto problem = parseEntry(in, r);
        QVERIFY(problem.has_value());
        QCOMPARE(problem->message, message);
        QCOMPARE(r.ticker, QStringLiteral("untouched"));
    }

    void emptyLimitsMeanNone()
    {
        EntryInput in;
        in.ticker = QStringLiteral("MSFT");
        PortfolioRecord r;
        QVERIFY(!parseEntry(in, r).has_value());
        QCOMPARE(r.highLimit, 0.0f);
        QCOMPARE(r.volumeLimit, 0);
        QCOMPARE(EntryInput::fromRecord(r).highLimit, QString());
    }

    void tableChanges()
    {
        PortfolioTable t;
        PortfolioRecord r;
        for (int i = 0; i < PortfolioTable::kMaxInUse; ++i) {
            r.ticker = QStringLiteral("T%1").arg(i);
            QCOMPARE(addEntry(t, r), QString());
        }
        r.ticker = QStringLiteral("ONE MORE");
        QCOMPARE(addEntry(t, r), QStringLiteral("Too Many Tickers (50 Max)"));
        QCOMPARE(t.count, qint16(50));

        removeEntry(t, 0);
        r.ticker = QStringLiteral(" t7 ");
        QCOMPARE(addEntry(t, r), QStringLiteral("t7 is already in the portfolio."));
        QCOMPARE(replaceEntry(t, 0, r), QStringLiteral("t7 is already in the portfolio."));
        QCOMPARE(t.records[0].ticker, QStringLiteral("T1"));
        // An entry may keep its own ticker when it is edited.
        r.ticker = QStringLiteral("t1");
        QCOMPARE(replaceEntry(t, 0, r), QString());
        QCOMPARE(findEntry(t, QStringLiteral("T1")), 0);

        QVERIFY(moveEntry(t, 0, 1));
        QCOMPARE(t.records[1].ticker, QStringLiteral("t1"));
        QVERIFY(!moveEntry(t, 0, -1));
        QVERIFY(!moveEntry(t, 48, 1));
        removeEntry(t, 48);
        QCOMPARE(t.count, qint16(48));
        QCOMPARE(t.records[48].ticker, QString());
    }

    void holdingFigures_data()
    {
        QTest::addColumn<float>("shares");
        QTest::addColumn<QString>("cost");
        QTest::addColumn<float>("last"); // negative: no price known
        QTest::addColumn<bool>("priced");
        QTest::addColumn<QString>("market");
        QTest::addColumn<QString>("costValue");
        QTest::addColumn<QString>("gain");
        QTest::addColumn<QString>("percent");
        // clang-format off
        QTest::newRow("gain") << 10.0f << "5" << 6.0f << true << "60" << "50" << "10" << "20";
        QTest::newRow("loss") << 100.0f << "20.5" << 18.25f << true << "1825" << "2050" << "-225" << "-10.9756";
        QTest::newRow("no cost") << 10.0f << "0" << 6.0f << true << "60" << "0" << "60" << "0";
        QTest::newRow("no price yet") << 10.0f << "5" << -1.0f << false << "0" << "50" << "0" << "0";
        // clang-format on
    }
    void holdingFigures()
    {
        QFETCH(float, shares);
        QFETCH(QString, cost);
        QFETCH(float, last);
        QFETCH(bool, priced);
        QFETCH(QString, market);
        QFETCH(QString, costValue);
        QFETCH(QString, gain);
        QFETCH(QString, percent);
        const auto f = kestrova::core::holdingFigures(shares, Currency::fromDouble(cost.toDouble()),
                                                      last < 0 ? std::nullopt : std::optional<float>(last));
        QCOMPARE(f.priced, priced);
        QCOMPARE(f.marketValue.toString(), market);
        QCOMPARE(f.costValue.toString(), costValue);
        QCOMPARE(f.gain.toString(), gain);
        QCOMPARE(f.gainPercent.toString(), percent);
    }

    void holdingTooLargeIsNoCrash()
    {
        const auto f = kestrova::core::holdingFigures(3e38f, Currency::fromDouble(1e11), 1e30f);
        QVERIFY(f.overflow);
        QVERIFY(!f.priced);
    }
};

QTEST_GUILESS_MAIN(TestPortfolioEntries)
#include "test_portfolioentries.moc"
