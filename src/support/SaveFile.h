#pragma once

class QSaveFile;

namespace kestrova::support {

// Commits a QSaveFile only when every byte reached the disk. QSaveFile::commit() writes
// out what is still buffered, but (Qt 6.4) commits even when that last write comes up
// short, on a full disk or past a file size limit, so the old file is replaced by one cut
// off part-way. Flushing first makes the short write a failure: nothing is committed, the
// temporary copy goes with the QSaveFile, the old file stays, and file.error() says why.
bool commitWhole(QSaveFile& file);

} // namespace kestrova::support
