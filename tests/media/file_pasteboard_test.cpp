#include "media/file_pasteboard.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using media::FilePasteboard;
using model::Bytes;
using testing_support::freshDir;

constexpr std::string_view kClips = model::PasteboardType::vantrellClips;

Bytes bytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

TEST(FilePasteboard, WhatOneWritesAnotherOnTheSameFileReadsUnderTheSameTypeAlone) {
    auto file = freshDir("pasteboard-share") / "clipboard";
    ASSERT_TRUE(FilePasteboard(file).setContents("public.utf8-plain-text", bytes("hello")).ok());
    // Line breaks and any byte value in the data survive.
    const Bytes payload = bytes(std::string_view("[1,\n2]\0\xff", 8));
    ASSERT_TRUE(FilePasteboard(file).setContents(kClips, payload).ok());
    FilePasteboard reader(file);
    EXPECT_EQ(reader.data(kClips), payload);
    EXPECT_FALSE(reader.data("public.utf8-plain-text")) << "a write replaces what was there";
}

TEST(FilePasteboard, AMissingOrShapelessFileIsAnEmptyPasteboard) {
    auto dir = freshDir("pasteboard-empty");
    EXPECT_FALSE(FilePasteboard(dir / "none").data(kClips));
    std::ofstream(dir / "one-line") << kClips;
    EXPECT_FALSE(FilePasteboard(dir / "one-line").data(kClips)) << "no line ends the type";
    EXPECT_FALSE(FilePasteboard(dir).data(kClips)) << "a folder";
    // Four gigabytes that take no room on disk are not read.
    std::ofstream(dir / "huge").close();
    ASSERT_EQ(::truncate((dir / "huge").c_str(), off_t{4} << 30), 0);
    EXPECT_FALSE(FilePasteboard(dir / "huge").data(kClips));
}

TEST(FilePasteboard, AFailedWriteSaysWhichFileAndIsRemembered) {
    auto file = freshDir("pasteboard-fail") / "no-such-folder" / "clipboard";
    FilePasteboard pasteboard(file);
    auto written = pasteboard.setContents(kClips, bytes("[]"));
    ASSERT_FALSE(written.ok());
    EXPECT_NE(written.error().message.find(file.string()), std::string::npos);
    ASSERT_TRUE(pasteboard.lastWriteFailure());
    EXPECT_EQ(pasteboard.lastWriteFailure()->message, written.error().message);

    fs::create_directories(file.parent_path());
    ASSERT_TRUE(pasteboard.setContents(kClips, bytes("[]")).ok());
    EXPECT_FALSE(pasteboard.lastWriteFailure());
}

}  // namespace
