#include <functional>
#include <memory>
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

// Runs `f` with its log lines swallowed.
void quietly(const std::function<void()>& f) {
    testing::internal::CaptureStderr();
    f();
    testing::internal::GetCapturedStderr();
}

// Retime.

TEST(RetimeReverse, ARetimeRecordsEvenToThePresentRateAndIsHeldBetweenATenthAndTen) {
    Project p;
    Clip c = clipAt(0, 4);
    p.setClips({c});
    p.setSelectedClipID(c.id);
    p.retimeSelected(1);
    EXPECT_EQ(p.undoName(), "Retime Clip");
    EXPECT_EQ(p.compositionToken(), 1);
    p.retimeSelected(50);
    EXPECT_EQ(p.clip(c.id)->rateMultiplier, 10.0);
    p.retimeSelected(0.01);
    EXPECT_EQ(p.clip(c.id)->rateMultiplier, 0.1);
}

TEST(RetimeReverse, RetimeWritesOnlyTheRateOfEachSelectedClip) {
    Project p;
    Clip a = clipAt(1, 4);
    a.inSeconds = 1;
    Clip b = clipAt(6, 4);
    Clip untouched = clipAt(12, 2);
    p.setClips({a, b, untouched});
    p.toggleSelection(a.id);
    p.toggleSelection(b.id);
    p.toggleSelection(Uuid::random());
    p.retimeSelected(2);
    EXPECT_EQ(p.undoName(), "Retime Clips");
    EXPECT_EQ(p.clip(a.id)->rateMultiplier, 2);
    EXPECT_EQ(p.clip(b.id)->rateMultiplier, 2);
    EXPECT_EQ(p.clip(untouched.id)->rateMultiplier, 1);
    EXPECT_EQ(p.clip(a.id)->inSeconds, 1);
    EXPECT_EQ(p.clip(a.id)->outSeconds, 4);
    EXPECT_EQ(p.clip(a.id)->startOnTimeline, 1);
    EXPECT_EQ(p.compositionToken(), 1);
}

TEST(RetimeReverse, WithoutASelectedClipRetimeRecordsNothingAndNoRateIsCommon) {
    Project p;
    p.setClips({clipAt(0, 1)});
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt);
    p.retimeSelected(2);
    EXPECT_FALSE(p.canUndo());
    EXPECT_EQ(p.compositionToken(), 0);
    p.setSelectedClipID(Uuid::random());
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt);
}

TEST(RetimeReverse, AFasterClipLeavesAGapAndThePlayheadIsClamped) {
    Project p;
    Clip c = clipAt(0, 8);
    Clip after = clipAt(8, 2);
    p.setClips({c, after});
    p.setSelectedClipID(after.id);
    p.setPlayheadGlobal(9.5);
    p.retimeSelected(4);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 8.499);
    p.setSelectedClipID(c.id);
    p.retimeSelected(2);
    EXPECT_EQ(p.clip(after.id)->startOnTimeline, 8) << "no ripple";
    EXPECT_EQ(p.gaps(false).size(), 1u);
}

TEST(RetimeReverse, TheCommonRateToleratesLessThanATenThousandth) {
    Project p;
    Clip a = clipAt(0, 1);
    a.rateMultiplier = 1.0;
    Clip b = clipAt(1, 1);
    b.rateMultiplier = 1.00005;
    p.setClips({b, a});
    p.toggleSelection(a.id);
    p.toggleSelection(b.id);
    EXPECT_EQ(p.commonRateOfSelection(), 1.00005) << "the first in array order";
    p.updateClip(b.id, [](Clip& c) { c.rateMultiplier = 1.0002; });
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt);
    p.updateClip(b.id, [](Clip& c) { c.rateMultiplier = 0.9998; });
    EXPECT_EQ(p.commonRateOfSelection(), std::nullopt);
}

TEST(RetimeReverse, AllSelectedReversedCountsOnlyClipsThatExist) {
    Project p;
    Clip forward = clipAt(0, 1);
    Clip reversed = clipAt(1, 1);
    reversed.isReversed = true;
    p.setClips({forward, reversed});
    EXPECT_FALSE(p.allSelectedReversed()) << "nothing selected";
    p.setSelectedClipID(Uuid::random());
    EXPECT_TRUE(p.allSelectedReversed()) << "a selection naming no clip";
    p.toggleSelection(reversed.id);
    EXPECT_TRUE(p.allSelectedReversed());
    p.toggleSelection(forward.id);
    EXPECT_FALSE(p.allSelectedReversed());
}

TEST(RetimeReverse, ReverseLogsTheSelectionSizeFirstAlsoWhenEmpty) {
    Project p;
    testing::internal::CaptureStderr();
    p.reverseSelected();
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log, "[com.corvane.vantrell:reverse] reverseSelected: 0 clip(s)\n");
    EXPECT_FALSE(p.canUndo());
    EXPECT_EQ(p.compositionToken(), 0);
}

TEST(RetimeReverse, TurningARenderedClipForwardRestoresItsStretchAndStartsNothing) {
    Project p;  // no media context: a clip turned forward needs no render
    Clip c = clipAt(3, 10);
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-c.mov";
    c.forwardInSeconds = 2;
    c.forwardOutSeconds = 6;
    c.inSeconds = 0.5;  // a trim made while reversed, in the render's time
    c.outSeconds = 4;
    p.setClips({c});
    p.setSelectedClipID(c.id);
    p.setPlayheadGlobal(50);
    quietly([&] { p.reverseSelected(); });

    const Clip& now = *p.clip(c.id);
    EXPECT_FALSE(now.isReversed);
    EXPECT_EQ(now.inSeconds, 2);
    EXPECT_EQ(now.outSeconds, 6);
    EXPECT_EQ(now.forwardInSeconds, std::nullopt);
    EXPECT_EQ(now.forwardOutSeconds, std::nullopt);
    EXPECT_EQ(now.reversedURL, std::nullopt);
    EXPECT_EQ(now.startOnTimeline, 3);
    EXPECT_EQ(p.undoName(), "Reverse Clip");
    EXPECT_EQ(p.compositionToken(), 1);
    EXPECT_EQ(p.playheadGlobal(), 50) << "no clamp";

    p.undo();
    EXPECT_EQ(*p.clip(c.id), c) << "the render comes back with the undo";
}

TEST(RetimeReverse, AReversedRightHalfTurnsForwardWithTheSameNumbers) {
    Project p;
    Clip c = clipAt(0, 10);
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-c.mov";
    c.inSeconds = 1;
    c.outSeconds = 3;
    p.setClips({c});
    p.setSelectedClipID(c.id);
    quietly([&] { p.reverseSelected(); });
    const Clip& now = *p.clip(c.id);
    EXPECT_FALSE(now.isReversed);
    EXPECT_EQ(now.inSeconds, 1);
    EXPECT_EQ(now.outSeconds, 3);
    EXPECT_EQ(now.reversedURL, std::nullopt);
}

// Reverse with its render.

class RetimeReverseTest : public model_test::MediaProjectTest {
  protected:
    RetimeReverseTest() { media->setRenderResult("/tmp/vantrell-reversed-1.mov"); }

    Clip forwardClip() {
        Clip c = liveClip("/m/walk.mov", 10, 2);
        c.inSeconds = 1;
        c.outSeconds = 5;
        return c;
    }

    // A forward clip, alone on the timeline and selected.
    Clip selectedForwardClip() {
        Clip c = forwardClip();
        project.setClips({c});
        project.setSelectedClipID(c.id);
        return c;
    }
};

TEST_F(RetimeReverseTest, TurningAClipBackwardKeepsItsStretchUntilTheRenderLands) {
    Clip c = selectedForwardClip();
    testing::internal::CaptureStderr();
    project.reverseSelected();
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log,
              "[com.corvane.vantrell:reverse] reverseSelected: 1 clip(s)\n"
              "[com.corvane.vantrell:reverse] renderReversedAsync dispatched for walk.mov "
              "range=[1.000000..5.000000]\n");

    const Clip& flipped = *project.clip(c.id);
    EXPECT_TRUE(flipped.isReversed);
    EXPECT_EQ(flipped.forwardInSeconds, 1);
    EXPECT_EQ(flipped.forwardOutSeconds, 5);
    EXPECT_EQ(flipped.inSeconds, 1);
    EXPECT_EQ(flipped.outSeconds, 5);
    EXPECT_EQ(flipped.reversedURL, std::nullopt);
    EXPECT_EQ(project.undoName(), "Reverse Clip");
    EXPECT_EQ(project.compositionToken(), 1);

    executor.drain();
    const Clip& rendered = *project.clip(c.id);
    EXPECT_EQ(rendered.reversedURL, std::filesystem::path("/tmp/vantrell-reversed-1.mov"));
    EXPECT_EQ(rendered.inSeconds, 0);
    EXPECT_EQ(rendered.outSeconds, 4);
    EXPECT_EQ(rendered.forwardInSeconds, 1);
    EXPECT_EQ(rendered.startOnTimeline, 2);
    EXPECT_EQ(project.compositionToken(), 2);
    EXPECT_EQ(project.undoCount(), 1u) << "the render records no history";

    auto calls = media->renderCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].url, c.url);
    EXPECT_EQ(calls[0].fromSeconds, 1);
    EXPECT_EQ(calls[0].toSeconds, 5);
}

TEST_F(RetimeReverseTest, AFailedRenderLeavesTheClipReversedOnItsForwardMedia) {
    media->setRenderResult(std::nullopt);
    Clip c = selectedForwardClip();
    // One capture for both: the render may answer before reverseSelected returns.
    testing::internal::CaptureStderr();
    project.reverseSelected();
    executor.drain();
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log,
              "[com.corvane.vantrell:reverse] reverseSelected: 1 clip(s)\n"
              "[com.corvane.vantrell:reverse] renderReversedAsync dispatched for walk.mov "
              "range=[1.000000..5.000000]\n"
              "[com.corvane.vantrell:reverse] error: renderReversedMedia returned nil\n");
    const Clip& now = *project.clip(c.id);
    EXPECT_TRUE(now.isReversed);
    EXPECT_EQ(now.reversedURL, std::nullopt);
    EXPECT_EQ(now.inSeconds, 1);
    EXPECT_EQ(now.outSeconds, 5);
    EXPECT_EQ(project.compositionToken(), 1);
}

TEST_F(RetimeReverseTest, ReversingTwiceBeforeTheRenderLandsGivesTheForwardClipBack) {
    Clip c = selectedForwardClip();
    quietly([&] {
        project.reverseSelected();
        project.reverseSelected();
    });
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_EQ(*project.clip(c.id), c) << "the late render is dropped";
    EXPECT_EQ(project.compositionToken(), token);
    EXPECT_EQ(project.undoName(), "Reverse Clip");
    EXPECT_EQ(project.undoCount(), 2u);
}

TEST_F(RetimeReverseTest, UndoingAReverseBeforeItsRenderLandsDropsTheRender) {
    Clip c = selectedForwardClip();
    quietly([&] { project.reverseSelected(); });
    project.undo();
    executor.drain();
    EXPECT_EQ(*project.clip(c.id), c);
}

TEST_F(RetimeReverseTest, ARenderLandsOnAClipReversedAgainOverTheSameStretch) {
    Clip c = selectedForwardClip();
    quietly([&] { project.reverseSelected(); });
    project.undo();
    project.redo();
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->reversedURL,
              std::filesystem::path("/tmp/vantrell-reversed-1.mov"));
    EXPECT_EQ(project.clip(c.id)->outSeconds, 4);
}

TEST_F(RetimeReverseTest, ATrimWhileTheRenderRunsIsReplacedByTheWholeStretch) {
    Clip c = selectedForwardClip();
    quietly([&] { project.reverseSelected(); });
    project.setOut(c.id, 3);
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->inSeconds, 0);
    EXPECT_EQ(project.clip(c.id)->outSeconds, 4);
}

TEST_F(RetimeReverseTest, AClipDeletedDuringItsRenderIsNotBroughtBack) {
    Clip c = selectedForwardClip();
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
    EXPECT_EQ(project.clip(reversed.id)->inSeconds, 3);
    EXPECT_EQ(project.clip(reversed.id)->outSeconds, 7);
    executor.drain();
    auto calls = media->renderCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].url, forward.url);
}

TEST_F(RetimeReverseTest, WithoutAForwardStretchTheRenderTakesTheInAndOutPoints) {
    Clip c = forwardClip();
    c.isReversed = true;  // as a right half split off before its render landed
    project.setClips({c});
    quietly([&] { project.renderReversedAsync(c.id); });
    executor.drain();
    auto calls = media->renderCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].fromSeconds, 1);
    EXPECT_EQ(calls[0].toSeconds, 5);
    EXPECT_EQ(project.clip(c.id)->outSeconds, 4);
}

TEST_F(RetimeReverseTest, WithoutAForwardStretchATrimMeanwhileDropsTheRender) {
    Clip c = forwardClip();
    c.isReversed = true;
    project.setClips({c});
    quietly([&] { project.renderReversedAsync(c.id); });
    project.setIn(c.id, 2);
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->reversedURL, std::nullopt);
    EXPECT_EQ(project.clip(c.id)->inSeconds, 2);
}

TEST_F(RetimeReverseTest, AnEmptyStretchLandsWithLengthZero) {
    Clip c = forwardClip();
    c.isReversed = true;
    c.forwardInSeconds = 6;
    c.forwardOutSeconds = 4;
    project.setClips({c});
    quietly([&] { project.renderReversedAsync(c.id); });
    executor.drain();
    EXPECT_EQ(project.clip(c.id)->outSeconds, 0);
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

    auto calls = media->renderCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].url, std::filesystem::path("/m/walk.mov"));
    EXPECT_EQ(calls[0].fromSeconds, 2);
    EXPECT_EQ(calls[0].toSeconds, 6);
    EXPECT_EQ(project.clip(reversed.id)->reversedURL,
              std::filesystem::path("/tmp/vantrell-reversed-1.mov"));
    EXPECT_EQ(project.clip(reversed.id)->outSeconds, 4);
    EXPECT_EQ(project.clip(missing.id)->reversedURL, std::nullopt);
    EXPECT_FALSE(project.canUndo());
}

TEST(RetimeReverseLifetime, ARenderLandingAfterItsProjectIsGoneIsDropped) {
    auto media = std::make_shared<model_test::FakeMediaServices>();
    media->setRenderResult("/tmp/vantrell-reversed-1.mov");
    common::ThreadPoolExecutor executor(2);
    {
        Project p({&executor, media});
        Clip c = clipAt(0, 4);
        c.isReversed = true;
        p.setClips({c});
        quietly([&] { p.renderReversedAsync(c.id); });
    }
    executor.drain();
    EXPECT_EQ(media->renderCalls().size(), 1u);
}

}  // namespace
