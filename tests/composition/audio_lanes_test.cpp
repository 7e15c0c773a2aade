#include "composition/audio_lanes.h"

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "composition/video_slicing.h"
#include "model/clip.h"

namespace {

using composition::assignAudioLanes;
using composition::Slice;

// A clip with picture and sound, filled in only where lane assignment reads it.
model::Clip clip(const std::string& file, double startOnTimeline, double inSeconds,
                 double outSeconds) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = std::filesystem::path("/media") / file;
    c.hasVideo = true;
    c.hasAudio = true;
    c.naturalSize = {1920, 1080};
    c.rotationDegrees = 90;
    c.inSeconds = inSeconds;
    c.outSeconds = outSeconds;
    c.startOnTimeline = startOnTimeline;
    return c;
}

// What a slice plays, in seconds, for comparing whole lanes at once.
struct Span {
    std::string file;
    double start;
    double sourceStart;
    double sourceEnd;

    friend bool operator==(const Span&, const Span&) = default;
    friend void PrintTo(const Span& r, std::ostream* os) {
        *os << r.file << " at " << r.start << " plays " << r.sourceStart << ".." << r.sourceEnd;
    }
};

using Lanes = std::vector<std::vector<Span>>;

Lanes spans(const std::vector<std::vector<Slice>>& lanes) {
    Lanes result;
    for (const auto& lane : lanes) {
        auto& out = result.emplace_back();
        for (const Slice& s : lane) {
            out.push_back(Span{s.url.filename().string(), s.timelineStart.seconds(),
                               s.assetRange.start.seconds(), s.assetRange.end().seconds()});
        }
    }
    return result;
}

// First fit

TEST(AudioLanes, EachClipGoesToTheFirstLaneWithRoomNotTheTightest) {
    const auto lanes = assignAudioLanes(
        {clip("a.mov", 0, 0, 10), clip("b.mov", 5, 0, 10), clip("c.mov", 20, 0, 5)});

    EXPECT_EQ(spans(lanes), (Lanes{{{"a.mov", 0, 0, 10}, {"c.mov", 20, 0, 5}},  //
                                   {{"b.mov", 5, 0, 10}}}));
}

TEST(AudioLanes, OverlappingClipsOpenLanesInOrderOfCreation) {
    const auto lanes =
        assignAudioLanes({clip("a.mov", 0, 0, 10), clip("b.mov", 2, 0, 4), clip("c.mov", 3, 0, 1)});

    EXPECT_EQ(spans(lanes),
              (Lanes{{{"a.mov", 0, 0, 10}}, {{"b.mov", 2, 0, 4}}, {{"c.mov", 3, 0, 1}}}));
}

TEST(AudioLanes, ClipsThatOnlyTouchShareALane) {
    const auto a = clip("a.mov", 0, 0, 5);
    const auto b = clip("b.mov", 5, 0, 5);

    EXPECT_EQ(spans(assignAudioLanes({a, b})), (Lanes{{{"a.mov", 0, 0, 5}, {"b.mov", 5, 0, 5}}}));
    EXPECT_EQ(spans(assignAudioLanes({b, a})), (Lanes{{{"b.mov", 5, 0, 5}, {"a.mov", 0, 0, 5}}}));
}

TEST(AudioLanes, LaterClipFillsAHoleInAnEarlyLaneAndStandsInPlacingOrder) {
    const auto lanes = assignAudioLanes({clip("a.mov", 0, 0, 4), clip("b.mov", 2, 0, 8),
                                         clip("d.mov", 12, 0, 2), clip("c.mov", 5, 0, 3)});

    EXPECT_EQ(spans(lanes),
              (Lanes{{{"a.mov", 0, 0, 4}, {"d.mov", 12, 0, 2}, {"c.mov", 5, 0, 3}},  //
                     {{"b.mov", 2, 0, 8}}}));
}

TEST(AudioLanes, RetimedClipTakesItsScaledLengthAndKeepsItsWholeSourceRange) {
    auto fast = clip("fast.mov", 0, 0, 10);
    fast.rateMultiplier = 2;

    const auto lanes =
        assignAudioLanes({fast, clip("touching.mov", 5, 0, 1), clip("overlapping.mov", 4.9, 0, 1)});

    EXPECT_EQ(spans(lanes), (Lanes{{{"fast.mov", 0, 0, 10}, {"touching.mov", 5, 0, 1}},  //
                                   {{"overlapping.mov", 4.9, 0, 1}}}));
    EXPECT_EQ(lanes[0][0].rate, 2);
}

TEST(AudioLanes, RateOfZeroOrBelowCountsAsOne) {
    auto stopped = clip("a.mov", 0, 0, 10);
    stopped.rateMultiplier = 0;
    auto negative = clip("b.mov", 10, 0, 4);
    negative.rateMultiplier = -1;

    const auto lanes = assignAudioLanes({stopped, negative, clip("c.mov", 14, 0, 1)});

    EXPECT_EQ(spans(lanes),
              (Lanes{{{"a.mov", 0, 0, 10}, {"b.mov", 10, 0, 4}, {"c.mov", 14, 0, 1}}}));
    EXPECT_EQ(lanes[0][0].rate, 1);
    EXPECT_EQ(lanes[0][1].rate, 1);
}

// Clips of length 0

TEST(AudioLanes, ClipOfLengthZeroInsideAnotherGoesOnAHigherLane) {
    const auto lanes = assignAudioLanes(
        {clip("a.mov", 0, 0, 10), clip("zero.mov", 5, 3, 3), clip("other.mov", 5, 7, 7)});

    // Two items of length 0 at the same instant do not overlap each other.
    EXPECT_EQ(spans(lanes), (Lanes{{{"a.mov", 0, 0, 10}},  //
                                   {{"zero.mov", 5, 3, 3}, {"other.mov", 5, 7, 7}}}));
}

TEST(AudioLanes, ClipOfLengthZeroAtAnotherClipsEdgeSharesItsLane) {
    const auto lanes = assignAudioLanes(
        {clip("a.mov", 2, 0, 8), clip("end.mov", 10, 1, 1), clip("start.mov", 2, 1, 1)});
    EXPECT_EQ(spans(lanes),
              (Lanes{{{"a.mov", 2, 0, 8}, {"end.mov", 10, 1, 1}, {"start.mov", 2, 1, 1}}}));
}

TEST(AudioLanes, ClipWithOutBeforeInTakesAPlaceOfLengthZero) {
    const auto lanes = assignAudioLanes(
        {clip("a.mov", 0, 0, 10), clip("backwards.mov", 5, 4, 3), clip("after.mov", 5, 0, 1)});

    ASSERT_EQ(lanes.size(), 2u);
    ASSERT_EQ(lanes[1].size(), 2u);
    EXPECT_EQ(lanes[1][0].url.filename(), "backwards.mov");
    EXPECT_EQ(lanes[1][0].timelineStart.seconds(), 5);
    EXPECT_EQ(lanes[1][1].url.filename(), "after.mov");
}

// Which clips sound

TEST(AudioLanes, NoClipWithSoundOnTheTimelineYieldsNoLanes) {
    auto silentFile = clip("silent.mov", 0, 0, 5);
    silentFile.hasAudio = false;
    auto videoOnly = clip("a.mov", 0, 0, 5);
    videoOnly.streamMask = model::StreamMask::videoOnly;
    auto missing = clip("gone.mov", 0, 0, 5);
    missing.isMissing = true;

    EXPECT_TRUE(assignAudioLanes({}).empty());
    EXPECT_TRUE(assignAudioLanes({silentFile, videoOnly, missing}).empty());
}

TEST(AudioLanes, StreamMaskSendsAClipToOnlyOneOfPictureAndSound) {
    auto soundOfVideo = clip("sound.mov", 0, 0, 5);
    soundOfVideo.streamMask = model::StreamMask::audioOnly;
    auto pictureOnly = clip("picture.mov", 0, 0, 5);
    pictureOnly.streamMask = model::StreamMask::videoOnly;
    const std::vector<model::Clip> clips{soundOfVideo, pictureOnly};

    const auto lanes = assignAudioLanes(clips);
    const auto slices = composition::sliceVideoTopWins(clips);

    EXPECT_EQ(spans(lanes), (Lanes{{{"sound.mov", 0, 0, 5}}}));
    ASSERT_EQ(slices.size(), 1u);
    EXPECT_EQ(slices[0].url.filename(), "picture.mov");
}

TEST(AudioLanes, SoundOfAClipHiddenInThePictureStillSoundsWhole) {
    const std::vector<model::Clip> clips{clip("under.mov", 2, 0, 2), clip("top.mov", 0, 0, 10)};

    EXPECT_EQ(spans(assignAudioLanes(clips)),
              (Lanes{{{"under.mov", 2, 0, 2}}, {{"top.mov", 0, 0, 10}}}));
    EXPECT_EQ(composition::sliceVideoTopWins(clips).size(), 1u);
}

TEST(AudioLanes, ClipsAreNeverCutByClipsAbove) {
    EXPECT_EQ(spans(assignAudioLanes({clip("a.mov", 0, 0, 10), clip("b.mov", 4, 100, 102)})),
              (Lanes{{{"a.mov", 0, 0, 10}}, {{"b.mov", 4, 100, 102}}}));
}

// Reversed clips

TEST(AudioLanes, RenderedReversedClipReadsItsRenderAndStillTakesAPlace) {
    auto rendered = clip("a.mov", 0, 0, 4);
    rendered.isReversed = true;
    rendered.reversedURL = "/tmp/vantrell-reversed-a.mov";
    rendered.forwardInSeconds = 2;
    rendered.forwardOutSeconds = 6;

    EXPECT_EQ(spans(assignAudioLanes({rendered, clip("b.mov", 1, 0, 1)})),
              (Lanes{{{"vantrell-reversed-a.mov", 0, 0, 4}}, {{"b.mov", 1, 0, 1}}}));
}

TEST(AudioLanes, ReversedClipWaitingForItsRenderReadsItsSource) {
    auto pending = clip("a.mov", 1, 2, 6);
    pending.isReversed = true;
    pending.forwardInSeconds = 2;
    pending.forwardOutSeconds = 6;

    EXPECT_EQ(spans(assignAudioLanes({pending})), (Lanes{{{"a.mov", 1, 2, 6}}}));
}

// What a slice carries

TEST(AudioLanes, AudioSliceCarriesClipIdAndRateButNoPictureFacts) {
    auto a = clip("a.mov", 1, 0, 6);
    a.rateMultiplier = 1.5;

    const auto lanes = assignAudioLanes({a});

    ASSERT_EQ(lanes.size(), 1u);
    ASSERT_EQ(lanes[0].size(), 1u);
    const Slice& s = lanes[0][0];
    EXPECT_EQ(s.url, std::filesystem::path("/media/a.mov"));
    EXPECT_EQ(s.clipID, a.id);
    EXPECT_EQ(s.rate, 1.5);
    EXPECT_EQ(s.sourceNaturalSize, (model::Size{0, 0}));
    EXPECT_EQ(s.rotationDegrees, 0);
}

// Rounding to ticks happens once, on the finished items

TEST(AudioLanes, TimesAreRoundedToTheNearestTickOnlyAtTheEnd) {
    const auto lanes = assignAudioLanes({clip("a.mov", 0.0625, 0.0008, 1.0016)});

    ASSERT_EQ(lanes.size(), 1u);
    ASSERT_EQ(lanes[0].size(), 1u);
    EXPECT_EQ(lanes[0][0].timelineStart.ticks, 38);         // 37.5 ticks, half away from zero
    EXPECT_EQ(lanes[0][0].assetRange.start.ticks, 0);       // 0.48 ticks
    EXPECT_EQ(lanes[0][0].assetRange.duration.ticks, 601);  // to 600.96 ticks, not 600.48 long
}

TEST(AudioLanes, OverlapShorterThanATickStillNeedsAnotherLane) {
    // a ends at 1.0003 s and b starts at 1.0001 s: both round to tick 600, yet they overlap.
    const auto lanes = assignAudioLanes(
        {clip("a.mov", 0, 0, 1.0003), clip("b.mov", 1.0001, 0, 1), clip("c.mov", 1.0003, 0, 1)});

    ASSERT_EQ(lanes.size(), 2u);
    ASSERT_EQ(lanes[0].size(), 2u);
    ASSERT_EQ(lanes[1].size(), 1u);
    EXPECT_EQ(lanes[0][1].url.filename(), "c.mov");
    EXPECT_EQ(lanes[1][0].url.filename(), "b.mov");
    EXPECT_EQ(lanes[1][0].timelineStart.ticks, 600);
}

}  // namespace
