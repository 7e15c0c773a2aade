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
using model::ProjectField;
using model::VantrellSnapshotClip;
using model_test::FakeMediaServices;
using model_test::Recorder;

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

    // Starts enrichment of `id` and waits until both of its tasks are held in the
    // background.
    void startHeld(const Uuid& id) {
        media->holdFilmstrips();
        media->holdPeaks();
        project.enrichAssetsAsync(id);
        ASSERT_TRUE(media->waitForFilmstripCalls(1));
        ASSERT_TRUE(media->waitForPeakCalls(1));
    }

    static bool isEnriched(const Clip& c) {
        return c.filmstrip.size() == FakeMediaServices::kFilmstripFrames && c.waveform &&
               c.waveformPeaks;
    }
};

// Publishing.

TEST_F(EnrichmentTest, ResultsAreWrittenIntoTheClipWithoutHistoryTokenOrChange) {
    Clip c = placed("/m/a.mov", 10);
    Recorder r(project);
    project.enrichAssetsAsync(c.id);
    executor.drain();

    const Clip& now = *project.clip(c.id);
    ASSERT_TRUE(isEnriched(now));
    EXPECT_EQ(now.waveformPeaks->size(), 2000u);
    EXPECT_EQ(now.waveformPeaks->front(), FakeMediaServices::kPeakLevel);
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(r.count(ProjectField::compositionToken), 0u);
    EXPECT_EQ(r.count(ProjectField::undoStack), 0u);
    EXPECT_GE(r.count(ProjectField::clips), 1u);
    EXPECT_EQ(project.compositionToken(), 0);
    EXPECT_FALSE(project.canUndo());
}

TEST_F(EnrichmentTest, PeaksAreAskedForAtTwoHundredASecondWithAFloorOf1600) {
    Clip four = placed("/m/four.wav", 4, false);
    Clip ten = placed("/m/ten.wav", 10, false);
    Clip minute = placed("/m/minute.wav", 60, false);
    Clip odd = placed("/m/odd.wav", 8.0051, false);
    for (const Clip& c : {four, ten, minute, odd}) {
        project.enrichAssetsAsync(c.id);
        executor.drain();
    }
    auto calls = media->peakCalls();
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0].targetPeakCount, 1600);
    EXPECT_EQ(calls[1].targetPeakCount, 2000);
    EXPECT_EQ(calls[2].targetPeakCount, 12000);
    EXPECT_EQ(calls[3].targetPeakCount, 1601) << "the product is cut toward zero";
    EXPECT_EQ(project.clip(minute.id)->waveformPeaks->size(), 12000u);
}

TEST_F(EnrichmentTest, OnlyTheStreamsAFileHasAreWorkedOn) {
    Clip silentMovie = placed("/m/silent.mov", 5, true, false);
    Clip song = placed("/m/song.wav", 5, false, true);
    project.enrichAssetsAsync(silentMovie.id);
    project.enrichAssetsAsync(song.id);
    executor.drain();

    EXPECT_EQ(media->filmstripCalls(), std::vector<std::filesystem::path>{"/m/silent.mov"});
    ASSERT_EQ(media->peakCalls().size(), 1u);
    EXPECT_EQ(media->peakCalls()[0].url, "/m/song.wav");
    EXPECT_EQ(project.clip(silentMovie.id)->filmstrip.size(), FakeMediaServices::kFilmstripFrames);
    EXPECT_FALSE(project.clip(silentMovie.id)->waveform);
    EXPECT_FALSE(project.clip(silentMovie.id)->waveformPeaks);
    EXPECT_TRUE(project.clip(song.id)->filmstrip.empty());
    EXPECT_TRUE(project.clip(song.id)->waveform);
}

TEST_F(EnrichmentTest, TheTwoTasksRunSideBySide) {
    Clip c = placed("/m/a.mov", 10);
    media->holdFilmstrips();
    project.enrichAssetsAsync(c.id);
    EXPECT_TRUE(media->waitForPeakCalls(1)) << "the sound does not wait for the pictures";
    media->releaseEnrichment();
    executor.drain();

    media->holdPeaks();
    project.enrichAssetsAsync(c.id);
    EXPECT_TRUE(media->waitForFilmstripCalls(2)) << "the pictures do not wait for the sound";
    media->releaseEnrichment();
    executor.drain();
}

TEST_F(EnrichmentTest, AWaveformThatCannotBeDrawnStillLeavesThePeaks) {
    Clip c = placed("/m/a.wav", 3, false);
    media->failWaveformImages();
    project.enrichAssetsAsync(c.id);
    executor.drain();
    EXPECT_FALSE(project.clip(c.id)->waveform);
    ASSERT_TRUE(project.clip(c.id)->waveformPeaks);
    EXPECT_EQ(project.clip(c.id)->waveformPeaks->size(), 1600u);
}

TEST_F(EnrichmentTest, AFileThatFailsLeavesTheClipWithoutPicturesAndUntouched) {
    Clip c = placed("/m/a.mov", 10);
    startHeld(c.id);
    media->remove("/m/a.mov");
    Recorder r(project);
    media->releaseEnrichment();
    executor.drain();
    EXPECT_EQ(*project.clip(c.id), c);
    EXPECT_EQ(r.count(ProjectField::clips), 0u);
}

// Matching by id.

TEST_F(EnrichmentTest, AClipDeletedMeanwhileDropsItsResults) {
    Clip c = placed("/m/a.mov", 10);
    project.setSelectedClipID(c.id);
    startHeld(c.id);
    project.deleteSelected();
    media->releaseEnrichment();
    executor.drain();
    EXPECT_TRUE(project.clips().empty());
}

TEST_F(EnrichmentTest, AClipBroughtBackByUndoBeforeTheResultsLandTakesThem) {
    Clip c = placed("/m/a.mov", 10);
    project.setSelectedClipID(c.id);
    startHeld(c.id);
    project.deleteSelected();
    project.undo();
    media->releaseEnrichment();
    executor.drain();
    ASSERT_TRUE(project.clip(c.id));
    EXPECT_TRUE(isEnriched(*project.clip(c.id)));
}

TEST_F(EnrichmentTest, AnEntryRecordedMeanwhileHoldsTheClipWithoutItsPictures) {
    Clip c = placed("/m/a.mov", 10);
    startHeld(c.id);
    project.recordSnapshot("Move Clip");
    project.moveClip(c.id, 4);
    project.commitEdit();
    media->releaseEnrichment();
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
    media->releaseEnrichment();
    executor.drain();
    EXPECT_TRUE(project.clip(c.id)->filmstrip.empty());
    EXPECT_FALSE(project.clip(c.id)->waveformPeaks);
}

// The roads that make live clips.

TEST_F(EnrichmentTest, ImportEnrichesEachClipItPlaces) {
    media->add("/m/a.mov", 4);
    media->add("/m/b.wav", 2, false, true);
    project.importURLs({"/m/a.mov", "/m/gone.mov", "/m/b.wav"});
    EXPECT_NE(drainCapturingLog().find("Vantrell: failed to import gone.mov"), std::string::npos);
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_TRUE(isEnriched(project.clips()[0]));
    EXPECT_TRUE(project.clips()[1].waveform);
    EXPECT_EQ(project.compositionToken(), 2) << "one raise per clip, none for its pictures";
    EXPECT_EQ(project.undoCount(), 1u);
}

TEST_F(EnrichmentTest, HydrationEnrichesLiveClipsButNoPlaceholder) {
    media->add("/m/a.mov", 4);
    VantrellSnapshotClip live{Uuid::random(), "/m/a.mov", {}, 0, 4, 0};
    VantrellSnapshotClip lost{Uuid::random(), "/m/gone.mov", {}, 0, 4, 4};
    project.hydrateClips({live, lost});
    drainCapturingLog();
    EXPECT_EQ(media->filmstripCalls(), std::vector<std::filesystem::path>{"/m/a.mov"});
    EXPECT_EQ(media->peakCalls().size(), 1u);
    EXPECT_TRUE(isEnriched(*project.clip(live.id)));
    EXPECT_TRUE(project.clip(lost.id)->filmstrip.empty());
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_FALSE(project.canUndo());
}

TEST_F(EnrichmentTest, RelinkingEnrichesTheClipFromItsNewFile) {
    media->add("/m/found.mov", 6);
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 4, 0});
    project.setClips({placeholder});
    project.relinkClip(placeholder.id, "/m/found.mov");
    executor.drain();
    EXPECT_EQ(media->filmstripCalls(), std::vector<std::filesystem::path>{"/m/found.mov"});
    EXPECT_TRUE(isEnriched(*project.clip(placeholder.id)));
    EXPECT_EQ(project.undoCount(), 1u);
}

// Edits that share instead of computing.

TEST_F(EnrichmentTest, ASplitSharesWhatTheClipHadAndComputesNothing) {
    Clip c = placed("/m/a.mov", 10);
    project.enrichAssetsAsync(c.id);
    executor.drain();
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
    EXPECT_EQ(media->filmstripCalls().size(), 1u);
    EXPECT_EQ(media->peakCalls().size(), 1u);
}

TEST_F(EnrichmentTest, AnUnlinkedAudioHalfSharesTheWaveformButNotTheFilmstrip) {
    Clip c = placed("/m/a.mov", 10);
    project.enrichAssetsAsync(c.id);
    executor.drain();
    Clip whole = *project.clip(c.id);
    project.toggleLinkAV(c.id);
    executor.drain();

    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& video = project.clips()[0];
    const Clip& audio = project.clips()[1];
    EXPECT_EQ(video.filmstrip, whole.filmstrip);
    EXPECT_TRUE(audio.filmstrip.empty());
    EXPECT_EQ(audio.waveform, whole.waveform);
    EXPECT_EQ(audio.waveformPeaks, whole.waveformPeaks);
    EXPECT_EQ(media->peakCalls().size(), 1u);
}

}  // namespace
