#include <cstdint>
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
model::Clip clip(const std::string& file, double start, double in, double out, double rate = 1) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = std::filesystem::path("/media") / file;
    c.hasVideo = c.hasAudio = true;
    c.naturalSize = {1920, 1080};
    c.inSeconds = in;
    c.outSeconds = out;
    c.startOnTimeline = start;
    c.rateMultiplier = rate;
    return c;
}

// What a slice plays, in seconds.
struct Span {
    std::string file;
    double start, sourceStart, sourceEnd, rate = 1;

    friend bool operator==(const Span&, const Span&) = default;
    friend void PrintTo(const Span& r, std::ostream* os) {
        *os << r.file << "@" << r.start << ":" << r.sourceStart << ".." << r.sourceEnd << "x"
            << r.rate;
    }
};
using Spans = std::vector<Span>;
using Lanes = std::vector<Spans>;

Spans spans(const std::vector<Slice>& slices) {
    Spans result;
    for (const Slice& s : slices)
        result.push_back({s.url.filename().string(), s.timelineStart.seconds(),
                          s.assetRange.start.seconds(), s.assetRange.end().seconds(), s.rate});
    return result;
}

Lanes spans(const std::vector<std::vector<Slice>>& lanes) {
    Lanes result;
    for (const auto& lane : lanes) result.push_back(spans(lane));
    return result;
}

template <typename Result>
struct Case {
    std::string name;
    std::vector<model::Clip> clips;  // in creation order
    Result expected;
};

TEST(VideoSlicing, ShowsTheTopmostClipAtEveryInstant) {
    for (const auto& [name, clips, expected] : std::vector<Case<Spans>>{
             {"LaterClipAboveCutsTheOneBelow",
              {clip("a.mov", 0, 0, 10), clip("b.mov", 4, 100, 102)},
              {{"a.mov", 0, 0, 4}, {"b.mov", 4, 100, 102}, {"a.mov", 6, 6, 10}}},
             {"CutsInARetimedClipScaleByItsRate",
              {clip("a.mov", 0, 0, 20, 2), clip("b.mov", 4, 100, 102)},
              {{"a.mov", 0, 0, 8, 2}, {"b.mov", 4, 100, 102}, {"a.mov", 6, 12, 20, 2}}},
             {"RateOfZeroOrBelowCountsAsOne",
              {clip("a.mov", 0, 0, 10, 0), clip("b.mov", 20, 0, 10, -2), clip("c.mov", 4, 0, 2),
               clip("d.mov", 24, 0, 2)},
              {{"a.mov", 0, 0, 4},
               {"c.mov", 4, 0, 2},
               {"a.mov", 6, 6, 10},
               {"b.mov", 20, 0, 4},
               {"d.mov", 24, 0, 2},
               {"b.mov", 26, 6, 10}}},
             {"ShorterClipBelowVanishes",
              {clip("inner.mov", 4, 0, 2), clip("outer.mov", 0, 0, 10)},
              {{"outer.mov", 0, 0, 10}}},
             {"OverlapAtTheEndTrimsOnlyThatEdge",
              {clip("a.mov", 0, 0, 10), clip("b.mov", 8, 0, 4)},
              {{"a.mov", 0, 0, 8}, {"b.mov", 8, 0, 4}}},
             {"ExactCoverReplacesAPiece",
              {clip("a.mov", 0, 0, 10), clip("b.mov", 4, 0, 2), clip("c.mov", 4, 30, 32)},
              {{"a.mov", 0, 0, 4}, {"c.mov", 4, 30, 32}, {"a.mov", 6, 6, 10}}},
             {"SpanningSeveralPiecesRemovesOrTrimsEach",
              {clip("a.mov", 0, 0, 3), clip("b.mov", 3, 0, 3), clip("c.mov", 6, 0, 3),
               clip("d.mov", 2, 40, 46)},
              {{"a.mov", 0, 0, 2}, {"d.mov", 2, 40, 46}, {"c.mov", 8, 2, 3}}},
             {"TouchingClipsAreNotCut",
              {clip("a.mov", 0, 0, 5), clip("b.mov", 5, 20, 25)},
              {{"a.mov", 0, 0, 5}, {"b.mov", 5, 20, 25}}},
             {"TimelineOrderWhateverTheArrayOrder",
              {clip("late.mov", 20, 0, 1), clip("early.mov", 0, 0, 1), clip("mid.mov", 10, 0, 1)},
              {{"early.mov", 0, 0, 1}, {"mid.mov", 10, 0, 1}, {"late.mov", 20, 0, 1}}},
             {"PiecesOfOneFileAreNeverMerged",
              {clip("a.mov", 0, 0, 4), clip("a.mov", 4, 4, 8)},
              {{"a.mov", 0, 0, 4}, {"a.mov", 4, 4, 8}}},
         }) {
        SCOPED_TRACE(name);
        EXPECT_EQ(spans(sliceVideoTopWins(clips)), expected);
    }
}

TEST(AudioLanes, EachClipSoundsWholeOnTheFirstLaneWithRoom) {
    for (const auto& [name, clips, expected] : std::vector<Case<Lanes>>{
             {"FirstLaneWithRoomNotTheTightest",
              {clip("a.mov", 0, 0, 10), clip("b.mov", 5, 0, 10), clip("c.mov", 20, 0, 5)},
              {{{"a.mov", 0, 0, 10}, {"c.mov", 20, 0, 5}}, {{"b.mov", 5, 0, 10}}}},
             {"OverlapsOpenLanesInCreationOrder",
              {clip("a.mov", 0, 0, 10), clip("b.mov", 2, 0, 4), clip("c.mov", 3, 0, 1)},
              {{{"a.mov", 0, 0, 10}}, {{"b.mov", 2, 0, 4}}, {{"c.mov", 3, 0, 1}}}},
             {"LaterClipFillsAHoleAndStandsInPlacingOrder",
              {clip("a.mov", 0, 0, 4), clip("b.mov", 2, 0, 8), clip("d.mov", 12, 0, 2),
               clip("c.mov", 5, 0, 3)},
              {{{"a.mov", 0, 0, 4}, {"d.mov", 12, 0, 2}, {"c.mov", 5, 0, 3}},
               {{"b.mov", 2, 0, 8}}}},
             // Touching shares a lane; the retimed clip keeps its whole source range.
             {"RetimedClipTakesItsScaledLength",
              {clip("fast.mov", 0, 0, 10, 2), clip("touching.mov", 5, 0, 1),
               clip("overlapping.mov", 4.9, 0, 1)},
              {{{"fast.mov", 0, 0, 10, 2}, {"touching.mov", 5, 0, 1}},
               {{"overlapping.mov", 4.9, 0, 1}}}},
             {"RateOfZeroOrBelowCountsAsOne",
              {clip("a.mov", 0, 0, 10, 0), clip("b.mov", 10, 0, 4, -1), clip("c.mov", 14, 0, 1)},
              {{{"a.mov", 0, 0, 10}, {"b.mov", 10, 0, 4}, {"c.mov", 14, 0, 1}}}},
             // Two clips of length 0 at one instant do not overlap each other.
             {"LengthZeroInsideAnotherGoesHigher",
              {clip("a.mov", 0, 0, 10), clip("zero.mov", 5, 3, 3), clip("other.mov", 5, 7, 7)},
              {{{"a.mov", 0, 0, 10}}, {{"zero.mov", 5, 3, 3}, {"other.mov", 5, 7, 7}}}},
             {"OutBeforeInTakesLengthZero",
              {clip("a.mov", 0, 0, 10), clip("back.mov", 5, 4, 3), clip("after.mov", 5, 0, 1)},
              {{{"a.mov", 0, 0, 10}}, {{"back.mov", 5, 4, 4}, {"after.mov", 5, 0, 1}}}},
             {"HiddenPictureStillSoundsWhole",
              {clip("under.mov", 2, 0, 2), clip("top.mov", 0, 0, 10)},
              {{{"under.mov", 2, 0, 2}}, {{"top.mov", 0, 0, 10}}}},
         }) {
        SCOPED_TRACE(name);
        EXPECT_EQ(spans(assignAudioLanes(clips)), expected);
    }
}

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

    EXPECT_TRUE(sliceVideoTopWins({soundFile, audioOnly, missing, zeroLength, backwards}).empty());
    EXPECT_TRUE(assignAudioLanes({silentFile, videoOnly, missing}).empty());
    EXPECT_EQ(spans(sliceVideoTopWins(
                  {clip("a.mov", 0, 0, 10), soundFile, audioOnly, missing, zeroLength})),
              (Spans{{"a.mov", 0, 0, 10}}));
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
    rendered.startOnTimeline = rendered.inSeconds = 0;
    rendered.outSeconds = 4;
    EXPECT_EQ(spans(sliceVideoTopWins({rendered})), (Spans{{"vantrell-reversed-a.mov", 0, 0, 4}}));
    EXPECT_EQ(spans(assignAudioLanes({rendered})), (Lanes{{{"vantrell-reversed-a.mov", 0, 0, 4}}}));
}

TEST(Slicing, EveryPieceCarriesItsClipsIdAndRateButOnlyPictureSlicesItsSizeAndRotation) {
    auto phone = clip("phone.mov", 1, 0, 6, 1.5);
    phone.naturalSize = {1280, 720};
    phone.rotationDegrees = 90;
    const auto top = clip("top.mov", 2, 0, 1);
    const auto slices = sliceVideoTopWins({phone, top});
    ASSERT_EQ(slices.size(), 3u);
    for (const Slice& piece : {slices[0], slices[2]})
        EXPECT_EQ(
            std::tuple(piece.clipID, piece.rate, piece.rotationDegrees, piece.sourceNaturalSize),
            std::tuple(phone.id, 1.5, 90, model::Size{1280, 720}));
    EXPECT_EQ(slices[1].clipID, top.id);
    const Slice sound = assignAudioLanes({phone}).at(0).at(0);
    EXPECT_EQ(std::tuple(sound.clipID, sound.rate, sound.rotationDegrees, sound.sourceNaturalSize),
              std::tuple(phone.id, 1.5, 0, model::Size{0, 0}));
}

// Each slice as ticks: timeline start, source start, source end.
std::vector<std::tuple<std::int64_t, std::int64_t, std::int64_t>> ticks(
    const std::vector<Slice>& slices) {
    std::vector<std::tuple<std::int64_t, std::int64_t, std::int64_t>> result;
    for (const Slice& s : slices)
        result.emplace_back(s.timelineStart.ticks, s.assetRange.start.ticks,
                            s.assetRange.end().ticks);
    return result;
}
using Ticks = std::vector<std::tuple<std::int64_t, std::int64_t, std::int64_t>>;

TEST(Slicing, TimesAreRoundedToTheNearestTickOnlyAtTheEnd) {
    // In 0.48 ticks rounds to 0; the run spans 37.5 to 637.98 ticks, 38 to 638, and an
    // unscaled source range is as long as that span, so that it meets the next.
    const auto a = clip("a.mov", 0.0625, 0.0008, 1.0016);
    EXPECT_EQ(ticks(sliceVideoTopWins({a})), (Ticks{{38, 0, 600}}));
    EXPECT_EQ(ticks(assignAudioLanes({a}).at(0)), (Ticks{{38, 0, 600}}));
    // Shorter than a tick, still a slice.
    EXPECT_EQ(ticks(sliceVideoTopWins({clip("blink.mov", 1.0001, 2, 2.0002)})),
              (Ticks{{600, 1200, 1200}}));

    // b starts 0.54 ticks in: rounded first, a's cut would be 3 ticks into its source, but
    // 0.0009 s at rate 3 is 1.62 ticks.
    EXPECT_EQ(ticks(sliceVideoTopWins({clip("a.mov", 0, 0, 30, 3), clip("b.mov", 0.0009, 0, 1)})),
              (Ticks{{0, 0, 2}, {1, 0, 600}, {601, 1802, 18000}}));
    // 0.0525 s is 31.5 ticks; a cut recomputed at the end, 0.0175 s at rate 3, would land a
    // hair below and round to 31.
    const auto fast = clip("a.mov", 0, 0, 0.0525, 3);
    EXPECT_EQ(std::get<2>(ticks(sliceVideoTopWins({fast, clip("b", fast.timelineEnd(), 0, 1)}))[0]),
              32);
}

TEST(Slicing, OverlapShorterThanATickStillCutsOrNeedsAnotherLane) {
    // a ends at 1.0003 s, b starts at 1.0001 s: both round to tick 600 yet overlap, so a is
    // cut at 3.0003 s of its source (1800.18 ticks), not its out point (1800.54).
    EXPECT_EQ(ticks(sliceVideoTopWins({clip("a.mov", 0, 0, 3.0009, 3), clip("b", 1.0001, 5, 6)})),
              (Ticks{{0, 0, 1800}, {600, 3000, 3600}}));
    EXPECT_EQ(spans(assignAudioLanes({clip("a.mov", 0, 0, 1.0003), clip("b.mov", 1.0001, 0, 1),
                                      clip("c.mov", 1.0003, 0, 1)})),
              (Lanes{{{"a.mov", 0, 0, 1}, {"c.mov", 1, 0, 1}}, {{"b.mov", 1, 0, 1}}}));
}

}  // namespace
