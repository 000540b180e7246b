#include "sim/ModemSimulator.h"

#include <QtTest>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using kestrova::sim::ModemScript;
using kestrova::sim::ModemSimulator;

namespace {

class Terminal
{
public:
    explicit Terminal(const QString& path)
        : m_fd(::open(path.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        termios t{};
        if (m_fd >= 0 && tcgetattr(m_fd, &t) == 0) {
            cfmakeraw(&t);
            tcsetattr(m_fd, TCSANOW, &t);
        }
    }
    ~Terminal()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    bool isOpen() const { return m_fd >= 0; }
    void send(const QByteArray& bytes) { QVERIFY(::write(m_fd, bytes.constData(), bytes.size()) == bytes.size()); }
    // Lets the simulator answer, then returns everything it said until expected arrived.
    QByteArray receive(const QByteArray& expected)
    {
        QByteArray got;
        for (int i = 0; i < 200 && !got.contains(expected); ++i) {
            QTest::qWait(5);
            char buf[512];
            const ssize_t n = ::read(m_fd, buf, sizeof buf);
            if (n > 0) {
                got.append(buf, n);
            }
        }
        return got;
    }

private:
    int m_fd;
};

} // namespace

// The simulator is the judge of every paging test, so its own checks are tested here with
// hand-made bytes rather than with the program's block builder.
class TestModemSimulator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void blocksAreChecked_data()
    {
        QTest::addColumn<QByteArray>("block");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("pages");

        // 2 + "123" + 13 + "ABC" + 13 + 3 = 379 = 0x17B.
        const QByteArray nak("\x15\r");
        // clang-format off
        QTest::newRow("good block") << QByteArray("\x02" "123\rABC\r\x03" "17;\r") << QByteArray("211 Page(s) Sent\r\x06\r") << 1;
        QTest::newRow("wrong checksum") << QByteArray("\x02" "123\rABC\r\x03" "17<\r") << nak << 0;
        QTest::newRow("no CR before ETX") << QByteArray("\x02" "123\rABC\x03" "16>\r") << nak << 0;
        QTest::newRow("no pager id") << QByteArray("\x02\rABC\r\x03\0>5\r", 11) << nak << 0;
        // clang-format on
    }
    void blocksAreChecked()
    {
        QFETCH(QByteArray, block);
        QFETCH(QByteArray, reply);
        QFETCH(int, pages);

        ModemSimulator sim;
        QVERIFY2(sim.isValid(), qPrintable(sim.error()));
        Terminal t(sim.slavePath());
        QVERIFY(t.isOpen());
        t.send("ATDT555\r");
        QVERIFY(t.receive("CONNECT").contains("CONNECT"));
        t.send("\r");
        QVERIFY(t.receive("ID=").contains("ID="));
        t.send("\x1bPG1\r");
        QVERIFY(t.receive("\x1b[p\r").contains("\r\x06\r\x1b[p\r"));
        t.send(block);
        QCOMPARE(t.receive(reply), reply);
        QCOMPARE(sim.pages.size(), pages);
        QCOMPARE(sim.blocks, 1);
        if (pages) {
            QCOMPARE(sim.pages[0].pagerId, QStringLiteral("123"));
            QCOMPARE(sim.pages[0].text, QStringLiteral("ABC"));
        }
        t.send("\x04\r");
        QCOMPARE(t.receive("\x1b\x04\r"), QByteArray("115\r\x1b\x04\r"));
    }

    void scriptLines_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("busy");
        QTest::addColumn<int>("guardMs");
        QTest::newRow("numbers and timing") << "busy 555\n# comment\nbusy 666\nguard-ms 250\n" << true << 2 << 250;
        QTest::newRow("unknown fault") << "fault sparks" << false << 0 << 20;
        QTest::newRow("bad number") << "guard-ms soon" << false << 0 << 0;
        QTest::newRow("unknown key") << "colour blue" << false << 0 << 20;
    }
    void scriptLines()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        QFETCH(int, busy);
        QFETCH(int, guardMs);
        QString problem;
        const ModemScript s = ModemScript::parse(text, &problem);
        QCOMPARE(problem.isEmpty(), valid);
        QCOMPARE(s.busy.size(), busy);
        QCOMPARE(s.guardMs, guardMs);
    }
};

QTEST_GUILESS_MAIN(TestModemSimulator)
#include "test_modemsimulator.moc"
