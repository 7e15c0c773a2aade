#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "media/file_pasteboard.h"
#include "media/project_document.h"
#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;

// A file that claims `bytes` but takes no room on disk.
fs::path sparseFile(const std::string& name, std::uint64_t bytes) {
    const fs::path file = testing_support::freshDir("oversized-" + name) / name;
    std::ofstream{file};
    EXPECT_EQ(::truncate(file.c_str(), static_cast<off_t>(bytes)), 0);
    return file;
}

constexpr std::uint64_t kFourGigabytes = std::uint64_t{4} << 30;

TEST(OversizedInput, AProjectFileOfGigabytesIsRefusedUnread) {
    const fs::path file = sparseFile("huge.vantrell", kFourGigabytes);
    auto opened = media::ProjectDocument::open(file, {});
    ASSERT_FALSE(opened.ok());
    EXPECT_NE(opened.error().message.find("too large"), std::string::npos)
        << opened.error().message;
}

TEST(OversizedInput, APasteboardOfGigabytesHoldsNothing) {
    const fs::path file = sparseFile("huge-clipboard", kFourGigabytes);
    media::FilePasteboard pasteboard(file);
    EXPECT_EQ(pasteboard.data("com.corvane.vantrell.clip-payload"), std::nullopt);
}

}  // namespace
