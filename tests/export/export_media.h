#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
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
#include "support/player_decode.h"

// Tiny media for the export tests, and ways to look at what an export wrote.
namespace export_media {

namespace fs = std::filesystem;
using exporting::fourCC;
using testing_support::makeMedia;
using testing_support::quote;

inline constexpr int kFrameTicks = 20;  // one frame at 30 fps, in 1/600 s
inline constexpr int kSampleRate = 48000;

// B-frames and a keyframe a second: most cuts fall inside a group, decode order differs.
inline const std::string kH264 =
    "-c:v libx264 -preset ultrafast -bf 2 -g 30 -keyint_min 30 -sc_threshold 0 -pix_fmt yuv420p ";
inline const std::string kPicture = "-f lavfi -i testsrc2=size=160x120:rate=30 ";

// A rising tone with noise, so a window of it is found in one place only; AAC without noise
// substitution, whose decoder draws random numbers, decodes the same from any start.
inline const std::string kSweep =
    "-f lavfi -i \"aevalsrc=0.3*sin(2*PI*(200+300*t)*t)+0.02*(random(1)-0.5):s=48000\" ";
inline const std::string kAac = "-c:a aac -aac_pns 0 -b:a 128k -ac 1";

inline fs::path movieA() {
    return makeMedia("export_a.mp4", kPicture + kSweep + "-t 4 " + kH264 + kAac);
}
inline fs::path movieWithPcm() {
    return makeMedia("export_pcm.mov",
                     kPicture + kSweep + "-t 3 " + kH264 + "-c:a pcm_s16le -ac 1");
}
inline fs::path aacOnly() {
    return makeMedia("export_aac.m4a", kSweep + "-t 4 " + kAac);
}

// Settings for a project whose largest clip is `width` x `height`, uncropped.
inline exporting::ReencodeSettings plain(double width, double height, double framesPerSecond = 30) {
    composition::VideoSettings video;
    video.largestSize = {width, height};
    return {composition::outputFrame(video), exporting::Framing::whole, framesPerSecond};
}

// Ranges of files (in ticks) and gaps back to back on the video track (lane -1) or a lane.
class CompositionBuilder {
  public:
    CompositionBuilder& video(const fs::path& file, std::int64_t in, std::int64_t out,
                              double rate = 1) {
        return audio(file, 0, in, out, rate, -1);
    }
    CompositionBuilder& audio(const fs::path& file, int stream, std::int64_t in, std::int64_t out,
                              double rate = 1, int lane = 0) {
        const auto range = common::MediaTimeRange::fromStartEnd({in}, {out});
        auto& t = track(lane);
        t.segments.push_back({t.duration(),
                              common::MediaTime::fromSeconds(range.duration.seconds() / rate),
                              composition::SegmentSource{file, stream, range, rate}});
        return *this;
    }
    CompositionBuilder& gap(std::int64_t ticks, int lane = -1) {
        auto& t = track(lane);
        t.segments.push_back({t.duration(), {ticks}, std::nullopt});
        return *this;
    }
    // The same range on both tracks, as a linked clip gives (video stream 0, audio 1).
    CompositionBuilder& clip(const fs::path& file, std::int64_t in, std::int64_t out) {
        return video(file, in, out).audio(file, 1, in, out);
    }
    composition::Composition build() const { return composition_; }

  private:
    composition::Track& track(int lane) {
        if (lane < 0)
            return composition_.video ? *composition_.video : composition_.video.emplace();
        while (composition_.audio.size() <= std::size_t(lane))
            composition_.audio.push_back({composition::MediaKind::audio, {}});
        return composition_.audio[lane];
    }

    composition::Composition composition_;
};

// What ffprobe says of `entries`, comma-separated, one line a section; frames are counted.
inline std::string probe(const fs::path& file, const std::string& entries,
                         const std::string& streams = "") {
    return testing_support::ffprobe(
        file, "-count_frames " + (streams.empty() ? "" : "-select_streams " + streams + " ") +
                  "-show_entries " + entries + " -of csv=p=0");
}

// The first audio stream of `file` as `player` plays it, mono at 48 kHz.
inline testing_support::DecodedAudio soundOf(
    const fs::path& file, testing_support::Player player = testing_support::Player::ffmpeg) {
    return testing_support::decodeAudio(file, player, kSampleRate, 1);
}

// The top-level boxes of an MP4/QuickTime file.
inline std::vector<exporting::Mp4Box> boxesOf(const fs::path& file) {
    const std::string text = testing_support::contentsOf(file);
    auto boxes = exporting::parseMp4Boxes(std::vector<std::uint8_t>(text.begin(), text.end()));
    EXPECT_TRUE(boxes) << boxes.error().message;
    return boxes ? std::move(boxes).value() : std::vector<exporting::Mp4Box>{};
}

// The types of the top-level boxes, in order, as one string.
inline std::string topLevelTypes(const fs::path& file) {
    std::string types;
    for (const auto& box : boxesOf(file))
        for (int shift = 24; shift >= 0; shift -= 8) types += static_cast<char>(box.type >> shift);
    return types;
}

struct TrackInfo {
    std::uint64_t movieTimescale = 0;
    std::uint64_t movieDuration = 0;
    std::uint64_t trackDuration = 0;  // tkhd, movie timescale
    std::vector<exporting::Mp4Edit> edits;
};

// The timing of the track with `handler` ('vide' or 'soun'); empty without such a track.
inline TrackInfo trackOf(const fs::path& file, const char* handler) {
    using exporting::findMp4Child;
    for (auto& moov : boxesOf(file)) {
        auto* trak =
            moov.type == fourCC("moov") ? exporting::findMp4Track(moov, fourCC(handler)) : nullptr;
        if (!trak) continue;
        const auto* mvhd = findMp4Child(moov, fourCC("mvhd"));
        const auto* edts = findMp4Child(*trak, fourCC("edts"));
        return {
            exporting::mp4Timescale(*mvhd).value(), exporting::mp4Duration(*mvhd).value(),
            exporting::mp4Duration(*findMp4Child(*trak, fourCC("tkhd"))).value(),
            edts ? exporting::readMp4EditList(*edts).value() : std::vector<exporting::Mp4Edit>{}};
    }
    ADD_FAILURE() << file << " has no " << handler << " track";
    return {};
}

// An export road as the tests drive it.
using Road = std::function<common::Status(const composition::Composition&, const fs::path&,
                                          const exporting::ProgressCallback&, std::stop_token)>;

// A road stopped past `stopPast`, or missing its second source, says so and leaves nothing.
inline void expectFailuresLeaveNothing(const std::string& name, const Road& road, double stopPast) {
    const auto dir = testing_support::freshDir(name);
    std::stop_source stop;
    bool reported = false;
    const auto cancelled = road(
        CompositionBuilder().clip(movieA(), 0, 2400).build(), dir / "out.mp4",
        [&](double fraction) {
            reported = true;
            if (fraction >= stopPast) stop.request_stop();
        },
        stop.get_token());
    ASSERT_FALSE(cancelled);
    EXPECT_TRUE(reported);
    EXPECT_EQ(cancelled.error().message, exporting::exportCancelled().message);
    EXPECT_FALSE(fs::exists(dir / "out.mp4"));

    const auto gone = dir / "gone.mp4";
    fs::copy_file(movieA(), gone);
    const auto c = CompositionBuilder().clip(movieA(), 0, 600).clip(gone, 0, 600).build();
    fs::remove(gone);
    const auto result = road(c, dir / "out.mp4", {}, {});
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message.find(gone.string()), std::string::npos)
        << result.error().message;
    EXPECT_FALSE(fs::exists(dir / "out.mp4"));
}

}  // namespace export_media
