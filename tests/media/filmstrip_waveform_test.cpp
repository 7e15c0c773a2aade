#include "media/filmstrip.h"
#include "media/waveform.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "media/sample_media.h"
#include "support/media_fixtures.h"

namespace {

namespace samples = sample_media;
namespace waveform = media::waveform;
using media::filmstripTimes;
using media::generateFilmstrip;
using testing_support::contentsOf;
using testing_support::makeMedia;
using waveform::extractPeaks;

constexpr double kTolerance = media::kFilmstripToleranceSeconds + 1e-9;

// 5 frames a second, each showing its number in lossless 8-pixel bars, white for a set bit.
constexpr int kNumberedRate = 5;

std::filesystem::path numbered(const std::string& name, double seconds,
                               const std::string& encoder) {
    return makeMedia(name, "-f lavfi -i color=c=black:size=64x36:rate=" +
                               std::to_string(kNumberedRate) + " -t " + std::to_string(seconds) +
                               " -vf \"geq=lum='if(bitand(N,pow(2,floor(X/8))),235,16)':cb=128:"
                               "cr=128\" -pix_fmt yuv420p -c:v libx264 -qp 0 " +
                               encoder);
}

// The time of the frame a filmstrip image shows, read from the bar centres.
double shownSeconds(const model::ImageData& image, bool turned = false) {
    int number = 0;
    for (int bit = 0; bit < 8; ++bit) {
        const int along = bit * 8 + 4;
        const auto bar =
            turned ? sample_media::pixel(image, 17, along) : sample_media::pixel(image, along, 18);
        if (bar.g > 128) number |= 1 << bit;
    }
    return static_cast<double>(number) / kNumberedRate;
}

TEST(FilmstripTimes, OneFramePerSecondAndAHalfFromThreeToTwentyFourInTheMiddlesOfStretches) {
    EXPECT_EQ(filmstripTimes(7.5).size(), 5u);
    EXPECT_EQ(filmstripTimes(3600).size(), 24u);
    EXPECT_EQ(filmstripTimes(3), (std::vector<double>{0.5, 1.5, 2.5}));
    // 1/6 s rounds to a 600th of a second.
    EXPECT_EQ(filmstripTimes(1), (std::vector<double>{100.0 / 600, 300.0 / 600, 500.0 / 600}));
    for (double duration : {0.0, -3.0, std::nan(""), HUGE_VAL, 1e300})
        EXPECT_TRUE(filmstripTimes(duration).empty()) << duration;
    EXPECT_TRUE(generateFilmstrip(testing_support::scratchDir() / "no-such-file.mp4", 1).empty());
    EXPECT_TRUE(generateFilmstrip(numbered("numbered_2s.mp4", 2, "-preset ultrafast -g 1000"), NAN)
                    .empty());
}

TEST(Filmstrip, FramesComeUprightFromWithinTheToleranceOfTheirTimesWhateverTheKeyframeSpacing) {
    const std::string fast = "-preset ultrafast ";
    struct Source {
        std::string name;
        double seconds;
        std::string encoder;
        bool turned = false;
        double asked = 0;  // the length the filmstrip is asked for, if not the file's
    };
    for (const auto& [name, seconds, encoder, turned, asked] : {
             // One keyframe at the start, so every frame after it is a decode away.
             Source{"numbered_36s.mp4", 36, fast + "-g 1000"},
             // B-frames make the decoder hand frames out in another order than it takes them.
             Source{"numbered_12s_bframes.mp4", 12, "-preset veryfast -bf 3 -g 12"},
             // A keyframe every second; a fragmented file's index grows as it is read.
             Source{"numbered_12s_fragmented.mp4", 12,
                    fast + "-g 5 -movflags +frag_keyframe+empty_moov"},
             // Turned a quarter clockwise, the bars run down the picture from its top.
             Source{"numbered_7.5s.mp4", 7.5, fast + "-g 1000", true},
             // Asked as if 10 s long, a 2-second clip serves only the first of 6 times.
             Source{"numbered_2s.mp4", 2, fast + "-g 1000", false, 10},
         }) {
        SCOPED_TRACE(name);
        const auto plain = numbered(name, seconds, encoder);
        const auto file = turned ? testing_support::turnedCopy("cw90_" + name, plain, 90) : plain;
        const double length = asked > 0 ? asked : seconds;
        auto times = filmstripTimes(length);
        if (asked > 0) times.resize(1);
        const auto frames = media::generateFilmstripFrames(file, length);
        ASSERT_EQ(frames.size(), times.size());
        EXPECT_EQ(generateFilmstrip(file, length).size(), times.size());
        for (std::size_t i = 0; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i].seconds, times[i]);
            ASSERT_TRUE(frames[i].image);
            // A small picture is not enlarged.
            EXPECT_EQ(std::pair(frames[i].image->width, frames[i].image->height),
                      turned ? std::pair(36, 64) : std::pair(64, 36));
            EXPECT_NEAR(shownSeconds(*frames[i].image, turned), times[i], kTolerance) << i;
        }
    }
}

// Exact 16-bit PCM at 48 kHz of one expression of t or n a channel; `trim` samples if set.
std::filesystem::path pcmWav(const std::string& name, const std::string& expressions,
                             double seconds = 1, int trim = 0) {
    const std::string keep = trim ? " -af atrim=end_sample=" + std::to_string(trim) : "";
    return makeMedia(name, "-f lavfi -i \"aevalsrc=exprs='" + expressions + "':s=48000:d=" +
                               std::to_string(seconds) + "\"" + keep + " -c:a pcm_s16le");
}

// The interleaved samples the ffmpeg tool decodes from the first audio stream of `file`.
std::vector<std::int16_t> toolDecodedSamples(const std::filesystem::path& file) {
    const std::string bytes = contentsOf(testing_support::makeMediaFrom(
        file.filename().string() + ".s16", file, "-map 0:a:0 -f s16le -c:a pcm_s16le"));
    std::vector<std::int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

// The peak rule, written out plainly over the whole sample list.
std::vector<float> referencePeaks(const std::vector<std::int16_t>& samples, int target) {
    const std::size_t count = samples.size();
    const std::size_t bucket = std::max<std::size_t>(count / target, 1);
    std::vector<float> peaks(target, 0.0f);
    for (int i = 0; i < target; ++i) {
        const std::size_t begin = i * bucket;
        const std::size_t end = std::min((i + 1) * bucket, count);
        if (begin >= end) continue;
        int largest = 0;
        for (std::size_t k = begin; k < end; ++k)
            largest = std::max(largest, samples[k] == -32768 ? 32767 : std::abs(samples[k]));
        peaks[i] = static_cast<float>(largest) / 32767.0f;
    }
    for (float& peak : peaks) peak = std::min(peak * 1.6f, 1.0f);
    return peaks;
}

TEST(WaveformPeaks, FollowTheRuleOnExactPcmAndOnWhatTheToolDecodes) {
    struct Pcm {
        std::string name, expressions;
        int trim, target;
        std::size_t samples;
        float first, last;  // the first and last peak
    };
    for (const auto& c : {
             // Every sample -32768 or 32767: -32768 counts as 32767, so nothing overflows.
             Pcm{"square_full.wav", "if(lt(mod(t*100,1),0.5),1,-1)", 0, 1600, 48000, 1, 1},
             // Scaled by 1.6: half scale shows at eight tenths, 70 % is clipped.
             Pcm{"sine_half.wav", "0.5*sin(2*PI*1000*t)", 0, 1600, 48000, 0.8f, 0.8f},
             Pcm{"sine_70.wav", "0.7*sin(2*PI*1000*t)", 0, 1600, 48000, 1, 1},
             // Fewer samples than peaks leaves zeros at the end.
             Pcm{"thousand_samples.wav", "0.5", 1000, 1600, 1000, 0.8f, 0},
             // The silent right channel counts toward buckets of 60 interleaved samples.
             Pcm{"stereo_steps.wav", "0.1*mod(floor(n/30),4)|0", 0, 1600, 96000, 0, 0.48f},
             // Buckets of 3: the loud last 100 samples fall past the last whole bucket.
             Pcm{"loud_tail.wav", "if(gte(n,900),1,0.25)", 1000, 300, 1000, 0.4f, 0.4f},
         }) {
        SCOPED_TRACE(c.name);
        const auto file = pcmWav(c.name, c.expressions, 1, c.trim);
        const auto pcm = toolDecodedSamples(file);
        ASSERT_EQ(pcm.size(), c.samples);
        const auto peaks = extractPeaks(file, c.target);
        ASSERT_TRUE(peaks);
        ASSERT_EQ(*peaks, referencePeaks(pcm, c.target));
        EXPECT_NEAR(peaks->front(), c.first, 1e-3);
        EXPECT_NEAR(peaks->back(), c.last, 1e-3);
    }
    for (const auto& file : {
             // Stereo AAC whose level swells, so neighbouring peaks differ.
             makeMedia("swell_stereo.m4a",
                       "-f lavfi -i \"aevalsrc=exprs='0.6*t/3*sin(2*PI*300*t)|"
                       "0.3*sin(2*PI*500*t)':s=44100:d=3\" -c:a aac"),
             // A fragmented file's index grows only as its fragments are read.
             makeMedia("tone_fragmented.m4a",
                       samples::kTone + "-t 2 -c:a aac -movflags +frag_keyframe+empty_moov"),
             samples::tone("mp3", "libmp3lame"),
         }) {
        for (int target : {1600, 77})
            EXPECT_EQ(extractPeaks(file, target), referencePeaks(toolDecodedSamples(file), target))
                << file.filename() << " with " << target << " peaks";
    }
}

TEST(WaveformPeaks, ACutFileGivesNothingUnlessItEndsWhereAPacketDoes) {
    // The index at the front still lists every packet; the data stops early.
    const auto aac = makeMedia("swell_faststart.m4a",
                               samples::kTone + "-ac 2 -t 4 -c:a aac -movflags +faststart");
    ASSERT_TRUE(extractPeaks(aac, 1600));
    const auto size = std::filesystem::file_size(aac);
    EXPECT_FALSE(extractPeaks(samples::firstBytes(aac, "swell_cut.m4a", size * 6 / 10), 1600));
    EXPECT_FALSE(
        extractPeaks(samples::firstBytes(aac, "swell_cut_late.m4a", size * 97 / 100), 1600));

    // Two seconds of mono 16-bit samples, 192,000 bytes, close the file.
    const auto wav = pcmWav("sine_half_long.wav", "0.5*sin(2*PI*1000*t)*t/2", 2);
    const auto begin = std::filesystem::file_size(wav) - 192000;
    ASSERT_EQ(toolDecodedSamples(wav).size(), 96000u);
    EXPECT_FALSE(extractPeaks(
        samples::firstBytes(wav, "sine_half_long_cut.wav", std::filesystem::file_size(wav) / 2),
        1600));
    // Cut where a packet of 4096 bytes ends, the file reads without a fault.
    const auto cut = samples::firstBytes(wav, "sine_half_long_12_packets.wav", begin + 12 * 4096);
    const auto held = toolDecodedSamples(cut);
    ASSERT_EQ(held.size(), 12u * 2048);
    EXPECT_EQ(extractPeaks(cut, 1600), referencePeaks(held, 1600));

    EXPECT_FALSE(extractPeaks(testing_support::scratchDir() / "no-such-file.wav", 1600));
    EXPECT_FALSE(extractPeaks(wav, 0));
}

int alphaAt(const model::ImageData& image, int x, int y) {
    return samples::pixel(image, x, y).a;
}

TEST(PeakCount, TwoHundredASecondCutTowardZeroWithAFloorOf1600) {
    EXPECT_EQ(waveform::peakCountFor(8.008), 1601);
    for (double duration : {4.0, -5.0, std::numeric_limits<double>::quiet_NaN(),
                            std::numeric_limits<double>::infinity()})
        EXPECT_EQ(waveform::peakCountFor(duration), 1600) << duration;
    EXPECT_EQ(waveform::peakCountFor(1e300), std::numeric_limits<int>::max());
}

TEST(WaveformImage, Is1600By60WithOnePixelLinesFromTheCentreByTheirPeak) {
    constexpr int kFullAlpha = 242;  // 0.95 x 255
    const auto empty = waveform::drawWaveform({});
    ASSERT_TRUE(empty);
    EXPECT_EQ(std::tuple(empty->width, empty->height, empty->rgba.size()),
              std::tuple(1600, 60, 1600u * 60 * 4));
    // Round caps reach half a pixel past a line of 29 x peak rows each way.
    for (const auto& [peak, firstFull, lastFull, capBelow] :
         {std::tuple{1.0f, 1, 58, kFullAlpha / 2}, std::tuple{0.5f, 16, 43, kFullAlpha}}) {
        const auto image = waveform::drawWaveform(std::vector<float>(1600, peak));
        for (int x = 0; x < 1600; ++x) {
            for (int y = 0; y < 60; ++y) {
                const auto c = samples::pixel(*image, x, y);
                if (y >= firstFull && y <= lastFull)
                    ASSERT_EQ(std::tuple(c.r, c.g, c.b, c.a), std::tuple(48, 176, 199, kFullAlpha))
                        << x << "," << y;
                else if (y == firstFull - 1 || y == lastFull + 1)
                    ASSERT_TRUE(c.a > 0 && c.a < capBelow &&
                                c.a == alphaAt(*image, x, firstFull + lastFull - y))
                        << x << "," << y;
                else
                    ASSERT_EQ(c.a, 0) << x << "," << y;
            }
        }
    }
    std::vector<float> lone(1600, 0.0f);
    lone[800] = 1.0f;
    const auto one = waveform::drawWaveform(lone);
    EXPECT_EQ(std::tuple(alphaAt(*one, 799, 10), alphaAt(*one, 800, 10), alphaAt(*one, 801, 10)),
              std::tuple(0, kFullAlpha, 0));
    // 7.5 peaks to a column: lines sharing a column don't pile up their alpha.
    std::vector<float> many(12000, 0.0f);
    for (std::size_t i = 0; i < many.size(); i += 3) many[i] = 1.0f;
    const auto merged = waveform::drawWaveform(many);
    for (int x = 0; x < 1600; ++x)
        for (int y = 1; y < 59; ++y) ASSERT_EQ(alphaAt(*merged, x, y), kFullAlpha) << x << "," << y;
}

}  // namespace
