#include "delivery/PageTable.h"
#include "support/VbError.h"

#include <QtTest>

using kestrova::delivery::PageTable;
using kestrova::delivery::splitPages;
using kestrova::delivery::tapChecksum;

class TestPageTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void split_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("maxLength");
        QTest::addColumn<bool>("crHandling");
        QTest::addColumn<QStringList>("pages");

        const QString bs(QChar(8));
        // clang-format off
        QTest::newRow("exactly one page") << "abcde" << 5 << true << QStringList{"abcde"};
        QTest::newRow("one over") << "abcdef" << 5 << true << QStringList{"abcde", "f"};
        QTest::newRow("short message kept untrimmed") << " ab " << 5 << true << QStringList{" ab "};
        QTest::newRow("empty message is one empty page") << "" << 5 << true << QStringList{""};
        QTest::newRow("remainder trimmed") << "abcde  xy" << 5 << true << QStringList{"abcde", "xy"};
        QTest::newRow("blank remainder dropped") << "abcdefghij   " << 5 << true << QStringList{"abcde", "fghij"};
        QTest::newRow("cut at exact multiples") << "aaabbbcccd" << 3 << true << QStringList{"aaa", "bbb", "ccc", "d"};
        QTest::newRow("CR becomes blank, next char backspace") << "AB\rCD" << 80 << true << QStringList{"AB " + bs + "D"};
        QTest::newRow("CR LF keeps the length") << "AB\r\nCD" << 80 << true << QStringList{"AB " + bs + "CD"};
        QTest::newRow("CR at the end") << "AB\r" << 80 << true << QStringList{"AB "};
        QTest::newRow("CR across a boundary") << "ABC\rDEF" << 3 << true << QStringList{"ABC", " " + bs + "E", "F"};
        QTest::newRow("CR just before a boundary") << "AB\rDEF" << 3 << true << QStringList{"AB ", bs + "EF"};
        QTest::newRow("CR left alone without handling") << "AB\rCD" << 80 << false << QStringList{"AB\rCD"};
        QTest::newRow("zero length keeps one page") << "abc" << 0 << true << QStringList{"abc"};
        // clang-format on
    }
    void split()
    {
        QFETCH(QString, message);
        QFETCH(int, maxLength);
        QFETCH(bool, crHandling);
        QFETCH(QStringList, pages);
        const PageTable t = splitPages(message, maxLength, crHandling);
        QCOMPARE(t.pages, pages);
        QCOMPARE(t.count(), pages.size());
    }

    void fiftyPagesAndNoMore_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("pages"); // -1: subscript error

        QTest::newRow("49 pages and a bit") << 49 * 4 + 1 << 50;
        QTest::newRow("exactly 50 pages") << 50 * 4 << 50;
        QTest::newRow("50 pages and blanks") << -(50 * 4) << 50;
        QTest::newRow("51st page from the remainder") << 50 * 4 + 1 << -1;
        QTest::newRow("51st full page") << 51 * 4 << -1;
    }
    void fiftyPagesAndNoMore()
    {
        QFETCH(int, length);
        QFETCH(int, pages);
        // A negative length means: that many characters followed by blanks.
        const QString message = length < 0 ? QString(-length, u'x') + QStringLiteral("  ") : QString(length, u'x');
        if (pages < 0) {
            try {
                splitPages(message, 4, true);
                QFAIL("no error for a 51st page");
            } catch (const kestrova::support::VbError& e) {
                QCOMPARE(e.number(), int(kestrova::support::VbError::Subscript));
                QCOMPARE(e.description(), QStringLiteral("Subscript out of range"));
            }
        } else {
            QCOMPARE(splitPages(message, 4, true).count(), pages);
        }
    }

    void checksum_data()
    {
        QTest::addColumn<QString>("block");
        QTest::addColumn<QByteArray>("expected");

        const QChar stx(2);
        const QChar etx(3);
        const QChar cr(13);
        // 2 + "123" (150) + 13 + "ABC" (198) + 13 + 3 = 379 = 0x17B.
        // clang-format off
        QTest::newRow("classic block") << (stx + QStringLiteral("123") + cr + "ABC" + cr + etx) << QByteArray("17;");
        QTest::newRow("sum below 16") << (QString(stx) + etx) << QByteArray("\0\0" "5", 3);
        QTest::newRow("sum exactly 16") << QString(4, QChar(4)) << QByteArray("\0" "10", 3);
        QTest::newRow("sum below 256") << QStringLiteral("A") << QByteArray("\0" "41", 3);
        QTest::newRow("sum 256") << QStringLiteral("\u20AC\u20AC") << QByteArray("100");
        // 20 x 255 = 5100 = 0x13EC: only the low twelve bits count.
        QTest::newRow("sum above 4095") << QString(20, QChar(0xFF)) << QByteArray("3><");
        // The euro sign goes out as byte 0x80, so that is what is summed.
        QTest::newRow("code page byte, not the code point") << QStringLiteral("\u20AC") << QByteArray("\0" "80", 3);
        // clang-format on
    }
    void checksum()
    {
        QFETCH(QString, block);
        QFETCH(QByteArray, expected);
        const QString sum = tapChecksum(block);
        QCOMPARE(sum.size(), 3);
        QCOMPARE(sum.toLatin1(), expected);
    }
};

QTEST_GUILESS_MAIN(TestPageTable)
#include "test_pagetable.moc"
