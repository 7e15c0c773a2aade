#include <filesystem>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "composition/audio_lanes.h"
#include "composition/video_slicing.h"
#include "model/clip.h"

namespace {

using composition::assignAudioLanes;
using composition::Slice;
using composition::sliceVideoTopWins;

// A 1080p clip with picture and sound, filled in only where slicing reads it.
model::Clip clip(const std::string& file, double startOnTimeline, double inSeconds,
                 double outSeconds, double rate = 1) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = std::filesystem::path("/media") / file;
    c.hasVideo = true;
    c.hasAudio = true;
    c.naturalSize = {1920, 1080};
    c.inSeconds = inSeconds;
    c.outSeconds = outSeconds;
    c.startOnTimeline = startOnTimeline;
    c.rateMultiplier = rate;
    return c;
}

// What a slice plays, in seconds, for comparing whole results at once.
struct Span {
    std::string file;
    double start;
    double sourceStart;
    double sourceEnd;
    double rate = 1;

    friend bool operator==(const Span&, const Span&) = default;
    friend void PrintTo(const Span& r, std::ostream* os) {
        *os << r.file << " at " << r.start << " plays " << r.sourceStart << ".." << r.sourceEnd
            << " at rate " << r.rate;
    }
};

using Spans = std::vector<Span>;
using Lanes = std::vector<Spans>;

Spans spans(const std::vector<Slice>& slices) {
    Spans result;
    for (const Slice& s : slices) {
        result.push_back(Span{s.url.filename().string(), s.timelineStart.seconds(),
                              s.assetRange.start.seconds(), s.assetRange.end().seconds(), s.rate});
    }
    return result;
}

Lanes spans(const std::vector<std::vector<Slice>>& lanes) {
    Lanes result;
    for (const auto& lane : lanes) result.push_back(spans(lane));
    return result;
}

// Clips in creation order and what a slicer must make of them.
template <typename Result>
struct Case {
    std::string name;
    std::vector<model::Clip> clips;
    Result expected;
};

template <typename Result>
std::string caseName(const testing::TestParamInfo<Case<Result>>& info) {
    return info.param.name;
}

template <typename Result>
void PrintTo(const Case<Result>& c, std::ostream* os) {
    *os << c.name;
}

using VideoCase = Case<Spans>;

class VideoSlicing : public testing::TestWithParam<VideoCase> {};

TEST_P(VideoSlicing, ShowsTheTopmostClipAtEveryInstant) {
    EXPECT_EQ(spans(sliceVideoTopWins(GetParam().clips)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, VideoSlicing,
    testing::Values(
        VideoCase{"LaterClipCutsTheClipBelowIntoALeftAndARightPiece",
                  {clip("a.mov", 0, 0, 10), clip("b.mov", 4, 100, 102)},
                  {{"a.mov", 0, 0, 4}, {"b.mov", 4, 100, 102}, {"a.mov", 6, 6, 10}}},
        VideoCase{"CutsInARetimedClipFallAtTimelineDistanceTimesItsRate",
                  {clip("a.mov", 0, 0, 20, 2), clip("b.mov", 4, 100, 102)},
                  {{"a.mov", 0, 0, 8, 2}, {"b.mov", 4, 100, 102}, {"a.mov", 6, 12, 20, 2}}},
        VideoCase{"RateOfZeroOrBelowCountsAsOne",
                  {clip("a.mov", 0, 0, 10, 0), clip("b.mov", 20, 0, 10, -2), clip("c.mov", 4, 0, 2),
                   clip("d.mov", 24, 0, 2)},
                  {{"a.mov", 0, 0, 4},
                   {"c.mov", 4, 0, 2},
                   {"a.mov", 6, 6, 10},
                   {"b.mov", 20, 0, 4},
                   {"d.mov", 24, 0, 2},
                   {"b.mov", 26, 6, 10}}},
        VideoCase{"OfTwoClipsOnOneStretchTheLaterIsSeen",
                  {clip("a.mov", 3, 0, 4), clip("b.mov", 3, 10, 14)},
                  {{"b.mov", 3, 10, 14}}},
        VideoCase{"ShorterClipBelowALongerOneVanishes",
                  {clip("inner.mov", 4, 0, 2), clip("outer.mov", 0, 0, 10)},
                  {{"outer.mov", 0, 0, 10}}},
        VideoCase{"ShorterClipAboveALongerOneCutsIt",
                  {clip("outer.mov", 0, 0, 10), clip("inner.mov", 4, 0, 2)},
                  {{"outer.mov", 0, 0, 4}, {"inner.mov", 4, 0, 2}, {"outer.mov", 6, 6, 10}}},
        VideoCase{"LaterClipOverlappingTheEndTrimsOnlyThatEdge",
                  {clip("a.mov", 0, 0, 10), clip("b.mov", 8, 0, 4)},
                  {{"a.mov", 0, 0, 8}, {"b.mov", 8, 0, 4}}},
        VideoCase{"ClipCoveringAnEarlierCutExactlyReplacesThatPiece",
                  {clip("a.mov", 0, 0, 10), clip("b.mov", 4, 0, 2), clip("c.mov", 4, 30, 32)},
                  {{"a.mov", 0, 0, 4}, {"c.mov", 4, 30, 32}, {"a.mov", 6, 6, 10}}},
        VideoCase{"LaterClipSpanningSeveralPiecesRemovesOrTrimsEachOfThem",
                  {clip("a.mov", 0, 0, 3), clip("b.mov", 3, 0, 3), clip("c.mov", 6, 0, 3),
                   clip("d.mov", 2, 40, 46)},
                  {{"a.mov", 0, 0, 2}, {"d.mov", 2, 40, 46}, {"c.mov", 8, 2, 3}}},
        VideoCase{"ClipsThatOnlyTouchAreNotCut",
                  {clip("a.mov", 0, 0, 5), clip("b.mov", 5, 20, 25)},
                  {{"a.mov", 0, 0, 5}, {"b.mov", 5, 20, 25}}},
        VideoCase{
            "SlicesComeInTimelineOrderWhateverTheArrayOrder",
            {clip("late.mov", 20, 0, 1), clip("early.mov", 0, 0, 1), clip("middle.mov", 10, 0, 1)},
            {{"early.mov", 0, 0, 1}, {"middle.mov", 10, 0, 1}, {"late.mov", 20, 0, 1}}},
        VideoCase{"NeighbouringPiecesOfOneFileAreNeverMerged",
                  {clip("a.mov", 0, 0, 4), clip("a.mov", 4, 4, 8)},
                  {{"a.mov", 0, 0, 4}, {"a.mov", 4, 4, 8}}}),
    caseName<Spans>);

using LaneCase = Case<Lanes>;

class AudioLanes : public testing::TestWithParam<LaneCase> {};

TEST_P(AudioLanes, EachClipSoundsWholeOnTheFirstLaneWithRoom) {
    EXPECT_EQ(spans(assignAudioLanes(GetParam().clips)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AudioLanes,
    testing::Values(
        LaneCase{"FirstLaneWithRoomNotTheTightest",
                 {clip("a.mov", 0, 0, 10), clip("b.mov", 5, 0, 10), clip("c.mov", 20, 0, 5)},
                 {{{"a.mov", 0, 0, 10}, {"c.mov", 20, 0, 5}}, {{"b.mov", 5, 0, 10}}}},
        LaneCase{"OverlappingClipsOpenLanesInOrderOfCreation",
                 {clip("a.mov", 0, 0, 10), clip("b.mov", 2, 0, 4), clip("c.mov", 3, 0, 1)},
                 {{{"a.mov", 0, 0, 10}}, {{"b.mov", 2, 0, 4}}, {{"c.mov", 3, 0, 1}}}},
        LaneCase{"ClipsThatOnlyTouchShareALane",
                 {clip("a.mov", 0, 0, 5), clip("b.mov", 5, 0, 5)},
                 {{{"a.mov", 0, 0, 5}, {"b.mov", 5, 0, 5}}}},
        LaneCase{"ClipsThatOnlyTouchShareALaneInCreationOrder",
                 {clip("b.mov", 5, 0, 5), clip("a.mov", 0, 0, 5)},
                 {{{"b.mov", 5, 0, 5}, {"a.mov", 0, 0, 5}}}},
        LaneCase{
            "LaterClipFillsAHoleInAnEarlyLaneAndStandsInPlacingOrder",
            {clip("a.mov", 0, 0, 4), clip("b.mov", 2, 0, 8), clip("d.mov", 12, 0, 2),
             clip("c.mov", 5, 0, 3)},
            {{{"a.mov", 0, 0, 4}, {"d.mov", 12, 0, 2}, {"c.mov", 5, 0, 3}}, {{"b.mov", 2, 0, 8}}}},
        LaneCase{"RetimedClipTakesItsScaledLengthAndKeepsItsWholeSourceRange",
                 {clip("fast.mov", 0, 0, 10, 2), clip("touching.mov", 5, 0, 1),
                  clip("overlapping.mov", 4.9, 0, 1)},
                 {{{"fast.mov", 0, 0, 10, 2}, {"touching.mov", 5, 0, 1}},
                  {{"overlapping.mov", 4.9, 0, 1}}}},
        LaneCase{"RateOfZeroOrBelowCountsAsOne",
                 {clip("a.mov", 0, 0, 10, 0), clip("b.mov", 10, 0, 4, -1), clip("c.mov", 14, 0, 1)},
                 {{{"a.mov", 0, 0, 10}, {"b.mov", 10, 0, 4}, {"c.mov", 14, 0, 1}}}},
        // Two clips of length 0 at the same instant do not overlap each other.
        LaneCase{"ClipOfLengthZeroInsideAnotherGoesOnAHigherLane",
                 {clip("a.mov", 0, 0, 10), clip("zero.mov", 5, 3, 3), clip("other.mov", 5, 7, 7)},
                 {{{"a.mov", 0, 0, 10}}, {{"zero.mov", 5, 3, 3}, {"other.mov", 5, 7, 7}}}},
        LaneCase{
            "ClipWithOutBeforeInTakesAPlaceOfLengthZero",
            {clip("a.mov", 0, 0, 10), clip("backwards.mov", 5, 4, 3), clip("after.mov", 5, 0, 1)},
            {{{"a.mov", 0, 0, 10}}, {{"backwards.mov", 5, 4, 4}, {"after.mov", 5, 0, 1}}}},
        LaneCase{"SoundOfAClipHiddenInThePictureStillSoundsWhole",
                 {clip("under.mov", 2, 0, 2), clip("top.mov", 0, 0, 10)},
                 {{{"under.mov", 2, 0, 2}}, {{"top.mov", 0, 0, 10}}}}),
    caseName<Lanes>);

TEST(Slicing, ClipsWithoutAPictureOrSoundOnTheTimelineTakeNoPartAndCutNothing) {
    auto soundFile = clip("sound.wav", 1, 0, 2);
    soundFile.hasVideo = false;
    auto silentFile = clip("silent.mov", 1, 0, 2);
    silentFile.hasAudio = false;
    auto audioOnly = clip("sound.mov", 3, 0, 2);
    audioOnly.streamMask = model::StreamMask::audioOnly;
    auto videoOnly = clip("picture.mov", 3, 0, 2);
    videoOnly.streamMask = model::StreamMask::videoOnly;
    auto missing = clip("gone.mov", 5, 0, 2);
    missing.isMissing = true;
    const auto zeroLength = clip("zero.mov", 7, 1, 1);
    const auto backwards = clip("backwards.mov", 7, 4, 3);

    EXPECT_TRUE(sliceVideoTopWins({}).empty());
    EXPECT_TRUE(assignAudioLanes({}).empty());
    EXPECT_TRUE(sliceVideoTopWins({soundFile, audioOnly, missing, zeroLength, backwards}).empty());
    EXPECT_TRUE(assignAudioLanes({silentFile, videoOnly, missing}).empty());

    EXPECT_EQ(spans(sliceVideoTopWins(
                  {clip("a.mov", 0, 0, 10), soundFile, audioOnly, missing, zeroLength})),
              (Spans{{"a.mov", 0, 0, 10}}));
    // A stream mask sends a clip to only one of picture and sound.
    EXPECT_EQ(spans(sliceVideoTopWins({audioOnly, videoOnly})), (Spans{{"picture.mov", 3, 0, 2}}));
    EXPECT_EQ(spans(assignAudioLanes({audioOnly, videoOnly})), (Lanes{{{"sound.mov", 3, 0, 2}}}));
}

TEST(Slicing, ReversedClipReadsItsRenderOnceTheRenderExists) {
    auto pending = clip("a.mov", 1, 2, 6);
    pending.isReversed = true;
    pending.forwardInSeconds = 2;
    pending.forwardOutSeconds = 6;
    EXPECT_EQ(spans(sliceVideoTopWins({pending})), (Spans{{"a.mov", 1, 2, 6}}));
    EXPECT_EQ(spans(assignAudioLanes({pending})), (Lanes{{{"a.mov", 1, 2, 6}}}));

    auto rendered = pending;
    rendered.reversedURL = "/tmp/vantrell-reversed-a.mov";
    rendered.startOnTimeline = 0;
    rendered.inSeconds = 0;
    rendered.outSeconds = 4;
    EXPECT_EQ(spans(sliceVideoTopWins({rendered})), (Spans{{"vantrell-reversed-a.mov", 0, 0, 4}}));
    EXPECT_EQ(spans(assignAudioLanes({rendered, clip("b.mov", 1, 0, 1)})),
              (Lanes{{{"vantrell-reversed-a.mov", 0, 0, 4}}, {{"b.mov", 1, 0, 1}}}));
}

TEST(Slicing, EveryPieceCarriesItsClipsIdAndRateButOnlyPictureSlicesItsSizeAndRotation) {
    auto phone = clip("phone.mov", 1, 0, 6, 1.5);
    phone.naturalSize = {1280, 720};
    phone.rotationDegrees = 90;
    const auto top = clip("top.mov", 2, 0, 1);

    const auto slices = sliceVideoTopWins({phone, top});
    ASSERT_EQ(slices.size(), 3u);
    for (const Slice& piece : {slices[0], slices[2]}) {
        EXPECT_EQ(std::tuple(piece.clipID, piece.rate, piece.rotationDegrees),
                  std::tuple(phone.id, 1.5, 90));
        EXPECT_EQ(piece.sourceNaturalSize, (model::Size{1280, 720}));
    }
    EXPECT_EQ(slices[1].clipID, top.id);

    const auto lanes = assignAudioLanes({phone});
    ASSERT_EQ(lanes.size(), 1u);
    const Slice& sound = lanes.at(0).at(0);
    EXPECT_EQ(std::tuple(sound.clipID, sound.rate, sound.rotationDegrees),
              std::tuple(phone.id, 1.5, 0));
    EXPECT_EQ(sound.sourceNaturalSize, (model::Size{0, 0}));
}

// Rounding to ticks happens once, on the finished pieces

TEST(Slicing, TimesAreRoundedToTheNearestTickOnlyAtTheEnd) {
    // In 0.48 ticks rounds to 0; the run spans 37.5 to 637.98 ticks on the timeline, 38 to
    // 638, and an unscaled source range is as long as that span, so that it meets the next.
    const auto video = sliceVideoTopWins({clip("a.mov", 0.0625, 0.0008, 1.0016)});
    const auto lanes = assignAudioLanes({clip("a.mov", 0.0625, 0.0008, 1.0016)});
    ASSERT_EQ(lanes.size(), 1u);
    for (const auto& slices : {video, lanes[0]}) {
        ASSERT_EQ(slices.size(), 1u);
        EXPECT_EQ(slices[0].timelineStart.ticks, 38);  // 37.5 ticks, half away from zero
        EXPECT_EQ(slices[0].assetRange.start.ticks, 0);
        EXPECT_EQ(slices[0].assetRange.duration.ticks, 600);
    }
    // A clip shorter than a tick still yields a slice.
    const auto blink = sliceVideoTopWins({clip("blink.mov", 1.0001, 2, 2.0002)});
    ASSERT_EQ(blink.size(), 1u);
    EXPECT_EQ(blink[0].timelineStart.ticks, 600);
    EXPECT_EQ(blink[0].assetRange.start.ticks, 1200);
    EXPECT_EQ(blink[0].assetRange.duration.ticks, 0);
}

TEST(Slicing, CutInARetimedClipIsRoundedOnlyAfterScaling) {
    // b starts 0.54 ticks in: rounding that first would put a's cut 3 ticks into its
    // source, but 0.0009 s at rate 3 is 1.62 ticks, so the cut lands at 2.
    const auto slices =
        sliceVideoTopWins({clip("a.mov", 0, 0, 30, 3), clip("b.mov", 0.0009, 0, 1)});
    ASSERT_EQ(slices.size(), 3u);
    EXPECT_EQ(slices[0].assetRange.start.ticks, 0);
    EXPECT_EQ(slices[0].assetRange.end().ticks, 2);
    EXPECT_EQ(slices[1].timelineStart.ticks, 1);
    EXPECT_EQ(slices[2].timelineStart.ticks, 601);      // 1.0009 s
    EXPECT_EQ(slices[2].assetRange.start.ticks, 1802);  // 3.0027 s
    EXPECT_EQ(slices[2].assetRange.end().ticks, 18000);

    // 0.0525 s is 31.5 ticks; a cut recomputed at the end, 0.0175 s at rate 3, would land
    // a hair below that and round to 31.
    const auto a = clip("a.mov", 0, 0, 0.0525, 3);
    const auto touching = sliceVideoTopWins({a, clip("b.mov", a.timelineEnd(), 0, 1)});
    ASSERT_EQ(touching.size(), 2u);
    EXPECT_EQ(touching[0].assetRange.end().ticks, 32);
}

TEST(Slicing, OverlapShorterThanATickStillCutsOrNeedsAnotherLane) {
    // a ends at 1.0003 s and b starts at 1.0001 s: both round to tick 600, yet they
    // overlap, so a is cut at 1.0001 s, which at rate 3 is 3.0003 s into its source
    // (1800.18 ticks) rather than its own out point 3.0009 s (1800.54 ticks).
    const auto slices =
        sliceVideoTopWins({clip("a.mov", 0, 0, 3.0009, 3), clip("b.mov", 1.0001, 5, 6)});
    ASSERT_EQ(slices.size(), 2u);
    EXPECT_EQ(slices[0].assetRange.end().ticks, 1800);
    EXPECT_EQ(slices[1].timelineStart.ticks, 600);

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
