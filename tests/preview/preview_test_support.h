#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QTimer>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "media/probe.h"
#include "model/clip.h"
#include "support/media_fixtures.h"

// Media, clips and waiting for the offscreen event loop, for the preview's tests.
namespace preview_test {

// Runs the event loop until `done` holds; false if it did not within twenty seconds. Never
// sleeps, as the player presents from this loop.
inline bool waitFor(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    // Workers change state without posting an event, so a timer wakes the loop to look.
    QTimer look;
    look.start(2);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

// A 320x240 30 fps H.264 file with a tone, keyframes a second apart, `seconds` long.
inline std::filesystem::path movie(const std::string& name, double seconds) {
    return testing_support::makeMedia(
        name, "-f lavfi -i testsrc2=size=320x240:rate=30 -f lavfi -i sine=f=440 -t " +
                  std::to_string(seconds) +
                  " -c:v libx264 -preset veryfast -g 30 -pix_fmt yuv420p -c:a aac");
}

// `files` probed and placed one after the other from time 0.
inline std::vector<model::Clip> clipsOf(const std::vector<std::filesystem::path>& files) {
    std::vector<model::Clip> clips;
    for (const auto& file : files) {
        auto probed = media::probeClip(file, std::nullopt, common::Uuid::random(),
                                       media::ThumbnailPolicy::skip);
        EXPECT_TRUE(probed) << file;
        if (!probed) continue;
        probed.value().startOnTimeline = clips.empty() ? 0 : clips.back().timelineEnd();
        clips.push_back(std::move(probed.value()));
    }
    return clips;
}

}  // namespace preview_test
