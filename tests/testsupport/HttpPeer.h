#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <utility>

namespace kestrova::testing {

// A one-connection-per-request HTTP peer on 127.0.0.1 for answers no simulator gives: the
// handler turns each request head into the whole raw response, which is sent before the
// connection is closed. It lives on the test's thread, so it answers while the code under
// test yields to the event loop.
class HttpPeer
{
public:
    using Handler = std::function<QByteArray(const QByteArray& head)>;

    explicit HttpPeer(Handler handler) : m_handler(std::move(handler))
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* s = m_server.nextPendingConnection()) {
                ++connections;
                auto* buffer = new QByteArray;
                QObject::connect(s, &QTcpSocket::readyRead, s, [this, s, buffer] {
                    *buffer += s->readAll();
                    if (!buffer->contains("\r\n\r\n"))
                        return;
                    heads << *buffer;
                    s->write(m_handler(*buffer));
                    buffer->clear();
                    s->disconnectFromHost();
                });
                QObject::connect(s, &QTcpSocket::disconnected, s, [s, buffer] {
                    delete buffer;
                    s->deleteLater();
                });
            }
        });
    }
    // Always the same response.
    explicit HttpPeer(QByteArray response) : HttpPeer([response](const QByteArray&) { return response; }) {}

    QString url(const QString& path) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
    }

    QList<QByteArray> heads;
    int connections = 0;

private:
    QTcpServer m_server;
    Handler m_handler;
};

// A complete response with a body and the headers a test wants besides the usual ones.
inline QByteArray httpResponse(int status, const QByteArray& body, const QByteArray& type = "text/html",
                               const QByteArray& extraHeaders = {})
{
    return "HTTP/1.1 " + QByteArray::number(status) + " X\r\nContent-Type: " + type +
           "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" + extraHeaders +
           "Connection: close\r\n\r\n" + body;
}

} // namespace kestrova::testing
