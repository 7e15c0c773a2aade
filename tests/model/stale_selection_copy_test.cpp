#include <optional>

#include <gtest/gtest.h>

#include "fake_media_services.h"

namespace {

class StaleSelectionCopyTest : public model_test::MediaProjectTest {};

TEST_F(StaleSelectionCopyTest, ACopyOfASelectionNamingNoClipLeavesAnEmptyList) {
    model::Clip kept = liveClip("/m/a.mov", 2);
    project.setClips({kept});
    project.setSelectedClipID(kept.id);
    project.copySelection();
    ASSERT_NE(pasteboard->payloadText(), std::nullopt);

    project.setSelectedClipID(common::Uuid::random());
    project.copySelection();
    EXPECT_EQ(pasteboard->payloadText(), "[]");
    const auto entries = project.undoCount();
    project.pasteAtPlayhead();
    executor.drain();
    EXPECT_EQ(project.clips().size(), 1u) << "nothing stale pasted";
    EXPECT_EQ(project.undoCount(), entries);
}

}  // namespace
