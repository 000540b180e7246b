#include "sim/ModemSimulator.h"

#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace kestrova::sim {

namespace {

// Appends to one of the terminal's logs, dropping its oldest entry past the kept number.
template <typename List, typename Entry> void keep(List& list, Entry&& entry)
{
    list.append(std::forward<Entry>(entry));
    if (list.size() > ModemSimulator::kKeptEntries) {
        list.removeFirst();
    }
}

constexpr char kStx = 2;
constexpr char kEtx = 3;
constexpr char kEot = 4;
constexpr char kAck = 6;
constexpr char kNak = 21;
constexpr char kEsc = 27;
constexpr char kRs = 30;
constexpr char kCr = 13;

bool matches(const QStringList& patterns, const QString& number)
{
    for (const QString& p : patterns) {
        if (!p.isEmpty() && number.contains(p)) {
            return true;
        }
    }
    return false;
}

// The three checksum characters a paging terminal expects after ETX: the low 12 bits of
// the byte sum, one nibble each, offset by '0'.
QByteArray checksum(const QByteArray& block)
{
    unsigned sum = 0;
    for (const char c : block) {
        sum += static_cast<unsigned char>(c);
    }
    QByteArray out(3, '\0');
    out[2] = static_cast<char>('0' + (sum & 0xF));
    if (sum >> 4) {
        out[1] = static_cast<char>('0' + ((sum >> 4) & 0xF));
    }
    if (sum >> 8) {
        out[0] = static_cast<char>('0' + ((sum >> 8) & 0xF));
    }
    return out;
}
} // namespace

ModemScript ModemScript::parse(const QString& text, QString* error)
{
    ModemScript s;
    QStringList bad;
    const QStringList lines = text.split(u'\n');
    for (QString line : lines) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(u'#')) {
            continue;
        }
        const qsizetype space = line.indexOf(u' ');
        const QString key = (space < 0 ? line : line.left(space)).toLower();
        const QString value = space < 0 ? QString() : line.mid(space + 1).trimmed();
        bool ok = true;
        if (key == QLatin1String("connect-delay-ms")) {
            s.connectDelayMs = value.toInt(&ok);
        } else if (key == QLatin1String("guard-ms")) {
            s.guardMs = value.toInt(&ok);
        } else if (key == QLatin1String("noise-chars")) {
            s.noiseChars = value.toInt(&ok);
        } else if (key == QLatin1String("busy")) {
            s.busy << value;
        } else if (key == QLatin1String("no-dialtone")) {
            s.noDialtone << value;
        } else if (key == QLatin1String("no-carrier")) {
            s.noCarrier << value;
        } else if (key == QLatin1String("silent")) {
            s.silent << value;
        } else if (key == QLatin1String("noise")) {
            s.noise << value;
        } else if (key == QLatin1String("numeric")) {
            s.numeric << value;
        } else if (key == QLatin1String("fault")) {
            const QString f = value.toLower();
            if (f == QLatin1String("mute")) {
                s.muteModem = true;
            } else if (f == QLatin1String("never-id")) {
                s.neverSendId = true;
            } else if (f == QLatin1String("no-carrier-at-logon")) {
                s.noCarrierAtLogon = true;
            } else if (f == QLatin1String("refuse-logon")) {
                s.refuseLogon = true;
            } else if (f == QLatin1String("noise")) {
                s.noiseAfterConnect = true;
            } else if (f == QLatin1String("nak")) {
                s.blockFault = BlockFault::Nak;
            } else if (f == QLatin1String("rs")) {
                s.blockFault = BlockFault::Rs;
            } else if (f == QLatin1String("esc-eot")) {
                s.blockFault = BlockFault::EscEot;
            } else if (f == QLatin1String("silence")) {
                s.blockFault = BlockFault::Silence;
            } else {
                ok = false;
            }
        } else {
            ok = false;
        }
        if (!ok) {
            bad << line;
        }
    }
    if (error) {
        *error = bad.isEmpty() ? QString() : QStringLiteral("unknown script lines: ") + bad.join(QStringLiteral("; "));
    }
    return s;
}

ModemSimulator::ModemSimulator(ModemScript script, QObject* parent) : QObject(parent), m_script(std::move(script))
{
    char name[256] = {};
    if (openpty(&m_master, &m_slave, name, nullptr, nullptr) != 0) {
        m_error = QString::fromLocal8Bit(std::strerror(errno));
        m_master = m_slave = -1;
        return;
    }
    m_slavePath = QString::fromLocal8Bit(name);
    // Raw from the start, so nothing is echoed back or translated before the program
    // under test configures the line itself. The simulator keeps the slave open too:
    // otherwise every close by the program would leave the master reporting EIO.
    termios t{};
    if (tcgetattr(m_slave, &t) == 0) {
        cfmakeraw(&t);
        tcsetattr(m_slave, TCSANOW, &t);
    }
    ::fcntl(m_master, F_SETFL, ::fcntl(m_master, F_GETFL) | O_NONBLOCK);
    ::fcntl(m_master, F_SETFD, FD_CLOEXEC);
    ::fcntl(m_slave, F_SETFD, FD_CLOEXEC);

    m_readNotifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_readNotifier, &QSocketNotifier::activated, this, &ModemSimulator::onReadable);
    m_writeNotifier = new QSocketNotifier(m_master, QSocketNotifier::Write, this);
    m_writeNotifier->setEnabled(false);
    connect(m_writeNotifier, &QSocketNotifier::activated, this, &ModemSimulator::onWritable);

    m_resultTimer = new QTimer(this);
    m_resultTimer->setSingleShot(true);
    connect(m_resultTimer, &QTimer::timeout, this, [this] {
        if (m_state == State::Dialing && !m_pendingResult.isEmpty()) {
            result(m_pendingResult);
        }
    });
    m_guardTimer = new QTimer(this);
    m_guardTimer->setSingleShot(true);
    connect(m_guardTimer, &QTimer::timeout, this, [this] {
        if (m_plus == 3) {
            toCommandMode();
            send("\r\nOK\r\n");
        }
    });
    m_noiseTimer = new QTimer(this);
    m_noiseTimer->setInterval(5);
    connect(m_noiseTimer, &QTimer::timeout, this, [this] {
        static const QByteArray chunk = QByteArrayLiteral("#@!%&*~^0123456789abcdefghij").repeated(4);
        const int n = qMin<int>(m_noiseLeft, static_cast<int>(chunk.size()));
        send(chunk.left(n));
        m_noiseLeft -= n;
        if (m_noiseLeft <= 0) {
            m_noiseTimer->stop();
        }
    });
    m_lastByte.start();
}

ModemSimulator::~ModemSimulator()
{
    delete m_readNotifier;
    delete m_writeNotifier;
    if (m_master >= 0) {
        ::close(m_master);
    }
    if (m_slave >= 0) {
        ::close(m_slave);
    }
}

void ModemSimulator::send(const QByteArray& bytes)
{
    m_out += bytes;
    onWritable();
}

void ModemSimulator::onWritable()
{
    while (!m_out.isEmpty()) {
        const ssize_t n = ::write(m_master, m_out.constData(), static_cast<size_t>(m_out.size()));
        if (n > 0) {
            m_out.remove(0, n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        break;
    }
    m_writeNotifier->setEnabled(!m_out.isEmpty());
}

void ModemSimulator::onReadable()
{
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(m_master, buf, sizeof buf);
        if (n > 0) {
            const QByteArray bytes(buf, n);
            if (m_state == State::Command) {
                commandBytes(bytes);
            } else {
                onlineBytes(bytes);
            }
            m_lastByte.restart();
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        break;
    }
}

void ModemSimulator::commandBytes(const QByteArray& bytes)
{
    for (const char c : bytes) {
        if (c == kCr) {
            const QString line = QString::fromLatin1(m_line);
            m_line.clear();
            // Whatever came before "AT" (stray pluses, line noise) is not part of it.
            const qsizetype at = line.lastIndexOf(QLatin1String("AT"), -1, Qt::CaseInsensitive);
            if (at >= 0) {
                runCommand(line.mid(at));
            }
        } else if (c != '\n') {
            m_line += c;
        }
    }
}

void ModemSimulator::runCommand(const QString& line)
{
    keep(commands, line);
    Q_EMIT commandReceived(line);
    if (m_script.muteModem) {
        return;
    }
    const QString body = line.mid(2).trimmed().toUpper();
    if (body.startsWith(u'D')) {
        QString number = line.mid(3).trimmed();
        if (number.startsWith(u'T', Qt::CaseInsensitive) || number.startsWith(u'P', Qt::CaseInsensitive)) {
            number = number.mid(1);
        }
        dial(number.trimmed());
        return;
    }
    if (body.startsWith(QLatin1String("H"))) {
        ++hangUps;
        m_tap = Tap::Idle;
    }
    send("\r\nOK\r\n");
}

void ModemSimulator::dial(const QString& number)
{
    m_state = State::Dialing;
    m_plus = 0;
    m_pendingResult.clear();
    if (matches(m_script.busy, number)) {
        m_pendingResult = QStringLiteral("BUSY");
    } else if (matches(m_script.noDialtone, number)) {
        m_pendingResult = QStringLiteral("NO DIALTONE");
    } else if (matches(m_script.noCarrier, number)) {
        m_pendingResult = QStringLiteral("NO CARRIER");
    } else if (matches(m_script.silent, number)) {
        return;
    } else if (matches(m_script.noise, number)) {
        startNoise();
        m_state = State::Noise;
        return;
    } else {
        for (const QString& service : m_script.numeric) {
            if (!service.isEmpty() && number.startsWith(service)) {
                // A numeric service never answers with a carrier: the digits are taken by
                // its voice side while the line is held.
                SimCall call{number, number.mid(service.size()), true};
                keep(calls, call);
                Q_EMIT callReceived(call.number, call.digits, true);
                m_state = State::Numeric;
                return;
            }
        }
        keep(calls, SimCall{number, {}, false});
        Q_EMIT callReceived(number, {}, false);
        m_pendingResult = QStringLiteral("CONNECT 2400");
    }
    m_resultTimer->start(qMax(0, m_script.connectDelayMs));
}

void ModemSimulator::result(const QString& text)
{
    send("\r\n" + text.toLatin1() + "\r\n");
    if (text.startsWith(QLatin1String("CONNECT"))) {
        m_state = State::Online;
        m_tap = Tap::Logon;
        m_tapBuffer.clear();
        if (m_script.noiseAfterConnect) {
            startNoise();
        }
    } else {
        toCommandMode();
    }
}

void ModemSimulator::startNoise()
{
    m_noiseLeft = m_script.noiseChars;
    m_noiseTimer->start();
}

void ModemSimulator::toCommandMode()
{
    m_state = State::Command;
    m_plus = 0;
    m_line.clear();
    m_noiseTimer->stop();
    m_resultTimer->stop();
}

void ModemSimulator::onlineBytes(const QByteArray& bytes)
{
    if (m_state == State::Dialing) {
        // Any key aborts a call in progress, as on a real modem.
        toCommandMode();
        send("\r\nNO CARRIER\r\n");
        commandBytes(bytes);
        return;
    }
    const bool quietBefore = m_lastByte.elapsed() >= m_script.guardMs;
    if (bytes.count('+') == bytes.size() && m_plus + bytes.size() <= 3 && (m_plus > 0 || quietBefore)) {
        m_plus += static_cast<int>(bytes.size());
        if (m_plus == 3) {
            m_guardTimer->start(qMax(0, m_script.guardMs));
        }
        return;
    }
    if (m_plus > 0) {
        m_guardTimer->stop();
        const QByteArray pluses(m_plus, '+');
        m_plus = 0;
        if (m_state == State::Online) {
            terminalBytes(pluses);
        }
    }
    if (m_state == State::Online) {
        terminalBytes(bytes);
    }
}

void ModemSimulator::terminalBytes(const QByteArray& bytes)
{
    for (const char c : bytes) {
        switch (m_tap) {
        case Tap::Idle:
        case Tap::Done:
            break;
        case Tap::Logon:
            if (c == kCr) {
                if (m_tapBuffer.contains(QByteArray("\x1bPG1"))) {
                    m_tapBuffer.clear();
                    if (m_script.refuseLogon) {
                        send(QByteArray(1, kEsc) + kEot + kCr);
                        m_tap = Tap::Done;
                    } else {
                        send(QByteArray(1, kCr) + kAck + kCr + kEsc + "[p" + kCr);
                        m_tap = Tap::Blocks;
                    }
                    break;
                }
                m_tapBuffer.clear();
                ++logonCrs;
                if (m_script.noCarrierAtLogon) {
                    m_tap = Tap::Idle;
                    send("\r\nNO CARRIER\r\n");
                    toCommandMode();
                    return;
                }
                if (!m_script.neverSendId) {
                    send("ID=");
                }
            } else {
                m_tapBuffer += c;
            }
            break;
        case Tap::Blocks:
            if (m_tapBuffer.isEmpty() && c == kEot) {
                m_tapBuffer += c;
                break;
            }
            if (m_tapBuffer == QByteArray(1, kEot)) {
                m_tapBuffer.clear();
                if (c == kCr) {
                    send(QByteArray("115") + kCr + kEsc + kEot + kCr);
                    m_tap = Tap::Done;
                }
                break;
            }
            if (m_tapBuffer.isEmpty() && c != kStx) {
                break; // stray characters between blocks
            }
            m_tapBuffer += c;
            // A block ends with the CR after ETX and its three checksum characters.
            if (const qsizetype etx = m_tapBuffer.indexOf(kEtx); etx >= 0 && m_tapBuffer.size() == etx + 5) {
                const QByteArray b = m_tapBuffer;
                m_tapBuffer.clear();
                block(b);
            }
            break;
        }
    }
}

void ModemSimulator::block(const QByteArray& bytes)
{
    ++blocks;
    const qsizetype etx = bytes.indexOf(kEtx);
    const QByteArray body = bytes.left(etx + 1);
    const bool formatOk = bytes.endsWith(kCr) && body.size() >= 5 && body.at(body.size() - 2) == kCr &&
                          body.indexOf(kCr) > 1 && body.indexOf(kCr) < body.size() - 2;
    const bool sumOk = bytes.mid(etx + 1, 3) == checksum(body);
    switch (m_script.blockFault) {
    case ModemScript::BlockFault::Nak:
        send(QByteArray(1, kNak) + kCr);
        return;
    case ModemScript::BlockFault::Rs:
        send(QByteArray(1, kRs) + kCr);
        return;
    case ModemScript::BlockFault::EscEot:
        send(QByteArray(1, kEsc) + kEot + kCr);
        m_tap = Tap::Done;
        return;
    case ModemScript::BlockFault::Silence:
        return;
    case ModemScript::BlockFault::None:
        break;
    }
    if (!formatOk || !sumOk) {
        send(QByteArray(1, kNak) + kCr);
        return;
    }
    const qsizetype idEnd = body.indexOf(kCr);
    SimPage page{QString::fromLatin1(body.mid(1, idEnd - 1)),
                 QString::fromLatin1(body.mid(idEnd + 1, body.size() - idEnd - 3))};
    keep(pages, page);
    Q_EMIT pageReceived(page.pagerId, page.text);
    send(QByteArray("211 Page(s) Sent") + kCr + kAck + kCr);
}

} // namespace kestrova::sim
