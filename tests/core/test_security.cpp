#include "core/Quote.h"
#include "core/Quotes.h"
#include "core/Securities.h"
#include "core/Security.h"
#include "core/SecurityType.h"
#include "support/VbError.h"

#include <QTest>

#include <functional>

using namespace kestrova::core;
using kestrova::support::Currency;
using kestrova::support::VbError;

Q_DECLARE_METATYPE(std::function<void()>)

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

std::shared_ptr<Quote> holding(const QString& ticker, float shares, double cost, const QString& last)
{
    auto q = std::make_shared<Quote>();
    q->setTicker(ticker);
    q->setDigits(2);
    q->setShares(shares);
    q->setCostBasis(Currency::fromDouble(cost));
    q->setLast(last);
    return q;
}

} // namespace

class TestSecurity : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void typeNames_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        QTest::newRow("stock") << 0 << "Stock";
        QTest::newRow("option") << 1 << "Option";
        QTest::newRow("fund") << 2 << "Mutual Fund";
        QTest::newRow("future") << 3 << "Future";
        QTest::newRow("past the end") << 4 << "";
        QTest::newRow("negative") << -1 << "";
    }
    void typeNames()
    {
        QFETCH(int, code);
        QFETCH(QString, name);
        QCOMPARE(securityTypeName(qint16(code)), name);
    }

    void textFieldsAreTrimmed()
    {
        Security s;
        s.setTicker(QStringLiteral("  IBM \t"));
        s.setName(QStringLiteral(" Intl Business Machines "));
        s.setLast(QStringLiteral(" 105.25"));
        s.setUpdate(QStringLiteral("4:00pm  "));
        QCOMPARE(s.ticker(), QStringLiteral("IBM"));
        QCOMPARE(s.name(), QStringLiteral("Intl Business Machines"));
        QCOMPARE(s.last(), QStringLiteral("105.25"));
        QCOMPARE(s.update(), QStringLiteral("4:00pm"));
    }

    void limitsStayAsGiven()
    {
        // Only a Quote turns zero into "no limit"; the portfolio entry keeps what was typed.
        Security s;
        s.setHighLimit(0);
        s.setLowLimit(0);
        s.setHighChgLimit(0);
        s.setLowChgLimit(-2.5F);
        s.setHighVolumeLimit(0);
        QCOMPARE(s.highLimit(), 0.0F);
        QCOMPARE(s.lowLimit(), 0.0F);
        QCOMPARE(s.highChgLimit(), 0.0F);
        QCOMPARE(s.lowChgLimit(), -2.5F);
        QCOMPARE(s.highVolumeLimit(), 0.0F);
    }

    void entryCalculations_data()
    {
        QTest::addColumn<float>("shares");
        QTest::addColumn<double>("cost");
        QTest::addColumn<QString>("last");
        QTest::addColumn<double>("market");
        QTest::addColumn<double>("costValue");
        QTest::addColumn<float>("percent");
        // Percent divides by the cost of ONE share: (60 - 50) x 100 / 5.
        QTest::newRow("200 percent") << 10.0F << 5.0 << "6.00" << 60.0 << 50.0 << 200.0F;
        QTest::newRow("no cost") << 10.0F << 0.0 << "6.00" << 60.0 << 0.0 << 0.0F;
        QTest::newRow("loss") << 4.0F << 2.5 << "2" << 8.0 << 10.0 << -80.0F;
        QTest::newRow("part shares") << 2.5F << 4.0 << "4.4" << 11.0 << 10.0 << 25.0F;
        QTest::newRow("no price") << 3.0F << 1.0 << "n/a" << 0.0 << 3.0 << -300.0F;
    }
    void entryCalculations()
    {
        QFETCH(float, shares);
        QFETCH(double, cost);
        QFETCH(QString, last);
        QFETCH(double, market);
        QFETCH(double, costValue);
        QFETCH(float, percent);
        auto q = holding(QStringLiteral("X"), shares, cost, last);
        QCOMPARE(q->Calc_PercentChg(), 0.0F); // nothing calculated yet
        QCOMPARE(q->Calc_MarketValue(), Currency::fromDouble(market));
        QCOMPARE(q->Calc_CostBasis(), Currency::fromDouble(costValue));
        QCOMPARE(q->Calc_PercentChg(), percent);
    }

    void securityHasNoPriceOfItsOwn()
    {
        Security s;
        s.setShares(10);
        s.setCostBasis(Currency::fromDouble(5));
        s.setLast(QStringLiteral("6.00"));
        QCOMPARE(s.Calc_PercentChg(), 0.0F);
        QCOMPARE(s.Calc_MarketValue(), Currency());
        QCOMPARE(s.Calc_CostBasis(), Currency::fromDouble(50));
        QCOMPARE(s.Calc_PercentChg(), -1000.0F);
    }

    void overflowRaises()
    {
        auto q = holding(QStringLiteral("X"), 1e30F, 1.0, QStringLiteral("1"));
        QCOMPARE(errorNumber([&] { q->Calc_MarketValue(); }), int(VbError::Overflow));
        QCOMPARE(errorNumber([&] { q->Calc_CostBasis(); }), int(VbError::Overflow));
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
        QCOMPARE(col.Item(1), loose);
        int seen = 0;
        for (const auto& s : col) {
            QCOMPARE(s, loose);
            ++seen;
        }
        QCOMPARE(seen, 1);
    }

    void securitiesTotals()
    {
        // Entries have no price, so every position is a total loss: -100 percent of the
        // total cost (here the division really is by the total).
        Securities col;
        for (double cost : {5.0, 2.5}) {
            auto s = std::make_shared<Security>();
            s->setShares(10);
            s->setCostBasis(Currency::fromDouble(cost));
            col.Add(s);
        }
        QCOMPARE(col.Calc_PercentChg(), Currency());
        QCOMPARE(col.Calc_MarketValue(), Currency());
        QCOMPARE(col.Calc_CostValue(), Currency::fromDouble(75));
        QCOMPARE(col.Calc_PercentChg(), Currency::fromDouble(-100));
    }

    void quoteTotals_data()
    {
        QTest::addColumn<QList<double>>("rows"); // shares, cost, last per member
        QTest::addColumn<double>("market");
        QTest::addColumn<double>("cost");
        QTest::addColumn<double>("percent");
        QTest::newRow("empty") << QList<double>{} << 0.0 << 0.0 << 0.0;
        QTest::newRow("one gain") << QList<double>{10, 5, 6} << 60.0 << 50.0 << 20.0;
        QTest::newRow("gain offsets loss") << QList<double>{10, 5, 6, 20, 2.5, 2} << 100.0 << 100.0 << 0.0;
        QTest::newRow("worthless") << QList<double>{3, 1, 0, 0, 0, 0} << 0.0 << 3.0 << -100.0;
        QTest::newRow("repeating fraction") << QList<double>{3, 1, 1.5} << 4.5 << 3.0 << 50.0;
        QTest::newRow("rounded to currency") << QList<double>{3, 3, 3.01} << 9.03 << 9.0 << 0.3333;
    }
    void quoteTotals()
    {
        QFETCH(QList<double>, rows);
        QFETCH(double, market);
        QFETCH(double, cost);
        QFETCH(double, percent);
        Quotes set;
        for (qsizetype i = 0; i + 2 < rows.size(); i += 3) {
            set.Add(holding(QString::number(i), float(rows[i]), rows[i + 1], QString::number(rows[i + 2])));
        }
        QCOMPARE(set.Calc_MarketValue(), Currency::fromDouble(market));
        QCOMPARE(set.Calc_CostValue(), Currency::fromDouble(cost));
        QCOMPARE(set.Calc_PercentChg(), Currency::fromDouble(percent));
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
        QCOMPARE(set.Item(QStringLiteral("IBM")), a2);
        QCOMPARE(set.Item(2), a2);
        auto c = holding(QStringLiteral("T"), 1, 1, QStringLiteral("1"));
        QVERIFY(set.Update(c, QStringLiteral("T")));
        QCOMPARE(set.Count(), 3);

        Quotes viewer;
        viewer.Add(holding(QStringLiteral("OLD"), 1, 1, QStringLiteral("1")), QStringLiteral("OLD"));
        set.CopyObjects(viewer);
        QCOMPARE(viewer.Count(), 3);
        QCOMPARE(set.Count(), 3);
        QCOMPARE(viewer.Item(QStringLiteral("msft")), b); // the very same object
        QCOMPARE(viewer.Item(QStringLiteral("t")), c);
        QCOMPARE(errorNumber([&] { viewer.Item(QStringLiteral("OLD")); }), int(VbError::InvalidCall));

        // An unkeyed member is keyed by its ticker in the copy.
        auto loose = holding(QStringLiteral("LOOSE"), 1, 1, QStringLiteral("1"));
        set.Add(loose);
        set.CopyObjects(viewer);
        QCOMPARE(viewer.Item(QStringLiteral("Loose")), loose);

        set.Clear();
        QCOMPARE(set.Count(), 0);
        QVERIFY(!set.LimitPage());
        QCOMPARE(viewer.Count(), 4);
        QCOMPARE(errorNumber([&] { set.Remove(1); }), int(VbError::Subscript));
    }
};

QTEST_GUILESS_MAIN(TestSecurity)
#include "test_security.moc"
