#pragma once

#include <QFileDevice>
#include <QString>

class QSaveFile;

namespace kestrova::support {

// The data folder holds the user's holdings, log-ons, mail headers, what was paged and when:
// every file the program creates there is the user's alone (0600), and so is a folder it
// creates for them (0700), whatever the umask says. Every opener of such a file goes through
// this header: the one save path (openPrivate), the files other code creates (SQLite's
// database and its -wal/-shm, lock files, the activity log) through makePrivate.
constexpr QFileDevice::Permissions kPrivateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr unsigned kPrivateFileMode = 0600;

// Opens a save for writing and makes the file it will become owner-only, an existing
// file written by an older version included.
bool openPrivate(QSaveFile& file);

// Creates the folder when it is missing (with parents: its missing parents too); a folder
// made here is 0700. True when the folder is there.
bool makePrivateDir(const QString& path, bool parents = true);

// Makes a file owner-only; with create, first creates it empty when it is missing, so that
// a library that fills it (SQLite) finds it so. False when the file is not there (or could
// not be created or changed).
bool makePrivate(const QString& path, bool create = false);

} // namespace kestrova::support
