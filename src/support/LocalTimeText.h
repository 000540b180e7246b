#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace kestrova::support {

// "yyyy-MM-dd HH:mm:ss" of an instant in the local time zone, the way a listing of many
// rows prints its times. A local QDateTime reads the zone's files again for each value
// (two stat() calls of /etc/localtime per row made a year's listing take seconds); this
// reads the zone once, when made, and converts each instant with localtime_r, the same
// conversion Qt makes for its local times. Instants Qt converts differently (before 1970,
// past 2038) are left to Qt.
class LocalTimeText
{
public:
    LocalTimeText();
    void append(QByteArray& out, qint64 msecsSinceEpoch) const;
};

} // namespace kestrova::support
