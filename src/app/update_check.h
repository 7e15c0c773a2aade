#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <string_view>

#include "common/result.h"

class QNetworkAccessManager;
class QWidget;

namespace app {

// One release as the feed announces it.
struct Release {
    QString version;
    QUrl page;
};

// Reads the release feed: a JSON object with "version" (dotted numbers) and "url" (the
// release's page).
common::Result<Release> parseReleaseFeed(const QByteArray& json);

// Compares dotted version numbers part by part, missing parts counting as 0: below 0 when
// a is older than b.
int compareVersions(const QString& a, const QString& b);

// What a check found.
struct UpdateResult {
    enum class Kind { upToDate = 1, available, failed };
    Kind kind = Kind::failed;
    QString version;  // the newer version, when available
    QUrl page;
    QString reason;  // why the check failed
};

// The feed this build asks: VANTRELL_UPDATE_FEED from the environment if set, else the
// address the build was configured with.
QUrl updateFeedUrl();

// Fetches the release feed and compares it with the running version. It only reads the
// feed: nothing is ever downloaded or installed. Main thread.
class UpdateChecker final : public QObject {
    Q_OBJECT

  public:
    explicit UpdateChecker(QObject* parent = nullptr);
    void check(const QUrl& feed, const QString& currentVersion);

  signals:
    void finished(const app::UpdateResult& result);

  private:
    QNetworkAccessManager* network_;
};

// The message that tells a finished check: "You're up to date", "Vantrell X is available"
// with a button that opens its page, or "Couldn't check for updates" with the reason.
void presentUpdateResult(QWidget* parent, const UpdateResult& result);

}  // namespace app
