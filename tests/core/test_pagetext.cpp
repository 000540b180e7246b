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

} // namespace

class TestPageText : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void messageText_data()
    {
        QTest::addColumn<QStringList>("members");
        QTest::addColumn<int>("layout");
        QTest::addColumn<bool>("includeAll");
        QTest::addColumn<bool>("select");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("limitPage");
        QTest::newRow("empty set") << QStringList{} << 0 << false << false << 0 << "" << false;
        QTest::newRow("nobody to pager") << QStringList{"IBM|5|xHV"} << 0 << false << false << 0 << "" << false;
        QTest::newRow("single plain") << QStringList{"IBM|5"} << 0 << false << false << 0 << "IBM 5.00" << false;
        QTest::newRow("marks, news, tag")
            << QStringList{"IBM|105.25|HVN"} << 0 << false << false << 0 << "+IBM 105.25*(V)" << true;
        QTest::newRow("with change") << QStringList{"IBM|105.25|HVN|1.5"} << 1 << false << false << 0
                                     << "+IBM 105.25+1.50*(V)" << true;
        QTest::newRow("negative change") << QStringList{"T|10|C|-0.5"} << 1 << false << false << 0 << "T 10.00-0.50(%)"
                                         << true;
        QTest::newRow("zero change shows plus")
            << QStringList{"T|10"} << 1 << false << false << 0 << "T 10.00+0.00" << false;
        QTest::newRow("other layout ignores change")
            << QStringList{"T|10||3"} << 2 << false << false << 0 << "T 10.00" << false;
        QTest::newRow("low wins over high")
            << QStringList{"IBM|5|HL"} << 0 << false << false << 0 << "-IBM 5.00" << true;
        QTest::newRow("percent and volume")
            << QStringList{"A|1|DV"} << 0 << false << false << 0 << "A 1.00(%V)" << true;
        QTest::newRow("joined") << QStringList{"A|1", "B|2|xH", "C|3|L"} << 0 << false << false << 0
                                << "A 1.00, -C 3.00" << true;
        QTest::newRow("alarm of skipped member")
            << QStringList{"A|1", "B|2|xHV"} << 0 << false << false << 0 << "A 1.00" << false;
        QTest::newRow("nothing to show") << QStringList{"|~"} << 0 << false << false << 0 << "" << false;
        QTest::newRow("mode 0 takes all")
            << QStringList{"A|1", "B|2|H"} << 0 << false << true << 0 << "A 1.00, +B 2.00" << true;
        QTest::newRow("mode 1 alarmed") << QStringList{"A|1", "B|2|V", "C|3"} << 0 << false << true << 1 << "B 2.00(V)"
                                        << true;
        QTest::newRow("mode 2 new only") << QStringList{"A|1|H", "B|2|HW", "C|3|W"} << 0 << false << true << 2
                                         << "+B 2.00, C 3.00" << true;
        QTest::newRow("alarm counted though left out") << QStringList{"A|1|H"} << 0 << false << true << 2 << "" << true;
        QTest::newRow("unknown mode keeps first false")
            << QStringList{"A|1|H", "B|2"} << 0 << false << true << 7 << "" << true;
        QTest::newRow("include all beats mode")
            << QStringList{"A|1", "B|2|xH", "C|3|N"} << 0 << true << true << 1 << "A 1.00, C 3.00*" << false;
        QTest::newRow("selection off ignores mode")
            << QStringList{"A|1", "B|2"} << 0 << false << false << 1 << "A 1.00, B 2.00" << false;
    }
    void messageText()
    {
        QFETCH(QStringList, members);
        QFETCH(int, layout);
        QFETCH(bool, includeAll);
        QFETCH(bool, select);
        QFETCH(int, mode);
        QFETCH(QString, text);
        QFETCH(bool, limitPage);
        Quotes set = buildSet(members);
        QCOMPARE(set.PageMessageString(qint16(layout), includeAll, select, qint16(mode)), text);
        QCOMPARE(set.LimitPage(), limitPage);
    }

    void limitPageResetEachTime()
    {
        Quotes set = buildSet({"A|1|H"});
        set.PageMessageString(0);
        QVERIFY(set.LimitPage());
        set.Item(1)->setHighAlarm(false);
        set.PageMessageString(0);
        QVERIFY(!set.LimitPage());
    }

    void digitalText_data()
    {
        QTest::addColumn<QStringList>("members");
        QTest::addColumn<bool>("select");
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("pause");
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("limitPage");
        QTest::newRow("empty") << QStringList{} << false << 0 << 4 << ""
                               << "" << false;
        QTest::newRow("nobody to pager") << QStringList{"IBM|5|xH||1"} << false << 0 << 4 << ""
                                         << "" << false;
        QTest::newRow("high alarm") << QStringList{"IBM|105.25|H||1"} << false << 0 << 4 << ""
                                    << ",,01*100*10525" << true;
        QTest::newRow("high wins over low") << QStringList{"IBM|105.25|HL||1"} << false << 0 << 0 << ""
                                            << "01*100*10525" << true;
        QTest::newRow("low") << QStringList{"X|1|L||12"} << false << 0 << 0 << ""
                             << "12*200*100" << true;
        QTest::newRow("percent high wins") << QStringList{"X|1|CD||3"} << false << 0 << 0 << ""
                                           << "03*010*100" << true;
        QTest::newRow("percent low") << QStringList{"X|1|D||3"} << false << 0 << 0 << ""
                                     << "03*020*100" << true;
        QTest::newRow("volume") << QStringList{"X|1|V||3"} << false << 0 << 0 << ""
                                << "03*001*100" << true;
        QTest::newRow("quiet") << QStringList{"X|1|||3"} << false << 0 << 0 << ""
                               << "03*000*100" << false;
        QTest::newRow("pause half to even down") << QStringList{"X|1"} << false << 0 << 5 << ""
                                                 << ",,00*000*100" << false;
        QTest::newRow("pause half to even up") << QStringList{"X|1"} << false << 0 << 7 << ""
                                               << ",,,,00*000*100" << false;
        QTest::newRow("pause of one is none") << QStringList{"X|1"} << false << 0 << 1 << ""
                                              << "00*000*100" << false;
        QTest::newRow("prefix filtered") << QStringList{"X|1"} << false << 0 << 0 << "9#,1-a"
                                         << "9,100*000*100" << false;
        QTest::newRow("no decimals") << QStringList{"X|45||||0"} << false << 0 << 0 << ""
                                     << "00*000*45" << false;
        QTest::newRow("fraction three digits") << QStringList{"X|45 3/8||||3"} << false << 0 << 0 << ""
                                               << "00*000*45375" << false;
        QTest::newRow("below one") << QStringList{"X|0.5"} << false << 0 << 0 << ""
                                   << "00*000*50" << false;
        QTest::newRow("n/a price") << QStringList{"X|n/a"} << false << 0 << 0 << ""
                                   << "00*000*0" << false;
        QTest::newRow("negative price") << QStringList{"X|-1.5|||7"} << false << 0 << 0 << ""
                                        << "07*000*150" << false;
        QTest::newRow("two members") << QStringList{"A|1|||1", "B|2|V||2"} << false << 0 << 2 << "5"
                                     << ",501*000*100,502*001*200" << true;
        QTest::newRow("mode 1 alarmed") << QStringList{"A|1|||1", "B|2|V||2"} << true << 1 << 0 << ""
                                        << "02*001*200" << true;
        QTest::newRow("mode 2 new") << QStringList{"A|1|W||1", "B|2|V||2"} << true << 2 << 0 << ""
                                    << "01*000*100" << true;
    }
    void digitalText()
    {
        QFETCH(QStringList, members);
        QFETCH(bool, select);
        QFETCH(int, mode);
        QFETCH(int, pause);
        QFETCH(QString, prefix);
        QFETCH(QString, text);
        QFETCH(bool, limitPage);
        Quotes set = buildSet(members);
        const QString page = set.PageDigitalString(select, qint16(mode), qint16(pause), prefix);
        QCOMPARE(page, text);
        QCOMPARE(set.LimitPage(), limitPage);
        static const QRegularExpression kDialable(QStringLiteral("^[0-9*,]*$"));
        QVERIFY2(kDialable.match(page).hasMatch(), qPrintable(page));
    }
};

QTEST_GUILESS_MAIN(TestPageText)
#include "test_pagetext.moc"
