#include "delivery/ModemLine.h"

#include "delivery/SerialLine.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Cp1252.h"
#include "support/Host.h"

namespace kestrova::delivery {

namespace {
constexpr int kYieldMs = 100;
const QString kCr = QStringLiteral("\r");
} // namespace

ModemLine::ModemLine(const support::Services& services, SerialLine& line, const core::ModemOptions& options)
    : m_services(services), m_line(line), m_options(options)
{
    m_line.onCommEvent = [this](int event, bool state) {
        const QString text = commEventText(event, state);
        if (!text.isEmpty()) {
            echo(text + QStringLiteral("\r\n"));
        }
    };
}

ModemLine::~ModemLine()
{
    // The port may outlive this line (the application keeps one for the whole run).
    m_line.onCommEvent = nullptr;
}

void ModemLine::showStatus(const QString& text) const
{
    m_services.host.setStatusText(text);
}

void ModemLine::echo(const QString& text) const
{
    m_services.host.terminalEcho(text);
}

void ModemLine::clearInput()
{
    m_line.clearInput();
}

void ModemLine::sendText(const QString& text)
{
    m_line.write(support::encodeCp1252(text));
    echo(QStringLiteral("-->") + text);
}

QString ModemLine::take(QString& received)
{
    if (m_line.bytesAvailable() <= 0) {
        return {};
    }
    const QString piece = support::decodeCp1252(m_line.readAll());
    received += piece;
    return piece;
}

bool ModemLine::expired(const QDateTime& deadline) const
{
    return m_services.clock.now() > deadline || m_services.cancel.isSet();
}

void ModemLine::inputExceeded() const
{
    m_services.host.messageBox(QStringLiteral("COMM input exceeded 5000 char"));
}

QString ModemLine::initCommand(const QString& initString) const
{
    QString command = initString;
    if (m_options.speakerMode >= 0 && m_options.speakerMode <= 3) {
        command += QStringLiteral(" M%1").arg(m_options.speakerMode);
    }
    if (m_options.speakerVolume >= 0 && m_options.speakerVolume <= 2) {
        command += QStringLiteral(" L%1").arg(m_options.speakerVolume + 1);
    }
    return command;
}

qint16 ModemLine::initialize(const QString& initString)
{
    showStatus(QStringLiteral("Initializing Modem..."));
    const QString command = initCommand(initString);
    m_line.setFlowControl(m_options.flowControl);
    QString why;
    if (!m_line.open(&why) && !(m_line.lastOpenFoundBusy() && waitForFreeLine())) {
        m_result = m_services.cancel.isSet() ? ResultCancelled : ResultPortUnavailable;
        return m_result;
    }
    m_line.clearInput();
    QString received;
    sendText(QStringLiteral("AT") + kCr);
    pause(1);
    received.clear();
    // Only wakes the modem up; whether this one is answered does not matter.
    waitForText(QStringLiteral("OK"), 10, received);

    sendText(command + kCr);
    pause(1);
    received.clear();
    if (waitForText(QStringLiteral("OK"), 10, received)) {
        m_result = ResultOk;
    } else {
        m_result = m_services.cancel.isSet() ? ResultCancelled : ResultInitFailed;
    }
    return m_result;
}

bool ModemLine::waitForFreeLine()
{
    // A page that goes out a minute late is better than one that never goes: a scheduled
    // page colliding with a manual one (or another process's) waits its turn.
    m_services.StatusMessage(QStringLiteral("The modem line is in use by another page; waiting up to %1 minutes")
                                 .arg(kLineWaitSeconds / 60));
    showStatus(QStringLiteral("Waiting for the modem line"));
    const QDateTime deadline = m_services.clock.now().addSecs(kLineWaitSeconds);
    while (!expired(deadline)) {
        pause(1);
        if (m_services.cancel.isSet()) {
            return false;
        }
        if (m_line.open()) {
            return true;
        }
        if (!m_line.lastOpenFoundBusy()) {
            return false; // gone or refused for good: no use waiting
        }
    }
    return false;
}

void ModemLine::startDial(const QString& number)
{
    m_result = ResultOk;
    const QString command =
        QStringLiteral("AT") + (m_options.pulse ? QStringLiteral("DP") : QStringLiteral("DT")) + number + kCr;
    m_line.clearInput();
    showStatus(QStringLiteral("Dialing ") + number);
    sendText(command);
}

bool ModemLine::dialEnded(const QString& received)
{
    if (m_services.cancel.isSet()) {
        m_result = ResultCancelled;
        return true;
    }
    if (received.contains(QStringLiteral("BUSY"))) {
        m_result = ResultBusy;
        return true;
    }
    if (received.contains(QStringLiteral("NO DIAL"))) {
        m_result = ResultNoDialtone;
        return true;
    }
    if (received.size() > kMaxInput) {
        inputExceeded();
        return true;
    }
    return false;
}

qint16 ModemLine::dial(const QString& number)
{
    startDial(number);
    QString received;
    const QDateTime deadline = m_services.clock.now().addSecs(60);
    pause(1);
    for (;;) {
        m_services.host.yield(kYieldMs);
        if (!take(received).isEmpty()) {
            if (received.contains(QStringLiteral("CONNECT"))) {
                break;
            }
            if (dialEnded(received)) {
                break;
            }
        }
        if (expired(deadline)) {
            // A cancel during the dial is the user's, not a service that never answered.
            m_result = m_services.cancel.isSet() ? ResultCancelled : ResultNoConnection;
            break;
        }
    }
    m_services.host.yield(0);
    pause(0);
    take(received);
    echo(received);
    if (m_result == ResultOk) {
        showStatus(QStringLiteral("Connected"));
    }
    return m_result;
}

qint16 ModemLine::dialDigital(const QString& dialString, int waitSeconds)
{
    startDial(dialString);
    QString received;
    pause(5);
    const QDateTime deadline = m_services.clock.now().addSecs(waitSeconds);
    while (!expired(deadline)) {
        m_services.host.yield(kYieldMs);
        if (take(received).isEmpty()) {
            continue;
        }
        if (dialEnded(received)) {
            break;
        }
    }
    // A cancel that ended the wait before any reply still counts as a cancel.
    if (m_result == ResultOk && m_services.cancel.isSet()) {
        m_result = ResultCancelled;
    }
    m_services.host.yield(0);
    take(received);
    echo(received);
    if (m_result == ResultOk) {
        showStatus(QStringLiteral("Page Sent"));
    }
    return m_result;
}

bool ModemLine::waitForText(const QString& expected, int timeoutSeconds, QString& received)
{
    echo(QStringLiteral("<--:"));
    if (received.contains(expected)) {
        return true;
    }
    QDateTime deadline = m_services.clock.now().addSecs(timeoutSeconds);
    for (;;) {
        m_services.host.yield(kYieldMs);
        const QString piece = take(received);
        if (!piece.isEmpty()) {
            // The time-out counts silence: a modem that is still talking gets more time.
            deadline = m_services.clock.now().addSecs(timeoutSeconds);
            echo(piece);
            if (received.contains(expected)) {
                return true;
            }
            if (received.size() > kMaxInput) {
                inputExceeded();
                return false;
            }
        }
        if (expired(deadline)) {
            return false;
        }
    }
}

void ModemLine::hangUp()
{
    m_line.clearInput();
    if (!m_line.isOpen()) {
        return;
    }
    showStatus(QStringLiteral("Hanging Up"));
    QString received;
    m_line.clearInput();
    pause(1);
    sendText(QStringLiteral("+++"));
    pause(0.5);
    waitForText(QStringLiteral("OK"), 2, received);
    // Deliberately not cleared: the OK to "+++" already answers this wait.
    sendText(QStringLiteral("ATH0") + kCr);
    pause(0.5);
    waitForText(QStringLiteral("OK"), 5, received);
    m_line.close();
    showStatus(QString());
}

} // namespace kestrova::delivery
