#include "preview/preview_test_support.h"

#include <QApplication>
#include <QTimer>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "media/probe.h"
#include "support/media_fixtures.h"

namespace preview_test {

void ensureApplication() {
    if (QApplication::instance()) return;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "preview_tests";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
}

bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    // Workers change state without posting an event, so a timer wakes the loop to look.
    QTimer look;
    look.start(2);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

std::filesystem::path movie(const std::string& name, double seconds) {
    return testing_support::makeMedia(
        name, "-f lavfi -i testsrc2=size=320x240:rate=30 -f lavfi -i sine=f=440 -t " +
                  std::to_string(seconds) +
                  " -c:v libx264 -preset veryfast -g 30 -pix_fmt yuv420p -c:a aac");
}

std::vector<model::Clip> clipsOf(const std::vector<std::filesystem::path>& files) {
    std::vector<model::Clip> clips;
    double start = 0;
    for (const auto& file : files) {
        auto probed = media::probeClip(file, std::nullopt, common::Uuid::random(),
                                       media::ThumbnailPolicy::skip);
        EXPECT_TRUE(probed) << file;
        if (!probed) continue;
        probed.value().startOnTimeline = start;
        start = probed.value().timelineEnd();
        clips.push_back(std::move(probed.value()));
    }
    return clips;
}

}  // namespace preview_test

// Fontconfig keeps its caches for the life of the process, which the leak checker of the
// sanitizer build reports once text has been drawn; a plain build never calls this.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}
