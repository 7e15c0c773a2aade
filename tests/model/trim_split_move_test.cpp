#include <optional>
#include <string>
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
using model_test::Recorder;

// A clip using in..out of a file `full` seconds long, placed at `start`.
Clip trimmedClip(double start, double in, double out, double full = 20) {
    Clip c = clipAt(start, full);
    c.inSeconds = in;
    c.outSeconds = out;
    return c;
}

// Live trims and moves.

struct LiveTrim {
    const char* name;
    Clip clip;
    bool in;  // which edge the trim moves
    double to;
    double expectedIn, expectedOut, expectedStart, expectedEnd;
};

Clip atRate(Clip c, double rate) {
    c.rateMultiplier = rate;
    return c;
}

TEST(TrimSplitMove, ALiveTrimHoldsItsEdgeInsideTheFileAndKeepsTheOtherEdge) {
    const std::vector<LiveTrim> cases = {
        {"in past the out point stops the smallest length before it", trimmedClip(0, 1, 5), true, 9,
         4.95, 5, 3.95, 4},
        {"in below zero lands on zero", trimmedClip(4, 2, 5), true, -3, 0, 5, 2, 7},
        {"in keeps the right edge", trimmedClip(1, 2, 10), true, 5, 5, 10, 4, 9},
        {"in moved back past the timeline start pins the clip at zero, moving the right edge",
         trimmedClip(1, 5, 10), true, 2, 2, 10, 0, 8},
        {"at double speed in moves the start by half", atRate(trimmedClip(1, 2, 10), 2), true, 4, 4,
         10, 2, 5},
        {"out below the in point stops the smallest length after it", trimmedClip(3, 2, 8), false,
         1, 2, 2.05, 3, 3.05},
        {"out past the file lands on its end", trimmedClip(0, 2, 8, 10), false, 30, 2, 10, 0, 8},
    };
    for (const LiveTrim& k : cases) {
        SCOPED_TRACE(k.name);
        Project p;
        p.setClips({k.clip});
        if (k.in)
            p.setIn(k.clip.id, k.to);
        else
            p.setOut(k.clip.id, k.to);
        const Clip& now = *p.clip(k.clip.id);
        EXPECT_DOUBLE_EQ(now.inSeconds, k.expectedIn);
        EXPECT_DOUBLE_EQ(now.outSeconds, k.expectedOut);
        EXPECT_DOUBLE_EQ(now.startOnTimeline, k.expectedStart);
        EXPECT_DOUBLE_EQ(now.timelineEnd(), k.expectedEnd);
    }
}

TEST(TrimSplitMove, AnOutPointPastTheFileLandsOnItsEndAlsoWhenReversed) {
    Project p;
    Clip c = trimmedClip(0, 0, 4, 10);
    c.isReversed = true;
    c.reversedURL = "/tmp/r.mov";
    p.setClips({c});
    p.setOut(c.id, 30);
    EXPECT_EQ(p.clip(c.id)->outSeconds, 10);
}

TEST(TrimSplitMove, AMoveBeforeZeroLandsOnZeroAndMovesNoOtherClip) {
    Project p;
    Clip a = clipAt(3, 2);
    Clip b = clipAt(4, 2);
    p.setClips({a, b});
    p.moveClip(a.id, -2);
    EXPECT_EQ(p.clip(a.id)->startOnTimeline, 0);
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 4);
    p.moveClip(a.id, 7.5);
    EXPECT_EQ(p.clip(a.id)->startOnTimeline, 7.5);
}

TEST(TrimSplitMove, LiveWritesMarkTheDocumentButRecordAndRaiseNothing) {
    Project p;
    Clip c = trimmedClip(0, 1, 5);
    p.setClips({c});
    Recorder r(p);
    p.setIn(c.id, 2);
    p.setOut(c.id, 4);
    p.moveClip(c.id, 1);
    EXPECT_EQ(r.didChangeCalls, 3);
    EXPECT_EQ(r.count(ProjectField::clips), 3u);
    EXPECT_EQ(p.compositionToken(), 0);
    EXPECT_FALSE(p.canUndo());
}

TEST(TrimSplitMove, LiveWritesToAnUnknownClipDoNothing) {
    Project p;
    p.setClips({clipAt(0, 2)});
    Recorder r(p);
    Uuid unknown = Uuid::random();
    p.setIn(unknown, 1);
    p.setOut(unknown, 1);
    p.moveClip(unknown, 1);
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_TRUE(r.fields.empty());
}

// In and out at the playhead.

TEST(TrimSplitMove, InAndOutAtPlayheadTrimRecordAndCommitAlsoOnTheClipsExactEdges) {
    struct Case {
        const char* name;
        double out;
        double playhead;
        bool in;
        double expectedIn, expectedOut, expectedStart, expectedPlayhead;
    };
    const std::vector<Case> cases = {
        {"in inside the clip", 9, 5, true, 4, 9, 5, 5},
        {"in on the exact start", 5, 2, true, 1, 5, 2, 2},
        {"out on the exact end, where commitEdit clamps", 5, 6, false, 1, 5, 2, 5.999},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        Project p;
        Clip c = trimmedClip(2, 1, k.out);
        p.setClips({c});
        p.setSelectedClipID(c.id);
        p.setPlayheadGlobal(k.playhead);
        if (k.in)
            p.setInAtPlayhead();
        else
            p.setOutAtPlayhead();
        EXPECT_EQ(p.undoName(), k.in ? "Set In" : "Set Out");
        EXPECT_EQ(p.compositionToken(), 1);
        Clip expected = c;
        expected.inSeconds = k.expectedIn;
        expected.outSeconds = k.expectedOut;
        expected.startOnTimeline = k.expectedStart;
        EXPECT_EQ(*p.clip(c.id), expected);
        EXPECT_DOUBLE_EQ(p.playheadGlobal(), k.expectedPlayhead);
    }
}

TEST(TrimSplitMove, AtDoubleSpeedInAndOutAtPlayheadUseTheMappedSourceTime) {
    Project p;
    Clip c = trimmedClip(2, 1, 11);
    c.rateMultiplier = 2;
    p.setClips({c});
    p.setSelectedClipID(c.id);
    p.setPlayheadGlobal(4);
    p.setOutAtPlayhead();
    EXPECT_EQ(p.clip(c.id)->outSeconds, 5);
    p.setPlayheadGlobal(3);
    p.setInAtPlayhead();
    EXPECT_EQ(p.clip(c.id)->inSeconds, 3);
    EXPECT_EQ(p.clip(c.id)->startOnTimeline, 3) << "the left edge lands on the playhead";
    EXPECT_EQ(p.clip(c.id)->timelineEnd(), 4);
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
    EXPECT_FALSE(p.canUndo()) << "the selection names no clip";
    EXPECT_EQ(p.compositionToken(), 0);
}

// Nudges.

TEST(TrimSplitMove, ANudgedClipStepsByItsOwnFrames) {
    Project p;
    Clip slow = clipAt(1, 4);
    slow.frameRate = 25;
    Clip fast = clipAt(1, 4);
    fast.frameRate = 60;
    p.setClips({slow, fast});
    p.setPlayheadGlobal(2);
    p.setSelectedClipID(slow.id);
    Recorder r(p);
    p.nudgeSelectedClipByFrames(5);
    EXPECT_DOUBLE_EQ(p.clip(slow.id)->startOnTimeline, 1.2);
    EXPECT_EQ(p.undoName(), "Nudge Clip");
    EXPECT_EQ(p.compositionToken(), 1);
    EXPECT_EQ(r.didChangeCalls, 2) << "once before the write, once with the token";
}

TEST(TrimSplitMove, ANudgeOfAClipWithoutFrameRateStepsThirtiethsAndStopsAtZero) {
    Project p;
    Clip audio = clipAt(0.05, 4, false, true);
    p.setClips({audio});
    p.setSelectedClipID(audio.id);
    p.nudgeSelectedClipByFrames(3);
    EXPECT_DOUBLE_EQ(p.clip(audio.id)->startOnTimeline, 0.15);
    p.nudgeSelectedClipByFrames(-30);
    EXPECT_EQ(p.clip(audio.id)->startOnTimeline, 0);
}

TEST(TrimSplitMove, ANudgeMovesOnlyTheClipStandingForTheSelection) {
    Project p;
    Clip a = clipAt(0, 4);
    Clip b = clipAt(4, 4);
    p.setClips({a, b});
    p.toggleSelection(a.id);
    p.toggleSelection(b.id);
    p.nudgeSelectedClipByFrames(25);
    EXPECT_EQ(p.clip(a.id)->startOnTimeline, 0);
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 5);
}

TEST(TrimSplitMove, ANudgeDoesNotClampThePlayhead) {
    Project p;
    Clip c = clipAt(0, 4);
    p.setClips({c});
    p.setSelectedClipID(c.id);
    p.setPlayheadGlobal(4);
    p.nudgeSelectedClipByFrames(-25);
    EXPECT_EQ(p.playheadGlobal(), 4);
}

TEST(TrimSplitMove, ANudgeNeedsAFoundSelectedClipAndNoSheet) {
    Project p;
    Clip c = clipAt(0, 4);
    p.setClips({c});
    p.nudgeSelectedClipByFrames(1);
    p.setSelectedClipID(Uuid::random());
    p.nudgeSelectedClipByFrames(1);
    p.setSelectedClipID(c.id);
    p.setShowRetimeSheet(true);
    p.nudgeSelectedClipByFrames(1);
    EXPECT_FALSE(p.canUndo());
    EXPECT_EQ(p.clip(c.id)->startOnTimeline, 0);
}

TEST(TrimSplitMove, APlayheadNudgePastTheEndStopsOnItAndTheNextClampPullsItBack) {
    Project p;
    Clip c = clipAt(0, 4);
    c.frameRate = 25;
    p.setClips({c});
    p.setSelectedClipID(c.id);
    p.setPlayheadGlobal(3.9);
    Recorder r(p);
    p.nudgePlayheadByFrames(10);
    EXPECT_EQ(p.playheadGlobal(), 4);
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_FALSE(p.canUndo());
    p.nudgePlayheadByFrames(-1000);
    EXPECT_EQ(p.playheadGlobal(), 0);

    p.setPlayheadGlobal(4);
    p.recordSnapshot("Trim Out");
    p.commitEdit();
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 3.999);
}

TEST(TrimSplitMove, APlayheadNudgeStepsByTheFrameRateAtThePlayhead) {
    Project p;
    Clip c = clipAt(0, 4);
    c.frameRate = 50;
    p.setClips({c});
    p.setPlayheadGlobal(1);
    p.nudgePlayheadByFrames(5);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 1.1);
    p.setShowCropSheet(true);
    p.nudgePlayheadByFrames(5);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 1.1);
}

// Playback and zoom.

TEST(TrimSplitMove, PlayingRewindsOnlyFromWithinAHundredthOfTheEnd) {
    Project p;
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
}

TEST(TrimSplitMove, PlaybackNeedsClipsAndNoSheet) {
    Project p;
    p.togglePlayback();
    EXPECT_FALSE(p.isPlaying());
    p.setClips({clipAt(0, 4)});
    p.setExportSheet(model::ExportSheetState{Uuid::random()});
    p.togglePlayback();
    EXPECT_FALSE(p.isPlaying());
}

TEST(TrimSplitMove, ZoomIsHeldBetweenAQuarterAndTwelve) {
    Project p;
    Recorder r(p);
    p.setZoom(100);
    EXPECT_EQ(p.zoomFactor(), 12.0);
    p.setZoom(0.01);
    EXPECT_EQ(p.zoomFactor(), 0.25);
    p.setZoom(3);
    EXPECT_EQ(p.zoomFactor(), 3);
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_FALSE(p.canUndo());
}

// Delete.

TEST(TrimSplitMove, DeletingPassesTheSelectionOnByStackingOrder) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(10, 2);
    Clip c = clipAt(2, 2);
    p.setClips({a, b, c});
    p.setSelectedClipID(b.id);
    p.deleteSelected();
    EXPECT_EQ(p.clips(), (std::vector<Clip>{a, c}));
    EXPECT_EQ(p.selectedClipID(), c.id);
    EXPECT_EQ(p.undoName(), "Delete Clip");
    EXPECT_EQ(p.compositionToken(), 1);
}

TEST(TrimSplitMove, DeletingTheLastClipOfTheArraySelectsTheNewLast) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(2, 2);
    p.setClips({a, b});
    p.setSelectedClipID(b.id);
    p.deleteSelected();
    EXPECT_EQ(p.selectedClipID(), a.id);
    p.deleteSelected();
    EXPECT_TRUE(p.clips().empty());
    EXPECT_EQ(p.selectedClipID(), std::nullopt);
    EXPECT_EQ(p.playheadGlobal(), 0);
}

TEST(TrimSplitMove, DeletingSeveralClipsLeavesTheirPlacesEmptyAndClampsThePlayhead) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(2, 2);
    Clip c = clipAt(4, 2);
    Clip d = clipAt(6, 2);
    p.setClips({a, b, c, d});
    p.toggleSelection(b.id);
    p.toggleSelection(d.id);
    p.setPlayheadGlobal(7);
    p.deleteSelected();
    EXPECT_EQ(p.undoName(), "Delete Clips");
    EXPECT_EQ(p.clips(), (std::vector<Clip>{a, c}));
    EXPECT_EQ(p.selectedClipID(), c.id) << "the clip now at the first deleted index";
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 5.999);
    EXPECT_EQ(p.gaps(false), (std::vector<GapSelection>{{false, 2, 4}}));
}

TEST(TrimSplitMove, ASelectionOfUnknownIDsStillRecordsAndHandsTheSelectionToTheFirstClip) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(2, 2);
    p.setClips({a, b});
    p.setSelectedClipID(Uuid::random());
    p.deleteSelected();
    EXPECT_EQ(p.undoName(), "Delete Clip");
    EXPECT_EQ(p.clips().size(), 2u);
    EXPECT_EQ(p.selectedClipID(), a.id);
}

TEST(TrimSplitMove, DeleteNeedsASelectionAndNoSheet) {
    Project p;
    Clip a = clipAt(0, 2);
    p.setClips({a});
    p.deleteSelected();
    EXPECT_FALSE(p.canUndo());
    p.setSelectedClipID(a.id);
    p.setShowRetimeSheet(true);
    p.deleteSelected();
    EXPECT_FALSE(p.canUndo());
    EXPECT_EQ(p.clips().size(), 1u);
}

TEST(TrimSplitMove, ADeleteWithoutANameRecordsNothingItself) {
    Project p;
    Clip a = clipAt(0, 2);
    p.setClips({a});
    p.setSelectedClipID(a.id);
    p.recordSnapshot("Cut");
    p.deleteSelected(std::nullopt);
    EXPECT_TRUE(p.clips().empty());
    EXPECT_EQ(p.undoCount(), 1u);
    EXPECT_EQ(p.undoName(), "Cut");
    p.undo();
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});
}

TEST(TrimSplitMove, DeletingWithAGapSelectedCollapsesItAndRemovesNoClip) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(5, 2);
    p.setClips({a, b});
    p.selectGap({false, 2, 5});
    p.deleteSelected();
    EXPECT_EQ(p.undoName(), "Collapse Gap");
    EXPECT_EQ(p.clips().size(), 2u);
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 2);
    EXPECT_EQ(p.selectedGap(), std::nullopt);
}

// Collapse of a gap.

TEST(TrimSplitMove, ACollapseMovesEveryLaterClipOfTheRowWithinATenThousandth) {
    Project p;
    Clip before = clipAt(0, 2);
    Clip justBefore = clipAt(4.99995, 1);
    Clip stays = clipAt(4.999, 1);
    Clip later = clipAt(9, 1);
    p.setClips({before, justBefore, stays, later});
    p.selectGap({false, 2, 5});
    p.collapseSelectedGap();
    EXPECT_EQ(p.clip(before.id)->startOnTimeline, 0);
    EXPECT_DOUBLE_EQ(p.clip(justBefore.id)->startOnTimeline, 1.99995);
    EXPECT_EQ(p.clip(stays.id)->startOnTimeline, 4.999);
    EXPECT_EQ(p.clip(later.id)->startOnTimeline, 6);
    EXPECT_EQ(p.compositionToken(), 1);
}

TEST(TrimSplitMove, ACollapseLeavesClipsOfTheOtherRowAloneButMovesClipsOnBoth) {
    Project p;
    Clip audioOnly = clipAt(6, 2, false, true);
    Clip videoOnly = clipAt(6, 2, true, false);
    Clip both = clipAt(8, 2);
    p.setClips({clipAt(0, 1), audioOnly, videoOnly, both});
    p.selectGap({true, 1, 6});
    p.collapseSelectedGap();
    EXPECT_EQ(p.clip(audioOnly.id)->startOnTimeline, 1);
    EXPECT_EQ(p.clip(videoOnly.id)->startOnTimeline, 6);
    EXPECT_EQ(p.clip(both.id)->startOnTimeline, 3);
}

TEST(TrimSplitMove, ACollapseWorksFromTheStoredTimesAndClampsThePlayhead) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(5, 2);
    p.setClips({a, b});
    p.selectGap({false, 2, 5});
    p.moveClip(b.id, 6);  // the stored gap no longer matches the timeline
    p.setPlayheadGlobal(8);
    p.collapseSelectedGap();
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 3);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4.999);
}

TEST(TrimSplitMove, AnInvertedGapHasWidthZero) {
    Project p;
    Clip b = clipAt(5, 2);
    p.setClips({clipAt(0, 2), b});
    p.selectGap({false, 5, 2});
    p.collapseSelectedGap();
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 5);
    EXPECT_EQ(p.undoName(), "Collapse Gap");
}

TEST(TrimSplitMove, ACollapseWithoutAGapDoesNothing) {
    Project p;
    p.setClips({clipAt(0, 2), clipAt(5, 2)});
    Recorder r(p);
    p.collapseSelectedGap();
    EXPECT_TRUE(r.fields.empty());
    EXPECT_FALSE(p.canUndo());
}

// Split: the right half is a new record that the probe makes.

class TrimSplitMoveTest : public model_test::MediaProjectTest {};

TEST_F(TrimSplitMoveTest, ASplitCutsAtThePlayheadAndStacksTheRightHalfAboveTheLeft) {
    Clip other = liveClip("/m/other.mov", 3, 20);
    Clip c = liveClip("/m/a.mov", 10, 2);
    c.inSeconds = 1;
    c.outSeconds = 9;
    c.waveformPeaks = std::make_shared<const std::vector<float>>(std::vector<float>{0.5f});
    c.waveform = std::make_shared<const model::ImageData>();
    c.filmstrip = {std::make_shared<const model::ImageData>()};
    project.setClips({c, other});
    project.setSelectedClipID(c.id);
    project.setPlayheadGlobal(5);

    project.splitAtPlayhead();
    EXPECT_EQ(project.undoName(), "Split");
    EXPECT_EQ(project.clips().size(), 2u) << "nothing changes before the probe lands";
    EXPECT_EQ(project.compositionToken(), 0);
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    const Clip& left = clips[0];
    const Clip& right = clips[1];
    EXPECT_EQ(clips[2], other);
    EXPECT_EQ(left.id, c.id);
    EXPECT_EQ(left.inSeconds, 1);
    EXPECT_EQ(left.outSeconds, 4);
    EXPECT_EQ(left.startOnTimeline, 2);
    EXPECT_NE(right.id, c.id);
    EXPECT_EQ(right.url, c.url);
    EXPECT_EQ(right.bookmark, c.bookmark);
    EXPECT_EQ(right.inSeconds, 4);
    EXPECT_EQ(right.outSeconds, 9);
    EXPECT_EQ(right.startOnTimeline, 5);
    EXPECT_EQ(right.filmstrip, c.filmstrip);
    EXPECT_EQ(right.waveform, c.waveform);
    EXPECT_EQ(right.waveformPeaks, c.waveformPeaks) << "shared, not made anew";
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});
    EXPECT_EQ(project.playheadGlobal(), 5);
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
    const Clip& left = project.clips()[0];
    const Clip& right = project.clips()[1];
    EXPECT_EQ(left.outSeconds, 8);
    EXPECT_DOUBLE_EQ(left.timelineEnd(), 5);
    EXPECT_EQ(right.inSeconds, 8);
    EXPECT_EQ(right.rateMultiplier, 2);
    EXPECT_DOUBLE_EQ(right.startOnTimeline, 5);
    EXPECT_DOUBLE_EQ(right.timelineEnd(), c.timelineEnd());
}

TEST_F(TrimSplitMoveTest, TheRightHalfTakesTheMaskGroupAndRenderButNotTheForwardStretch) {
    Clip c = liveClip("/m/a.mov", 20, 0);
    Uuid group = Uuid::random();
    c.streamMask = StreamMask::videoOnly;
    c.linkGroupID = group;
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-a.mov";
    c.forwardInSeconds = 3;
    c.forwardOutSeconds = 9;
    c.inSeconds = 0;
    c.outSeconds = 6;
    Clip partner = c;
    partner.id = Uuid::random();
    partner.streamMask = StreamMask::audioOnly;
    project.setClips({c, partner});
    project.setSelectedClipID(c.id);
    project.setPlayheadGlobal(2);
    project.splitAtPlayhead();
    executor.drain();

    ASSERT_EQ(project.clips().size(), 3u);
    const Clip& left = project.clips()[0];
    const Clip& right = project.clips()[1];
    EXPECT_EQ(left.forwardInSeconds, 3);
    EXPECT_EQ(left.forwardOutSeconds, 9);
    EXPECT_EQ(left.reversedURL, c.reversedURL);
    EXPECT_EQ(right.streamMask, StreamMask::videoOnly);
    EXPECT_EQ(right.linkGroupID, group);
    EXPECT_TRUE(right.isReversed);
    EXPECT_EQ(right.reversedURL, c.reversedURL);
    EXPECT_EQ(right.forwardInSeconds, std::nullopt);
    EXPECT_EQ(right.forwardOutSeconds, std::nullopt);

    auto undoCount = project.undoCount();
    project.toggleLinkAV(left.id);
    EXPECT_EQ(project.undoCount(), undoCount) << "three members: the group can't be relinked";
}

TEST_F(TrimSplitMoveTest, ASplitCloserThanTheSmallestLengthToAnEdgeDoesNothing) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    c.inSeconds = 1;
    c.outSeconds = 9;
    project.setClips({c});
    Recorder r(project);
    project.setPlayheadGlobal(0.04);
    project.splitAtPlayhead();
    project.setPlayheadGlobal(7.96);
    project.splitAtPlayhead();
    executor.drain();
    EXPECT_FALSE(project.canUndo());
    EXPECT_EQ(media->probeCount(), 1) << "only the one that made the test clip";
    EXPECT_EQ(project.clips().size(), 1u);
    EXPECT_EQ(r.didChangeCalls, 0);
}

TEST_F(TrimSplitMoveTest, ASelectedClipAwayFromThePlayheadGivesWayToTheTopClipThere) {
    Clip selected = liveClip("/m/a.mov", 4, 0);
    Clip bottom = liveClip("/m/b.mov", 10, 3);
    Clip top = liveClip("/m/c.mov", 10, 4);
    project.setClips({selected, bottom, top});
    project.setSelectedClipID(selected.id);
    project.setPlayheadGlobal(6);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 4u);
    EXPECT_EQ(project.clips()[2].id, top.id);
    EXPECT_EQ(project.clips()[2].outSeconds, 2);
    EXPECT_EQ(project.clips()[3].url, top.url);
    EXPECT_EQ(project.selectedClipID(), selected.id);
}

TEST_F(TrimSplitMoveTest, ASelectedClipEndingAtThePlayheadIsNotTheTarget) {
    Clip selected = liveClip("/m/a.mov", 4, 0);
    Clip next = liveClip("/m/b.mov", 4, 2);
    project.setClips({next, selected});
    project.setSelectedClipID(selected.id);
    project.setPlayheadGlobal(4);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(project.clips()[0].id, next.id);
    EXPECT_EQ(project.clips()[0].outSeconds, 2);
    EXPECT_EQ(project.clip(selected.id)->outSeconds, 4);
}

TEST_F(TrimSplitMoveTest, ASplitNeedsAClipAtThePlayheadAndNoSheet) {
    Clip c = liveClip("/m/a.mov", 4, 1);
    project.setClips({c});
    project.setPlayheadGlobal(0.5);
    project.splitAtPlayhead();
    project.setPlayheadGlobal(2);
    project.setShowCropSheet(true);
    project.splitAtPlayhead();
    executor.drain();
    EXPECT_FALSE(project.canUndo());
    EXPECT_EQ(project.clips().size(), 1u);
}

TEST_F(TrimSplitMoveTest, AFailedProbeLeavesTheTimelineAndAnEntryWhoseUndoChangesNothing) {
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 6, 0});
    project.setClips({placeholder});
    project.setPlayheadGlobal(3);
    project.splitAtPlayhead();
    executor.drain();
    EXPECT_EQ(project.clips(), std::vector<Clip>{placeholder});
    EXPECT_EQ(project.undoName(), "Split");
    EXPECT_EQ(project.compositionToken(), 0);
    project.undo();
    EXPECT_EQ(project.clips(), std::vector<Clip>{placeholder});
}

TEST_F(TrimSplitMoveTest, AnEditOfTheClipDuringTheProbeWinsOverTheSplit) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    project.setClips({c});
    project.setPlayheadGlobal(5);
    media->holdProbes();
    project.splitAtPlayhead();
    media->waitForProbes(2);
    project.recordSnapshot("Trim In");
    project.setIn(c.id, 1);
    project.commitEdit();
    media->releaseProbes();
    executor.drain();

    ASSERT_EQ(project.clips().size(), 1u);
    EXPECT_EQ(project.clips()[0].inSeconds, 1);
    EXPECT_EQ(project.clips()[0].outSeconds, 10);
    project.undo();
    EXPECT_EQ(project.undoName(), "Split") << "the split's entry stays";
}

TEST_F(TrimSplitMoveTest, AnEditOfAnotherClipDuringTheProbeLetsTheSplitLand) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    Clip other = liveClip("/m/b.mov", 10, 20);
    project.setClips({c, other});
    project.setPlayheadGlobal(5);
    project.splitAtPlayhead();
    project.moveClip(other.id, 30);
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(project.clip(other.id)->startOnTimeline, 30);
}

TEST_F(TrimSplitMoveTest, AClipDeletedDuringTheProbeIsNotBroughtBack) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    project.setClips({c});
    project.setPlayheadGlobal(5);
    project.setSelectedClipID(c.id);
    project.splitAtPlayhead();
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(project.compositionToken(), token);
}

TEST_F(TrimSplitMoveTest, UndoingALandedSplitGivesBackTheWholeClip) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    project.setClips({c});
    project.setPlayheadGlobal(5);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    project.undo();
    EXPECT_EQ(project.clips(), std::vector<Clip>{c});
    project.redo();
    EXPECT_EQ(project.clips().size(), 2u);
}

}  // namespace
