#include "app/update_check.h"

#include <QDesktopServices>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QRegularExpression>

#include "common/version.h"

namespace app {

common::Result<Release> parseReleaseFeed(const QByteArray& json) {
    QJsonParseError error;
    QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return common::Error{"The release feed is not JSON: " + error.errorString().toStdString() +
                             "."};
    if (!document.isObject()) return common::Error{"The release feed is not a JSON object."};
    QJsonObject object = document.object();
    QString version = object.value(QStringLiteral("version")).toString();
    static const QRegularExpression dotted(QStringLiteral("^\\d+(\\.\\d+)*$"));
    if (!dotted.match(version).hasMatch())
        return common::Error{"The release feed has no valid \"version\"."};
    QUrl page(object.value(QStringLiteral("url")).toString());
    if (!page.isValid() || page.scheme().isEmpty())
        return common::Error{"The release feed has no valid \"url\"."};
    return Release{version, page};
}

int compareVersions(const QString& a, const QString& b) {
    QStringList left = a.split(u'.'), right = b.split(u'.');
    for (qsizetype i = 0; i < std::max(left.size(), right.size()); ++i) {
        long long x = i < left.size() ? left[i].toLongLong() : 0;
        long long y = i < right.size() ? right[i].toLongLong() : 0;
        if (x != y) return x < y ? -1 : 1;
    }
    return 0;
}

QUrl updateFeedUrl() {
    QByteArray override = qgetenv("VANTRELL_UPDATE_FEED");
    QString address = override.isEmpty() ? QStringLiteral(VANTRELL_UPDATE_FEED_URL)
                                         : QString::fromLocal8Bit(override);
    return QUrl::fromUserInput(address, QString(), QUrl::AssumeLocalFile);
}

UpdateChecker::UpdateChecker(QObject* parent)
    : QObject(parent), network_(new QNetworkAccessManager(this)) {}

void UpdateChecker::check(const QUrl& feed, const QString& currentVersion) {
    QNetworkRequest request(feed);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QStringLiteral("Vantrell/%1").arg(currentVersion));
    request.setTransferTimeout(15000);
    QNetworkReply* reply = network_->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, currentVersion] {
        reply->deleteLater();
        UpdateResult result;
        if (reply->error() != QNetworkReply::NoError) {
            result.reason = reply->errorString();
        } else if (auto release = parseReleaseFeed(reply->readAll()); !release) {
            result.reason = QString::fromStdString(release.error().message);
        } else if (compareVersions(release.value().version, currentVersion) > 0) {
            result = {
                UpdateResult::Kind::available, release.value().version, release.value().page, {}};
        } else {
            result.kind = UpdateResult::Kind::upToDate;
        }
        emit finished(result);
    });
}

void presentUpdateResult(QWidget* parent, const UpdateResult& result) {
    QMessageBox box(parent);
    box.setWindowTitle(QStringLiteral("Check for Updates"));
    switch (result.kind) {
        case UpdateResult::Kind::upToDate:
            box.setIcon(QMessageBox::Information);
            box.setText(QStringLiteral("You're up to date"));
            box.setInformativeText(
                QStringLiteral("Vantrell %1 is the newest version.")
                    .arg(QString::fromUtf8(common::kVersion.data(), common::kVersion.size())));
            box.exec();
            return;
        case UpdateResult::Kind::available: {
            box.setIcon(QMessageBox::Information);
            box.setText(QStringLiteral("Vantrell %1 is available").arg(result.version));
            QPushButton* open = box.addButton(QStringLiteral("Open Page"), QMessageBox::AcceptRole);
            box.addButton(QMessageBox::Close);
            box.setDefaultButton(open);
            box.exec();
            if (box.clickedButton() == open) QDesktopServices::openUrl(result.page);
            return;
        }
        case UpdateResult::Kind::failed:
            box.setIcon(QMessageBox::Warning);
            box.setText(QStringLiteral("Couldn't check for updates"));
            box.setInformativeText(result.reason);
            box.exec();
            return;
    }
}

}  // namespace app
