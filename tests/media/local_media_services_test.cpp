#include "media/local_media_services.h"

#include <chrono>
#include <filesystem>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "media/sample_media.h"

namespace {

namespace samples = sample_media;
namespace fs = std::filesystem;

TEST(LocalMediaServices, AFileChangedSinceItWasReadIsReadAgain) {
    media::LocalMediaServices media;
    auto url = testing_support::freshDir("changed-media") / "clip.mp4";
    fs::copy_file(samples::h264Mp4(), url);
    auto before = media.probe(url, std::nullopt, common::Uuid::random());
    ASSERT_TRUE(before && before.value().hasAudio && media.extractPeaks(url, 1600));

    // Same size and path, a later time: read anew.
    fs::last_write_time(url, fs::last_write_time(url) + std::chrono::seconds(5));
    auto touched = media.probe(url, std::nullopt, common::Uuid::random());
    ASSERT_TRUE(touched);
    EXPECT_NE(touched.value().thumbnail, before.value().thumbnail);

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
    const auto lastID = common::Uuid::random();
    const auto request = [&](int i) {
        const auto id = i < kAtOnce ? common::Uuid::random() : lastID;
        probes[i] = media.probe(url, model::Bytes{static_cast<std::uint8_t>(i)}, id);
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
    }
    EXPECT_EQ(probes[kAtOnce].value().id, lastID);
}

}  // namespace
