#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace kestrova::mail {

// The reading of POP3 replies, apart from the socket: whatever bytes a server sends end up
// here, so these must hold for any input.

// Whether the buffer holds a whole reply: the status line, and for a multi-line "+OK"
// reply everything up to the terminating dot line.
bool popReplyComplete(const QByteArray& buffer, bool multiLine);
// "+OK count octets" of STAT; a field that is missing, negative or not a number that fits
// gives 0.
void popStatReply(const QByteArray& reply, int* count, qint64* octets);
// "+OK n octets" of LIST n: the size; 0 when missing, negative or not a number that fits.
qint64 popListSize(const QByteArray& reply);
// The message of a RETR reply: status line and terminating dot line dropped, dot-stuffing
// undone.
QByteArray popMessageText(const QByteArray& reply);

} // namespace kestrova::mail
