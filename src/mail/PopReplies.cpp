#include "mail/PopReplies.h"

#include <QList>

#include <type_traits>

namespace kestrova::mail {

bool popReplyComplete(const QByteArray& buffer, bool multiLine)
{
    const qsizetype eol = buffer.indexOf("\r\n");
    if (eol < 0) {
        return false;
    }
    if (!multiLine || !buffer.startsWith("+OK")) {
        return true;
    }
    // The terminating dot line; the status line alone may already be the whole reply
    // of an empty listing.
    return buffer.endsWith("\r\n.\r\n") && buffer.size() >= eol + 5;
}

namespace {

// A count or size field: toInt() and toLongLong() already refuse what does not fit (giving
// 0); a negative one is no count or size either.
template <typename T> T nonNegative(const QList<QByteArray>& parts, qsizetype index)
{
    if (parts.size() <= index) {
        return 0;
    }
    bool ok = false;
    T value = 0;
    if constexpr (std::is_same_v<T, int>) {
        value = parts[index].toInt(&ok);
    } else {
        value = parts[index].toLongLong(&ok);
    }
    return ok && value >= 0 ? value : 0;
}

} // namespace

void popStatReply(const QByteArray& reply, int* count, qint64* octets)
{
    const QList<QByteArray> parts = reply.trimmed().split(' ');
    *count = nonNegative<int>(parts, 1);
    if (octets) {
        *octets = nonNegative<qint64>(parts, 2);
    }
}

qint64 popListSize(const QByteArray& reply)
{
    return nonNegative<qint64>(reply.trimmed().split(' '), 2);
}

QByteArray popMessageText(const QByteArray& reply)
{
    const qsizetype start = reply.indexOf("\r\n") + 2;
    const QByteArray body = reply.mid(start, reply.size() - start - 3);
    QList<QByteArray> lines = body.split('\n');
    for (QByteArray& l : lines) {
        if (l.startsWith("..")) {
            l.remove(0, 1);
        }
    }
    return lines.join('\n');
}

} // namespace kestrova::mail
