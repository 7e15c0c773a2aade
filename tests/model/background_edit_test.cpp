#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

// A split and an unlink finish once the probe of their new half lands, a reverse once its
// render does; what happened to the clip meanwhile decides whether they still land.

namespace {

using common::Uuid;
using model::Clip;
using model::Project;
using model_test::FakeMediaServices;
using model_test::lastStep;
using model_test::place;
using model_test::Step;

struct BackgroundEdit {
    std::string name;
    std::string entry;
    std::function<void(Project&)> start;  // on the selected clip, under the playhead
    std::function<void(Project&, const Uuid&)> editMeanwhile;
};

const std::vector<BackgroundEdit> kEdits = {
    {"Split", "Split", [](Project& p) { p.splitAtPlayhead(); },
     [](Project& p, const Uuid& id) { p.setIn(id, 1); }},
    {"Unlink", "Unlink Audio", [](Project& p) { p.toggleLinkAV(*p.selectedClipID()); },
     [](Project& p, const Uuid& id) { p.moveClip(id, 4); }},
};

class BackgroundEditTest : public model_test::MediaProjectTest,
                           public testing::WithParamInterface<BackgroundEdit> {
  protected:
    // A 10-second clip alone on the timeline, selected, with the playhead in its middle.
    Clip placeSelected(const std::string& path = "/m/a.mov") {
        Clip c = liveClip(path, 10, 0);
        place(project, {c}, c.id);
        project.setPlayheadGlobal(5);
        return c;
    }
};

TEST_P(BackgroundEditTest, AnEditOfTheClipMeanwhileWinsAndItsEntryStays) {
    Clip c = placeSelected();
    media->hold(FakeMediaServices::probes);
    GetParam().start(project);
    ASSERT_TRUE(media->waitFor(FakeMediaServices::probes, 2));
    project.recordSnapshot("Edit");
    GetParam().editMeanwhile(project, c.id);
    project.commitEdit();
    Clip edited = *project.clip(c.id);
    media->release();
    executor.drain();
    EXPECT_EQ(project.clips(), std::vector<Clip>{edited});
    project.undo();
    EXPECT_EQ(project.undoName(), GetParam().entry);
}

TEST_P(BackgroundEditTest, AClipDeletedMeanwhileIsNotBroughtBack) {
    placeSelected();
    GetParam().start(project);
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(project.compositionToken(), token);
}

TEST_P(BackgroundEditTest, AFileThatCannotBeProbedLeavesAnEntryWhoseUndoChangesNothing) {
    Clip lost = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 6, 0});
    place(project, {lost}, lost.id);
    project.setPlayheadGlobal(3);
    GetParam().start(project);
    executor.drain();
    EXPECT_EQ(project.clips(), std::vector<Clip>{lost});
    EXPECT_EQ(lastStep(project), (Step{GetParam().entry, 0}));
    project.undo();
    EXPECT_EQ(project.clips(), std::vector<Clip>{lost});
}

INSTANTIATE_TEST_SUITE_P(Edits, BackgroundEditTest, testing::ValuesIn(kEdits),
                         [](const auto& info) { return info.param.name; });

}  // namespace
