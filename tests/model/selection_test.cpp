#include <optional>
#include <unordered_set>

#include <gtest/gtest.h>

#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::GapSelection;
using model::Project;
using model::StreamMask;
using model_test::clipAt;
using model_test::Recorder;

// Toggling.

TEST(Selection, AToggledClipJoinsTheSelectionAndStandsForIt) {
    Project p;
    Uuid a = Uuid::random();
    Uuid b = Uuid::random();
    p.toggleSelection(a);
    p.toggleSelection(b);
    EXPECT_EQ(p.selectedClipIDs(), (std::unordered_set<Uuid>{a, b}));
    EXPECT_EQ(p.selectedClipID(), b) << "the clip added last";
}

TEST(Selection, TogglingTheAnchorOutLeavesSomeRemainingMemberOrNothing) {
    Project p;
    Uuid a = Uuid::random();
    Uuid b = Uuid::random();
    p.toggleSelection(a);
    p.toggleSelection(b);
    p.toggleSelection(b);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{a});
    EXPECT_EQ(p.selectedClipID(), a);
    EXPECT_EQ(p.selectionAnchor(), a);
    p.toggleSelection(a);
    EXPECT_TRUE(p.selectedClipIDs().empty());
    EXPECT_EQ(p.selectedClipID(), std::nullopt);
    EXPECT_EQ(p.selectionAnchor(), std::nullopt);
}

TEST(Selection, TogglingANonAnchorKeepsTheAnchor) {
    Project p;
    Uuid a = Uuid::random();
    Uuid b = Uuid::random();
    Uuid c = Uuid::random();
    p.toggleSelection(a);
    p.toggleSelection(b);
    p.toggleSelection(c);
    p.toggleSelection(a);
    EXPECT_EQ(p.selectedClipID(), c);
}

TEST(Selection, AToggleClearsAGapAndAcceptsAnyID) {
    Project p;
    p.selectGap({false, 1, 2});
    Uuid nowhere = Uuid::random();
    p.toggleSelection(nowhere);
    EXPECT_EQ(p.selectedGap(), std::nullopt);
    EXPECT_EQ(p.selectedClipID(), nowhere);
}

// Clicking through a stack.

TEST(Selection, AClickOnALoneClipSelectsItAndAClickAgainChangesNothing) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(5, 2);
    p.setClips({a, b});
    p.cycleSelection(a.id, false);
    EXPECT_EQ(p.selectedClipID(), a.id);
    Recorder r(p);
    p.cycleSelection(a.id, false);
    EXPECT_EQ(p.selectedClipID(), a.id);
    EXPECT_TRUE(r.fields.empty());
}

TEST(Selection, ClicksOnAStackWalkDownFromTheTopAndWrap) {
    Project p;
    Clip a = clipAt(0, 4);
    Clip b = clipAt(0, 4);
    Clip c = clipAt(0, 4);
    p.setClips({a, b, c});
    p.cycleSelection(a.id, false);
    EXPECT_EQ(p.selectedClipID(), c.id) << "the first click takes the top, whatever was hit";
    p.cycleSelection(c.id, false);
    EXPECT_EQ(p.selectedClipID(), b.id);
    p.cycleSelection(b.id, false);
    EXPECT_EQ(p.selectedClipID(), a.id);
    p.cycleSelection(b.id, false);
    EXPECT_EQ(p.selectedClipID(), c.id);
}

TEST(Selection, TheWalkStartsFromTheSelectionNotFromThePointer) {
    Project p;
    Clip a = clipAt(0, 4);
    Clip b = clipAt(1, 4);
    Clip c = clipAt(2, 4);
    p.setClips({a, b, c});
    p.setSelectedClipID(b.id);
    p.cycleSelection(c.id, false);
    EXPECT_EQ(p.selectedClipID(), a.id);
}

TEST(Selection, ASelectionOutsideTheStackGoesToItsTop) {
    Project p;
    Clip a = clipAt(0, 4);
    Clip b = clipAt(1, 4);
    Clip far = clipAt(20, 1);
    p.setClips({a, b, far});
    p.setSelectedClipID(far.id);
    p.cycleSelection(a.id, false);
    EXPECT_EQ(p.selectedClipID(), b.id);
}

TEST(Selection, ClipsThatOnlyTouchFormNoStack) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(2, 2);
    p.setClips({a, b});
    p.cycleSelection(a.id, false);
    EXPECT_EQ(p.selectedClipID(), a.id);
    p.cycleSelection(b.id, false);
    EXPECT_EQ(p.selectedClipID(), b.id);
}

TEST(Selection, AStackIsJudgedPerRow) {
    Project p;
    Clip video = clipAt(0, 4);
    video.streamMask = StreamMask::videoOnly;
    Clip audio = clipAt(0, 4);
    audio.streamMask = StreamMask::audioOnly;
    p.setClips({video, audio});
    p.cycleSelection(video.id, false);
    EXPECT_EQ(p.selectedClipID(), video.id);
    p.cycleSelection(audio.id, true);
    EXPECT_EQ(p.selectedClipID(), audio.id);
    p.cycleSelection(audio.id, true);
    EXPECT_EQ(p.selectedClipID(), audio.id);
}

TEST(Selection, ClipsWithBothStreamsStackOnTheAudioRowToo) {
    Project p;
    Clip a = clipAt(0, 4);
    Clip b = clipAt(1, 4);
    p.setClips({a, b});
    p.cycleSelection(a.id, true);
    EXPECT_EQ(p.selectedClipID(), b.id);
}

TEST(Selection, AClickOnAZeroLengthClipAloneSelectsIt) {
    Project p;
    Clip empty = clipAt(3, 2);
    empty.inSeconds = 2;
    p.setClips({empty});
    p.cycleSelection(empty.id, false);
    EXPECT_EQ(p.selectedClipID(), empty.id);
}

TEST(Selection, AClickCollapsesAMultiSelectionToOneClip) {
    Project p;
    Clip a = clipAt(0, 4);
    Clip b = clipAt(1, 4);
    Clip far = clipAt(20, 1);
    p.setClips({a, b, far});
    p.toggleSelection(far.id);
    p.toggleSelection(a.id);
    p.cycleSelection(a.id, false);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{b.id});
}

TEST(Selection, AClickOnAnUnknownClipChangesNothing) {
    Project p;
    Clip a = clipAt(0, 4);
    p.setClips({a});
    p.setSelectedClipID(a.id);
    p.selectGap({false, 1, 2});
    Recorder r(p);
    p.cycleSelection(Uuid::random(), false);
    EXPECT_TRUE(r.fields.empty());
    EXPECT_EQ(p.selectedGap(), (GapSelection{false, 1, 2}));
}

// Gaps.

TEST(Selection, AGapTapLeavesNoClipSelectedAndALaterClickClearsTheGap) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(4, 2);
    p.setClips({a, b});
    p.toggleSelection(a.id);
    p.toggleSelection(b.id);
    GapSelection gap{false, 2, 4};
    p.selectGap(gap);
    EXPECT_TRUE(p.selectedClipIDs().empty());
    EXPECT_EQ(p.selectionAnchor(), std::nullopt);
    EXPECT_EQ(p.selectedGap(), gap);
    p.cycleSelection(b.id, false);
    EXPECT_EQ(p.selectedGap(), std::nullopt);
    EXPECT_EQ(p.selectedClipID(), b.id);
}

TEST(Selection, AGapTapMarksTheDocumentAndAClipSelectionDoesNot) {
    Project p;
    Clip a = clipAt(0, 2);
    Clip b = clipAt(4, 2);
    p.setClips({a, b});
    Recorder r(p);
    p.cycleSelection(a.id, false);
    p.toggleSelection(b.id);
    p.setSelectedClipID(std::nullopt);
    EXPECT_EQ(r.didChangeCalls, 0);
    p.selectGap({false, 2, 4});
    EXPECT_EQ(r.didChangeCalls, 1);
}

}  // namespace
