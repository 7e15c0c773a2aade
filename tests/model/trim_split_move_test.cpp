#include <optional>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::GapSelection;
using model::Project;
using model::ProjectField;
using model::StreamMask;
using model_test::clipAt;
using model_test::lastStep;
using model_test::place;
using model_test::Placement;
using model_test::placement;
using model_test::Recorder;
using model_test::Step;

// A clip using in..out of a file `full` seconds long, placed at `start`, played at `rate`.
Clip trimmedClip(double start, double in, double out, double full = 20, double rate = 1) {
    Clip c = clipAt(start, full);
    c.inSeconds = in;
    c.outSeconds = out;
    c.rateMultiplier = rate;
    return c;
}

// Live trims and moves.

TEST(TrimSplitMove, LiveTrimsAndMovesHoldTheClipInsideItsFileAndTheTimeline) {
    using Write = void (Project::*)(const Uuid&, double);
    const Write in = &Project::setIn, out = &Project::setOut, move = &Project::moveClip;
    struct Case {
        const char* name;
        Clip clip;
        Write write;
        double to;
        Placement expected;
    };
    Clip reversed = trimmedClip(0, 0, 4, 10);
    reversed.isReversed = true;
    reversed.reversedURL = "/tmp/r.mov";
    const std::vector<Case> cases = {
        {"in past out: the smallest length before it",
         trimmedClip(0, 1, 5),
         in,
         9,
         {4.95, 5, 3.95}},
        {"in below zero lands on zero", trimmedClip(4, 2, 5), in, -3, {0, 5, 2}},
        {"in keeps the right edge", trimmedClip(1, 2, 10), in, 5, {5, 10, 4}},
        {"in past the timeline start: pinned at zero", trimmedClip(1, 5, 10), in, 2, {2, 10, 0}},
        {"in at double speed moves the start by half",
         trimmedClip(1, 2, 10, 20, 2),
         in,
         4,
         {4, 10, 2}},
        {"out below in: the smallest length after it", trimmedClip(3, 2, 8), out, 1, {2, 2.05, 3}},
        {"out past the file lands on its end", trimmedClip(0, 2, 8, 10), out, 30, {2, 10, 0}},
        {"out past the file, reversed", reversed, out, 30, {0, 10, 0}},
        {"a move before zero lands on zero", trimmedClip(3, 0, 2), move, -2, {0, 2, 0}},
        {"a move keeps the trim", trimmedClip(3, 1, 2), move, 7.5, {1, 2, 7.5}},
    };
    for (const Case& k : cases) {
        Project p;
        p.setClips({k.clip});
        (p.*k.write)(k.clip.id, k.to);
        EXPECT_EQ(placement(*p.clip(k.clip.id)), k.expected) << k.name;
    }
}

TEST(TrimSplitMove, LiveWritesMarkTheDocumentButRecordAndRaiseNothing) {
    Project p;
    Clip c = trimmedClip(0, 1, 5);
    Clip other = clipAt(1, 2);
    p.setClips({c, other});
    Recorder r(p);
    Uuid unknown = Uuid::random();
    p.setIn(unknown, 1);
    p.setOut(unknown, 1);
    p.moveClip(unknown, 1);
    EXPECT_TRUE(r.heardNothing()) << "an unknown clip";
    p.setIn(c.id, 2);
    p.setOut(c.id, 4);
    p.moveClip(c.id, 1);
    EXPECT_EQ(r.didChangeCalls, 3);
    EXPECT_EQ(r.count(ProjectField::clips), 3u);
    EXPECT_EQ(lastStep(p), Step{});
    EXPECT_EQ(*p.clip(other.id), other) << "no other clip moves";
}

// In and out at the playhead.

TEST(TrimSplitMove, InAndOutAtPlayheadTrimToTheMappedSourceTimeAlsoOnTheExactEdges) {
    struct Case {
        const char* name;
        double out, rate, playhead;
        bool in;
        Placement expected;
        double expectedPlayhead;
    };
    const std::vector<Case> cases = {
        {"in inside the clip", 9, 1, 5, true, {4, 9, 5}, 5},
        {"in on the exact start", 5, 1, 2, true, {1, 5, 2}, 2},
        {"out on the exact end, where commitEdit clamps", 5, 1, 6, false, {1, 5, 2}, 5.999},
        {"out at double speed", 11, 2, 4, false, {1, 5, 2}, 3.999},
        {"in at double speed: the left edge on the playhead", 11, 2, 3, true, {3, 11, 3}, 3},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Project p;
        Clip c = trimmedClip(2, 1, k.out, 20, k.rate);
        place(p, {c}, c.id);
        p.setPlayheadGlobal(k.playhead);
        if (k.in)
            p.setInAtPlayhead();
        else
            p.setOutAtPlayhead();
        EXPECT_EQ(lastStep(p), (Step{k.in ? "Set In" : "Set Out", 1}));
        EXPECT_EQ(placement(*p.clip(c.id)), k.expected);
        EXPECT_DOUBLE_EQ(p.playheadGlobal(), k.expectedPlayhead);
    }
}

TEST(TrimSplitMove, InAndOutAtPlayheadNeedASelectedClipUnderThePlayheadAndNoSheet) {
    Project p;
    Clip c = trimmedClip(2, 1, 5);
    p.setClips({c});
    p.setPlayheadGlobal(3);
    p.setInAtPlayhead();
    EXPECT_FALSE(p.canUndo()) << "nothing selected";
    p.setSelectedClipID(c.id);
    p.setPlayheadGlobal(6.5);
    p.setOutAtPlayhead();
    EXPECT_FALSE(p.canUndo()) << "the playhead lies past the clip";
    p.setPlayheadGlobal(3);
    p.setShowCropSheet(true);
    p.setInAtPlayhead();
    p.setOutAtPlayhead();
    EXPECT_FALSE(p.canUndo()) << "a sheet is open";
    p.setShowCropSheet(false);
    p.setSelectedClipID(Uuid::random());
    p.setInAtPlayhead();
    EXPECT_EQ(lastStep(p), Step{}) << "the selection names no clip";
}

// Nudges, playback and zoom.

TEST(TrimSplitMove, ANudgeStepsTheClipStandingForTheSelectionByItsOwnFrames) {
    Project p;
    Clip slow = clipAt(1, 4);  // 25 frames a second
    Clip fast = clipAt(1, 4);
    fast.frameRate = 60;
    Clip audio = clipAt(0.05, 4, false, true);
    p.setClips({slow, fast, audio});
    p.nudgeSelectedClipByFrames(1);
    p.setSelectedClipID(Uuid::random());
    p.nudgeSelectedClipByFrames(1);
    EXPECT_EQ(lastStep(p), Step{}) << "no selected clip";
    p.setPlayheadGlobal(5);
    p.toggleSelection(fast.id);
    p.toggleSelection(slow.id);
    Recorder r(p);
    p.nudgeSelectedClipByFrames(5);
    EXPECT_EQ(placement(*p.clip(slow.id)), (Placement{0, 4, 1.2}));
    EXPECT_EQ(p.clip(fast.id)->startOnTimeline, 1);
    EXPECT_EQ(lastStep(p), (Step{"Nudge Clip", 1}));
    EXPECT_EQ(r.didChangeCalls, 2) << "once before the write, once with the token";
    p.nudgeSelectedClipByFrames(-50);
    EXPECT_EQ(p.clip(slow.id)->startOnTimeline, 0);
    EXPECT_EQ(p.playheadGlobal(), 5) << "a nudge does not clamp the playhead";
    p.setSelectedClipID(audio.id);
    p.nudgeSelectedClipByFrames(3);
    EXPECT_EQ(placement(*p.clip(audio.id)), (Placement{0, 4, 0.15})) << "thirtieths without a rate";
    p.setShowRetimeSheet(true);
    p.nudgeSelectedClipByFrames(3);
    EXPECT_EQ(p.undoCount(), 3u) << "a sheet is open";
}

TEST(TrimSplitMove, APlayheadNudgeStepsByTheRateThereAndStopsOnTheEnds) {
    Project p;
    Clip c = clipAt(0, 4);
    c.frameRate = 50;
    p.setClips({c});
    p.setPlayheadGlobal(1);
    Recorder r(p);
    p.nudgePlayheadByFrames(5);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 1.1);
    p.setPlayheadGlobal(3.9);
    p.nudgePlayheadByFrames(10);
    EXPECT_EQ(p.playheadGlobal(), 4);
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_FALSE(p.canUndo());
    p.setShowCropSheet(true);
    p.nudgePlayheadByFrames(-5);
    EXPECT_EQ(p.playheadGlobal(), 4) << "a sheet is open";
    p.setShowCropSheet(false);
    p.nudgePlayheadByFrames(-1000);
    EXPECT_EQ(p.playheadGlobal(), 0);
    p.setPlayheadGlobal(4);
    p.recordSnapshot("Trim Out");
    p.commitEdit();
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 3.999) << "the next clamp pulls the end back";
}

TEST(TrimSplitMove, PlayingRewindsOnlyFromWithinAHundredthOfTheEndAndZoomIsHeld) {
    Project p;
    p.togglePlayback();
    EXPECT_FALSE(p.isPlaying()) << "no clips";
    p.setClips({clipAt(0, 4)});
    p.setPlayheadGlobal(3.98);
    p.togglePlayback();
    EXPECT_TRUE(p.isPlaying());
    EXPECT_EQ(p.playheadGlobal(), 3.98);
    p.setPlayheadGlobal(4);
    p.togglePlayback();
    EXPECT_FALSE(p.isPlaying());
    EXPECT_EQ(p.playheadGlobal(), 4) << "pausing never rewinds";
    p.setPlayheadGlobal(3.995);
    p.togglePlayback();
    EXPECT_TRUE(p.isPlaying());
    EXPECT_EQ(p.playheadGlobal(), 0);
    p.setExportSheet(model::ExportSheetState{Uuid::random()});
    p.togglePlayback();
    EXPECT_TRUE(p.isPlaying()) << "a sheet is open";

    Recorder r(p);
    for (auto [asked, held] : {std::pair{100.0, 12.0}, {0.01, 0.25}, {3.0, 3.0}}) {
        p.setZoom(asked);
        EXPECT_EQ(p.zoomFactor(), held) << asked;
    }
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_FALSE(p.canUndo());
}

// Delete.

TEST(TrimSplitMove, DeletingPassesTheSelectionOnByStackingOrderAndClampsThePlayhead) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(10, 2);
    Clip c = clipAt(2, 2);
    place(p, {a, b, c}, b.id);
    p.setPlayheadGlobal(11);
    p.deleteSelected();
    EXPECT_EQ(p.clips(), (std::vector<Clip>{a, c}));
    EXPECT_EQ(p.selectedClipID(), c.id) << "the clip now at the deleted index";
    EXPECT_EQ(lastStep(p), (Step{"Delete Clip", 1}));
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 3.999);
    p.deleteSelected();
    EXPECT_EQ(p.selectedClipID(), a.id) << "past the end: the new last";
    p.deleteSelected();
    EXPECT_TRUE(p.clips().empty());
    EXPECT_EQ(p.selectedClipID(), std::nullopt);
    EXPECT_EQ(p.playheadGlobal(), 0);
}

TEST(TrimSplitMove, DeletingSeveralClipsLeavesTheirPlacesEmpty) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(2, 2);
    Clip c = clipAt(4, 2);
    Clip d = clipAt(6, 2);
    p.setClips({a, b, c, d});
    p.toggleSelection(b.id);
    p.toggleSelection(d.id);
    p.deleteSelected();
    EXPECT_EQ(p.undoName(), "Delete Clips");
    EXPECT_EQ(p.clips(), (std::vector<Clip>{a, c}));
    EXPECT_EQ(p.selectedClipID(), c.id) << "the clip now at the first deleted index";
    EXPECT_EQ(p.gaps(false), (std::vector<GapSelection>{{false, 2, 4}}));
}

TEST(TrimSplitMove, DeleteNeedsASelectionAndNoSheetButNotAKnownClipOrAName) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(2, 2);
    p.setClips({a, b});
    p.deleteSelected();
    p.setSelectedClipID(a.id);
    p.setShowRetimeSheet(true);
    p.deleteSelected();
    EXPECT_FALSE(p.canUndo());
    p.setShowRetimeSheet(false);
    p.setSelectedClipID(Uuid::random());
    p.deleteSelected();
    EXPECT_EQ(p.undoName(), "Delete Clip");
    EXPECT_EQ(p.clips().size(), 2u);
    EXPECT_EQ(p.selectedClipID(), a.id) << "an unknown id hands the selection to the first clip";

    p.recordSnapshot("Cut");
    p.deleteSelected(std::nullopt);
    EXPECT_EQ(p.clips(), std::vector<Clip>{b});
    EXPECT_EQ(p.undoCount(), 2u) << "without a name the caller has recorded";
    p.undo();
    EXPECT_EQ(p.clips(), (std::vector<Clip>{a, b}));
}

// Collapse of a gap.

TEST(TrimSplitMove, ACollapseMovesEveryClipOfTheRowFromTheGapsStoredEndOn) {
    struct Case {
        std::vector<Clip> clips;
        GapSelection gap;
        std::vector<double> expectedStarts;
        const char* name;
    };
    auto c = [](double start, double length) { return clipAt(start, length); };
    Clip audio = clipAt(6, 2, false, true);
    Clip video = clipAt(6, 2, true, false);
    const std::vector<Case> cases = {
        {{c(0, 2), c(4.99995, 1), c(4.999, 1), c(9, 1)},
         {false, 2, 5},
         {0, 1.99995, 4.999, 6},
         "from within a ten-thousandth of the end"},
        {{c(0, 1), audio, video, c(8, 2)}, {true, 1, 6}, {0, 1, 6, 3}, "only the gap's row"},
        {{c(0, 2), c(6, 2)}, {false, 2, 5}, {0, 3}, "the stored gap, not the timeline"},
        {{c(0, 2), c(5, 2)}, {false, 5, 2}, {0, 5}, "an inverted gap has width zero"},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Project p;
        p.setClips(k.clips);
        p.selectGap(k.gap);
        p.collapseSelectedGap();
        EXPECT_EQ(lastStep(p), (Step{"Collapse Gap", 1}));
        for (std::size_t i = 0; i < k.clips.size(); ++i)
            EXPECT_DOUBLE_EQ(p.clips()[i].startOnTimeline, k.expectedStarts[i]) << i;
    }
}

TEST(TrimSplitMove, DeletingWithAGapSelectedCollapsesItAndClampsThePlayhead) {
    Project p;
    Clip b = clipAt(5, 2);
    p.setClips({clipAt(0, 2), b});
    Recorder r(p);
    p.collapseSelectedGap();
    EXPECT_TRUE(r.fields.empty()) << "no gap, nothing to collapse";
    p.selectGap({false, 2, 5});
    p.setPlayheadGlobal(8);
    p.deleteSelected();
    EXPECT_EQ(p.undoName(), "Collapse Gap");
    EXPECT_EQ(p.clips().size(), 2u);
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 2);
    EXPECT_EQ(p.selectedGap(), std::nullopt);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 3.999);
}

// Split: the right half is a new record that the probe makes.

class TrimSplitMoveTest : public model_test::MediaProjectTest {};

TEST_F(TrimSplitMoveTest, ASplitCutsAtThePlayheadAndStacksTheRightHalfAboveTheLeft) {
    Clip other = liveClip("/m/other.mov", 3, 20);
    Clip c = liveClip("/m/a.mov", 10, 2);
    c.inSeconds = 1;
    c.outSeconds = 9;
    place(project, {c, other}, c.id);
    project.setPlayheadGlobal(5);
    project.splitAtPlayhead();
    EXPECT_EQ(lastStep(project), (Step{"Split", 0})) << "nothing changes before the probe lands";
    EXPECT_EQ(project.clips().size(), 2u);
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_EQ(clips[0].id, c.id);
    EXPECT_EQ(placement(clips[0]), (Placement{1, 4, 2}));
    EXPECT_NE(clips[1].id, c.id);
    EXPECT_EQ(clips[1].url, c.url);
    EXPECT_EQ(clips[1].bookmark, c.bookmark);
    EXPECT_EQ(placement(clips[1]), (Placement{4, 9, 5}));
    EXPECT_EQ(clips[2], other);
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});
    EXPECT_EQ(project.playheadGlobal(), 5);
    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{c, other}));
    project.redo();
    EXPECT_EQ(project.clips().size(), 3u);
}

TEST_F(TrimSplitMoveTest, AtDoubleSpeedTheHalvesMeetAtThePlayhead) {
    Clip c = liveClip("/m/a.mov", 20, 2);
    c.inSeconds = 2;
    c.outSeconds = 14;
    c.rateMultiplier = 2;
    project.setClips({c});
    project.setPlayheadGlobal(5);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(placement(project.clips()[0]), (Placement{2, 8, 2}));
    EXPECT_EQ(placement(project.clips()[1]), (Placement{8, 14, 5}));
    EXPECT_EQ(project.clips()[1].rateMultiplier, 2);
    EXPECT_DOUBLE_EQ(project.clips()[1].timelineEnd(), c.timelineEnd());
}

TEST_F(TrimSplitMoveTest, TheRightHalfTakesTheMaskGroupAndRenderButNotTheForwardStretch) {
    Clip c = liveClip("/m/a.mov", 20, 0);
    c.streamMask = StreamMask::videoOnly;
    c.linkGroupID = Uuid::random();
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-a.mov";
    c.forwardInSeconds = 3;
    c.forwardOutSeconds = 9;
    c.outSeconds = 6;
    project.setClips({c});
    project.setPlayheadGlobal(2);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& left = project.clips()[0];
    const Clip& right = project.clips()[1];
    EXPECT_EQ(left.forwardInSeconds, 3);
    EXPECT_EQ(left.forwardOutSeconds, 9);
    EXPECT_EQ(left.reversedURL, c.reversedURL);
    EXPECT_EQ(right.streamMask, StreamMask::videoOnly);
    EXPECT_EQ(right.linkGroupID, c.linkGroupID);
    EXPECT_TRUE(right.isReversed);
    EXPECT_EQ(right.reversedURL, c.reversedURL);
    EXPECT_FALSE(right.forwardInSeconds || right.forwardOutSeconds);
}

TEST_F(TrimSplitMoveTest, ASplitNeedsAClipAtThePlayheadNoSheetAndRoomForBothHalves) {
    Clip c = liveClip("/m/a.mov", 10, 1);
    c.inSeconds = 1;
    c.outSeconds = 9;
    project.setClips({c});
    Recorder r(project);
    for (double closeToAnEdge : {1.04, 8.96}) {
        project.setPlayheadGlobal(closeToAnEdge);
        project.splitAtPlayhead();
    }
    project.setPlayheadGlobal(0.5);
    project.splitAtPlayhead();
    project.setPlayheadGlobal(2);
    project.setShowCropSheet(true);
    project.splitAtPlayhead();
    executor.drain();
    EXPECT_FALSE(project.canUndo());
    EXPECT_EQ(media->probeCount(), 1u) << "only the one that made the test clip";
    EXPECT_EQ(project.clips().size(), 1u);
    EXPECT_EQ(r.didChangeCalls, 0);
}

TEST_F(TrimSplitMoveTest, OnlyASelectedClipUnderThePlayheadBeatsTheTopClipThere) {
    Clip selected = liveClip("/m/a.mov", 4, 0);
    Clip bottom = liveClip("/m/b.mov", 10, 3);
    Clip top = liveClip("/m/c.mov", 10, 4);
    place(project, {selected, bottom, top}, selected.id);
    project.setPlayheadGlobal(6);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 4u);
    EXPECT_EQ(project.clips()[2].id, top.id);
    EXPECT_EQ(project.clips()[2].outSeconds, 2);
    EXPECT_EQ(project.clips()[3].url, top.url);
    EXPECT_EQ(project.selectedClipID(), selected.id);

    Clip next = liveClip("/m/b.mov", 4, 2);
    project.setClips({next, selected});
    project.setPlayheadGlobal(4);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(project.clips()[0].id, next.id) << "the selected clip ends at the playhead";
    EXPECT_EQ(project.clips()[0].outSeconds, 2);
    EXPECT_EQ(project.clip(selected.id)->outSeconds, 4);
}

}  // namespace
