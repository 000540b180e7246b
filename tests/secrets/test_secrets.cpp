#include "secrets/FileSecrets.h"
#include "secrets/SecretStore.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"

#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace kestrova;
using kestrova::testing::readFile;
using kestrova::testing::writeFile;

namespace {

// The permission bits of a path, or -1 when it cannot be read.
int modeOf(const QString& path)
{
    struct stat st = {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

// Keys as an older version left them in the settings store (its own output, kept verbatim).
struct OldKey
{
    const char* stored;
    QString key;
};
const OldKey kOldKeys[] = {
    {"scrambled:AEgcGBZCQlM=", QStringLiteral("K-old-42")},
    {"scrambled:IFYKWQFcFRNFBQ==", QStringLiteral("k3y-s3cret")},
    {"scrambled:HAABAF+s0qKWsslCTQ==", QStringLiteral("Wert-\u00e4\u00f6\u00fc-9")},
};

} // namespace

class TestSecrets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // What stands at the folder's place before the first write, and what the write makes of it.
    void fileBackend_data()
    {
        QTest::addColumn<QString>("before"); // none, open folder, open file, link
        QTest::addColumn<bool>("stored");
        // clang-format off
        QTest::newRow("nothing yet") << "none" << true;
        QTest::newRow("folder others may enter") << "open folder" << true;
        QTest::newRow("secret file others may read") << "open file" << true;
        QTest::newRow("folder is a link") << "link" << false;
        // clang-format on
    }
    void fileBackend()
    {
        QFETCH(QString, before);
        QFETCH(bool, stored);
        QTemporaryDir dir;
        const QString folder = dir.filePath(QStringLiteral("config/Kestrova/secrets"));
        const QString file = folder + QStringLiteral("/SourceKey_x");
        if (before == QLatin1String("open folder") || before == QLatin1String("open file")) {
            QVERIFY(QDir().mkpath(folder));
            QVERIFY(::chmod(QFile::encodeName(folder).constData(), 0755) == 0);
        }
        if (before == QLatin1String("open file")) {
            writeFile(file, "old");
            QVERIFY(::chmod(QFile::encodeName(file).constData(), 0644) == 0);
        }
        if (before == QLatin1String("link")) {
            QVERIFY(QDir().mkpath(dir.filePath(QStringLiteral("elsewhere"))));
            QVERIFY(QDir().mkpath(dir.filePath(QStringLiteral("config/Kestrova"))));
            QVERIFY(QFile::link(dir.filePath(QStringLiteral("elsewhere")), folder));
        }

        secrets::FileSecrets files(folder);
        const QString why = files.write(QStringLiteral("SourceKey_x"), QStringLiteral("first"));
        QCOMPARE(why.isEmpty(), stored);
        if (!stored) {
            QVERIFY2(why.contains(folder), qPrintable(why));
            QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("elsewhere/SourceKey_x"))));
            QVERIFY(!files.read(QStringLiteral("SourceKey_x")).found);
            return;
        }
        QCOMPARE(modeOf(folder), 0700);
        QCOMPARE(modeOf(file), 0600);
        QCOMPARE(files.read(QStringLiteral("SourceKey_x")).value, QStringLiteral("first"));

        // Overwritten in place, still private; removed, gone; removed again, still fine.
        QVERIFY(files.write(QStringLiteral("SourceKey_x"), QStringLiteral("second")).isEmpty());
        QCOMPARE(modeOf(file), 0600);
        QCOMPARE(readFile(file), QByteArray("second"));
        QVERIFY(files.remove(QStringLiteral("SourceKey_x")).isEmpty());
        QVERIFY(!QFile::exists(file));
        QVERIFY(!files.read(QStringLiteral("SourceKey_x")).found);
        QVERIFY(files.remove(QStringLiteral("SourceKey_x")).isEmpty());
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{});
    }

    void namesStayInTheFolder_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("parent") << "../SourceKey_x";
        QTest::newRow("sub folder") << "a/b";
        QTest::newRow("hidden") << ".x";
        QTest::newRow("empty") << "";
        QTest::newRow("blank") << "Source Key";
    }
    void namesStayInTheFolder()
    {
        QFETCH(QString, name);
        QTemporaryDir dir;
        secrets::FileSecrets files(dir.filePath(QStringLiteral("s/secrets")));
        QVERIFY(!files.write(name, QStringLiteral("v")).isEmpty());
        QVERIFY(!files.read(name).error.isEmpty());
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList{});
    }

    // A key an older version kept scrambled in the settings store moves to the secret store
    // the first time it is read, and leaves the settings store. Values that were not written
    // as secrets are not secrets.
    void olderKeysMoveOnFirstRead_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("key"); // empty: not a key, stays where it is
        for (const OldKey& k : kOldKeys) {
            QTest::newRow(qPrintable(k.key)) << QString::fromLatin1(k.stored) << k.key;
        }
        QTest::newRow("plain text") << "K-plain"
                                    << "";
    }
    void olderKeysMoveOnFirstRead()
    {
        QFETCH(QString, stored);
        QFETCH(QString, key);
        QTemporaryDir dir;
        const QString ini = dir.filePath(QStringLiteral("Kestrova.ini"));
        writeFile(ini, "[Settings]\nShowStatus=0\nSourceKey_keyed=" + stored.toLatin1() + "\n");
        settings::SettingsStore store(ini);
        const QString folder = dir.filePath(QStringLiteral("secrets"));
        secrets::SecretStore secretStore(nullptr, std::make_unique<secrets::FileSecrets>(folder), &store);

        QString error;
        QCOMPARE(secretStore.read(QStringLiteral("SourceKey_keyed"), &error), key);
        QCOMPARE(error, QString());
        const QByteArray iniText = readFile(ini);
        QVERIFY(iniText.contains("ShowStatus=0"));
        if (key.isEmpty()) {
            QVERIFY(iniText.contains(stored.toLatin1()));
            QVERIFY(!QFile::exists(folder + QStringLiteral("/SourceKey_keyed")));
            return;
        }
        QVERIFY2(!iniText.contains("SourceKey"), iniText.constData());
        QCOMPARE(QString::fromUtf8(readFile(folder + QStringLiteral("/SourceKey_keyed"))), key);
        QCOMPARE(modeOf(folder + QStringLiteral("/SourceKey_keyed")), 0600);
        // Once moved it is read from its new place.
        settings::SettingsStore again(ini);
        secrets::SecretStore later(nullptr, std::make_unique<secrets::FileSecrets>(folder), &again);
        QCOMPARE(later.read(QStringLiteral("SourceKey_keyed")), key);
    }

    void startUpMovesEveryOlderKey()
    {
        QTemporaryDir dir;
        const QString ini = dir.filePath(QStringLiteral("Kestrova.ini"));
        writeFile(ini, QByteArray("[Settings]\nSourceKey_a=") + kOldKeys[0].stored +
                           "\nSourceKey_b=" + kOldKeys[2].stored + "\nModemDevice=/dev/pts/3\n");
        settings::SettingsStore store(ini);
        const QString folder = dir.filePath(QStringLiteral("secrets"));
        secrets::SecretStore secretStore(nullptr, std::make_unique<secrets::FileSecrets>(folder), &store);
        QCOMPARE(secretStore.moveLegacySecrets(), 2);
        QCOMPARE(store.keys(settings::kSettingsSection), QStringList{QStringLiteral("ModemDevice")});
        QVERIFY(!readFile(ini).contains("scrambled"));
        QCOMPARE(QString::fromUtf8(readFile(folder + QStringLiteral("/SourceKey_b"))), kOldKeys[2].key);
        QCOMPARE(secretStore.moveLegacySecrets(), 0);
    }

    // A key that cannot be kept in its new place still works and stays where it was, so
    // nothing is lost; the reason is told.
    void olderKeyStaysWhenItCannotMove()
    {
        QTemporaryDir dir;
        const QString ini = dir.filePath(QStringLiteral("Kestrova.ini"));
        writeFile(ini, QByteArray("[Settings]\nSourceKey_keyed=") + kOldKeys[0].stored + "\n");
        writeFile(dir.filePath(QStringLiteral("secrets")), "a file where the folder should be");
        settings::SettingsStore store(ini);
        secrets::SecretStore secretStore(
            nullptr, std::make_unique<secrets::FileSecrets>(dir.filePath(QStringLiteral("secrets"))), &store);
        QString error;
        QCOMPARE(secretStore.read(QStringLiteral("SourceKey_keyed"), &error), kOldKeys[0].key);
        QVERIFY(!error.isEmpty());
        QVERIFY(readFile(ini).contains(kOldKeys[0].stored));
    }

    // Forgetting a key removes it from every place an older copy could come back from.
    void forgettingRemovesEveryCopy()
    {
        QTemporaryDir dir;
        const QString ini = dir.filePath(QStringLiteral("Kestrova.ini"));
        writeFile(ini, QByteArray("[Settings]\nSourceKey_keyed=") + kOldKeys[0].stored + "\n");
        const QString folder = dir.filePath(QStringLiteral("secrets"));
        writeFile(folder + QStringLiteral("/SourceKey_keyed"), "K-file");
        settings::SettingsStore store(ini);
        secrets::SecretStore secretStore(nullptr, std::make_unique<secrets::FileSecrets>(folder), &store);
        QVERIFY(secretStore.write(QStringLiteral("SourceKey_keyed"), QString()));
        QCOMPARE(secretStore.read(QStringLiteral("SourceKey_keyed")), QString());
        QVERIFY(!readFile(ini).contains("SourceKey"));
    }
};

QTEST_GUILESS_MAIN(TestSecrets)
#include "test_secrets.moc"
