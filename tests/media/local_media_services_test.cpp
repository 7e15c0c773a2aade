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

TEST(LocalMediaServices, ASecondProbeOfOneFileAnswersItsOwnIdAndBookmarkFromTheFirstRead) {
    media::LocalMediaServices media;
    auto url = samples::h264Mp4();
    auto first = media.probe(url, model::Bytes{1}, common::Uuid::random());
    auto secondID = common::Uuid::random();
    auto second = media.probe(url, model::Bytes{2}, secondID);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(second.value().id, secondID);
    EXPECT_EQ(second.value().bookmark, model::Bytes{2});
    EXPECT_EQ(second.value().fullDurationSeconds, first.value().fullDurationSeconds);
    EXPECT_EQ(second.value().fingerprint, first.value().fingerprint);
    // One read: the picture is the same object, not one decoded again.
    EXPECT_EQ(second.value().thumbnail, first.value().thumbnail);
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

TEST(LocalMediaServices, RequestsForOneFileAtOnceShareOneRead) {
    media::LocalMediaServices media;
    auto url = samples::h264Mp4();
    constexpr int kRequests = 4;
    std::vector<common::Result<model::Clip>> probes(kRequests, common::Error{"not run"});
    std::vector<std::vector<model::Image>> strips(kRequests);
    std::latch start(kRequests);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kRequests; ++i)
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                probes[i] = media.probe(url, std::nullopt, common::Uuid::random());
                strips[i] = media.generateFilmstrip(url, 1.0);
            });
    }
    for (int i = 0; i < kRequests; ++i) {
        ASSERT_TRUE(probes[i]);
        EXPECT_EQ(probes[i].value().thumbnail, probes[0].value().thumbnail);
        ASSERT_FALSE(strips[i].empty());
        EXPECT_EQ(strips[i], strips[0]);
    }
}

}  // namespace
