#pragma once

#include <QString>

#include <stdexcept>

namespace kestrova::support {

// A run-time error with the classic error number, so traps can choose their message by
// number ("ERROR 53: ...", "input past end of file" = 62) the way the program always has.
class VbError : public std::runtime_error
{
public:
    enum : int {
        InvalidCall = 5,
        Overflow = 6,
        Subscript = 9,
        TypeMismatch = 13,
        BadFileName = 52,
        FileNotFound = 53,
        InputPastEnd = 62,
        DeviceUnavailable = 68,
        PermissionDenied = 70,
        PathNotFound = 76,
        DuplicateKey = 457,
    };

    explicit VbError(int number, const QString& description = {});
    int number() const { return m_number; }
    QString description() const { return m_description; }

    // The standard description of an error number ("Subscript out of range").
    static QString standardText(int number);

private:
    int m_number;
    QString m_description;
};

} // namespace kestrova::support
