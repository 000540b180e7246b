#include "quotes/MarkupText.h"

#include <QTest>

using kestrova::quotes::markupToTabs;

class TestMarkupText : public QObject
{
    Q_OBJECT
private Q_SLOTS:

    void conversion_data()
    {
        QTest::addColumn<QString>("page");
        QTest::addColumn<QString>("text");

        // clang-format off
        QTest::newRow("plain text stays") << "no markup at all" << "no markup at all";
        QTest::newRow("one tab per tag, never merged") << "<tr><td>Last</td><td>12.5</td></tr>" << "\t\tLast\t\t12.5\t\t";
        QTest::newRow("blanks and line ends kept") << "<b> a </b>\r\n<i>b</i>" << "\t a \t\r\n\tb\t";
        QTest::newRow("attributes with > in quotes") << "<a title=\"x>y\" href='a>b'>go</a>" << "\tgo\t";
        QTest::newRow("bare > in attribute text ends tag") << "<a b=c>d>" << "\td>";
        QTest::newRow("lone < is text") << "a < b <= c <5" << "a < b <= c <5";
        QTest::newRow("< at the end") << "x<" << "x<";
        QTest::newRow("comment is one tab") << "a<!-- <td>x</td> -->b" << "a\tb";
        QTest::newRow("comment with dashes inside") << "a<!-- x -- y ->-->b" << "a\tb";
        QTest::newRow("unterminated comment") << "a<!-- never closed <td>" << "a\t";
        QTest::newRow("doctype and processing") << "<!DOCTYPE html><?xml x?>t" << "\t\tt";
        QTest::newRow("script contents dropped") << "<script>if (a<b) x='</td>';</script>z" << "\t\tz";
        QTest::newRow("script name any case") << "<SCRIPT type=x>1<2</Script>z" << "\t\tz";
        QTest::newRow("style contents dropped") << "<style>td>a{}</style><td>v" << "\t\t\tv";
        QTest::newRow("scripts is not script") << "<scripts>k</scripts>" << "\tk\t";
        QTest::newRow("self-closed script") << "<script src=a.js/>k" << "\tk";
        QTest::newRow("unclosed script swallows rest") << "a<script>var x;" << "a\t";
        QTest::newRow("unterminated tag") << "a<td class=" << "a\t";
        QTest::newRow("named entities") << "&amp;&lt;&gt;&quot;&apos;&nbsp;" << "&<>\"' ";
        QTest::newRow("decoded < is no tag") << "&lt;td&gt;x" << "<td>x";
        QTest::newRow("numeric entities") << "&#65;&#x42;&#X43;&#8364;" << QString::fromUtf8("ABC€");
        QTest::newRow("astral numeric entity") << "&#x1F600;" << QString::fromUtf8("\xF0\x9F\x98\x80");
        QTest::newRow("unknown entities stay") << "&copy; &#; &#xZZ; &amp &#0; &#xD800;"
                                               << "&copy; &#; &#xZZ; &amp &#0; &#xD800;";
        QTest::newRow("ampersand at end") << "R&D &" << "R&D &";
        QTest::newRow("empty page") << "" << "";
        // clang-format on
    }
    void conversion()
    {
        QFETCH(QString, page);
        QFETCH(QString, text);
        QCOMPARE(markupToTabs(page), text);
    }

    // The offsets of a definition count tabs, so a table of N cells must give exactly 2N+2
    // tabs per row however the cells are written.
    void tabCountMatchesTags()
    {
        QString page;
        for (int i = 0; i < 500; ++i)
            page += QStringLiteral("<tr><td class=\"c\">%1</td><td>&nbsp;</td></tr>").arg(i);
        const QString text = markupToTabs(page);
        QCOMPARE(text.count(u'\t'), 500 * 6);
        QVERIFY(!text.contains(u'<'));
        QCOMPARE(text.split(u'\t', Qt::SkipEmptyParts).size(), 1000);
    }
};

QTEST_APPLESS_MAIN(TestMarkupText)
#include "test_markuptext.moc"
