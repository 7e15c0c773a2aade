#include "media/local_media_services.h"

#include <memory>

#include <gtest/gtest.h>

#include "common/thread_pool_executor.h"
#include "media/sample_media.h"
#include "media/waveform.h"
#include "model/project.h"

namespace {

namespace samples = sample_media;

TEST(LocalMediaServices, AnImportedClipIsEnrichedFromItsFile) {
    common::ThreadPoolExecutor executor{2};
    model::Project project{{&executor, std::make_shared<media::LocalMediaServices>()}};
    project.importURLs({samples::h264Mp4(), samples::aacM4a(), samples::h264VideoOnlyMp4()});
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);

    const model::Clip& movie = project.clips()[0];
    EXPECT_EQ(movie.filmstrip.size(), 3u);
    for (const auto& frame : movie.filmstrip) {
        ASSERT_TRUE(frame);
        EXPECT_LE(frame->width, 160);
        EXPECT_LE(frame->height, 90);
    }
    ASSERT_TRUE(movie.waveformPeaks);
    EXPECT_EQ(movie.waveformPeaks->size(), 1600u);
    ASSERT_TRUE(movie.waveform);
    EXPECT_EQ(movie.waveform->width, media::waveform::kImageWidth);
    EXPECT_EQ(movie.waveform->height, media::waveform::kImageHeight);

    const model::Clip& song = project.clips()[1];
    EXPECT_TRUE(song.filmstrip.empty());
    EXPECT_TRUE(song.waveformPeaks);

    const model::Clip& silent = project.clips()[2];
    EXPECT_EQ(silent.filmstrip.size(), 3u);
    EXPECT_FALSE(silent.waveform);
    EXPECT_FALSE(silent.waveformPeaks);
    EXPECT_EQ(project.compositionToken(), 3);
}

}  // namespace
