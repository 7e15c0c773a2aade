#include <optional>
#include <tuple>
#include <unordered_set>

#include <gtest/gtest.h>

#include "model/project.h"
#include "support/model_test_support.h"

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::GapSelection;
using model::Project;
using model::StreamMask;

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

// Clicks through stacks, each case from no selection unless it names one: clips by index,
// and each click as the clip hit, the row, and the clip then selected. The first click on a
// stack takes its top whatever was hit; each next one goes down, wrapping.
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
