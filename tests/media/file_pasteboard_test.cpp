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
using testing_support::freshDir;

constexpr std::string_view kClips = model::PasteboardType::vantrellClips;

model::Bytes bytes(std::string_view text) {
    return model::Bytes(text.begin(), text.end());
}

TEST(FilePasteboard, WhatOneWritesAnotherOnTheSameFileReadsUnderTheSameTypeAlone) {
    auto file = freshDir("pasteboard-share") / "clipboard";
    ASSERT_TRUE(FilePasteboard(file).setContents("public.utf8-plain-text", bytes("hello")).ok());
    const model::Bytes payload = bytes(std::string_view("[1,\n2]\0\xff", 8));
    ASSERT_TRUE(FilePasteboard(file).setContents(kClips, payload).ok());
    FilePasteboard reader(file);
    EXPECT_EQ(reader.data(kClips), payload);
    EXPECT_FALSE(reader.data("public.utf8-plain-text"));  // replaced
}

TEST(FilePasteboard, AMissingShapelessOrHugeFileIsAnEmptyPasteboard) {
    auto dir = freshDir("pasteboard-empty");
    std::ofstream(dir / "one-line") << kClips;  // no line ends the type
    std::ofstream(dir / "huge").close();
    ASSERT_EQ(::truncate((dir / "huge").c_str(), off_t{4} << 30), 0);  // takes no room on disk
    for (const auto& file : {dir / "none", dir / "one-line", dir, dir / "huge"})
        EXPECT_FALSE(FilePasteboard(file).data(kClips)) << file;
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
