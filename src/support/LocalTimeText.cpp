#include "support/LocalTimeText.h"

#include <QDateTime>

#include <ctime>
#include <limits>

namespace kestrova::support {

namespace {

void appendDigits(char*& p, int value, int width)
{
    for (int i = width - 1; i >= 0; --i) {
        p[i] = char('0' + value % 10);
        value /= 10;
    }
    p += width;
}

} // namespace

LocalTimeText::LocalTimeText()
{
    tzset();
}

void LocalTimeText::append(QByteArray& out, qint64 msecsSinceEpoch) const
{
    const qint64 secs = msecsSinceEpoch / 1000;
    tm local{};
    if (msecsSinceEpoch >= 0 && secs <= std::numeric_limits<qint32>::max()) {
        const time_t t = time_t(secs);
        if (localtime_r(&t, &local) && local.tm_year + 1900 >= 1000 && local.tm_year + 1900 <= 9999 &&
            local.tm_sec < 60) {
            char text[19];
            char* p = text;
            appendDigits(p, local.tm_year + 1900, 4);
            *p++ = '-';
            appendDigits(p, local.tm_mon + 1, 2);
            *p++ = '-';
            appendDigits(p, local.tm_mday, 2);
            *p++ = ' ';
            appendDigits(p, local.tm_hour, 2);
            *p++ = ':';
            appendDigits(p, local.tm_min, 2);
            *p++ = ':';
            appendDigits(p, local.tm_sec, 2);
            out.append(text, sizeof(text));
            return;
        }
    }
    out += QDateTime::fromMSecsSinceEpoch(msecsSinceEpoch).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")).toUtf8();
}

} // namespace kestrova::support
