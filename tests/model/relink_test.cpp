#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "model/project.h"
#include "support/fake_media_services.h"
#include "support/model_test_support.h"

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::StreamMask;
using model::VantrellSnapshotClip;

class RelinkTest : public MediaProjectTest {
  protected:
    RelinkTest() { media->add("/m/found.mov", 12); }
};

TEST_F(RelinkTest, TheClipKeepsItsIdentityPlaceAndSpeedAndTakesTheNewFile) {
    VantrellSnapshotClip record{Uuid::random(), "/gone/a.mov", {}, 1, 6, 4};
    record.streamMask = StreamMask::videoOnly;
    record.linkGroupID = Uuid::random();
    record.rateMultiplier = 2;
    Clip old = Clip::missingPlaceholder(record);
    Clip sameFile = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 4, 8, 4});
    project.setClips({old, sameFile});
    project.relinkClip(old.id, "/m/found.mov");
    EXPECT_FALSE(project.canUndo()) << "history waits for the probe";
    executor.drain();

    EXPECT_EQ(project.clips()[1], sameFile) << "other placeholders of the file stay missing";
    Clip live = project.clips()[0];
    EXPECT_EQ(live.filmstrip.size(), FakeMediaServices::kFilmstripFrames) << "enriched";
    EXPECT_EQ(live.bookmark, FakeMediaServices::bookmarkFor("/m/found.mov"));
    // Pictures aside, it is the new file's probe with the old clip's identity, place and speed.
    Clip expected = media->probe("/m/found.mov", live.bookmark, old.id).value();
    std::tie(expected.inSeconds, expected.outSeconds, expected.startOnTimeline) =
        std::tuple(1, 6, 4);
    std::tie(expected.streamMask, expected.linkGroupID, expected.rateMultiplier) =
        std::tuple(StreamMask::videoOnly, record.linkGroupID, 2);
    std::tie(expected.filmstrip, expected.waveform, expected.waveformPeaks) =
        std::tuple(live.filmstrip, live.waveform, live.waveformPeaks);
    EXPECT_EQ(live, expected);
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", 1}));
    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{old, sameFile}));

    // The trim is held inside the new file.
    for (auto [in, out, fileSeconds, heldIn, heldOut] :
         {std::tuple{2., 8., 5., 2., 5.}, {7., 8., 5., 5., 5.}, {-1., 3., 30., 0., 3.}}) {
        media->add("/m/found.mov", fileSeconds);
        Clip a = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, in, out, 0});
        project.setClips({a});
        project.relinkClip(a.id, "/m/found.mov");
        executor.drain();
        EXPECT_EQ(placement(project.clips()[0]), (Placement{heldIn, heldOut, 0})) << in;
    }
}

TEST_F(RelinkTest, AFileThatCannotBeProbedChangesNothingAnEditMeanwhileIsReplaced) {
    Clip a = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 4, 1});
    place(project, {a}, a.id);
    Recorder r(project);
    project.relinkClip(Uuid::random(), "/m/found.mov");
    project.relinkClip(a.id, "/m/broken.mov");
    EXPECT_EQ(drainCapturingLog(), "Vantrell: relink failed for broken.mov\n");
    EXPECT_TRUE(r.heardNothing());

    media->hold(FakeMediaServices::probes);
    project.relinkClip(a.id, "/m/found.mov");
    ASSERT_TRUE(media->waitFor(FakeMediaServices::probes, 2));
    project.moveClip(a.id, 9);
    media->release();
    executor.drain();
    EXPECT_EQ(project.clip(a.id)->startOnTimeline, 1);

    project.relinkClip(a.id, "/m/found.mov");
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty()) << "a clip gone meanwhile stays gone";
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", token + 1}));
}

}  // namespace
