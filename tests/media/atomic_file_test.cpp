#include "media/atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using testing_support::contentsOf;
using testing_support::freshDir;

std::vector<std::string> namesIn(const fs::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(AtomicFile, WritesOrReplacesAFileWholeKeepingItsPermissionsAndNothingElseBehind) {
    auto dir = freshDir("atomic-new");
    auto file = dir / "cut.vantrell";
    const std::string bytes("{\n}\r\n\0binary\xff", 13);
    ASSERT_TRUE(media::writeFileAtomically(file, bytes).ok());
    EXPECT_EQ(media::readRegularFile(file).value(), bytes);
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_TRUE(media::writeFileAtomically(file, "").ok());
    EXPECT_EQ(contentsOf(file), "");
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(namesIn(dir), std::vector<std::string>{"cut.vantrell"});
}

TEST(AtomicFile, AWriteThatFailsMakesNothingAndRemovesItsTemporaryFile) {
    auto dir = freshDir("atomic-missing");
    auto status = media::writeFileAtomically(dir / "nowhere" / "cut.vantrell", "x");
    ASSERT_FALSE(status.ok());
    EXPECT_NE(status.error().message.find("cut.vantrell"), std::string::npos);
    fs::create_directories(dir / "cut.vantrell" / "inside");  // a folder can't be replaced
    EXPECT_FALSE(media::writeFileAtomically(dir / "cut.vantrell", "x").ok());
    EXPECT_EQ(namesIn(dir), std::vector<std::string>{"cut.vantrell"});
}

// Root may write anywhere, so the attempt runs in a forked child that gives up root first.
TEST(AtomicFile, AFailedWriteIntoAnUnwritableFolderLeavesTheOldFileAlone) {
    auto dir = freshDir("atomic-unwritable");
    auto file = dir / "cut.vantrell";
    std::ofstream(file) << "old";
    fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                             fs::perms::group_exec | fs::perms::others_read |
                             fs::perms::others_exec);
    EXPECT_EXIT(
        {
            if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) std::_Exit(2);
            std::_Exit(media::writeFileAtomically(file, "new").ok() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
    fs::permissions(dir, fs::perms::owner_all);
    EXPECT_EQ(contentsOf(file), "old");
    EXPECT_EQ(namesIn(dir), std::vector<std::string>{"cut.vantrell"});
}

TEST(AtomicFile, ReadingAnythingButARegularFileFails) {
    auto dir = freshDir("atomic-irregular");
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    for (const fs::path& p : {dir / "absent", dir, dir / "pipe", fs::path("/dev/null")}) {
        EXPECT_FALSE(media::readRegularFile(p).ok()) << p;
    }
}

}  // namespace
