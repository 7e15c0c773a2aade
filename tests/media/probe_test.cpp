#include "media/probe.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "media/filmstrip.h"
#include "media/media_input.h"
#include "media/sample_media.h"
#include "media/thumbnail.h"
#include "media/waveform.h"
#include "support/media_fixtures.h"

namespace {

using media::probeClip;
using media::ThumbnailPolicy;
using sample_media::kH264;
using sample_media::kTone;
using sample_media::picture;
using testing_support::makeMedia;
namespace samples = sample_media;

common::Uuid someId() {
    return common::Uuid::random();
}

// The image is as large as a `maxWidth` x `maxHeight` box allows for a picture shown at
// `width` x `height`, never enlarged, and keeps that shape to within a pixel of rounding.
void expectFitted(const model::Image& image, double width, double height, int maxWidth,
                  int maxHeight) {
    ASSERT_TRUE(image);
    const double scale = std::min({1.0, maxWidth / width, maxHeight / height});
    EXPECT_NEAR(image->width, width * scale, 1);
    EXPECT_NEAR(image->height, height * scale, 1);
    EXPECT_TRUE(scale == 1 || image->width == maxWidth || image->height == maxHeight);
    EXPECT_EQ(image->rgba.size(), static_cast<std::size_t>(image->width) * image->height * 4);
}

TEST(ProbeClip, H264Mp4FillsEveryFieldTheSameEachTime) {
    const auto file = samples::h264Mp4();
    const auto id = someId();
    const model::Bytes bookmark{1, 2, 3};
    auto probed = probeClip(file, bookmark, id);
    ASSERT_TRUE(probed) << probed.error().message;
    EXPECT_NEAR(probed->fullDurationSeconds, 1.0, 1.0 / 30);
    ASSERT_TRUE(probed->thumbnail);
    // The test pattern's leftmost bar is red, and the thumbnail is opaque.
    const auto left = samples::pixel(*probed->thumbnail, 5, probed->thumbnail->height / 2);
    EXPECT_TRUE(samples::isRed(left)) << left.r << "," << left.g << "," << left.b;
    EXPECT_EQ(left.a, 255);

    // Everything else is the untouched default of a fresh clip.
    model::Clip expected;
    expected.id = id;
    expected.url = file;
    expected.bookmark = bookmark;
    expected.displayName = "h264_aac.mp4";
    expected.hasVideo = expected.hasAudio = true;
    expected.fullDurationSeconds = expected.outSeconds = probed->fullDurationSeconds;
    expected.frameRate = 30;
    expected.naturalSize = {320, 240};
    expected.thumbnail = probed->thumbnail;
    expected.fingerprint = "v:1635148593:320x240";
    expected.copyFacts.videoCodec = "h264";
    expected.copyFacts.audioCodec = "aac";
    expected.copyFacts.audioProfile = "LC";
    expected.copyFacts.keyframeSeconds = probed->copyFacts.keyframeSeconds;
    EXPECT_EQ(*probed, expected);
    ASSERT_FALSE(probed->copyFacts.keyframeSeconds.empty());
    EXPECT_NEAR(probed->copyFacts.keyframeSeconds.front(), 0.0, 1e-6);

    // Probed again, skipping the thumbnail, only the id the caller gives differs.
    auto again = probeClip(file, bookmark, someId(), ThumbnailPolicy::skip);
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->thumbnail);
    again->id = id;
    again->thumbnail = probed->thumbnail;
    EXPECT_EQ(*again, *probed);
}

// One file of each kind the import accepts, and what the probe and the enrichments find.
struct Expected {
    std::string label;
    std::function<std::filesystem::path()> make;
    std::string fingerprint;
    bool hasVideo = false;
    bool hasAudio = true;
    double durationSeconds = 1;
    double frameRate = 0;
    model::Size naturalSize;
    int rotationDegrees = 0;
};

// Makes the file only when a test needs it.
template <typename Make, typename... Args>
std::function<std::filesystem::path()> later(Make make, Args... args) {
    return [=] { return make(args...); };
}

Expected sound(std::string label, std::function<std::filesystem::path()> make,
               std::string fingerprint, double seconds = 1) {
    return {std::move(label), std::move(make), std::move(fingerprint), false, true, seconds};
}

Expected movie(std::string label, std::function<std::filesystem::path()> make,
               std::string fingerprint, bool hasAudio, double width, double height,
               double seconds = 1, double rate = 30, int rotation = 0) {
    return {
        std::move(label), std::move(make), std::move(fingerprint), true, hasAudio, seconds, rate,
        {width, height},  rotation};
}

// An MKV whose track says each frame lasts one millisecond (its clock's unit, as some
// writers put it there) while its frames come 30 a second.
std::filesystem::path mkvClaimingAThousandFps() {
    const auto made = testing_support::makeMedia(
        "h264_1000fps_source.mkv", samples::picture(320, 240) + "-t 1 " + samples::kH264);
    std::ifstream in(made, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const std::string defaultDuration{"\x23\xE3\x83"};
    const auto at = bytes.find(defaultDuration);
    if (at == std::string::npos) {
        ADD_FAILURE() << made << " says nothing of its frames' length";
        return made;
    }
    const unsigned size = static_cast<unsigned char>(bytes[at + 3]) & 0x7Fu;
    for (unsigned i = 0; i < size; ++i)
        bytes[at + 4 + i] = static_cast<char>((1'000'000ull >> (8 * (size - 1 - i))) & 0xFF);
    const auto claims = made.parent_path() / "h264_1000fps.mkv";
    std::ofstream(claims, std::ios::binary) << bytes;
    return claims;
}

void PrintTo(const Expected& e, std::ostream* os) {
    *os << e.label;
}

class ProbeClipFormatTest : public testing::TestWithParam<Expected> {};

TEST_P(ProbeClipFormatTest, FindsStreamsAndFingerprintAndFeedsEveryEnrichment) {
    const Expected& expected = GetParam();
    const auto file = expected.make();
    auto probed = probeClip(file, std::nullopt, someId());
    ASSERT_TRUE(probed) << probed.error().message;
    const model::Clip& clip = *probed;

    EXPECT_FALSE(clip.bookmark);
    EXPECT_EQ(clip.hasVideo, expected.hasVideo);
    EXPECT_EQ(clip.hasAudio, expected.hasAudio);
    EXPECT_EQ(clip.isOnVideoRow(), expected.hasVideo);
    EXPECT_EQ(clip.isOnAudioRow(), expected.hasAudio);
    // Within one frame of the file's own rate: a muxer may close on a frame boundary.
    const double oneFrame = 1 / (expected.frameRate > 0 ? expected.frameRate : 30);
    EXPECT_NEAR(clip.fullDurationSeconds, expected.durationSeconds, oneFrame + 1e-9);
    EXPECT_EQ(clip.outSeconds, clip.fullDurationSeconds);
    EXPECT_NEAR(clip.frameRate, expected.frameRate, 0.001);
    EXPECT_EQ(clip.naturalSize, expected.naturalSize);
    EXPECT_EQ(clip.rotationDegrees, expected.rotationDegrees);
    EXPECT_EQ(clip.fingerprint, expected.fingerprint);

    const auto filmstrip = media::generateFilmstrip(file, clip.fullDurationSeconds);
    const auto peaks = media::waveform::extractPeaks(file, 1600);
    EXPECT_EQ(static_cast<bool>(peaks), expected.hasAudio);
    if (peaks) {
        EXPECT_EQ(peaks->size(), 1600u);
        EXPECT_GT(*std::max_element(peaks->begin(), peaks->end()), 0.1f);
    }
    if (!expected.hasVideo) {
        EXPECT_FALSE(clip.thumbnail);
        EXPECT_TRUE(filmstrip.empty());
        return;
    }
    // Pictures are fitted in their display shape.
    const bool quarterTurn = expected.rotationDegrees % 180 != 0;
    const double width = quarterTurn ? expected.naturalSize.height : expected.naturalSize.width;
    const double height = quarterTurn ? expected.naturalSize.width : expected.naturalSize.height;
    expectFitted(clip.thumbnail, width, height, media::kThumbnailMaxWidth,
                 media::kThumbnailMaxHeight);
    EXPECT_EQ(filmstrip.size(), media::filmstripTimes(clip.fullDurationSeconds).size());
    for (const auto& frame : filmstrip)
        expectFitted(frame, width, height, media::kFilmstripFrameMaxWidth,
                     media::kFilmstripFrameMaxHeight);
}

const std::string kHevc = "-c:v libx265 -preset ultrafast -x265-params log-level=error ";
const std::string kAvc1 = "v:1635148593:320x240";
const std::string kHvc1 = "v:1752589105:320x240";
const std::string kApch = "v:1634755432:160x120";  // ProRes is named by its profile
const std::string kAac = "a:1633772320";           // the same in every container
const std::string kMp3 = "a:778924083";            // ".mp3"

INSTANTIATE_TEST_SUITE_P(
    Containers, ProbeClipFormatTest,
    testing::Values(
        movie("H264InMp4", samples::h264Mp4, kAvc1, true, 320, 240),
        movie("VideoOnlyMp4", samples::h264VideoOnlyMp4, kAvc1, false, 320, 240),
        movie("PortraitH264",
              later(makeMedia, "h264_240x320.mp4", picture(240, 320) + "-t 0.5 " + kH264),
              "v:1635148593:240x320", false, 240, 320, 0.5),
        // Pixels twice as wide as tall are shown at twice the stored width.
        movie("NonSquarePixels",
              later(makeMedia, "anamorphic.mp4",
                    picture(240, 180) + "-t 1 -vf setsar=4/3 " + kH264),
              "v:1635148593:240x180", false, 320, 180),
        // A rotated clip keeps its stored size and reports its clockwise turn.
        movie("TurnedClockwise", samples::rotatedClockwise90Mp4, kAvc1, false, 320, 240, 1, 30, 90),
        movie("TurnedCounterClockwise", samples::rotatedClockwise270Mp4, kAvc1, false, 320, 240, 1,
              30, 270),
        // A MOV-family file keeps its own sample entry code; others get hvc1.
        movie("HevcInMkv", later(makeMedia, "hevc.mkv", picture(320, 240) + "-t 1 " + kHevc), kHvc1,
              false, 320, 240),
        // A rate that is only the container's clock is not the frames' rate.
        movie("MkvClaimingAThousandFps", mkvClaimingAThousandFps, kAvc1, false, 320, 240),
        // Matroska's stated rate is a guess; the frames' times tell.
        movie("MkvStatingTwiceItsRate",
              later(makeMedia, "h264_rate_twice.mkv",
                    picture(320, 240) + "-t 1 " + kH264 + "-fps_mode passthrough -r 60"),
              kAvc1, false, 320, 240),
        // hev1 is the sample entry FFmpeg writes for HEVC in MP4 unless told otherwise.
        movie("HevcHev1InMp4",
              later(makeMedia, "hevc_hev1.mp4", picture(320, 240) + "-t 1 " + kHevc),
              "v:1751479857:320x240", false, 320, 240),
        movie("Mpeg4InAvi",
              later(makeMedia, "mpeg4_mp3.avi",
                    picture(320, 240, 25) + kTone + "-t 1 -c:v mpeg4 -c:a libmp3lame"),
              "v:1836070006:320x240", true, 320, 240, 1, 25),
        movie(
            "Vp9InWebm",
            later(makeMedia, "vp9_opus.webm",
                  picture(160, 120) + kTone +
                      "-t 1 -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 200k -c:a libopus"),
            "v:1987063865:160x120", true, 160, 120),
        movie("ProResInMov",
              later(makeMedia, "prores_hq.mov",
                    picture(160, 120) + "-t 0.2 -c:v prores_ks -profile:v 3"),
              kApch, false, 160, 120, 0.2),
        sound("AacInM4a", samples::aacM4a, kAac),
        // A transport stream measures its length from its packets' times.
        sound("AacInTs", later(samples::tone, "ts", "aac"), kAac, 0.96),
        sound("Mp3", later(samples::tone, "mp3", "libmp3lame"), kMp3),
        sound("PcmInWav", later(samples::tone, "wav", "pcm_s16le"), "a:1819304813"),  // lpcm
        sound("Flac", later(samples::tone, "flac", "flac"), "a:1718378851"),
        sound("OpusInOgg", later(samples::tone, "ogg", "libopus"), "a:1869641075"),
        // Cover art is not a video track.
        sound("Mp3WithCoverArt",
              later(makeMedia, "tone_cover.mp3",
                    kTone + "-f lavfi -i color=c=red:size=64x64 -map 0 -map 1 -t 1 -frames:v 1 "
                            "-c:a libmp3lame -c:v png -disposition:v attached_pic"),
              kMp3)),
    [](const testing::TestParamInfo<Expected>& info) { return info.param.label; });

// Files whose container states no length, or only a guess from the bit rate of the first
// frames: the length is measured from their packets.
TEST(ProbeClip, LengthComesFromThePacketsWhereTheContainerHasNoneOrOnlyAGuess) {
    using testing_support::quote;
    const auto dir = testing_support::freshDir("probe-lengths");
    // Matroska written to a pipe has no Duration element.
    const auto piped = dir / "piped.mkv";
    ASSERT_EQ(testing_support::run(std::string(VANTRELL_FFMPEG) + " -nostdin -v error " +
                                   picture(320, 240) + kTone + "-t 2 " + kH264 +
                                   "-c:a aac -f matroska - > " + quote(piped.string())),
              0);
    // Silence then noise: the guess from the first frames' rate is eight times too long.
    const auto adts =
        makeMedia("silence_then_noise.aac",
                  "-f lavfi -i \"aevalsrc=if(lt(t\\,1)\\,0\\,random(0)-0.5):s=48000:d=4\" -c:a aac "
                  "-q:a 2 -f adts");
    // A fragmented movie whose track headers say "unknown" (all ones) for their lengths.
    const auto fragmented =
        makeMedia("fragmented.mp4",
                  picture(320, 240) + "-t 2 " + kH264 + "-movflags frag_keyframe+empty_moov -g 15");
    std::string bytes = testing_support::contentsOf(fragmented);
    for (auto at = bytes.find("mdhd"); at != std::string::npos; at = bytes.find("mdhd", at + 4))
        bytes.replace(at + 20, 4, "\xff\xff\xff\xff");
    const auto unknown = dir / "unknown_lengths.mp4";
    std::ofstream(unknown, std::ios::binary) << bytes;
    for (const auto& [file, seconds] :
         {std::pair{piped, 2.0}, std::pair{adts, 4.0}, std::pair{unknown, 2.0}}) {
        auto probed = probeClip(file, std::nullopt, someId());
        ASSERT_TRUE(probed) << probed.error().message;
        EXPECT_NEAR(probed->fullDurationSeconds, seconds, 1.0 / 30) << file;
        EXPECT_EQ(probed->outSeconds, probed->fullDurationSeconds);
    }
}

model::Image thumbnailOf(const std::filesystem::path& file) {
    auto probed = media::probeClip(file, std::nullopt, common::Uuid::random());
    EXPECT_TRUE(probed) << probed.error().message;
    return probed ? probed->thumbnail : nullptr;
}

TEST(Thumbnail, RotatedClipComesOutUpright) {
    // Turned a quarter clockwise, the red left bar of the picture runs along the top.
    const auto clockwise = thumbnailOf(samples::rotatedClockwise90Mp4());
    ASSERT_TRUE(clockwise);
    EXPECT_LT(clockwise->width, clockwise->height);
    EXPECT_TRUE(samples::isRed(samples::pixel(*clockwise, clockwise->width / 2, 3)));

    const auto counterClockwise = thumbnailOf(samples::rotatedClockwise270Mp4());
    ASSERT_TRUE(counterClockwise);
    EXPECT_TRUE(samples::isRed(samples::pixel(*counterClockwise, counterClockwise->width / 2,
                                              counterClockwise->height - 4)));
}

// Blue frames at 30 per second that turn red from frame `firstRed` on; B-frames and a
// single keyframe make the poster frame a decode away from the seek point.
std::filesystem::path turningRed(const std::string& name, int firstRed, const std::string& length) {
    return testing_support::makeMedia(
        name, "-f lavfi -i color=c=blue:size=160x120:rate=30 " + length +
                  " -vf \"drawbox=c=red:t=fill:enable='gte(n," + std::to_string(firstRed) +
                  ")'\" -c:v libx264 -preset superfast -bf 2 -g 300 -pix_fmt yuv420p");
}

model::Image frameAtATenthOf(const std::filesystem::path& file) {
    auto input = media::openInput(file);
    EXPECT_TRUE(input) << input.error().message;
    return input ? media::thumbnailAt(*input.value(), 0.1) : nullptr;
}

TEST(Thumbnail, FrameShowingAtATimeOrTheLastFrame) {
    // At 30 frames per second frame 3 starts exactly at 0.1 s.
    const auto redFromPosterTime = frameAtATenthOf(turningRed("red_from_frame3.mp4", 3, "-t 1"));
    ASSERT_TRUE(redFromPosterTime);
    EXPECT_TRUE(samples::isRed(samples::pixel(*redFromPosterTime, 80, 60)));

    const auto redJustAfter = frameAtATenthOf(turningRed("red_from_frame4.mp4", 4, "-t 1"));
    ASSERT_TRUE(redJustAfter);
    EXPECT_TRUE(samples::isBlue(samples::pixel(*redJustAfter, 80, 60)));

    // A clip shorter than the time gives its last frame.
    const auto twoFrames = frameAtATenthOf(turningRed("two_frames.mp4", 1, "-frames:v 2"));
    ASSERT_TRUE(twoFrames);
    EXPECT_TRUE(samples::isRed(samples::pixel(*twoFrames, 80, 60)));
}

TEST(Thumbnail, PosterIsTheKeyframeAtOrBeforeATenthOfASecond) {
    // Red from the frame at 0.1 s, behind a blue keyframe, or itself a keyframe.
    const auto behindKeyframe = thumbnailOf(turningRed("red_behind_keyframe.mp4", 3, "-t 1"));
    ASSERT_TRUE(behindKeyframe);
    EXPECT_TRUE(samples::isBlue(samples::pixel(*behindKeyframe, 80, 60)));

    const auto keyframe =
        thumbnailOf(turningRed("red_keyframe.mp4", 3, "-t 1 -force_key_frames 0.1"));
    ASSERT_TRUE(keyframe);
    EXPECT_TRUE(samples::isRed(samples::pixel(*keyframe, 80, 60)));
}

}  // namespace
