#include <optional>
#include <tuple>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "model/project.h"
#include "support/model_test_support.h"

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::GapSelection;
using model::Project;
using model::Size;
using model::StreamMask;

Clip sized(Clip c, double width, double height) {
    c.naturalSize = {width, height};
    return c;
}

Clip rated(Clip c, double frameRate, double rateMultiplier = 1) {
    c.frameRate = frameRate;
    c.rateMultiplier = rateMultiplier;
    return c;
}

TEST(TimelineQueries, PlacesRunFromTheStartToBeforeTheEndAtTheClipsRateAndEveryEdgeSnaps) {
    Project p;
    Clip c = rated(clipAt(2, 8), 25, 2);
    c.inSeconds = 2;
    Clip below = clipAt(1, 1);
    p.setClips({c, below});
    EXPECT_EQ(p.globalRange(c.id), (model::TimelineRange{2, 5}));
    EXPECT_EQ(p.clipIDAt(2), c.id);
    EXPECT_EQ(p.clipIDAt(5), std::nullopt);
    p.setClips({c, masked(clipAt(0, 8), StreamMask::audioOnly)});
    EXPECT_NE(p.clipIDAt(3), c.id) << "the top clip wins on any row";
    p.setPlayheadGlobal(1.5);
    EXPECT_EQ(p.snapTargets(std::nullopt), (std::vector<double>{0, 1.5, 2, 5, 0, 8}));
    EXPECT_EQ(p.snapTargets(c.id), (std::vector<double>{0, 1.5, 0, 8})) << "duplicates kept";
    p.setCropInsetTrailing(0.05);
    EXPECT_TRUE(p.hasCrop());
    p.setClips({c, Clip::missingPlaceholder({Uuid::random(), "/gone.mov", {}, 0, 3, 6}), below});
    EXPECT_DOUBLE_EQ(p.totalDurationSeconds(), 9) << "the latest end, placeholders included";
}

// Clips closer than a thousandth neither leave a gap nor overlap.
TEST(TimelineQueries, GapsAndOverlapsOnOneRow) {
    auto c = [](double start, double length) { return clipAt(start, length); };
    const std::tuple<std::vector<Clip>, std::vector<GapSelection>, bool> cases[] = {
        {{c(0, 2), c(2.0005, 2)}, {}, false},
        {{c(2.002, 2), c(0, 2)}, {{false, 2, 2.002}}, false},
        {{c(0, 2), c(1.998, 2)}, {}, true},
        {{c(0, 2), c(1.9995, 2)}, {}, false},
        {{c(0, 10), c(1, 1), c(5, 1), c(12, 1)}, {{false, 10, 12}}, true},
        {{masked(c(0, 3), StreamMask::videoOnly), masked(c(0, 3), StreamMask::audioOnly)},
         {},
         true},
        {{rated(c(0, 4), 25, 2), c(3, 1)}, {{false, 2, 3}}, false},
    };
    for (const auto& [clips, gaps, overlap] : cases) {
        Project p;
        p.setClips(clips);
        EXPECT_EQ(p.gaps(false), gaps) << clips.back().startOnTimeline;
        EXPECT_EQ(p.hasOverlap(), overlap) << clips.back().startOnTimeline;
    }
    Project p;
    p.setClips({clipAt(0, 2), clipAt(4, 2, true, false), clipAt(3, 2, false, true),
                masked(clipAt(8, 1), StreamMask::videoOnly)});
    EXPECT_EQ(p.gaps(false), (std::vector<GapSelection>{{false, 2, 4}, {false, 6, 8}}));
    EXPECT_EQ(p.gaps(true), (std::vector<GapSelection>{{true, 2, 3}})) << "each row its own";
}

TEST(TimelineQueries, NoClipAnAudioOnlyMaskOrAPlaceholderGivesNoSizeCropOrFrameRate) {
    Clip audioOnly = rated(sized(masked(clipAt(0, 4), StreamMask::audioOnly), 1920, 1080), 24);
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone.mov", {}, 0, 4, 0});
    for (const auto& [clips, isVideo] : {std::pair{std::vector<Clip>{}, false},
                                         {std::vector{audioOnly}, false},
                                         {std::vector{placeholder}, true}}) {
        Project p;
        p.setClips(clips);
        p.setPlayheadGlobal(1);
        p.setCropInsetTop(0.1);
        EXPECT_EQ(std::pair(p.hasVideoContent(), p.videoAtPlayhead()), std::pair(isVideo, isVideo));
        EXPECT_FALSE(p.videoNaturalSize() || p.naturalSizeAtPlayhead() || p.largestVideoSize() ||
                     p.aspectAtPlayhead() || p.hasCrop());
        EXPECT_EQ(p.frameRateAtPlayhead(), 30.0);
    }
}

TEST(TimelineQueries, SizesComeFromTheFirstVideoClipTheLowestSizedOneAtThePlayheadOrTheLargest) {
    Project p;
    Clip audio = clipAt(0, 2, false, true);
    Clip later = sized(clipAt(2, 2), 640, 480);
    p.setClips({audio, later});
    EXPECT_EQ(p.videoNaturalSize(), (Size{640, 480}));
    p.setClips({audio, sized(clipAt(0, 2), 0, 720), later});
    EXPECT_EQ(p.videoNaturalSize(), std::nullopt) << "only the first video clip is asked";

    p.setClips({sized(clipAt(0, 4), 0, 0), sized(clipAt(0, 4), 720, 1280),
                sized(clipAt(0, 4), 1000, 1000)});
    p.setPlayheadGlobal(1);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{720, 1280}));
    EXPECT_DOUBLE_EQ(*p.aspectAtPlayhead(), 720.0 / 1280.0);
    p.setClips({sized(clipAt(0, 2), 640, 480), sized(clipAt(2, 2), 0, 0)});
    p.setPlayheadGlobal(3);
    EXPECT_EQ(p.naturalSizeAtPlayhead(), (Size{640, 480})) << "only the size falls back";
    EXPECT_EQ(p.aspectAtPlayhead(), std::nullopt);

    Clip landscape = sized(clipAt(1, 1), 1920, 1080);
    Clip portrait = sized(clipAt(2, 1), 1080, 1920);
    p.setClips({sized(clipAt(0, 1), 640, 480), portrait, landscape, clipAt(3, 1, false, true)});
    EXPECT_EQ(p.largestVideoSize(), (Size{1080, 1920})) << "the earliest of equal areas";
}

TEST(TimelineQueries, FrameRateAtPlayheadIsTheTopVideoClipsElseTheFirstVideoClipsNeverZero) {
    auto c = [](double start, double fps) { return rated(clipAt(start, 4), fps); };
    Clip audioOnTop = rated(clipAt(0, 4, false, true), 48);
    for (const auto& [clips, expected] : {std::pair{std::vector{c(0, 25), c(0, 60)}, 60.0},
                                          {std::vector{c(10, 24), c(0, 60), audioOnTop}, 24.0},
                                          {std::vector{c(0, 0), c(5, 50)}, 50.0},
                                          {std::vector{c(0, 0)}, 30.0}}) {
        Project p;
        p.setClips(clips);
        p.setPlayheadGlobal(1);
        EXPECT_EQ(p.frameRateAtPlayhead(), expected);
    }
}

TEST(Selection, AToggledIDJoinsAndStandsForTheSelectionUntilToggledOut) {
    Project p;
    Uuid a = Uuid::random(), b = Uuid::random(), c = Uuid::random();
    p.selectGap({false, 1, 2});
    for (const Uuid& id : {a, b, c, a}) p.toggleSelection(id);
    EXPECT_EQ(p.selectedGap(), std::nullopt) << "a toggle clears a gap, whatever the id";
    EXPECT_EQ(p.selectedClipIDs(), (std::unordered_set<Uuid>{b, c}));
    EXPECT_EQ(p.selectedClipID(), c) << "the id added last, kept while another leaves";
    p.toggleSelection(c);
    EXPECT_EQ(p.selectionAnchor(), b) << "the anchor passes to a remaining member";
    p.toggleSelection(b);
    EXPECT_EQ(p.selectionAnchor(), std::nullopt);

    p.setSelectionAnchor(a);
    EXPECT_FALSE(p.selectedClipID()) << "an empty selection, whatever the anchor";
    p.setSelectedClipIDs({b});
    EXPECT_EQ(p.selectedClipID(), b);
    p.setSelectedGap(model::GapSelection{true, 1, 2});
    p.setSelectedClipID(c);
    EXPECT_EQ(std::tuple(p.selectedClipIDs(), p.selectionAnchor(), p.selectedGap()),
              std::tuple(std::unordered_set<Uuid>{c}, std::optional(c), std::nullopt));
}

// Each click: the clip hit, the row, the clip then selected. A stack's first click takes its top.
TEST(Selection, ClicksWalkDownAStackOfOverlappingClipsOnTheClickedRow) {
    struct Click {
        std::size_t hit;
        bool audioRow;
        std::size_t selected;
    };
    struct Case {
        std::vector<Clip> clips;
        std::optional<std::size_t> selected;
        std::vector<Click> clicks;
        const char* name;
    };
    auto c = [](double start, double length) { return clipAt(start, length); };
    Clip zeroLength = c(3, 2);
    zeroLength.inSeconds = 2;
    Clip video = masked(c(0, 4), StreamMask::videoOnly);
    Clip audio = masked(c(0, 4), StreamMask::audioOnly);
    const bool V = false, A = true;  // the row clicked
    const std::vector<Case> cases = {
        {{c(0, 4), c(0, 4), c(0, 4)}, {}, {{0, V, 2}, {2, V, 1}, {1, V, 0}, {1, V, 2}}, "wrapping"},
        {{c(0, 4), c(1, 4), c(2, 4)}, 1, {{2, V, 0}}, "from the selection, not the pointer"},
        {{c(0, 4), c(1, 4), c(20, 1)}, 2, {{0, V, 1}}, "a selection outside goes to the top"},
        {{c(0, 2), c(2, 2)}, {}, {{0, V, 0}, {1, V, 1}, {1, V, 1}}, "touching clips: no stack"},
        {{video, audio}, {}, {{0, V, 0}, {1, A, 1}, {1, A, 1}}, "a stack is judged per row"},
        {{c(0, 4), c(1, 4)}, {}, {{0, A, 1}}, "both streams stack on the audio row too"},
        {{zeroLength}, {}, {{0, V, 0}}, "a zero-length clip alone"},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Project p;
        p.setClips(k.clips);
        if (k.selected) p.setSelectedClipID(k.clips[*k.selected].id);
        for (const Click& click : k.clicks) {
            p.cycleSelection(k.clips[click.hit].id, click.audioRow);
            EXPECT_EQ(p.selectedClipID(), k.clips[click.selected].id)
                << "after a click on clip " << click.hit;
        }
    }
}

TEST(Selection, AClickOnAKnownClipLeavesOneClipAndAGapTapSelectsNoClipButMarksTheDocument) {
    Project p;
    Clip a = clipAt(0, 4), b = clipAt(1, 4), far = clipAt(20, 1);
    p.setClips({a, b, far});
    p.toggleSelection(far.id);
    p.toggleSelection(a.id);
    Recorder r(p);
    p.cycleSelection(Uuid::random(), false);
    EXPECT_TRUE(r.fields.empty()) << "an unknown clip";
    p.cycleSelection(a.id, false);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{b.id});
    p.selectGap(GapSelection{false, 5, 20});
    EXPECT_EQ(r.didChangeCalls, 1) << "only the gap marks the document";
    EXPECT_TRUE(p.selectedClipIDs().empty());
    p.cycleSelection(far.id, false);
    EXPECT_EQ(p.selectedGap(), std::nullopt);
}

}  // namespace
