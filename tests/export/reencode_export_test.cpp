#include "export/reencode_export.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "composition/crop_frame.h"
#include "export/export_media.h"

namespace {

namespace fs = std::filesystem;
using namespace export_media;
using exporting::Framing;
using model::ExportFormat;

constexpr int kSecond = common::MediaTime::kTicksPerSecond;

common::Status reencode(const composition::Composition& c, const fs::path& out, ExportFormat format,
                        const exporting::ReencodeSettings& settings) {
    return exporting::exportReencoded(c, out, format, settings, {}, {});
}

double seconds(const fs::path& file, const std::string& entry, const std::string& streams = "") {
    const std::string text = probe(file, entry, streams);
    return text.empty() ? -1 : std::stod(text);
}

struct Rgb {
    int r = 0, g = 0, b = 0;
};
constexpr Rgb kRed{255, 0, 0}, kGreen{0, 128, 0}, kBlue{0, 0, 255}, kWhite{255, 255, 255};

// The pictures the ffmpeg tool shows of `file` as RGB, turned upright as it does, decoded
// into `dir`.
testing_support::DecodedVideo pictures(const fs::path& file, const fs::path& dir) {
    auto video = testing_support::decodeVideo(file, testing_support::Player::ffmpeg,
                                              dir / (file.stem().string() + "-frames"),
                                              {testing_support::PixelLayout::rgb24, {}});
    EXPECT_EQ(video.error, "");
    return video;
}

Rgb pixel(const std::vector<std::uint8_t>& frame, int width, int x, int y) {
    const auto* p = &frame.at((std::size_t(y) * width + x) * 3);
    return {p[0], p[1], p[2]};
}

// The big-endian 32-bit number at `at` of `bytes`.
std::int32_t big32(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + 4 && i < bytes.size(); ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return static_cast<std::int32_t>(value);
}

// Each format's own container and streams, exactly as long as the composition: a movie clip
// into each format, and a sound alone into mp4 (which then has no video stream) and into a
// name with a colon, which is part of the name.
TEST(ReencodeExport, WritesTheFormatsOwnContainerStreamsAndLength) {
    const auto dir = testing_support::freshDir("reencode_format");
    const auto movie = CompositionBuilder().clip(movieA(), 10 * kFrameTicks, 70 * kFrameTicks);
    const auto sound = CompositionBuilder().audio(aacOnly(), 0, 0, 2 * kSecond);
    const std::string video = "h264,High,video,160,120,yuv420p\n", aac = "aac,LC,audio,48000,2\n",
                      pcm = "pcm_s16le,unknown,audio,48000,2\n",
                      isom = "\"mov,mp4,m4a,3gp,3g2,mj2\",";
    struct Row {
        std::string name;
        ExportFormat format;
        const CompositionBuilder& composition;
        std::string streams, container;  // codec, profile, kind, size and sound; name and brand
    };
    const Row rows[] = {{"out.mp4", ExportFormat::mp4, movie, video + aac, isom + "isom\n"},
                        {"out.mov", ExportFormat::mov, movie, video + aac, isom + "qt  \n"},
                        {"out.m4a", ExportFormat::m4a, movie, aac, isom + "M4A \n"},
                        {"out.wav", ExportFormat::wav, movie, pcm, "wav\n"},
                        {"sound.mp4", ExportFormat::mp4, sound, aac, isom + "isom\n"},
                        {"take:2.wav", ExportFormat::wav, sound, pcm, "wav\n"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto file = dir / row.name;
        const bool pictures = &row.composition == &movie;
        std::vector<double> reports;
        ASSERT_TRUE(exporting::exportReencoded(
            row.composition.build(), file, row.format,
            pictures ? plain(160, 120)
                     : exporting::ReencodeSettings{std::nullopt, Framing::whole, 30},
            [&](double fraction) { reports.push_back(fraction); }, {}));
        EXPECT_EQ(probe(file,
                        "stream=codec_type,codec_name,profile,pix_fmt,width,height,"
                        "sample_rate,channels"),
                  row.streams);
        EXPECT_EQ(probe(file, "format=format_name:format_tags=major_brand"), row.container);
        if (row.streams.starts_with("h264")) {
            EXPECT_EQ(probe(file, "stream=r_frame_rate,nb_read_frames", "v:0"), "30/1,60\n");
        }
        EXPECT_NEAR(seconds(file, "stream=duration", "a:0"), 2.0, 1024.0 / 48000);
        EXPECT_NEAR(seconds(file, "format=duration"), 2.0, 1.0 / 30);
        // The sound decodes to exactly its length, priming and padding removed.
        EXPECT_NEAR(soundOf(file).seconds(), 2.0, 1024.0 / 48000);
        // The movie box comes first, so a player can start before the whole file is there.
        const auto types = row.format == ExportFormat::wav ? std::vector<std::string>{"moov"}
                                                           : topLevelTypes(file);
        EXPECT_LT(std::find(types.begin(), types.end(), "moov"),
                  std::find(types.begin(), types.end(), "mdat"));
        ASSERT_FALSE(reports.empty());
        EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
        EXPECT_EQ(reports.back(), 1.0);
    }
}

TEST(ReencodeExport, JoinsClipsOfDifferentSizesAndGapsOnBlackInSilence) {
    const auto a = movieA();
    const auto wide = makeMedia("reencode_wide.mp4",
                                "-f lavfi -i testsrc2=size=96x54:rate=30 -t 2 " + kH264 + "-an");
    const auto dir = testing_support::freshDir("reencode_join");
    const auto c = CompositionBuilder()
                       .clip(a, 0, kSecond)
                       .video(wide, 0, kSecond)
                       .gap(kSecond)
                       .gap(2 * kSecond, 0)
                       .clip(a, kSecond, 2 * kSecond)
                       .build();
    ASSERT_TRUE(reencode(c, dir / "out.mov", ExportFormat::mov, plain(160, 120)));
    EXPECT_EQ(probe(dir / "out.mov", "stream=width,height,nb_read_frames", "v:0"), "160,120,120\n");
    const auto video = pictures(dir / "out.mov", dir);
    ASSERT_EQ(video.frameCount(), 120u);
    const auto brightest = [&](double seconds) {
        const auto frame = video.frame(std::size_t(seconds * 30));
        return *std::max_element(frame.begin(), frame.end());
    };
    // How each clip is fitted is the renderer's; the colour bars show it through both players.
    EXPECT_GT(brightest(1.5), 100);
    EXPECT_LT(brightest(2.5), 24);
    EXPECT_GT(brightest(3.5), 100);

    const auto sound = soundOf(dir / "out.mov");
    ASSERT_GE(sound.seconds(), 4 - 1024.0 / kSampleRate);
    EXPECT_GT(sound.peakBetween(0.2, 0.8), 0.09);
    EXPECT_LT(sound.peakBetween(1.1, 2.9), 0.001);
    EXPECT_GT(sound.peakBetween(3.2, 3.8), 0.09);
}

// Four coloured quarters of 160x120 cropped: an odd size is coded a pixel wider and taller,
// as 4:2:0 is cut in steps of two pixels only, and the movie says which pixels to show.
TEST(ReencodeExport, CropKeepsItsExactSizeAndShowsTheCroppedPart) {
    const auto source = makeMedia(
        "reencode_quadrants.mp4",
        "-filter_complex \"color=c=red:s=80x60:r=30:d=2[a];color=c=green:s=80x60:r=30:d=2[b];"
        "color=c=blue:s=80x60:r=30:d=2[c];color=c=white:s=80x60:r=30:d=2[d];[a][b]hstack[top];"
        "[c][d]hstack[bottom];[top][bottom]vstack\" " +
            kH264);
    struct Case {
        double leading, trailing, top, bottom;
        int width, height;  // as coded
        // The track header's width and height, then the clean aperture's width, height and
        // offsets as numerators and denominators.
        std::vector<std::int32_t> shown;
    };
    for (const auto& c :
         {Case{0.1, 0.26875, 0.1, 0.425, 102, 58, {101, 57, 101, 1, 57, 1, -1, 2, -1, 2}},
          Case{0.25, 0, 0.25, 0, 120, 90, {120, 90}}}) {
        SCOPED_TRACE(c.width);
        const composition::VideoSettings crop{
            model::SmallClipMode::proportional, c.top, c.leading, c.trailing, c.bottom, {160, 120}};
        const auto file = testing_support::freshDir("reencode_crop") / "out.mp4";
        ASSERT_TRUE(reencode(CompositionBuilder().video(source, 0, kSecond).build(), file,
                             ExportFormat::mp4,
                             {composition::outputFrame(crop), Framing::crop, 30}));
        EXPECT_EQ(probe(file, "stream=profile,width,height,pix_fmt,r_frame_rate,nb_read_frames"),
                  "High," + std::to_string(c.width) + "," + std::to_string(c.height) +
                      ",yuv420p,30/1,30\n");
        // The video track's header ends with its width and height in 16.16.
        const auto bytes = testing_support::contentsOf(file);
        const auto tkhd = bytes.find("tkhd") - 4;
        std::vector<std::int32_t> shown{big32(bytes, tkhd + big32(bytes, tkhd) - 8) >> 16,
                                        big32(bytes, tkhd + big32(bytes, tkhd) - 4) >> 16};
        const auto clap = bytes.find("clap");
        for (std::size_t at = clap + 4; clap != std::string::npos && at < clap + 36; at += 4)
            shown.push_back(big32(bytes, at));
        EXPECT_EQ(shown, c.shown);

        // Each pixel away from where the quarters meet shows its quarter's colour; the coded
        // pixels beyond the last shown column and row repeat their neighbours.
        const auto picture = pictures(file, file.parent_path()).frame(15);
        int wrong = 0;
        for (int y = 0; y < c.height; ++y)
            for (int x = 0; x < c.width; ++x) {
                const int sx = std::min(x, c.shown[0] - 1) + int(c.leading * 160);
                const int sy = std::min(y, c.shown[1] - 1) + int(c.top * 120);
                const Rgb want = sy < 60 ? (sx < 80 ? kRed : kGreen) : (sx < 80 ? kBlue : kWhite);
                const Rgb got = pixel(picture, c.width, x, y);
                if (std::abs(sx - 80) > 4 && std::abs(sy - 60) > 4 &&
                    std::max({std::abs(got.r - want.r), std::abs(got.g - want.g),
                              std::abs(got.b - want.b)}) > 40)
                    ++wrong;
            }
        EXPECT_EQ(wrong, 0);
    }
}

TEST(ReencodeExport, RotatedClipComesOutUprightWithNoRotationLeft) {
    const auto turned = testing_support::turnedCopy("reencode_cw270.mp4", movieA(), 270);
    auto c = CompositionBuilder().clip(turned, 0, kSecond).build();
    c.video->segments.front().source->rotationDegrees = 270;
    const auto out = testing_support::freshDir("reencode_rotated") / "out.mp4";
    ASSERT_TRUE(reencode(c, out, ExportFormat::mp4, plain(120, 160)));
    // Coded upright, with no display matrix left to turn it again; the renderer's tests show
    // the pictures come upright.
    EXPECT_EQ(probe(out, "stream=width,height:stream_side_data_list", "v:0"), "120,160\n");
}

TEST(ReencodeExport, ClipAtDoubleSpeedTakesHalfTheTimeAtAnExactNtscRate) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("reencode_rate2") / "out.mp4";
    const auto c =
        CompositionBuilder().video(a, 0, 2 * kSecond, 2.0).audio(a, 1, 0, 2 * kSecond, 2.0).build();
    ASSERT_TRUE(reencode(c, file, ExportFormat::mp4, plain(160, 120, 30000.0 / 1001)));
    // Frames start at k * 1001/30000 s; the 30th starts at 0.967 s, before the end.
    EXPECT_EQ(probe(file, "stream=r_frame_rate,nb_read_frames", "v:0"), "30000/1001,30\n");
    EXPECT_NEAR(seconds(file, "format=duration"), 1.0, 1.0 / 30);
    EXPECT_NEAR(soundOf(file).seconds(), 1.0, 1024.0 / 48000);
}

TEST(ReencodeExport, CancellationAVanishedSourceOrNothingToExportLeaveNoFile) {
    const auto road = [](const composition::Composition& c, const fs::path& out,
                         const exporting::ProgressCallback& progress, std::stop_token stop) {
        return exporting::exportReencoded(c, out, ExportFormat::mp4, plain(160, 120), progress,
                                          std::move(stop));
    };
    expectFailuresLeaveNothing("reencode_failures", road, 0.2);
    const auto dir = testing_support::freshDir("reencode_refused");
    std::stop_source already;
    already.request_stop();
    const auto c = CompositionBuilder().clip(movieA(), 0, kSecond).build();
    EXPECT_FALSE(exporting::exportReencoded(c, dir / "out.wav", ExportFormat::wav, plain(160, 120),
                                            {}, already.get_token()));
    EXPECT_FALSE(fs::exists(dir / "out.wav"));

    const auto result = reencode({}, dir / "empty.mp4", ExportFormat::mp4, plain(160, 120));
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message.find((dir / "empty.mp4").string()), std::string::npos);
    EXPECT_FALSE(fs::exists(dir / "empty.mp4"));
}

}  // namespace
