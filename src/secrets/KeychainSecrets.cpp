#include "secrets/KeychainSecrets.h"

#include "support/EventWait.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFileInfo>

#include <qt6keychain/keychain.h>

#include <memory>

namespace kestrova::secrets {

namespace {

const QString kService = QStringLiteral("Kestrova");

QString jobError(const QKeychain::Job& job)
{
    const QString text = job.errorString();
    return QStringLiteral("the secret service answered: ") +
           (text.isEmpty() ? QStringLiteral("error ") + QString::number(int(job.error())) : text);
}

// Asking Qt for the session bus when none is configured makes libdbus try to start one for
// the X display; a headless command must not leave a bus behind, so only a configured or
// running bus is asked.
bool sessionBusConfigured()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        return true;
    }
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && QFileInfo::exists(runtime + QStringLiteral("/bus"));
}

} // namespace

KeychainSecrets::KeychainSecrets(int waitMs) : m_waitMs(waitMs) {}

bool KeychainSecrets::serviceRunning()
{
    if (!sessionBusConfigured()) {
        return false;
    }
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() &&
           bus.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.secrets")).value();
}

QString KeychainSecrets::where() const
{
    return QStringLiteral("the desktop's secret service");
}

QString KeychainSecrets::noAnswer() const
{
    return QStringLiteral("the secret service did not answer within %1 seconds").arg(m_waitMs / 1000.0);
}

bool KeychainSecrets::finished(QKeychain::Job* job) const
{
    auto done = std::make_shared<bool>(false);
    QObject::connect(job, &QKeychain::Job::finished, job, [done] { *done = true; });
    job->start();
    const QDeadlineTimer deadline(m_waitMs);
    while (!*done && !deadline.hasExpired()) {
        support::waitForEvents(int(std::max<qint64>(1, deadline.remainingTime())));
    }
    if (!*done) {
        // Still asking (a prompt nobody answers, a service that hangs): the job ends with
        // the bus's own time-out at the latest and goes then.
        job->setAutoDelete(true);
    }
    return *done;
}

SecretRead KeychainSecrets::read(const QString& name)
{
    SecretRead r;
    auto job = std::make_unique<QKeychain::ReadPasswordJob>(kService);
    job->setAutoDelete(false);
    job->setKey(name);
    if (!finished(job.get())) {
        job.release();
        r.error = noAnswer();
        return r;
    }
    if (job->error() == QKeychain::NoError) {
        r.value = job->textData();
        r.found = true;
    } else if (job->error() != QKeychain::EntryNotFound) {
        r.error = jobError(*job);
    }
    return r;
}

QString KeychainSecrets::write(const QString& name, const QString& value)
{
    auto job = std::make_unique<QKeychain::WritePasswordJob>(kService);
    job->setAutoDelete(false);
    job->setKey(name);
    job->setTextData(value);
    if (!finished(job.get())) {
        job.release();
        return noAnswer();
    }
    return job->error() == QKeychain::NoError ? QString() : jobError(*job);
}

QString KeychainSecrets::remove(const QString& name)
{
    auto job = std::make_unique<QKeychain::DeletePasswordJob>(kService);
    job->setAutoDelete(false);
    job->setKey(name);
    if (!finished(job.get())) {
        job.release();
        return noAnswer();
    }
    const QKeychain::Error e = job->error();
    return e == QKeychain::NoError || e == QKeychain::EntryNotFound ? QString() : jobError(*job);
}

} // namespace kestrova::secrets
