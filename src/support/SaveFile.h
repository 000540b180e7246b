#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

class QSaveFile;

namespace kestrova::support {

// Commits a QSaveFile only when every byte reached the disk. QSaveFile::commit() writes
// out what is still buffered, but (Qt 6.4) commits even when that last write comes up
// short, on a full disk or past a file size limit, so the old file is replaced by one cut
// off part-way. Flushing first makes the short write a failure: nothing is committed, the
// temporary copy goes with the QSaveFile, the old file stays, and file.error() says why.
bool commitWhole(QSaveFile& file);

// How a save went: on a failure the file is as it was before, and error/errorString say why.
struct SaveResult
{
    bool ok = true;
    QFileDevice::FileError error = QFileDevice::NoError;
    QString errorString;

    explicit operator bool() const { return ok; }
};

// The one way the program writes a file: the whole of bytes to a new copy beside it, renamed
// over the old one only once every byte is on the disk (commitWhole). What it writes is
// readable by its owner alone.
SaveResult saveWhole(const QString& path, const QByteArray& bytes);

} // namespace kestrova::support
