#include "media/probe.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "media/media_input.h"
#include "media/sample_media.h"
#include "media/thumbnail.h"
#include "support/media_fixtures.h"
#include "support/random_bytes.h"

namespace {

namespace fs = std::filesystem;
namespace samples = sample_media;
using media::probeClip;
using sample_media::kH264;
using sample_media::kTone;
using sample_media::patched;
using sample_media::picture;
using testing_support::makeFile;
using testing_support::makeMedia;

common::Result<model::Clip> probe(const fs::path& file) {
    return probeClip(file, std::nullopt, common::Uuid::random());
}

TEST(ProbeClip, H264Mp4FillsEveryFieldTheSameEachTime) {
    const auto file = samples::h264Mp4();
    const auto id = common::Uuid::random();
    const model::Bytes bookmark{1, 2, 3};
    auto probed = probeClip(file, bookmark, id);
    ASSERT_TRUE(probed) << probed.error().message;
    ASSERT_TRUE(probed->thumbnail);
    // The test pattern's leftmost bar is red, and the thumbnail is opaque.
    const auto left = samples::pixel(*probed->thumbnail, 5, probed->thumbnail->height / 2);
    EXPECT_TRUE(samples::isRed(left) && left.a == 255) << left.r << "," << left.g << "," << left.b;
    ASSERT_FALSE(probed->copyFacts.keyframeSeconds.empty());
    EXPECT_NEAR(probed->copyFacts.keyframeSeconds.front(), 0.0, 1e-6);
    EXPECT_NEAR(probed->fullDurationSeconds, 1.0, 1.0 / 30);

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

    // Again without the thumbnail: only the id the caller gives differs.
    auto again = probeClip(file, bookmark, common::Uuid::random(), media::ThumbnailPolicy::skip);
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->thumbnail);
    again->id = id;
    again->thumbnail = probed->thumbnail;
    EXPECT_EQ(*again, *probed);
}

// The fingerprint, a picture's shown size, rate and turn, and whether there is sound.
std::string facts(const model::Clip& clip) {
    std::ostringstream text;
    text << clip.fingerprint;
    if (clip.hasVideo)
        text << " " << clip.naturalSize.width << "x" << clip.naturalSize.height << "@"
             << clip.frameRate;
    if (clip.rotationDegrees != 0) text << " turned " << clip.rotationDegrees;
    if (clip.hasAudio) text << " sound";
    return text.str();
}

// A fragmented movie whose track headers say "unknown" (all ones) for their lengths.
fs::path unknownLengths() {
    std::string bytes = testing_support::contentsOf(makeMedia(
        "fragmented.mp4",
        picture(320, 240) + "-t 2 " + kH264 + "-movflags frag_keyframe+empty_moov -g 15"));
    for (auto at = bytes.find("mdhd"); at != std::string::npos; at = bytes.find("mdhd", at + 4))
        bytes.replace(at + 20, 4, "\xff\xff\xff\xff");
    return makeFile("unknown_lengths.mp4", bytes);
}

TEST(ProbeClip, FindsStreamsFingerprintLengthAndThumbnailShapeInEachFormat) {
    const std::string hevc = "-t 1 -c:v libx265 -preset ultrafast -x265-params log-level=error";
    const std::string avc1 = "v:1635148593:320x240 320x240@30";
    struct Format {
        fs::path file;
        std::string facts;
        double seconds = 1;
    };
    for (const auto& [file, expected, seconds] : {
             // Pixels twice as wide as tall are shown at twice the stored width.
             Format{makeMedia("anamorphic.mp4", picture(240, 180) + "-t 1 -vf setsar=4/3 " + kH264),
                    "v:1635148593:240x180 320x180@30"},
             Format{samples::turned(90), avc1 + " turned 90"},
             Format{samples::turned(270), avc1 + " turned 270"},
             // Only MOV-family files keep their own sample entry code; others get hvc1.
             Format{makeMedia("hevc.mkv", picture(320, 240) + hevc),
                    "v:1752589105:320x240 320x240@30"},
             Format{makeMedia("hevc_hev1.mp4", picture(320, 240) + hevc),
                    "v:1751479857:320x240 320x240@30"},
             // A track stating a rate of 1000: the frames' times tell.
             Format{
                 patched(makeMedia("h264_1000fps_source.mkv", picture(320, 240) + "-t 1 " + kH264),
                         "h264_1000fps.mkv", "\x23\xE3\x83\x84\x01\xFC\xA0\x55",
                         std::string("\x23\xE3\x83\x84\x00\x0F\x42\x40", 8)),
                 avc1},
             // A phone may give the last frame the rest of the recording.
             Format{testing_support::makeMediaFrom(
                        "h264_long_last_frame.mp4", samples::h264VideoOnlyMp4(),
                        "-c copy -bsf:v \"setts=duration='if(eq(N,29),DURATION*16,DURATION)'\""),
                    avc1, 1.5},
             Format{makeMedia("mpeg4_mp3.avi",
                              picture(320, 240, 25) + kTone + "-t 1 -c:v mpeg4 -c:a libmp3lame"),
                    "v:1836070006:320x240 320x240@25 sound"},
             Format{makeMedia("vp9_opus.webm", picture(160, 120) + kTone +
                                                   "-t 1 -c:v libvpx-vp9 -deadline realtime "
                                                   "-cpu-used 8 -b:v 200k -c:a libopus"),
                    "v:1987063865:160x120 160x120@30 sound"},
             // ProRes is named by its profile.
             Format{makeMedia("prores_hq.mov",
                              picture(160, 120) + "-t 0.2 -c:v prores_ks -profile:v 3"),
                    "v:1634755432:160x120 160x120@30", 0.2},
             Format{samples::tone("m4a", "aac"), "a:1633772320 sound"},
             // No stated length, or a guess from the first frames: the packets' times tell.
             Format{samples::tone("ts", "aac"), "a:1633772320 sound", 0.96},
             // Matroska written to a pipe has no Duration element.
             Format{makeMedia("piped.mkv", picture(320, 240) + kTone + "-t 2 " + kH264 +
                                               "-c:a aac -f matroska pipe:1 >"),
                    avc1 + " sound", 2},
             Format{unknownLengths(), avc1, 2},
             // Silence then noise: the guess from the first frames is eight times too long.
             Format{makeMedia("silence_then_noise.aac",
                              "-f lavfi -i \"aevalsrc=if(lt(t\\,1)\\,0\\,random(0)-0.5):s=48000:"
                              "d=4\" -c:a aac -q:a 2 -f adts"),
                    "a:1633772320 sound", 4},
             Format{samples::tone("wav", "pcm_s16le"), "a:1819304813 sound"},
             Format{samples::tone("flac", "flac"), "a:1718378851 sound"},
             Format{samples::tone("ogg", "libopus"), "a:1869641075 sound"},
             // Cover art is not a video track.
             Format{makeMedia("tone_cover.mp3",
                              kTone + "-f lavfi -i color=c=red:size=64x64 -map 0 -map 1 -t 1 "
                                      "-frames:v 1 -c:a libmp3lame -c:v png -disposition:v "
                                      "attached_pic"),
                    "a:778924083 sound"},
         }) {
        SCOPED_TRACE(file.filename().string());
        auto probed = probe(file);
        ASSERT_TRUE(probed) << probed.error().message;
        const model::Clip& clip = *probed;
        EXPECT_EQ(facts(clip), expected);
        // Within one frame: a muxer may close on a frame boundary.
        EXPECT_NEAR(clip.fullDurationSeconds, seconds,
                    1 / (clip.hasVideo ? clip.frameRate : 30) + 1e-9);
        if (!clip.hasVideo) {
            EXPECT_FALSE(clip.thumbnail);
            continue;
        }
        // The thumbnail fills its box in the picture's display shape, never enlarged.
        const bool quarterTurn = clip.rotationDegrees % 180 != 0;
        const double width = quarterTurn ? clip.naturalSize.height : clip.naturalSize.width;
        const double height = quarterTurn ? clip.naturalSize.width : clip.naturalSize.height;
        const int maxWidth = media::kThumbnailMaxWidth;
        const int maxHeight = media::kThumbnailMaxHeight;
        const auto& image = clip.thumbnail;
        ASSERT_TRUE(image);
        const double scale = std::min({1.0, maxWidth / width, maxHeight / height});
        EXPECT_NEAR(image->width, width * scale, 1);
        EXPECT_NEAR(image->height, height * scale, 1);
        EXPECT_TRUE(scale == 1 || image->width == maxWidth || image->height == maxHeight);
        EXPECT_EQ(image->rgba.size(), static_cast<std::size_t>(image->width) * image->height * 4);
    }
}

model::Image thumbnailOf(const fs::path& file) {
    auto probed = probe(file);
    EXPECT_TRUE(probed && probed->thumbnail) << file;
    return probed ? probed->thumbnail : nullptr;
}

// Blue frames at 30 a second, red from frame `firstRed` on, a decode away from the keyframe.
fs::path turningRed(const std::string& name, int firstRed, const std::string& length) {
    return makeMedia(name, "-f lavfi -i color=c=blue:size=160x120:rate=30 " + length +
                               " -vf \"drawbox=c=red:t=fill:enable='gte(n," +
                               std::to_string(firstRed) +
                               ")'\" -c:v libx264 -preset superfast -bf 2 -g 300 -pix_fmt yuv420p");
}

TEST(Thumbnail, IsUprightAndShowsTheKeyframeOrTheFrameAtATenthOfASecond) {
    // Turned a quarter clockwise, the red left bar lies along the top; anticlockwise, the bottom.
    const auto clockwise = thumbnailOf(samples::turned(90)),
               back = thumbnailOf(samples::turned(270));
    ASSERT_TRUE(clockwise && back);
    EXPECT_TRUE(samples::isRed(samples::pixel(*clockwise, clockwise->width / 2, 3)));
    EXPECT_TRUE(samples::isRed(samples::pixel(*back, back->width / 4, back->height - 4)));

    // Frame 3 starts at 0.1 s; a clip shorter than that gives its last frame.
    for (const auto& [file, red] : {std::pair{turningRed("red_from_frame3.mp4", 3, "-t 1"), true},
                                    {turningRed("red_from_frame4.mp4", 4, "-t 1"), false},
                                    {turningRed("two_frames.mp4", 1, "-frames:v 2"), true}}) {
        auto input = media::openInput(file);
        ASSERT_TRUE(input) << input.error().message;
        const auto frame = media::thumbnailAt(*input.value(), 0.1);
        ASSERT_TRUE(frame);
        const auto centre = samples::pixel(*frame, 80, 60);
        EXPECT_TRUE(red ? samples::isRed(centre) : samples::isBlue(centre)) << file;
    }
    // The poster is the keyframe at or before 0.1 s.
    for (const auto& [file, red] :
         {std::pair{turningRed("red_from_frame3.mp4", 3, "-t 1"), false},
          {turningRed("red_keyframe.mp4", 3, "-t 1 -force_key_frames 0.1"), true}}) {
        const auto poster = thumbnailOf(file);
        ASSERT_TRUE(poster);
        const auto centre = samples::pixel(*poster, 80, 60);
        EXPECT_TRUE(red ? samples::isRed(centre) : samples::isBlue(centre)) << file;
    }
}

TEST(ProbeClip, RefusesWhatIsNotMediaInAFullSentenceNamingTheFile) {
    using testing_support::randomBytes;
    const auto srt = makeFile("line.srt", "1\n00:00:00,000 --> 00:00:01,000\nHello\n");
    // Opening a FIFO must not wait for a writer.
    const fs::path fifo = testing_support::freshDir("fifo") / "x.mp4";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const auto& [file, reason] : {
             std::pair{makeFile("r.mp3", randomBytes(65536)), "r.mp3"},
             {makeFile("r.mp4", randomBytes(65536)), "r.mp4"},
             {makeFile("empty.wav", ""), "empty.wav"},
             {testing_support::scratchDir() / "gone.mp4", "gone.mp4"},
             // The ffmpeg tool writes the index after the samples unless asked otherwise.
             {samples::firstBytes(samples::h264Mp4(), "h264_aac_cut.mp4", 4096),
              "h264_aac_cut.mp4"},
             {makeMedia("subtitle_only.mkv",
                        "-i " + testing_support::quote(srt.string()) + " -c:s srt"),
              "neither video nor audio"},
             // Raw grey pictures whose track claims they are 65535 pixels wide.
             {patched(makeMedia("raw_pictures.mkv",
                                "-f lavfi -i color=gray:size=256x256:rate=5 "
                                "-t 0.2 -c:v rawvideo -pix_fmt gray"),
                      "claims_huge_pictures.mkv", std::string("\xB0\x82\x01\x00", 4),
                      std::string("\xB0\x82\xFF\xFF", 4)),
              "65535x256"},
             // Half a second whose segment's Duration (a big-endian double) claims 10^12 s.
             {patched(makeMedia("short_pcm.mka",
                                "-f lavfi -i sine=sample_rate=8000 -t 0.5 -c:a pcm_s16le"),
                      "claims_endless_sound.mka",
                      std::string("\x44\x89\x88\x40\x7F\x40\x00\x00\x00\x00\x00", 11),
                      std::string("\x44\x89\x88\x43\x0C\x6B\xF5\x26\x34\x00\x00", 11)),
              "claims a length"},
             {testing_support::freshDir("folder.mp4"), "a folder"},
             {fs::path("/dev/zero"), "a character device"},
             {fifo, "is a FIFO, not a regular file."},
         }) {
        auto probed = probe(file);
        ASSERT_FALSE(probed.ok()) << file << " probed as " << probed->fullDurationSeconds << " s";
        const std::string& message = probed.error().message;
        EXPECT_NE(message.find(file.string()), std::string::npos) << message;
        EXPECT_NE(message.find(reason), std::string::npos) << message;
        EXPECT_EQ(message.back(), '.') << message;
    }
    // Enough noise holds MP3 frame headers that really decode; only the name calls it MP3.
    for (unsigned seed = 1; seed <= 24; ++seed) {
        const auto noise =
            makeFile("noise" + std::to_string(seed) + ".mp3", randomBytes(200000, seed));
        EXPECT_FALSE(probe(noise).ok()) << noise;
    }
    const auto nul = probe(samples::h264Mp4().string() + std::string(1, '\0') + "b.mp4");
    ASSERT_FALSE(nul.ok());
    EXPECT_NE(nul.error().message.find("holds a NUL"), std::string::npos) << nul.error().message;
}

}  // namespace
