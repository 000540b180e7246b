#pragma once

#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

namespace kestrova::testing {

// A helper process the tests talk to (an SMTP or POP server, a D-Bus service). Started on
// demand, it is killed when the object goes out of scope so a failing test leaves nothing
// running behind it.
class PeerProcess
{
public:
    PeerProcess() = default;
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;
    ~PeerProcess() { stop(); }

    QProcess& process() { return m_process; }

    // Starts the program and waits until its standard output shows readyText (an empty
    // readyText only waits for the start). Returns false with the output kept in log().
    bool start(const QString& program, const QStringList& args, const QString& readyText, int timeoutMs = 15000,
               const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
    {
        m_process.setProcessEnvironment(env);
        m_process.setProgram(program);
        m_process.setArguments(args);
        m_process.start();
        if (!m_process.waitForStarted(timeoutMs)) {
            m_log = m_process.errorString().toUtf8();
            return false;
        }
        if (readyText.isEmpty()) {
            return true;
        }
        QDeadlineTimer deadline(timeoutMs);
        while (!deadline.hasExpired()) {
            m_log += m_process.readAllStandardOutput();
            if (m_log.contains(readyText.toUtf8())) {
                return true;
            }
            if (m_process.state() != QProcess::Running) {
                break;
            }
            m_process.waitForReadyRead(static_cast<int>(std::max<qint64>(1, deadline.remainingTime())));
        }
        m_log += m_process.readAllStandardOutput() + m_process.readAllStandardError();
        return false;
    }

    // Servers that ignore their standard input are sent SIGTERM straight away.
    bool terminateOnStop = false;

    void stop()
    {
        if (m_process.state() == QProcess::NotRunning) {
            return;
        }
        m_process.closeWriteChannel();
        if (terminateOnStop || !m_process.waitForFinished(3000)) {
            m_process.terminate();
            if (!m_process.waitForFinished(3000)) {
                m_process.kill();
                m_process.waitForFinished(3000);
            }
        }
    }

    QByteArray log() const { return m_log; }

private:
    QProcess m_process;
    QByteArray m_log;
};

// A throw-away self-signed certificate for 127.0.0.1, for servers the tests run with TLS.
inline bool makeLoopbackCertificate(const QString& certFile, const QString& keyFile)
{
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                   QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("1"),
                   QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-addext"),
                   QStringLiteral("subjectAltName=IP:127.0.0.1"), QStringLiteral("-keyout"), keyFile,
                   QStringLiteral("-out"), certFile});
    openssl.closeWriteChannel();
    return openssl.waitForFinished(60000) && openssl.exitStatus() == QProcess::NormalExit && openssl.exitCode() == 0;
}

} // namespace kestrova::testing
