#include "support/SaveFile.h"

#include <QSaveFile>

namespace kestrova::support {

bool commitWhole(QSaveFile& file)
{
    // Without a commit the temporary copy is removed when the QSaveFile goes, and
    // error() and errorString() keep the flush's reason.
    return file.flush() && file.commit();
}

} // namespace kestrova::support
