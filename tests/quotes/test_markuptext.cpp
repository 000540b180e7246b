#include "TestUtil.h"

#include "quotes/MarkupText.h"

#include <QDir>
#include <QTest>

#include <random>

using namespace kestrova;
using quotes::markupToTabs;
using quotes::PageCharset;

namespace {

// A page converted from its bytes must read exactly as the page decoded whole and then
// converted; the first differing character is named so a failure says where.
QString mismatch(const QByteArray& bytes, PageCharset charset)
{
    const QString fromBytes = markupToTabs(bytes, charset);
    const QString fromText = markupToTabs(quotes::decodePage(bytes, charset));
    if (fromBytes == fromText)
        return {};
    qsizetype at = 0;
    while (at < fromBytes.size() && at < fromText.size() && fromBytes[at] == fromText[at])
        ++at;
    return QStringLiteral("%1: differs at %2 of %3/%4 characters in page %5")
        .arg(charset == PageCharset::Utf8 ? QStringLiteral("UTF-8") : QStringLiteral("Windows-1252"))
        .arg(at)
        .arg(fromBytes.size())
        .arg(fromText.size())
        .arg(QString::fromLatin1(bytes.toPercentEncoding()));
}

} // namespace

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

    // Bytes that decode to something other than themselves, next to everything the
    // conversion looks at: Windows-1252's 32 codes above Latin-1 (also in blocks of sixteen
    // and across their ends), broken and cut UTF-8 sequences before a tag or an entity, and
    // byte order marks, which a whole-page decode drops at the start and keeps elsewhere.
    void bytesReadAsTheirText_data()
    {
        QTest::addColumn<QByteArray>("page");
        // clang-format off
        QTest::newRow("high codes in text") << QByteArray("\x80 \x9f<td>\x85\x99\xa0\xff");
        QTest::newRow("high codes in a block of sixteen") << QByteArray("0123456789abcde\x80<b>0123456789abcdef\x9fX");
        QTest::newRow("high codes in attributes and scripts") << QByteArray("<a t='\x80>'>\x93q\x94</a><script>\x80<</script>z");
        QTest::newRow("< before a high code is text") << QByteArray("a <\x80 b <\xe2\x82\xac");
        QTest::newRow("UTF-8 euro and astral") << QByteArray("\xe2\x82\xac<td>\xf0\x9f\x98\x80&amp;");
        QTest::newRow("cut sequence before a tag") << QByteArray("x\xe2\x82<td>\xf0\x9f\x98&lt;\xc3");
        QTest::newRow("stray continuation bytes") << QByteArray("\x80\x80<b>\xbf&#65;\xc0\xbc>");
        QTest::newRow("byte order mark at the start") << QByteArray("\xef\xbb\xbf<td>x");
        QTest::newRow("byte order mark after a tag") << QByteArray("<td>\xef\xbb\xbfx\xef\xbb");
        QTest::newRow("cut byte order mark") << QByteArray("\xef\xbb<td>");
        QTest::newRow("entity then high code") << QByteArray("&nbsp\xa0&#8364;\x80&\x80");
        QTest::newRow("comment and entity at the end") << QByteArray("a<!-- \x80 -->b&#x1F600;\xe2");
        // clang-format on
    }
    void bytesReadAsTheirText()
    {
        QFETCH(QByteArray, page);
        for (PageCharset charset : {PageCharset::Cp1252, PageCharset::Utf8}) {
            const QString why = mismatch(page, charset);
            QVERIFY2(why.isEmpty(), qPrintable(why));
        }
    }

    // The same over the fixture pages and over generated pages made of the pieces markup is
    // made of, mixed with arbitrary bytes.
    void generatedPagesReadAsTheirText()
    {
        QList<QByteArray> pages;
        for (const QString& dir : {QStringLiteral("quotes"), QStringLiteral("news")}) {
            const QDir d(testing::dataPath(dir));
            for (const QString& name : d.entryList({QStringLiteral("*.html")}, QDir::Files)) {
                pages << testing::readFile(d.filePath(name));
            }
        }
        QVERIFY(pages.size() >= 4);
        static const char* const kPieces[] = {"<",
                                              ">",
                                              "<td>",
                                              "</td>",
                                              "<script>",
                                              "</script>",
                                              "<style>",
                                              "</STYLE",
                                              "<!--",
                                              "-->",
                                              "-",
                                              "&",
                                              "&amp;",
                                              "&#",
                                              "&#x",
                                              "&#x1F600;",
                                              "&#65;",
                                              "&nbsp;",
                                              ";",
                                              "\"",
                                              "'",
                                              "=",
                                              " ",
                                              "/",
                                              "a",
                                              "9",
                                              "\r\n",
                                              "<sup>",
                                              "\xef\xbb\xbf",
                                              "\xe2\x82",
                                              "\xe2\x82\xac",
                                              "\xf0\x9f\x98",
                                              "\x80",
                                              "\x9f",
                                              "\xa0",
                                              "\xff",
                                              "\xc0\xbc"};
        std::mt19937 random(20261124);
        for (int n = 0; n < 3000; ++n) {
            QByteArray page;
            const int length = int(random() % 120);
            for (int i = 0; i < length; ++i) {
                const unsigned pick = random() % (std::size(kPieces) + 4);
                if (pick < std::size(kPieces))
                    page += kPieces[pick];
                else
                    page += char(random() % 256);
            }
            pages << page;
        }
        for (const QByteArray& page : pages) {
            for (PageCharset charset : {PageCharset::Cp1252, PageCharset::Utf8}) {
                const QString why = mismatch(page, charset);
                QVERIFY2(why.isEmpty(), qPrintable(why));
            }
        }
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
