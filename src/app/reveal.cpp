#include "app/reveal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QUrl>

namespace app {

void revealInFileManager(const std::filesystem::path& file) {
    QString path = QString::fromStdString(std::filesystem::absolute(file).string());
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        QDBusMessage reply = bus.call(call, QDBus::Block, 3000);
        if (reply.type() == QDBusMessage::ReplyMessage) return;
    }
    QString folder = QString::fromStdString(std::filesystem::absolute(file).parent_path().string());
    QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}

}  // namespace app
