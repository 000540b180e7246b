#include "support/Format.h"

#include <QTest>

#include <cmath>
#include <limits>

using namespace kestrova::support;

class TestFormat : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void numbers_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QString>("expected");
        // clang-format off
        QTest::newRow("price 2") << 105.25 << "####0.00" << "105.25";
        QTest::newRow("price pads") << 3.0 << "####0.00" << "3.00";
        QTest::newRow("price rounds half up") << 1.005 << "####0.00" << "1.01";
        QTest::newRow("price negative") << -1.25 << "####0.00" << "-1.25";
        QTest::newRow("zero digits keeps point") << 45.0 << "####0." << "45.";
        QTest::newRow("three digits") << 45.375 << "####0.000" << "45.375";
        QTest::newRow("small keeps int zero") << 0.5 << "####0.00" << "0.50";
        QTest::newRow("signed positive") << 1.5 << "+0.00;-0.00" << "+1.50";
        QTest::newRow("signed negative") << -1.5 << "+0.00;-0.00" << "-1.50";
        QTest::newRow("signed zero") << 0.0 << "+0.00;-0.00" << "+0.00";
        QTest::newRow("summary change") << 12.46 << "+0.0;-0.0" << "+12.5";
        QTest::newRow("one decimal") << 2.25 << "###0.0" << "2.3";
        QTest::newRow("no int digit") << 0.5 << "###.0" << ".5";
        QTest::newRow("percent limit") << 5.0 << "###.0" << "5.0";
        QTest::newRow("grouping") << 1000000.0 << "#,##0" << "1,000,000";
        QTest::newRow("grouping small") << 999.0 << "#,##0" << "999";
        QTest::newRow("two digits") << 7.0 << "00" << "07";
        QTest::newRow("percent") << 0.5 << "###%" << "50%";
        QTest::newRow("percent zero") << 0.0 << "###%" << "%";
        QTest::newRow("ratio") << 1.5 << "###0.00" << "1.50";
        QTest::newRow("negative rounding to zero") << -0.001 << "####0.00" << "0.00";
        QTest::newRow("carry into new digit") << 9.999 << "####0.00" << "10.00";
        // Past the 15 digits the formatter works with, or not a number at all: "n/a", never
        // some other number.
        QTest::newRow("fifteen whole digits") << 999999999999999.0 << "#,##0" << "999,999,999,999,999";
        QTest::newRow("sixteen whole digits") << 1234567890123456.0 << "#,##0" << "n/a";
        QTest::newRow("largest double") << 1e308 << "####0.00" << "n/a";
        QTest::newRow("negative past range") << -1e20 << "+0.00;-0.00" << "n/a";
        QTest::newRow("percent past range") << 1e13 << "###%" << "n/a";
        QTest::newRow("infinity") << std::numeric_limits<double>::infinity() << "#,##0" << "n/a";
        QTest::newRow("NaN") << std::nan("") << "####0.00" << "n/a";
        // clang-format on
    }
    void numbers()
    {
        QFETCH(double, value);
        QFETCH(QString, pattern);
        QFETCH(QString, expected);
        QCOMPARE(formatNumber(value, pattern), expected);
    }

    void dates_data()
    {
        QTest::addColumn<QDateTime>("when");
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QString>("expected");
        const QDateTime afternoon(QDate(2026, 3, 7), QTime(13, 5, 9));
        const QDateTime morning(QDate(2026, 11, 21), QTime(0, 42, 0));
        // clang-format off
        QTest::newRow("clock label pm") << afternoon << "m/d/yy  h:mm am/pm" << "3/7/26  1:05 pm";
        QTest::newRow("clock label midnight hour") << morning << "m/d/yy  h:mm am/pm" << "11/21/26  12:42 am";
        QTest::newRow("news date") << afternoon << "mm/dd/yyyy" << "03/07/2026";
        QTest::newRow("markets time") << afternoon << "hh:mm" << "13:05";
        // clang-format on
    }
    void dates()
    {
        QFETCH(QDateTime, when);
        QFETCH(QString, pattern);
        QFETCH(QString, expected);
        QCOMPARE(formatDate(when, pattern), expected);
    }

    void generalDate_data()
    {
        QTest::addColumn<QDateTime>("when");
        QTest::addColumn<QString>("expected");
        QTest::newRow("date and time") << QDateTime(QDate(2026, 11, 21), QTime(13, 5, 3)) << "11/21/2026 1:05:03 PM";
        QTest::newRow("midnight shows date only") << QDateTime(QDate(2026, 11, 21), QTime(0, 0)) << "11/21/2026";
        QTest::newRow("zero date shows time only") << QDateTime(zeroDate(), QTime(9, 30)) << "9:30:00 AM";
    }
    void generalDate()
    {
        QFETCH(QDateTime, when);
        QFETCH(QString, expected);
        QCOMPARE(kestrova::support::generalDate(when), expected);
    }

    void leadingNumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("expected");
        QTest::newRow("plain") << "105.25" << 105.25;
        QTest::newRow("leading blanks") << "   12.5 up" << 12.5;
        QTest::newRow("sign") << "-2" << -2.0;
        QTest::newRow("plus sign") << "+1.25%" << 1.25;
        QTest::newRow("second point stops") << "1.2.3" << 1.2;
        QTest::newRow("comma stops") << "1,234" << 1.0;
        QTest::newRow("empty") << "" << 0.0;
        QTest::newRow("n/a") << "n/a" << 0.0;
        QTest::newRow("percent first") << "%5" << 0.0;
        QTest::newRow("bare point") << "." << 0.0;
    }
    void leadingNumber()
    {
        QFETCH(QString, text);
        QFETCH(double, expected);
        QCOMPARE(kestrova::support::leadingNumber(text), expected);
    }

    // Numbers from a server or a file at the edges of the range they must fit.
    void wholeNumberIn_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<qint64>("low");
        QTest::addColumn<qint64>("high");
        QTest::addColumn<bool>("fits");
        QTest::addColumn<qint64>("expected");
        const qint64 max = std::numeric_limits<qint64>::max();
        const qint64 min = std::numeric_limits<qint64>::min();
        QTest::newRow("in range, truncated") << 12.9 << qint64(0) << max << true << qint64(12);
        QTest::newRow("negative truncates toward zero") << -7.9 << qint64(-10) << qint64(10) << true << qint64(-7);
        QTest::newRow("twenty digits") << 99999999999999999999.0 << qint64(0) << max << false << qint64(0);
        QTest::newRow("2^63 itself") << 9223372036854775808.0 << min << max << false << qint64(0);
        QTest::newRow("-2^63 fits") << -9223372036854775808.0 << min << max << true << min;
        QTest::newRow("below low") << -1.0 << qint64(0) << max << false << qint64(0);
        QTest::newRow("above a small high") << 32768.0 << qint64(-32768) << qint64(32767) << false << qint64(0);
        QTest::newRow("NaN") << std::nan("") << min << max << false << qint64(0);
        QTest::newRow("infinity") << std::numeric_limits<double>::infinity() << min << max << false << qint64(0);
    }
    void wholeNumberIn()
    {
        QFETCH(double, value);
        QFETCH(qint64, low);
        QFETCH(qint64, high);
        QFETCH(bool, fits);
        QFETCH(qint64, expected);
        const std::optional<qint64> got = kestrova::support::wholeNumberIn(value, low, high);
        QCOMPARE(got.has_value(), fits);
        QCOMPARE(got.value_or(0), expected);
    }

    void numberText()
    {
        QCOMPARE(singleToText(1.5f), QStringLiteral("1.5"));
        QCOMPARE(singleToText(-0.25f), QStringLiteral("-0.25"));
        QCOMPARE(singleToText(0.1f), QStringLiteral("0.1"));
        QCOMPARE(singleToText(0.0f), QStringLiteral("0"));
        QCOMPARE(doubleToText(10345.21), QStringLiteral("10345.21"));
        // Plain decimals at every size, so the leading-number reading takes the whole value.
        QCOMPARE(plainNumberText(10345.21), QStringLiteral("10345.21"));
        QCOMPARE(plainNumberText(1e20), QStringLiteral("100000000000000000000"));
        QCOMPARE(plainNumberText(-1e-7), QStringLiteral("-0.0000001"));
        QCOMPARE(kestrova::support::leadingNumber(plainNumberText(1e308)), 1e308);
        QCOMPARE(roundHalfEven(2.5), 2);
        QCOMPARE(roundHalfEven(3.5), 4);
        QCOMPARE(roundHalfEven(-2.5), -2);
    }
};

QTEST_GUILESS_MAIN(TestFormat)
#include "test_format.moc"
