// The set-up assistant's rules, which live in the engine: the market's hours in the user's
// time zone and when the first update runs, a provider's mail server from its name or an
// address, the watch list and the notification routes checked by the options' own rules,
// and Finish making the new setup the one in use.
#include "app/Application.h"
#include "app/FirstSetup.h"
#include "app/MarketHours.h"
#include "core/OptionRegistry.h"
#include "core/PortfolioEntries.h"
#include "core/PortfolioFile.h"
#include "delivery/MailServers.h"
#include "settings/SettingsStore.h"
#include "support/Clock.h"
#include "support/Format.h"

#include "TestHost.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrova;

namespace {

QString recordsText(const core::PortfolioTable& t)
{
    QStringList out;
    for (int i = 0; i < t.count; ++i) {
        const core::PortfolioRecord& r = t.records[size_t(i)];
        out << QStringLiteral("%1 %2 %3 %4 %5 %6")
                   .arg(r.ticker)
                   .arg(double(r.highLimit))
                   .arg(double(r.lowLimit))
                   .arg(double(r.highChgLimit))
                   .arg(double(r.lowChgLimit))
                   .arg(r.toPager);
    }
    return out.join(u';');
}

QString optionsText(const core::Options& o, const QStringList& names)
{
    QStringList out;
    for (const QString& n : names) {
        const core::OptionDef* def = core::OptionRegistry::find(n);
        out << (def ? n + u'=' + def->get(o) : QStringLiteral("(no option %1)").arg(n));
    }
    return out.join(u' ');
}

} // namespace

class TestFirstSetup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void marketHoursInTheUsersZone_data()
    {
        QTest::addColumn<QDate>("day");
        QTest::addColumn<QString>("zone");
        QTest::addColumn<QString>("hours"); // "open-close", or empty when refused

        const QDate summer(2026, 7, 15);
        QTest::newRow("New York") << summer << "America/New_York"
                                  << "9:30 am-4:00 pm";
        QTest::newRow("Berlin, summer") << summer << "Europe/Berlin"
                                        << "3:30 pm-10:00 pm";
        QTest::newRow("Berlin, winter") << QDate(2026, 11, 23) << "Europe/Berlin"
                                        << "3:30 pm-10:00 pm";
        // New York has moved its clocks on, Europe not yet: one hour less between them.
        QTest::newRow("Berlin, the March weeks") << QDate(2026, 3, 16) << "Europe/Berlin"
                                                 << "2:30 pm-9:00 pm";
        QTest::newRow("London") << summer << "Europe/London"
                                << "2:30 pm-9:00 pm";
        QTest::newRow("Los Angeles") << summer << "America/Los_Angeles"
                                     << "6:30 am-1:00 pm";
        QTest::newRow("Honolulu") << summer << "Pacific/Honolulu"
                                  << "3:30 am-10:00 am";
        QTest::newRow("Kolkata: past midnight") << summer << "Asia/Kolkata"
                                                << "";
        QTest::newRow("Tokyo: past midnight") << summer << "Asia/Tokyo"
                                              << "";
        QTest::newRow("Sydney: the next day") << summer << "Australia/Sydney"
                                              << "";
    }
    void marketHoursInTheUsersZone()
    {
        QFETCH(QDate, day);
        QFETCH(QString, zone);
        QFETCH(QString, hours);
        QString why;
        const auto h = app::marketHoursIn(day, QTimeZone(zone.toUtf8()), &why);
        if (hours.isEmpty()) {
            QVERIFY(!h);
            QVERIFY2(why.contains(QStringLiteral("your time")), qPrintable(why));
            return;
        }
        QVERIFY2(h, qPrintable(why));
        const core::ScheduleOptions s = app::marketHoursSchedule({}, *h);
        QCOMPARE(s.openTime + u'-' + s.closeTime, hours);
        QCOMPARE(s.stopTime, s.closeTime);
        // Interval updates start one interval after the open, which has its own update.
        QCOMPARE(support::parseTimeOfDay(s.startTime)->addSecs(-15 * 60), *support::parseTimeOfDay(s.openTime));
        QVERIFY(s.marketOpen && s.marketClose && s.interval && !s.midday);
        QCOMPARE(s.intervalMinutes, qint16(15));
    }

    void firstScheduledUpdate_data()
    {
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<QString>("days"); // Monday..Friday ticked, as 1/0
        QTest::addColumn<QString>("text");

        const QDate monday(2026, 11, 23);
        auto at = [](QDate d, int h, int m) { return QDateTime(d, QTime(h, m, 20)); };
        QTest::newRow("before the open") << at(monday, 8, 0) << "11111"
                                         << "The first scheduled update runs today at 9:30 am.";
        QTest::newRow("between open and close") << at(monday, 12, 7) << "11111"
                                                << "The first scheduled update runs today at 12:07 pm.";
        QTest::newRow("in the close's five minutes") << at(monday, 16, 3) << "11111"
                                                     << "The first scheduled update runs today at 4:03 pm.";
        QTest::newRow("after the close")
            << at(monday, 16, 5) << "11111"
            << "Today's updates are over: the first scheduled update runs tomorrow at 9:30 am.";
        QTest::newRow("Friday evening")
            << at(monday.addDays(4), 18, 0) << "11111"
            << "Today's updates are over: the first scheduled update runs on Monday at 9:30 am.";
        QTest::newRow("Saturday") << at(monday.addDays(5), 10, 0) << "11111"
                                  << "The first scheduled update runs on Monday at 9:30 am.";
        QTest::newRow("only Wednesdays") << at(monday, 10, 0) << "00100"
                                         << "The first scheduled update runs on Wednesday at 9:30 am.";
        QTest::newRow("no weekday ticked")
            << at(monday, 10, 0) << "00000"
            << "No scheduled update will run: tick at least one weekday and one kind of update.";
    }
    void firstScheduledUpdate()
    {
        QFETCH(QDateTime, now);
        QFETCH(QString, days);
        QFETCH(QString, text);
        core::ScheduleOptions s = app::marketHoursSchedule({}, {app::kMarketOpen, app::kMarketClose});
        for (int i = 0; i < 5; ++i) {
            s.days[size_t(i)] = days[i] == u'1';
        }
        QCOMPARE(app::firstUpdateText(s, now), text);
    }

    void smtpServerFromItsName_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("port");
        QTest::addColumn<int>("security");
        QTest::addColumn<bool>("known");

        QTest::newRow("gmail") << "smtp.gmail.com"
                               << "smtp.gmail.com" << 587 << 1 << true;
        QTest::newRow("yahoo, any case, blanks") << " SMTP.Mail.Yahoo.com "
                                                 << "SMTP.Mail.Yahoo.com" << 465 << 2 << true;
        QTest::newRow("unknown server") << "mail.example.net"
                                        << "mail.example.net" << 587 << 1 << false;
        QTest::newRow("port named") << "127.0.0.1:2525"
                                    << "127.0.0.1" << 2525 << 1 << false;
        QTest::newRow("TLS port named") << "mail.example.net:465"
                                        << "mail.example.net" << 465 << 2 << false;
        QTest::newRow("IPv6 with a port") << "[::1]:25"
                                          << "::1" << 25 << 1 << false;
        QTest::newRow("IPv6 alone") << "::1"
                                    << "::1" << 587 << 1 << false;
        QTest::newRow("no such port") << "mail.example.net:70000"
                                      << "mail.example.net:70000" << 587 << 1 << false;
    }
    void smtpServerFromItsName()
    {
        QFETCH(QString, typed);
        QFETCH(QString, host);
        QFETCH(int, port);
        QFETCH(int, security);
        QFETCH(bool, known);
        const delivery::SmtpEndpoint e = delivery::smtpEndpointFor(typed);
        QCOMPARE(e.host, host);
        QCOMPARE(int(e.port), port);
        QCOMPARE(int(e.security), security);
        QCOMPARE(e.wellKnown, known);
    }

    void smtpServerFromAnAddress_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("server");
        QTest::newRow("gmail") << "Me@GMail.com"
                               << "smtp.gmail.com";
        QTest::newRow("hotmail") << "me@hotmail.com"
                                 << "smtp-mail.outlook.com";
        QTest::newRow("gmx.de") << "me@gmx.de"
                                << "mail.gmx.net";
        QTest::newRow("own domain") << "me@example.com"
                                    << "";
        QTest::newRow("no address") << "gmail.com"
                                    << "";
    }
    void smtpServerFromAnAddress()
    {
        QFETCH(QString, address);
        QFETCH(QString, server);
        QCOMPARE(delivery::smtpServerForAddress(address), server);
    }

    void tickersAsTyped_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("tickers");
        QTest::newRow("blanks") << "ibm  msft" << QStringList{"IBM", "MSFT"};
        QTest::newRow("lines, commas, semicolons, again")
            << "IBM,MSFT;aapl\nibm\n\n VFIAX " << QStringList{"IBM", "MSFT", "AAPL", "VFIAX"};
        QTest::newRow("nothing") << " ,\n " << QStringList{};
    }
    void tickersAsTyped()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, tickers);
        QCOMPARE(core::splitTickers(text), tickers);
    }

    void watchList_data()
    {
        QTest::addColumn<QStringList>("rows"); // ticker|high|low|move
        QTest::addColumn<QString>("records");
        QTest::addColumn<QString>("problem");
        QTest::addColumn<int>("problemRow");

        QTest::newRow("limits as typed, none, a move")
            << QStringList{"IBM|160|120|", "MSFT|||5%", "AAPL|||-3", "VFIAX|| |+2 %"}
            << "IBM 160 120 0 0 1;MSFT 0 0 5 -5 1;AAPL 0 0 3 -3 1;VFIAX 0 0 2 -2 1"
            << "" << -1;
        QTest::newRow("a move that is no number") << QStringList{"IBM|||", "MSFT|||lots"} << ""
                                                  << "MSFT: Move in a day: expects a number of percent such as 5" << 1;
        QTest::newRow("a price that is no number") << QStringList{"IBM|1x0||"} << ""
                                                   << "IBM: High Limit" << 0;
        QTest::newRow("a negative low price") << QStringList{"IBM||-4|"} << ""
                                              << "IBM: Low Limit" << 0;
        QTest::newRow("twice") << QStringList{"IBM|||", "ibm|||"} << ""
                               << "is already in the portfolio" << 1;
        QStringList many;
        for (int i = 0; i < 51; ++i) {
            many << QStringLiteral("T%1|||").arg(i);
        }
        QTest::newRow("51 securities") << many << ""
                                       << "Too Many Tickers (50 Max)" << 50;
    }
    void watchList()
    {
        QFETCH(QStringList, rows);
        QFETCH(QString, records);
        QFETCH(QString, problem);
        QFETCH(int, problemRow);
        std::vector<app::WatchInput> in;
        for (const QString& r : rows) {
            const QStringList f = r.split(u'|');
            in.push_back({f[0], f[1], f[2], f[3]});
        }
        core::PortfolioTable table;
        table.count = 1; // what was there is replaced only when the whole list is good
        table.records[0].ticker = QStringLiteral("OLD");
        const auto p = app::buildWatchList(in, table);
        if (problem.isEmpty()) {
            QVERIFY2(!p, p ? qPrintable(p->message) : "");
            QCOMPARE(recordsText(table), records);
            return;
        }
        QVERIFY(p);
        QVERIFY2(p->message.contains(problem), qPrintable(p->message));
        QCOMPARE(p->row, problemRow);
        QCOMPARE(recordsText(table), QStringLiteral("OLD 0 0 0 0 0"));
    }

    void routes_data()
    {
        QTest::addColumn<bool>("push");
        QTest::addColumn<bool>("email");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QString>("options"); // what is stored, or the refusal as "option: message"

        const QStringList mail{"smtp.recipient=me@example.com", "smtp.host=smtp.example.com", "smtp.port=587",
                               "smtp.security=1"};
        QTest::newRow("push only")
            << true << false << QStringList{"push.url=https://ntfy.sh/kestrova-abc"}
            << "push.enabled=true push.url=https://ntfy.sh/kestrova-abc smtp.enabled=false paging.enabled=true "
               "alarms.select=true alarms.select_mode=1";
        QTest::newRow("e-mail: the recipient sends")
            << false << true << mail
            << "push.enabled=false smtp.enabled=true smtp.host=smtp.example.com smtp.address= smtp.port=587 "
               "smtp.security=1 smtp.from=me@example.com smtp.recipient=me@example.com smtp.user=";
        QTest::newRow("e-mail: a log-on address sends, a server address")
            << false << true << QStringList{"smtp.recipient=pager@example.com",
                                            "smtp.host=127.0.0.1",
                                            "smtp.port=2525",
                                            "smtp.security=0",
                                            "smtp.user=me@example.net",
                                            "smtp.password= s3 cret"}
            << "smtp.host= smtp.address=127.0.0.1 smtp.port=2525 smtp.security=0 smtp.from=me@example.net "
               "smtp.recipient=pager@example.com smtp.user=me@example.net";
        QTest::newRow("neither: desktop only")
            << false << false << QStringList{} << "push.enabled=false smtp.enabled=false paging.enabled=true";
        QTest::newRow("push without a URL")
            << true << false << QStringList{} << "push.url: You must enter the URL of the push topic or webhook.";
        QTest::newRow("push to an ftp URL") << true << false << QStringList{"push.url=ftp://example.com/t"}
                                            << "push.url: Label(push.url): expects an http:// or https:// URL";
        QTest::newRow("e-mail without an address")
            << false << true << QStringList{"smtp.host=smtp.example.com", "smtp.port=587", "smtp.security=1"}
            << "smtp.recipient: You must enter a valid recipient email address";
        QTest::newRow("e-mail to no address")
            << false << true
            << QStringList{"smtp.recipient=me", "smtp.host=smtp.example.com", "smtp.port=587", "smtp.security=1"}
            << "smtp.recipient: You must enter a valid recipient email address";
        QTest::newRow("e-mail without a server")
            << false << true << QStringList{"smtp.recipient=me@example.com", "smtp.port=587", "smtp.security=1"}
            << "smtp.host: You must enter either a host name or host address for the SMTP server.";
        QTest::newRow("port 0") << false << true
                                << QStringList{"smtp.recipient=me@example.com", "smtp.host=smtp.example.com",
                                               "smtp.port=0", "smtp.security=1"}
                                << "smtp.port: Label(smtp.port): must be between 1 and 65535";
    }
    void routes()
    {
        QFETCH(bool, push);
        QFETCH(bool, email);
        QFETCH(QStringList, texts);
        QFETCH(QString, options);
        app::RouteInput in;
        in.push = push;
        in.email = email;
        for (const QString& t : texts) {
            in.texts.insert(t.section(u'=', 0, 0), t.section(u'=', 1));
        }
        core::Options o;
        const core::Options before = o;
        const auto p =
            app::applyRoutes(in, o, [](const QString& name) { return QStringLiteral("Label(%1)").arg(name); });
        if (p) {
            QCOMPARE(p->option + QStringLiteral(": ") + p->message, options);
            QVERIFY(core::PortfolioFile::encode({}, o) == core::PortfolioFile::encode({}, before));
            return;
        }
        QStringList names;
        for (const QString& pair : options.split(u' ')) {
            names << pair.section(u'=', 0, 0);
        }
        QCOMPARE(optionsText(o, names), options);
        if (texts.contains(QStringLiteral("smtp.password= s3 cret"))) {
            QCOMPARE(o.smtp.password, QStringLiteral(" s3 cret"));
        }
    }

    // Finish: the file written (private to the user), the startup file, paging and the
    // schedule on, and the new setup the one in use.
    void finishMakesTheSetupTheOneInUse()
    {
        QTemporaryDir dir;
        support::MockClock clock(QDateTime(QDate(2026, 11, 23), QTime(17, 0)));
        testing::TestHost host(&clock);
        QFile::remove(settings::SettingsStore().fileName());
        app::Application app(clock, host, dir.filePath(QStringLiteral("data")));
        app.reportMissingStartupFile = false;
        app.startup();
        QVERIFY(!app.state().menusEnabled);

        core::PortfolioTable table;
        QVERIFY(!app::buildWatchList({{QStringLiteral("IBM"), QStringLiteral("150"), {}, {}}}, table));
        core::Options o = app.freshOptions();
        app::RouteInput in;
        in.push = true;
        in.texts.insert(QStringLiteral("push.url"), QStringLiteral("http://127.0.0.1:9/kestrova-x"));
        QVERIFY(!app::applyRoutes(in, o, [](const QString& n) { return n; }));
        o.schedule = app::marketHoursSchedule(o.schedule, {app::kMarketOpen, app::kMarketClose});

        const QString file = dir.filePath(QStringLiteral("Documents/My Watch"));
        QVERIFY(app.finishSetup(table, o, file));
        const QString pgr = file + QStringLiteral(".pgr");
        QCOMPARE(QFile::permissions(pgr) & (QFile::ReadGroup | QFile::ReadOther), QFile::Permissions());
        QCOMPARE(settings::SettingsStore().get(settings::kSettingsSection, QStringLiteral("DefaultFile"), {}), pgr);
        QCOMPARE(app.state().currentFile, pgr);
        QVERIFY(app.state().menusEnabled && !app.state().fileModified);
        QVERIFY(app.state().options.paging.enabled && app.state().options.schedule.enabled);
        QCOMPARE(app.state().labels.paging, QStringLiteral("Push"));

        core::PortfolioTable backTable;
        core::Options back;
        QVERIFY(core::PortfolioFile::read(pgr, backTable, back).ok());
        QCOMPARE(recordsText(backTable), QStringLiteral("IBM 150 0 0 0 1"));
        QVERIFY(back.paging.enabled && back.schedule.enabled && back.push.enabled);
        QCOMPARE(back.schedule.startTime, QStringLiteral("9:45 am"));
        QVERIFY(host.messages.isEmpty()); // no startup-file question: Finish is the answer
    }
};

QTEST_MAIN(TestFirstSetup)
#include "test_firstsetup.moc"
