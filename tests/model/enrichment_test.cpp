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

class EnrichmentTest : public MediaProjectTest {
  protected:
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

    bool isEnriched(const Uuid& id) {
        const Clip& c = *project.clip(id);
        return c.filmstrip.size() == FakeMediaServices::kFilmstripFrames && c.waveform &&
               c.waveformPeaks;
    }
};

TEST_F(EnrichmentTest, ResultsGoInPlaceOnlyToTheClipThatStillShowsTheFileWhenTheyLand) {
    Clip c = liveClip("/m/a.mov", 10);
    place(project, {c}, c.id);
    startHeld(c.id);
    media->remove("/m/a.mov");
    finish();
    EXPECT_EQ(*project.clip(c.id), c) << "a file that fails leaves the clip untouched";

    media->add("/m/a.mov", 10);
    Recorder r(project);
    startHeld(c.id);
    finish();
    EXPECT_TRUE(isEnriched(c.id));
    EXPECT_EQ(*project.clip(c.id)->waveformPeaks,
              std::vector<float>(2000, FakeMediaServices::kPeakLevel));
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(r.fields, (std::vector{model::ProjectField::clips, model::ProjectField::clips}));

    project.setClips({c});
    startHeld(c.id);
    project.deleteSelected();
    project.undo();
    finish();
    EXPECT_TRUE(isEnriched(c.id)) << "a clip brought back by undo takes them";

    Clip relinked = liveClip("/m/b.mov", 10);
    relinked.id = c.id;
    startHeld(c.id);
    project.setClips({relinked});
    finish();
    EXPECT_FALSE(project.clip(c.id)->waveformPeaks) << "pictures of a file it no longer names";
}

TEST_F(EnrichmentTest, ASplitAndAnUnlinkShareWhatTheClipHad) {
    Clip c = liveClip("/m/a.mov", 10);
    place(project, {c}, c.id);
    project.enrichAssetsAsync(c.id);
    executor.drain();
    Clip whole = *project.clip(c.id);
    project.setPlayheadGlobal(8);
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.clips()[1].filmstrip, whole.filmstrip);
    EXPECT_EQ(project.clips()[1].waveformPeaks, whole.waveformPeaks) << "the same peaks";
    project.toggleLinkAV(c.id);
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(project.clips()[1].waveformPeaks, whole.waveformPeaks);
}

}  // namespace