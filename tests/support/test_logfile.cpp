#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Services.h"
#include "support/StatusLine.h"

#include "ServicesRig.h"
#include "TestHost.h"
#include "TestUtil.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstring>

using namespace kestrova::support;
using kestrova::testing::readFile;
using kestrova::testing::TestHost;
using kestrova::testing::writeFile;

class TestLogFile : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void oldName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("old");
        // clang-format off
        QTest::newRow("usual") << "activity.txt" << "activity.old";
        QTest::newRow("no dot") << "activity" << "activity.old";
        QTest::newRow("first dot counts") << "my.log.txt" << "my.old";
        QTest::newRow("leading dot") << ".log" << ".old";
        // clang-format on
    }
    void oldName()
    {
        QFETCH(QString, name);
        QFETCH(QString, old);
        MockClock clock;
        TestHost host(&clock);
        CLogFile log(clock, host);
        log.setLogFileName(name);
        QCOMPARE(log.oldFileName(), old);
    }

    void lineFormAndRotation()
    {
        const kestrova::testing::ScopedUmask umask(022);
        QTemporaryDir dir;
        const QString folder = dir.filePath(QStringLiteral("logs")); // created by setPath
        MockClock clock(QDateTime(QDate(2026, 11, 23), QTime(14, 3, 7)));
        TestHost host(&clock);
        {
            CLogFile log(clock, host);
            log.setLogFileName(QStringLiteral("activity.txt"));
            log.setPath(folder);
            QVERIFY(QFileInfo(folder).isDir());
            QCOMPARE(kestrova::testing::fileMode(folder), QStringLiteral("700"));
            log.setLogEnable(true);
            QString box = QStringLiteral("before\r\n");
            log.LogMessage(QStringLiteral("Kestrova started on"), &box);
            log.LogMessage(QStringLiteral("second"));
            const QByteArray expected = "Kestrova started on 11/23/2026 2:03:07 PM\r\nsecond 11/23/2026 2:03:07 PM\r\n";
            QCOMPARE(readFile(log.fullPath()), expected);
            QCOMPARE(box, QStringLiteral("before\r\nKestrova started on 11/23/2026 2:03:07 PM\r\n"));

            // Off then on again in the same run starts a fresh log; the first half becomes .old.
            log.setLogEnable(false);
            log.LogMessage(QStringLiteral("not written"));
            QCOMPARE(readFile(log.fullPath()), expected);
            log.setLogEnable(true);
            QCOMPARE(readFile(log.oldFullPath()), expected);
            QCOMPARE(readFile(log.fullPath()), QByteArray());
            log.LogMessage(QStringLiteral("third"));
            log.ClearLogFile();
            log.ReadLogFile();
            QCOMPARE(readFile(log.fullPath()), QByteArray("third 11/23/2026 2:03:07 PM\r\n"));
        }
        {
            // The next run keeps only one generation: the run before last is gone. A log an
            // older version left readable to all is the user's alone once it is the old log.
            QFile::setPermissions(folder + QStringLiteral("/activity.txt"),
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther);
            CLogFile log(clock, host);
            log.setLogFileName(QStringLiteral("activity.txt"));
            log.setPath(folder);
            log.setLogEnable(true);
            QCOMPARE(readFile(log.oldFullPath()), QByteArray("third 11/23/2026 2:03:07 PM\r\n"));
            QCOMPARE(kestrova::testing::filesNotInMode(folder, QStringLiteral("600")), QStringList());
            QVERIFY(QFileInfo::exists(log.fullPath()));
        }
        QVERIFY(host.messages.isEmpty());
    }

    // A log that cannot be written shows the system's text and names the file, once per
    // line it loses; what was logged before stays.
    void failureNamesTheFile_data()
    {
        QTest::addColumn<bool>("rotate");
        QTest::addColumn<QString>("folder"); // the name taken by a folder
        QTest::newRow("old log cannot be removed") << true << "activity.old";
        QTest::newRow("log cannot be opened") << false << "activity.txt";
    }
    void failureNamesTheFile()
    {
        QFETCH(bool, rotate);
        QFETCH(QString, folder);
        QTemporaryDir dir;
        MockClock clock;
        TestHost host(&clock);
        CLogFile log(clock, host);
        log.setLogFileName(QStringLiteral("activity.txt"));
        log.setPath(dir.path());
        if (rotate) {
            writeFile(log.fullPath(), "last run\r\n");
        }
        QVERIFY(QDir().mkdir(dir.filePath(folder)));
        log.setLogEnable(true, rotate ? CLogFile::Start::NewLog : CLogFile::Start::Append);
        log.LogMessage(QStringLiteral("next"));
        QCOMPARE(host.messages,
                 QStringList{QString::fromLocal8Bit(std::strerror(EISDIR)) + " (" + dir.filePath(folder) + u')'});
        if (rotate) {
            QVERIFY(readFile(log.fullPath()).startsWith("last run\r\nnext "));
        }
    }

    void disabledLogTouchesNothing()
    {
        QTemporaryDir dir;
        MockClock clock;
        TestHost host(&clock);
        CLogFile log(clock, host);
        log.setLogFileName(QStringLiteral("activity.txt"));
        log.setPath(dir.path());
        QString box = QStringLiteral("kept");
        log.LogMessage(QStringLiteral("x"), &box);
        QCOMPARE(box, QStringLiteral("kept"));
        QVERIFY(!QFileInfo::exists(log.fullPath()));
    }

    void enableWithoutNameIsRefused()
    {
        MockClock clock;
        TestHost host(&clock);
        CLogFile log(clock, host);
        log.setLogEnable(true);
        QVERIFY(!log.logEnable());
        QCOMPARE(host.messages, QStringList{QStringLiteral("Invalid path or filename in LogFile Class")});
    }

    void statusMessageGoesToListAndLog()
    {
        kestrova::testing::ServicesRig rig;
        rig.clock.set(QDateTime(QDate(2026, 11, 23), QTime(9, 0, 0)));
        rig.services.StatusMessage(QStringLiteral("Getting Stock Quotes"));
        QCOMPARE(rig.host.statusLines, QStringList{QStringLiteral("Getting Stock Quotes   11/23/2026 9:00:00 AM\r\n")});
        QCOMPARE(rig.activity(), QStringLiteral("Getting Stock Quotes 11/23/2026 9:00:00 AM\r\n"));
    }

    // Whole seconds, rounded half to even; a cancel ends the wait at the next yield. The
    // modem line's pauses are these.
    void pause_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<int>("cancelAtYield"); // 0: never
        QTest::addColumn<int>("expectedMs");
        QTest::addColumn<int>("slackMs");
        // clang-format off
        QTest::newRow("half a second is none") << 0.5 << 0 << 0 << 0;
        QTest::newRow("zero") << 0.0 << 0 << 0 << 0;
        QTest::newRow("one and a half is two") << 1.5 << 0 << 2000 << 250;
        QTest::newRow("two") << 2.0 << 0 << 2000 << 250;
        QTest::newRow("two and a half is two") << 2.5 << 0 << 2000 << 250;
        QTest::newRow("three") << 3.0 << 0 << 3000 << 250;
        QTest::newRow("cancelled at the third yield") << 60.0 << 3 << 750 << 0;
        // clang-format on
    }
    void pause()
    {
        QFETCH(double, seconds);
        QFETCH(int, cancelAtYield);
        QFETCH(int, expectedMs);
        QFETCH(int, slackMs);
        MockClock clock;
        TestHost host(&clock);
        host.clockStepMs = 250;
        CancelFlag cancel;
        CLogFile log(clock, host);
        Services services{clock, host, cancel, log};
        int yields = 0;
        host.onYield = [&] {
            if (++yields == cancelAtYield) {
                cancel.set();
            }
        };
        const QDateTime start = clock.now();
        services.pause(seconds);
        const qint64 waited = start.msecsTo(clock.now());
        QVERIFY2(waited >= expectedMs && waited <= expectedMs + slackMs, qPrintable(QString::number(waited)));
    }

    void cappedTexts()
    {
        QString list(kTextCap, u'a');
        list[kTextDrop] = u'b';
        appendCapped(list, QStringLiteral("new"));
        QCOMPARE(list.size(), kTextCap - kTextDrop + 3);
        QVERIFY(list.startsWith(u'b'));
        QVERIFY(list.endsWith(QStringLiteral("new")));

        QString shortList(kTextCap - 1, u'a');
        appendCapped(shortList, QStringLiteral("x"));
        QCOMPARE(shortList.size(), kTextCap);

        QString term(20000, u'z');
        terminalAppend(term, QString());
        QCOMPARE(term.size(), 15904);
    }

    void terminalEcho_data()
    {
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("added");
        QTest::addColumn<QString>("expected");
        // clang-format off
        QTest::newRow("plain") << "abc" << "def" << "abcdef";
        QTest::newRow("line feeds dropped") << "" << "OK\r\n" << "OK\r";
        QTest::newRow("backspace deletes previous") << "" << "ab\bc" << "ac";
        QTest::newRow("leading backspace deletes shown") << "xy" << "\bz" << "xz";
        QTest::newRow("backspace eats the line feed first") << "a" << "\n\bb" << "ab";
        QTest::newRow("backspace on empty") << "" << "\ba" << "a";
        // clang-format on
    }
    void terminalEcho()
    {
        QFETCH(QString, shown);
        QFETCH(QString, added);
        QFETCH(QString, expected);
        terminalAppend(shown, added);
        QCOMPARE(shown, expected);
    }
};

QTEST_GUILESS_MAIN(TestLogFile)
#include "test_logfile.moc"
