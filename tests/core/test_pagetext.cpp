#include "core/Quote.h"
#include "core/Quotes.h"

#include <QRegularExpression>
#include <QTest>

using namespace kestrova::core;

namespace {

// A member written as "TICKER|last|flags|change|slot|digits" (trailing parts optional).
// Flags: H high, L low, C high change, D low change, V volume, N news, W new alarm,
// x not for the pager. A last of "~" leaves Last unset.
Quotes buildSet(const QStringList& members)
{
    Quotes set;
    for (const QString& m : members) {
        const QStringList p = m.split(u'|');
        auto q = std::make_shared<Quote>();
        const QString flags = p.value(2);
        q->setDigits(qint16(p.value(5, QStringLiteral("2")).toInt()));
        q->setTicker(p.value(0));
        if (p.value(1) != QLatin1String("~")) {
            q->setLast(p.value(1));
        }
        q->setChange(p.value(3, QStringLiteral("0")));
        q->setSecurityIndex(qint16(p.value(4, QStringLiteral("0")).toInt()));
        q->setToPager(!flags.contains(u'x'));
        q->setHighAlarm(flags.contains(u'H'));
        q->setLowAlarm(flags.contains(u'L'));
        q->setHighChgAlarm(flags.contains(u'C'));
        q->setLowChgAlarm(flags.contains(u'D'));
        q->setVolumeAlarm(flags.contains(u'V'));
        q->setNews(flags.contains(u'N') ? qint16(-1) : qint16(0));
        q->setNewLimit(flags.contains(u'W'));
        set.Add(q, q->ticker());
    }
    return set;
}

// The number after a one-letter option ("M2" -> 2), or fallback when absent.
int option(const QString& options, QChar letter, int fallback)
{
    for (const QString& o : options.split(u' ', Qt::SkipEmptyParts)) {
        if (o.front() == letter && o.size() > 1 && o[1].isDigit()) {
            return o.mid(1).toInt();
        }
    }
    return fallback;
}

} // namespace

class TestPageText : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // options: "L<n>" layout switch, "all" include-all, "M<n>" selection on with mode n.
    void messageText_data()
    {
        QTest::addColumn<QStringList>("members");
        QTest::addColumn<QString>("options");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("limitPage");
        // clang-format off
        QTest::newRow("empty set") << QStringList{} << "" << "" << false;
        QTest::newRow("nobody to pager") << QStringList{"IBM|5|xHV"} << "" << "" << false;
        QTest::newRow("single plain") << QStringList{"IBM|5"} << "" << "IBM 5.00" << false;
        QTest::newRow("marks, news, tag") << QStringList{"IBM|105.25|HVN"} << "" << "+IBM 105.25*(V)" << true;
        QTest::newRow("with change") << QStringList{"IBM|105.25|HVN|1.5"} << "L1" << "+IBM 105.25+1.50*(V)" << true;
        QTest::newRow("negative change") << QStringList{"T|10|C|-0.5"} << "L1" << "T 10.00-0.50(%)" << true;
        QTest::newRow("unknown change left out") << QStringList{"IBM|105.25|HN|n/a"} << "L1" << "+IBM 105.25*" << true;
        QTest::newRow("price past what shows") << QStringList{"X|1" + QString(20, u'0') + "||1"} << "L1" << "X n/a+1.00" << false;
        QTest::newRow("low wins over high") << QStringList{"IBM|5|HL"} << "" << "-IBM 5.00" << true;
        QTest::newRow("percent and volume") << QStringList{"A|1|DV"} << "" << "A 1.00(%V)" << true;
        QTest::newRow("joined") << QStringList{"A|1", "B|2|xH", "C|3|L"} << "" << "A 1.00, -C 3.00" << true;
        QTest::newRow("alarm of skipped member") << QStringList{"A|1", "B|2|xHV"} << "" << "A 1.00" << false;
        QTest::newRow("nothing to show") << QStringList{"|~"} << "" << "" << false;
        QTest::newRow("mode 0 takes all") << QStringList{"A|1", "B|2|H"} << "M0" << "A 1.00, +B 2.00" << true;
        QTest::newRow("mode 1 alarmed") << QStringList{"A|1", "B|2|V", "C|3"} << "M1" << "B 2.00(V)" << true;
        QTest::newRow("mode 2 new") << QStringList{"A|1|H", "B|2|HW", "C|3|W"} << "M2" << "+B 2.00, C 3.00" << true;
        QTest::newRow("alarm counted though left out") << QStringList{"A|1|H"} << "M2" << "" << true;
        QTest::newRow("unknown mode keeps first false") << QStringList{"A|1|H", "B|2"} << "M7" << "" << true;
        QTest::newRow("all wins") << QStringList{"A|1", "B|2|xH", "C|3|N"} << "all M1" << "A 1.00, C 3.00*" << false;
        // clang-format on
    }
    void messageText()
    {
        QFETCH(QStringList, members);
        QFETCH(QString, options);
        QFETCH(QString, text);
        QFETCH(bool, limitPage);
        Quotes set = buildSet(members);
        const qint16 layout = qint16(option(options, u'L', 0));
        const int mode = option(options, u'M', -1);
        QCOMPARE(set.PageMessageString(layout, options.contains("all"), mode >= 0, qint16(mode)), text);
        QCOMPARE(set.LimitPage(), limitPage);
    }

    // options: "M<n>" selection on with mode n, "P<n>" pause setting, "F<text>" prefix.
    void digitalText_data()
    {
        QTest::addColumn<QStringList>("members");
        QTest::addColumn<QString>("options");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("limitPage");
        // clang-format off
        QTest::newRow("empty") << QStringList{} << "P4" << "" << false;
        QTest::newRow("nobody to pager") << QStringList{"IBM|5|xH||1"} << "P4" << "" << false;
        QTest::newRow("high alarm") << QStringList{"IBM|105.25|H||1"} << "P4" << ",,01*100*10525" << true;
        QTest::newRow("high wins over low") << QStringList{"IBM|105.25|HL||1"} << "" << "01*100*10525" << true;
        QTest::newRow("low") << QStringList{"X|1|L||12"} << "" << "12*200*100" << true;
        QTest::newRow("percent low") << QStringList{"X|1|D||3"} << "" << "03*020*100" << true;
        QTest::newRow("volume") << QStringList{"X|1|V||3"} << "" << "03*001*100" << true;
        QTest::newRow("pause half to even down") << QStringList{"X|1"} << "P5" << ",,00*000*100" << false;
        QTest::newRow("pause half to even up") << QStringList{"X|1"} << "P7" << ",,,,00*000*100" << false;
        QTest::newRow("prefix filtered") << QStringList{"X|1"} << "F9#,1-a" << "9,100*000*100" << false;
        QTest::newRow("no decimals") << QStringList{"X|45||||0"} << "" << "00*000*45" << false;
        QTest::newRow("fraction three digits") << QStringList{"X|45 3/8||||3"} << "" << "00*000*45375" << false;
        QTest::newRow("n/a price") << QStringList{"X|n/a"} << "" << "00*000*0" << false;
        QTest::newRow("negative price") << QStringList{"X|-1.5|||7"} << "" << "07*000*150" << false;
        QTest::newRow("two") << QStringList{"A|1|||1", "B|2|V||2"} << "P2 F5" << ",501*000*100,502*001*200" << true;
        QTest::newRow("mode 1 alarmed") << QStringList{"A|1|||1", "B|2|V||2"} << "M1" << "02*001*200" << true;
        QTest::newRow("mode 2 new") << QStringList{"A|1|W||1", "B|2|V||2"} << "M2" << "01*000*100" << true;
        // clang-format on
    }
    void digitalText()
    {
        QFETCH(QStringList, members);
        QFETCH(QString, options);
        QFETCH(QString, text);
        QFETCH(bool, limitPage);
        Quotes set = buildSet(members);
        const int mode = option(options, u'M', -1);
        const qint16 pause = qint16(option(options, u'P', 0));
        const QString prefix = options.section(u'F', 1);
        const QString page = set.PageDigitalString(mode >= 0, qint16(mode), pause, prefix);
        QCOMPARE(page, text);
        QCOMPARE(set.LimitPage(), limitPage);
        static const QRegularExpression kDialable(QStringLiteral("^[0-9*,]*$"));
        QVERIFY2(kDialable.match(page).hasMatch(), qPrintable(page));
    }
};

QTEST_GUILESS_MAIN(TestPageText)
#include "test_pagetext.moc"
