#include "support/VbError.h"

namespace kestrova::support {

VbError::VbError(int number, const QString& description)
    : std::runtime_error((description.isEmpty() ? standardText(number) : description).toStdString()), m_number(number),
      m_description(description.isEmpty() ? standardText(number) : description)
{}

QString VbError::standardText(int number)
{
    switch (number) {
    case 5:
        return QStringLiteral("Invalid procedure call or argument");
    case 6:
        return QStringLiteral("Overflow");
    case 9:
        return QStringLiteral("Subscript out of range");
    case 13:
        return QStringLiteral("Type mismatch");
    case 52:
        return QStringLiteral("Bad file name or number");
    case 53:
        return QStringLiteral("File not found");
    case 57:
        return QStringLiteral("Device I/O error");
    case 61:
        return QStringLiteral("Disk full");
    case 62:
        return QStringLiteral("Input past end of file");
    case 68:
        return QStringLiteral("Device unavailable");
    case 70:
        return QStringLiteral("Permission denied");
    case 75:
        return QStringLiteral("Path/File access error");
    case 76:
        return QStringLiteral("Path not found");
    case 457:
        return QStringLiteral("This key is already associated with an element of this collection");
    default:
        return QStringLiteral("Application-defined or object-defined error");
    }
}

} // namespace kestrova::support
