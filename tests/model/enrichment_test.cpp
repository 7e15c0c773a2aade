#include <algorithm>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "model/project.h"
#include "support/fake_media_services.h"
#include "support/model_test_support.h"

// Filmstrips and waveforms are caches: written into the clip in place, without history,
// token or didChange, and only while the clip still shows the file they were made from.

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::ProjectField;

class EnrichmentTest : public MediaProjectTest {
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

    // Starts enrichment of `id` and waits until both of its tasks are held in the background,
    // which both reach only if neither waits for the other.
    void startHeld(const Uuid& id) {
        std::size_t filmstrips = media->filmstripCalls().size();
        std::size_t peaks = media->peakCalls().size();
        media->hold(FakeMediaServices::filmstrips);
        media->hold(FakeMediaServices::peaks);
        project.enrichAssetsAsync(id);
        ASSERT_TRUE(media->waitFor(FakeMediaServices::filmstrips, filmstrips + 1));
        ASSERT_TRUE(media->waitFor(FakeMediaServices::peaks, peaks + 1));
    }

    void finish() {
        media->release();
        executor.drain();
    }

    static bool isEnriched(const Clip& c) {
        return c.filmstrip.size() == FakeMediaServices::kFilmstripFrames && c.waveform &&
               c.waveformPeaks;
    }
};

TEST_F(EnrichmentTest, PeaksAreAskedForAtTwoHundredASecondWithAFloorOf1600OnlyForSound) {
    media->failWaveformImages();
    Clip silentMovie = placed("/m/silent.mov", 5, true, false);
    for (double seconds : {4.0, 60.0, 8.008})
        project.enrichAssetsAsync(placed("/m/a.wav", seconds, false).id);
    project.enrichAssetsAsync(silentMovie.id);
    executor.drain();
    std::vector<int> asked;
    for (const auto& call : media->peakCalls()) asked.push_back(call.targetPeakCount);
    std::sort(asked.begin(), asked.end());
    // The product is cut toward zero.
    EXPECT_EQ(asked, (std::vector<int>{1600, 1601, 12000}));
    EXPECT_EQ(media->filmstripCalls(), std::vector<std::filesystem::path>{"/m/silent.mov"});
    const Clip& song = project.clips()[1];
    EXPECT_FALSE(song.waveform) << "a waveform that can't be drawn still leaves the peaks";
    ASSERT_TRUE(song.waveformPeaks);
    EXPECT_EQ(song.waveformPeaks->size(), 1600u);
    EXPECT_TRUE(song.filmstrip.empty());
}

TEST_F(EnrichmentTest, ResultsGoOnlyToTheClipThatStillShowsTheFileWhenTheyLand) {
    Clip c = placed("/m/a.mov", 10);
    project.setSelectedClipID(c.id);
    startHeld(c.id);
    media->remove("/m/a.mov");
    finish();
    EXPECT_EQ(*project.clip(c.id), c) << "a file that fails leaves the clip untouched";

    media->add("/m/a.mov", 10);
    startHeld(c.id);
    project.deleteSelected();
    project.undo();
    finish();
    EXPECT_TRUE(isEnriched(*project.clip(c.id))) << "a clip brought back by undo takes them";

    Clip relinked = liveClip("/m/b.mov", 10);
    relinked.id = c.id;
    startHeld(c.id);
    project.setClips({relinked});
    finish();
    EXPECT_FALSE(project.clip(c.id)->waveformPeaks) << "pictures of a file it no longer names";
}

TEST_F(EnrichmentTest, ResultsGoInPlaceWithoutHistoryOrChangeAndAnEntryMeanwhileHasNone) {
    Clip c = placed("/m/a.mov", 10);
    Clip d = placed("/m/b.mov", 10);
    Recorder r(project);
    startHeld(c.id);
    finish();
    ASSERT_TRUE(isEnriched(*project.clip(c.id)));
    EXPECT_EQ(*project.clip(c.id)->waveformPeaks,
              std::vector<float>(2000, FakeMediaServices::kPeakLevel));
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(r.count(ProjectField::compositionToken) + r.count(ProjectField::undoStack), 0u);

    startHeld(d.id);
    project.recordSnapshot("Move Clip");
    project.moveClip(d.id, 4);
    project.commitEdit();
    finish();
    EXPECT_TRUE(isEnriched(*project.clip(d.id)));
    project.undo();
    executor.drain();
    EXPECT_TRUE(project.clip(d.id)->filmstrip.empty()) << "the entry holds it without pictures";
    EXPECT_EQ(media->filmstripCalls().size(), 2u) << "undo starts no enrichment";
}

TEST_F(EnrichmentTest, ASplitAndAnUnlinkShareWhatTheClipHadAndComputeNothing) {
    Clip c = placed("/m/a.mov", 10);
    startHeld(c.id);
    finish();
    Clip whole = *project.clip(c.id);
    project.setPlayheadGlobal(4);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.clips()[1].filmstrip, whole.filmstrip);
    EXPECT_EQ(project.clips()[1].waveformPeaks, whole.waveformPeaks) << "the same peaks";

    project.toggleLinkAV(c.id);
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    const Clip& audio = project.clips()[1];
    EXPECT_TRUE(audio.filmstrip.empty()) << "the sound has no pictures";
    EXPECT_EQ(audio.waveform, whole.waveform);
    EXPECT_EQ(audio.waveformPeaks, whole.waveformPeaks);
    EXPECT_EQ(media->filmstripCalls().size(), 1u);
    EXPECT_EQ(media->peakCalls().size(), 1u);
}

}  // namespace
