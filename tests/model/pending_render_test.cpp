#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "common/executor.h"
#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

namespace {

using model::Clip;
using model_test::Placement;
using model_test::placement;

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

TEST(PendingRender, ASplitBeforeTheRenderLandsRendersEachHalfOverItsOwnStretch) {
    ManualExecutor executor;
    auto media = std::make_shared<model_test::FakeMediaServices>();
    media->add("/m/walk.mov", 10);
    media->setRenderResult("/tmp/vantrell-reversed-1.mov");
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
    EXPECT_EQ(left.forwardInSeconds, 1);
    EXPECT_EQ(left.forwardOutSeconds, 3);
    EXPECT_EQ(right.forwardInSeconds, 3);
    EXPECT_EQ(right.forwardOutSeconds, 5);
    EXPECT_TRUE(left.reversedURL && right.reversedURL) << "each half rendered";
    std::vector<std::pair<double, double>> ranges;
    for (const auto& call : media->renderCalls())
        ranges.emplace_back(call.fromSeconds, call.toSeconds);
    EXPECT_EQ(ranges, (std::vector<std::pair<double, double>>{{1, 5}, {1, 3}, {3, 5}}));
}

}  // namespace
