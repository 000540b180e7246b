#include "support/Text.h"

#include <QTest>

using namespace kestrova::support;

class TestText : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void extractBetween_data()
    {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        // clang-format off
        QTest::newRow("between labels") << "LAST:" << "CHANGE:" << "x LAST: 12 3/8 CHANGE: +1" << " 12 3/8 ";
        QTest::newRow("start missing") << "Bid:" << "Ask:" << "LAST: 5" << "";
        QTest::newRow("end missing") << "Bid:" << "Ask:" << "Bid: 5" << "";
        QTest::newRow("end only before start") << "Bid:" << "Ask:" << "Ask: 1 Bid: 5" << "";
        QTest::newRow("adjacent labels") << "Bid:" << "Ask:" << "Bid:Ask:" << "";
        QTest::newRow("empty start skips first char") << "" << ":" << "ab:c" << "b";
        QTest::newRow("empty start, end at first char") << "" << "a" << "abca" << "bc";
        // clang-format on
    }
    void extractBetween()
    {
        QFETCH(QString, start);
        QFETCH(QString, end);
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(ExtractBetween(start, end, text), expected);
    }

    void convertFraction_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("expected");
        QTest::newRow("whole and fraction") << "12 3/8" << 3 << "12.375";
        QTest::newRow("negative whole") << "-1 1/4" << 2 << "-1.25";
        QTest::newRow("negative zero whole") << "-0 1/2" << 2 << "-0.50";
        QTest::newRow("fraction alone") << "3/4" << 2 << "0.75";
        QTest::newRow("zero denominator") << "7 1/0" << 2 << "7.00";
        QTest::newRow("decimal with commas") << " 1,234.5 " << 1 << "1234.5";
        QTest::newRow("n/a stays") << "n/a" << 2 << "n/a";
        QTest::newRow("negative digits mean two") << "5" << -1 << "5.00";
        QTest::newRow("no digits keeps point") << "45" << 0 << "45.";
        QTest::newRow("empty is zero") << "" << 2 << "0.00";
    }
    void convertFraction()
    {
        QFETCH(QString, text);
        QFETCH(int, digits);
        QFETCH(QString, expected);
        QCOMPARE(ConvertFraction(text, digits), expected);
    }

    void removeAndReplace()
    {
        QCOMPARE(RemoveAll(QStringLiteral("1<sup>3</sup>/8"), QStringLiteral("<sup>")), QStringLiteral("13</sup>/8"));
        QCOMPARE(ReplaceAll(QStringLiteral("a&nbsp;b&nbsp;"), QStringLiteral("&nbsp;"), QStringLiteral(" ")),
                 QStringLiteral("a b "));
        // Matching is case-sensitive: markup written in capitals is left alone.
        QCOMPARE(RemoveAll(QStringLiteral("<SUP>"), QStringLiteral("<sup>")), QStringLiteral("<SUP>"));
        QCOMPARE(RemoveAll(QStringLiteral("abc"), QString()), QStringLiteral("abc"));
    }
};

QTEST_GUILESS_MAIN(TestText)
#include "test_text.moc"
