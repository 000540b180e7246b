#include "core/Quotes.h"
#include "core/Securities.h"
#include "support/VbError.h"

#include <QTest>

#include <functional>

using namespace kestrova::core;
using kestrova::support::Currency;
using kestrova::support::VbError;

namespace {

int errorNumber(const std::function<void()>& f)
{
    try {
        f();
    } catch (const VbError& e) {
        return e.number();
    }
    return 0;
}

std::shared_ptr<Quote> holding(const QString& ticker, double shares, double cost, const QString& last)
{
    auto q = std::make_shared<Quote>();
    q->setTicker(ticker);
    q->setDigits(2);
    q->setShares(float(shares));
    q->setCostBasis(Currency::fromDouble(cost));
    q->setLast(last);
    return q;
}

} // namespace

class TestSecurity : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void entryStoresAsGiven()
    {
        Security s;
        s.setTicker(QStringLiteral("  IBM \t"));
        s.setName(QStringLiteral(" Intl Business Machines "));
        s.setHighLimit(0); // only a Quote turns zero into "no limit"
        s.setLowChgLimit(0);
        QCOMPARE(s.ticker(), QStringLiteral("IBM"));
        QCOMPARE(s.name(), QStringLiteral("Intl Business Machines"));
        QCOMPARE(s.highLimit(), 0.0F);
        QCOMPARE(s.lowChgLimit(), 0.0F);
        // An entry has no price of its own: a total loss against one share's cost.
        s.setShares(10);
        s.setCostBasis(Currency::fromDouble(5));
        s.setLast(QStringLiteral("6.00"));
        QCOMPARE(s.Calc_MarketValue(), Currency());
        QCOMPARE(s.Calc_CostBasis(), Currency::fromDouble(50));
        QCOMPARE(s.Calc_PercentChg(), -1000.0F);
    }

    // Columns: shares, cost of one share, last price -> market value, cost value, percent.
    void holdingCalculations_data()
    {
        QTest::addColumn<QList<double>>("in");
        QTest::addColumn<QList<double>>("out");
        // clang-format off
        QTest::newRow("divides by one share") << QList<double>{10, 5, 6} << QList<double>{60, 50, 200};
        QTest::newRow("no cost") << QList<double>{10, 0, 6} << QList<double>{60, 0, 0};
        QTest::newRow("loss") << QList<double>{4, 2.5, 2} << QList<double>{8, 10, -80};
        QTest::newRow("part shares") << QList<double>{2.5, 4, 4.4} << QList<double>{11, 10, 25};
        // clang-format on
    }
    void holdingCalculations()
    {
        QFETCH(QList<double>, in);
        QFETCH(QList<double>, out);
        auto q = holding(QStringLiteral("X"), in[0], in[1], QString::number(in[2]));
        QCOMPARE(q->Calc_PercentChg(), 0.0F); // nothing calculated yet
        QCOMPARE(q->Calc_MarketValue(), Currency::fromDouble(out[0]));
        QCOMPARE(q->Calc_CostBasis(), Currency::fromDouble(out[1]));
        QCOMPARE(q->Calc_PercentChg(), float(out[2]));
    }

    void overflowRaises()
    {
        auto q = holding(QStringLiteral("X"), 1e30, 1.0, QStringLiteral("1"));
        QCOMPARE(errorNumber([&] { q->Calc_MarketValue(); }), int(VbError::Overflow));
        QCOMPARE(errorNumber([&] { q->Calc_CostBasis(); }), int(VbError::Overflow));
    }

    // Members as shares, cost, last triples -> total market, total cost, percent of total cost.
    void setTotals_data()
    {
        QTest::addColumn<QList<double>>("rows");
        QTest::addColumn<QList<double>>("totals");
        // clang-format off
        QTest::newRow("empty") << QList<double>{} << QList<double>{0, 0, 0};
        QTest::newRow("one gain") << QList<double>{10, 5, 6} << QList<double>{60, 50, 20};
        QTest::newRow("gain offsets loss") << QList<double>{10, 5, 6, 20, 2.5, 2} << QList<double>{100, 100, 0};
        QTest::newRow("rounded to currency") << QList<double>{3, 3, 3.01} << QList<double>{9.03, 9, 0.3333};
        // clang-format on
    }
    void setTotals()
    {
        QFETCH(QList<double>, rows);
        QFETCH(QList<double>, totals);
        Quotes set;
        Securities entries;
        for (qsizetype i = 0; i + 2 < rows.size(); i += 3) {
            set.Add(holding(QString::number(i), rows[i], rows[i + 1], QString::number(rows[i + 2])));
            auto s = std::make_shared<Security>();
            s->setShares(float(rows[i]));
            s->setCostBasis(Currency::fromDouble(rows[i + 1]));
            entries.Add(s);
        }
        QCOMPARE(set.Calc_MarketValue(), Currency::fromDouble(totals[0]));
        QCOMPARE(set.Calc_CostValue(), Currency::fromDouble(totals[1]));
        QCOMPARE(set.Calc_PercentChg(), Currency::fromDouble(totals[2]));
        // Entries carry no price: every non-empty portfolio is down 100 percent.
        QCOMPARE(entries.Calc_MarketValue(), Currency());
        QCOMPARE(entries.Calc_CostValue(), Currency::fromDouble(totals[1]));
        QCOMPARE(entries.Calc_PercentChg(), Currency::fromDouble(totals[1] > 0 ? -100 : 0));
    }

    void securitiesCollection()
    {
        Securities col;
        auto ibm = std::make_shared<Security>();
        auto dup = std::make_shared<Security>();
        auto loose = std::make_shared<Security>();
        QCOMPARE(col.Add(ibm, QStringLiteral("IBM")), ibm);
        QCOMPARE(col.Add(dup, QStringLiteral("ibm")), dup); // refused, still handed back
        QCOMPARE(col.Add(loose), loose);
        QCOMPARE(col.Count(), 2);
        QCOMPARE(col.Item(QStringLiteral("Ibm")), ibm);
        QCOMPARE(col.Item(2), loose);
        QCOMPARE(errorNumber([&] { col.Item(QString()); }), int(VbError::InvalidCall));
        QCOMPARE(errorNumber([&] { col.Item(3); }), int(VbError::Subscript));
        QCOMPARE(errorNumber([&] { col.Remove(QStringLiteral("MSFT")); }), int(VbError::InvalidCall));
        col.Remove(1);
        QCOMPARE(col.Count(), 1);
        QCOMPARE(*col.begin(), loose);
    }

    void quotesCollection()
    {
        Quotes set;
        auto a = holding(QStringLiteral("IBM"), 1, 1, QStringLiteral("1"));
        auto b = holding(QStringLiteral("MSFT"), 1, 1, QStringLiteral("1"));
        set.Add(a, QStringLiteral("IBM"));
        set.Add(b, QStringLiteral("MSFT"));
        QVERIFY(!set.Update(b, QString()));
        QCOMPARE(set.Count(), 2);
        QCOMPARE(set.Item(1), a);

        // Replacing moves the member to the end under the same key.
        auto a2 = holding(QStringLiteral("IBM"), 2, 1, QStringLiteral("1"));
        QVERIFY(set.Update(a2, QStringLiteral("ibm")));
        QCOMPARE(set.Count(), 2);
        QCOMPARE(set.Item(2), a2);
        auto c = holding(QStringLiteral("T"), 1, 1, QStringLiteral("1"));
        QVERIFY(set.Update(c, QStringLiteral("T")));
        QCOMPARE(set.Count(), 3);
        set.Add(holding(QStringLiteral("LOOSE"), 1, 1, QStringLiteral("1")));

        // The viewer gets the very same objects, keyed by ticker, and loses what it had.
        Quotes viewer;
        viewer.Add(holding(QStringLiteral("OLD"), 1, 1, QStringLiteral("1")), QStringLiteral("OLD"));
        set.CopyObjects(viewer);
        QCOMPARE(viewer.Count(), 4);
        QCOMPARE(viewer.Item(QStringLiteral("msft")), b);
        QCOMPARE(viewer.Item(QStringLiteral("Loose")), set.Item(4));
        QCOMPARE(errorNumber([&] { viewer.Item(QStringLiteral("OLD")); }), int(VbError::InvalidCall));

        set.Clear();
        QCOMPARE(set.Count(), 0);
        QCOMPARE(viewer.Count(), 4);
        QCOMPARE(errorNumber([&] { set.Remove(1); }), int(VbError::Subscript));
    }
};

QTEST_GUILESS_MAIN(TestSecurity)
#include "test_security.moc"
