#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QUrl>
#include <fstream>

#include "app/update_check.h"
#include "support/media_fixtures.h"

namespace {

namespace ts = testing_support;

app::UpdateResult checkFeed(const QUrl& feed, const QString& running) {
    app::UpdateChecker checker;
    QSignalSpy finished(&checker, &app::UpdateChecker::finished);
    checker.check(feed, running);
    EXPECT_TRUE(finished.wait(10000));
    return finished.value(0).value(0).value<app::UpdateResult>();
}

QUrl feedFile(const std::string& name, const std::string& json) {
    static const auto dir = ts::freshDir("update-feed");
    auto file = dir / name;
    std::ofstream(file) << json;
    return QUrl::fromLocalFile(QString::fromStdString(file.string()));
}

TEST(UpdateCheck, AgainstALocalFeed) {
    qRegisterMetaType<app::UpdateResult>();
    const std::string feed = R"({"version": "1.4.0", "url": "https://example.com/1.4.0"})";
    struct Case {
        std::string name;
        QUrl url;
        QString running;
        app::UpdateResult::Kind kind;
    };
    const Case cases[] = {
        {"same version", feedFile("same.json", feed), "1.4.0", app::UpdateResult::Kind::upToDate},
        {"older feed", feedFile("older.json", feed), "1.10", app::UpdateResult::Kind::upToDate},
        {"newer", feedFile("newer.json", feed), "1.3.9", app::UpdateResult::Kind::available},
        {"unreachable", QUrl::fromLocalFile("/nonexistent/vantrell/feed.json"), "1.0",
         app::UpdateResult::Kind::failed},
        {"malformed", feedFile("bad.json", "{\"version\": 3"), "1.0",
         app::UpdateResult::Kind::failed},
        {"no version", feedFile("empty.json", "{}"), "1.0", app::UpdateResult::Kind::failed},
    };
    for (const auto& c : cases) {
        auto result = checkFeed(c.url, c.running);
        EXPECT_EQ(result.kind, c.kind) << c.name;
        if (c.kind == app::UpdateResult::Kind::available) {
            EXPECT_EQ(result.version, QStringLiteral("1.4.0"));
            EXPECT_EQ(result.page, QUrl(QStringLiteral("https://example.com/1.4.0")));
        }
        EXPECT_EQ(result.reason.isEmpty(), c.kind != app::UpdateResult::Kind::failed) << c.name;
    }
}

TEST(UpdateCheck, TheEnvironmentOverridesTheFeedAndVersionsCompareByNumber) {
    qputenv("VANTRELL_UPDATE_FEED", "/srv/feed.json");
    EXPECT_EQ(app::updateFeedUrl(), QUrl::fromLocalFile(QStringLiteral("/srv/feed.json")));
    qunsetenv("VANTRELL_UPDATE_FEED");
    EXPECT_EQ(app::updateFeedUrl().scheme(), QStringLiteral("https"));
    EXPECT_LT(app::compareVersions("1.9", "1.10"), 0);
    EXPECT_EQ(app::compareVersions("1.2", "1.2.0"), 0);
    EXPECT_GT(app::compareVersions("2", "1.99.99"), 0);
}

}  // namespace
