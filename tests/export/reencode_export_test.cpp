#include "export/reencode_export.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "composition/crop_frame.h"
#include "export/export_media.h"
#include "media/media_input.h"

namespace {

namespace fs = std::filesystem;
using namespace export_media;
using composition::OutputFrame;
using exporting::Framing;
using exporting::ReencodeSettings;
using model::ExportFormat;

constexpr int kFrame = kFrameTicks;
constexpr int kSecond = common::MediaTime::kTicksPerSecond;

common::Status exportTo(const composition::Composition& c, const fs::path& out, ExportFormat format,
                        const ReencodeSettings& settings,
                        const exporting::ProgressCallback& progress = {},
                        std::stop_token stop = {}) {
    return exporting::exportReencoded(c, out, format, settings, progress, std::move(stop));
}

// The re-encoding road into `format` at 160 x 120.
Road reencodeAs(ExportFormat format) {
    return [format](const composition::Composition& c, const fs::path& out,
                    const exporting::ProgressCallback& progress, std::stop_token stop) {
        return exportTo(c, out, format, plain(160, 120), progress, std::move(stop));
    };
}

// Four coloured quarters: red top left, green top right, blue bottom left, white bottom
// right.
fs::path quadrants() {
    return makeMedia("reencode_quadrants.mp4",
                     "-filter_complex \"color=c=red:s=80x60:r=30:d=2[a];"
                     "color=c=green:s=80x60:r=30:d=2[b];color=c=blue:s=80x60:r=30:d=2[c];"
                     "color=c=white:s=80x60:r=30:d=2[d];[a][b]hstack[top];[c][d]hstack[bottom];"
                     "[top][bottom]vstack\" " +
                         h264());
}
// A wide picture smaller than movieA, so that it is fitted with bars above and below.
fs::path wideSmall() {
    return makeMedia("reencode_wide.mp4",
                     "-f lavfi -i testsrc2=size=96x54:rate=30 -t 2 " + h264() + "-an");
}
// movieA turned a quarter counter-clockwise for display.
fs::path turned() {
    return testing_support::turnedCopy("reencode_cw270.mp4", movieA(), 270);
}

// key=value lines of ffprobe about the streams `select` picks (e.g. "v:0").
std::map<std::string, std::string> probe(const fs::path& file, const std::string& select,
                                         const std::string& entries) {
    const std::string text = testing_support::ffprobe(
        file, "-count_frames -select_streams " + select + " -show_entries " + entries +
                  " -of default=noprint_wrappers=1");
    std::map<std::string, std::string> values;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const auto equals = line.find('=');
        if (equals != std::string::npos) values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return values;
}

// The kinds of the file's streams, one a line.
std::string streamTypes(const fs::path& file) {
    return testing_support::ffprobe(file, "-show_entries stream=codec_type -of csv=p=0");
}

double number(const std::map<std::string, std::string>& values, const std::string& key) {
    const auto found = values.find(key);
    return found == values.end() ? std::nan("") : std::atof(found->second.c_str());
}

struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgb;

    struct Pixel {
        int r, g, b;
    };
    Pixel at(int x, int y) const {
        if (rgb.empty()) return {-1, -1, -1};
        const std::size_t i = (static_cast<std::size_t>(y) * width + x) * 3;
        return {rgb[i], rgb[i + 1], rgb[i + 2]};
    }
    int brightest() const { return rgb.empty() ? -1 : *std::max_element(rgb.begin(), rgb.end()); }
};

// The picture the ffmpeg tool shows at `seconds`, as RGB, turned upright as it does; it
// must be `width` x `height` once upright.
Picture pictureAt(const fs::path& file, double seconds, int width, int height) {
    Picture picture;
    picture.width = width;
    picture.height = height;
    const std::string bytes = outputOf(std::string(VANTRELL_FFMPEG) + " -nostdin -v error -ss " +
                                       std::to_string(seconds) + " -i " + quote(file.string()) +
                                       " -frames:v 1 -f rawvideo -pix_fmt rgb24 - 2>/dev/null");
    if (bytes.size() == static_cast<std::size_t>(width) * height * 3)
        picture.rgb.assign(bytes.begin(), bytes.end());
    else
        ADD_FAILURE() << file << " at " << seconds << " s is not a " << width << "x" << height
                      << " picture";
    return picture;
}

void expectColour(const Picture& picture, int x, int y, int r, int g, int b) {
    const auto pixel = picture.at(x, y);
    EXPECT_NEAR(pixel.r, r, 40) << "at " << x << "," << y;
    EXPECT_NEAR(pixel.g, g, 40) << "at " << x << "," << y;
    EXPECT_NEAR(pixel.b, b, 40) << "at " << x << "," << y;
}

// The video track of the file's movie box; an empty box if there is none.
exporting::Mp4Box videoTrackOf(const fs::path& file) {
    for (auto& top : boxesOf(file)) {
        if (top.type != exporting::fourCC("moov")) continue;
        if (const auto* trak = exporting::findMp4Track(top, exporting::fourCC("vide")))
            return *trak;
    }
    return {};
}

// The big-endian 32-bit number at `at`.
std::uint32_t big32(const std::uint8_t* at) {
    return std::uint32_t(at[0]) << 24 | std::uint32_t(at[1]) << 16 | std::uint32_t(at[2]) << 8 |
           at[3];
}

// The width and height the video track's header gives, in whole pixels.
std::pair<int, int> trackHeaderSize(const fs::path& file) {
    const auto trak = videoTrackOf(file);
    const auto* tkhd = exporting::findMp4Child(trak, exporting::fourCC("tkhd"));
    if (!tkhd || tkhd->payload.size() < 8) return {0, 0};
    const auto* end = tkhd->payload.data() + tkhd->payload.size();
    return {int(big32(end - 8) >> 16), int(big32(end - 4) >> 16)};
}

// The eight numbers of the clean aperture box of the video track's first sample entry:
// width, height and the two offsets, each as numerator and denominator. Empty if none.
std::vector<std::int32_t> cleanAperture(const fs::path& file) {
    const auto trak = videoTrackOf(file);
    const exporting::Mp4Box* stsd = &trak;
    for (const char* step : {"mdia", "minf", "stbl", "stsd"})
        stsd = stsd ? exporting::findMp4Child(*stsd, exporting::fourCC(step)) : nullptr;
    if (!stsd) return {};
    const auto& bytes = stsd->payload;
    const auto clap =
        std::search(bytes.begin(), bytes.end(), std::begin("clap"), std::end("clap") - 1);
    std::vector<std::int32_t> values;
    for (auto at = clap + 4; clap != bytes.end() && values.size() < 8 && bytes.end() - at >= 4;
         at += 4)
        values.push_back(static_cast<std::int32_t>(big32(&*at)));
    return values;
}

struct FormatCase {
    ExportFormat format;
    std::string brand;  // the file's major brand, or the format name for wav
    bool video;
    std::string audioCodec;
};

void PrintTo(const FormatCase& c, std::ostream* out) {
    *out << model::toString(c.format);
}

class ReencodeFormat : public testing::TestWithParam<FormatCase> {};

TEST_P(ReencodeFormat, WritesTheFormatsOwnContainerStreamsAndLength) {
    const FormatCase& expected = GetParam();
    const auto a = movieA();
    const auto dir = testing_support::freshDir("reencode_format");
    const auto file = dir / ("out." + std::string(model::toString(expected.format)));
    std::vector<double> reports;
    ASSERT_TRUE(exportTo(CompositionBuilder().clip(a, 10 * kFrame, 70 * kFrame).build(), file,
                         expected.format, plain(160, 120),
                         [&](double fraction) { reports.push_back(fraction); }));

    if (expected.video) {
        EXPECT_EQ(streamTypes(file), "video\naudio\n");
        const auto video = probe(file, "v:0",
                                 "stream=codec_name,profile,pix_fmt,width,height,r_frame_rate,"
                                 "nb_read_frames");
        EXPECT_EQ(video.at("codec_name"), "h264");
        EXPECT_EQ(video.at("profile"), "High");
        EXPECT_EQ(video.at("pix_fmt"), "yuv420p");
        EXPECT_EQ(video.at("width"), "160");
        EXPECT_EQ(video.at("height"), "120");
        EXPECT_EQ(video.at("r_frame_rate"), "30/1");
        EXPECT_EQ(video.at("nb_read_frames"), "60");
    } else {
        EXPECT_EQ(streamTypes(file), "audio\n");
    }
    const auto audio = probe(file, "a:0", "stream=codec_name,sample_rate,channels,duration");
    EXPECT_EQ(audio.at("codec_name"), expected.audioCodec);
    EXPECT_EQ(audio.at("sample_rate"), "48000");
    EXPECT_EQ(audio.at("channels"), "2");
    EXPECT_NEAR(number(audio, "duration"), 2.0, 1024.0 / 48000);
    // The sound decodes to exactly its length, priming and padding removed.
    EXPECT_NEAR(static_cast<double>(samplesOf(file).size()) / kSampleRate, 2.0, 1024.0 / 48000);

    const auto container = probe(file, "v", "format=format_name,duration:format_tags=major_brand");
    EXPECT_NEAR(number(container, "duration"), 2.0, 1.0 / 30);
    if (expected.format == ExportFormat::wav) {
        EXPECT_EQ(container.at("format_name"), expected.brand);
    } else {
        EXPECT_EQ(container.at("TAG:major_brand"), expected.brand);
        // The movie box comes first, so a player can start before the whole file is there.
        const auto types = topLevelTypes(file);
        EXPECT_LT(std::find(types.begin(), types.end(), "moov"),
                  std::find(types.begin(), types.end(), "mdat"));
    }

    ASSERT_FALSE(reports.empty());
    EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
    EXPECT_EQ(reports.back(), 1.0);
}

INSTANTIATE_TEST_SUITE_P(Reencode, ReencodeFormat,
                         testing::Values(FormatCase{ExportFormat::mp4, "isom", true, "aac"},
                                         FormatCase{ExportFormat::mov, "qt  ", true, "aac"},
                                         FormatCase{ExportFormat::m4a, "M4A ", false, "aac"},
                                         FormatCase{ExportFormat::wav, "wav", false, "pcm_s16le"}),
                         [](const testing::TestParamInfo<FormatCase>& info) {
                             return std::string(model::toString(info.param.format));
                         });

TEST(ReencodeExport, AudioOnlyCompositionMakesNoVideoStreamWhateverTheNameOfTheFile) {
    const auto sound = aacOnly();
    const auto dir = testing_support::freshDir("reencode_audio_only");
    const auto file = dir / "out.mp4";
    composition::Composition c = CompositionBuilder().audio(sound, 0, 0, 3 * kSecond).build();
    ASSERT_TRUE(exportTo(c, file, ExportFormat::mp4, {std::nullopt, Framing::whole, 30}));
    EXPECT_EQ(streamTypes(file), "audio\n");
    EXPECT_NEAR(number(probe(file, "a:0", "stream=duration"), "duration"), 3.0, 1024.0 / 48000);

    // A colon in the destination's name is part of the name.
    const auto colon = dir / "take:2.wav";
    ASSERT_TRUE(exportTo(c, colon, ExportFormat::wav, {std::nullopt, Framing::whole, 30}));
    EXPECT_EQ(streamTypes(colon), "audio\n");
}

TEST(ReencodeExport, JoinsClipsOfDifferentSizesFittingTheSmallerOneAndGapsOnBlackInSilence) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("reencode_join") / "out.mov";
    const auto c = CompositionBuilder()
                       .clip(a, 0, kSecond)
                       .video(wideSmall(), 0, kSecond)
                       .videoGap(kSecond)
                       .audioGap(2 * kSecond)
                       .clip(a, kSecond, 2 * kSecond)
                       .build();
    ASSERT_TRUE(exportTo(c, file, ExportFormat::mov, plain(160, 120)));
    const auto video = probe(file, "v:0", "stream=width,height,nb_read_frames");
    EXPECT_EQ(video.at("width"), "160");
    EXPECT_EQ(video.at("height"), "120");
    EXPECT_EQ(video.at("nb_read_frames"), "120");

    const Picture first = pictureAt(file, 0.5, 160, 120);
    EXPECT_GT(first.at(2, 2).r + first.at(2, 2).g + first.at(2, 2).b, 60);
    // 96x54 scaled by 5/3 to 160x90: bars of 15 rows above and below.
    const Picture wide = pictureAt(file, 1.5, 160, 120);
    for (const auto& [x, y] :
         {std::pair{2, 2}, std::pair{157, 117}, std::pair{80, 12}, std::pair{80, 107}}) {
        const auto pixel = wide.at(x, y);
        EXPECT_LT(std::max({pixel.r, pixel.g, pixel.b}), 24) << "at " << x << "," << y;
    }
    const auto centre = wide.at(80, 60);
    EXPECT_GT(centre.r + centre.g + centre.b, 60);
    const auto aboveTheBar = wide.at(5, 100);  // the red bar at the foot of the picture
    EXPECT_GT(aboveTheBar.r, 120);
    EXPECT_LT(pictureAt(file, 2.5, 160, 120).brightest(), 24);
    EXPECT_GT(pictureAt(file, 3.5, 160, 120).brightest(), 100);

    const auto samples = samplesOf(file);
    ASSERT_GE(samples.size(), 4u * kSampleRate - 1024);
    const auto loudest = [&](double from, double to) {
        int peak = 0;
        for (auto i = static_cast<std::size_t>(from * kSampleRate);
             i < static_cast<std::size_t>(to * kSampleRate); ++i)
            peak = std::max(peak, std::abs(static_cast<int>(samples[i])));
        return peak;
    };
    EXPECT_GT(loudest(0.2, 0.8), 3000);
    EXPECT_LT(loudest(1.1, 2.9), 30);
    EXPECT_GT(loudest(3.2, 3.8), 3000);
}

TEST(ReencodeExport, CropToAnOddSizeKeepsThatExactSizeAndShowsTheCroppedPart) {
    const auto source = quadrants();
    const auto dir = testing_support::freshDir("reencode_crop_odd");
    const auto file = dir / "out.mp4";
    composition::VideoSettings crop;
    crop.largestSize = {160, 120};
    crop.cropLeading = 0.1;       // 16 pixels
    crop.cropTrailing = 0.26875;  // 43 pixels
    crop.cropTop = 0.1;           // 12 rows
    crop.cropBottom = 0.425;      // 51 rows
    const OutputFrame frame = composition::outputFrame(crop);
    ASSERT_EQ(frame.renderWidth, 101);
    ASSERT_EQ(frame.renderHeight, 57);
    const auto c = CompositionBuilder().video(source, 0, kSecond).build();
    ASSERT_TRUE(exportTo(c, file, ExportFormat::mp4, {frame, Framing::crop, 30}));

    // 4:2:0 is cut in steps of two pixels only: the stream is coded a pixel wider and
    // taller, and the movie says which 101 x 57 pixels to show.
    const auto video =
        probe(file, "v:0", "stream=width,height,profile,pix_fmt,r_frame_rate,nb_read_frames");
    EXPECT_EQ(video.at("width"), "102");
    EXPECT_EQ(video.at("height"), "58");
    EXPECT_EQ(video.at("profile"), "High");
    EXPECT_EQ(video.at("pix_fmt"), "yuv420p");
    EXPECT_EQ(video.at("r_frame_rate"), "30/1");
    EXPECT_EQ(video.at("nb_read_frames"), "30");
    EXPECT_EQ(trackHeaderSize(file), (std::pair{101, 57}));
    EXPECT_EQ(cleanAperture(file), (std::vector<std::int32_t>{101, 1, 57, 1, -1, 2, -1, 2}));

    // Source column 80 and row 60, where the quarters meet, land at 64 and 48; the coded
    // pixel beyond the last shown column and row repeats its neighbour.
    const Picture picture = pictureAt(file, 0.5, 102, 58);
    ASSERT_FALSE(picture.rgb.empty());
    expectColour(picture, 4, 4, 255, 0, 0);
    expectColour(picture, 59, 43, 255, 0, 0);
    expectColour(picture, 69, 4, 0, 128, 0);
    expectColour(picture, 97, 43, 0, 128, 0);
    expectColour(picture, 4, 53, 0, 0, 255);
    expectColour(picture, 59, 52, 0, 0, 255);
    expectColour(picture, 69, 53, 255, 255, 255);
    expectColour(picture, 97, 53, 255, 255, 255);
    expectColour(picture, 101, 4, 0, 128, 0);
    expectColour(picture, 4, 57, 0, 0, 255);
    expectColour(picture, 101, 57, 255, 255, 255);
}

TEST(ReencodeExport, CropOfAnEvenSizeStaysHighProfile) {
    const auto source = quadrants();
    const auto file = testing_support::freshDir("reencode_crop_even") / "out.mov";
    composition::VideoSettings crop;
    crop.largestSize = {160, 120};
    crop.cropLeading = 0.25;
    crop.cropTop = 0.25;
    const auto c = CompositionBuilder().video(source, 0, kSecond).build();
    ASSERT_TRUE(
        exportTo(c, file, ExportFormat::mov, {composition::outputFrame(crop), Framing::crop, 30}));
    const auto video = probe(file, "v:0", "stream=width,height,profile,pix_fmt");
    EXPECT_EQ(video.at("width"), "120");
    EXPECT_EQ(video.at("height"), "90");
    EXPECT_EQ(video.at("profile"), "High");
    EXPECT_EQ(video.at("pix_fmt"), "yuv420p");
    EXPECT_TRUE(cleanAperture(file).empty());
    // Only the bottom-right quarter's white and the corners of the others remain.
    const Picture picture = pictureAt(file, 0.5, 120, 90);
    expectColour(picture, 10, 10, 255, 0, 0);
    expectColour(picture, 100, 10, 0, 128, 0);
    expectColour(picture, 10, 80, 0, 0, 255);
    expectColour(picture, 100, 80, 255, 255, 255);
}

TEST(ReencodeExport, RotatedClipComesOutUprightWithNoRotationLeft) {
    const auto file = turned();
    auto c = CompositionBuilder().clip(file, 0, kSecond).build();
    c.video->segments.front().source->rotationDegrees = 270;
    const auto out = testing_support::freshDir("reencode_rotated") / "out.mp4";
    ASSERT_TRUE(exportTo(c, out, ExportFormat::mp4, plain(120, 160)));

    const auto video = probe(out, "v:0", "stream=width,height");
    EXPECT_EQ(video.at("width"), "120");
    EXPECT_EQ(video.at("height"), "160");
    auto written = media::openInput(out);
    ASSERT_TRUE(written);
    const AVStream* outStream = media::firstStream(**written, AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(outStream, nullptr);
    EXPECT_EQ(media::displayRotationDegrees(*outStream), 0);
    EXPECT_EQ(av_stream_get_side_data(outStream, AV_PKT_DATA_DISPLAYMATRIX, nullptr), nullptr);

    // The same picture as the ffmpeg tool shows the source, which it turns upright itself.
    const Picture ours = pictureAt(out, 0.5, 120, 160);
    const Picture reference = pictureAt(file, 0.5, 120, 160);
    ASSERT_FALSE(ours.rgb.empty());
    ASSERT_EQ(ours.rgb.size(), reference.rgb.size());
    double difference = 0;
    for (std::size_t i = 0; i < ours.rgb.size(); ++i)
        difference += std::abs(int(ours.rgb[i]) - int(reference.rgb[i]));
    EXPECT_LT(difference / ours.rgb.size(), 6);
}

TEST(ReencodeExport, ClipAtDoubleSpeedTakesHalfTheTimeAtAnExactNtscRate) {
    const auto a = movieA();
    const auto file = testing_support::freshDir("reencode_rate2") / "out.mp4";
    const auto c =
        CompositionBuilder().video(a, 0, 2 * kSecond, 2.0).audio(a, 1, 0, 2 * kSecond, 2.0).build();
    ASSERT_TRUE(exportTo(c, file, ExportFormat::mp4, plain(160, 120, 30000.0 / 1001)));
    const auto video = probe(file, "v:0", "stream=r_frame_rate,nb_read_frames");
    EXPECT_EQ(video.at("r_frame_rate"), "30000/1001");
    // Frames start at k * 1001/30000 s; the 30th starts at 0.967 s, before the end.
    EXPECT_EQ(video.at("nb_read_frames"), "30");
    EXPECT_NEAR(number(probe(file, "v", "format=duration"), "duration"), 1.0, 1.0 / 30);
    EXPECT_NEAR(static_cast<double>(samplesOf(file).size()) / kSampleRate, 1.0, 1024.0 / 48000);
}

TEST(ReencodeExport, CancellationAVanishedSourceOrNothingToExportLeaveNoFile) {
    const auto dir = testing_support::freshDir("reencode_cancel");
    const auto c = CompositionBuilder().clip(movieA(), 0, 3 * kSecond).build();
    expectCancellingLeavesNothing(reencodeAs(ExportFormat::mp4), c, dir / "out.mp4", 0.2);
    std::stop_source already;
    already.request_stop();
    EXPECT_FALSE(reencodeAs(ExportFormat::wav)(c, dir / "out.wav", {}, already.get_token()));
    EXPECT_FALSE(fs::exists(dir / "out.wav"));

    expectVanishedSourceFails("reencode_vanished", reencodeAs(ExportFormat::mp4));

    const auto result = reencodeAs(ExportFormat::mp4)({}, dir / "empty.mp4", {}, {});
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message.find((dir / "empty.mp4").string()), std::string::npos);
    EXPECT_FALSE(fs::exists(dir / "empty.mp4"));
}

}  // namespace
