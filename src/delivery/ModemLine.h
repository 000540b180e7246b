#pragma once

#include "core/Options.h"
#include "support/Services.h"

#include <QDateTime>
#include <QString>

namespace kestrova::delivery {

class SerialLine;

// Paging result codes shared by the modem line and both paging routes.
enum PagingResult : qint16 {
    ResultOk = 0,
    ResultInitFailed = 1,
    ResultNoConnection = 2,
    ResultCancelled = 6,
    ResultNoDialtone = 7,
    ResultBusy = 8,
    ResultPortUnavailable = 9,
    ResultNoLogon = 10,
    ResultNotAcknowledged = 11,
    ResultLogonRefused = 12,
    ResultBlockTooLong = 13,
};

// The Hayes modem behind the serial line: initialise, dial, send, wait for a reply,
// pause and hang up, with every byte echoed to the terminal. All waits poll the clock
// and yield to the event loop, which is also what delivers the port's incoming data.
class ModemLine
{
public:
    // More received text than this aborts a wait: a modem that only produces noise.
    static constexpr int kMaxInput = 5000;
    // How long a page waits for a modem that another page (of this program or another
    // process) is using: a call with its retries is over well within this.
    static constexpr int kLineWaitSeconds = 120;

    ModemLine(const support::Services& services, SerialLine& line, const core::ModemOptions& options);
    ~ModemLine();
    ModemLine(const ModemLine&) = delete;
    ModemLine& operator=(const ModemLine&) = delete;

    SerialLine& serial() { return m_line; }
    const support::Services& services() const { return m_services; }

    // The result code of the last step; the paging routes read and set it too.
    qint16 result() const { return m_result; }
    void setResult(qint16 r) { m_result = r; }

    // The init command: the profile's string with the speaker mode and volume added.
    QString initCommand(const QString& initString) const;
    // Opens the port and has the modem accept the init string: result 0, 1, 6 or 9. A
    // port that another page is using is waited for, up to kLineWaitSeconds.
    qint16 initialize(const QString& initString);
    // Dials and waits up to 60 s for CONNECT: result 0, 2, 6, 7 or 8.
    qint16 dial(const QString& number);
    // Dials a numeric page and listens for BUSY / NO DIAL until waitSeconds have passed
    // (after a fixed 5 s); silence is success.
    qint16 dialDigital(const QString& dialString, int waitSeconds);

    void sendText(const QString& text);
    // Waits until received holds expected (case-sensitive), timeoutSeconds of silence
    // pass, the user cancels, or more than 5000 characters have come in.
    bool waitForText(const QString& expected, int timeoutSeconds, QString& received);
    void pause(double seconds) const { m_services.pause(seconds); }
    void hangUp();
    void clearInput();

    void showStatus(const QString& text) const;
    void echo(const QString& text) const;

private:
    // Moves whatever the port holds into received; returns the piece (empty when none).
    QString take(QString& received);
    // Sends the dial command for either kind of call.
    void startDial(const QString& number);
    // After new input while dialling: cancel, BUSY, NO DIAL or a flood of noise end the
    // wait (setting the result); anything else keeps listening.
    bool dialEnded(const QString& received);
    bool expired(const QDateTime& deadline) const;
    void inputExceeded() const;
    // Tries the port once a second until it opens, kLineWaitSeconds pass or the user
    // cancels; true once it is open.
    bool waitForFreeLine();

    const support::Services& m_services;
    SerialLine& m_line;
    const core::ModemOptions& m_options;
    qint16 m_result = 0;
};

} // namespace kestrova::delivery
