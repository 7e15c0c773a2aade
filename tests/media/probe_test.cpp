#include "media/probe.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/sample_media.h"
#include "support/media_fixtures.h"

namespace {

using media::probeClip;
using media::ThumbnailPolicy;
namespace samples = sample_media;

constexpr double kOneFrame = 1.0 / 30;

common::Uuid someId() {
    return common::Uuid::random();
}

TEST(ProbeClip, H264Mp4FillsEveryField) {
    const auto file = samples::h264Mp4();
    const auto id = someId();
    const model::Bytes bookmark{1, 2, 3};

    auto probed = probeClip(file, bookmark, id);
    ASSERT_TRUE(probed) << probed.error().message;
    const model::Clip& clip = *probed;

    EXPECT_EQ(clip.id, id);
    EXPECT_EQ(clip.url, file);
    EXPECT_EQ(clip.bookmark, bookmark);
    EXPECT_EQ(clip.displayName, "h264_aac.mp4");
    EXPECT_TRUE(clip.hasVideo);
    EXPECT_TRUE(clip.hasAudio);
    EXPECT_NEAR(clip.fullDurationSeconds, 1.0, kOneFrame);
    EXPECT_DOUBLE_EQ(clip.frameRate, 30.0);
    EXPECT_EQ(clip.naturalSize, (model::Size{320, 240}));
    EXPECT_EQ(clip.inSeconds, 0);
    EXPECT_EQ(clip.outSeconds, clip.fullDurationSeconds);
    EXPECT_EQ(clip.streamMask, model::StreamMask::both);
    EXPECT_FALSE(clip.linkGroupID);
    EXPECT_EQ(clip.rateMultiplier, 1.0);
    EXPECT_FALSE(clip.isReversed);
    EXPECT_FALSE(clip.reversedURL);
    EXPECT_FALSE(clip.forwardInSeconds);
    EXPECT_FALSE(clip.forwardOutSeconds);
    EXPECT_FALSE(clip.isMissing);
    EXPECT_EQ(clip.startOnTimeline, 0);
    EXPECT_TRUE(clip.thumbnail);
    EXPECT_TRUE(clip.filmstrip.empty());
    EXPECT_FALSE(clip.waveform);
    EXPECT_FALSE(clip.waveformPeaks);
    EXPECT_EQ(clip.fingerprint, "v:1635148593:320x240");
    EXPECT_EQ(clip.rotationDegrees, 0);
}

TEST(ProbeClip, BookmarkMayBeAbsent) {
    auto probed = probeClip(samples::aacM4a(), std::nullopt, someId());
    ASSERT_TRUE(probed) << probed.error().message;
    EXPECT_FALSE(probed->bookmark);
}

// One file of each kind the import accepts, and what its probe must find.
struct Expected {
    std::string label;
    std::filesystem::path (*make)();
    bool hasVideo;
    bool hasAudio;
    double durationSeconds;
    double frameRate;
    model::Size naturalSize;
};

void PrintTo(const Expected& e, std::ostream* os) {
    *os << e.label;
}

class ProbeClipFormatTest : public testing::TestWithParam<Expected> {};

TEST_P(ProbeClipFormatTest, FindsStreamsDurationRateAndSize) {
    const Expected& expected = GetParam();
    auto probed = probeClip(expected.make(), std::nullopt, someId());
    ASSERT_TRUE(probed) << probed.error().message;
    const model::Clip& clip = *probed;

    EXPECT_EQ(clip.hasVideo, expected.hasVideo);
    EXPECT_EQ(clip.hasAudio, expected.hasAudio);
    // Within one frame of the file's own rate: a muxer may close on a frame boundary.
    const double oneFrame = expected.frameRate > 0 ? 1 / expected.frameRate : kOneFrame;
    EXPECT_NEAR(clip.fullDurationSeconds, expected.durationSeconds, oneFrame + 1e-9);
    EXPECT_EQ(clip.outSeconds, clip.fullDurationSeconds);
    EXPECT_NEAR(clip.frameRate, expected.frameRate, 0.001);
    EXPECT_EQ(clip.naturalSize, expected.naturalSize);
    EXPECT_EQ(static_cast<bool>(clip.thumbnail), expected.hasVideo);
    EXPECT_NE(clip.fingerprint.find(expected.hasVideo ? "v:" : "a:"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Containers, ProbeClipFormatTest,
    testing::Values(
        Expected{"H264InMkv", samples::h264Mkv, true, true, 1.0, 30, {320, 240}},
        Expected{"HevcInMkv", samples::hevcMkv, true, false, 1.0, 30, {320, 240}},
        Expected{"HevcInMp4", samples::hevcHvc1Mp4, true, false, 1.0, 30, {320, 240}},
        Expected{"Mpeg4InAvi", samples::mpeg4Avi, true, true, 1.0, 25, {320, 240}},
        Expected{"Vp9InWebm", samples::vp9Webm, true, true, 1.0, 30, {160, 120}},
        Expected{"ProResInMov", samples::proResMov, true, false, 0.2, 30, {160, 120}},
        Expected{"VideoOnlyMp4", samples::h264VideoOnlyMp4, true, false, 1.0, 30, {320, 240}},
        Expected{"AacInM4a", samples::aacM4a, false, true, 1.0, 0, {0, 0}},
        Expected{"Mp3", samples::mp3, false, true, 1.0, 0, {0, 0}},
        Expected{"PcmInWav", samples::wav, false, true, 1.0, 0, {0, 0}},
        Expected{"Flac", samples::flac, false, true, 1.0, 0, {0, 0}},
        Expected{"OpusInOgg", samples::opusOgg, false, true, 1.0, 0, {0, 0}}),
    [](const testing::TestParamInfo<Expected>& info) { return info.param.label; });

TEST(ProbeClip, CoverArtIsNotAVideoTrack) {
    auto probed = probeClip(samples::mp3WithCoverArt(), std::nullopt, someId());
    ASSERT_TRUE(probed) << probed.error().message;
    EXPECT_FALSE(probed->hasVideo);
    EXPECT_TRUE(probed->hasAudio);
    EXPECT_EQ(probed->frameRate, 0);
    EXPECT_EQ(probed->naturalSize, (model::Size{0, 0}));
    EXPECT_FALSE(probed->thumbnail);
    EXPECT_EQ(probed->fingerprint, "a:778924083");  // ".mp3"
}

TEST(ProbeClip, AudioFileHasNoPictureFields) {
    auto probed = probeClip(samples::aacM4a(), std::nullopt, someId());
    ASSERT_TRUE(probed) << probed.error().message;
    EXPECT_FALSE(probed->hasVideo);
    EXPECT_EQ(probed->frameRate, 0);
    EXPECT_EQ(probed->naturalSize, (model::Size{0, 0}));
    EXPECT_EQ(probed->rotationDegrees, 0);
    EXPECT_FALSE(probed->thumbnail);
    EXPECT_TRUE(probed->isOnAudioRow());
    EXPECT_FALSE(probed->isOnVideoRow());
}

TEST(ProbeClip, FileWithNeitherStreamIsAClipOnNoRow) {
    auto probed = probeClip(samples::subtitleOnlyMkv(), std::nullopt, someId());
    ASSERT_TRUE(probed) << probed.error().message;
    EXPECT_FALSE(probed->hasVideo);
    EXPECT_FALSE(probed->hasAudio);
    EXPECT_EQ(probed->fingerprint, "unknown");
    EXPECT_EQ(probed->frameRate, 0);
    EXPECT_EQ(probed->naturalSize, (model::Size{0, 0}));
    EXPECT_FALSE(probed->thumbnail);
    EXPECT_FALSE(probed->isOnVideoRow());
    EXPECT_FALSE(probed->isOnAudioRow());
}

TEST(ProbeClip, RotatedClipKeepsItsStoredSizeAndReportsClockwiseTurn) {
    const auto clockwise90 = samples::rotatedClockwise90Mp4();
    // The sample must carry the display matrix of a phone held upright.
    ASSERT_EQ(testing_support::run(std::string(VANTRELL_FFPROBE) + " -v error -show_streams " +
                                   testing_support::quote(clockwise90.string()) +
                                   " | grep -qx rotation=-90"),
              0);

    auto turned90 = probeClip(clockwise90, std::nullopt, someId());
    ASSERT_TRUE(turned90) << turned90.error().message;
    EXPECT_EQ(turned90->naturalSize, (model::Size{320, 240}));
    EXPECT_EQ(turned90->rotationDegrees, 90);
    EXPECT_EQ(turned90->fingerprint, "v:1635148593:320x240");

    auto turned270 = probeClip(samples::rotatedClockwise270Mp4(), std::nullopt, someId());
    ASSERT_TRUE(turned270) << turned270.error().message;
    EXPECT_EQ(turned270->naturalSize, (model::Size{320, 240}));
    EXPECT_EQ(turned270->rotationDegrees, 270);
}

TEST(ProbeClip, ProbesOfOneFileDifferOnlyByIdAndThumbnail) {
    const auto file = samples::h264Mp4();
    const auto id = someId();
    auto first = probeClip(file, std::nullopt, id, ThumbnailPolicy::skip);
    auto again = probeClip(file, std::nullopt, id, ThumbnailPolicy::skip);
    auto other = probeClip(file, std::nullopt, someId(), ThumbnailPolicy::skip);
    ASSERT_TRUE(first && again && other);

    EXPECT_FALSE(first->thumbnail);
    EXPECT_EQ(*first, *again);
    EXPECT_NE(*first, *other);
    other->id = id;
    EXPECT_EQ(*first, *other);
}

// Errors are full sentences that name the file.
void expectFailureNaming(const common::Result<model::Clip>& probed,
                         const std::filesystem::path& file) {
    ASSERT_FALSE(probed);
    EXPECT_NE(probed.error().message.find(file.string()), std::string::npos)
        << probed.error().message;
    EXPECT_EQ(probed.error().message.back(), '.');
}

TEST(ProbeClip, MissingFileFailsNamingIt) {
    const auto file = testing_support::freshDir("probe-missing") / "gone.mp4";
    expectFailureNaming(probeClip(file, std::nullopt, someId()), file);
}

TEST(ProbeClip, TextFileFailsNamingIt) {
    const auto file = testing_support::freshDir("probe-text") / "notes.txt";
    std::ofstream(file) << "These are notes about the edit, not a movie.\n";
    expectFailureNaming(probeClip(file, std::nullopt, someId()), file);
}

std::filesystem::path firstBytesOf(const std::filesystem::path& source,
                                   const std::filesystem::path& target, std::uintmax_t count) {
    std::ifstream in(source, std::ios::binary);
    std::vector<char> bytes(count);
    in.read(bytes.data(), static_cast<std::streamsize>(count));
    std::ofstream(target, std::ios::binary).write(bytes.data(), in.gcount());
    return target;
}

TEST(ProbeClip, Mp4CutBeforeItsIndexFailsNamingIt) {
    // The ffmpeg tool writes the index (moov) after the samples unless asked otherwise.
    const auto cut =
        firstBytesOf(samples::h264Mp4(), testing_support::freshDir("probe-cut") / "cut.mp4", 4096);
    expectFailureNaming(probeClip(cut, std::nullopt, someId()), cut);
}

TEST(ProbeClip, IndexedMp4CutMidwayProbesOrFailsCleanly) {
    const auto whole = testing_support::makeMedia(
        "h264_faststart.mp4", samples::picture(320, 240) + samples::kTone + "-t 1 " +
                                  samples::kH264 + "-c:a aac -movflags +faststart");
    const auto cut = firstBytesOf(whole, testing_support::freshDir("probe-cut-midway") / "half.mp4",
                                  std::filesystem::file_size(whole) / 2);

    auto probed = probeClip(cut, std::nullopt, someId());
    if (!probed) {
        expectFailureNaming(probed, cut);
        return;
    }
    EXPECT_TRUE(probed->hasVideo);
    EXPECT_NEAR(probed->fullDurationSeconds, 1.0, kOneFrame);
}

}  // namespace
