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
using model::PasteboardType;
using model::Project;

const std::filesystem::path kRendered = "/tmp/vantrell-reversed-1.mov";

// Runs `f` with its log lines swallowed.
void quietly(const std::function<void()>& f) {
    testing::internal::CaptureStderr();
    f();
    testing::internal::GetCapturedStderr();
}

// The stretches asked of the reverse render, in the order asked.
std::vector<std::pair<double, double>> renders(FakeMediaServices& media) {
    std::vector<std::pair<double, double>> ranges;
    for (const auto& call : media.renderCalls())
        ranges.emplace_back(call.fromSeconds, call.toSeconds);
    return ranges;
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
    EXPECT_EQ(placement(*p.clip(a.id)), (Placement{0, 8, 0}));
    EXPECT_EQ(p.clip(b.id)->startOnTimeline, 8) << "no ripple";
    EXPECT_EQ(std::pair(p.clip(a.id)->rateMultiplier, p.clip(untouched.id)->rateMultiplier),
              std::pair(4., 1.));

    // A common rate within a ten-thousandth; reversed if all are.
    EXPECT_EQ(p.commonRateOfSelection(), 4);
    p.updateClip(a.id, [&](Clip& c) { c.rateMultiplier = 4.00005; });
    EXPECT_EQ(p.commonRateOfSelection(), 4.00005);
    p.updateClip(b.id, [&](Clip& c) { c.rateMultiplier = 3.9998; });
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt);
    EXPECT_FALSE(p.allSelectedReversed());
    p.updateClip(a.id, [&](Clip& c) { c.isReversed = true; });
    p.toggleSelection(b.id);
    EXPECT_TRUE(p.allSelectedReversed());
    p.toggleSelection(a.id);
    EXPECT_FALSE(p.commonRateOfSelection() || p.allSelectedReversed()) << "nothing selected";
}

// Runs the newest background work first, so that a split lands before an older render.
class NewestFirstExecutor final : public common::Executor {
  public:
    void runInBackground(std::function<void()> work) override { work_.push_back(std::move(work)); }
    void postToOwner(std::function<void()> task) override { owner_.push_back(std::move(task)); }
    void runAll() {
        while (!work_.empty()) {
            auto work = std::move(work_.back());
            work_.pop_back();
            work();
            for (; !owner_.empty(); owner_.pop_front()) owner_.front()();
        }
    }

  private:
    std::vector<std::function<void()>> work_;
    std::deque<std::function<void()>> owner_;
};

TEST(RetimeReverse, ASplitBeforeTheRenderLandsRendersEachHalfOverItsOwnStretch) {
    NewestFirstExecutor executor;
    auto media = std::make_shared<FakeMediaServices>();
    media->add("/m/walk.mov", 10);
    media->setRenderResult(kRendered);
    model::Project project({&executor, media, nullptr});
    Clip c = media->probe("/m/walk.mov", std::nullopt, common::Uuid::random()).value();
    c.inSeconds = 1;
    c.outSeconds = 5;
    place(project, {c}, c.id);
    quietly([&] {
        project.reverseSelected();  // renders 1...5
        project.setPlayheadGlobal(2);
        project.splitAtPlayhead();  // cuts at 3
        executor.runAll();
    });
    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& left = project.clips()[0];
    const Clip& right = project.clips()[1];
    EXPECT_EQ(placement(left), (Placement{0, 2, 0})) << "not stretched over both halves";
    EXPECT_EQ(placement(right), (Placement{0, 2, 2}));
    EXPECT_EQ(std::tuple(left.forwardInSeconds, left.forwardOutSeconds, right.forwardInSeconds,
                         right.forwardOutSeconds),
              std::tuple(1, 3, 3, 5));
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
};

TEST_F(RetimeReverseTest, TurningAClipBackwardKeepsItsStretchUntilTheRenderLandsAndForwardAgain) {
    Clip c = selectedForwardClip();
    testing::internal::CaptureStderr();
    project.reverseSelected();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[com.corvane.vantrell:reverse] reverseSelected: 1 clip(s)\n"
              "[com.corvane.vantrell:reverse] renderReversedAsync dispatched for walk.mov "
              "range=[1.000000..5.000000]\n");
    EXPECT_EQ(placement(*project.clip(c.id)), (Placement{1, 5, 2}));
    EXPECT_EQ(lastStep(project), (Step{"Reverse Clip", 1}));

    executor.drain();
    const Clip& rendered = *project.clip(c.id);
    EXPECT_EQ(rendered.reversedURL, kRendered);
    EXPECT_EQ(placement(rendered), (Placement{0, 4, 2}));
    EXPECT_EQ(std::tuple(rendered.forwardInSeconds, rendered.forwardOutSeconds),
              std::tuple(1., 5.));
    EXPECT_EQ(lastStep(project), (Step{"Reverse Clip", 2})) << "the render records no history";
    EXPECT_EQ(renders(*media), (std::vector<std::pair<double, double>>{{1, 5}}));

    project.setOut(c.id, 3);  // a trim made while reversed, in the render's time
    quietly([&] { project.reverseSelected(); });
    EXPECT_EQ(*project.clip(c.id), c) << "the forward stretch back, the render dropped";
    project.undo();
    EXPECT_EQ(project.clip(c.id)->reversedURL, kRendered) << "back with the undo";

    media->setRenderResult(std::nullopt);
    project.undo();
    testing::internal::CaptureStderr();
    project.reverseSelected();
    executor.drain();
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with(
        "[com.corvane.vantrell:reverse] error: renderReversedMedia returned nil\n"));
    EXPECT_EQ(placement(*project.clip(c.id)), (Placement{1, 5, 2})) << "on its forward media";
}

TEST_F(RetimeReverseTest, ALateRenderLandsOnlyOnTheClipStillReversedOverTheSameStretch) {
    Clip c = selectedForwardClip();
    quietly([&] { project.reverseSelected(); });
    project.undo();
    project.redo();
    project.setOut(c.id, 3);
    executor.drain();
    EXPECT_EQ(placement(*project.clip(c.id)), (Placement{0, 4, 2}))
        << "a trim meanwhile is replaced by the whole stretch";

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
    EXPECT_EQ(placement(*project.clip(reversed.id)), (Placement{3, 7, 20}));
    executor.drain();
    EXPECT_EQ(renders(*media), (std::vector<std::pair<double, double>>{{1, 5}}));
}

TEST_F(RetimeReverseTest, AReversedClipArrivingByHydrationRelinkOrPasteRendersAnew) {
    model::VantrellSnapshotClip found{Uuid::random(), "/m/walk.mov", {}, 2, 6, 0};
    found.isReversed = true;
    found.forwardInSeconds = 2;
    found.forwardOutSeconds = 6;
    auto gone = found;
    gone.url = "/gone/walk.mov";
    const Clip placeholder = Clip::missingPlaceholder(gone);
    media->add("/m/walk.mov", 10);
    const std::function<void()> arrivals[] = {
        [&] {
            project.hydrateClips({found, gone});
        },
        [&] {
            project.setClips({placeholder});
            project.relinkClip(placeholder.id, "/m/walk.mov");
        },
        [&] {
            project.setClips({});
            pasteboard->put(PasteboardType::vantrellClips,
                            "[" + model::toJson(found).value().dump() + "]");
            project.pasteAtPlayhead();
        },
    };
    for (std::size_t i = 0; i < std::size(arrivals); ++i) {
        arrivals[i]();
        drainCapturingLog();
        ASSERT_EQ(media->renderCalls().size(), i + 1) << i;
        EXPECT_EQ(media->renderCalls().back().url, "/m/walk.mov");
        EXPECT_EQ(renders(*media).back(), std::pair(2.0, 6.0));
        EXPECT_EQ(project.clips()[0].reversedURL, kRendered);
        EXPECT_EQ(placement(project.clips()[0]), (Placement{0, 4, 0}));
    }
}

}  // namespace
