#include "composition/composition.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
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

model::Clip retimed(model::Clip c, double rate) {
    c.rateMultiplier = rate;
    return c;
}

// A slow clip whose start and scaled length round by `startTicks` and `lengthTicks`, and
// a clip where it ends.
std::vector<model::Clip> afterASlowClip(double startTicks, double lengthTicks) {
    const auto slow = retimed(clip("a.mov", startTicks / 600, 0, 1), 600.0 / lengthTicks);
    return {slow, clip("b.mov", slow.timelineEnd(), 0, 1)};
}

using Pieces = std::vector<Piece>;

// Clips, and the pieces of the video track (none: no such track) and of each audio track.
struct Assembly {
    std::string name;
    std::vector<model::Clip> clips;
    std::optional<Pieces> video;
    std::vector<Pieces> audio;
};

// Clips whose sound takes one lane, cut as their picture is.
Assembly alike(std::string name, std::vector<model::Clip> clips, const Pieces& pieces) {
    return {std::move(name), std::move(clips), pieces, {pieces}};
}

void PrintTo(const Assembly& a, std::ostream* os) {
    *os << a.name;
}

class CompositionAssembly : public testing::TestWithParam<Assembly> {};

TEST_P(CompositionAssembly, EachLaneIsATrackFromTimeZeroWithEmptyRangesBetweenItsClips) {
    const Composition composition = buildComposition(GetParam().clips, fakeLookup());
    ASSERT_EQ(composition.video.has_value(), GetParam().video.has_value());
    const Pieces video = composition.video ? pieces(composition.video->segments) : Pieces{};
    if (composition.video) {
        EXPECT_EQ(video, *GetParam().video);
    }
    std::vector<Pieces> audio;
    for (const auto& track : composition.audio) {
        EXPECT_EQ(track.kind, MediaKind::audio);
        audio.push_back(pieces(track.segments));
    }
    EXPECT_EQ(audio, GetParam().audio);
    // The composition lasts as long as its longest track.
    std::int64_t longest = 0;
    for (const auto& track : audio)
        longest = std::max(longest, track.back().start + track.back().duration);
    if (composition.video) longest = std::max(longest, video.back().start + video.back().duration);
    EXPECT_EQ(composition.duration().ticks, longest);
}

const Piece kBAt3{1800, 600, "b.mov", 0, 600};
const auto kFirstUnscaled = clip("a.mov", 0, 0.0009, 1.0008);

INSTANTIATE_TEST_SUITE_P(
    Cases, CompositionAssembly,
    testing::Values(
        Assembly{"NoClipsGiveNoTracks", {}, std::nullopt, {}},
        Assembly{
            "SoundAloneGivesNoVideoTrack",
            {clip("tone.wav", 0, 0, 2, false), clip("tone.wav", 1, 0, 2, false)},
            std::nullopt,
            {{{0, 1200, "tone.wav", 0, 1200}}, {hole(0, 600), {600, 1200, "tone.wav", 0, 1200}}}},
        alike("ClipAtFiveSecondsFollowsAnEmptyRangeFromZero", {clip("a.mov", 5, 0, 2)},
              {hole(0, 3000), {3000, 1200, "a.mov", 0, 1200}}),
        alike("DoubleRateFillsHalfTheSourceDuration",
              {retimed(clip("a.mov", 0, 0, 10), 2), clip("b.mov", 5, 0, 1)},
              {{0, 3000, "a.mov", 0, 6000}, {3000, 600, "b.mov", 0, 600}}),
        alike("RateWithinATenThousandthOfOneIsOne", {retimed(clip("a.mov", 0, 0, 10), 1.00005)},
              {{0, 6000, "a.mov", 0, 6000}}),
        Assembly{"OverlappingSoundTakesASecondTrack",
                 {clip("a.mov", 0, 0, 10), clip("b.mov", 5, 0, 10), clip("a.mov", 12, 0, 1)},
                 Pieces{{0, 3000, "a.mov", 0, 3000},
                        {3000, 4200, "b.mov", 0, 4200},
                        {7200, 600, "a.mov", 0, 600},
                        {7800, 1200, "b.mov", 4800, 1200}},
                 {{{0, 6000, "a.mov", 0, 6000}, hole(6000, 1200), {7200, 600, "a.mov", 0, 600}},
                  {hole(0, 3000), {3000, 6000, "b.mov", 0, 6000}}}},
        // A vanished file or a missing kind of track costs only its own slice on that track.
        alike("VanishedFileLeavesAnEmptyRange",
              {clip("a.mov", 0, 0, 2), clip("gone.mov", 2, 0, 1), clip("b.mov", 3, 0, 1)},
              {{0, 1200, "a.mov", 0, 1200}, hole(1200, 600), kBAt3}),
        alike("VanishedFirstFile", {clip("gone.mov", 0, 0, 2), clip("b.mov", 3, 0, 1)},
              {hole(0, 1800), kBAt3}),
        Assembly{"FileWithoutSound",
                 {clip("silent.mp4", 0, 0, 1), clip("a.mov", 1, 0, 1)},
                 Pieces{{0, 600, "silent.mp4", 0, 600}, {600, 600, "a.mov", 0, 600}},
                 {{hole(0, 600), {600, 600, "a.mov", 0, 600}}}},
        // The scaled length, 857.4 ticks, would round down while the next clip's start, 857.8
        // ticks, rounds up: the run ends at the rounded end of the clip, 858.
        alike("ScaledClipEndsWhereTheNextStartsThoughItsLengthRoundsDown",
              afterASlowClip(0.4, 857.4), {{0, 858, "a.mov", 0, 600}, {858, 600, "b.mov", 0, 600}}),
        // Start and scaled length both round up (0.6 and 857.6 ticks), their sum down (858.2).
        alike("ScaledClipEndsWhereTheNextStartsThoughItsStartRoundsUp", afterASlowClip(0.6, 857.6),
              {hole(0, 1), {1, 857, "a.mov", 0, 600}, {858, 600, "b.mov", 0, 600}}),
        // In 0.54 ticks and out 600.48 round to 1 and 600, a 599-tick range; the next clip
        // starts at 599.94 ticks, which rounds to 600.
        alike("UnscaledClipsThatMeetOnTheTimelineMeetInTicks",
              {kFirstUnscaled, clip("b.mov", kFirstUnscaled.timelineEnd(), 0, 1)},
              {{0, 600, "a.mov", 1, 600}, {600, 600, "b.mov", 0, 600}})),
    [](const testing::TestParamInfo<Assembly>& info) { return info.param.name; });

TEST(CompositionSegments, CarryTheClipsStreamRotationRateAndLength) {
    auto turned = clip("a.mov", 0, 1, 3);
    turned.rotationDegrees = 90;
    turned.rateMultiplier = 0.5;
    const auto composition = buildComposition(
        {turned, clip("b.mov", 4, 0, 1), retimed(clip("a.mov", 5, 0, 1), 1.00005)}, fakeLookup());
    ASSERT_TRUE(composition.video);
    const auto& video = composition.video->segments;
    ASSERT_EQ(video.size(), 3u);
    EXPECT_EQ(std::tuple(video[0].source->streamIndex, video[0].source->rotationDegrees,
                         video[0].source->rate, video[0].source->clipID),
              std::tuple(0, 90, 0.5, turned.id));
    EXPECT_EQ(video[0].duration, seconds(4));
    EXPECT_EQ(video[1].source->streamIndex, 1);
    EXPECT_EQ(video[2].source->rate, 1.0);
    const auto& sound = composition.audio.at(0).segments;
    ASSERT_EQ(sound.size(), 3u);
    EXPECT_EQ(std::tuple(sound[0].source->streamIndex, sound[0].source->rotationDegrees),
              std::tuple(1, 0));
    EXPECT_EQ(sound[1].source->streamIndex, 0);
}

}  // namespace
