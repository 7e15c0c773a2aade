#include "composition/video_slicing.h"

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "model/clip.h"

namespace {

using composition::Slice;
using composition::sliceVideoTopWins;

// A clip with picture and sound, filled in only where slicing reads it.
model::Clip clip(const std::string& file, double startOnTimeline, double inSeconds,
                 double outSeconds) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = std::filesystem::path("/media") / file;
    c.hasVideo = true;
    c.hasAudio = true;
    c.naturalSize = {1920, 1080};
    c.inSeconds = inSeconds;
    c.outSeconds = outSeconds;
    c.startOnTimeline = startOnTimeline;
    return c;
}

// What a slice shows, in seconds, for comparing whole results at once.
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

std::vector<Span> spans(const std::vector<Slice>& slices) {
    std::vector<Span> result;
    for (const Slice& s : slices) {
        result.push_back(Span{s.url.filename().string(), s.timelineStart.seconds(),
                              s.assetRange.start.seconds(), s.assetRange.end().seconds()});
    }
    return result;
}

// The worked examples

TEST(VideoSlicing, LaterClipCutsTheClipBelowIntoALeftAndARightPiece) {
    const auto a = clip("a.mov", 0, 0, 10);
    const auto b = clip("b.mov", 4, 100, 102);
    const auto slices = sliceVideoTopWins({a, b});

    EXPECT_EQ(spans(slices),
              (std::vector<Span>{{"a.mov", 0, 0, 4}, {"b.mov", 4, 100, 102}, {"a.mov", 6, 6, 10}}));
    ASSERT_EQ(slices.size(), 3u);
    EXPECT_EQ(slices[0].clipID, a.id);
    EXPECT_EQ(slices[1].clipID, b.id);
    EXPECT_EQ(slices[2].clipID, a.id);
}

TEST(VideoSlicing, CutsInARetimedClipFallAtTimelineDistanceTimesItsRate) {
    auto a = clip("a.mov", 0, 0, 20);
    a.rateMultiplier = 2;
    const auto slices = sliceVideoTopWins({a, clip("b.mov", 4, 100, 102)});

    EXPECT_EQ(
        spans(slices),
        (std::vector<Span>{{"a.mov", 0, 0, 8}, {"b.mov", 4, 100, 102}, {"a.mov", 6, 12, 20}}));
    ASSERT_EQ(slices.size(), 3u);
    EXPECT_EQ(slices[0].rate, 2);
    EXPECT_EQ(slices[1].rate, 1);
    EXPECT_EQ(slices[2].rate, 2);
}

// Clips that take no part

TEST(VideoSlicing, EmptyClipArrayYieldsNoSlices) {
    EXPECT_TRUE(sliceVideoTopWins({}).empty());
}

TEST(VideoSlicing, ClipsWithoutAPictureOnTheTimelineYieldNoSlices) {
    auto soundFile = clip("sound.wav", 0, 0, 5);
    soundFile.hasVideo = false;
    auto audioOnly = clip("a.mov", 0, 0, 5);
    audioOnly.streamMask = model::StreamMask::audioOnly;
    auto missing = clip("gone.mov", 0, 0, 5);
    missing.isMissing = true;
    const auto zeroLength = clip("zero.mov", 0, 3, 3);
    const auto backwards = clip("backwards.mov", 0, 4, 3);

    EXPECT_TRUE(sliceVideoTopWins({soundFile, audioOnly, missing, zeroLength, backwards}).empty());
}

TEST(VideoSlicing, ClipsWithoutAPictureLyingAboveAVisibleClipLeaveItUncut) {
    auto soundFile = clip("sound.wav", 1, 0, 2);
    soundFile.hasVideo = false;
    auto audioOnly = clip("b.mov", 3, 0, 2);
    audioOnly.streamMask = model::StreamMask::audioOnly;
    auto missing = clip("gone.mov", 5, 0, 2);
    missing.isMissing = true;
    const auto zeroLength = clip("zero.mov", 7, 1, 1);

    const auto slices =
        sliceVideoTopWins({clip("a.mov", 0, 0, 10), soundFile, audioOnly, missing, zeroLength});

    EXPECT_EQ(spans(slices), (std::vector<Span>{{"a.mov", 0, 0, 10}}));
}

TEST(VideoSlicing, VideoOnlyClipTakesPart) {
    auto picture = clip("a.mov", 2, 0, 3);
    picture.streamMask = model::StreamMask::videoOnly;
    EXPECT_EQ(spans(sliceVideoTopWins({picture})), (std::vector<Span>{{"a.mov", 2, 0, 3}}));
}

// Stacking order decides

TEST(VideoSlicing, ClipLyingWhollyUnderALaterClipYieldsNoSlice) {
    const auto slices = sliceVideoTopWins({clip("a.mov", 2, 0, 2), clip("b.mov", 0, 0, 10)});
    EXPECT_EQ(spans(slices), (std::vector<Span>{{"b.mov", 0, 0, 10}}));
}

TEST(VideoSlicing, OfTwoClipsOnTheSameStretchOnlyTheLaterInTheArrayIsSeen) {
    const auto a = clip("a.mov", 3, 0, 4);
    const auto b = clip("b.mov", 3, 10, 14);
    EXPECT_EQ(spans(sliceVideoTopWins({a, b})), (std::vector<Span>{{"b.mov", 3, 10, 14}}));
    EXPECT_EQ(spans(sliceVideoTopWins({b, a})), (std::vector<Span>{{"a.mov", 3, 0, 4}}));
}

TEST(VideoSlicing, ShorterClipInsideALongerOneVanishesOnlyWhenItIsBelow) {
    const auto inner = clip("inner.mov", 4, 0, 2);
    const auto outer = clip("outer.mov", 0, 0, 10);

    EXPECT_EQ(spans(sliceVideoTopWins({inner, outer})),
              (std::vector<Span>{{"outer.mov", 0, 0, 10}}));
    EXPECT_EQ(spans(sliceVideoTopWins({outer, inner})),
              (std::vector<Span>{
                  {"outer.mov", 0, 0, 4}, {"inner.mov", 4, 0, 2}, {"outer.mov", 6, 6, 10}}));
}

TEST(VideoSlicing, LaterClipOverlappingOneEdgeTrimsOnlyThatEdge) {
    EXPECT_EQ(spans(sliceVideoTopWins({clip("a.mov", 0, 0, 10), clip("b.mov", 8, 0, 4)})),
              (std::vector<Span>{{"a.mov", 0, 0, 8}, {"b.mov", 8, 0, 4}}));
    EXPECT_EQ(spans(sliceVideoTopWins({clip("a.mov", 2, 20, 30), clip("b.mov", 0, 0, 4)})),
              (std::vector<Span>{{"b.mov", 0, 0, 4}, {"a.mov", 4, 22, 30}}));
}

TEST(VideoSlicing, ThreeLayersShowTheTopmostClipAtEveryInstant) {
    const auto slices = sliceVideoTopWins(
        {clip("a.mov", 0, 0, 10), clip("b.mov", 2, 50, 56), clip("c.mov", 4, 90, 92)});
    EXPECT_EQ(spans(slices), (std::vector<Span>{{"a.mov", 0, 0, 2},
                                                {"b.mov", 2, 50, 52},
                                                {"c.mov", 4, 90, 92},
                                                {"b.mov", 6, 54, 56},
                                                {"a.mov", 8, 8, 10}}));
}

TEST(VideoSlicing, ClipCoveringAnEarlierCutExactlyReplacesThatPiece) {
    const auto slices = sliceVideoTopWins(
        {clip("a.mov", 0, 0, 10), clip("b.mov", 4, 0, 2), clip("c.mov", 4, 30, 32)});
    EXPECT_EQ(spans(slices),
              (std::vector<Span>{{"a.mov", 0, 0, 4}, {"c.mov", 4, 30, 32}, {"a.mov", 6, 6, 10}}));
}

TEST(VideoSlicing, LaterClipSpanningSeveralPiecesRemovesOrTrimsEachOfThem) {
    const auto slices = sliceVideoTopWins({clip("a.mov", 0, 0, 3), clip("b.mov", 3, 0, 3),
                                           clip("c.mov", 6, 0, 3), clip("d.mov", 2, 40, 46)});
    EXPECT_EQ(spans(slices),
              (std::vector<Span>{{"a.mov", 0, 0, 2}, {"d.mov", 2, 40, 46}, {"c.mov", 8, 2, 3}}));
}

// Boundaries, gaps and order

TEST(VideoSlicing, ClipsThatOnlyTouchAreNotCut) {
    const auto a = clip("a.mov", 0, 0, 5);
    const auto b = clip("b.mov", 5, 20, 25);
    const std::vector<Span> expected{{"a.mov", 0, 0, 5}, {"b.mov", 5, 20, 25}};
    EXPECT_EQ(spans(sliceVideoTopWins({a, b})), expected);
    EXPECT_EQ(spans(sliceVideoTopWins({b, a})), expected);
}

TEST(VideoSlicing, ClipEndingWhereALaterClipBeginsKeepsItsOwnOutPoint) {
    // 0.0525 s is 31.5 ticks; a cut recomputed at the end, 0.0175 s at rate 3, would land
    // a hair below that and round to 31.
    auto a = clip("a.mov", 0, 0, 0.0525);
    a.rateMultiplier = 3;
    const auto slices = sliceVideoTopWins({a, clip("b.mov", a.timelineEnd(), 0, 1)});

    ASSERT_EQ(slices.size(), 2u);
    EXPECT_EQ(slices[0].assetRange.end().ticks, 32);
}

TEST(VideoSlicing, GapBetweenClipsYieldsNoSlice) {
    EXPECT_EQ(spans(sliceVideoTopWins({clip("a.mov", 0, 0, 2), clip("b.mov", 5, 0, 2)})),
              (std::vector<Span>{{"a.mov", 0, 0, 2}, {"b.mov", 5, 0, 2}}));
}

TEST(VideoSlicing, SlicesComeInTimelineOrderWhateverTheArrayOrder) {
    const auto slices = sliceVideoTopWins(
        {clip("late.mov", 20, 0, 1), clip("early.mov", 0, 0, 1), clip("middle.mov", 10, 0, 1)});
    EXPECT_EQ(spans(slices),
              (std::vector<Span>{
                  {"early.mov", 0, 0, 1}, {"middle.mov", 10, 0, 1}, {"late.mov", 20, 0, 1}}));
}

TEST(VideoSlicing, NeighbouringPiecesOfOneFileAreNeverMerged) {
    const auto slices = sliceVideoTopWins({clip("a.mov", 0, 0, 4), clip("a.mov", 4, 4, 8)});
    EXPECT_EQ(spans(slices), (std::vector<Span>{{"a.mov", 0, 0, 4}, {"a.mov", 4, 4, 8}}));
}

// What a slice carries

TEST(VideoSlicing, SliceCarriesTheClipsSizeRotationRateAndId) {
    auto phone = clip("phone.mov", 1, 0, 6);
    phone.naturalSize = {1280, 720};
    phone.rotationDegrees = 90;
    phone.rateMultiplier = 1.5;

    const auto slices = sliceVideoTopWins({phone});

    ASSERT_EQ(slices.size(), 1u);
    EXPECT_EQ(slices[0].url, std::filesystem::path("/media/phone.mov"));
    EXPECT_EQ(slices[0].sourceNaturalSize, (model::Size{1280, 720}));
    EXPECT_EQ(slices[0].rotationDegrees, 90);
    EXPECT_EQ(slices[0].rate, 1.5);
    EXPECT_EQ(slices[0].clipID, phone.id);
    EXPECT_EQ(slices[0].timelineStart.seconds(), 1);
    EXPECT_EQ(slices[0].assetRange.duration.seconds(), 6);
}

TEST(VideoSlicing, RateOfZeroOrBelowCountsAsOne) {
    auto stopped = clip("a.mov", 0, 0, 10);
    stopped.rateMultiplier = 0;
    auto negative = clip("b.mov", 20, 0, 10);
    negative.rateMultiplier = -2;

    const auto slices =
        sliceVideoTopWins({stopped, negative, clip("c.mov", 4, 0, 2), clip("d.mov", 24, 0, 2)});

    EXPECT_EQ(spans(slices), (std::vector<Span>{{"a.mov", 0, 0, 4},
                                                {"c.mov", 4, 0, 2},
                                                {"a.mov", 6, 6, 10},
                                                {"b.mov", 20, 0, 4},
                                                {"d.mov", 24, 0, 2},
                                                {"b.mov", 26, 6, 10}}));
    for (const Slice& s : slices) EXPECT_EQ(s.rate, 1);
}

TEST(VideoSlicing, ReversedClipReadsItsRenderOnceTheRenderExists) {
    auto rendered = clip("a.mov", 0, 0, 4);
    rendered.isReversed = true;
    rendered.reversedURL = "/tmp/vantrell-reversed-a.mov";
    rendered.forwardInSeconds = 2;
    rendered.forwardOutSeconds = 6;

    const auto slices = sliceVideoTopWins({rendered});

    EXPECT_EQ(spans(slices), (std::vector<Span>{{"vantrell-reversed-a.mov", 0, 0, 4}}));
}

TEST(VideoSlicing, ReversedClipWithoutItsRenderIsSlicedAgainstItsSource) {
    auto pending = clip("a.mov", 1, 2, 6);
    pending.isReversed = true;
    pending.forwardInSeconds = 2;
    pending.forwardOutSeconds = 6;

    EXPECT_EQ(spans(sliceVideoTopWins({pending})), (std::vector<Span>{{"a.mov", 1, 2, 6}}));
}

// Rounding to ticks happens once, on the finished pieces

TEST(VideoSlicing, CutInARetimedClipIsRoundedOnlyAfterScaling) {
    auto a = clip("a.mov", 0, 0, 30);
    a.rateMultiplier = 3;
    // b starts 0.54 ticks in: rounding that first would put a's cut 3 ticks into its
    // source, but 0.0009 s at rate 3 is 1.62 ticks, so the cut lands at 2.
    const auto slices = sliceVideoTopWins({a, clip("b.mov", 0.0009, 0, 1)});

    ASSERT_EQ(slices.size(), 3u);
    EXPECT_EQ(slices[0].assetRange.start.ticks, 0);
    EXPECT_EQ(slices[0].assetRange.end().ticks, 2);
    EXPECT_EQ(slices[1].timelineStart.ticks, 1);
    EXPECT_EQ(slices[2].timelineStart.ticks, 601);      // 1.0009 s
    EXPECT_EQ(slices[2].assetRange.start.ticks, 1802);  // 3.0027 s
    EXPECT_EQ(slices[2].assetRange.end().ticks, 18000);
}

TEST(VideoSlicing, SourceDurationIsTheDifferenceOfTheRoundedEnds) {
    // In 0.48 ticks rounds to 0 and out 600.96 to 601; the length itself is 600.48 ticks.
    const auto slices = sliceVideoTopWins({clip("a.mov", 0.0625, 0.0008, 1.0016)});

    ASSERT_EQ(slices.size(), 1u);
    EXPECT_EQ(slices[0].timelineStart.ticks, 38);  // 37.5 ticks, half away from zero
    EXPECT_EQ(slices[0].assetRange.start.ticks, 0);
    EXPECT_EQ(slices[0].assetRange.duration.ticks, 601);
}

TEST(VideoSlicing, OverlapShorterThanATickStillCuts) {
    // a ends at 1.0003 s and b starts at 1.0001 s: both round to tick 600, yet they
    // overlap, so a is cut at 1.0001 s, which at rate 3 is 3.0003 s into its source
    // (1800.18 ticks) rather than its own out point 3.0009 s (1800.54 ticks).
    auto a = clip("a.mov", 0, 0, 3.0009);
    a.rateMultiplier = 3;
    const auto slices = sliceVideoTopWins({a, clip("b.mov", 1.0001, 5, 6)});

    ASSERT_EQ(slices.size(), 2u);
    EXPECT_EQ(slices[0].assetRange.end().ticks, 1800);
    EXPECT_EQ(slices[1].timelineStart.ticks, 600);
}

TEST(VideoSlicing, ClipShorterThanATickStillYieldsASlice) {
    const auto slices = sliceVideoTopWins({clip("blink.mov", 1.0001, 2, 2.0002)});

    ASSERT_EQ(slices.size(), 1u);
    EXPECT_EQ(slices[0].timelineStart.ticks, 600);
    EXPECT_EQ(slices[0].assetRange.start.ticks, 1200);
    EXPECT_EQ(slices[0].assetRange.duration.ticks, 0);
}

}  // namespace
