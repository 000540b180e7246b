#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

namespace kestrova::delivery {

// Communication event numbers of the serial line (events 1..7, errors 1001..1010).
enum CommEvent : int {
    EvSend = 1,
    EvReceive = 2,
    EvCts = 3,
    EvDsr = 4,
    EvCd = 5,
    EvRing = 6,
    EvEof = 7,
    ErBreak = 1001,
    ErCtsTimeout = 1002,
    ErDsrTimeout = 1003,
    ErFrame = 1004,
    ErOverrun = 1006,
    ErCdTimeout = 1007,
    ErRxOver = 1008,
    ErParity = 1009,
    ErTxFull = 1010,
};

// The terminal text for a communication event; empty for the ones that are not shown
// (data sent or received, and parity errors, which old modems raise on harmless noise).
QString commEventText(int event, bool carrierDetect = false);

// "COM3" style port numbers map to the platform's serial devices.
QString deviceForPort(int port);

// The "9600,N,8,1" settings string taken apart. Unknown pieces leave ok false.
struct PortSettings
{
    qint32 baud = 9600;
    QChar parity = u'N';
    int dataBits = 8;
    double stopBits = 1;
    bool ok = false;
};
PortSettings parsePortSettings(const QString& settings);

// The serial port the modem hangs on. A seam so the modem line can be driven over a
// real device, a pty, or a scripted fake.
class SerialLine
{
public:
    virtual ~SerialLine() = default;

    virtual void setPort(int port) = 0;
    // A device path that overrides the port-number mapping (a pty, a USB adapter).
    virtual void setDevice(const QString& path) = 0;
    virtual void setSettings(const QString& settings) = 0;
    // 0 none, 1 XON/XOFF, 2 RTS/CTS, 3 both.
    virtual void setFlowControl(int mode) = 0;
    // Opens with DTR raised. Returns false with a reason when the port cannot be used.
    virtual bool open(QString* error = nullptr) = 0;
    // The last open failed only because another program, or another line of this one, has
    // the port: it is worth trying again once that one is done.
    virtual bool lastOpenFoundBusy() const { return false; }
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    virtual void write(const QByteArray& bytes) = 0;
    virtual qint64 bytesAvailable() = 0;
    virtual QByteArray readAll() = 0;
    // Drops whatever has been received and not read yet.
    virtual void clearInput() = 0;

    // Receives the event number and, for a carrier change, the new carrier state.
    std::function<void(int event, bool state)> onCommEvent;
};

// The real port over QSerialPort.
std::unique_ptr<SerialLine> createSerialLine();

} // namespace kestrova::delivery
