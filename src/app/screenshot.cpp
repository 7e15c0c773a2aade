#include "app/screenshot.h"

#include <QPointer>
#include <QRegularExpression>
#include <QTimer>
#include <memory>

#include "app/application.h"
#include "app/content_view.h"
#include "app/document_window.h"

namespace app {

namespace {

constexpr int kPollMs = 50;
// The window must stay quiet this long: the preview decodes and paints its first frame
// on its own threads after the last media task of the project.
constexpr int kQuietPolls = 8;
constexpr int kGiveUpPolls = 1200;

}  // namespace

QSize parseWindowSize(const QString& text) {
    static const QRegularExpression form(QStringLiteral("^(\\d+)x(\\d+)$"));
    auto match = form.match(text);
    if (!match.hasMatch()) return {};
    return {match.captured(1).toInt(), match.captured(2).toInt()};
}

void screenshotWhenSettled(Application& app, DocumentWindow& window, const QString& file,
                           std::function<void(bool)> done) {
    auto timer = new QTimer(&window);
    auto quiet = std::make_shared<int>(0);
    auto polls = std::make_shared<int>(0);
    QPointer<DocumentWindow> target(&window);
    QObject::connect(
        timer, &QTimer::timeout, &window, [&app, target, timer, quiet, polls, file, done] {
            bool settled = !target->project().isHydrating() && app.executor().isIdle() &&
                           target->contentView()->showsFirstFrame();
            *quiet = settled ? *quiet + 1 : 0;
            if (*quiet < kQuietPolls && ++*polls < kGiveUpPolls) return;
            timer->stop();
            timer->deleteLater();
            done(target->grab().save(file, "PNG"));
        });
    timer->start(kPollMs);
}

}  // namespace app
