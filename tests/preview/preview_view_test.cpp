#include <QPointer>

#include <gtest/gtest.h>

#include "model/project.h"
#include "preview/audio_preview_view.h"
#include "preview/footer_reflection.h"
#include "preview/preview_test_support.h"
#include "preview/preview_view.h"

namespace {

using namespace preview_test;
namespace fs = std::filesystem;

class PreviewViewTest : public ::testing::Test {
  protected:
    void SetUp() override {
        first = movie("preview_view_a.mp4", 2);
        second = movie("preview_view_b.mp4", 2);
        project.setClips(clipsOf({first, second}));
        project.raiseCompositionToken();
        view.emplace(project);
        view->resize(320, 240);
        view->show();
    }

    // Waits for the composition's player to be installed and its first seek shown.
    preview::Player* readyPlayer() {
        EXPECT_TRUE(waitFor([&] { return view->player() != nullptr; }));
        EXPECT_TRUE(view->player()->waitUntilSettled(std::chrono::seconds(20)));
        return view->player();
    }

    fs::path first, second;
    model::Project project;
    std::optional<preview::PreviewView> view;
};

TEST_F(PreviewViewTest, APausedMoveSeeksOnlyPastFiveHundredthsOfASecond) {
    preview::Player* player = readyPlayer();
    ASSERT_TRUE(waitFor([&] { return view->hasPicture(); }));
    const auto seeks = player->seekRequests();
    project.setPlayheadGlobal(0.04);
    EXPECT_EQ(player->seekRequests(), seeks);
    project.setPlayheadGlobal(0.06);
    EXPECT_EQ(player->seekRequests(), seeks + 1);
    EXPECT_DOUBLE_EQ(player->currentTime(), 0.06);
    // Held a millisecond short of a known end.
    project.setPlayheadGlobal(10);
    ASSERT_TRUE(player->duration());
    EXPECT_DOUBLE_EQ(player->currentTime(), *player->duration() - 0.001);
}

TEST_F(PreviewViewTest, PlayingToTheEndStopsThereAndClearsIsPlaying) {
    preview::Player* player = readyPlayer();
    project.setPlayheadGlobal(3.6);
    ASSERT_TRUE(player->waitUntilSettled(std::chrono::seconds(20)));
    project.setIsPlaying(true);
    ASSERT_TRUE(waitFor([&] { return !project.isPlaying(); }));
    EXPECT_EQ(view->player()->rate(), 0);
    EXPECT_GE(project.playheadGlobal(), 3.6);
    EXPECT_NEAR(view->player()->currentTime(), 4.0, 0.1);
}

TEST_F(PreviewViewTest, ATokenChangeWhilePlayingPlaysOnFromThePlayhead) {
    QPointer<preview::Player> old = readyPlayer();
    project.setIsPlaying(true);
    ASSERT_TRUE(waitFor([&] { return project.playheadGlobal() > 0.3; }));
    project.raiseCompositionToken();
    const double playhead = project.playheadGlobal();
    ASSERT_TRUE(waitFor([&] { return old.isNull() && view->player(); }));
    EXPECT_EQ(view->player()->rate(), 1);
    EXPECT_GE(view->player()->currentTime(), playhead);
    EXPECT_TRUE(project.isPlaying());
    project.setIsPlaying(false);
}

TEST_F(PreviewViewTest, ATrimDragKeepsOneSourcePlayerPerFile) {
    readyPlayer();
    project.setTrimPreview(model::TrimPreviewState{first, 1.0});
    QPointer<preview::Player> trim = view->player();
    project.setTrimPreview(model::TrimPreviewState{first, 1.5});
    EXPECT_EQ(view->player(), trim.data());
    ASSERT_TRUE(view->player()->waitUntilSettled(std::chrono::seconds(20)));
    EXPECT_DOUBLE_EQ(view->player()->currentTime(), 1.5);
    project.setTrimPreview(model::TrimPreviewState{second, -1});
    EXPECT_TRUE(trim.isNull());
    EXPECT_DOUBLE_EQ(view->player()->currentTime(), 0);
    trim = view->player();
    // The drag's end rebuilds the composition, whatever changed.
    project.setTrimPreview(std::nullopt);
    EXPECT_TRUE(waitFor([&] { return trim.isNull() && view->player(); }));
}

TEST_F(PreviewViewTest, TheAudioPreviewDrawsAndEmptyingTheClipsTearsEverythingDown) {
    preview::AudioPreviewView audio(project);
    audio.resize(400, 200);
    project.setPlayheadGlobal(1.0);
    EXPECT_FALSE(audio.grab().isNull());
    readyPlayer();
    preview::FooterReflection reflection(*view);
    reflection.resize(320, 80);
    reflection.show();
    ASSERT_TRUE(waitFor([&] { return view->hasPicture() && reflection.hasPicture(); }));
    project.setClips({});
    project.raiseCompositionToken();
    EXPECT_EQ(view->player(), nullptr);
    EXPECT_TRUE(waitFor([&] { return !view->hasPicture() && !reflection.hasPicture(); }));
}

}  // namespace
