#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::GapSelection;
using model::Project;
using model::Size;
using model::StreamMask;
using model_test::clipAt;

Clip sized(Clip c, double width, double height) {
    c.naturalSize = {width, height};
    return c;
}

TEST(TimelineQueries, AnEmptyProjectHasNothingButTheDefaults) {
    Project p;
    p.setPlayheadGlobal(3);
    p.setCropInsetTop(0.2);
    p.setCropInsetBottom(0.1);
    EXPECT_EQ(p.totalDurationSeconds(), 0);
    EXPECT_TRUE(p.gaps(false).empty());
    EXPECT_TRUE(p.gaps(true).empty());
    EXPECT_FALSE(p.hasVideoContent());
    EXPECT_FALSE(p.videoAtPlayhead());
    EXPECT_FALSE(p.hasOverlap());
    EXPECT_FALSE(p.hasCrop());
    EXPECT_EQ(p.frameRateAtPlayhead(), 30.0);
    EXPECT_EQ(p.clipIDAt(0), std::nullopt);
    EXPECT_EQ(p.videoNaturalSize(), std::nullopt);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), std::nullopt);
    EXPECT_EQ(p.aspectAtPlayhead(), std::nullopt);
    EXPECT_EQ(p.largestVideoSize(), std::nullopt);
    EXPECT_EQ(p.snapTargets(std::nullopt), (std::vector<double>{0, 3}));
}

// Places.

TEST(TimelineQueries, GlobalRangeRunsToTheTimelineEndAtTheClipsRate) {
    Project p;
    Clip c = clipAt(2, 8);
    c.inSeconds = 2;
    c.rateMultiplier = 2;
    p.setClips({c});
    EXPECT_EQ(p.globalStart(c.id), 2);
    EXPECT_EQ(p.globalRange(c.id), (model::TimelineRange{2, 5}));
}

TEST(TimelineQueries, AnUnknownClipStartsAtZeroWithAnEmptyRange) {
    Project p;
    p.setClips({clipAt(4, 2)});
    Uuid unknown = Uuid::random();
    EXPECT_EQ(p.globalStart(unknown), 0);
    EXPECT_EQ(p.globalRange(unknown), (model::TimelineRange{0, 0}));
}

TEST(TimelineQueries, ClipIDAtCountsTheStartButNotTheEnd) {
    Project p;
    Clip c = clipAt(1, 2);
    p.setClips({c});
    EXPECT_EQ(p.clipIDAt(1), c.id);
    EXPECT_EQ(p.clipIDAt(2.999), c.id);
    EXPECT_EQ(p.clipIDAt(3), std::nullopt);
    EXPECT_EQ(p.clipIDAt(0.999), std::nullopt);
}

TEST(TimelineQueries, OfTwoCoveringClipsClipIDAtTakesTheTopAndAspectTheBottom) {
    Project p;
    Clip bottom = sized(clipAt(0, 4), 1600, 900);
    Clip top = sized(clipAt(0, 4), 1000, 1000);
    p.setClips({bottom, top});
    p.setPlayheadGlobal(1);
    EXPECT_EQ(p.clipIDAt(1), top.id);
    EXPECT_DOUBLE_EQ(*p.aspectAtPlayhead(), 16.0 / 9.0);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{1600, 900}));
}

TEST(TimelineQueries, ClipIDAtLooksAtNeitherRowNorMask) {
    Project p;
    Clip video = clipAt(0, 4, true, false);
    Clip audio = clipAt(0, 4, false, true);
    Clip masked = clipAt(0, 4);
    masked.streamMask = StreamMask::audioOnly;
    p.setClips({video, audio});
    EXPECT_EQ(p.clipIDAt(2), audio.id);
    p.setClips({video, masked});
    EXPECT_EQ(p.clipIDAt(2), masked.id);
}

// Gaps and overlaps.

TEST(TimelineQueries, GapsAndOverlapsOnOneRow) {
    struct Case {
        const char* name;
        std::vector<Clip> clips;
        std::vector<GapSelection> gaps;
        bool overlap;
    };
    const std::vector<Case> cases = {
        {"half a thousandth apart: no gap, no overlap",
         {clipAt(0, 2), clipAt(2.0005, 2)},
         {},
         false},
        {"two thousandths apart: a gap between the edges",
         {clipAt(2.002, 2), clipAt(0, 2)},
         {{false, 2, 2.002}},
         false},
        {"overlapping by two thousandths", {clipAt(0, 2), clipAt(1.998, 2)}, {}, true},
        {"a long clip under two short ones hides the space between them",
         {clipAt(0, 10), clipAt(1, 1), clipAt(5, 1), clipAt(12, 1)},
         {{false, 10, 12}},
         true},
        {"gaps only between clips, in time order",
         {clipAt(10, 1), clipAt(3, 1), clipAt(6, 2)},
         {{false, 4, 6}, {false, 8, 10}},
         false},
        {"one clip has no gap", {clipAt(5, 1)}, {}, false},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Project p;
        p.setClips(k.clips);
        EXPECT_EQ(p.gaps(false), k.gaps);
        EXPECT_EQ(p.hasOverlap(), k.overlap);
    }
}

TEST(TimelineQueries, EachRowHasItsOwnGaps) {
    Project p;
    Clip both = clipAt(0, 2);
    Clip video = clipAt(4, 2, true, false);
    Clip audio = clipAt(3, 2, false, true);
    Clip videoOfBoth = clipAt(8, 1);
    videoOfBoth.streamMask = StreamMask::videoOnly;
    p.setClips({both, video, audio, videoOfBoth});
    EXPECT_EQ(p.gaps(false), (std::vector<GapSelection>{{false, 2, 4}, {false, 6, 8}}));
    EXPECT_EQ(p.gaps(true), (std::vector<GapSelection>{{true, 2, 3}}));
}

TEST(TimelineQueries, AnUnlinkedPairInOnePlaceCountsAsOverlap) {
    Project p;
    Clip video = clipAt(0, 3);
    video.streamMask = StreamMask::videoOnly;
    Clip audio = clipAt(0, 3);
    audio.streamMask = StreamMask::audioOnly;
    p.setClips({video, audio});
    EXPECT_TRUE(p.hasOverlap());
}

TEST(TimelineQueries, OverlapReadsTheTimelineLengthAtEachRate) {
    Project p;
    Clip fast = clipAt(0, 4);
    fast.rateMultiplier = 2;  // ends at 2
    p.setClips({fast, clipAt(3, 1)});
    EXPECT_FALSE(p.hasOverlap());
    p.updateClip(fast.id, [](Clip& c) { c.rateMultiplier = 1; });
    EXPECT_TRUE(p.hasOverlap());
}

// Video content, sizes and rates.

TEST(TimelineQueries, AnAudioOnlyMaskCountsForNoVideoQueryAndAPlaceholderForNoSize) {
    Clip audioOnly = sized(clipAt(0, 4), 1920, 1080);
    audioOnly.streamMask = StreamMask::audioOnly;
    audioOnly.frameRate = 24;
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone.mov", {}, 0, 4, 0});
    for (const auto& [clip, isVideo] :
         {std::pair{audioOnly, false}, std::pair{placeholder, true}}) {
        SCOPED_TRACE(isVideo ? "placeholder" : "audio-only mask");
        Project p;
        p.setClips({clip});
        p.setPlayheadGlobal(1);
        EXPECT_EQ(p.hasVideoContent(), isVideo);
        EXPECT_EQ(p.videoAtPlayhead(), isVideo);
        EXPECT_EQ(p.videoNaturalSize(), std::nullopt);
        EXPECT_EQ(p.naturalSizeAtPlayhead(), std::nullopt);
        EXPECT_EQ(p.largestVideoSize(), std::nullopt);
        EXPECT_EQ(p.frameRateAtPlayhead(), 30.0);
    }
}

TEST(TimelineQueries, VideoAtPlayheadCountsTheStartButNotTheEnd) {
    Project p;
    p.setClips({clipAt(2, 2, true, false), clipAt(0, 8, false, true)});
    p.setPlayheadGlobal(2);
    EXPECT_TRUE(p.videoAtPlayhead());
    p.setPlayheadGlobal(4);
    EXPECT_FALSE(p.videoAtPlayhead());
}

TEST(TimelineQueries, VideoNaturalSizeAsksOnlyTheFirstVideoClip) {
    Project p;
    Clip audio = clipAt(0, 2, false, true);
    Clip unsized = sized(clipAt(0, 2), 0, 720);
    Clip later = sized(clipAt(2, 2), 640, 480);
    p.setClips({audio, later});
    EXPECT_EQ(p.videoNaturalSize(), (Size{640, 480}));
    p.setClips({audio, unsized, later});
    EXPECT_EQ(p.videoNaturalSize(), std::nullopt);
}

TEST(TimelineQueries, SizeAtPlayheadFallsBackButAspectDoesNot) {
    Project p;
    Clip first = sized(clipAt(0, 2), 640, 480);
    Clip unsizedAtPlayhead = sized(clipAt(2, 2), 0, 0);
    p.setClips({first, unsizedAtPlayhead});
    p.setPlayheadGlobal(3);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{640, 480}));
    EXPECT_EQ(p.aspectAtPlayhead(), std::nullopt);
}

TEST(TimelineQueries, SizeAtPlayheadSkipsAnUnsizedClipForASizedOneBelowThePlayhead) {
    Project p;
    Clip unsized = sized(clipAt(0, 4), 0, 0);
    Clip portrait = sized(clipAt(0, 4), 720, 1280);
    p.setClips({unsized, portrait});
    p.setPlayheadGlobal(1);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{720, 1280}));
    EXPECT_DOUBLE_EQ(*p.aspectAtPlayhead(), 720.0 / 1280.0);
}

TEST(TimelineQueries, FrameRateAtPlayheadIsTheTopVideoClipsRate) {
    Project p;
    Clip bottom = clipAt(0, 4);
    bottom.frameRate = 25;
    Clip top = clipAt(0, 4);
    top.frameRate = 60;
    p.setClips({bottom, top});
    p.setPlayheadGlobal(1);
    EXPECT_EQ(p.frameRateAtPlayhead(), 60);
}

TEST(TimelineQueries, AnAudioClipOnTopGivesTheFirstVideoClipsRateNotTheDefault) {
    Project p;
    Clip elsewhere = clipAt(10, 2);
    elsewhere.frameRate = 24;
    Clip under = clipAt(0, 4);
    under.frameRate = 60;
    p.setClips({elsewhere, under, clipAt(0, 4, false, true)});
    p.setPlayheadGlobal(1);
    EXPECT_EQ(p.frameRateAtPlayhead(), 24);
}

TEST(TimelineQueries, AZeroFrameRateIsSkippedSoTheRateIsNeverZero) {
    Project p;
    Clip top = clipAt(0, 4);
    top.frameRate = 0;
    Clip other = clipAt(5, 1);
    other.frameRate = 50;
    p.setClips({top, other});
    p.setPlayheadGlobal(1);
    EXPECT_EQ(p.frameRateAtPlayhead(), 50);
    p.setClips({top});
    EXPECT_EQ(p.frameRateAtPlayhead(), 30.0);
}

TEST(TimelineQueries, LargestVideoSizeKeepsTheEarliestOfEqualAreas) {
    Project p;
    Clip small = sized(clipAt(0, 1), 640, 480);
    Clip landscape = sized(clipAt(1, 1), 1920, 1080);
    Clip portrait = sized(clipAt(2, 1), 1080, 1920);
    Clip audio = clipAt(3, 1, false, true);
    p.setClips({small, landscape, portrait, audio});
    EXPECT_EQ(p.largestVideoSize(), (Size{1920, 1080}));
    p.setClips({small, portrait, landscape});
    EXPECT_EQ(p.largestVideoSize(), (Size{1080, 1920}));
}

TEST(TimelineQueries, InsetsCropOnlyWhenThereIsAVideoFrame) {
    Project p;
    p.setClips({clipAt(0, 2, false, true)});
    p.setCropInsetLeading(0.1);
    EXPECT_FALSE(p.hasCrop());
    p.setClips({clipAt(0, 2)});
    EXPECT_TRUE(p.hasCrop());
    p.setCropInsetLeading(0);
    EXPECT_FALSE(p.hasCrop());
    p.setCropInsetTrailing(0.05);
    EXPECT_TRUE(p.hasCrop());
}

// Snapping.

TEST(TimelineQueries, SnapTargetsListEveryEdgeButTheExcludedClipsKeepingDuplicates) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(2, 1, false, true);
    Clip c = clipAt(5, 4);
    c.rateMultiplier = 2;
    p.setClips({a, b, c});
    p.setPlayheadGlobal(1.5);
    EXPECT_EQ(p.snapTargets(std::nullopt), (std::vector<double>{0, 1.5, 0, 2, 2, 3, 5, 7}));
    EXPECT_EQ(p.snapTargets(b.id), (std::vector<double>{0, 1.5, 0, 2, 5, 7}));
}

}  // namespace
