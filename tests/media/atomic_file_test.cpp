#include "media/atomic_file.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using testing_support::contentsOf;
using testing_support::freshDir;

bool holdsOnly(const fs::path& dir, const std::string& name) {
    auto entries = fs::directory_iterator(dir);
    return entries != fs::directory_iterator() && entries->path().filename() == name &&
           ++entries == fs::directory_iterator();
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
    EXPECT_TRUE(holdsOnly(dir, "cut.vantrell"));
}

TEST(AtomicFile, AWriteThatFailsMakesNothingAndRemovesItsTemporaryFile) {
    auto dir = freshDir("atomic-missing");
    auto status = media::writeFileAtomically(dir / "nowhere" / "cut.vantrell", "x");
    ASSERT_FALSE(status.ok());
    EXPECT_NE(status.error().message.find("cut.vantrell"), std::string::npos);
    fs::create_directories(dir / "cut.vantrell" / "inside");  // a folder can't be replaced
    EXPECT_FALSE(media::writeFileAtomically(dir / "cut.vantrell", "x").ok());
    EXPECT_TRUE(holdsOnly(dir, "cut.vantrell"));

    // Root may write anywhere, so a forked child gives up root first.
    auto locked = freshDir("atomic-unwritable");
    std::ofstream(locked / "cut.vantrell") << "old";
    fs::permissions(locked, fs::perms{0555});
    EXPECT_EXIT(
        {
            if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) std::_Exit(2);
            std::_Exit(media::writeFileAtomically(locked / "cut.vantrell", "new").ok() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
    fs::permissions(locked, fs::perms::owner_all);
    EXPECT_EQ(contentsOf(locked / "cut.vantrell"), "old");
    EXPECT_TRUE(holdsOnly(locked, "cut.vantrell"));
}

}  // namespace
