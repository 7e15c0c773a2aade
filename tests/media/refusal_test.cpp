#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <string>

#include <gtest/gtest.h>

#include "media/media_check.h"
#include "media/probe.h"
#include "sample_media.h"
#include "support/random_bytes.h"

namespace {

namespace fs = std::filesystem;
using testing_support::contentsOf;
using testing_support::makeFile;
using testing_support::randomBytes;

struct Refused {
    const char* label;
    fs::path (*make)();
    const char* reason;  // a part of the message
};

void PrintTo(const Refused& r, std::ostream* os) {
    *os << r.label;
}

// `source` with each `from` replaced by `to`, bytes of the same length.
fs::path patched(const fs::path& source, const std::string& name, const std::string& from,
                 const std::string& to) {
    std::string bytes = contentsOf(source);
    const auto at = bytes.find(from);
    EXPECT_NE(at, std::string::npos) << "the ffmpeg tool wrote " << source << " differently";
    if (at != std::string::npos) bytes.replace(at, from.size(), to);
    return makeFile(name, bytes);
}

// Raw grey pictures whose Matroska track claims they are 65535 pixels wide.
fs::path claimsHugePictures() {
    const auto source =
        sample_media::makeMedia("raw_pictures.mkv",
                                "-f lavfi -i color=gray:size=256x256:rate=5 -t 0.2 -c:v rawvideo "
                                "-pix_fmt gray");
    return patched(source, "claims_huge_pictures.mkv", std::string("\xB0\x82\x01\x00", 4),
                   std::string("\xB0\x82\xFF\xFF", 4));
}

// Half a second of sound whose Matroska segment claims to last 10^12 seconds, billions of
// samples at any rate.
fs::path claimsEndlessSound() {
    const auto source = sample_media::makeMedia(
        "short_pcm.mka", "-f lavfi -i sine=frequency=440:sample_rate=8000 -t 0.5 -c:a pcm_s16le");
    // Duration 500.0 (milliseconds) as a big-endian double, then 10^15.
    return patched(source, "claims_endless_sound.mka",
                   std::string("\x44\x89\x88\x40\x7F\x40\x00\x00\x00\x00\x00", 11),
                   std::string("\x44\x89\x88\x43\x0C\x6B\xF5\x26\x34\x00\x00", 11));
}

class RefusalTest : public testing::TestWithParam<Refused> {};

// Errors are full sentences that name the file.
TEST_P(RefusalTest, TheProbeRefusesSayingWhy) {
    const fs::path file = GetParam().make();
    auto probed = media::probeClip(file, std::nullopt, common::Uuid::random());
    ASSERT_FALSE(probed.ok()) << "probed as a clip of " << probed->fullDurationSeconds << " s";
    const std::string& message = probed.error().message;
    EXPECT_NE(message.find(file.string()), std::string::npos) << message;
    EXPECT_NE(message.find(GetParam().reason), std::string::npos) << message;
    EXPECT_EQ(message.back(), '.') << message;
}

// A Matroska file whose only stream is a subtitle.
fs::path subtitleOnly() {
    const auto srt = makeFile("line.srt", "1\n00:00:00,000 --> 00:00:01,000\nHello\n");
    return sample_media::makeMedia("subtitle_only.mkv",
                                   "-i " + testing_support::quote(srt.string()) + " -c:s srt");
}

INSTANTIATE_TEST_SUITE_P(
    NotMedia, RefusalTest,
    testing::Values(
        Refused{"RandomBytesAsMp3", [] { return makeFile("r.mp3", randomBytes(65536)); }, "r.mp3"},
        Refused{"RandomBytesAsMp4", [] { return makeFile("r.mp4", randomBytes(65536)); }, "r.mp4"},
        Refused{"EmptyWav", [] { return makeFile("empty.wav", ""); }, "empty.wav"},
        Refused{"Text", [] { return makeFile("notes.mov", "not a movie\n"); }, "notes.mov"},
        Refused{"Missing", [] { return testing_support::scratchDir() / "gone.mp4"; }, "gone.mp4"},
        // The ffmpeg tool writes the index (moov) after the samples unless asked otherwise.
        Refused{"CutBeforeItsIndex",
                [] {
                    return sample_media::firstBytes(sample_media::h264Mp4(), "h264_aac_cut.mp4",
                                                    4096);
                },
                "h264_aac_cut.mp4"},
        Refused{"SubtitleOnly", subtitleOnly, "neither video nor audio"},
        Refused{"HugePictures", claimsHugePictures, "65535x256"},
        Refused{"EndlessSound", claimsEndlessSound, "claims a length"},
        Refused{"Folder", [] { return testing_support::freshDir("folder.mp4"); }, "a folder"},
        Refused{"Device", [] { return fs::path("/dev/zero"); }, "a character device"}),
    [](const testing::TestParamInfo<Refused>& info) { return info.param.label; });

// Enough noise holds MP3 frame headers that really decode; only the file's name calls it MP3.
TEST(Refusal, NoiseNamedMp3IsRefusedWhateverItHolds) {
    for (unsigned seed = 1; seed <= 24; ++seed) {
        const fs::path file =
            makeFile("noise" + std::to_string(seed) + ".mp3", randomBytes(200000, seed));
        EXPECT_FALSE(media::probeClip(file, std::nullopt, common::Uuid::random()).ok()) << file;
    }
}

TEST(Refusal, AFifoIsRefusedAtOnce) {
    const fs::path fifo = testing_support::freshDir("fifo") / "x.mp4";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto probing = std::async(std::launch::async, [&] {
        return media::probeClip(fifo, std::nullopt, common::Uuid::random());
    });
    if (probing.wait_for(std::chrono::seconds(20)) == std::future_status::timeout) {
        ADD_FAILURE() << "the probe waits for a writer";
        // A writer lets the waiting open return, so the test can end.
        ::close(::open(fifo.c_str(), O_WRONLY | O_NONBLOCK));
    }
    auto probed = probing.get();
    ASSERT_FALSE(probed.ok());
    EXPECT_NE(probed.error().message.find("is a FIFO, not a regular file"), std::string::npos)
        << probed.error().message;
}

TEST(Refusal, APathWithANulOpensNoFile) {
    const fs::path real = sample_media::h264Mp4();
    const fs::path cut(real.string() + std::string(1, '\0') + "b.mp4");
    auto probed = media::probeClip(cut, std::nullopt, common::Uuid::random());
    ASSERT_FALSE(probed.ok()) << "opened " << real;
    EXPECT_NE(probed.error().message.find("holds a NUL"), std::string::npos)
        << probed.error().message;
}

}  // namespace
