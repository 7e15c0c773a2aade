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

Clip rated(Clip c, double frameRate, double rateMultiplier = 1) {
    c.frameRate = frameRate;
    c.rateMultiplier = rateMultiplier;
    return c;
}

Clip masked(Clip c, StreamMask mask) {
    c.streamMask = mask;
    return c;
}

TEST(TimelineQueries, AnEmptyProjectHasNothingButTheDefaults) {
    Project p;
    p.setPlayheadGlobal(3);
    p.setCropInsetTop(0.2);
    EXPECT_EQ(p.totalDurationSeconds(), 0);
    EXPECT_TRUE(p.gaps(false).empty() && p.gaps(true).empty());
    EXPECT_FALSE(p.hasVideoContent() || p.videoAtPlayhead() || p.hasOverlap() || p.hasCrop());
    EXPECT_EQ(p.frameRateAtPlayhead(), 30.0);
    EXPECT_EQ(p.clipIDAt(0), std::nullopt);
    EXPECT_FALSE(p.videoNaturalSize() || p.naturalSizeAtPlayhead() || p.largestVideoSize());
    EXPECT_EQ(p.aspectAtPlayhead(), std::nullopt);
    EXPECT_EQ(p.snapTargets(std::nullopt), (std::vector<double>{0, 3}));
}

// Places.

TEST(TimelineQueries, GlobalRangeRunsToTheTimelineEndAtTheClipsRate) {
    Project p;
    Clip c = rated(clipAt(2, 8), 25, 2);
    c.inSeconds = 2;
    p.setClips({c});
    EXPECT_EQ(p.globalStart(c.id), 2);
    EXPECT_EQ(p.globalRange(c.id), (model::TimelineRange{2, 5}));
    EXPECT_EQ(p.globalStart(Uuid::random()), 0);
    EXPECT_EQ(p.globalRange(Uuid::random()), (model::TimelineRange{0, 0}));
}

TEST(TimelineQueries, ClipIDAtTakesTheTopClipFromItsStartToBeforeItsEndOnAnyRow) {
    Project p;
    Clip c = clipAt(1, 2);
    p.setClips({c});
    EXPECT_EQ(p.clipIDAt(1), c.id);
    EXPECT_EQ(p.clipIDAt(2.999), c.id);
    EXPECT_EQ(p.clipIDAt(3), std::nullopt);
    EXPECT_EQ(p.clipIDAt(0.999), std::nullopt);

    Clip video = clipAt(0, 4, true, false);
    Clip audio = clipAt(0, 4, false, true);
    p.setClips({video, audio});
    EXPECT_EQ(p.clipIDAt(2), audio.id);
    Clip audioOnly = masked(clipAt(0, 4), StreamMask::audioOnly);
    p.setClips({video, audioOnly});
    EXPECT_EQ(p.clipIDAt(2), audioOnly.id);
}

// Gaps and overlaps.

TEST(TimelineQueries, GapsAndOverlapsOnOneRow) {
    struct Case {
        std::vector<Clip> clips;
        std::vector<GapSelection> gaps;
        bool overlap;
        const char* name;
    };
    auto c = [](double start, double length) { return clipAt(start, length); };
    Clip video = masked(c(0, 3), StreamMask::videoOnly);
    Clip audio = masked(c(0, 3), StreamMask::audioOnly);
    const std::vector<Case> cases = {
        {{c(0, 2), c(2.0005, 2)}, {}, false, "half a thousandth apart: neither"},
        {{c(2.002, 2), c(0, 2)}, {{false, 2, 2.002}}, false, "two thousandths apart"},
        {{c(0, 2), c(1.998, 2)}, {}, true, "overlapping by two thousandths"},
        {{c(0, 10), c(1, 1), c(5, 1), c(12, 1)}, {{false, 10, 12}}, true, "a long clip under two"},
        {{c(10, 1), c(3, 1), c(6, 2)}, {{false, 4, 6}, {false, 8, 10}}, false, "in time order"},
        {{c(5, 1)}, {}, false, "one clip has no gap"},
        {{video, audio}, {}, true, "an unlinked pair in one place overlaps"},
        {{rated(c(0, 4), 25, 2), c(3, 1)}, {{false, 2, 3}}, false, "at double speed"},
        {{c(0, 4), c(3, 1)}, {}, true, "the same clips at normal speed"},
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
    p.setClips({clipAt(0, 2), clipAt(4, 2, true, false), clipAt(3, 2, false, true),
                masked(clipAt(8, 1), StreamMask::videoOnly)});
    EXPECT_EQ(p.gaps(false), (std::vector<GapSelection>{{false, 2, 4}, {false, 6, 8}}));
    EXPECT_EQ(p.gaps(true), (std::vector<GapSelection>{{true, 2, 3}}));
}

// Video content, sizes and rates.

TEST(TimelineQueries, AnAudioOnlyMaskCountsForNoVideoQueryAndAPlaceholderForNoSize) {
    Clip audioOnly = rated(sized(masked(clipAt(0, 4), StreamMask::audioOnly), 1920, 1080), 24);
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone.mov", {}, 0, 4, 0});
    for (const auto& [clip, isVideo] :
         {std::pair{audioOnly, false}, std::pair{placeholder, true}}) {
        SCOPED_TRACE(isVideo ? "placeholder" : "audio-only mask");
        Project p;
        p.setClips({clip});
        p.setPlayheadGlobal(1);
        EXPECT_EQ(p.hasVideoContent(), isVideo);
        EXPECT_EQ(p.videoAtPlayhead(), isVideo);
        EXPECT_FALSE(p.videoNaturalSize() || p.naturalSizeAtPlayhead() || p.largestVideoSize());
        EXPECT_EQ(p.frameRateAtPlayhead(), 30.0);
    }
    Project p;
    p.setClips({clipAt(2, 2, true, false), clipAt(0, 8, false, true)});
    p.setPlayheadGlobal(2);
    EXPECT_TRUE(p.videoAtPlayhead()) << "from the start";
    p.setPlayheadGlobal(4);
    EXPECT_FALSE(p.videoAtPlayhead()) << "to before the end";
}

TEST(TimelineQueries, VideoNaturalSizeAsksOnlyTheFirstVideoClip) {
    Project p;
    Clip audio = clipAt(0, 2, false, true);
    Clip later = sized(clipAt(2, 2), 640, 480);
    p.setClips({audio, later});
    EXPECT_EQ(p.videoNaturalSize(), (Size{640, 480}));
    p.setClips({audio, sized(clipAt(0, 2), 0, 720), later});
    EXPECT_EQ(p.videoNaturalSize(), std::nullopt);
}

TEST(TimelineQueries, SizeAndAspectAtPlayheadTakeTheLowestSizedClipThereAndOnlySizeFallsBack) {
    Project p;
    p.setClips({sized(clipAt(0, 4), 1600, 900), sized(clipAt(0, 4), 1000, 1000)});
    p.setPlayheadGlobal(1);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{1600, 900}));
    EXPECT_DOUBLE_EQ(*p.aspectAtPlayhead(), 16.0 / 9.0);

    p.setClips({sized(clipAt(0, 4), 0, 0), sized(clipAt(0, 4), 720, 1280)});
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{720, 1280})) << "an unsized clip is skipped";
    EXPECT_DOUBLE_EQ(*p.aspectAtPlayhead(), 720.0 / 1280.0);

    p.setClips({sized(clipAt(0, 2), 640, 480), sized(clipAt(2, 2), 0, 0)});
    p.setPlayheadGlobal(3);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{640, 480}));
    EXPECT_EQ(p.aspectAtPlayhead(), std::nullopt);
}

TEST(TimelineQueries, FrameRateAtPlayheadIsTheTopVideoClipsElseTheFirstVideoClipsNeverZero) {
    struct Case {
        std::vector<Clip> clips;
        double expected;
        const char* name;
    };
    auto c = [](double start, double fps) { return rated(clipAt(start, 4), fps); };
    const std::vector<Case> cases = {
        {{c(0, 25), c(0, 60)}, 60, "the top clip"},
        {{c(10, 24), c(0, 60), clipAt(0, 4, false, true)}, 24, "an audio clip on top"},
        {{c(0, 0), c(5, 50)}, 50, "a zero rate on top"},
        {{c(0, 0)}, 30, "no rate anywhere"},
    };
    for (const Case& k : cases) {
        Project p;
        p.setClips(k.clips);
        p.setPlayheadGlobal(1);
        EXPECT_EQ(p.frameRateAtPlayhead(), k.expected) << k.name;
    }
}

TEST(TimelineQueries, LargestVideoSizeKeepsTheEarliestOfEqualAreas) {
    Project p;
    Clip small = sized(clipAt(0, 1), 640, 480);
    Clip landscape = sized(clipAt(1, 1), 1920, 1080);
    Clip portrait = sized(clipAt(2, 1), 1080, 1920);
    p.setClips({small, landscape, portrait, clipAt(3, 1, false, true)});
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

TEST(TimelineQueries, SnapTargetsListEveryEdgeButTheExcludedClipsKeepingDuplicates) {
    Project p;
    Clip b = clipAt(2, 1, false, true);
    p.setClips({clipAt(0, 2), b, rated(clipAt(5, 4), 25, 2)});
    p.setPlayheadGlobal(1.5);
    EXPECT_EQ(p.snapTargets(std::nullopt), (std::vector<double>{0, 1.5, 0, 2, 2, 3, 5, 7}));
    EXPECT_EQ(p.snapTargets(b.id), (std::vector<double>{0, 1.5, 0, 2, 5, 7}));
}

}  // namespace
