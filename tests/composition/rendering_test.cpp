#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "common/media_time.h"
#include "common/uuid.h"
#include "composition/audio_renderer.h"
#include "composition/composition.h"
#include "composition/frame_grab.h"
#include "composition/stream_lookup.h"
#include "composition/video_renderer.h"
#include "media/ff_ptr.h"
#include "media/media_input.h"
#include "media/probe.h"
#include "media/sample_media.h"
#include "model/clip.h"
#include "support/media_fixtures.h"
#include "support/player_decode.h"

extern "C" {
#include <libavutil/imgutils.h>
}

// The renderers on tiny media made by the ffmpeg tool, held against plain decodes from the start.
namespace {

using common::MediaTime;
using composition::AudioFormat;
using composition::AudioRenderer;
using composition::Composition;
using composition::grabFrame;
using composition::MediaKind;
using composition::VideoRenderer;
using sample_media::pixel;
using testing_support::makeMedia;
using testing_support::makeMediaFrom;
using testing_support::quote;
using testing_support::scratchDir;
using testing_support::turnedCopy;
namespace fs = std::filesystem;

const std::string kPicture = "-f lavfi -i testsrc2=size=160x120:rate=30 ";

// H.264 with B-frames (some not referenced) and keyframes 40 frames apart.
fs::path h264() {
    return makeMedia("render_h264.mp4", kPicture +
                                            "-t 3 -c:v libx264 -preset veryfast -bf 3 -g 40 "
                                            "-keyint_min 40 -sc_threshold 0 -pix_fmt yuv420p");
}
fs::path vp9Webm() {
    return makeMedia(
        "render_vp9.webm",
        kPicture + "-t 2 -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 20 -b:v 200k");
}
fs::path turnedClockwise(int degrees) {
    return turnedCopy("render_cw" + std::to_string(degrees) + ".mp4", h264(), degrees);
}
fs::path solid(const std::string& colour) {
    return makeMedia("render_" + colour + ".mp4",
                     "-f lavfi -i color=c=" + colour +
                         ":size=160x120:rate=30 -t 2 -c:v libx264 -preset veryfast "
                         "-pix_fmt yuv420p");
}

const std::string kTone = "-f lavfi -i sine=frequency=440:sample_rate=48000 ";
fs::path toneWav() {
    return makeMedia("render_tone.wav", kTone + "-t 2 -c:a pcm_s16le");
}
// The clip the probe makes of `file`, placed at `start` and trimmed to in..out.
model::Clip clipOf(const fs::path& file, double start, double inSeconds, double outSeconds) {
    auto probed =
        media::probeClip(file, std::nullopt, common::Uuid::random(), media::ThumbnailPolicy::skip);
    EXPECT_TRUE(probed) << probed.error().message;
    if (!probed) return {};
    model::Clip clip = probed.value();
    clip.startOnTimeline = start;
    clip.inSeconds = inSeconds;
    clip.outSeconds = outSeconds;
    return clip;
}

// One frame of a plain decode, its time counted from the stream's start time.
struct PlainFrame {
    std::int64_t timestamp = 0;
    media::FramePtr frame;
};

struct PlainVideo {
    AVRational timeBase{0, 1};
    std::vector<PlainFrame> frames;
};

// Every frame of the first video stream, decoded on one thread from the start.
PlainVideo decodeAllVideo(const fs::path& file) {
    PlainVideo result;
    auto input = media::openInput(file);
    const AVStream* stream =
        input ? media::firstStream(*input.value(), AVMEDIA_TYPE_VIDEO) : nullptr;
    EXPECT_TRUE(stream) << file;
    if (!stream) return result;
    auto decoder = media::openDecoder(*input.value(), *stream, 1);
    EXPECT_TRUE(decoder);
    if (!decoder) return result;
    result.timeBase = stream->time_base;
    const std::int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    const auto receive = [&] {
        for (media::FramePtr frame{av_frame_alloc()};
             avcodec_receive_frame(decoder.value().get(), frame.get()) >= 0;
             frame.reset(av_frame_alloc())) {
            // A frame without a time follows the one before by one unit.
            const std::int64_t time = frame->best_effort_timestamp;
            const std::int64_t timestamp =
                time != AV_NOPTS_VALUE
                    ? time - start
                    : (result.frames.empty() ? 0 : result.frames.back().timestamp + 1);
            result.frames.push_back({timestamp, std::move(frame)});
        }
    };
    media::PacketPtr packet{av_packet_alloc()};
    while (av_read_frame(input.value().get(), packet.get()) >= 0) {
        if (packet->stream_index == stream->index)
            avcodec_send_packet(decoder.value().get(), packet.get());
        av_packet_unref(packet.get());
        receive();
    }
    avcodec_send_packet(decoder.value().get(), nullptr);
    receive();
    return result;
}

// The pixels of a picture, packed.
std::vector<std::uint8_t> pixels(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    std::vector<std::uint8_t> bytes(
        static_cast<std::size_t>(av_image_get_buffer_size(format, frame.width, frame.height, 1)));
    av_image_copy_to_buffer(bytes.data(), static_cast<int>(bytes.size()), frame.data,
                            frame.linesize, format, frame.width, frame.height, 1);
    return bytes;
}

bool samePicture(const AVFrame& a, const AVFrame& b) {
    return a.format == b.format && a.width == b.width && a.height == b.height &&
           pixels(a) == pixels(b);
}

// The frame `segment` shows at composition time value/scale s: the last at or before the source
// time it maps to, else the first; in whole numbers, apart from the renderer's own arithmetic.
std::size_t expectedFrame(const PlainVideo& video, const composition::Segment& segment,
                          std::int64_t value, std::int64_t scale) {
    __extension__ typedef __int128 Wide;
    const auto& source = *segment.source;
    const Wide assetStart = source.assetRange.start.ticks;
    const Wide assetLength = source.assetRange.duration.ticks;
    const Wide start = segment.start.ticks;
    const Wide length = segment.duration.ticks;
    // source seconds = sourceNumerator / sourceDenominator
    const Wide sourceNumerator = assetStart * scale * length +
                                 (static_cast<Wide>(value) * 600 - start * scale) * assetLength;
    const Wide sourceDenominator = static_cast<Wide>(600) * scale * length;
    std::size_t shown = 0;
    for (std::size_t i = 0; i < video.frames.size(); ++i) {
        const Wide frameNumerator =
            static_cast<Wide>(video.frames[i].timestamp) * video.timeBase.num;
        if (frameNumerator * sourceDenominator <= sourceNumerator * video.timeBase.den) shown = i;
    }
    return shown;
}

// Every sample of a 48 kHz mono file's sound as the ffmpeg tool decodes it.
std::vector<float> decodeAllAudio(const fs::path& file) {
    return testing_support::decodeAudio(file, testing_support::Player::ffmpeg, 48000, 1).samples;
}

TEST(LastingStreamLookup, AsksAFileAgainOnlyOnceItHasChanged) {
    const fs::path file = scratchDir() / "render_lasting_lookup";
    fs::copy_file(sample_media::h264Mp4(), file, fs::copy_options::overwrite_existing);
    const auto lookup = composition::lastingStreamLookup();
    EXPECT_EQ(lookup(file, MediaKind::video), 0);
    EXPECT_EQ(lookup(file, MediaKind::audio), 1);

    // Another file at the same path, of another size.
    fs::copy_file(toneWav(), file, fs::copy_options::overwrite_existing);
    EXPECT_EQ(lookup(file, MediaKind::video), std::nullopt);
    EXPECT_EQ(lookup(file, MediaKind::audio), 0);
    fs::remove(file);
    EXPECT_EQ(lookup(file, MediaKind::audio), std::nullopt);
}

// Renders `ticks` and holds the picture against the plain decode of the one source.
void expectExactFrame(VideoRenderer& renderer, const Composition& composition,
                      const PlainVideo& plain, std::int64_t ticks) {
    SCOPED_TRACE("at " + std::to_string(ticks) + " ticks");
    auto rendered = renderer.uprightFrameAt(MediaTime{ticks});
    ASSERT_TRUE(rendered) << rendered.error().message;
    const auto& segments = composition.video->segments;
    const auto at = std::find_if(segments.begin(), segments.end(), [&](const auto& s) {
        return s.start.ticks <= ticks && ticks < s.end().ticks;
    });
    if (at == segments.end() || !at->source) {
        EXPECT_FALSE(rendered.value().picture || rendered.value().origin);
        return;
    }
    const std::size_t wanted = expectedFrame(plain, *at, ticks, 600);
    ASSERT_TRUE(rendered.value().picture && rendered.value().origin);
    const auto& origin = *rendered.value().origin;
    EXPECT_EQ(origin.segmentIndex, static_cast<std::size_t>(at - segments.begin()));
    EXPECT_EQ(origin.clipID, at->source->clipID);
    EXPECT_EQ(origin.sourceTimestamp, plain.frames[wanted].timestamp) << "frame " << wanted;
    EXPECT_TRUE(samePicture(*rendered.value().picture, *plain.frames[wanted].frame))
        << "frame " << wanted;
    EXPECT_EQ(rendered.value().picture->pts, ticks);
}

// Cuts at frames between keyframes, gaps, a clip on top of another, a clip that may run past
// the end of a short file, and one at double rate.
std::vector<model::Clip> cutsOf(const fs::path& file) {
    auto fast = clipOf(file, 3.6, 0.2, 1.2);
    fast.rateMultiplier = 2;
    return {clipOf(file, 0, 0.45, 1.2), clipOf(file, 0.9, 1.35, 1.9), clipOf(file, 1.2, 0.1, 0.5),
            clipOf(file, 1.6, 1.7, 3.5), fast};
}

TEST(VideoRenderer, EveryFrameIsTheSourceFrameAtTheMappedTimeInOrderOrNot) {
    for (const auto& file : {
             // MPEG-TS, whose clock starts well above 0.
             makeMediaFrom("render_h264.ts", h264(), "-c copy"),
             // Without an edit list the B-frame delay shows: the clock starts two frames in.
             makeMediaFrom("render_h264_no_edits.mp4", h264(), "-c copy -use_editlist 0"),
             vp9Webm(),
             // Frames at 0, 3, 6, 9, 10, 12, 15, ... thirtieths of a second.
             makeMedia("render_vfr.mp4", kPicture +
                                             "-t 2 -vf \"select='not(mod(n\\,3))+eq(n\\,10)'\" "
                                             "-fps_mode passthrough -c:v libx264 -preset veryfast "
                                             "-bf 2 -g 12 -pix_fmt yuv420p"),
         }) {
        SCOPED_TRACE(file.filename().string());
        const PlainVideo plain = decodeAllVideo(file);
        ASSERT_GT(plain.frames.size(), 10u);
        const Composition composition = composition::buildComposition(cutsOf(file));
        ASSERT_TRUE(composition.video);
        // Sixtieths of a second, past the end of the track.
        std::vector<std::int64_t> times;
        for (std::int64_t ticks = 0; ticks <= composition.video->duration().ticks + 60; ticks += 10)
            times.push_back(ticks);
        VideoRenderer sequential{composition};
        for (std::int64_t ticks : times) expectExactFrame(sequential, composition, plain, ticks);
        std::shuffle(times.begin(), times.end(), std::mt19937{7});
        VideoRenderer random{composition};
        for (std::int64_t ticks : times) expectExactFrame(random, composition, plain, ticks);
    }
}

TEST(VideoRenderer, WhereNoPictureShowsAFormattedFrameIsBlack) {
    VideoRenderer renderer{composition::buildComposition({clipOf(h264(), 1, 0, 1)})};
    for (double seconds : {0.5, 5.0}) {
        auto black = renderer.frameAt(MediaTime::fromSeconds(seconds), {AV_PIX_FMT_RGBA, 32, 24});
        ASSERT_TRUE(black && black.value().picture);
        const AVFrame& picture = *black.value().picture;
        EXPECT_EQ(std::pair(picture.width, picture.format), std::pair(32, int{AV_PIX_FMT_RGBA}));
        const auto bytes = pixels(picture);
        for (std::size_t i = 0; i < bytes.size(); i += 4)
            ASSERT_EQ(bytes[i] | bytes[i + 1] | bytes[i + 2], 0) << i;
    }
    VideoRenderer sound{composition::buildComposition({clipOf(toneWav(), 0, 0, 1)})};
    auto nothing = sound.uprightFrameAt(MediaTime{0});
    ASSERT_TRUE(nothing);
    EXPECT_FALSE(nothing.value().picture);
}

TEST(VideoRenderer, TurnedSourcesComeOutUprightAtTheirStoredSize) {
    struct Turn {
        fs::path file;
        int width, height;
        std::pair<int, int> (*storedAt)(int x, int y, int lastX, int lastY);
    };
    const auto quarter = [](int x, int y, int, int lastY) { return std::pair{y, lastY - x}; };
    const auto half = [](int x, int y, int lastX, int lastY) {
        return std::pair{lastX - x, lastY - y};
    };
    // 4:2:2 can't be turned a quarter as it is: it is widened to 4:4:4 first.
    for (const auto& [file, width, height, storedAt] :
         {Turn{turnedClockwise(90), 120, 160, quarter}, Turn{turnedClockwise(180), 160, 120, half},
          Turn{turnedCopy("render_422_cw90.mp4",
                          makeMedia("render_422.mp4", kPicture + "-t 1 -c:v libx264 -preset "
                                                                 "veryfast -pix_fmt yuv422p"),
                          90),
               120, 160, quarter}}) {
        SCOPED_TRACE(file.filename().string());
        const PlainVideo plain = decodeAllVideo(file);
        const AVFrame& stored = *plain.frames.at(10).frame;
        VideoRenderer renderer{composition::buildComposition({clipOf(file, 0, 0, 1)})};
        auto rendered = renderer.uprightFrameAt(MediaTime{200});
        ASSERT_TRUE(rendered && rendered.value().picture);
        const AVFrame& upright = *rendered.value().picture;
        EXPECT_EQ(std::pair(upright.width, upright.height), std::pair(width, height));
        EXPECT_EQ(upright.format,
                  stored.format == AV_PIX_FMT_YUV422P ? AV_PIX_FMT_YUV444P : stored.format);
        // The luma of the upright picture at (x, y) is that of the stored one at storedAt.
        for (int y = 0; y < upright.height; ++y)
            for (int x = 0; x < upright.width; ++x) {
                const auto [sx, sy] = storedAt(x, y, stored.width - 1, stored.height - 1);
                ASSERT_EQ(upright.data[0][y * upright.linesize[0] + x],
                          stored.data[0][sy * stored.linesize[0] + sx])
                    << x << "," << y;
            }
    }
}

TEST(VideoRenderer, TimesInAnyTimeBaseMapExactly) {
    // A 90 kHz tick before frame k is frame k - 1, though on the 600-tick grid it rounds to k.
    const auto file = h264();
    const PlainVideo plain = decodeAllVideo(file);
    const Composition composition = composition::buildComposition({clipOf(file, 0, 0, 2.5)});
    VideoRenderer renderer{composition};
    for (std::int64_t k = 1; k < 70; ++k) {
        for (std::int64_t time : {3000 * k - 1, 3000 * k}) {
            auto rendered = renderer.uprightFrameAt(time, {1, 90000});
            ASSERT_TRUE(rendered && rendered.value().picture);
            const std::size_t wanted =
                expectedFrame(plain, composition.video->segments[0], time, 90000);
            EXPECT_EQ(wanted, static_cast<std::size_t>(time % 3000 == 0 ? k : k - 1));
            EXPECT_EQ(rendered.value().origin->sourceTimestamp, plain.frames[wanted].timestamp);
            EXPECT_EQ(rendered.value().picture->pts, time);
        }
    }
}

// `frames` samples from the renderer's position on, read in uneven pieces.
std::vector<float> readSamples(AudioRenderer& renderer, std::int64_t frames) {
    const int channels = renderer.format().channelCount;
    std::vector<float> samples(static_cast<std::size_t>(frames) * channels);
    std::int64_t done = 0;
    while (done < frames) {
        const std::int64_t piece = std::min<std::int64_t>(997, frames - done);
        auto read = renderer.read(std::span<float>(samples.data() + done * channels,
                                                   static_cast<std::size_t>(piece * channels)));
        EXPECT_TRUE(read) << read.error().message;
        if (!read) break;
        done += piece;
    }
    return samples;
}

std::vector<float> render(const std::vector<model::Clip>& clips, std::int64_t frames,
                          AudioFormat format = {48000, 1}) {
    AudioRenderer renderer{composition::buildComposition(clips), format};
    return readSamples(renderer, frames);
}

fs::path toneAac() {
    return makeMedia("render_tone.m4a", kTone + "-t 2 -c:a aac -b:a 128k");
}
fs::path toneMp3() {
    return makeMedia("render_tone.mp3",
                     "-f lavfi -i sine=frequency=440:sample_rate=44100 -t 2 "
                     "-c:a libmp3lame -b:a 128k");
}

float peak(const std::vector<float>& samples, std::size_t from, std::size_t to) {
    float highest = 0;
    for (std::size_t i = from; i < to; ++i) highest = std::max(highest, std::abs(samples[i]));
    return highest;
}

// The frequency of a steady tone from its zero crossings.
double frequencyOf(const std::vector<float>& samples, std::size_t from, std::size_t to, int rate) {
    int crossings = 0;
    for (std::size_t i = from + 1; i < to; ++i)
        if ((samples[i - 1] < 0) != (samples[i] < 0)) ++crossings;
    return crossings / 2.0 / (static_cast<double>(to - from) / rate);
}

// The shift, in samples, that best matches `signal` from `signalFrom` on with `reference`
// from `referenceFrom` on: 0 when they line up.
int bestLag(const std::vector<float>& signal, std::size_t signalFrom,
            const std::vector<float>& reference, std::size_t referenceFrom, std::size_t length) {
    int best = 0;
    double bestScore = -1e30;
    // Less than a period of the 440 Hz tone either way, so the best match is unique.
    for (int lag = -50; lag <= 50; ++lag) {
        double score = 0;
        for (std::size_t i = 0; i < length; ++i)
            score += static_cast<double>(signal[signalFrom + i]) *
                     reference[static_cast<std::size_t>(
                         static_cast<std::ptrdiff_t>(referenceFrom + i) - lag)];
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    return best;
}

TEST(AudioRenderer, ToneAfterAGapStartsAtItsRoundedSampleAtAnyRate) {
    const auto wav = decodeAllAudio(toneWav());
    ASSERT_EQ(wav.size(), 96000u);
    // In at 1/600 s: the tone's sample 80, far from 0.
    const auto out = render({clipOf(toneWav(), 1.0, 1.0 / 600, 1.5)}, 130000);
    ASSERT_NE(wav[80], 0.0f);
    EXPECT_EQ(peak(out, 0, 48000), 0.0f);
    for (std::size_t i = 0; i < 71920; ++i) ASSERT_EQ(out[48000 + i], wav[80 + i]) << i;
    EXPECT_EQ(peak(out, 48000 + 71920, out.size()), 0.0f);

    // Resampled to 44.1 kHz stereo, both channels the same.
    const auto stereo = render({clipOf(toneWav(), 1.0, 0.25, 1.5)}, 88200, {44100, 2});
    EXPECT_EQ(peak(stereo, 0, 2 * 44100), 0.0f);
    EXPECT_GT(peak(stereo, 2 * 44100, 2 * 44100 + 2 * 100), 0.05f);
    for (std::size_t i = 0; i < stereo.size(); i += 2) ASSERT_EQ(stereo[i], stereo[i + 1]);

    AudioRenderer empty{composition::Composition{}, {44100, 2}};
    EXPECT_EQ(empty.sampleAt(MediaTime{600}), 44100);
    EXPECT_EQ(empty.sampleAt(MediaTime{1}), 74);  // 73.5 rounds up
    const auto nothing = readSamples(empty, 100);
    EXPECT_EQ(peak(nothing, 0, nothing.size()), 0.0f);
}

TEST(AudioRenderer, LanesAreSummedAndTheSumIsClipped) {
    const auto wav = decodeAllAudio(toneWav());
    const auto out = render({clipOf(toneWav(), 0, 0, 1), clipOf(toneWav(), 0.5, 0, 1)}, 72000);
    for (std::size_t i = 0; i < 72000; ++i)
        ASSERT_EQ(out[i], (i < 48000 ? wav[i] : 0) + (i >= 24000 ? wav[i - 24000] : 0)) << i;
    const std::vector<model::Clip> loud(12, clipOf(toneWav(), 0, 0, 1));
    const auto clipped = render(loud, 48000);
    EXPECT_EQ(peak(clipped, 0, clipped.size()), 1.0f);
}

TEST(AudioRenderer, RetimedSoundKeepsItsPitchAndFillsItsTimeExactly) {
    for (const double rate : {2.0, 0.5, 0.25}) {
        SCOPED_TRACE(rate);
        auto clip = clipOf(toneWav(), 0, 0, rate >= 1 ? 2.0 : 0.5);
        clip.rateMultiplier = rate;
        const auto length = static_cast<std::size_t>(clip.timelineLength() * 48000);
        const auto out = render({clip}, static_cast<std::int64_t>(length) + 4800);
        EXPECT_NEAR(frequencyOf(out, length / 10, length * 9 / 10, 48000), 440, 440 * 0.03);
        EXPECT_GT(peak(out, length - 2400, length), 0.05f);
        EXPECT_EQ(peak(out, length, out.size()), 0.0f);
    }
}

TEST(AudioRenderer, EncodedSoundStartsAtItsFirstRealSampleAndPlaysFrameAfterFrame) {
    const auto reference = decodeAllAudio(toneWav());
    // AAC in MP4 skips the encoder's priming; MP3 is resampled from 44.1 kHz as well.
    for (const auto& file : {toneAac(), toneMp3()}) {
        SCOPED_TRACE(file.filename().string());
        const auto out = render({clipOf(file, 0.5, 0, 1.5)}, 96000);
        EXPECT_EQ(peak(out, 0, 24000), 0.0f);
        EXPECT_EQ(bestLag(out, 24000 + 4800, reference, 4800, 9600), 0);
        EXPECT_GT(peak(out, 24000, 24000 + 200), 0.01f);
    }
    // A first frame said to last 30 samples longer than it does, as some phones write it.
    const auto phone = makeMediaFrom("render_tone_long_first_frame.m4a", toneAac(),
                                     "-c copy -bsf:a \"setts=ts='if(gt(N,0),TS+30,TS)'\"");
    const auto out = render({clipOf(phone, 0, 0.7, 1.5)}, 24000);
    EXPECT_EQ(bestLag(out, 4800, decodeAllAudio(phone), 33600 + 4800, 9600), 0);
}

TEST(AudioRenderer, ReadingFromAPositionGivesWhatReadingOnGives) {
    // PCM exactly, a restarted decoder to float rounding; own rates, as resampling may shift.
    for (const auto& [file, rate, tolerance] :
         {std::tuple{toneWav(), 48000, 0.0f}, std::tuple{toneAac(), 48000, 1e-4f},
          std::tuple{toneMp3(), 44100, 1e-4f}}) {
        SCOPED_TRACE(file.filename().string());
        const std::vector<model::Clip> clips{clipOf(file, 0, 0.3, 1.1), clipOf(file, 0.8, 0.2, 1.0),
                                             clipOf(file, 1.6, 1.05, 1.95)};
        const auto whole = render(clips, 120000, {rate, 1});
        for (const std::int64_t from : {1, 33601, 57600, 80000}) {
            AudioRenderer renderer{composition::buildComposition(clips), {rate, 1}};
            renderer.seek(from);
            EXPECT_EQ(renderer.position(), from);
            const auto part = readSamples(renderer, 20000);
            for (std::size_t i = 0; i < part.size(); ++i)
                ASSERT_NEAR(part[i], whole[static_cast<std::size_t>(from) + i], tolerance)
                    << from + i;
        }
    }
}

TEST(FrameGrab, GivesTheTopClipsUprightFrameAndNothingWhereNoPictureShows) {
    const auto red = clipOf(solid("red"), 0, 0, 2);
    const auto blue = clipOf(solid("blue"), 0.5, 0, 0.5);
    const auto top = grabFrame({red, blue}, 0.75);
    ASSERT_TRUE(top);
    EXPECT_EQ(std::pair(top->width, top->height), std::pair(160, 120));
    EXPECT_TRUE(sample_media::isBlue(pixel(*top, 80, 60)));
    const auto below = grabFrame({red, blue}, 1.25);
    ASSERT_TRUE(below);
    EXPECT_TRUE(sample_media::isRed(pixel(*below, 80, 60)));
    // Upright, at the stored size.
    const auto turned = grabFrame({clipOf(turnedClockwise(90), 0, 0, 2)}, 0.5);
    ASSERT_TRUE(turned);
    EXPECT_EQ(std::pair(turned->width, turned->height), std::pair(120, 160));

    const auto clip = clipOf(h264(), 1, 0, 1);
    EXPECT_TRUE(grabFrame({clip}, 1.5));
    auto gone = clip;
    gone.url = scratchDir() / "render_gone.mp4";
    for (const auto& [clips, seconds] : {std::pair{std::vector{clip}, 0.5},
                                         {{clip}, 2.0},
                                         {{}, 0.0},
                                         {{gone}, 1.5},
                                         {{clipOf(toneWav(), 0, 0, 1)}, 0.5}})
        EXPECT_FALSE(grabFrame(clips, seconds)) << seconds;
}

TEST(FrameGrab, MeasuresASourceOnItsMoviesClockWherePictureStartsAfterSound) {
    // The picture half a second after the sound, as the mp4 muxer writes it: an empty edit.
    const auto late = makeMedia(
        "render_late_video.mp4",
        "-itsoffset 0.5 -i " + quote(h264().string()) +
            " -f lavfi -i sine=sample_rate=48000 -t 3 -map 0:v -map 1:a -c:v copy -c:a aac");
    const auto clip = clipOf(late, 0, 0, 3);
    EXPECT_FALSE(grabFrame({clip}, 0.25));
    const auto shown = grabFrame({clip}, 1.0);
    const auto same = grabFrame({clipOf(h264(), 0, 0, 3)}, 0.5);
    ASSERT_TRUE(shown && same);
    EXPECT_EQ(shown->rgba, same->rgba);
}

TEST(FrameGrab, IsTheExactFrameAtTheTime) {
    // Frame 31 starts at 31/30 s = 1.0333 s; a grab at 1.035 s shows it, at 1.03 s frame 30.
    const auto file = h264();
    const auto plain = decodeAllVideo(file);
    const auto rgbaOf = [](const AVFrame& frame) {
        media::SwsPtr scaler{sws_getContext(
            frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), frame.width,
            frame.height, AV_PIX_FMT_RGBA, SWS_BICUBIC, nullptr, nullptr, nullptr)};
        std::vector<std::uint8_t> rgba(static_cast<std::size_t>(frame.width) * frame.height * 4);
        std::uint8_t* planes[4] = {rgba.data()};
        int strides[4] = {frame.width * 4};
        sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
        return rgba;
    };
    const auto at30 = grabFrame({clipOf(file, 0, 0, 3)}, 1.03);
    const auto at31 = grabFrame({clipOf(file, 0, 0, 3)}, 1.035);
    ASSERT_TRUE(at30 && at31);
    EXPECT_EQ(at30->rgba, rgbaOf(*plain.frames[30].frame));
    EXPECT_EQ(at31->rgba, rgbaOf(*plain.frames[31].frame));
    EXPECT_NE(at30->rgba, at31->rgba);
}

TEST(FrameGrab, PngReplacesTheFileAndDecodesToTheSameImageOrIsNotWrittenAtAll) {
    const auto dir = testing_support::freshDir("frame_grab_png");
    const auto png = dir / "frame.png";
    EXPECT_FALSE(composition::writePng(nullptr, png));
    EXPECT_FALSE(std::filesystem::exists(png));
    const auto image = grabFrame({clipOf(h264(), 0, 0, 2)}, 1.0);
    ASSERT_TRUE(image);
    std::ofstream(png) << "an older file";
    const auto written = composition::writePng(image, png);
    ASSERT_TRUE(written) << written.error().message;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
    const std::string decoded =
        testing_support::outputOf(std::string(VANTRELL_FFMPEG) + " -nostdin -loglevel error -i " +
                                  quote(png.string()) + " -f rawvideo -pix_fmt rgba -");
    EXPECT_EQ(std::vector<std::uint8_t>(decoded.begin(), decoded.end()), image->rgba);
}

}  // namespace
