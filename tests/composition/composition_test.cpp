#include "composition/composition.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "model/clip.h"

namespace {

using composition::buildComposition;
using composition::MediaKind;
using composition::Segment;

// The video and audio stream of each file the fake lookup knows; others are gone.
const std::map<std::string, std::pair<std::optional<int>, std::optional<int>>> kFiles = {
    {"a.mov", {0, 1}},
    {"b.mov", {1, 0}},
    {"tone.wav", {std::nullopt, 0}},
    {"silent.mp4", {0, std::nullopt}},
};

std::optional<int> fakeLookup(const std::filesystem::path& file, MediaKind kind) {
    const auto found = kFiles.find(file.filename().string());
    if (found == kFiles.end()) return std::nullopt;
    return kind == MediaKind::video ? found->second.first : found->second.second;
}

model::Clip clip(const std::string& file, double start, double in, double out, double rate = 1) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = std::filesystem::path("/media") / file;
    c.hasVideo = file != "tone.wav";
    c.hasAudio = true;
    c.naturalSize = c.hasVideo ? model::Size{1920, 1080} : model::Size{};
    c.inSeconds = in;
    c.outSeconds = out;
    c.startOnTimeline = start;
    c.rateMultiplier = rate;
    return c;
}

// Segments in ticks: "file@start+duration:sourceStart+sourceDuration", or "-@start+duration"
// for an empty range.
std::string pieces(const std::vector<Segment>& segments) {
    std::string text;
    for (const Segment& s : segments) {
        text += (text.empty() ? "" : " ") + (s.source ? s.source->url.filename().string() : "-") +
                "@" + std::to_string(s.start.ticks) + "+" + std::to_string(s.duration.ticks);
        if (s.source)
            text += ":" + std::to_string(s.source->assetRange.start.ticks) + "+" +
                    std::to_string(s.source->assetRange.duration.ticks);
    }
    return text;
}

// A slow clip whose start and scaled length are `startTicks` and `lengthTicks` unrounded,
// and a clip where it ends.
std::vector<model::Clip> afterASlowClip(double startTicks, double lengthTicks) {
    const auto slow = clip("a.mov", startTicks / 600, 0, 1, 600.0 / lengthTicks);
    return {slow, clip("b.mov", slow.timelineEnd(), 0, 1)};
}

struct Assembly {
    std::vector<model::Clip> clips;
    std::string video;  // "none" without a video track
    std::string audio;  // tracks separated by " | "
};

// Clips whose sound takes one lane, cut as their picture is.
Assembly alike(std::vector<model::Clip> clips, const std::string& pieces) {
    return {std::move(clips), pieces, pieces};
}

TEST(Composition, EachLaneIsATrackFromTimeZeroWithEmptyRangesBetweenItsClips) {
    const auto unscaled = clip("a.mov", 0, 0.0009, 1.0008);
    for (const auto& [clips, video, audio] : std::vector<Assembly>{
             {{}, "none", ""},
             {{clip("tone.wav", 0, 0, 2), clip("tone.wav", 1, 0, 2)},
              "none",
              "tone.wav@0+1200:0+1200 | -@0+600 tone.wav@600+1200:0+1200"},
             alike({clip("a.mov", 5, 0, 2)}, "-@0+3000 a.mov@3000+1200:0+1200"),
             alike({clip("a.mov", 0, 0, 10, 2), clip("b.mov", 5, 0, 1)},
                   "a.mov@0+3000:0+6000 b.mov@3000+600:0+600"),
             // A rate within a ten-thousandth of 1 is 1.
             alike({clip("a.mov", 0, 0, 10, 1.00005)}, "a.mov@0+6000:0+6000"),
             {{clip("a.mov", 0, 0, 10), clip("b.mov", 5, 0, 10), clip("a.mov", 12, 0, 1)},
              "a.mov@0+3000:0+3000 b.mov@3000+4200:0+4200 a.mov@7200+600:0+600 "
              "b.mov@7800+1200:4800+1200",
              "a.mov@0+6000:0+6000 -@6000+1200 a.mov@7200+600:0+600 | "
              "-@0+3000 b.mov@3000+6000:0+6000"},
             // A vanished file or a missing kind of stream costs only its own slice.
             alike({clip("a.mov", 0, 0, 2), clip("gone.mov", 2, 0, 1), clip("b.mov", 3, 0, 1)},
                   "a.mov@0+1200:0+1200 -@1200+600 b.mov@1800+600:0+600"),
             alike({clip("gone.mov", 0, 0, 2), clip("b.mov", 3, 0, 1)},
                   "-@0+1800 b.mov@1800+600:0+600"),
             {{clip("silent.mp4", 0, 0, 1), clip("a.mov", 1, 0, 1)},
              "silent.mp4@0+600:0+600 a.mov@600+600:0+600",
              "-@0+600 a.mov@600+600:0+600"},
             // Scaled length 857.4 ticks rounds down, the next start 857.8 up: the run ends
             // at the clip's rounded end, 858.
             alike(afterASlowClip(0.4, 857.4), "a.mov@0+858:0+600 b.mov@858+600:0+600"),
             // Start and scaled length round up (0.6, 857.6), their sum down (858.2).
             alike(afterASlowClip(0.6, 857.6), "-@0+1 a.mov@1+857:0+600 b.mov@858+600:0+600"),
             // In 0.54 and out 600.48 ticks round to a 599-tick range; the next clip starts
             // at 599.94 ticks, which rounds to 600.
             alike({unscaled, clip("b.mov", unscaled.timelineEnd(), 0, 1)},
                   "a.mov@0+600:1+600 b.mov@600+600:0+600"),
         }) {
        const auto composition = buildComposition(clips, fakeLookup);
        EXPECT_EQ(composition.video ? pieces(composition.video->segments) : "none", video);
        std::string tracks;
        std::int64_t longest = composition.video ? composition.video->duration().ticks : 0;
        for (const auto& track : composition.audio) {
            EXPECT_EQ(track.kind, MediaKind::audio);
            tracks += (tracks.empty() ? "" : " | ") + pieces(track.segments);
            longest = std::max(longest, track.duration().ticks);
        }
        EXPECT_EQ(tracks, audio);
        EXPECT_EQ(composition.duration().ticks, longest);
    }
}

TEST(Composition, SegmentsCarryTheClipsStreamRotationRateAndLength) {
    auto turned = clip("a.mov", 0, 1, 3, 0.5);
    turned.rotationDegrees = 90;
    const auto composition = buildComposition(
        {turned, clip("b.mov", 4, 0, 1), clip("a.mov", 5, 0, 1, 1.00005)}, fakeLookup);
    ASSERT_TRUE(composition.video);
    const auto& video = composition.video->segments;
    ASSERT_EQ(video.size(), 3u);
    EXPECT_EQ(std::tuple(video[0].source->streamIndex, video[0].source->rotationDegrees,
                         video[0].source->rate, video[0].source->clipID, video[0].duration.ticks),
              std::tuple(0, 90, 0.5, turned.id, 2400));
    EXPECT_EQ(video[1].source->streamIndex, 1);
    EXPECT_EQ(video[2].source->rate, 1.0);
    const auto& sound = composition.audio.at(0).segments;
    ASSERT_EQ(sound.size(), 3u);
    EXPECT_EQ(std::tuple(sound[0].source->streamIndex, sound[0].source->rotationDegrees),
              std::tuple(1, 0));
    EXPECT_EQ(sound[1].source->streamIndex, 0);
}

}  // namespace
