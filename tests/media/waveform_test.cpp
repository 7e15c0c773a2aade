#include "media/waveform.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/sample_media.h"
#include "support/media_fixtures.h"

namespace {

namespace waveform = media::waveform;
namespace samples = sample_media;
using testing_support::makeMedia;
using testing_support::quote;
using waveform::extractPeaks;

// Exact 16-bit PCM at 48 kHz made by the ffmpeg tool from an expression of t (seconds) or n
// (sample number), one expression per channel separated by '|'; `seconds` long unless
// `trim` is a count of samples to keep.
std::filesystem::path pcmWav(const std::string& name, const std::string& expressions,
                             double seconds = 1, int trim = 0) {
    const std::string keep = trim ? " -af atrim=end_sample=" + std::to_string(trim) : "";
    return makeMedia(name, "-f lavfi -i \"aevalsrc=exprs='" + expressions + "':s=48000:d=" +
                               std::to_string(seconds) + "\"" + keep + " -c:a pcm_s16le");
}

std::vector<char> bytesOf(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::uint32_t little32(const char* p) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<std::uint8_t>(p[i]);
    return value;
}

// Where the sample data of a 16-bit PCM WAV file begins, and how many bytes it says it has.
std::pair<std::size_t, std::size_t> wavData(const std::vector<char>& bytes) {
    std::size_t at = 12;  // past "RIFF", the size and "WAVE"
    while (at + 8 <= bytes.size()) {
        const std::uint32_t size = little32(&bytes[at + 4]);
        if (std::memcmp(&bytes[at], "data", 4) == 0) return {at + 8, size};
        at += 8 + size + (size & 1);
    }
    ADD_FAILURE() << "no data chunk";
    return {bytes.size(), 0};
}

// The samples of a 16-bit PCM WAV file, channels interleaved; as many as its data holds.
std::vector<std::int16_t> wavSamples(const std::filesystem::path& file) {
    const std::vector<char> bytes = bytesOf(file);
    const auto [begin, size] = wavData(bytes);
    std::vector<std::int16_t> samples(std::min(size, bytes.size() - begin) / 2);
    std::memcpy(samples.data(), bytes.data() + begin, samples.size() * 2);
    return samples;
}

// The samples the ffmpeg tool decodes from the first audio stream of `file`.
std::vector<std::int16_t> toolDecodedSamples(const std::filesystem::path& file) {
    const auto raw =
        makeMedia(file.filename().string() + ".s16",
                  "-i " + quote(file.string()) + " -map 0:a:0 -f s16le -c:a pcm_s16le");
    const std::vector<char> bytes = bytesOf(raw);
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

// A copy of `source` holding only its first `length` bytes.
std::filesystem::path cutShort(const std::filesystem::path& source, const std::string& name,
                               std::size_t length) {
    const auto path = testing_support::scratchDir() / name;
    if (std::filesystem::exists(path)) return path;
    const std::vector<char> bytes = bytesOf(source);
    // Tests run in parallel processes: write aside and rename, as makeMedia does.
    const auto partial = path.string() + "." + std::to_string(::getpid());
    std::ofstream(partial, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(std::min(length, bytes.size())));
    std::filesystem::rename(partial, path);
    return path;
}

std::filesystem::path cutShort(const std::filesystem::path& source, const std::string& name,
                               double fraction) {
    return cutShort(source, name,
                    static_cast<std::size_t>(std::filesystem::file_size(source) * fraction));
}

TEST(PeakCount, TwoHundredASecondWithAFloorOf1600) {
    EXPECT_EQ(waveform::peakCountFor(4), 1600);
    EXPECT_EQ(waveform::peakCountFor(10), 2000);
    EXPECT_EQ(waveform::peakCountFor(60), 12000);
    EXPECT_EQ(waveform::peakCountFor(8.004), 1600);
    EXPECT_EQ(waveform::peakCountFor(8.0051), 1601);
    EXPECT_EQ(waveform::peakCountFor(0), 1600);
    EXPECT_EQ(waveform::peakCountFor(-5), 1600);
}

TEST(PeakCount, NonFiniteDurationGivesTheFloor) {
    EXPECT_EQ(waveform::peakCountFor(std::numeric_limits<double>::quiet_NaN()), 1600);
    EXPECT_EQ(waveform::peakCountFor(std::numeric_limits<double>::infinity()), 1600);
    EXPECT_EQ(waveform::peakCountFor(-std::numeric_limits<double>::infinity()), 1600);
    EXPECT_EQ(waveform::peakCountFor(1e300), std::numeric_limits<int>::max());
}

TEST(WaveformPeaks, FullScaleSquareWaveIsFullEverywhere) {
    const auto file = pcmWav("square_full.wav", "if(lt(mod(t*100,1),0.5),1,-1)");
    const auto samples = wavSamples(file);
    ASSERT_EQ(samples.size(), 48000u);
    EXPECT_NE(std::find(samples.begin(), samples.end(), -32768), samples.end());
    EXPECT_NE(std::find(samples.begin(), samples.end(), 32767), samples.end());

    const auto peaks = extractPeaks(file, 1600);
    ASSERT_TRUE(peaks);
    ASSERT_EQ(peaks->size(), 1600u);
    for (float peak : *peaks) ASSERT_EQ(peak, 1.0f);
}

TEST(WaveformPeaks, NegativeFullScaleCountsAsPositiveFullScale) {
    // Every sample −32768: the magnitude is 32767, so the rule's arithmetic never overflows.
    const auto file = pcmWav("negative_full.wav", "-1", 0.1);
    const auto samples = wavSamples(file);
    ASSERT_FALSE(samples.empty());
    ASSERT_EQ(samples.front(), -32768);
    const auto peaks = extractPeaks(file, 1600);
    ASSERT_TRUE(peaks);
    for (float peak : *peaks) ASSERT_EQ(peak, 1.0f);
}

TEST(WaveformPeaks, HalfScaleShowsAtEightTenths) {
    const auto file = pcmWav("sine_half.wav", "0.5*sin(2*PI*1000*t)");
    const auto peaks = extractPeaks(file, 1600);
    ASSERT_TRUE(peaks);
    EXPECT_NEAR(*std::max_element(peaks->begin(), peaks->end()), 0.8f, 1e-3);
    EXPECT_EQ(*peaks, referencePeaks(wavSamples(file), 1600));
}

TEST(WaveformPeaks, SeventyPercentScaleIsClippedToFull) {
    // At 1 kHz a bucket of 30 samples always holds a crest of the sine.
    const auto peaks = extractPeaks(pcmWav("sine_70.wav", "0.7*sin(2*PI*1000*t)"), 1600);
    ASSERT_TRUE(peaks);
    for (float peak : *peaks) ASSERT_EQ(peak, 1.0f);
}

TEST(WaveformPeaks, SilenceGivesZerosThatArePresent) {
    const auto peaks = extractPeaks(pcmWav("silence.wav", "0"), 1600);
    ASSERT_TRUE(peaks);
    ASSERT_EQ(peaks->size(), 1600u);
    for (float peak : *peaks) ASSERT_EQ(peak, 0.0f);
}

TEST(WaveformPeaks, FewerSamplesThanPeaksLeavesZerosAtTheEnd) {
    const auto file = pcmWav("thousand_samples.wav", "0.5", 1, 1000);
    ASSERT_EQ(wavSamples(file).size(), 1000u);
    const auto peaks = extractPeaks(file, 1600);
    ASSERT_TRUE(peaks);
    ASSERT_EQ(peaks->size(), 1600u);
    for (int i = 0; i < 1000; ++i) ASSERT_NEAR((*peaks)[i], 0.8f, 1e-3) << i;
    for (int i = 1000; i < 1600; ++i) ASSERT_EQ((*peaks)[i], 0.0f) << i;
}

TEST(WaveformPeaks, OneSecondOfStereoAt48kHzHasBucketsOf60Samples) {
    // Left steps through 0, 0.1, 0.2, 0.3 every 30 sample frames (60 interleaved samples);
    // right stays silent but counts toward the bucket.
    const auto file = pcmWav("stereo_steps.wav", "0.1*mod(floor(n/30),4)|0");
    const auto samples = wavSamples(file);
    ASSERT_EQ(samples.size(), 96000u);
    const auto peaks = extractPeaks(file, 1600);
    ASSERT_TRUE(peaks);
    ASSERT_EQ(peaks->size(), 1600u);
    for (int i = 0; i < 1600; ++i) {
        const float expected = std::min(std::round(0.1f * (i % 4) * 32768) / 32767 * 1.6f, 1.0f);
        ASSERT_NEAR((*peaks)[i], expected, 1e-6) << i;
    }
    EXPECT_EQ(*peaks, referencePeaks(samples, 1600));
}

TEST(WaveformPeaks, SamplesPastTheLastWholeBucketCountForNothing) {
    // 1000 samples over 300 peaks: buckets of 3, and the loud last 100 samples are ignored.
    const auto file = pcmWav("loud_tail.wav", "if(gte(n,900),1,0.25)", 1, 1000);
    const auto peaks = extractPeaks(file, 300);
    ASSERT_TRUE(peaks);
    ASSERT_EQ(peaks->size(), 300u);
    for (float peak : *peaks) ASSERT_NEAR(peak, 0.4f, 1e-3);
}

TEST(WaveformPeaks, MatchTheRuleOnWhatTheToolDecodes) {
    // Stereo AAC with a level that swells, so neighbouring peaks differ.
    const auto aac = makeMedia("swell_stereo.m4a",
                               "-f lavfi -i \"aevalsrc=exprs='0.6*t/3*sin(2*PI*300*t)|0.3*sin(2*PI*"
                               "500*t)':s=44100:d=3\" -c:a aac");
    // A fragmented file's index grows only as its fragments are read.
    const auto fragmented =
        makeMedia("tone_fragmented.m4a",
                  "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 2 -c:a aac "
                  "-movflags +frag_keyframe+empty_moov");
    for (const auto& file :
         {aac, fragmented, samples::mp3(), samples::flac(), samples::opusOgg()}) {
        for (int target : {1600, 77}) {
            const auto peaks = extractPeaks(file, target);
            ASSERT_TRUE(peaks) << file;
            EXPECT_EQ(*peaks, referencePeaks(toolDecodedSamples(file), target))
                << file.filename() << " with " << target << " peaks";
        }
    }
}

TEST(WaveformPeaks, CommonFormatsDecodeToTheEnd) {
    for (const auto& file :
         {samples::h264Mp4(), samples::h264Mkv(), samples::mpeg4Avi(), samples::vp9Webm(),
          samples::aacM4a(), samples::aacMkv(), samples::aacTs(), samples::mp3(), samples::wav(),
          samples::flac(), samples::opusOgg(), samples::mp3WithCoverArt()}) {
        const auto peaks = extractPeaks(file, 1600);
        ASSERT_TRUE(peaks) << file;
        EXPECT_EQ(peaks->size(), 1600u);
        EXPECT_GT(*std::max_element(peaks->begin(), peaks->end()), 0.1f) << file;
    }
}

TEST(WaveformPeaks, TruncatedAacGivesNothing) {
    // The index at the front still lists every packet; the data stops at 60 % of the file.
    const auto whole = makeMedia("swell_faststart.m4a",
                                 "-f lavfi -i sine=frequency=440:sample_rate=48000 -ac 2 -t 4 "
                                 "-c:a aac -movflags +faststart");
    ASSERT_TRUE(extractPeaks(whole, 1600));
    EXPECT_FALSE(extractPeaks(cutShort(whole, "swell_faststart_cut.m4a", 0.6), 1600));
    EXPECT_FALSE(extractPeaks(cutShort(whole, "swell_faststart_cut_late.m4a", 0.97), 1600));
}

TEST(WaveformPeaks, WavCutInsideAPacketGivesNothing) {
    const auto whole = pcmWav("sine_half_long.wav", "0.5*sin(2*PI*1000*t)*t/2", 2);
    ASSERT_TRUE(extractPeaks(whole, 1600));
    EXPECT_FALSE(extractPeaks(cutShort(whole, "sine_half_long_cut.wav", 0.5), 1600));
}

TEST(WaveformPeaks, WavWhoseDataStopsShortOfItsHeaderGivesThePeaksOfWhatItHolds) {
    // Cut where a packet of 4096 bytes ends, the file reads to its end without a fault
    // but holds far fewer samples than its header says.
    const auto whole = pcmWav("sine_half_long.wav", "0.5*sin(2*PI*1000*t)*t/2", 2);
    const auto [begin, size] = wavData(bytesOf(whole));
    ASSERT_EQ(size, 192000u);
    const auto cut = cutShort(whole, "sine_half_long_12_packets.wav", begin + 12 * 4096);
    const auto held = wavSamples(cut);
    ASSERT_EQ(held.size(), 12u * 2048);
    const auto peaks = extractPeaks(cut, 1600);
    ASSERT_TRUE(peaks);
    EXPECT_EQ(*peaks, referencePeaks(held, 1600));
}

TEST(WaveformPeaks, NothingWithoutAudio) {
    EXPECT_FALSE(extractPeaks(samples::h264VideoOnlyMp4(), 1600));
    EXPECT_FALSE(extractPeaks(samples::subtitleOnlyMkv(), 1600));
    EXPECT_FALSE(extractPeaks(testing_support::scratchDir() / "no-such-file.wav", 1600));
}

TEST(WaveformPeaks, NothingForAPeakCountBelowOne) {
    EXPECT_FALSE(extractPeaks(samples::wav(), 0));
    EXPECT_FALSE(extractPeaks(samples::wav(), -1));
}

// The alpha of a pixel of a waveform image.
int alphaAt(const model::ImageData& image, int x, int y) {
    return samples::pixel(image, x, y).a;
}

constexpr int kFullAlpha = 242;  // 0.95 × 255, rounded

TEST(WaveformImage, Is1600By60AndClearWithoutPeaks) {
    const auto image = waveform::drawWaveform({});
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 1600);
    EXPECT_EQ(image->height, 60);
    ASSERT_EQ(image->rgba.size(), 1600u * 60 * 4);
    EXPECT_TRUE(std::all_of(image->rgba.begin(), image->rgba.end(), [](auto b) { return b == 0; }));
}

TEST(WaveformImage, FullPeaksFillTheHeightButTheCaps) {
    const auto image = waveform::drawWaveform(std::vector<float>(1600, 1.0f));
    for (int x = 0; x < 1600; ++x) {
        for (int y = 1; y < 59; ++y) {
            const auto c = samples::pixel(*image, x, y);
            ASSERT_EQ(c.a, kFullAlpha) << x << "," << y;
            ASSERT_EQ(c.r, 48);
            ASSERT_EQ(c.g, 176);
            ASSERT_EQ(c.b, 199);
        }
        // The round caps reach half a pixel into the top and bottom rows.
        ASSERT_GT(alphaAt(*image, x, 0), 0);
        ASSERT_LT(alphaAt(*image, x, 0), kFullAlpha / 2);
        ASSERT_EQ(alphaAt(*image, x, 0), alphaAt(*image, x, 59));
    }
}

TEST(WaveformImage, PixelsAwayFromTheLinesAreClear) {
    // Half height 14.5 plus a cap of 0.5: rows 15 to 44.
    const auto image = waveform::drawWaveform(std::vector<float>(1600, 0.5f));
    for (int x = 0; x < 1600; ++x) {
        for (int y = 0; y < 15; ++y) ASSERT_EQ(alphaAt(*image, x, y), 0) << x << "," << y;
        for (int y = 16; y < 44; ++y) ASSERT_EQ(alphaAt(*image, x, y), kFullAlpha) << x << "," << y;
        for (int y = 45; y < 60; ++y) ASSERT_EQ(alphaAt(*image, x, y), 0) << x << "," << y;
    }
}

TEST(WaveformImage, SilenceIsARowOfDots) {
    // A hundred dots 16 pixels apart, each centred on the corner of four pixels.
    const auto sparse = waveform::drawWaveform(std::vector<float>(100, 0.0f));
    for (int x = 0; x < 1600; ++x) {
        const bool underDot = x % 16 == 7 || x % 16 == 8;
        for (int y = 0; y < 60; ++y) {
            const bool onCentre = y == 29 || y == 30;
            if (underDot && onCentre)
                ASSERT_GT(alphaAt(*sparse, x, y), 0) << x << "," << y;
            else
                ASSERT_EQ(alphaAt(*sparse, x, y), 0) << x << "," << y;
        }
    }
    // One dot per column: each half disc covers π/8 of its pixel.
    const auto dense = waveform::drawWaveform(std::vector<float>(1600, 0.0f));
    const int halfDisc = static_cast<int>(std::lround(0.95 * 255 * M_PI / 8));
    for (int x = 0; x < 1600; ++x) {
        ASSERT_NEAR(alphaAt(*dense, x, 29), halfDisc, 3) << x;
        ASSERT_NEAR(alphaAt(*dense, x, 30), halfDisc, 3) << x;
        ASSERT_EQ(alphaAt(*dense, x, 28), 0);
        ASSERT_EQ(alphaAt(*dense, x, 31), 0);
    }
}

TEST(WaveformImage, ManyLinesPerColumnMergeInsteadOfPilingUp) {
    // 12,000 peaks, 7.5 to a column: a full-height peak only every third one still covers
    // every column, at the alpha of a single line.
    std::vector<float> peaks(12000, 0.0f);
    for (std::size_t i = 0; i < peaks.size(); i += 3) peaks[i] = 1.0f;
    const auto image = waveform::drawWaveform(peaks);
    for (int x = 0; x < 1600; ++x)
        for (int y = 1; y < 59; ++y) ASSERT_EQ(alphaAt(*image, x, y), kFullAlpha) << x << "," << y;
}

TEST(WaveformImage, ALoneLineIsOnePixelWide) {
    std::vector<float> peaks(1600, 0.0f);
    peaks[800] = 1.0f;
    const auto image = waveform::drawWaveform(peaks);
    EXPECT_EQ(alphaAt(*image, 800, 10), kFullAlpha);
    EXPECT_EQ(alphaAt(*image, 799, 10), 0);
    EXPECT_EQ(alphaAt(*image, 801, 10), 0);
    // Between columns, a line shares itself between the two.
    std::vector<float> two(800, 0.0f);
    two[400] = 1.0f;  // centred at x = 801
    const auto between = waveform::drawWaveform(two);
    EXPECT_NEAR(alphaAt(*between, 800, 10), kFullAlpha / 2, 1);
    EXPECT_NEAR(alphaAt(*between, 801, 10), kFullAlpha / 2, 1);
}

}  // namespace
