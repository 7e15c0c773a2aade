#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class QLocalServer;

namespace app {

// One Vantrell process per user session: the first listens on a local socket, and a later
// launch hands its files to it and stops. Main thread.
class InstanceHandover final : public QObject {
    Q_OBJECT

  public:
    // The socket's name for this user (and VANTRELL_INSTANCE from the environment, which
    // lets tests run their own).
    static QString defaultName();

    explicit InstanceHandover(QString name, QObject* parent = nullptr);

    // Sends `files` (absolute paths, possibly none) to a running process; answers false
    // when none is listening.
    bool handOver(const QStringList& files, int timeoutMs = 2000) const;
    // Starts listening; answers false if the name can't be taken.
    bool listen();

  signals:
    // Files from a later launch; an empty list asks for a window.
    void filesReceived(const QStringList& files);

  private:
    QString name_;
    QLocalServer* server_ = nullptr;
};

}  // namespace app
