#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class QSocketNotifier;
class QTimer;

namespace kestrova::sim {

// How the simulated modem and paging terminal behave. Dialled numbers are matched by
// substring against the lists, first match wins in the order below; a number in none of
// them reaches the paging terminal.
struct ModemScript
{
    int connectDelayMs = 30; // from the dial command to its result
    int guardMs = 20;        // silence needed around "+++"
    QStringList busy;
    QStringList noDialtone;
    QStringList noCarrier;
    QStringList silent;  // the call never produces a result
    QStringList noise;   // the modem spews characters instead of a result
    QStringList numeric; // numeric paging services: the digits after the number are the page

    // Faults of the paging terminal.
    bool muteModem = false;        // no reply to any AT command
    bool neverSendId = false;      // CRs at logon are ignored
    bool noCarrierAtLogon = false; // the call drops at the first CR
    bool refuseLogon = false;      // logon answered with ESC EOT instead of the go-ahead
    bool noiseAfterConnect = false;
    enum class BlockFault { None, Nak, Rs, EscEot, Silence } blockFault = BlockFault::None;
    int noiseChars = 6000;

    // Reads "key value" lines (see ModemSimulator.cpp); unknown lines are reported.
    static ModemScript parse(const QString& text, QString* error = nullptr);
};

struct SimPage
{
    QString pagerId;
    QString text;
};

struct SimCall
{
    QString number; // the whole dial string
    QString digits; // for a numeric service: what followed its number
    bool numeric = false;
};

// A Hayes modem with a TAP paging terminal behind it, on a pty pair. The program under
// test opens slavePath() like any serial device; the simulator answers on the master
// side from the event loop it was created in, so no threads are involved.
class ModemSimulator : public QObject
{
    Q_OBJECT

public:
    explicit ModemSimulator(ModemScript script = {}, QObject* parent = nullptr);
    ~ModemSimulator() override;

    bool isValid() const { return m_master >= 0; }
    QString slavePath() const { return m_slavePath; }
    QString error() const { return m_error; }

    ModemScript& script() { return m_script; }

    // What the terminal received, in order: the last kKeptEntries pages, calls and AT command
    // lines, so a simulator left running for months keeps no growing log.
    static constexpr qsizetype kKeptEntries = 50;
    QList<SimPage> pages;
    QList<SimCall> calls;
    QStringList commands;
    int logonCrs = 0; // CRs received while waiting for the logon
    int blocks = 0;   // blocks received (good or bad)
    int hangUps = 0;  // ATH commands

Q_SIGNALS:
    void pageReceived(const QString& pagerId, const QString& text);
    void callReceived(const QString& number, const QString& digits, bool numeric);
    void commandReceived(const QString& command);

private:
    enum class State { Command, Dialing, Online, Numeric, Noise };
    enum class Tap { Idle, Logon, Blocks, Done };

    void onReadable();
    void onWritable();
    void send(const QByteArray& bytes);
    void commandBytes(const QByteArray& bytes);
    void runCommand(const QString& line);
    void dial(const QString& number);
    void result(const QString& text);
    void onlineBytes(const QByteArray& bytes);
    void terminalBytes(const QByteArray& bytes);
    void block(const QByteArray& bytes);
    void startNoise();
    void toCommandMode();

    ModemScript m_script;
    int m_master = -1;
    int m_slave = -1;
    QString m_slavePath;
    QString m_error;
    QSocketNotifier* m_readNotifier = nullptr;
    QSocketNotifier* m_writeNotifier = nullptr;
    QTimer* m_resultTimer = nullptr;
    QTimer* m_guardTimer = nullptr;
    QTimer* m_noiseTimer = nullptr;
    QByteArray m_out;
    QByteArray m_line;
    QByteArray m_tapBuffer;
    QString m_pendingResult;
    State m_state = State::Command;
    State m_afterResult = State::Command;
    Tap m_tap = Tap::Idle;
    int m_plus = 0;
    int m_noiseLeft = 0;
    QElapsedTimer m_lastByte;
};

} // namespace kestrova::sim
