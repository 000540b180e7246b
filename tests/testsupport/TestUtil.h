#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace kestrova::testing {

// A fixture file under tests/data.
QString dataPath(const QString& relative);
QByteArray readFile(const QString& path);
void writeFile(const QString& path, const QByteArray& bytes);
// A TCP port on 127.0.0.1 that nothing listens on right now.
quint16 freePort();
// The Debian interpreter that carries python3-aiosmtpd and python3-dbusmock.
QString systemPython();
// The permission bits of a file or folder as an octal text ("600"), or "missing".
QString fileMode(const QString& path);
// Sets the process's umask for as long as it lives (022 leaves new files readable by all,
// which is what the program must not rely on).
class ScopedUmask
{
public:
    explicit ScopedUmask(unsigned mask);
    ~ScopedUmask();
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;

private:
    unsigned m_before;
};
// Every file in a folder whose permission bits are not those given, as "name 644".
QStringList filesNotInMode(const QString& folder, const QString& mode);

} // namespace kestrova::testing
