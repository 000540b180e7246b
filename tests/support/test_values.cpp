#include "support/Cp1252.h"
#include "support/Currency.h"
#include "support/KeyedCollection.h"
#include "support/VbError.h"

#include <QTest>

using namespace kestrova::support;

namespace {

template <class F> int errorNumber(F&& f)
{
    try {
        f();
    } catch (const VbError& e) {
        return e.number();
    }
    return 0;
}

} // namespace

class TestValues : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void currencyRounding_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<qint64>("ticks");
        QTest::newRow("exact") << 60.0 << qint64(600000);
        QTest::newRow("half to even down") << 0.00005 << qint64(0);
        QTest::newRow("half to even up") << 0.00015 << qint64(2);
        QTest::newRow("negative") << -12.34567 << qint64(-123457);
    }
    void currencyRounding()
    {
        QFETCH(double, value);
        QFETCH(qint64, ticks);
        QCOMPARE(Currency::fromDouble(value).ticks(), ticks);
    }

    void currencyOverflowRaises()
    {
        QCOMPARE(errorNumber([] { Currency::fromDouble(1e300); }), int(VbError::Overflow));
        const Currency big = Currency::fromTicks(std::numeric_limits<qint64>::max() - 1);
        QCOMPARE(errorNumber([&] { (void)(big + Currency::fromTicks(2)); }), int(VbError::Overflow));
        QCOMPARE(errorNumber([&] { (void)(big * 100); }), int(VbError::Overflow));
        QCOMPARE((Currency::fromDouble(60) - Currency::fromDouble(50)).toString(), QStringLiteral("10"));
    }

    void collection()
    {
        KeyedCollection<QString> c;
        c.add(std::make_shared<QString>(QStringLiteral("ibm")), QStringLiteral("IBM"));
        c.add(std::make_shared<QString>(QStringLiteral("unkeyed")));
        QCOMPARE(*c.item(QStringLiteral("ibm")), QStringLiteral("ibm")); // keys ignore case
        QCOMPARE(*c.item(2), QStringLiteral("unkeyed"));
        QCOMPARE(c.indexOf(QString()), 0);
        QCOMPARE(errorNumber([&] { c.add(std::make_shared<QString>(), QStringLiteral("Ibm")); }),
                 int(VbError::DuplicateKey));
        QCOMPARE(c.count(), 2);
        QCOMPARE(errorNumber([&] { c.item(3); }), int(VbError::Subscript));
        QCOMPARE(errorNumber([&] { c.remove(QStringLiteral("MSFT")); }), int(VbError::InvalidCall));
        c.remove(QStringLiteral("IBM"));
        QStringList order;
        for (const auto& s : c) {
            order << *s;
        }
        QCOMPARE(order, QStringList{QStringLiteral("unkeyed")});
    }

    void cp1252RoundTripsEveryByte()
    {
        QByteArray all;
        for (int b = 0; b < 256; ++b) {
            all.append(static_cast<char>(b));
        }
        const QString text = decodeCp1252(all);
        QCOMPARE(text.size(), 256);
        QCOMPARE(text.at(0x80), QChar(0x20AC));
        QCOMPARE(encodeCp1252(text), all);
        QCOMPARE(encodeCp1252(QStringLiteral("\u4e2d")), QByteArray("?"));
    }
};

QTEST_GUILESS_MAIN(TestValues)
#include "test_values.moc"
