#include "app/instance_handover.h"

#include <QDataStream>
#include <QLocalServer>
#include <QLocalSocket>

namespace app {

QString InstanceHandover::defaultName() {
    QByteArray instance = qgetenv("VANTRELL_INSTANCE");
    QString user = qEnvironmentVariable("USER", QStringLiteral("user"));
    return QStringLiteral("vantrell-%1%2")
        .arg(user, instance.isEmpty() ? QString()
                                      : QStringLiteral("-") + QString::fromLocal8Bit(instance));
}

InstanceHandover::InstanceHandover(QString name, QObject* parent)
    : QObject(parent), name_(std::move(name)) {}

bool InstanceHandover::handOver(const QStringList& files, int timeoutMs) const {
    QLocalSocket socket;
    socket.connectToServer(name_);
    if (!socket.waitForConnected(timeoutMs)) return false;
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out << files;
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs)) return false;
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState) socket.waitForDisconnected(timeoutMs);
    return true;
}

bool InstanceHandover::listen() {
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(name_)) {
        // A socket file left by a process that died; nobody answers on it.
        QLocalServer::removeServer(name_);
        if (!server_->listen(name_)) return false;
    }
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = server_->nextPendingConnection()) {
            auto buffer = std::make_shared<QByteArray>();
            connect(socket, &QLocalSocket::readyRead, socket,
                    [socket, buffer] { buffer->append(socket->readAll()); });
            connect(socket, &QLocalSocket::disconnected, this, [this, socket, buffer] {
                buffer->append(socket->readAll());
                socket->deleteLater();
                QStringList files;
                QDataStream in(*buffer);
                in >> files;
                if (in.status() == QDataStream::Ok) emit filesReceived(files);
            });
        }
    });
    return true;
}

}  // namespace app
