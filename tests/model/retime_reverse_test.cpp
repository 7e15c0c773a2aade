#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "common/executor.h"
#include "model/project.h"
#include "support/fake_media_services.h"
#include "support/model_test_support.h"

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::Project;
using model::VantrellSnapshotClip;

const std::filesystem::path kRendered = "/tmp/vantrell-reversed-1.mov";

// Runs `f` with its log lines swallowed.
void quietly(const std::function<void()>& f) {
    testing::internal::CaptureStderr();
    f();
    testing::internal::GetCapturedStderr();
}

TEST(RetimeReverse, ARetimeWritesOnlyTheRateOfTheSelectionHeldBetweenATenthAndTenAndClamps) {
    Project p;
    Clip a = clipAt(0, 8), b = clipAt(8, 2), untouched = clipAt(12, 2);
    p.setClips({a, b, untouched});
    p.retimeSelected(2);
    EXPECT_EQ(lastStep(p), Step{}) << "nothing selected";
    p.setSelectedClipID(b.id);
    p.setPlayheadGlobal(20);
    p.retimeSelected(50);
    EXPECT_EQ(lastStep(p), (Step{"Retime Clip", 1}));
    EXPECT_EQ(p.clip(b.id)->rateMultiplier, 10.0);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 13.999);
    p.retimeSelected(0.01);
    EXPECT_EQ(p.clip(b.id)->rateMultiplier, 0.1);
    p.toggleSelection(a.id);
    p.retimeSelected(4);
    EXPECT_EQ(lastStep(p), (Step{"Retime Clips", 3}));
    EXPECT_EQ(p.clip(a.id)->rateMultiplier, 4);
    EXPECT_EQ(placement(*p.clip(a.id)), (Placement{0, 8, 0}));
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 8) << "no ripple";
    EXPECT_EQ(p.clip(untouched.id)->rateMultiplier, 1);
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
    p.toggleSelection(b.id);
    EXPECT_TRUE(p.allSelectedReversed());
    p.toggleSelection(a.id);
    EXPECT_FALSE(p.allSelectedReversed());
    EXPECT_EQ(p.commonRateOfSelection(), 1.00005) << "the first in array order";
    p.updateClip(b.id, [&](Clip& c) { c.rateMultiplier = 0.9998; });
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt);
}

// Runs background work only when told, and in the order the test chooses, so that a split
// can land while a render is still on its way.
class ManualExecutor final : public common::Executor {
  public:
    void runInBackground(std::function<void()> work) override {
        background_.push_back(std::move(work));
    }
    void postToOwner(std::function<void()> task) override { owner_.push_back(std::move(task)); }

    void runBackground(std::size_t index) {
        auto work = std::move(background_.at(index));
        background_.erase(background_.begin() + static_cast<std::ptrdiff_t>(index));
        work();
    }
    void runOwner() {
        while (!owner_.empty()) {
            auto task = std::move(owner_.front());
            owner_.pop_front();
            task();
        }
    }
    void runAll() {
        while (!background_.empty() || !owner_.empty()) {
            if (!background_.empty()) runBackground(0);
            runOwner();
        }
    }

  private:
    std::vector<std::function<void()>> background_;
    std::deque<std::function<void()>> owner_;
};

TEST(RetimeReverse, ASplitBeforeTheRenderLandsRendersEachHalfOverItsOwnStretch) {
    ManualExecutor executor;
    auto media = std::make_shared<FakeMediaServices>();
    media->add("/m/walk.mov", 10);
    media->setRenderResult(kRendered);
    model::Project project({&executor, media, nullptr});
    Clip c = media->probe("/m/walk.mov", std::nullopt, common::Uuid::random()).value();
    c.inSeconds = 1;
    c.outSeconds = 5;
    project.setClips({c});
    project.setSelectedClipID(c.id);

    testing::internal::CaptureStderr();
    project.reverseSelected();  // the render of 1...5 waits in the background
    project.setPlayheadGlobal(2);
    project.splitAtPlayhead();  // cuts at 3 once the right half's probe is back
    executor.runBackground(1);
    executor.runOwner();
    executor.runAll();
    testing::internal::GetCapturedStderr();

    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& left = project.clips()[0];
    const Clip& right = project.clips()[1];
    EXPECT_EQ(placement(left), (Placement{0, 2, 0})) << "not stretched over both halves";
    EXPECT_EQ(placement(right), (Placement{0, 2, 2}));
    EXPECT_EQ(std::tuple(left.forwardInSeconds, left.forwardOutSeconds, right.forwardInSeconds,
                         right.forwardOutSeconds),
              std::tuple(1, 3, 3, 5));
    EXPECT_TRUE(left.reversedURL && right.reversedURL) << "each half rendered";
    std::vector<std::pair<double, double>> ranges;
    for (const auto& call : media->renderCalls())
        ranges.emplace_back(call.fromSeconds, call.toSeconds);
    EXPECT_EQ(ranges, (std::vector<std::pair<double, double>>{{1, 5}, {1, 3}, {3, 5}}));
}

class RetimeReverseTest : public MediaProjectTest {
  protected:
    RetimeReverseTest() { media->setRenderResult(kRendered); }

    // A forward clip using 1..5 of its file at 2, alone on the timeline and selected.
    Clip selectedForwardClip() {
        Clip c = liveClip("/m/walk.mov", 10, 2);
        c.inSeconds = 1;
        c.outSeconds = 5;
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

TEST_F(RetimeReverseTest, TurningAClipBackwardKeepsItsStretchUntilTheRenderLandsAndForwardAgain) {
    Clip c = selectedForwardClip();
    testing::internal::CaptureStderr();
    project.reverseSelected();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[com.corvane.vantrell:reverse] reverseSelected: 1 clip(s)\n"
              "[com.corvane.vantrell:reverse] renderReversedAsync dispatched for walk.mov "
              "range=[1.000000..5.000000]\n");
    const Clip& flipped = *project.clip(c.id);
    EXPECT_TRUE(flipped.isReversed);
    EXPECT_EQ(placement(flipped), (Placement{1, 5, 2}));
    EXPECT_EQ(lastStep(project), (Step{"Reverse Clip", 1}));

    executor.drain();
    const Clip& rendered = *project.clip(c.id);
    EXPECT_EQ(rendered.reversedURL, kRendered);
    EXPECT_EQ(placement(rendered), (Placement{0, 4, 2}));
    EXPECT_EQ(rendered.forwardInSeconds, 1);
    EXPECT_EQ(rendered.forwardOutSeconds, 5);
    EXPECT_EQ(project.compositionToken(), 2);
    EXPECT_EQ(project.undoCount(), 1u) << "the render records no history";
    expectOneRender(1, 5);

    project.setOut(c.id, 3);  // a trim made while reversed, in the render's time
    project.setPlayheadGlobal(50);
    quietly([&] { project.reverseSelected(); });
    EXPECT_EQ(*project.clip(c.id), c) << "the forward stretch back, the render dropped";
    EXPECT_EQ(project.playheadGlobal(), 50) << "no clamp";
    project.undo();
    EXPECT_EQ(project.clip(c.id)->reversedURL, kRendered) << "back with the undo";
}

TEST_F(RetimeReverseTest, AFailedRenderLeavesTheClipReversedOnItsForwardMedia) {
    media->setRenderResult(std::nullopt);
    Clip c = selectedForwardClip();
    testing::internal::CaptureStderr();
    project.reverseSelected();
    executor.drain();
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with(
        "[com.corvane.vantrell:reverse] error: renderReversedMedia returned nil\n"));
    EXPECT_EQ(placement(*project.clip(c.id)), (Placement{1, 5, 2}));
    EXPECT_EQ(project.compositionToken(), 1);
}

TEST_F(RetimeReverseTest, ALateRenderLandsOnlyOnTheClipStillReversedOverTheSameStretch) {
    Clip c = selectedForwardClip();
    quietly([&] {
        project.reverseSelected();
        project.reverseSelected();
    });
    executor.drain();
    EXPECT_EQ(*project.clip(c.id), c) << "reversed twice: the forward clip back";

    quietly([&] { project.reverseSelected(); });
    project.undo();
    project.redo();
    project.setOut(c.id, 3);
    executor.drain();
    EXPECT_EQ(placement(*project.clip(c.id)), (Placement{0, 4, 2}))
        << "a trim meanwhile is replaced by the whole stretch";

    project.updateClip(c.id, [](Clip& w) {
        w.isReversed = true;  // as a right half split off before its render landed
        w.forwardInSeconds.reset();
        w.forwardOutSeconds.reset();
        w.inSeconds = 1;
        w.outSeconds = 5;
    });
    media->setRenderResult("/tmp/vantrell-reversed-late.mov");
    quietly([&] { project.renderReversedAsync(c.id); });
    project.setIn(c.id, 2);
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->reversedURL, kRendered) << "a trim meanwhile drops the render";

    quietly([&] { project.renderReversedAsync(c.id); });
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_EQ(project.compositionToken(), token) << "a deleted clip is not brought back";
}

TEST_F(RetimeReverseTest, AMixedSelectionFlipsEachClipAndRendersOnlyTheNewlyReversed) {
    Clip forward = selectedForwardClip();
    Clip reversed = liveClip("/m/run.mov", 10, 20);
    reversed.isReversed = true;
    reversed.reversedURL = "/tmp/vantrell-reversed-0.mov";
    reversed.forwardInSeconds = 3;
    reversed.forwardOutSeconds = 7;
    reversed.outSeconds = 4;
    project.setClips({forward, reversed});
    project.toggleSelection(reversed.id);
    quietly([&] { project.reverseSelected(); });
    EXPECT_EQ(project.undoName(), "Reverse Clips");
    EXPECT_TRUE(project.clip(forward.id)->isReversed);
    EXPECT_EQ(placement(*project.clip(reversed.id)), (Placement{3, 7, 20}));
    executor.drain();
    expectOneRender(1, 5);
}

TEST_F(RetimeReverseTest, HydrationRendersEachLiveReversedClipButNoPlaceholder) {
    media->add("/m/walk.mov", 10);
    VantrellSnapshotClip reversed{Uuid::random(), "/m/walk.mov", {}, 2, 6, 0};
    reversed.isReversed = true;
    reversed.forwardInSeconds = 2;
    reversed.forwardOutSeconds = 6;
    VantrellSnapshotClip missing{Uuid::random(), "/gone/x.mov", {}, 0, 3, 9};
    missing.isReversed = true;
    project.hydrateClips({reversed, missing});
    drainCapturingLog();
    expectOneRender(2, 6);
    EXPECT_EQ(project.clip(reversed.id)->outSeconds, 4);
    EXPECT_FALSE(project.canUndo());
}

}  // namespace
