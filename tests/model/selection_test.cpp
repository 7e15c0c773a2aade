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

Clip masked(Clip c, StreamMask mask) {
    c.streamMask = mask;
    return c;
}

// Clicks through stacks, each case from no selection unless it names one: clips by index,
// and each click as the clip hit, whether on the audio row, and the clip then selected.
TEST(Selection, ClicksWalkDownAStackOfOverlappingClipsOnTheClickedRow) {
    struct Click {
        std::size_t hit;
        bool audioRow;
        std::size_t selected;
    };
    struct Case {
        const char* name;
        std::vector<Clip> clips;
        std::optional<std::size_t> selected;
        std::vector<Click> clicks;
    };
    Clip zeroLength = clipAt(3, 2);
    zeroLength.inSeconds = 2;
    const std::vector<Case> cases = {
        {"from the top whatever was hit, then down, wrapping",
         {clipAt(0, 4), clipAt(0, 4), clipAt(0, 4)},
         std::nullopt,
         {{0, false, 2}, {2, false, 1}, {1, false, 0}, {1, false, 2}}},
        {"from the selection, not the pointer",
         {clipAt(0, 4), clipAt(1, 4), clipAt(2, 4)},
         1,
         {{2, false, 0}}},
        {"a selection outside the stack goes to its top",
         {clipAt(0, 4), clipAt(1, 4), clipAt(20, 1)},
         2,
         {{0, false, 1}}},
        {"clips that only touch form no stack",
         {clipAt(0, 2), clipAt(2, 2)},
         std::nullopt,
         {{0, false, 0}, {1, false, 1}}},
        {"a stack is judged per row",
         {masked(clipAt(0, 4), StreamMask::videoOnly), masked(clipAt(0, 4), StreamMask::audioOnly)},
         std::nullopt,
         {{0, false, 0}, {1, true, 1}, {1, true, 1}}},
        {"clips with both streams stack on the audio row too",
         {clipAt(0, 4), clipAt(1, 4)},
         std::nullopt,
         {{0, true, 1}}},
        {"a zero-length clip alone", {zeroLength}, std::nullopt, {{0, false, 0}}},
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
