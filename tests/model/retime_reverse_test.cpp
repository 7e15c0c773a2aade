#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::Project;
using model::VantrellSnapshotClip;
using model_test::clipAt;
using model_test::lastStep;
using model_test::place;
using model_test::Placement;
using model_test::placement;
using model_test::Step;

const std::filesystem::path kRendered = "/tmp/vantrell-reversed-1.mov";

// Runs `f` with its log lines swallowed.
void quietly(const std::function<void()>& f) {
    testing::internal::CaptureStderr();
    f();
    testing::internal::GetCapturedStderr();
}

// Retime.

TEST(RetimeReverse, ARetimeNeedsASelectionAndWritesOnlyTheRateHeldBetweenATenthAndTen) {
    Project p;
    Clip a = clipAt(1, 4);
    a.inSeconds = 1;
    Clip b = clipAt(6, 4);
    Clip untouched = clipAt(12, 2);
    p.setClips({a, b, untouched});
    p.retimeSelected(2);
    testing::internal::CaptureStderr();
    p.reverseSelected();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[com.corvane.vantrell:reverse] reverseSelected: 0 clip(s)\n");
    EXPECT_EQ(lastStep(p), Step{}) << "nothing selected: neither records";

    p.setSelectedClipID(a.id);
    p.retimeSelected(1);
    EXPECT_EQ(lastStep(p), (Step{"Retime Clip", 1})) << "recorded even to the present rate";
    p.retimeSelected(50);
    EXPECT_EQ(p.clip(a.id)->rateMultiplier, 10.0);
    p.retimeSelected(0.01);
    EXPECT_EQ(p.clip(a.id)->rateMultiplier, 0.1);
    p.toggleSelection(b.id);
    p.toggleSelection(Uuid::random());
    p.retimeSelected(2);
    EXPECT_EQ(lastStep(p), (Step{"Retime Clips", 4}));
    EXPECT_EQ(p.clip(a.id)->rateMultiplier, 2);
    EXPECT_EQ(p.clip(b.id)->rateMultiplier, 2);
    EXPECT_EQ(p.clip(untouched.id)->rateMultiplier, 1);
    EXPECT_EQ(placement(*p.clip(a.id)), (Placement{1, 4, 1}));
}

TEST(RetimeReverse, AFasterClipLeavesAGapAndThePlayheadIsClamped) {
    Project p;
    Clip c = clipAt(0, 8);
    Clip after = clipAt(8, 2);
    place(p, {c, after}, after.id);
    p.setPlayheadGlobal(9.5);
    p.retimeSelected(4);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 8.499);
    p.setSelectedClipID(c.id);
    p.retimeSelected(2);
    EXPECT_EQ(p.clip(after.id)->startOnTimeline, 8) << "no ripple";
    EXPECT_EQ(p.gaps(false).size(), 1u);
}

TEST(RetimeReverse, TheSelectionHasACommonRateWithinATenThousandthAndIsReversedIfAllAre) {
    Project p;
    Clip a = clipAt(0, 1);
    Clip b = clipAt(1, 1);
    b.rateMultiplier = 1.00005;
    b.isReversed = true;
    p.setClips({b, a});
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt) << "nothing selected";
    EXPECT_FALSE(p.allSelectedReversed());
    p.setSelectedClipID(Uuid::random());
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt);
    EXPECT_TRUE(p.allSelectedReversed()) << "a selection naming no clip";
    p.toggleSelection(b.id);
    EXPECT_TRUE(p.allSelectedReversed());
    p.toggleSelection(a.id);
    EXPECT_FALSE(p.allSelectedReversed());
    EXPECT_EQ(p.commonRateOfSelection(), 1.00005) << "the first in array order";
    for (double apart : {1.0002, 0.9998}) {
        p.updateClip(b.id, [&](Clip& c) { c.rateMultiplier = apart; });
        EXPECT_EQ(p.commonRateOfSelection(), std::nullopt) << apart;
    }
}

TEST(RetimeReverse, TurningAReversedClipForwardRestoresItsStretchAndStartsNothing) {
    Project p;  // no media context: a clip turned forward needs no render
    Clip rendered = clipAt(3, 10);
    rendered.isReversed = true;
    rendered.reversedURL = "/tmp/vantrell-reversed-c.mov";
    rendered.forwardInSeconds = 2;
    rendered.forwardOutSeconds = 6;
    rendered.inSeconds = 0.5;  // a trim made while reversed, in the render's time
    rendered.outSeconds = 4;
    Clip rightHalf = clipAt(20, 10);  // split off: no forward stretch of its own
    rightHalf.isReversed = true;
    rightHalf.reversedURL = "/tmp/vantrell-reversed-c.mov";
    rightHalf.inSeconds = 1;
    rightHalf.outSeconds = 3;
    p.setClips({rendered, rightHalf});
    p.toggleSelection(rendered.id);
    p.toggleSelection(rightHalf.id);
    p.setPlayheadGlobal(50);
    quietly([&] { p.reverseSelected(); });

    for (const Clip* now : {p.clip(rendered.id), p.clip(rightHalf.id)}) {
        EXPECT_FALSE(now->isReversed);
        EXPECT_FALSE(now->forwardInSeconds || now->forwardOutSeconds || now->reversedURL);
    }
    EXPECT_EQ(placement(*p.clip(rendered.id)), (Placement{2, 6, 3}));
    EXPECT_EQ(placement(*p.clip(rightHalf.id)), (Placement{1, 3, 20})) << "the same numbers";
    EXPECT_EQ(lastStep(p), (Step{"Reverse Clips", 1}));
    EXPECT_EQ(p.playheadGlobal(), 50) << "no clamp";

    p.undo();
    EXPECT_EQ(p.clips(), (std::vector<Clip>{rendered, rightHalf}))
        << "the render comes back with the undo";
}

// Reverse with its render.

class RetimeReverseTest : public model_test::MediaProjectTest {
  protected:
    RetimeReverseTest() { media->setRenderResult(kRendered); }

    Clip forwardClip() {
        Clip c = liveClip("/m/walk.mov", 10, 2);
        c.inSeconds = 1;
        c.outSeconds = 5;
        return c;
    }

    // A forward clip, alone on the timeline and selected.
    Clip selectedForwardClip() {
        Clip c = forwardClip();
        place(project, {c}, c.id);
        return c;
    }

    void expectOneRender(double from, double to) {
        auto calls = media->renderCalls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].url, "/m/walk.mov");
        EXPECT_EQ(calls[0].fromSeconds, from);
        EXPECT_EQ(calls[0].toSeconds, to);
    }
};

constexpr const char* kDispatchLog =
    "[com.corvane.vantrell:reverse] reverseSelected: 1 clip(s)\n"
    "[com.corvane.vantrell:reverse] renderReversedAsync dispatched for walk.mov "
    "range=[1.000000..5.000000]\n";

TEST_F(RetimeReverseTest, TurningAClipBackwardKeepsItsStretchUntilTheRenderLands) {
    Clip c = selectedForwardClip();
    testing::internal::CaptureStderr();
    project.reverseSelected();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kDispatchLog);

    const Clip& flipped = *project.clip(c.id);
    EXPECT_TRUE(flipped.isReversed);
    EXPECT_EQ(flipped.forwardInSeconds, 1);
    EXPECT_EQ(flipped.forwardOutSeconds, 5);
    EXPECT_EQ(placement(flipped), (Placement{1, 5, 2}));
    EXPECT_EQ(flipped.reversedURL, std::nullopt);
    EXPECT_EQ(lastStep(project), (Step{"Reverse Clip", 1}));

    executor.drain();
    const Clip& rendered = *project.clip(c.id);
    EXPECT_EQ(rendered.reversedURL, kRendered);
    EXPECT_EQ(placement(rendered), (Placement{0, 4, 2}));
    EXPECT_EQ(rendered.forwardInSeconds, 1);
    EXPECT_EQ(project.compositionToken(), 2);
    EXPECT_EQ(project.undoCount(), 1u) << "the render records no history";
    expectOneRender(1, 5);
}

TEST_F(RetimeReverseTest, AFailedRenderLeavesTheClipReversedOnItsForwardMedia) {
    media->setRenderResult(std::nullopt);
    Clip c = selectedForwardClip();
    // One capture for both: the render may answer before reverseSelected returns.
    testing::internal::CaptureStderr();
    project.reverseSelected();
    executor.drain();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string(kDispatchLog) +
                  "[com.corvane.vantrell:reverse] error: renderReversedMedia returned nil\n");
    const Clip& now = *project.clip(c.id);
    EXPECT_TRUE(now.isReversed);
    EXPECT_EQ(now.reversedURL, std::nullopt);
    EXPECT_EQ(placement(now), (Placement{1, 5, 2}));
    EXPECT_EQ(project.compositionToken(), 1);
}

TEST_F(RetimeReverseTest, ALateRenderLandsOnlyOnTheClipStillReversedOverTheSameStretch) {
    Clip c = selectedForwardClip();
    quietly([&] {
        project.reverseSelected();
        project.reverseSelected();
    });
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_EQ(*project.clip(c.id), c) << "reversed twice: the forward clip back";
    EXPECT_EQ(lastStep(project), (Step{"Reverse Clip", token}));
    EXPECT_EQ(project.undoCount(), 2u);

    quietly([&] { project.reverseSelected(); });
    project.undo();
    executor.drain();
    EXPECT_EQ(*project.clip(c.id), c) << "undone";

    quietly([&] { project.reverseSelected(); });
    project.undo();
    project.redo();
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->reversedURL, kRendered) << "reversed again by redo";
    EXPECT_EQ(project.clip(c.id)->outSeconds, 4);
}

TEST_F(RetimeReverseTest, ATrimWhileTheRenderRunsIsReplacedByTheWholeStretch) {
    Clip c = selectedForwardClip();
    quietly([&] { project.reverseSelected(); });
    project.setOut(c.id, 3);
    executor.drain();
    EXPECT_EQ(placement(*project.clip(c.id)), (Placement{0, 4, 2}));
}

TEST_F(RetimeReverseTest, AClipDeletedDuringItsRenderIsNotBroughtBack) {
    selectedForwardClip();
    quietly([&] { project.reverseSelected(); });
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(project.compositionToken(), token);
    EXPECT_EQ(media->renderCalls().size(), 1u) << "the render ran to its end";
}

TEST_F(RetimeReverseTest, AMixedSelectionFlipsEachClipAndRendersOnlyTheNewlyReversed) {
    Clip forward = forwardClip();
    Clip reversed = liveClip("/m/run.mov", 10, 20);
    reversed.isReversed = true;
    reversed.reversedURL = "/tmp/vantrell-reversed-0.mov";
    reversed.forwardInSeconds = 3;
    reversed.forwardOutSeconds = 7;
    reversed.outSeconds = 4;
    project.setClips({forward, reversed});
    project.toggleSelection(forward.id);
    project.toggleSelection(reversed.id);
    EXPECT_FALSE(project.allSelectedReversed());
    quietly([&] { project.reverseSelected(); });
    EXPECT_EQ(project.undoName(), "Reverse Clips");
    EXPECT_TRUE(project.clip(forward.id)->isReversed);
    EXPECT_FALSE(project.clip(reversed.id)->isReversed);
    EXPECT_EQ(placement(*project.clip(reversed.id)), (Placement{3, 7, 20}));
    executor.drain();
    expectOneRender(1, 5);
}

TEST_F(RetimeReverseTest, WithoutAForwardStretchTheRenderTakesTheInAndOutPoints) {
    Clip c = forwardClip();
    c.isReversed = true;  // as a right half split off before its render landed
    project.setClips({c});
    quietly([&] { project.renderReversedAsync(c.id); });
    executor.drain();
    expectOneRender(1, 5);
    EXPECT_EQ(project.clip(c.id)->outSeconds, 4);

    media->setRenderResult("/tmp/vantrell-reversed-late.mov");
    quietly([&] { project.renderReversedAsync(c.id); });
    project.setIn(c.id, 2);
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->reversedURL, kRendered) << "a trim meanwhile drops the render";
    EXPECT_EQ(project.clip(c.id)->inSeconds, 2);

    project.updateClip(c.id, [](Clip& w) {
        w.forwardInSeconds = 6;
        w.forwardOutSeconds = 4;
    });
    quietly([&] { project.renderReversedAsync(c.id); });
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->outSeconds, 0) << "an empty stretch lands with length zero";
}

TEST_F(RetimeReverseTest, HydrationRendersEachLiveReversedClipButNoPlaceholder) {
    media->add("/m/walk.mov", 10);
    media->add("/m/run.mov", 10);
    VantrellSnapshotClip reversed{Uuid::random(), "/m/walk.mov", {}, 2, 6, 0};
    reversed.isReversed = true;
    reversed.forwardInSeconds = 2;
    reversed.forwardOutSeconds = 6;
    VantrellSnapshotClip forward{Uuid::random(), "/m/run.mov", {}, 0, 3, 5};
    VantrellSnapshotClip missing{Uuid::random(), "/gone/x.mov", {}, 0, 3, 9};
    missing.isReversed = true;
    project.hydrateClips({reversed, forward, missing});
    drainCapturingLog();

    expectOneRender(2, 6);
    EXPECT_EQ(project.clip(reversed.id)->reversedURL, kRendered);
    EXPECT_EQ(project.clip(reversed.id)->outSeconds, 4);
    EXPECT_EQ(project.clip(missing.id)->reversedURL, std::nullopt);
    EXPECT_FALSE(project.canUndo());
}

}  // namespace
