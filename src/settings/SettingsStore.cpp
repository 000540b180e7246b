#include "settings/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrova::settings {

namespace {

// How older versions kept API keys here: not encryption, only so that a key never stood in
// the file as typed. Kept to read such keys once and move them to the secret store.
const QLatin1String kScrambledPrefix("scrambled:");
constexpr char kPad[] = "Kestrova quote source keys";

QByteArray xorPad(QByteArray bytes)
{
    const int padLength = int(sizeof kPad) - 1;
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        bytes[i] = char(bytes[i] ^ kPad[i % padLength]);
    }
    return bytes;
}

// Takes every right of other users off an existing file; a missing file is made by the
// first write.
void makePrivate(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat st = {};
    if (::stat(name.constData(), &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & 077) != 0) {
        ::chmod(name.constData(), st.st_mode & 0700);
    }
}

} // namespace

SettingsStore::SettingsStore()
    : m_settings(std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Kestrova"),
                                             QStringLiteral("Kestrova")))
{
    makePrivate(m_settings->fileName());
}

SettingsStore::SettingsStore(const QString& iniFile)
    : m_settings(std::make_unique<QSettings>(iniFile, QSettings::IniFormat))
{
    makePrivate(m_settings->fileName());
}

void SettingsStore::prepareFile()
{
    if (m_prepared) {
        return;
    }
    m_prepared = true;
    const QString path = m_settings->fileName();
    const QString folder = QFileInfo(path).absolutePath();
    if (!QFileInfo::exists(folder)) {
        QDir().mkpath(QFileInfo(folder).absolutePath());
        ::mkdir(QFile::encodeName(folder).constData(), 0700);
    }
    // O_EXCL: an existing file keeps its contents; its mode was put right on opening.
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
        ::close(fd);
    }
}

SettingsStore::~SettingsStore() = default;

QString SettingsStore::findKey(const QString& section, const QString& key) const
{
    for (const QString& k : keys(section)) {
        if (k.compare(key, Qt::CaseInsensitive) == 0) {
            return k;
        }
    }
    return {};
}

QString SettingsStore::get(const QString& section, const QString& key, const QString& defaultText) const
{
    const QString found = findKey(section, key);
    if (found.isEmpty()) {
        return defaultText;
    }
    return m_settings->value(section + u'/' + found).toString();
}

void SettingsStore::save(const QString& section, const QString& key, const QString& text)
{
    prepareFile();
    const QString found = findKey(section, key);
    if (!found.isEmpty() && found != key) {
        m_settings->remove(section + u'/' + found);
    }
    m_settings->setValue(section + u'/' + key, text);
}

std::optional<QString> SettingsStore::legacySecret(const QString& section, const QString& key) const
{
    const QString stored = get(section, key);
    if (!stored.startsWith(kScrambledPrefix)) {
        return std::nullopt;
    }
    return QString::fromUtf8(xorPad(QByteArray::fromBase64(stored.mid(kScrambledPrefix.size()).toLatin1())));
}

QStringList SettingsStore::keys(const QString& section) const
{
    m_settings->beginGroup(section);
    const QStringList keys = m_settings->childKeys();
    m_settings->endGroup();
    return keys;
}

bool SettingsStore::contains(const QString& section, const QString& key) const
{
    return !findKey(section, key).isEmpty();
}

void SettingsStore::remove(const QString& section, const QString& key)
{
    const QString found = findKey(section, key);
    if (!found.isEmpty()) {
        prepareFile();
        m_settings->remove(section + u'/' + found);
    }
}

bool SettingsStore::sync()
{
    m_settings->sync();
    return m_settings->status() == QSettings::NoError;
}

QString SettingsStore::fileName() const
{
    return m_settings->fileName();
}

} // namespace kestrova::settings
