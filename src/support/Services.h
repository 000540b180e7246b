#pragma once

#include <QString>

namespace kestrova::support {

class CLogFile;
class CancelFlag;
class Clock;
class Host;

// What every engine operation needs from the program around it: the clock, the face,
// the cancel flag and the activity log. Passed by reference; owned by the application.
struct Services
{
    Clock& clock;
    Host& host;
    CancelFlag& cancel;
    CLogFile& log;

    // StatusMessage: appends "message   date time" CR LF to the status list and logs it.
    void StatusMessage(const QString& message) const;
    // A failure, named with its cause: a status line, a log line and the face's error report.
    void Failure(const QString& message) const;
    // Waits whole seconds while yielding, ending early when the user cancels. A half
    // second rounds to even, i.e. no pause at all.
    void pause(double seconds) const;
    bool cancelled() const;
};

} // namespace kestrova::support
