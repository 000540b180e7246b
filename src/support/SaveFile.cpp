#include "support/SaveFile.h"

#include <QSaveFile>

namespace kestrova::support {

bool commitWhole(QSaveFile& file)
{
    // Without a commit the temporary copy is removed when the QSaveFile goes, and
    // error() and errorString() keep the flush's reason.
    return file.flush() && file.commit();
}

SaveResult saveWhole(const QString& path, const QByteArray& bytes)
{
    QSaveFile file(path);
    auto failed = [&file] { return SaveResult{false, file.error(), file.errorString()}; };
    if (!file.open(QIODevice::WriteOnly)) {
        return failed();
    }
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (file.write(bytes) != bytes.size()) {
        SaveResult r = failed();
        file.cancelWriting();
        return r;
    }
    if (!commitWhole(file)) {
        return failed();
    }
    return {};
}

} // namespace kestrova::support
