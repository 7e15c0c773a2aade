#include "media/local_media_services.h"

#include <chrono>
#include <filesystem>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/thread_pool_executor.h"
#include "media/sample_media.h"
#include "media/waveform.h"
#include "model/project.h"

namespace {

namespace samples = sample_media;
namespace fs = std::filesystem;

TEST(LocalMediaServices, ImportedClipsAreEnrichedFromTheirFilesSharingWhatWasReadFromOne) {
    common::ThreadPoolExecutor executor{2};
    model::Project project{{&executor, std::make_shared<media::LocalMediaServices>()}};
    project.importURLs({samples::h264Mp4(), samples::tone("m4a", "aac"),
                        samples::h264VideoOnlyMp4(), samples::h264Mp4()});
    executor.drain();
    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 4u);
    EXPECT_EQ(clips[0].filmstrip.size(), 3u);
    ASSERT_TRUE(clips[0].waveform && clips[0].waveformPeaks);
    EXPECT_EQ(clips[0].waveformPeaks->size(), 1600u);
    EXPECT_EQ(clips[0].waveform->width, media::waveform::kImageWidth);
    EXPECT_TRUE(clips[1].filmstrip.empty() && clips[1].waveformPeaks);
    EXPECT_EQ(clips[2].filmstrip.size(), 3u);
    EXPECT_FALSE(clips[2].waveformPeaks);
    EXPECT_NE(clips[3].id, clips[0].id);
    EXPECT_EQ(clips[3].filmstrip, clips[0].filmstrip);
    EXPECT_EQ(clips[3].waveform, clips[0].waveform);
}

TEST(LocalMediaServices, AFileChangedSinceItWasReadIsReadAgain) {
    media::LocalMediaServices media;
    auto url = testing_support::freshDir("changed-media") / "clip.mp4";
    fs::copy_file(samples::h264Mp4(), url);
    auto before = media.probe(url, std::nullopt, common::Uuid::random());
    auto strip = media.generateFilmstrip(url, 1.0);
    auto peaks = media.extractPeaks(url, 1600);
    ASSERT_TRUE(before && before.value().hasAudio && peaks && !strip.empty());

    // Same size and path, a later time: read anew.
    fs::last_write_time(url, fs::last_write_time(url) + std::chrono::seconds(5));
    auto touched = media.probe(url, std::nullopt, common::Uuid::random());
    ASSERT_TRUE(touched);
    EXPECT_NE(touched.value().thumbnail, before.value().thumbnail);
    auto stripAgain = media.generateFilmstrip(url, 1.0);
    ASSERT_FALSE(stripAgain.empty());
    EXPECT_NE(stripAgain.front(), strip.front());

    // Other contents: the probe and the peaks tell the new file.
    fs::copy_file(samples::h264VideoOnlyMp4(), url, fs::copy_options::overwrite_existing);
    auto replaced = media.probe(url, std::nullopt, common::Uuid::random());
    ASSERT_TRUE(replaced);
    EXPECT_FALSE(replaced.value().hasAudio);
    EXPECT_FALSE(media.extractPeaks(url, 1600));
}

// Each request answers its own id and bookmark, all from one read of the file.
TEST(LocalMediaServices, RequestsForOneFileAtOnceOrLaterShareOneRead) {
    media::LocalMediaServices media;
    auto url = samples::h264Mp4();
    constexpr int kAtOnce = 4;
    std::vector<common::Result<model::Clip>> probes(kAtOnce + 1, common::Error{"not run"});
    std::vector<std::vector<model::Image>> strips(kAtOnce + 1);
    const auto lastID = common::Uuid::random();
    const auto request = [&](int i) {
        const auto id = i < kAtOnce ? common::Uuid::random() : lastID;
        probes[i] = media.probe(url, model::Bytes{static_cast<std::uint8_t>(i)}, id);
        strips[i] = media.generateFilmstrip(url, 1.0);
    };
    std::latch start(kAtOnce);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kAtOnce; ++i)
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                request(i);
            });
    }
    request(kAtOnce);
    for (int i = 0; i <= kAtOnce; ++i) {
        ASSERT_TRUE(probes[i]);
        EXPECT_EQ(probes[i].value().bookmark, model::Bytes{static_cast<std::uint8_t>(i)});
        EXPECT_EQ(probes[i].value().thumbnail, probes[0].value().thumbnail);
        EXPECT_FALSE(strips[i].empty());
        EXPECT_EQ(strips[i], strips[0]);
    }
    EXPECT_EQ(probes[kAtOnce].value().id, lastID);
}

}  // namespace
