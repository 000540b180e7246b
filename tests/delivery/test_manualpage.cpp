#include "ModemRig.h"
#include "delivery/ManualPage.h"
#include "delivery/ModemProfiles.h"

#include <QtTest>

using namespace kestrova;
using kestrova::testing::ModemRig;

class TestManualPage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void commaPrefix_data()
    {
        QTest::addColumn<int>("wait");
        QTest::addColumn<QString>("commas");
        QTest::newRow("10 s") << 10 << ",,,,,";
        QTest::newRow("5 s") << 5 << ",,";
        QTest::newRow("11 s") << 11 << ",,,,,";
        QTest::newRow("2 s") << 2 << ",";
        QTest::newRow("1 s") << 1 << "";
        QTest::newRow("negative") << -4 << "";
    }
    void commaPrefix()
    {
        QFETCH(int, wait);
        QFETCH(QString, commas);
        QCOMPARE(delivery::ManualPage::commaPrefix(wait), commas);
    }

    void typedText_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("accepted");
        QTest::addColumn<QString>("count");
        QTest::newRow("plain") << "call me" << QStringLiteral("call me") << "Number of Characters: 7";
        QTest::newRow("enter becomes a blank") << "call\rme" << QStringLiteral("call me") << "Number of Characters: 7";
        QTest::newRow("pasted line feed") << "a\nb" << QStringLiteral("a b") << "Number of Characters: 3";
        QTest::newRow("empty") << "" << QString() << "Number of Characters: 0";
    }
    void typedText()
    {
        QFETCH(QString, typed);
        QFETCH(QString, accepted);
        QFETCH(QString, count);
        const QString text = delivery::ManualPage::acceptTyped(typed);
        QCOMPARE(text, accepted);
        QCOMPARE(delivery::ManualPage::characterCountText(text), count);
    }

    void addresseeAndTestPage()
    {
        core::Options o;
        o.paging.user = QStringLiteral("Pat").leftJustified(25);
        o.smtp.recipient = QStringLiteral("pat@pager.example");
        o.paging.numericWait = 5;
        o.paging.numericPrefix = QStringLiteral("9,");
        QCOMPARE(delivery::ManualPage::addressee(o), QString(QStringLiteral("Pat") + QString(22, u' ')));
        QCOMPARE(delivery::ManualPage::testPageText(o), QStringLiteral(",,9,01*2*1234#"));
        o.smtp.enabled = true;
        QCOMPARE(delivery::ManualPage::addressee(o), QStringLiteral("pat@pager.example"));
    }

    void numericRouteDialsCommasAndText()
    {
        sim::ModemScript script;
        script.numeric = {QStringLiteral("5559")};
        ModemRig rig(script);
        rig.options.paging.numeric = true;
        rig.options.paging.phone = QStringLiteral("5559");
        rig.options.paging.numericWait = 10;
        // Only the options dialog's test page adds these.
        rig.options.paging.numericPrefix = QStringLiteral("77");
        delivery::ManualPage page(rig.modem, rig.options);
        const delivery::ManualPageResult r = page.send(QStringLiteral("5551212"));
        QVERIFY(r.sent);
        QCOMPARE(r.text, QStringLiteral("Digital Pager: Message 1 Sent"));
        QCOMPARE(rig.sim.calls.size(), 1);
        QCOMPARE(rig.sim.calls[0].digits, QStringLiteral(",,,,,5551212"));
    }

    void smtpRoute_data()
    {
        QTest::addColumn<bool>("haveSender");
        QTest::addColumn<QString>("result");
        QTest::newRow("sender set") << true << "mailed";
        QTest::newRow("no sender") << false << "SMTP paging is not available";
    }
    void smtpRoute()
    {
        QFETCH(bool, haveSender);
        QFETCH(QString, result);
        ModemRig rig;
        rig.options.smtp.enabled = true;
        QStringList sent;
        delivery::ManualPage page(rig.modem, rig.options);
        if (haveSender) {
            page.setSmtpSender([&sent](const QString& text) {
                sent << text;
                return delivery::ManualPageResult{QStringLiteral("mailed"), true, {}};
            });
        }
        const delivery::ManualPageResult r = page.send(QStringLiteral("hello"));
        QCOMPARE(sent, haveSender ? QStringList{QStringLiteral("hello")} : QStringList{});
        QCOMPARE(r.text, result);
        QCOMPARE(r.sent, haveSender);
        QVERIFY(rig.sim.commands.isEmpty());
    }

    // A text of blanks is no page, whatever the route: nothing is dialled or mailed.
    void blanksAreNoPage_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("route");
        const QStringList routes{"numeric", "smtp", "alphanumeric"};
        for (const QString& route : routes) {
            QTest::addRow("empty, %s", qPrintable(route)) << "" << route;
            QTest::addRow("blanks, %s", qPrintable(route)) << "   " << route;
            QTest::addRow("a tab and a blank, %s", qPrintable(route)) << "\t " << route;
        }
    }
    void blanksAreNoPage()
    {
        QFETCH(QString, text);
        QFETCH(QString, route);
        ModemRig rig;
        rig.options.paging.numeric = route == QLatin1String("numeric");
        rig.options.smtp.enabled = route == QLatin1String("smtp");
        rig.options.paging.phone = QStringLiteral("5559");
        bool mailed = false;
        delivery::ManualPage page(rig.modem, rig.options);
        page.setSmtpSender([&mailed](const QString&) {
            mailed = true;
            return delivery::ManualPageResult{QStringLiteral("mailed"), true, {}};
        });
        QVERIFY(!delivery::ManualPage::hasText(text));
        const delivery::ManualPageResult r = page.send(text);
        QCOMPARE(r.text, delivery::ManualPage::kNoText);
        QVERIFY(!r.sent);
        QVERIFY(!mailed);
        QVERIFY(rig.sim.commands.isEmpty());
    }

    void alphanumericRouteSendsPages()
    {
        ModemRig rig;
        rig.options.paging.maxLength = 10;
        delivery::ManualPage page(rig.modem, rig.options);
        const delivery::ManualPageResult r = page.send(QStringLiteral("meet at the usual place"));
        QVERIFY(r.sent);
        QCOMPARE(r.text, QStringLiteral("Pager: Message Sent (3 Pages)"));
        QCOMPARE(rig.sim.pages.size(), 3);
        QCOMPARE(rig.sim.pages[2].text, QStringLiteral("ace"));
    }

    void builtInProfilesComeFirst()
    {
        core::ModemOptions modem;
        core::setBuiltInModemProfiles(modem);
        testing::TestHost host;
        delivery::ModemProfiles profiles(modem, host);
        QCOMPARE(profiles.names(), (QStringList{"Stored Profile", "Factory Settings", "Hayes Compatible"}));
        QCOMPARE(profiles.profile(2).pagerInit, QStringLiteral("AT&F E0 V1 &D2 &C1 &Q0"));
        QVERIFY(!profiles.select(3));
        QVERIFY(profiles.select(1));
        QCOMPARE(profiles.selected(), 1);
        // A built-in profile cannot be deleted, so it is never asked about.
        QVERIFY(!profiles.remove());
        QCOMPARE(profiles.count(), 3);
        QVERIFY(host.messages.isEmpty());
    }

    void addProfile_data()
    {
        QTest::addColumn<int>("existing");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("added");
        QTest::addColumn<QString>("message");
        QTest::newRow("named") << 3 << "USR Courier" << true << "";
        QTest::newRow("no name") << 3 << "" << false << "";
        QTest::newRow("nineteen in use") << 19 << "Last one" << true << "";
        QTest::newRow("twenty in use") << 20 << "One too many" << false << "20 Modems Max";
    }
    void addProfile()
    {
        QFETCH(int, existing);
        QFETCH(QString, answer);
        QFETCH(bool, added);
        QFETCH(QString, message);
        core::ModemOptions modem;
        core::setBuiltInModemProfiles(modem);
        for (int i = 3; i < existing; ++i) {
            modem.profiles[static_cast<std::size_t>(i)] = {QStringLiteral("m%1").arg(i), QStringLiteral("AT"),
                                                           QStringLiteral("AT")};
        }
        modem.lastIndex = static_cast<qint16>(existing - 1);
        testing::TestHost host;
        host.inputs.push_back(answer);
        delivery::ModemProfiles profiles(modem, host);
        QCOMPARE(profiles.add(QStringLiteral("ATX1"), QStringLiteral("ATX1 &Q0")), added);
        QCOMPARE(profiles.changed(), added);
        QCOMPARE(profiles.count(), existing + (added ? 1 : 0));
        QCOMPARE(host.messages, message.isEmpty() ? QStringList{} : QStringList{message});
        if (added) {
            QCOMPARE(host.prompts, QStringList{QStringLiteral("Enter name for new modem")});
            QCOMPARE(profiles.selected(), existing);
            QCOMPARE(profiles.profile(existing).name, answer);
            QCOMPARE(profiles.profile(existing).pagerInit, QStringLiteral("ATX1 &Q0"));
        } else {
            QCOMPARE(profiles.selected(), 2);
        }
    }

    void deleteProfile_data()
    {
        QTest::addColumn<bool>("yes");
        QTest::newRow("confirmed") << true;
        QTest::newRow("declined") << false;
    }
    void deleteProfile()
    {
        QFETCH(bool, yes);
        core::ModemOptions modem;
        core::setBuiltInModemProfiles(modem);
        modem.profiles[3] = {QStringLiteral("Mine"), QStringLiteral("ATZ1"), QStringLiteral("ATZ1")};
        modem.profiles[4] = {QStringLiteral("Other"), QStringLiteral("ATZ2"), QStringLiteral("ATZ2")};
        modem.lastIndex = 4;
        testing::TestHost host;
        host.answers.push_back(yes ? support::MsgAnswer::Yes : support::MsgAnswer::No);
        delivery::ModemProfiles profiles(modem, host);
        QVERIFY(profiles.select(3));
        QCOMPARE(profiles.remove(), yes);
        QCOMPARE(host.messages, QStringList{QStringLiteral("Delete Mine?")});
        if (yes) {
            QCOMPARE(profiles.names(),
                     (QStringList{"Stored Profile", "Factory Settings", "Hayes Compatible", "Other"}));
            QCOMPARE(profiles.profile(3).init, QStringLiteral("ATZ2"));
        } else {
            QCOMPARE(profiles.count(), 5);
        }
    }
};

QTEST_GUILESS_MAIN(TestManualPage)
#include "test_manualpage.moc"
