#include "../peers/CliRun.h"
#include "core/ModemProfiles.h"
#include "core/PortfolioFile.h"
#include "settings/SettingsStore.h"

#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrova::core;
using kestrova::testing::CliRun;
using kestrova::testing::readFile;
using kestrova::testing::runCli;
using kestrova::testing::writeFile;

// Runs the real kestrova-cli in a data folder and a settings folder of its own.
class TestCliPortfolio : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_home;
    QString dataDir() const { return m_home->filePath(QStringLiteral("data")); }
    QString configDir() const { return m_home->filePath(QStringLiteral("config")); }
    QString defaultFile() const { return dataDir() + QStringLiteral("/DEFAULT.PGR"); }

    CliRun cli(const QStringList& args, const QByteArray& input = {})
    {
        return runCli(*m_home, QStringList{QStringLiteral("--data-dir"), dataDir()} + args, 30000, input);
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariable("KESTROVA_CLI").isEmpty()) {
            QSKIP("KESTROVA_CLI does not name the program");
        }
    }
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        QDir().mkpath(dataDir());
    }

    void exitCodes_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message"); // the error output's only line; empty: not checked
        const QString missing = QStringLiteral("File {data}/DEFAULT.PGR does not exist.");
        // clang-format off
        QTest::newRow("program help") << QStringList{"--help"} << 0 << "";
        QTest::newRow("no command") << QStringList{} << 2 << "";
        QTest::newRow("unknown command") << QStringList{"frobnicate"} << 2 << "";
        QTest::newRow("unknown global option") << QStringList{"--nope", "portfolio", "show"} << 2 << "";
        QTest::newRow("show help") << QStringList{"portfolio", "show", "--help"} << 0 << "";
        QTest::newRow("list help") << QStringList{"options", "list", "--help"} << 0 << "";
        QTest::newRow("show without a file") << QStringList{"portfolio", "show"} << 1 << missing;
        QTest::newRow("remove without a file") << QStringList{"portfolio", "remove", "IBM"} << 1 << "";
        QTest::newRow("run without a file") << QStringList{"run"} << 1 << missing;
        QTest::newRow("run, bad save answer") << QStringList{"run", "--save-on-exit", "maybe"} << 2 << "";
        QTest::newRow("add without ticker") << QStringList{"portfolio", "add"} << 2 << "";
        QTest::newRow("add bad type") << QStringList{"portfolio", "add", "X", "--type", "bond"} << 2 << "";
        QTest::newRow("add bad limit") << QStringList{"portfolio", "add", "X", "--high", "lots"} << 2 << "";
        QTest::newRow("add server out of range") << QStringList{"portfolio", "add", "X", "--server", "13"} << 2 << "";
        QTest::newRow("add unknown switch") << QStringList{"portfolio", "add", "X", "--colour"} << 2 << "";
        QTest::newRow("get unknown option") << QStringList{"options", "get", "pager.colour"} << 2 << "";
        QTest::newRow("set without value") << QStringList{"options", "set", "pager.id"} << 2 << "";
        QTest::newRow("set out of range") << QStringList{"options", "set", "pager.max_length", "0"} << 2 << "";
        QTest::newRow("list with no file yet") << QStringList{"options", "list"} << 0 << "";
        QTest::newRow("portfolio help") << QStringList{"portfolio", "--help"} << 0 << "";
        QTest::newRow("options help") << QStringList{"options", "-h"} << 0 << "";
        QTest::newRow("portfolio set help") << QStringList{"portfolio", "set", "--help"} << 0 << "";
        // clang-format on
        for (const char* c :
             {"servers", "quotes", "page", "check-mail", "update", "run", "demo", "demo-market", "modem-sim"}) {
            QTest::newRow(qPrintable(QStringLiteral("%1 help").arg(QLatin1String(c))))
                << QStringList{c, "--help"} << 0 << QString();
        }
    }
    void exitCodes()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, message);
        const CliRun r = cli(args);
        QCOMPARE(r.code, code);
        if (code != 0) {
            QVERIFY(!r.err.isEmpty());
        }
        if (!message.isEmpty()) {
            QCOMPARE(r.err.trimmed(), QString(message).replace(QStringLiteral("{data}"), dataDir()));
        }
    }

    // Bad arguments: a message that says what is wrong, exit 2, and nothing saved.
    void badArguments_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("message");
        const QString longTicker(40, u'X');
        // clang-format off
        QTest::newRow("data dir without a value") << QStringList{"--data-dir"} << "--data-dir needs a value";
        QTest::newRow("portfolio without a value") << QStringList{"--portfolio"} << "--portfolio needs a value";
        QTest::newRow("group alone") << QStringList{"portfolio"} << "portfolio needs a subcommand: show, add, set, remove";
        QTest::newRow("unknown subcommand") << QStringList{"options", "erase"} << "options has no subcommand erase: choose list, get, set";
        QTest::newRow("negative high limit") << QStringList{"portfolio", "add", "IBM", "--high", "-5"} << "high limit: must be 0";
        QTest::newRow("negative low limit") << QStringList{"portfolio", "add", "IBM", "--low", "-0.01"} << "low limit: must be 0";
        QTest::newRow("40-character ticker") << QStringList{"portfolio", "add", longTicker} << "at most 21 characters";
        QTest::newRow("ticker outside Windows-1252") << QStringList{"portfolio", "add", QStringLiteral("\u6f22\u5b57")} << "ticker";
        QTest::newRow("option outside Windows-1252") << QStringList{"options", "set", "pager.id", QStringLiteral("\u6f22")} << "pager.id";
        QTest::newRow("set without changes") << QStringList{"portfolio", "set", "IBM"} << "nothing to change";
        // clang-format on
    }
    void badArguments()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, message);
        const CliRun r = cli(args);
        QCOMPARE(r.code, 2);
        QVERIFY2(r.err.contains(message), qPrintable(r.err));
        QVERIFY(!r.err.contains(QLatin1String("unknown")));
        QVERIFY(!QFile::exists(defaultFile()));
    }

    void addShowRemove()
    {
        QCOMPARE(cli({"portfolio", "add", "IBM", "--high", "150.5", "--low", "120", "--high-chg", "5", "--low-chg",
                      "-7.25", "--volume", "1500000", "--news"})
                     .code,
                 0);
        QCOMPARE(cli({"portfolio", "add", "XYZ AB", "--type", "option", "--digits", "3", "--server", "5", "--no-pager"})
                     .code,
                 0);
        QCOMPARE(
            cli({"portfolio", "add", "VFIAX", "--type", "fund", "--market-only", "--digits", "0", "--high", "45"}).code,
            0);
        QCOMPARE(cli({"portfolio", "add", "ibm"}).code, 1); // already there, whatever the case

        const CliRun show = cli({"portfolio", "show"});
        QCOMPARE(show.code, 0);
        const QStringList lines = show.out.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 4);
        const QStringList ibm = lines[1].simplified().split(u' ');
        QCOMPARE(ibm.mid(0, 11), (QStringList{"0", "IBM", "Stock", "150.50", "120.00", "5.0%", "-7.3%", "1,500,000",
                                              "Shares", "2", "0"}));
        QCOMPARE(ibm.mid(11), (QStringList{"yes", "no", "yes"}));
        QVERIFY(lines[2].contains(QLatin1String("XYZ AB")));
        QVERIFY(lines[2].contains(QLatin1String(" Option ")));
        QVERIFY(lines[2].contains(QLatin1String("0.000")));
        QVERIFY(lines[3].contains(QLatin1String("Mutual Fund")));
        QVERIFY2(lines[3].contains(QLatin1String(" 45. ")), qPrintable(lines[3])); // "##0." with no decimals

        QCOMPARE(cli({"portfolio", "remove", "xyz ab"}).code, 0);
        QCOMPARE(cli({"portfolio", "remove", "XYZ AB"}).code, 1);

        PortfolioTable t;
        Options o;
        QVERIFY(PortfolioFile::read(defaultFile(), t, o).ok());
        QCOMPARE(t.count, qint16(2));
        QCOMPARE(t.records[0].ticker, QStringLiteral("IBM"));
        QCOMPARE(t.records[0].highLimit, 150.5f);
        QCOMPARE(t.records[0].lowChgLimit, -7.25f);
        QCOMPARE(t.records[0].volumeLimit, 1500000);
        QCOMPARE(t.records[0].news, qint16(1));
        QCOMPARE(t.records[0].toPager, qint16(1));
        QCOMPARE(t.records[1].ticker, QStringLiteral("VFIAX"));
        QCOMPARE(t.records[1].securityType, qint16(2));
        QCOMPARE(t.records[1].marketOnly, qint16(1));
        QCOMPARE(QFile::permissions(defaultFile()) & QFileDevice::ReadOther, QFileDevice::Permissions());
    }

    void setChangesOnlyTheGivenFields()
    {
        QCOMPARE(cli({"portfolio", "add", "IBM", "--high", "120", "--low", "90", "--digits", "3", "--news"}).code, 0);
        QCOMPARE(cli({"portfolio", "add", "MSFT", "--volume", "100"}).code, 0);
        const CliRun set = cli({"portfolio", "set", "ibm", "--high", "130.5", "--no-news", "--market-only"});
        QCOMPARE(set.code, 0);
        QVERIFY2(set.out.contains(QLatin1String("IBM")), qPrintable(set.out));
        QCOMPARE(cli({"portfolio", "set", "AAPL", "--high", "1"}).code, 1);
        QCOMPARE(cli({"portfolio", "set", "MSFT", "--low", "-1"}).code, 2);
        PortfolioTable t;
        Options o;
        QVERIFY(PortfolioFile::read(defaultFile(), t, o).ok());
        QCOMPARE(t.count, qint16(2));
        PortfolioRecord ibm;
        ibm.ticker = QStringLiteral("IBM");
        ibm.highLimit = 130.5f;
        ibm.lowLimit = 90;
        ibm.digits = 3;
        ibm.toPager = 1;
        ibm.marketOnly = 1;
        QCOMPARE(t.records[0], ibm);
        QCOMPARE(t.records[1].volumeLimit, 100);
    }

    void fiftyIsTheLimit()
    {
        PortfolioTable t;
        t.count = 50;
        for (int i = 0; i < 50; ++i) {
            t.records[static_cast<size_t>(i)].ticker = QStringLiteral("T%1").arg(i);
        }
        Options o;
        setBuiltInModemProfiles(o.modem);
        const QString file = m_home->filePath(QStringLiteral("full.pgr"));
        QVERIFY(PortfolioFile::write(file, t, o).ok());
        const QByteArray before = readFile(file);
        const CliRun r = cli({"--portfolio", file, "portfolio", "add", "ONE_MORE"});
        QCOMPARE(r.code, 1);
        QCOMPARE(r.err.trimmed(), QStringLiteral("Too Many Tickers (50 Max)"));
        QCOMPARE(readFile(file), before);
    }

    // A value options set refuses saves nothing; the schedule dialog's rules apply to the
    // schedule as it would be after the change.
    void setRules_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message"); // on stderr
        QTest::addColumn<QString>("stored");  // options get afterwards
        // clang-format off
        QTest::newRow("zero length") << "pager.max_length" << "0" << 2 << "pager.max_length: You must enter a non-zero maximum page length." << "80";
        QTest::newRow("dashes in the pager ID") << "pager.id" << "555-1234" << 2 << "pager.id: Please enter Pager ID without dashes" << "";
        QTest::newRow("e-mail paging without a recipient") << "smtp.enabled" << "true" << 2 << "smtp.recipient: You must enter a valid recipient email address" << "false";
        QTest::newRow("proxy without a host") << "proxy.enabled" << "on" << 2 << "proxy.host: You must enter either a host name or host address for the proxy server." << "false";
        QTest::newRow("not a number") << "smtp.port" << "twenty-five" << 2 << "smtp.port" << "25";
        QTest::newRow("not a bool") << "paging.enabled" << "perhaps" << 2 << "paging.enabled" << "false";
        QTest::newRow("bad time") << "schedule.start_time" << "9 o'clock" << 2 << "schedule.start_time" << "9:00 am";
        QTest::newRow("bad serial settings") << "modem.settings" << "9600-N-8-1" << 2 << "modem.settings" << "9600,N,8,1";
        QTest::newRow("start after stop") << "schedule.start_time" << "5:00 pm" << 2 << "Start time must be less than Stop time." << "9:00 am";
        QTest::newRow("stop before start") << "schedule.stop_time" << "8:59 am" << 2 << "Start time must be less than Stop time." << "4:00 pm";
        QTest::newRow("start equal to stop") << "schedule.start_time" << "4:00 pm" << 0 << "" << "4:00 pm";
        QTest::newRow("short interval warns") << "schedule.interval" << "3" << 0 << "It is not recommended to update less than 5 minutes..." << "3";
        QTest::newRow("integer part") << "schedule.interval" << "7.9" << 0 << "" << "7";
        QTest::newRow("no interval") << "schedule.interval" << "0" << 2 << "schedule.interval" << "15";
        QTest::newRow("bad close time") << "schedule.close_time" << "4 pm" << 2 << "Invalid Time:4 pm" << "4:00 pm";
        QTest::newRow("bad open time") << "schedule.open_time" << "9.30" << 2 << "Invalid Time: ex. 03:42:00 pm" << "9:30 am";
        // clang-format on
    }
    void setRules()
    {
        QFETCH(QString, name);
        QFETCH(QString, value);
        QFETCH(int, code);
        QFETCH(QString, message);
        QFETCH(QString, stored);
        QCOMPARE(cli({"portfolio", "add", "IBM"}).code, 0);
        const QByteArray before = readFile(defaultFile());
        const CliRun r = cli({"options", "set", name, value});
        QCOMPARE(r.code, code);
        QVERIFY2(message.isEmpty() ? r.err.isEmpty() : r.err.contains(message), qPrintable(r.err));
        QCOMPARE(cli({"options", "get", name}).out.trimmed(), stored);
        if (code != 0) {
            QCOMPARE(readFile(defaultFile()), before);
        }
    }

    // Related options change in one command: the pairs are checked as one setup and saved
    // all together or not at all.
    void setSeveralAtOnce_data()
    {
        QTest::addColumn<QStringList>("pairs");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");      // on stderr; empty: nothing there
        QTest::addColumn<QStringList>("expected"); // name=value as options get shows it afterwards
        // clang-format off
        QTest::newRow("e-mail paging with what it needs")
            << QStringList{"smtp.enabled", "true", "smtp.recipient", "p@x.org", "smtp.host", "mail.x.org"} << QByteArray()
            << 0 << "" << QStringList{"smtp.enabled=true", "smtp.recipient=p@x.org", "smtp.host=mail.x.org"};
        QTest::newRow("one refused value saves none")
            << QStringList{"pager.max_length", "120", "smtp.port", "70000"} << QByteArray()
            << 2 << "smtp.port: must be between 1 and 65535" << QStringList{"pager.max_length=80", "smtp.port=25"};
        QTest::newRow("the schedule's window moved as one")
            << QStringList{"schedule.start_time", "5:00 pm", "schedule.stop_time", "6:00 pm"} << QByteArray()
            << 0 << "" << QStringList{"schedule.start_time=5:00 pm", "schedule.stop_time=6:00 pm"};
        QTest::newRow("a preference waits for the setup")
            << QStringList{"prefs.mail_size", "64", "pager.id", "1-2"} << QByteArray()
            << 2 << "pager.id: Please enter Pager ID without dashes" << QStringList{"prefs.mail_size=20", "pager.id="};
        QTest::newRow("a preference and the setup")
            << QStringList{"prefs.mail_size", "64", "pager.id", "12"} << QByteArray()
            << 0 << "" << QStringList{"prefs.mail_size=64", "pager.id=12"};
        QTest::newRow("two passwords from standard input")
            << QStringList{"smtp.password", "-", "mail.password", "-"} << QByteArray("first secret\nsecond\n")
            << 0 << "" << QStringList{"smtp.password=***", "mail.password=***"};
        QTest::newRow("a name without its value")
            << QStringList{"pager.id", "12", "pager.phone"} << QByteArray()
            << 2 << "an option name and a value are needed" << QStringList{"pager.id="};
        // clang-format on
    }
    void setSeveralAtOnce()
    {
        QFETCH(QStringList, pairs);
        QFETCH(QByteArray, input);
        QFETCH(int, code);
        QFETCH(QString, message);
        QFETCH(QStringList, expected);
        QCOMPARE(cli({"portfolio", "add", "IBM"}).code, 0);
        const QByteArray before = readFile(defaultFile());
        const CliRun r = cli(QStringList{"options", "set"} + pairs, input);
        QCOMPARE(r.code, code);
        QVERIFY2(message.isEmpty() ? r.err.isEmpty() : r.err.contains(message), qPrintable(r.err));
        QVERIFY2(!r.out.contains(QLatin1String("secret")), qPrintable(r.out));
        for (const QString& pair : expected) {
            QCOMPARE(cli({"options", "get", pair.section(u'=', 0, 0)}).out.trimmed(), pair.section(u'=', 1));
        }
        if (code != 0) {
            QCOMPARE(readFile(defaultFile()), before);
        } else if (!input.isEmpty()) {
            PortfolioTable t;
            Options o;
            QVERIFY(PortfolioFile::read(defaultFile(), t, o).ok());
            QCOMPARE(o.smtp.password, QStringLiteral("first secret"));
            QCOMPARE(o.mail.password, QStringLiteral("second"));
        }
    }

    void setAndGet()
    {
        QCOMPARE(cli({"options", "set", "pager.max_length", "120"}).code, 0);
        QCOMPARE(cli({"options", "set", "smtp.port", "60025"}).code, 0);
        QCOMPARE(cli({"options", "set", "schedule.interval", "10"}).code, 0);
        QCOMPARE(cli({"options", "get", "pager.max_length"}).out.trimmed(), QStringLiteral("120"));
        QCOMPARE(cli({"options", "get", "smtp.port"}).out.trimmed(), QStringLiteral("60025"));
        PortfolioTable t;
        Options o;
        QVERIFY(PortfolioFile::read(defaultFile(), t, o).ok());
        QCOMPARE(o.paging.maxLength, qint16(120));
        QCOMPARE(o.schedule.intervalMinutes, qint16(10));
        QCOMPARE(o.modem.profiles[2].name, QStringLiteral("Hayes Compatible"));
        const QString list = cli({"options", "list"}).out;
        QVERIFY(list.contains(QRegularExpression(QStringLiteral("\\npager\\.max_length +int +120\\n"))));
        QVERIFY(list.contains(QRegularExpression(QStringLiteral("\\nsmtp\\.enabled +bool +false\\n"))));
    }

    // The program-wide preferences live in the settings store, in the forms start-up reads.
    void preferences_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("shown");
        // clang-format off
        QTest::newRow("mail check off") << "prefs.check_mail" << "false" << 0 << "CheckMail" << "0" << "false";
        QTest::newRow("no download") << "prefs.get_mail" << "no" << 0 << "GetMail" << "0" << "false";
        QTest::newRow("status window on") << "prefs.show_status" << "on" << 0 << "ShowStatus" << "1" << "true";
        QTest::newRow("no tray") << "prefs.system_tray" << "0" << 0 << "SystemTray" << "0" << "false";
        QTest::newRow("no notifications") << "prefs.notifications" << "off" << 0 << "Notifications" << "0" << "false";
        QTest::newRow("update check off") << "prefs.check_updates" << "false" << 0 << "CheckUpdates" << "False" << "false";
        QTest::newRow("update check on") << "prefs.check_updates" << "yes" << 0 << "CheckUpdates" << "True" << "true";
        QTest::newRow("mail size") << "prefs.mail_size" << "64" << 0 << "MailSize" << "64" << "64";
        QTest::newRow("startup file") << "prefs.default_file" << "/srv/watch.pgr" << 0 << "DefaultFile" << "/srv/watch.pgr" << "/srv/watch.pgr";
        QTest::newRow("page cap") << "prefs.max_page_kb" << "8192" << 0 << "MaxPageKB" << "8192" << "8192";
        QTest::newRow("page cap below a page") << "prefs.max_page_kb" << "8" << 2 << "MaxPageKB" << "" << "4096";
        QTest::newRow("mail size not a number") << "prefs.mail_size" << "big" << 2 << "MailSize" << "" << "20";
        QTest::newRow("modem device") << "modem.device" << "/dev/pts/9" << 0 << "ModemDevice" << "/dev/pts/9" << "/dev/pts/9";
        QTest::newRow("keep a year of history") << "history.keep_days" << "365" << 0 << "HistoryKeepDays" << "365" << "365";
        QTest::newRow("keep no history") << "history.keep_days" << "0" << 2 << "HistoryKeepDays" << "" << "730";
        QTest::newRow("history off") << "history.enabled" << "no" << 0 << "HistoryEnabled" << "0" << "false";
        QTest::newRow("history flag not a boolean") << "history.enabled" << "sometimes" << 2 << "HistoryEnabled" << "" << "true";
        QTest::newRow("flag not a boolean") << "prefs.check_mail" << "maybe" << 2 << "CheckMail" << "" << "true";
        // clang-format on
    }
    void preferences()
    {
        QFETCH(QString, name);
        QFETCH(QString, value);
        QFETCH(int, code);
        QFETCH(QString, key);
        QFETCH(QString, stored);
        QFETCH(QString, shown);
        const CliRun set = cli({"options", "set", name, value});
        QCOMPARE(set.code, code);
        QCOMPARE(set.out, code == 0 ? name + QStringLiteral(" = ") + shown + u'\n' : QString());
        const kestrova::settings::SettingsStore store(configDir() + QStringLiteral("/Kestrova/Kestrova.ini"));
        QCOMPARE(store.get(QStringLiteral("Settings"), key), stored);
        QCOMPARE(cli({"options", "get", name}).out, shown + u'\n');
        QVERIFY(!QFile::exists(defaultFile())); // the portfolio file is not touched
    }

    // Every option of the list is followed by a line that says what it is and what it takes.
    void listExplainsEachOption_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("explained");
        // clang-format off
        QTest::newRow("range") << "pager.max_length" << "1 to 32767";
        QTest::newRow("choices") << "modem.flow_control" << "0 None, 1 XON/XOFF, 2 RTS/CTS, 3 BOTH";
        QTest::newRow("boolean") << "smtp.enabled" << "true or false";
        QTest::newRow("time") << "schedule.start_time" << "a time such as 03:42:00 pm";
        QTest::newRow("label") << "pager.phone" << "PGR Service Phone No.";
        QTest::newRow("preference") << "prefs.check_mail" << "true or false";
        // clang-format on
    }
    void listExplainsEachOption()
    {
        QFETCH(QString, name);
        QFETCH(QString, explained);
        const QStringList lines = cli({"options", "list"}).out.split(u'\n', Qt::SkipEmptyParts);
        QVERIFY(lines.size() > 100);
        for (qsizetype i = 0; i < lines.size(); i += 2) {
            QVERIFY2(!lines[i].startsWith(u' '), qPrintable(lines[i]));
            QVERIFY2(i + 1 < lines.size() && lines[i + 1].startsWith(QLatin1String("    ")) &&
                         lines[i + 1].trimmed().size() > 5,
                     qPrintable(lines[i]));
        }
        const qsizetype at =
            lines.indexOf(QRegularExpression(u'^' + QRegularExpression::escape(name) + QStringLiteral(" .*")));
        QVERIFY2(at >= 0, qPrintable(name));
        QVERIFY2(lines[at + 1].contains(explained), qPrintable(lines[at + 1]));
    }

    void passwordFromStdinIsNeverShown()
    {
        const QByteArray secret = "Xq7-secret";
        const CliRun set = cli({"options", "set", "mail.password", "-"}, secret + "\n");
        QCOMPARE(set.code, 0);
        QVERIFY(!set.out.contains(QString::fromLatin1(secret)));
        QVERIFY(!set.err.contains(QString::fromLatin1(secret)));
        const CliRun get = cli({"options", "get", "mail.password"});
        QCOMPARE(get.out.trimmed(), QStringLiteral("***"));
        const CliRun list = cli({"options", "list"});
        QVERIFY(list.out.contains(QRegularExpression(QStringLiteral("\\nmail\\.password +password +\\*\\*\\*\\n"))));
        QVERIFY(!list.out.contains(QString::fromLatin1(secret)));
        QVERIFY(!readFile(defaultFile()).contains(secret)); // scrambled in the file
        QVERIFY(!readFile(dataDir() + QStringLiteral("/activity.txt")).contains(secret));
        PortfolioTable t;
        Options o;
        QVERIFY(PortfolioFile::read(defaultFile(), t, o).ok());
        QCOMPARE(o.mail.password, QString::fromLatin1(secret));
    }

    void startupFileFromSettingsAndIni()
    {
        // An old ini names the startup file; the first run migrates it and removes the ini.
        const QString mine = m_home->filePath(QStringLiteral("mine.pgr"));
        writeFile(dataDir() + QStringLiteral("/kestrova.ini"),
                  "[Kestrova]\r\nDefaultFile=" + mine.toLocal8Bit() + "\r\nShowStatus=0\r\n");
        QCOMPARE(cli({"portfolio", "add", "MSFT"}).code, 0);
        QVERIFY(!QFile::exists(dataDir() + QStringLiteral("/kestrova.ini")));
        QVERIFY(QFile::exists(mine));
        QVERIFY(!QFile::exists(defaultFile()));
        QVERIFY(cli({"portfolio", "show"}).out.contains(QLatin1String("MSFT")));
        // --portfolio wins over the startup file.
        const QString other = m_home->filePath(QStringLiteral("other.pgr"));
        QCOMPARE(cli({"--portfolio", other, "portfolio", "add", "AAPL"}).code, 0);
        QVERIFY(!cli({"portfolio", "show"}).out.contains(QLatin1String("AAPL")));
        QVERIFY(cli({"--portfolio", other, "portfolio", "show"}).out.contains(QLatin1String("AAPL")));
    }

    void olderFileIsUsedAndConverted()
    {
        PortfolioTable t;
        t.count = 1;
        t.records[0].ticker = QStringLiteral("OLD");
        Options o;
        setBuiltInModemProfiles(o.modem);
        const QByteArray full = PortfolioFile::encode(t, o);
        writeFile(defaultFile(), full.left(full.indexOf("\"Stored Profile\""))); // ends before the modem table
        const CliRun show = cli({"portfolio", "show"});
        QCOMPARE(show.code, 0);
        QVERIFY(show.err.contains(QLatin1String("Your data file is an older version.")));
        QVERIFY(show.out.contains(QLatin1String("OLD")));
        QCOMPARE(cli({"portfolio", "add", "NEW"}).code, 0);
        PortfolioTable back;
        Options ob;
        QVERIFY(PortfolioFile::read(defaultFile(), back, ob).ok());
        QCOMPARE(back.count, qint16(2));
    }
};

QTEST_GUILESS_MAIN(TestCliPortfolio)
#include "test_cli_portfolio.moc"
