#pragma once

#include <QString>
#include <QtGlobal>

namespace kestrova::quotes {

// Reads the comma-separated form that BASIC's write statement produces, one value at a
// time: values end at a comma or a line end (CR LF or LF), strings may stand in double
// quotes (and then hold commas and line breaks), leading blanks are skipped and line
// breaks between values do not count as values. Reading past the end raises VbError 62.
class SequentialInput
{
public:
    explicit SequentialInput(QString text) : m_text(std::move(text)) {}

    QString readString();
    // A 16-bit number; VbError 13 for a value that is not a number, 6 when out of range.
    qint16 readInt16();
    bool atEnd() const;
    // The line (from 1) the next value is read from, for error reports.
    int line() const;

private:
    QString m_text;
    qsizetype m_pos = 0;
};

} // namespace kestrova::quotes
