#include "composition/composition.h"

#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/media_time.h"
#include "common/uuid.h"
#include "model/clip.h"

namespace {

using common::MediaTime;
using composition::buildComposition;
using composition::Composition;
using composition::MediaKind;
using composition::Segment;
using composition::StreamLookup;

// What the fake lookup answers for a file; files it does not list are gone.
struct Streams {
    std::optional<int> video;
    std::optional<int> audio;
};

const std::map<std::string, Streams> kFiles = {
    {"a.mov", {0, 1}},
    {"b.mov", {1, 0}},
    {"tone.wav", {std::nullopt, 0}},
    {"silent.mp4", {0, std::nullopt}},
};

StreamLookup fakeLookup() {
    return [](const std::filesystem::path& file, MediaKind kind) -> std::optional<int> {
        const auto found = kFiles.find(file.filename().string());
        if (found == kFiles.end()) return std::nullopt;
        return kind == MediaKind::video ? found->second.video : found->second.audio;
    };
}

model::Clip clip(const std::string& file, double startOnTimeline, double inSeconds,
                 double outSeconds, bool video = true, bool audio = true) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = std::filesystem::path("/media") / file;
    c.hasVideo = video;
    c.hasAudio = audio;
    c.naturalSize = video ? model::Size{1920, 1080} : model::Size{};
    c.inSeconds = inSeconds;
    c.outSeconds = outSeconds;
    c.startOnTimeline = startOnTimeline;
    return c;
}

MediaTime seconds(double value) {
    return MediaTime::fromSeconds(value);
}

// A segment in ticks, for comparing whole tracks at once: a file's range or a hole.
struct Piece {
    std::int64_t start;
    std::int64_t duration;
    std::string file;  // empty for an empty range
    std::int64_t sourceStart = 0;
    std::int64_t sourceDuration = 0;

    friend bool operator==(const Piece&, const Piece&) = default;
    friend void PrintTo(const Piece& p, std::ostream* os) {
        *os << "[" << p.start << " +" << p.duration << " " << (p.file.empty() ? "empty" : p.file);
        if (!p.file.empty()) *os << " " << p.sourceStart << " +" << p.sourceDuration;
        *os << "]";
    }
};

std::vector<Piece> pieces(const std::vector<Segment>& segments) {
    std::vector<Piece> result;
    for (const Segment& s : segments) {
        Piece piece{s.start.ticks, s.duration.ticks, ""};
        if (s.source) {
            piece.file = s.source->url.filename().string();
            piece.sourceStart = s.source->assetRange.start.ticks;
            piece.sourceDuration = s.source->assetRange.duration.ticks;
        }
        result.push_back(piece);
    }
    return result;
}

Piece hole(std::int64_t start, std::int64_t duration) {
    return {start, duration, ""};
}

TEST(CompositionAssembly, NoClipsGiveNoTracksAndSoundAloneNoVideoTrack) {
    const Composition empty = buildComposition({}, fakeLookup());
    EXPECT_FALSE(empty.video);
    EXPECT_TRUE(empty.audio.empty());
    EXPECT_EQ(empty.duration(), MediaTime{});

    const auto composition = buildComposition(
        {clip("tone.wav", 0, 0, 2, false), clip("tone.wav", 1, 0, 2, false)}, fakeLookup());
    EXPECT_FALSE(composition.video);
    ASSERT_EQ(composition.audio.size(), 2u);
    EXPECT_EQ(composition.audio[0].kind, MediaKind::audio);
    EXPECT_EQ(composition.duration(), seconds(3));
}

TEST(CompositionAssembly, ClipAtFiveSecondsFollowsAnEmptyRangeFromZero) {
    const auto composition = buildComposition({clip("a.mov", 5, 0, 2)}, fakeLookup());
    ASSERT_TRUE(composition.video);
    EXPECT_EQ(pieces(composition.video->segments),
              (std::vector<Piece>{hole(0, 3000), {3000, 1200, "a.mov", 0, 1200}}));
    ASSERT_EQ(composition.audio.size(), 1u);
    EXPECT_EQ(pieces(composition.audio[0].segments),
              (std::vector<Piece>{hole(0, 3000), {3000, 1200, "a.mov", 0, 1200}}));
    EXPECT_EQ(composition.video->segments[1].source->streamIndex, 0);
    EXPECT_EQ(composition.audio[0].segments[1].source->streamIndex, 1);
}

TEST(CompositionAssembly, DoubleRateFillsHalfTheSourceDurationButARateWithinATenThousandthIsOne) {
    auto fast = clip("a.mov", 0, 0, 10);
    fast.rateMultiplier = 2;
    const auto composition = buildComposition({fast, clip("b.mov", 5, 0, 1)}, fakeLookup());
    ASSERT_TRUE(composition.video);
    EXPECT_EQ(pieces(composition.video->segments),
              (std::vector<Piece>{{0, 3000, "a.mov", 0, 6000}, {3000, 600, "b.mov", 0, 600}}));
    EXPECT_EQ(composition.video->segments[0].source->rate, 2.0);
    EXPECT_EQ(composition.audio.at(0).segments.at(0).duration, seconds(5));

    auto nearlyOne = clip("a.mov", 0, 0, 10);
    nearlyOne.rateMultiplier = 1.00005;
    const auto unscaled = buildComposition({nearlyOne}, fakeLookup());
    ASSERT_TRUE(unscaled.video);
    EXPECT_EQ(unscaled.video->segments.at(0).duration, seconds(10));
    EXPECT_EQ(unscaled.video->segments.at(0).source->rate, 1.0);
    EXPECT_EQ(unscaled.audio.at(0).segments.at(0).duration, seconds(10));
}

TEST(CompositionAssembly, EachLaneIsATrackFromTimeZero) {
    const auto composition = buildComposition(
        {clip("a.mov", 0, 0, 10), clip("b.mov", 5, 0, 10), clip("a.mov", 12, 0, 1)}, fakeLookup());
    ASSERT_EQ(composition.audio.size(), 2u);
    EXPECT_EQ(pieces(composition.audio[0].segments),
              (std::vector<Piece>{
                  {0, 6000, "a.mov", 0, 6000}, hole(6000, 1200), {7200, 600, "a.mov", 0, 600}}));
    EXPECT_EQ(pieces(composition.audio[1].segments),
              (std::vector<Piece>{hole(0, 3000), {3000, 6000, "b.mov", 0, 6000}}));
}

TEST(CompositionAssembly, VanishedFileOrMissingTrackKindCostsOnlyItsOwnSliceOnThatTrack) {
    const auto composition = buildComposition(
        {clip("a.mov", 0, 0, 2), clip("gone.mov", 2, 0, 1), clip("b.mov", 3, 0, 1)}, fakeLookup());
    ASSERT_TRUE(composition.video);
    EXPECT_EQ(pieces(composition.video->segments),
              (std::vector<Piece>{
                  {0, 1200, "a.mov", 0, 1200}, hole(1200, 600), {1800, 600, "b.mov", 0, 600}}));

    const auto firstGone =
        buildComposition({clip("gone.mov", 0, 0, 2), clip("b.mov", 3, 0, 1)}, fakeLookup());
    ASSERT_TRUE(firstGone.video);
    EXPECT_EQ(pieces(firstGone.video->segments),
              (std::vector<Piece>{hole(0, 1800), {1800, 600, "b.mov", 0, 600}}));

    const auto silent =
        buildComposition({clip("silent.mp4", 0, 0, 1), clip("a.mov", 1, 0, 1)}, fakeLookup());
    ASSERT_TRUE(silent.video);
    EXPECT_EQ(silent.video->segments.size(), 2u);
    ASSERT_EQ(silent.audio.size(), 1u);
    EXPECT_EQ(pieces(silent.audio[0].segments),
              (std::vector<Piece>{hole(0, 600), {600, 600, "a.mov", 0, 600}}));
}

// A slow clip whose start and scaled length round by `startTicks` and `lengthTicks`, and
// a clip where it ends, as a composition.
std::vector<Piece> afterASlowClip(double startTicks, double lengthTicks) {
    auto slow = clip("a.mov", startTicks / 600, 0, 1);
    slow.rateMultiplier = 600.0 / lengthTicks;
    const auto composition =
        buildComposition({slow, clip("b.mov", slow.timelineEnd(), 0, 1)}, fakeLookup());
    EXPECT_TRUE(composition.video);
    return composition.video ? pieces(composition.video->segments) : std::vector<Piece>{};
}

TEST(CompositionAssembly, ScaledClipEndsWhereTheNextClipStartsWhateverTheRounding) {
    // The scaled length, 857.4 ticks, would round down while the next clip's start, 857.8
    // ticks, rounds up: the run ends at the rounded end of the clip, 858.
    EXPECT_EQ(afterASlowClip(0.4, 857.4),
              (std::vector<Piece>{{0, 858, "a.mov", 0, 600}, {858, 600, "b.mov", 0, 600}}));
    // Start and scaled length both round up (0.6 and 857.6 ticks), their sum down (858.2).
    EXPECT_EQ(
        afterASlowClip(0.6, 857.6),
        (std::vector<Piece>{hole(0, 1), {1, 857, "a.mov", 0, 600}, {858, 600, "b.mov", 0, 600}}));
}

TEST(CompositionAssembly, UnscaledClipsThatMeetOnTheTimelineMeetInTicks) {
    // In 0.54 ticks and out 600.48 round to 1 and 600, a 599-tick range; the next clip
    // starts at 599.94 ticks, which rounds to 600.
    const auto first = clip("a.mov", 0, 0.0009, 1.0008);
    const auto second = clip("b.mov", first.timelineEnd(), 0, 1);
    for (const auto& track : [&] {
             const auto c = buildComposition({first, second}, fakeLookup());
             return std::vector{*c.video, c.audio.front()};
         }())
        EXPECT_EQ(pieces(track.segments),
                  (std::vector<Piece>{{0, 600, "a.mov", 1, 600}, {600, 600, "b.mov", 0, 600}}));
}

TEST(CompositionAssembly, SegmentsCarryClipRotationAndRate) {
    auto turned = clip("a.mov", 0, 1, 3);
    turned.rotationDegrees = 90;
    turned.rateMultiplier = 0.5;
    const auto composition = buildComposition({turned}, fakeLookup());
    ASSERT_TRUE(composition.video);
    const auto& source = *composition.video->segments.at(0).source;
    EXPECT_EQ(source.rotationDegrees, 90);
    EXPECT_EQ(source.rate, 0.5);
    EXPECT_EQ(source.clipID, turned.id);
    EXPECT_EQ(composition.video->segments[0].duration, seconds(4));
    EXPECT_EQ(composition.audio.at(0).segments.at(0).source->rotationDegrees, 0);
}

}  // namespace
