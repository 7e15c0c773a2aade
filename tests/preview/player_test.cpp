#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "composition/stream_lookup.h"
#include "preview/player.h"
#include "preview/preview_test_support.h"
#include "support/media_fixtures.h"

namespace {

using namespace preview_test;
using testing_support::freshDir;
using testing_support::quote;
namespace fs = std::filesystem;

// Plays `clips` from `from` to the end, recording every picture presented.
struct Playback {
    std::vector<preview::PresentedFrame> frames;
    bool ended = false;
    preview::PlaybackStats stats;
    double endTime = 0;
    int rateAtEnd = -1;
};

Playback playToEnd(composition::Composition built, double from,
                   const std::function<void()>& beforePlay = {}) {
    Playback run;
    std::mutex mutex;
    preview::Player player([built]() -> common::Result<composition::Composition> { return built; },
                           {30, preview::AudioOutput::none});
    player.setFrameSink([&](const preview::PresentedFrame& frame) {
        std::lock_guard lock(mutex);
        run.frames.push_back(frame);
    });
    player.setEndCallback([&] {
        run.ended = true;
        run.endTime = player.currentTime();
        run.rateAtEnd = player.rate();
    });
    player.seek(from);
    EXPECT_TRUE(player.waitUntilSettled(std::chrono::seconds(20)));
    if (beforePlay) beforePlay();
    player.play();
    EXPECT_TRUE(waitFor([&] { return run.ended; }));
    run.stats = player.stats();
    EXPECT_EQ(player.duration(), built.duration().seconds());
    return run;
}

TEST(Player, EndLeavesThePlayerPausedAtTheEnd) {
    const auto built = composition::buildComposition(clipsOf({movie("preview_short.mp4", 1)}));
    const Playback run = playToEnd(built, 0.5);
    EXPECT_EQ(run.rateAtEnd, 0);
    EXPECT_DOUBLE_EQ(run.endTime, built.duration().seconds());
    EXPECT_EQ(run.stats.framesDropped, 0);
    EXPECT_GE(run.stats.framesPresented, 13);
}

TEST(Player, AVanishedFileShowsBlackForItsRangeAndPlayGoesOn) {
    const fs::path dir = freshDir("preview_vanished");
    const fs::path first = movie("preview_two_a.mp4", 1);
    const fs::path second = dir / "gone.mp4";
    fs::copy_file(movie("preview_two_b.mp4", 1), second);
    const auto built = composition::buildComposition(clipsOf({first, second}));
    const Playback run = playToEnd(built, 0.5, [&] { fs::remove(second); });
    for (const auto& frame : run.frames)
        EXPECT_EQ(frame.picture == nullptr, frame.seconds >= 1.0) << frame.seconds;
    EXPECT_GT(run.frames.back().seconds, 1.9);
}

TEST(Player, ACorruptPacketCostsOnlyItsOwnFrames) {
    // Every frame a keyframe, so one damaged packet spoils nothing but itself.
    const fs::path intact = testing_support::makeMedia(
        "preview_intra.mp4",
        "-f lavfi -i testsrc2=size=320x240:rate=30 -t 2 -c:v libx264 -preset veryfast -g 1 "
        "-pix_fmt yuv420p");
    const fs::path damaged = freshDir("preview_corrupt") / "damaged.mp4";
    fs::copy_file(intact, damaged);
    {
        std::fstream file(damaged, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(fs::file_size(damaged) / 2));
        const std::string noise(400, '\x5a');
        file.write(noise.data(), static_cast<std::streamsize>(noise.size()));
    }
    const auto built = composition::buildComposition(clipsOf({damaged}));
    const Playback run = playToEnd(built, 0);
    std::size_t black = 0;
    for (const auto& frame : run.frames) black += frame.picture == nullptr;
    EXPECT_LE(black, 2u);
    EXPECT_GE(run.stats.framesPresented + run.stats.framesDropped, 58);
}

// Runs the built command line with `args`, quietly; answers its exit status.
int cli(const std::string& args) {
    return testing_support::run(quote(VANTRELL_CLI) + " " + args + " >/dev/null 2>&1");
}

TEST(Player, SnapshotsEqualTheFrameCommand) {
    const fs::path dir = freshDir("preview_snapshots");
    // Keyframes a second apart: the second clip starts at 1.6 s from 0.5 s into its file,
    // between two of them.
    const std::string project = quote((dir / "p.vantrell").string());
    ASSERT_EQ(cli("new " + project + " " + quote(movie("preview_cut_a.mp4", 2).string()) + " " +
                  quote(movie("preview_cut_b.mp4", 2).string())),
              0);
    ASSERT_EQ(
        cli("edit " + project + " 'select 0' 'playhead 1.6' set-out 'trim-in 1 0.5' 'move 1 1.6'"),
        0);
    const std::string times[] = {"0.5", "1.1", "1.6", "2.45", "3.05"};
    ASSERT_EQ(cli("play " + project + " --at 0.5,1.1,1.6,2.45,3.05 --snapshots " +
                  quote((dir / "snaps").string())),
              0);
    for (const auto& t : times) {
        const fs::path frame = dir / (t + ".png");
        ASSERT_EQ(cli("frame " + project + " --at " + t + " -o " + quote(frame.string())), 0);
        // One PNG encoder on both sides: equal files are equal pictures.
        EXPECT_EQ(testing_support::contentsOf(dir / "snaps" / (t + ".png")),
                  testing_support::contentsOf(frame))
            << t;
    }
}

TEST(Player, AReplacingPlayerPlaysOnFromTheOneItReplacesWhichStillSeeks) {
    const auto built = composition::buildComposition(clipsOf({movie("preview_handover.mp4", 3)}));
    const auto loader = [built]() -> common::Result<composition::Composition> { return built; };
    preview::Player old(loader, {30, preview::AudioOutput::none});
    old.play();
    ASSERT_TRUE(waitFor([&] { return old.currentTime() > 0.5; }));

    std::mutex mutex;
    std::vector<preview::PresentedFrame> frames;
    preview::Player next(loader, {30, preview::AudioOutput::none, &old});
    next.setFrameSink([&](const preview::PresentedFrame& frame) {
        std::lock_guard lock(mutex);
        frames.push_back(frame);
    });
    const double playhead = old.currentTime();
    next.seek(0.1);
    next.play();
    ASSERT_TRUE(next.waitUntilSettled(std::chrono::seconds(20)));
    {
        std::lock_guard lock(mutex);
        ASSERT_FALSE(frames.empty());
        EXPECT_GE(frames.front().seconds, playhead) << "play goes on, never back";
        EXPECT_TRUE(frames.front().picture);
    }

    // Its files gone to the new player, the old one opens them again for a seek.
    old.pause();
    preview::SharedFrame seen;
    old.setFrameSink([&](const preview::PresentedFrame& frame) {
        std::lock_guard lock(mutex);
        seen = frame.picture;
    });
    old.seek(2.0);
    ASSERT_TRUE(old.waitUntilSettled(std::chrono::seconds(20)));
    std::lock_guard lock(mutex);
    EXPECT_TRUE(seen);
}

TEST(Player, ThroughASoundDeviceTheSoundLeadsTheClock) {
    // scripts/test starts a sound server with a null sink and names its socket here; only
    // this test's child sees it, so the rest of the suite plays on the system clock.
    const char* server = std::getenv("VANTRELL_TEST_PULSE_SERVER");
    if (!server) GTEST_SKIP() << "no sound server to play through";
    const fs::path dir = freshDir("preview_sound");
    const std::string project = quote((dir / "p.vantrell").string());
    ASSERT_EQ(cli("new " + project + " " + quote(movie("preview_sound.mp4", 3).string())), 0);
    const fs::path report = dir / "play.json";
    ASSERT_EQ(
        testing_support::run("PULSE_SERVER=" + quote(server) + " " + quote(VANTRELL_CLI) +
                             " play " + project + " --for 2 --json > " + quote(report.string())),
        0);
    const auto stats = nlohmann::json::parse(testing_support::contentsOf(report));
    const int presented = stats["framesPresented"].get<int>();
    EXPECT_GT(presented, 0);
    // The device takes sound a block at a time; a clock set to each block's end leaps over
    // pictures, dropping near half of them. A loaded machine may drop a few.
    EXPECT_LT(stats["framesDropped"].get<int>(), presented / 4);
    EXPECT_LE(stats["audioUnderruns"].get<int>(), 1) << "no burst of underruns";
    // On the system clock alone nothing drifts; a device's clock is followed.
    EXPECT_GT(stats["greatestDriftSeconds"].get<double>(), 0);
}

}  // namespace
