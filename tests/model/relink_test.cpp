#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::StreamMask;
using model::VantrellSnapshotClip;
using model_test::FakeMediaServices;
using model_test::lastStep;
using model_test::Placement;
using model_test::placement;
using model_test::Step;

class RelinkTest : public model_test::MediaProjectTest {
  protected:
    // A placeholder for a lost file, using in..out and placed at `start`.
    Clip placeholder(double in, double out, double start = 0) {
        return Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov",
                                         FakeMediaServices::bookmarkFor("/gone/a.mov"), in, out,
                                         start});
    }
};

TEST_F(RelinkTest, TheClipKeepsItsIdentityPlaceAndSpeedAndTakesTheNewFile) {
    media->add("/m/found.mov", 12);
    VantrellSnapshotClip record{Uuid::random(), "/gone/a.mov", {}, 1, 6, 4};
    record.streamMask = StreamMask::videoOnly;
    record.linkGroupID = Uuid::random();
    record.rateMultiplier = 2;
    Clip old = Clip::missingPlaceholder(record);
    Clip sameFile = placeholder(4, 8, 4);
    project.setClips({old, sameFile});
    project.relinkClip(old.id, "/m/found.mov");
    EXPECT_FALSE(project.canUndo()) << "history waits for the probe";
    executor.drain();

    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.clips()[1], sameFile) << "other placeholders of the file stay missing";
    const Clip live = project.clips()[0];
    EXPECT_EQ(live.id, old.id);
    EXPECT_FALSE(live.isMissing);
    EXPECT_EQ(live.url, std::filesystem::path("/m/found.mov"));
    EXPECT_EQ(live.bookmark, FakeMediaServices::bookmarkFor("/m/found.mov"));
    EXPECT_EQ(live.displayName, "found.mov");
    EXPECT_EQ(live.fullDurationSeconds, 12);
    EXPECT_EQ(live.fingerprint, "v:1635148593:1280x720");
    EXPECT_TRUE(live.thumbnail);
    EXPECT_EQ(placement(live), (Placement{1, 6, 4}));
    EXPECT_EQ(live.streamMask, StreamMask::videoOnly);
    EXPECT_EQ(live.linkGroupID, record.linkGroupID);
    EXPECT_EQ(live.rateMultiplier, 2);
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", 1}));
    EXPECT_TRUE(media->renderCalls().empty());

    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{old, sameFile}));
    project.redo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{live, sameFile}));
}

TEST_F(RelinkTest, TheTrimIsHeldInsideTheNewFile) {
    struct Case {
        const char* name;
        double in, out, fileSeconds;
        double expectedIn, expectedOut;
    };
    const std::vector<Case> cases = {
        {"a shorter file shortens the trim", 2, 8, 5, 2, 5},
        {"an in point past the new file leaves length zero", 7, 8, 5, 5, 5},
        {"a negative in point is limited to zero", -1, 3, 30, 0, 3},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        const std::string file = std::string("/m/") + k.name + ".mov";
        media->add(file, k.fileSeconds);
        Clip a = placeholder(k.in, k.out);
        project.setClips({a});
        project.relinkClip(a.id, file);
        executor.drain();
        EXPECT_EQ(project.clip(a.id)->inSeconds, k.expectedIn);
        EXPECT_EQ(project.clip(a.id)->outSeconds, k.expectedOut);
    }
}

TEST_F(RelinkTest, AReversedPlaceholderKeepsItsStretchAndRendersAnew) {
    media->add("/m/found.mov", 12);
    media->setRenderResult("/tmp/vantrell-reversed-1.mov");
    VantrellSnapshotClip record{Uuid::random(), "/gone/a.mov", {}, 2, 6, 0};
    record.isReversed = true;
    record.forwardInSeconds = 2;
    record.forwardOutSeconds = 6;
    Clip old = Clip::missingPlaceholder(record);
    project.setClips({old});
    project.relinkClip(old.id, "/m/found.mov");
    std::string log = drainCapturingLog();

    const Clip& now = *project.clip(old.id);
    EXPECT_TRUE(now.isReversed);
    EXPECT_EQ(now.forwardInSeconds, 2);
    EXPECT_EQ(now.forwardOutSeconds, 6);
    EXPECT_EQ(now.reversedURL, std::filesystem::path("/tmp/vantrell-reversed-1.mov"));
    EXPECT_EQ(placement(now), (Placement{0, 4, 0}));
    auto calls = media->renderCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].url, std::filesystem::path("/m/found.mov"));
    EXPECT_EQ(calls[0].fromSeconds, 2);
    EXPECT_EQ(calls[0].toSeconds, 6);
    EXPECT_NE(log.find("renderReversedAsync dispatched for found.mov range=[2.000000..6.000000]"),
              std::string::npos);
    EXPECT_EQ(project.undoCount(), 1u);
}

TEST_F(RelinkTest, AnAudioFileTakesTheClipOffTheVideoRowButKeepsItsMask) {
    media->add("/m/voice.wav", 12, false, true);
    Clip a = placeholder(0, 4);
    project.setClips({a});
    project.relinkClip(a.id, "/m/voice.wav");
    executor.drain();
    const Clip& now = *project.clip(a.id);
    EXPECT_FALSE(now.hasVideo);
    EXPECT_EQ(now.streamMask, StreamMask::both);
    EXPECT_FALSE(now.isOnVideoRow());
    EXPECT_TRUE(now.isOnAudioRow());
    EXPECT_FALSE(project.hasVideoContent());
}

TEST_F(RelinkTest, AnUnknownClipOrAFileThatCannotBeProbedChangesNothing) {
    media->add("/m/found.mov", 12);
    Clip a = placeholder(0, 4);
    project.setClips({a});
    model_test::Recorder r(project);
    project.relinkClip(Uuid::random(), "/m/found.mov");
    executor.drain();
    EXPECT_EQ(media->probeCount(), 0u);

    project.relinkClip(a.id, "/m/broken.mov");
    std::string log = drainCapturingLog();
    EXPECT_EQ(log, "Vantrell: relink failed for broken.mov\n");
    EXPECT_EQ(project.clips(), std::vector<Clip>{a});
    EXPECT_EQ(lastStep(project), Step{});
    EXPECT_TRUE(r.heardNothing());
}

TEST_F(RelinkTest, AClipDeletedDuringTheProbeStillRecordsAndRaisesTheToken) {
    media->add("/m/found.mov", 12);
    Clip a = placeholder(0, 4);
    model_test::place(project, {a}, a.id);
    project.relinkClip(a.id, "/m/found.mov");
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", token + 1}));
}

TEST_F(RelinkTest, AnEditDuringTheProbeIsReplacedByTheRelinkedClip) {
    media->add("/m/found.mov", 12);
    Clip a = placeholder(0, 4, 1);
    project.setClips({a});
    media->hold(FakeMediaServices::probes);
    project.relinkClip(a.id, "/m/found.mov");
    ASSERT_TRUE(media->waitFor(FakeMediaServices::probes, 1));
    project.moveClip(a.id, 9);
    media->release();
    executor.drain();
    EXPECT_EQ(project.clip(a.id)->startOnTimeline, 1);
    EXPECT_FALSE(project.clip(a.id)->isMissing);
}

}  // namespace
