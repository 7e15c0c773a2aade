#include "composition/audio_renderer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "common/media_time.h"
#include "composition/render_test_support.h"
#include "composition/stream_lookup.h"

namespace {

using common::MediaTime;
using composition::AudioFormat;
using composition::AudioRenderer;
using render_test::clipOf;
using render_test::decodeAllAudio;

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

std::filesystem::path toneAac() {
    return testing_support::makeMedia("render_tone.m4a",
                                      render_test::kTone + "-t 2 -c:a aac -b:a 128k");
}
std::filesystem::path toneMp3() {
    return testing_support::makeMedia("render_tone.mp3",
                                      "-f lavfi -i sine=frequency=440:sample_rate=44100 -t 2 "
                                      "-c:a libmp3lame -b:a 128k");
}

bool silent(const std::vector<float>& samples, std::size_t from, std::size_t to) {
    return std::all_of(samples.begin() + static_cast<std::ptrdiff_t>(from),
                       samples.begin() + static_cast<std::ptrdiff_t>(to),
                       [](float s) { return s == 0.0f; });
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
    const auto wav = decodeAllAudio(render_test::toneWav());
    ASSERT_EQ(wav.size(), 96000u);
    // In at 1/600 s: the tone's sample 80, far from 0.
    const auto out = render({clipOf(render_test::toneWav(), 1.0, 1.0 / 600, 1.5)}, 130000);
    ASSERT_NE(wav[80], 0.0f);
    EXPECT_TRUE(silent(out, 0, 48000));
    for (std::size_t i = 0; i < 71920; ++i) ASSERT_EQ(out[48000 + i], wav[80 + i]) << i;
    EXPECT_TRUE(silent(out, 48000 + 71920, out.size()));

    // Resampled to 44.1 kHz stereo, both channels the same.
    const auto stereo = render({clipOf(render_test::toneWav(), 1.0, 0.25, 1.5)}, 88200, {44100, 2});
    EXPECT_TRUE(silent(stereo, 0, 2 * 44100));
    EXPECT_GT(peak(stereo, 2 * 44100, 2 * 44100 + 2 * 100), 0.05f);
    for (std::size_t i = 0; i < stereo.size(); i += 2) ASSERT_EQ(stereo[i], stereo[i + 1]);

    AudioRenderer empty{composition::Composition{}, {44100, 2}};
    EXPECT_EQ(empty.sampleAt(MediaTime{600}), 44100);
    EXPECT_EQ(empty.sampleAt(MediaTime{1}), 74);  // 73.5 rounds up
    const auto nothing = readSamples(empty, 100);
    EXPECT_TRUE(silent(nothing, 0, nothing.size()));
}

TEST(AudioRenderer, LanesAreSummedAndTheSumIsClipped) {
    const auto wav = decodeAllAudio(render_test::toneWav());
    const auto out =
        render({clipOf(render_test::toneWav(), 0, 0, 1), clipOf(render_test::toneWav(), 0.5, 0, 1)},
               72000);
    for (std::size_t i = 0; i < 72000; ++i)
        ASSERT_EQ(out[i], (i < 48000 ? wav[i] : 0) + (i >= 24000 ? wav[i - 24000] : 0)) << i;
    const std::vector<model::Clip> loud(12, clipOf(render_test::toneWav(), 0, 0, 1));
    const auto clipped = render(loud, 48000);
    EXPECT_EQ(peak(clipped, 0, clipped.size()), 1.0f);
}

TEST(AudioRenderer, RetimedSoundKeepsItsPitchAndFillsItsTimeExactly) {
    for (const double rate : {2.0, 0.5, 0.25}) {
        SCOPED_TRACE(rate);
        auto clip = clipOf(render_test::toneWav(), 0, 0, rate >= 1 ? 2.0 : 0.5);
        clip.rateMultiplier = rate;
        const auto length = static_cast<std::size_t>(clip.timelineLength() * 48000);
        const auto out = render({clip}, static_cast<std::int64_t>(length) + 4800);
        EXPECT_NEAR(frequencyOf(out, length / 10, length * 9 / 10, 48000), 440, 440 * 0.03);
        EXPECT_GT(peak(out, length - 2400, length), 0.05f);
        EXPECT_TRUE(silent(out, length, out.size()));
    }
}

TEST(AudioRenderer, EncodedSoundStartsAtItsFirstRealSample) {
    const auto reference = decodeAllAudio(render_test::toneWav());
    // AAC in MP4 skips the encoder's priming; MP3 is resampled from 44.1 kHz as well.
    for (const auto& file : {toneAac(), toneMp3()}) {
        SCOPED_TRACE(file.filename().string());
        const auto out = render({clipOf(file, 0.5, 0, 1.5)}, 96000);
        EXPECT_TRUE(silent(out, 0, 24000));
        EXPECT_EQ(bestLag(out, 24000 + 4800, reference, 4800, 9600), 0);
        EXPECT_GT(peak(out, 24000, 24000 + 200), 0.01f);
    }
}

TEST(AudioRenderer, FramesTimedLessThanAFrameOffTheirCountPlayOneAfterAnother) {
    // The first frame said to last 30 samples longer than it does, as some phones write it.
    const auto file =
        testing_support::makeMediaFrom("render_tone_long_first_frame.m4a", toneAac(),
                                       "-c copy -bsf:a \"setts=ts='if(gt(N,0),TS+30,TS)'\"");
    const auto reference = decodeAllAudio(file);
    const auto out = render({clipOf(file, 0, 0.7, 1.5)}, 24000);
    EXPECT_EQ(bestLag(out, 4800, reference, 33600 + 4800, 9600), 0);
}

TEST(AudioRenderer, ReadingFromAPositionGivesWhatReadingOnGives) {
    // PCM exactly; a transform decoder started anew shortly before gives the same to within
    // float rounding. Each at its own rate: a resampler starting elsewhere may shift its grid.
    for (const auto& [file, rate, tolerance] :
         {std::tuple{render_test::toneWav(), 48000, 0.0f}, std::tuple{toneAac(), 48000, 1e-4f},
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

}  // namespace
