#include "delivery/SerialLine.h"

#include <QFile>
#include <QSerialPort>
#include <QStringList>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace kestrova::delivery {

QString commEventText(int event, bool carrierDetect)
{
    switch (event) {
    case EvSend:
    case EvReceive:
    case ErParity:
        return {};
    case EvCts:
        return QStringLiteral("Change in CTS Detected");
    case EvDsr:
        return QStringLiteral("Change in DSR Detected");
    case EvCd:
        return QStringLiteral("Change in CD Detected") +
               (carrierDetect ? QStringLiteral("True") : QStringLiteral("False"));
    case EvRing:
        return QStringLiteral("The Phone is Ringing");
    case EvEof:
        return QStringLiteral("End of File Detected");
    case ErBreak:
        return QStringLiteral("Break Received");
    case ErCtsTimeout:
        return QStringLiteral("CTS Timeout");
    case ErDsrTimeout:
        return QStringLiteral("DSR Timeout");
    case ErFrame:
        return QStringLiteral("Framing Error");
    case ErOverrun:
        return QStringLiteral("Overrun Error");
    case ErCdTimeout:
        return QStringLiteral("Carrier Detect Timeout");
    case ErRxOver:
        return QStringLiteral("Receive Buffer Overflow");
    case ErTxFull:
        return QStringLiteral("Transmit Buffer Full");
    default:
        return QStringLiteral("Unknown error or event");
    }
}

QString deviceForPort(int port)
{
#ifdef Q_OS_WIN
    return QStringLiteral("COM%1").arg(port);
#else
    return QStringLiteral("/dev/ttyS%1").arg(port - 1);
#endif
}

PortSettings parsePortSettings(const QString& settings)
{
    PortSettings s;
    const QStringList parts = settings.split(u',');
    if (parts.size() != 4) {
        return s;
    }
    bool okBaud = false;
    bool okData = false;
    bool okStop = false;
    s.baud = parts[0].trimmed().toInt(&okBaud);
    const QString parity = parts[1].trimmed().toUpper();
    s.dataBits = parts[2].trimmed().toInt(&okData);
    s.stopBits = parts[3].trimmed().toDouble(&okStop);
    const bool okParity = parity.size() == 1 && QStringLiteral("NEOMS").contains(parity[0]);
    if (okParity) {
        s.parity = parity[0];
    }
    s.ok = okBaud && s.baud > 0 && okParity && okData && s.dataBits >= 5 && s.dataBits <= 8 && okStop &&
           (s.stopBits == 1 || s.stopBits == 1.5 || s.stopBits == 2);
    return s;
}

namespace {

class QtSerialLine final : public SerialLine
{
public:
    QtSerialLine()
    {
        QObject::connect(&m_port, &QSerialPort::errorOccurred, [this](QSerialPort::SerialPortError e) {
            if (!m_port.isOpen() || m_internal || e == QSerialPort::NoError || e == QSerialPort::TimeoutError) {
                return;
            }
            if (e == QSerialPort::ResourceError) {
                // The device went away under us (the other end of a pty closed, a USB
                // adapter was pulled). The port is dead, so let it go once the signal has
                // returned; waits then simply run out and the next attempt finds the port
                // unavailable.
                QTimer::singleShot(0, &m_port, [this] { close(); });
            }
            if (!onCommEvent) {
                return;
            }
            // The nearest classic events: a vanished device reads as end of file, a
            // refused write as a full transmit buffer.
            switch (e) {
            case QSerialPort::ResourceError:
            case QSerialPort::ReadError:
                onCommEvent(EvEof, false);
                break;
            case QSerialPort::WriteError:
                onCommEvent(ErTxFull, false);
                break;
            default:
                onCommEvent(0, false);
                break;
            }
        });
    }

    void setPort(int port) override { m_portNumber = port; }
    void setDevice(const QString& path) override { m_device = path; }
    void setSettings(const QString& settings) override { m_settings = settings; }
    void setFlowControl(int mode) override { m_flow = mode; }

    bool open(QString* error) override
    {
        if (m_port.isOpen()) {
            return true;
        }
        const QString device = m_device.isEmpty() ? deviceForPort(m_portNumber) : m_device;
        m_port.setPortName(device);
        m_busy = false;
        errno = 0;
        if (!m_port.open(QIODevice::ReadWrite)) {
            const int err = errno;
            // QSerialPort keeps a lock file per device (LCK..name) and opens it exclusively:
            // a port in use is refused as a permission error, or EBUSY, although the device
            // itself is one this user may open.
            const bool inUse = m_port.error() == QSerialPort::PermissionError || err == EBUSY;
            m_busy = inUse && ::access(QFile::encodeName(device).constData(), R_OK | W_OK) == 0;
            if (error) {
                *error = m_port.errorString();
            }
            m_port.clearError();
            return false;
        }
        const PortSettings s = parsePortSettings(m_settings);
        if (s.ok) {
            m_port.setBaudRate(s.baud);
            m_port.setDataBits(static_cast<QSerialPort::DataBits>(s.dataBits));
            m_port.setParity(s.parity == u'E'   ? QSerialPort::EvenParity
                             : s.parity == u'O' ? QSerialPort::OddParity
                             : s.parity == u'M' ? QSerialPort::MarkParity
                             : s.parity == u'S' ? QSerialPort::SpaceParity
                                                : QSerialPort::NoParity);
            m_port.setStopBits(s.stopBits == 2     ? QSerialPort::TwoStop
                               : s.stopBits == 1.5 ? QSerialPort::OneAndHalfStop
                                                   : QSerialPort::OneStop);
        }
        // Both XON/XOFF and RTS/CTS cannot be had at once here; hardware handshaking is
        // the one that matters to a modem, so "both" takes it.
        m_port.setFlowControl(m_flow == 1                    ? QSerialPort::SoftwareControl
                              : (m_flow == 2 || m_flow == 3) ? QSerialPort::HardwareControl
                                                             : QSerialPort::NoFlowControl);
        m_port.clearError();
        // A pty or an adapter without modem-control lines refuses the DTR ioctl with
        // ENOTTY; the data path still works, so that is no reason to give up the port.
        errno = 0;
        m_internal = true;
        const bool dtr = m_port.setDataTerminalReady(true);
        m_internal = false;
        if (!dtr) {
            const int err = errno;
            if (err != ENOTTY && err != EINVAL && m_port.error() != QSerialPort::UnsupportedOperationError) {
                if (error) {
                    *error = m_port.errorString();
                }
                m_port.close();
                return false;
            }
        }
        m_port.clearError();
        return true;
    }

    void close() override
    {
        if (m_port.isOpen()) {
            m_port.flush();
            m_port.close();
        }
        m_port.clearError();
    }
    bool isOpen() const override { return m_port.isOpen(); }
    bool lastOpenFoundBusy() const override { return m_busy; }
    void write(const QByteArray& bytes) override
    {
        if (m_port.isOpen()) {
            m_port.write(bytes);
            // QSerialPort only hands buffered bytes to the driver from the event loop; a
            // close right after a write (ATH0 before hanging up) would drop them.
            m_port.flush();
        }
    }
    qint64 bytesAvailable() override { return m_port.isOpen() ? m_port.bytesAvailable() : 0; }
    QByteArray readAll() override { return m_port.isOpen() ? m_port.readAll() : QByteArray(); }
    void clearInput() override
    {
        if (!m_port.isOpen()) {
            return;
        }
        m_port.readAll();
        // A pty cannot flush its driver queue and says so through the error signal; that
        // is no event of the line.
        m_internal = true;
        m_port.clear(QSerialPort::Input);
        m_port.clearError();
        m_internal = false;
    }

private:
    QSerialPort m_port;
    int m_portNumber = 1;
    QString m_device;
    QString m_settings = QStringLiteral("9600,N,8,1");
    int m_flow = 0;
    bool m_internal = false; // errors raised by our own housekeeping calls
    bool m_busy = false;
};

} // namespace

std::unique_ptr<SerialLine> createSerialLine()
{
    return std::make_unique<QtSerialLine>();
}

} // namespace kestrova::delivery
