#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/media_time.h"
#include "composition/composition.h"
#include "composition/crop_frame.h"
#include "export/export_progress.h"
#include "export/export_settings.h"
#include "export/mp4_boxes.h"
#include "support/media_fixtures.h"

// Tiny media for the export tests, made by the ffmpeg tool on first use in a run, and
// ways to look at what an export wrote: frame hashes and samples decoded by the ffmpeg
// tool (which honours edit lists), and the boxes of the file.
namespace export_media {

namespace fs = std::filesystem;
using testing_support::makeMedia;
using testing_support::makeMediaFrom;
using testing_support::outputOf;
using testing_support::quote;

inline constexpr int kFrameTicks = 20;  // one frame at 30 fps, in 1/600 s
inline constexpr int kSampleRate = 48000;

// H.264 with two B-frames between references and a keyframe every second, so that most
// cut points fall inside a group of pictures and decode order differs from display order.
inline std::string h264(const std::string& extra = "") {
    return "-c:v libx264 -preset ultrafast -bf 2 -g 30 -keyint_min 30 -sc_threshold 0 "
           "-pix_fmt yuv420p " +
           extra + " ";
}

inline std::string picture(const std::string& source) {
    return "-f lavfi -i " + source + "=size=160x120:rate=30 ";
}

// A rising tone with a little noise: no stretch of samples repeats, so a window of it is
// found in one place only. AAC is made without noise substitution, whose decoder draws
// random numbers, so that decoding the same packets from another start gives the same
// samples.
inline const std::string kSweep =
    "-f lavfi -i \"aevalsrc=0.3*sin(2*PI*(200+300*t)*t)+0.02*(random(1)-0.5):s=48000\" ";

inline fs::path movieA() {
    return makeMedia("export_a.mp4", picture("testsrc2") + kSweep + "-t 4 " + h264() +
                                         "-c:a aac -aac_pns 0 -b:a 128k -ac 1");
}
inline fs::path movieWithPcm() {
    return makeMedia("export_pcm.mov",
                     picture("testsrc2") + kSweep + "-t 3 " + h264() + "-c:a pcm_s16le -ac 1");
}
inline fs::path aacOnly() {
    return makeMedia("export_aac.m4a", kSweep + "-t 4 -c:a aac -aac_pns 0 -b:a 128k -ac 1");
}
inline fs::path pcmWave() {
    return makeMedia("export_pcm.wav", kSweep + "-t 4 -c:a pcm_s16le -ac 1");
}

inline common::MediaTime ticks(std::int64_t value) {
    return common::MediaTime{value};
}

// Settings for a project whose largest clip is `width` x `height`, uncropped.
inline exporting::ReencodeSettings plain(double width, double height, double framesPerSecond = 30) {
    composition::VideoSettings video;
    video.largestSize = {width, height};
    return {composition::outputFrame(video), exporting::Framing::whole, framesPerSecond};
}

// A composition built by hand: segments are appended back to back on their track.
class CompositionBuilder {
  public:
    CompositionBuilder& video(const fs::path& file, std::int64_t inTicks, std::int64_t outTicks,
                              double rate = 1.0) {
        append(videoTrack(), file, 0, inTicks, outTicks, rate);
        return *this;
    }
    CompositionBuilder& audio(const fs::path& file, int streamIndex, std::int64_t inTicks,
                              std::int64_t outTicks, double rate = 1.0) {
        append(audioTrack(0), file, streamIndex, inTicks, outTicks, rate);
        return *this;
    }
    CompositionBuilder& videoGap(std::int64_t durationTicks) {
        gap(videoTrack(), durationTicks);
        return *this;
    }
    CompositionBuilder& audioGap(std::int64_t durationTicks, std::size_t lane = 0) {
        gap(audioTrack(lane), durationTicks);
        return *this;
    }
    CompositionBuilder& audioOnLane(std::size_t lane, const fs::path& file, int streamIndex,
                                    std::int64_t inTicks, std::int64_t outTicks) {
        append(audioTrack(lane), file, streamIndex, inTicks, outTicks, 1.0);
        return *this;
    }
    // The same range on both tracks, as a linked clip gives (video stream 0, audio 1).
    CompositionBuilder& clip(const fs::path& file, std::int64_t inTicks, std::int64_t outTicks) {
        video(file, inTicks, outTicks);
        return audio(file, 1, inTicks, outTicks);
    }
    composition::Composition build() const { return composition_; }

  private:
    composition::Track& videoTrack() {
        if (!composition_.video) composition_.video = composition::Track{};
        return *composition_.video;
    }
    composition::Track& audioTrack(std::size_t lane) {
        while (composition_.audio.size() <= lane)
            composition_.audio.push_back({composition::MediaKind::audio, {}});
        return composition_.audio[lane];
    }
    static void gap(composition::Track& track, std::int64_t durationTicks) {
        track.segments.push_back({track.duration(), ticks(durationTicks), std::nullopt});
    }
    static void append(composition::Track& track, const fs::path& file, int streamIndex,
                       std::int64_t inTicks, std::int64_t outTicks, double rate) {
        composition::SegmentSource source;
        source.url = file;
        source.streamIndex = streamIndex;
        source.assetRange = common::MediaTimeRange::fromStartEnd(ticks(inTicks), ticks(outTicks));
        source.rate = rate;
        const auto duration =
            rate == 1.0
                ? source.assetRange.duration
                : common::MediaTime::fromSeconds(source.assetRange.duration.seconds() / rate);
        track.segments.push_back({track.duration(), duration, source});
    }

    composition::Composition composition_;
};

// The hash of every picture the ffmpeg tool shows of `file`, in order, with its own
// edit-list handling.
inline std::vector<std::string> frameHashes(const fs::path& file) {
    std::istringstream lines(
        outputOf(std::string(VANTRELL_FFMPEG) + " -nostdin -v error -i " + quote(file.string()) +
                 " -map 0:v:0 -fps_mode passthrough -f framemd5 - 2>/dev/null"));
    std::vector<std::string> hashes;
    for (std::string line; std::getline(lines, line);)
        if (!line.empty() && line[0] != '#') hashes.push_back(line.substr(line.rfind(' ') + 1));
    return hashes;
}

// The first audio stream of `file` decoded by the ffmpeg tool to 16-bit mono samples.
inline std::vector<std::int16_t> samplesOf(const fs::path& file) {
    const std::string bytes =
        outputOf(std::string(VANTRELL_FFMPEG) + " -nostdin -v error -i " + quote(file.string()) +
                 " -map 0:a:0 -ac 1 -f s16le - 2>/dev/null");
    std::vector<std::int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

// The top-level boxes of an MP4/QuickTime file.
inline std::vector<exporting::Mp4Box> boxesOf(const fs::path& file) {
    const std::string text = testing_support::contentsOf(file);
    auto boxes = exporting::parseMp4Boxes(std::vector<std::uint8_t>(text.begin(), text.end()));
    EXPECT_TRUE(boxes) << boxes.error().message;
    return boxes ? std::move(boxes).value() : std::vector<exporting::Mp4Box>{};
}

// The types of the top-level boxes, in order.
inline std::vector<std::string> topLevelTypes(const fs::path& file) {
    std::vector<std::string> types;
    for (const auto& box : boxesOf(file)) {
        std::string name(4, ' ');
        for (int i = 0; i < 4; ++i) name[i] = static_cast<char>(box.type >> (24 - 8 * i));
        types.push_back(name);
    }
    return types;
}

struct TrackInfo {
    std::uint32_t movieTimescale = 0;
    std::uint64_t movieDuration = 0;
    std::uint64_t trackDuration = 0;  // tkhd, movie timescale
    std::vector<exporting::Mp4Edit> edits;
};

// The timing of the track with `handler` ('vide' or 'soun'), or none without such a track.
inline std::optional<TrackInfo> trackOf(const fs::path& file, const char* handler) {
    using exporting::findMp4Child;
    using exporting::fourCC;
    for (const auto& top : boxesOf(file)) {
        if (top.type != fourCC("moov")) continue;
        TrackInfo info;
        if (const auto* mvhd = findMp4Child(top, fourCC("mvhd"))) {
            info.movieTimescale = exporting::mp4Timescale(*mvhd).value();
            info.movieDuration = exporting::mp4Duration(*mvhd).value();
        }
        for (const auto& trak : top.children) {
            if (trak.type != fourCC("trak")) continue;
            const auto* mdia = findMp4Child(trak, fourCC("mdia"));
            const auto* hdlr = mdia ? findMp4Child(*mdia, fourCC("hdlr")) : nullptr;
            if (!hdlr || exporting::mp4HandlerType(*hdlr).value() != fourCC(handler)) continue;
            info.trackDuration =
                exporting::mp4Duration(*findMp4Child(trak, fourCC("tkhd"))).value();
            if (const auto* edts = findMp4Child(trak, fourCC("edts")))
                info.edits = exporting::readMp4EditList(*edts).value();
            return info;
        }
    }
    return std::nullopt;
}

inline std::vector<exporting::Mp4Edit> editsOf(const fs::path& file, const char* handler) {
    auto info = trackOf(file, handler);
    return info ? info->edits : std::vector<exporting::Mp4Edit>{};
}

// An export road as the tests drive it.
using Road = std::function<common::Status(const composition::Composition&, const fs::path&,
                                          const exporting::ProgressCallback&, std::stop_token)>;

// A road given a composition whose second source is deleted once it is built must fail
// naming that file and leave nothing behind.
inline void expectVanishedSourceFails(const std::string& name, const Road& road) {
    const auto dir = testing_support::freshDir(name);
    const auto gone = dir / "gone.mp4";
    fs::copy_file(movieA(), gone);
    const auto c = CompositionBuilder().clip(movieA(), 0, 600).clip(gone, 0, 600).build();
    fs::remove(gone);
    const auto file = dir / "out.mp4";
    const auto result = road(c, file, {}, {});
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message.find(gone.string()), std::string::npos)
        << result.error().message;
    EXPECT_FALSE(fs::exists(file));
}

// A road stopped at its first report of progress past `stopPast` must say it was
// cancelled and leave nothing at `file`.
inline void expectCancellingLeavesNothing(const Road& road, const composition::Composition& c,
                                          const fs::path& file, double stopPast = 0) {
    std::stop_source stop;
    bool reported = false;
    const auto result = road(
        c, file,
        [&](double fraction) {
            reported = true;
            if (fraction >= stopPast) stop.request_stop();
        },
        stop.get_token());
    ASSERT_FALSE(result) << file;
    EXPECT_TRUE(reported);
    EXPECT_EQ(result.error().message, exporting::exportCancelled().message);
    EXPECT_FALSE(fs::exists(file));
}

}  // namespace export_media
