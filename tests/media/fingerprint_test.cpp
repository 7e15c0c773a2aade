#include "media/fingerprint.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "media/probe.h"
#include "media/sample_media.h"

namespace {

namespace samples = sample_media;

std::string fingerprintOf(const std::filesystem::path& file) {
    auto probed =
        media::probeClip(file, std::nullopt, common::Uuid::random(), media::ThumbnailPolicy::skip);
    EXPECT_TRUE(probed) << probed.error().message;
    return probed ? probed->fingerprint : std::string();
}

TEST(Fingerprint, H264IsAvc1WhateverTheContainer) {
    EXPECT_EQ(fingerprintOf(samples::h264Mp4()), "v:1635148593:320x240");
    EXPECT_EQ(fingerprintOf(samples::h264Mkv()), "v:1635148593:320x240");
}

TEST(Fingerprint, AudioDoesNotEnterAVideoFingerprint) {
    EXPECT_EQ(fingerprintOf(samples::h264Mp4()), fingerprintOf(samples::h264VideoOnlyMp4()));
}

TEST(Fingerprint, SameCodecAtAnotherSizeDiffers) {
    EXPECT_EQ(fingerprintOf(samples::h264SmallMp4()), "v:1635148593:160x120");
    EXPECT_NE(fingerprintOf(samples::h264SmallMp4()), fingerprintOf(samples::h264VideoOnlyMp4()));
}

TEST(Fingerprint, MovFamilyFileKeepsItsOwnSampleEntryCode) {
    const std::string hvc1 = "v:1752589105:320x240";
    EXPECT_EQ(fingerprintOf(samples::hevcHvc1Mp4()), hvc1);
    EXPECT_EQ(fingerprintOf(samples::hevcMkv()), hvc1);
    EXPECT_EQ(fingerprintOf(samples::hevcHev1Mp4()), "v:1751479857:320x240");
}

TEST(Fingerprint, ProResIsNamedByItsProfileOutsideMov) {
    const std::string apch = "v:1634755432:160x120";
    EXPECT_EQ(fingerprintOf(samples::proResMov()), apch);
    EXPECT_EQ(fingerprintOf(samples::proResMkv()), apch);
}

TEST(Fingerprint, OtherVideoCodecsGetTheirSampleEntryCodes) {
    EXPECT_EQ(fingerprintOf(samples::mpeg4Avi()), "v:1836070006:320x240");  // mp4v
    EXPECT_EQ(fingerprintOf(samples::vp9Webm()), "v:1987063865:160x120");   // vp09
}

TEST(Fingerprint, AacIsTheSameInEveryContainer) {
    EXPECT_EQ(fingerprintOf(samples::aacM4a()), "a:1633772320");
    EXPECT_EQ(fingerprintOf(samples::aacMkv()), "a:1633772320");
    EXPECT_EQ(fingerprintOf(samples::aacTs()), "a:1633772320");
}

TEST(Fingerprint, AudioGetsItsPlatformFormatCode) {
    EXPECT_EQ(fingerprintOf(samples::mp3()), "a:778924083");       // .mp3
    EXPECT_EQ(fingerprintOf(samples::wav()), "a:1819304813");      // lpcm
    EXPECT_EQ(fingerprintOf(samples::flac()), "a:1718378851");     // flac
    EXPECT_EQ(fingerprintOf(samples::opusOgg()), "a:1869641075");  // opus
}

TEST(Fingerprint, FileWithNeitherStreamIsUnknown) {
    EXPECT_EQ(fingerprintOf(samples::subtitleOnlyMkv()), media::kUnknownFingerprint);
}

}  // namespace
