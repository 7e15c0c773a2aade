#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::ProjectField;
using model::VantrellSnapshotClip;
using model_test::FakeMediaServices;
using model_test::Recorder;
using Paths = std::vector<std::filesystem::path>;

class EnrichmentTest : public model_test::MediaProjectTest {
  protected:
    // A clip of `seconds` on the timeline, not yet enriched.
    Clip placed(const std::filesystem::path& path, double seconds, bool video = true,
                bool audio = true) {
        Clip c = liveClip(path, seconds, 0, video, audio);
        auto clips = project.clips();
        clips.push_back(c);
        project.setClips(clips);
        return c;
    }

    void enrich(const Uuid& id) {
        project.enrichAssetsAsync(id);
        executor.drain();
    }

    // Starts enrichment of `id` and waits until both of its tasks are held in the
    // background.
    void startHeld(const Uuid& id) {
        std::size_t filmstrips = media->filmstripCalls().size();
        std::size_t peaks = media->peakCalls().size();
        media->hold(FakeMediaServices::filmstrips);
        media->hold(FakeMediaServices::peaks);
        project.enrichAssetsAsync(id);
        ASSERT_TRUE(media->waitFor(FakeMediaServices::filmstrips, filmstrips + 1));
        ASSERT_TRUE(media->waitFor(FakeMediaServices::peaks, peaks + 1));
    }

    static bool isEnriched(const Clip& c) {
        return c.filmstrip.size() == FakeMediaServices::kFilmstripFrames && c.waveform &&
               c.waveformPeaks;
    }
};

TEST_F(EnrichmentTest, ResultsAreWrittenIntoTheClipWithoutHistoryTokenOrChange) {
    Clip c = placed("/m/a.mov", 10);
    Recorder r(project);
    enrich(c.id);

    const Clip& now = *project.clip(c.id);
    ASSERT_TRUE(isEnriched(now));
    EXPECT_EQ(*now.waveformPeaks, std::vector<float>(2000, FakeMediaServices::kPeakLevel));
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(r.count(ProjectField::compositionToken) + r.count(ProjectField::undoStack), 0u);
    EXPECT_GE(r.count(ProjectField::clips), 1u);
    EXPECT_EQ(model_test::lastStep(project), model_test::Step{});
}

TEST_F(EnrichmentTest, PeaksAreAskedForAtTwoHundredASecondWithAFloorOf1600) {
    media->failWaveformImages();
    for (double seconds : {4.0, 10.0, 60.0, 8.0051}) enrich(placed("/m/a.wav", seconds, false).id);
    std::vector<int> asked;
    for (const auto& call : media->peakCalls()) asked.push_back(call.targetPeakCount);
    // The product is cut toward zero.
    EXPECT_EQ(asked, (std::vector<int>{1600, 2000, 12000, 1601}));
    const Clip& c = project.clips()[0];
    EXPECT_FALSE(c.waveform) << "a waveform that can't be drawn still leaves the peaks";
    ASSERT_TRUE(c.waveformPeaks);
    EXPECT_EQ(c.waveformPeaks->size(), 1600u);
}

TEST_F(EnrichmentTest, OnlyTheStreamsAFileHasAreWorkedOn) {
    Clip silentMovie = placed("/m/silent.mov", 5, true, false);
    Clip song = placed("/m/song.wav", 5, false, true);
    project.enrichAssetsAsync(silentMovie.id);
    enrich(song.id);

    EXPECT_EQ(media->filmstripCalls(), Paths{"/m/silent.mov"});
    ASSERT_EQ(media->peakCalls().size(), 1u);
    EXPECT_EQ(media->peakCalls()[0].url, "/m/song.wav");
    EXPECT_EQ(project.clip(silentMovie.id)->filmstrip.size(), FakeMediaServices::kFilmstripFrames);
    EXPECT_FALSE(project.clip(silentMovie.id)->waveform ||
                 project.clip(silentMovie.id)->waveformPeaks);
    EXPECT_TRUE(project.clip(song.id)->filmstrip.empty());
    EXPECT_TRUE(project.clip(song.id)->waveform);
}

TEST_F(EnrichmentTest, TheTwoTasksRunSideBySide) {
    Clip c = placed("/m/a.mov", 10);
    media->hold(FakeMediaServices::filmstrips);
    project.enrichAssetsAsync(c.id);
    EXPECT_TRUE(media->waitFor(FakeMediaServices::peaks, 1))
        << "the sound does not wait for the pictures";
    media->release();
    executor.drain();

    media->hold(FakeMediaServices::peaks);
    project.enrichAssetsAsync(c.id);
    EXPECT_TRUE(media->waitFor(FakeMediaServices::filmstrips, 2))
        << "the pictures do not wait for the sound";
    media->release();
    executor.drain();
}

TEST_F(EnrichmentTest, AFileThatFailsLeavesTheClipWithoutPicturesAndUntouched) {
    Clip c = placed("/m/a.mov", 10);
    startHeld(c.id);
    media->remove("/m/a.mov");
    Recorder r(project);
    media->release();
    executor.drain();
    EXPECT_EQ(*project.clip(c.id), c);
    EXPECT_EQ(r.count(ProjectField::clips), 0u);
}

// Matching by id.

TEST_F(EnrichmentTest, ResultsGoToTheClipThatHasTheIdWhenTheyLand) {
    Clip c = placed("/m/a.mov", 10);
    project.setSelectedClipID(c.id);
    startHeld(c.id);
    project.deleteSelected();
    media->release();
    executor.drain();
    EXPECT_TRUE(project.clips().empty()) << "a clip deleted meanwhile drops them";

    project.undo();
    startHeld(c.id);
    project.deleteSelected();
    project.undo();
    media->release();
    executor.drain();
    ASSERT_TRUE(project.clip(c.id));
    EXPECT_TRUE(isEnriched(*project.clip(c.id))) << "a clip brought back by undo takes them";
}

TEST_F(EnrichmentTest, AnEntryRecordedMeanwhileHoldsTheClipWithoutItsPictures) {
    Clip c = placed("/m/a.mov", 10);
    startHeld(c.id);
    project.recordSnapshot("Move Clip");
    project.moveClip(c.id, 4);
    project.commitEdit();
    media->release();
    executor.drain();
    EXPECT_TRUE(isEnriched(*project.clip(c.id)));

    project.undo();
    executor.drain();
    EXPECT_TRUE(project.clip(c.id)->filmstrip.empty());
    EXPECT_FALSE(project.clip(c.id)->waveform);
    EXPECT_EQ(media->filmstripCalls().size(), 1u) << "undo starts no enrichment";
}

TEST_F(EnrichmentTest, PicturesOfAFileTheClipNoLongerNamesAreDropped) {
    Clip c = placed("/m/a.mov", 10);
    startHeld(c.id);
    Clip relinked = liveClip("/m/b.mov", 10);
    relinked.id = c.id;
    project.setClips({relinked});
    media->release();
    executor.drain();
    EXPECT_TRUE(project.clip(c.id)->filmstrip.empty());
    EXPECT_FALSE(project.clip(c.id)->waveformPeaks);
}

// The roads that make live clips.

TEST_F(EnrichmentTest, ImportHydrationAndRelinkEnrichEachLiveClipTheyMake) {
    media->add("/m/a.mov", 4);
    media->add("/m/b.wav", 2, false, true);
    project.importURLs({"/m/a.mov", "/m/b.wav"});
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_TRUE(isEnriched(project.clips()[0]));
    EXPECT_TRUE(project.clips()[1].waveform);
    EXPECT_EQ(project.compositionToken(), 2) << "one raise per clip, none for its pictures";

    media->add("/m/c.mov", 4);
    VantrellSnapshotClip live{Uuid::random(), "/m/c.mov", {}, 0, 4, 0};
    VantrellSnapshotClip lost{Uuid::random(), "/m/gone.mov", {}, 0, 4, 4};
    project.hydrateClips({live, lost});
    drainCapturingLog();
    EXPECT_TRUE(isEnriched(*project.clip(live.id)));
    media->add("/m/found.mov", 6);
    project.relinkClip(lost.id, "/m/found.mov");
    executor.drain();
    EXPECT_TRUE(isEnriched(*project.clip(lost.id)));
    EXPECT_EQ(media->filmstripCalls(), (Paths{"/m/a.mov", "/m/c.mov", "/m/found.mov"}))
        << "none for the placeholder";
    EXPECT_EQ(media->peakCalls().size(), 4u);
}

// Edits that share instead of computing.

TEST_F(EnrichmentTest, ASplitAndAnUnlinkShareWhatTheClipHadAndComputeNothing) {
    Clip c = placed("/m/a.mov", 10);
    enrich(c.id);
    Clip whole = *project.clip(c.id);
    project.setPlayheadGlobal(4);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    for (const Clip& half : project.clips()) {
        EXPECT_EQ(half.filmstrip, whole.filmstrip);
        EXPECT_EQ(half.waveform, whole.waveform);
        EXPECT_EQ(half.waveformPeaks, whole.waveformPeaks) << "the same peaks, not a copy";
    }

    project.toggleLinkAV(c.id);
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    const Clip& audio = project.clips()[1];
    EXPECT_EQ(project.clips()[0].filmstrip, whole.filmstrip);
    EXPECT_TRUE(audio.filmstrip.empty()) << "the sound has no pictures";
    EXPECT_EQ(audio.waveform, whole.waveform);
    EXPECT_EQ(audio.waveformPeaks, whole.waveformPeaks);
    EXPECT_EQ(media->filmstripCalls().size(), 1u);
    EXPECT_EQ(media->peakCalls().size(), 1u);
}

}  // namespace
