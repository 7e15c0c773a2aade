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
    ASSERT_TRUE(movie.waveform && movie.waveformPeaks);
    EXPECT_EQ(movie.waveformPeaks->size(), 1600u);
    EXPECT_EQ(movie.waveform->width, media::waveform::kImageWidth);
    EXPECT_TRUE(project.clips()[1].filmstrip.empty() && project.clips()[1].waveformPeaks);
    EXPECT_EQ(project.clips()[2].filmstrip.size(), 3u);
    EXPECT_FALSE(project.clips()[2].waveformPeaks);
}

}  // namespace
