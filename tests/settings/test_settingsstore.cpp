#include "settings/IniMigration.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace kestrova::settings;
using kestrova::testing::readFile;
using kestrova::testing::writeFile;

namespace {

int modeOf(const QString& path)
{
    struct stat st = {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

// The preference a key feeds, as text, so one table covers flags and numbers alike.
QString reading(const Preferences& p, const QString& key)
{
    const QMap<QString, bool> flags{{"ShowStatus", p.showStatus}, {"CheckMail", p.checkMail},
                                    {"GetMail", p.getMail},       {"SystemTray", p.systemTray},
                                    {"WWWButtons", p.wwwButtons}, {"CheckUpdates", p.checkUpdates}};
    if (flags.contains(key)) {
        return flags[key] ? QStringLiteral("on") : QStringLiteral("off");
    }
    if (key == QLatin1String("MailSize")) {
        return QString::number(p.mailSize);
    }
    if (key == QLatin1String("StatusLeft")) {
        return p.statusLeft ? QString::number(*p.statusLeft) : QStringLiteral("none");
    }
    return key == QLatin1String("DefaultFile") ? p.defaultFile : QStringLiteral("?");
}

} // namespace

class TestSettingsStore : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString storePath(const char* name) const { return m_dir.filePath(QString::fromLatin1(name) + ".ini"); }

private Q_SLOTS:
    void readings_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("stored"); // a null string: key absent
        QTest::addColumn<QString>("expected");
        // clang-format off
        QTest::newRow("ShowStatus absent") << QStringLiteral("ShowStatus") << QString() << QStringLiteral("on");
        QTest::newRow("ShowStatus 0") << QStringLiteral("ShowStatus") << QStringLiteral("0") << QStringLiteral("off");
        QTest::newRow("ShowStatus no") << QStringLiteral("ShowStatus") << QStringLiteral("no") << QStringLiteral("on");
        QTest::newRow("ShowStatus 00") << QStringLiteral("ShowStatus") << QStringLiteral("00") << QStringLiteral("on");
        QTest::newRow("ShowStatus empty") << QStringLiteral("ShowStatus") << QStringLiteral("") << QStringLiteral("on");
        QTest::newRow("CheckMail 0") << QStringLiteral("CheckMail") << QStringLiteral("0") << QStringLiteral("off");
        QTest::newRow("GetMail 0") << QStringLiteral("GetMail") << QStringLiteral("0") << QStringLiteral("off");
        QTest::newRow("GetMail False") << QStringLiteral("GetMail") << QStringLiteral("False") << QStringLiteral("on");
        QTest::newRow("SystemTray 0") << QStringLiteral("SystemTray") << QStringLiteral("0") << QStringLiteral("off");
        QTest::newRow("SystemTray absent") << QStringLiteral("SystemTray") << QString() << QStringLiteral("on");
        QTest::newRow("CheckUpdates absent") << QStringLiteral("CheckUpdates") << QString() << QStringLiteral("on");
        QTest::newRow("CheckUpdates True") << QStringLiteral("CheckUpdates") << QStringLiteral("True") << QStringLiteral("on");
        QTest::newRow("CheckUpdates 1") << QStringLiteral("CheckUpdates") << QStringLiteral("1") << QStringLiteral("off");
        QTest::newRow("CheckUpdates true lower") << QStringLiteral("CheckUpdates") << QStringLiteral("true") << QStringLiteral("off");
        QTest::newRow("CheckUpdates padded") << QStringLiteral("CheckUpdates") << QStringLiteral(" True") << QStringLiteral("off");
        QTest::newRow("WWWButtons absent") << QStringLiteral("WWWButtons") << QString() << QStringLiteral("on");
        QTest::newRow("WWWButtons 1") << QStringLiteral("WWWButtons") << QStringLiteral("1") << QStringLiteral("on");
        QTest::newRow("WWWButtons 0") << QStringLiteral("WWWButtons") << QStringLiteral("0") << QStringLiteral("off");
        QTest::newRow("WWWButtons yes") << QStringLiteral("WWWButtons") << QStringLiteral("yes") << QStringLiteral("off");
        QTest::newRow("MailSize absent") << QStringLiteral("MailSize") << QString() << QStringLiteral("20");
        QTest::newRow("MailSize decimals") << QStringLiteral("MailSize") << QStringLiteral("35.9") << QStringLiteral("35");
        QTest::newRow("MailSize unit") << QStringLiteral("MailSize") << QStringLiteral("12kb") << QStringLiteral("12");
        QTest::newRow("MailSize text") << QStringLiteral("MailSize") << QStringLiteral("big") << QStringLiteral("0");
        QTest::newRow("MailSize negative") << QStringLiteral("MailSize") << QStringLiteral("-3.7") << QStringLiteral("-3");
        QTest::newRow("StatusLeft absent") << QStringLiteral("StatusLeft") << QString() << QStringLiteral("none");
        QTest::newRow("StatusLeft set") << QStringLiteral("StatusLeft") << QStringLiteral("1200") << QStringLiteral("1200");
        QTest::newRow("DefaultFile absent") << QStringLiteral("DefaultFile") << QString() << QStringLiteral("/data/DEFAULT.PGR");
        QTest::newRow("DefaultFile set") << QStringLiteral("DefaultFile") << QStringLiteral("/u/a.pgr") << QStringLiteral("/u/a.pgr");
        QTest::newRow("StatusLeft junk") << QStringLiteral("StatusLeft") << QStringLiteral("x") << QStringLiteral("none");
        // clang-format on
    }
    void readings()
    {
        QFETCH(QString, key);
        QFETCH(QString, stored);
        QFETCH(QString, expected);
        const QString path = storePath(QTest::currentDataTag());
        QFile::remove(path);
        SettingsStore store(path);
        if (!stored.isNull()) {
            store.save(kSettingsSection, key, stored);
        }
        QCOMPARE(reading(readPreferences(store, QStringLiteral("/data")), key), expected);
    }

    void keysMatchWithoutCase_data()
    {
        QTest::addColumn<QString>("writtenAs");
        QTest::addColumn<QString>("readAs");
        // clang-format off
        QTest::newRow("start-up spelling") << "DefaultFile" << "Defaultfile";
        QTest::newRow("upper") << "DEFAULTFILE" << "defaultfile";
        // clang-format on
    }
    void keysMatchWithoutCase()
    {
        QFETCH(QString, writtenAs);
        QFETCH(QString, readAs);
        const QString path = storePath(QTest::currentDataTag());
        QFile::remove(path);
        {
            SettingsStore store(path);
            store.save(kSettingsSection, writtenAs, QStringLiteral("a.pgr"));
            QVERIFY(store.sync());
        }
        SettingsStore again(path);
        QVERIFY(again.contains(kSettingsSection, readAs));
        QCOMPARE(again.get(kSettingsSection, readAs, QStringLiteral("none")), QStringLiteral("a.pgr"));
    }

    void saveReplacesAnyOtherSpelling()
    {
        const QString path = storePath("replace");
        SettingsStore store(path);
        store.save(kSettingsSection, QStringLiteral("defaultfile"), QStringLiteral("old.pgr"));
        store.save(kSettingsSection, QStringLiteral("DefaultFile"), QStringLiteral("new.pgr"));
        QVERIFY(store.sync());
        QSettings raw(path, QSettings::IniFormat);
        raw.beginGroup(kSettingsSection);
        QCOMPARE(raw.childKeys(), QStringList{QStringLiteral("DefaultFile")});
        QCOMPARE(raw.value(QStringLiteral("DefaultFile")).toString(), QStringLiteral("new.pgr"));
    }

    void otherSectionsAreSeparate()
    {
        SettingsStore store(storePath("sections"));
        store.save(QStringLiteral("Other"), QStringLiteral("ShowStatus"), QStringLiteral("0"));
        QVERIFY(readPreferences(store, QStringLiteral("/d")).showStatus);
    }

    void userStoreLivesUnderConfigHome()
    {
        // ctest points XDG_CONFIG_HOME at a folder of this test's own.
        const QString home = qEnvironmentVariable("XDG_CONFIG_HOME");
        if (home.isEmpty()) {
            QSKIP("XDG_CONFIG_HOME is not set for this run");
        }
        SettingsStore store;
        store.save(kSettingsSection, QStringLiteral("ModemDevice"), QStringLiteral("/dev/pts/7"));
        QVERIFY(store.sync());
        QCOMPARE(store.fileName(), home + QStringLiteral("/Kestrova/Kestrova.ini"));
        SettingsStore again;
        QCOMPARE(readPreferences(again, QStringLiteral("/d")).modemDevice, QStringLiteral("/dev/pts/7"));
    }

    // The store is the user's alone whether it is new, left by an older version with the
    // usual rights, or only read; QSettings rewrites the file on every sync and must keep that.
    void storeIsPrivate_data()
    {
        QTest::addColumn<int>("before"); // mode of an existing file; -1: none yet
        QTest::addColumn<bool>("write");
        // clang-format off
        QTest::newRow("new") << -1 << true;
        QTest::newRow("older file, written") << 0644 << true;
        QTest::newRow("older file, only read") << 0644 << false;
        QTest::newRow("group may write") << 0664 << true;
        // clang-format on
    }
    void storeIsPrivate()
    {
        QFETCH(int, before);
        QFETCH(bool, write);
        QTemporaryDir dir;
        const QString folder = dir.filePath(QStringLiteral("config/Kestrova"));
        const QString path = folder + QStringLiteral("/Kestrova.ini");
        if (before >= 0) {
            QVERIFY(QDir().mkpath(folder));
            writeFile(path, "[Settings]\nShowStatus=0\n");
            QVERIFY(::chmod(QFile::encodeName(path).constData(), mode_t(before)) == 0);
        }
        SettingsStore store(path);
        if (write) {
            store.save(kSettingsSection, QStringLiteral("ModemDevice"), QStringLiteral("/dev/pts/1"));
            QVERIFY(store.sync());
            QCOMPARE(modeOf(path), 0600);
            store.save(kSettingsSection, QStringLiteral("MailSize"), QStringLiteral("30"));
            QVERIFY(store.sync());
            QVERIFY(readFile(path).contains("MailSize=30"));
        }
        QCOMPARE(modeOf(path), 0600);
        if (before < 0) {
            QCOMPARE(modeOf(folder), 0700);
        }
    }

    void preferencesSurviveSaving()
    {
        SettingsStore store(storePath("saveprefs"));
        Preferences p;
        p.defaultFile = QStringLiteral("/x/y.pgr");
        p.showStatus = false;
        p.getMail = false;
        p.mailSize = 64;
        p.wwwButtons = false;
        p.checkUpdates = false;
        p.maxPageKb = 512;
        savePreferences(store, p);
        const Preferences back = readPreferences(store, QStringLiteral("/d"));
        QCOMPARE(back.defaultFile, p.defaultFile);
        QCOMPARE(back.showStatus, false);
        QCOMPARE(back.checkMail, true);
        QCOMPARE(back.getMail, false);
        QCOMPARE(back.mailSize, 64);
        QCOMPARE(back.wwwButtons, false);
        QCOMPARE(back.checkUpdates, false);
        QCOMPARE(back.maxPageKb, 512);
    }

    void iniMigration_data()
    {
        QTest::addColumn<QByteArray>("ini");
        QTest::addColumn<QStringList>("expected"); // DefaultFile, ShowStatus, CheckMail, GetMail
        QTest::newRow("all keys") << QByteArray("[Kestrova]\r\nDefaultFile=C:\\K\\MY.PGR\r\nShowStatus=0\r\n"
                                                "CheckMail=1\r\nGetMail=0\r\n")
                                  << QStringList{"C:\\K\\MY.PGR", "0", "1", "0"};
        QTest::newRow("absent keys take the defaults")
            << QByteArray("[Kestrova]\nShowStatus=1\n") << QStringList{"", "1", "", "1"};
        QTest::newRow("section and keys in any case")
            << QByteArray("[KESTROVA]\ndefaultfile = a.pgr \ncheckmail=0\n") << QStringList{"a.pgr", "", "0", "1"};
        QTest::newRow("other sections ignored")
            << QByteArray("[Other]\nDefaultFile=wrong.pgr\nGetMail=0\n[Kestrova]\nCheckMail=0\n[Later]\nShowStatus=0\n")
            << QStringList{"", "", "0", "1"};
        QTest::newRow("quoted value") << QByteArray("[Kestrova]\nDefaultFile=\"C:\\My Files\\a.pgr\"\n")
                                      << QStringList{"C:\\My Files\\a.pgr", "", "", "1"};
        QTest::newRow("comments skipped")
            << QByteArray("; old file\n[Kestrova]\n;GetMail=0\nGetMail=5\n") << QStringList{"", "", "", "5"};
        QTest::newRow("long value cut to the read buffer")
            << QByteArray("[Kestrova]\nDefaultFile=" + QByteArray(300, 'p') + "\n")
            << QStringList{QString(254, u'p'), "", "", "1"};
        QTest::newRow("8-bit text") << QByteArray("[Kestrova]\nDefaultFile=C:\\B\xf6rse.pgr\n")
                                    << QStringList{QStringLiteral("C:\\B\u00f6rse.pgr"), "", "", "1"};
    }
    void iniMigration()
    {
        QFETCH(QByteArray, ini);
        QFETCH(QStringList, expected);
        QTemporaryDir data;
        writeFile(data.filePath(kLegacyIniName), ini);
        const QString path = storePath(QTest::currentDataTag());
        QFile::remove(path);
        SettingsStore store(path);
        const std::optional<QString> migrated = migrateLegacyIni(data.path(), store);
        QVERIFY(migrated.has_value());
        QCOMPARE(*migrated, expected[0]);
        const QStringList keys{"DefaultFile", "ShowStatus", "CheckMail", "GetMail"};
        for (int i = 0; i < keys.size(); ++i) {
            QVERIFY2(store.contains(kSettingsSection, keys[i]), qPrintable(keys[i]));
            QCOMPARE(store.get(kSettingsSection, keys[i], QStringLiteral("absent")), expected[i]);
        }
        QVERIFY(!QFile::exists(data.filePath(kLegacyIniName)));
        // The file is gone, so the next start migrates nothing and overwrites nothing.
        store.save(kSettingsSection, QStringLiteral("GetMail"), QStringLiteral("later"));
        QVERIFY(!migrateLegacyIni(data.path(), store).has_value());
        QCOMPARE(store.get(kSettingsSection, QStringLiteral("GetMail")), QStringLiteral("later"));
    }

    void noIniLeavesStoreUntouched()
    {
        QTemporaryDir data;
        const QString path = storePath("noini");
        QFile::remove(path);
        SettingsStore store(path);
        store.save(kSettingsSection, QStringLiteral("ShowStatus"), QStringLiteral("0"));
        QVERIFY(!migrateLegacyIni(data.path(), store).has_value());
        QVERIFY(!INI_to_Registry(data.path(), store).has_value());
        QCOMPARE(store.get(kSettingsSection, QStringLiteral("ShowStatus")), QStringLiteral("0"));
        QVERIFY(!store.contains(kSettingsSection, QStringLiteral("DefaultFile")));
    }
};

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "test_settingsstore.moc"
