#include "support/Secrets.h"

#include <QMutex>
#include <QStringList>
#include <QUrl>

#include <algorithm>

namespace kestrova::support {

namespace {

QMutex g_mutex;
QStringList g_secrets; // longest first, so a secret inside another is not found first

void add(const QString& text)
{
    if (text.size() < kMinSecretLength || g_secrets.contains(text)) {
        return;
    }
    const auto at =
        std::find_if(g_secrets.begin(), g_secrets.end(), [&](const QString& s) { return s.size() < text.size(); });
    g_secrets.insert(at, text);
}

} // namespace

void rememberSecret(const QString& secret)
{
    if (secret.size() < kMinSecretLength) {
        return;
    }
    const QMutexLocker lock(&g_mutex);
    add(secret);
    add(QString::fromLatin1(QUrl::toPercentEncoding(secret)));
    // A form or query encoder may write blanks as "+".
    add(QString::fromLatin1(QUrl::toPercentEncoding(secret, " ")).replace(u' ', u'+'));
}

QString redactSecrets(const QString& text)
{
    const QMutexLocker lock(&g_mutex);
    if (g_secrets.isEmpty()) {
        return text;
    }
    QString out = text;
    for (const QString& s : std::as_const(g_secrets)) {
        out.replace(s, QStringLiteral("***"));
    }
    return out;
}

void forgetSecrets()
{
    const QMutexLocker lock(&g_mutex);
    g_secrets.clear();
}

void RedactingHost::appendStatusLine(const QString& line)
{
    m_face.appendStatusLine(redactSecrets(line));
}

void RedactingHost::setStatusText(const QString& text)
{
    m_face.setStatusText(redactSecrets(text));
}

void RedactingHost::setProgress(const QString& percent, const QString& text)
{
    m_face.setProgress(percent, redactSecrets(text));
}

void RedactingHost::terminalEcho(const QString& text)
{
    m_face.terminalEcho(redactSecrets(text));
}

MsgAnswer RedactingHost::messageBox(const QString& text, MsgButtons buttons, MsgIcon icon)
{
    return m_face.messageBox(redactSecrets(text), buttons, icon);
}

QString RedactingHost::inputBox(const QString& prompt, const QString& defaultText)
{
    return m_face.inputBox(redactSecrets(prompt), defaultText);
}

QString RedactingHost::saveFileName(const QString& title, const QString& filter, const QString& defaultSuffix)
{
    return m_face.saveFileName(title, filter, defaultSuffix);
}

void RedactingHost::reportFailure(const QString& text)
{
    m_face.reportFailure(redactSecrets(text));
}

void RedactingHost::setBusy(bool busy)
{
    m_face.setBusy(busy);
}

bool RedactingHost::openUrl(const QString& url)
{
    return m_face.openUrl(url);
}

void RedactingHost::yield(int maxWaitMs)
{
    m_face.yield(maxWaitMs);
}

} // namespace kestrova::support
