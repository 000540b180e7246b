#pragma once

#include "PeerProcess.h"
#include "TestUtil.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

namespace kestrova::testing {

// push_peer.py on a free loopback port: an ntfy topic or webhook that records every
// request it gets and answers 200, 500 or not at all.
struct PushPeer
{
    QTemporaryDir dir;
    PeerProcess process;
    quint16 port = 0;

    bool start(const QString& mode)
    {
        port = freePort();
        process.terminateOnStop = true;
        return process.start(
            systemPython(),
            {QStringLiteral(KESTROVA_PEERS_DIR "/push_peer.py"), QString::number(port), dir.path(), mode},
            QStringLiteral("READY"));
    }

    // The URL of a topic on this server; logon is put in front of the host ("user:pw").
    QString url(const QString& path = QStringLiteral("/kestrova"), const QString& logon = {}) const
    {
        return QStringLiteral("http://") + (logon.isEmpty() ? QString() : logon + u'@') + QStringLiteral("127.0.0.1:") +
               QString::number(port) + path;
    }

    // Every request received so far, in order.
    QList<QJsonObject> requests() const
    {
        QList<QJsonObject> out;
        for (int i = 1;; ++i) {
            const QString p = dir.filePath(QStringLiteral("request-%1.json").arg(i));
            if (!QFileInfo::exists(p)) {
                return out;
            }
            out << QJsonDocument::fromJson(readFile(p)).object();
        }
    }
};

// A request's header, looked up without regard to case as HTTP does.
inline QString header(const QJsonObject& request, const QString& name)
{
    const QJsonObject h = request.value(QStringLiteral("headers")).toObject();
    for (auto it = h.begin(); it != h.end(); ++it) {
        if (it.key().compare(name, Qt::CaseInsensitive) == 0) {
            return it.value().toString();
        }
    }
    return {};
}

} // namespace kestrova::testing
