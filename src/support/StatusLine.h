#pragma once

#include <QDateTime>
#include <QString>

namespace kestrova::support {

// The status list and the terminal window both keep their text below 16,384
// characters by dropping the oldest 4,096 whenever the limit is reached.
constexpr int kTextCap = 16384;
constexpr int kTextDrop = 4096;

// One status-list line: the message, three spaces, the general date, CR LF.
QString statusLine(const QString& message, const QDateTime& when);

// Appends a line to a capped text (status list), dropping the first 4,096 characters
// first when the text has reached 16,384.
void appendCapped(QString& text, const QString& addition);

// Terminal window echo: the same cap, then each backspace in the new text deletes the
// character before it (the last shown one when it leads), and line feeds are dropped.
void terminalAppend(QString& text, const QString& addition);

// Terminal traffic made readable: every control character but the line ends (CR, LF) and
// tabs is written as its name in angle brackets, so a TAP block shows as
// "<STX>5551234" and "<ETX>1B3" rather than as empty boxes or, on a console, as escape
// sequences.
QString controlNames(const QString& text);

} // namespace kestrova::support
