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

    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.clips()[1], sameFile) << "other placeholders of the file stay missing";
    Clip live = project.clips()[0];
    EXPECT_EQ(live.filmstrip.size(), FakeMediaServices::kFilmstripFrames) << "enriched";
    // Pictures aside, it is the new file's probe with the old clip's identity, place and speed.
    live.filmstrip.clear();
    live.waveform = nullptr;
    live.waveformPeaks = nullptr;
    Clip expected = media->probe("/m/found.mov", live.bookmark, old.id).value();
    std::tie(expected.inSeconds, expected.outSeconds, expected.startOnTimeline) =
        std::tuple(1, 6, 4);
    expected.streamMask = StreamMask::videoOnly;
    expected.linkGroupID = record.linkGroupID;
    expected.rateMultiplier = 2;
    EXPECT_EQ(live.bookmark, FakeMediaServices::bookmarkFor("/m/found.mov"));
    EXPECT_EQ(live, expected);
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", 1}));
    EXPECT_TRUE(media->renderCalls().empty());
    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{old, sameFile}));
}

TEST_F(RelinkTest, TheTrimIsHeldInsideTheNewFile) {
    struct Case {
        double in, out, fileSeconds;
        double expectedIn, expectedOut;
    };
    for (const Case& k : std::vector<Case>{{2, 8, 5, 2, 5},  // a shorter file shortens it
                                           {7, 8, 5, 5, 5},  // an in point past its end
                                           {-1, 3, 30, 0, 3}}) {
        const std::string file = "/m/" + std::to_string(k.in) + ".mov";
        media->add(file, k.fileSeconds);
        Clip a = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, k.in, k.out, 0});
        project.setClips({a});
        project.relinkClip(a.id, file);
        executor.drain();
        EXPECT_EQ(project.clip(a.id)->inSeconds, k.expectedIn) << k.in;
        EXPECT_EQ(project.clip(a.id)->outSeconds, k.expectedOut) << k.in;
    }
}

TEST_F(RelinkTest, AFileThatCannotBeProbedChangesNothingButAClipGoneMeanwhileStillRecords) {
    Clip a = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 4, 1});
    place(project, {a}, a.id);
    Recorder r(project);
    project.relinkClip(Uuid::random(), "/m/found.mov");
    project.relinkClip(a.id, "/m/broken.mov");
    EXPECT_EQ(drainCapturingLog(), "Vantrell: relink failed for broken.mov\n");
    EXPECT_EQ(project.clips(), std::vector<Clip>{a});
    EXPECT_TRUE(r.heardNothing());

    media->hold(FakeMediaServices::probes);
    project.relinkClip(a.id, "/m/found.mov");
    ASSERT_TRUE(media->waitFor(FakeMediaServices::probes, 2));
    project.moveClip(a.id, 9);
    media->release();
    executor.drain();
    EXPECT_EQ(project.clip(a.id)->startOnTimeline, 1) << "an edit meanwhile is replaced";

    project.relinkClip(a.id, "/m/found.mov");
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", token + 1}));
}

}  // namespace
