#include "media/bookmark.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using testing_support::freshDir;

void writeFile(const fs::path& path, const std::string& contents) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

// A bookmark of a file made in a fresh folder laid out as root/library/shoot/<name>.
struct Library {
    explicit Library(const std::string& test) : root(freshDir("bookmark-" + test)) {
        shoot = root / "library" / "shoot";
        file = shoot / "take 1.mov";
        writeFile(file, "original media bytes");
        bookmark = *media::makeBookmark(file);
    }
    fs::path root;
    fs::path shoot;
    fs::path file;
    model::Bytes bookmark;
};

TEST(Bookmark, NoBookmarkForAMissingFileOrAFolder) {
    auto dir = freshDir("bookmark-none");
    EXPECT_FALSE(media::makeBookmark(dir / "absent.mov"));
    EXPECT_FALSE(media::makeBookmark(dir));
}

TEST(Bookmark, RecordsTheFilesAbsolutePathAndSize) {
    Library lib("record");
    auto id = media::decodeBookmark(lib.bookmark);
    ASSERT_TRUE(id);
    EXPECT_EQ(id->path, lib.file);
    EXPECT_TRUE(id->path.is_absolute());
    EXPECT_EQ(id->size, std::string("original media bytes").size());
}

TEST(Bookmark, UndecodableBytesResolveToNothing) {
    for (std::string junk : {"", "not json", "[1,2]",
                             R"({"path":"relative.mov","device":1,)"
                             R"("inode":2,"size":3,"modified":4})",
                             R"({"path":"/a.mov"})"}) {
        model::Bytes bytes(junk.begin(), junk.end());
        EXPECT_FALSE(media::decodeBookmark(bytes)) << junk;
        EXPECT_FALSE(media::resolveBookmark(bytes, std::nullopt)) << junk;
    }
}

TEST(Bookmark, AFileLeftInPlaceResolvesToItself) {
    Library lib("in-place");
    EXPECT_EQ(media::resolveBookmark(lib.bookmark, std::nullopt), lib.file);
}

TEST(Bookmark, FindsAFileMovedToASiblingFolder) {
    Library lib("sibling");
    auto moved = lib.root / "library" / "selects" / "take 1.mov";
    fs::create_directories(moved.parent_path());
    fs::rename(lib.file, moved);
    EXPECT_EQ(media::resolveBookmark(lib.bookmark, std::nullopt), moved);
}

TEST(Bookmark, FindsAFileRenamedInPlace) {
    Library lib("renamed");
    auto renamed = lib.shoot / "best take.mov";
    fs::rename(lib.file, renamed);
    EXPECT_EQ(media::resolveBookmark(lib.bookmark, std::nullopt), renamed);
}

TEST(Bookmark, FindsAFileMovedIntoTheProjectFolderOnlyWhenToldWhereThatIs) {
    Library lib("project-folder");
    auto projectFolder = lib.root / "projects" / "film";
    auto moved = projectFolder / "media" / "take 1.mov";
    fs::create_directories(moved.parent_path());
    fs::rename(lib.file, moved);
    EXPECT_FALSE(media::resolveBookmark(lib.bookmark, std::nullopt));
    EXPECT_EQ(media::resolveBookmark(lib.bookmark, projectFolder), moved);
}

TEST(Bookmark, ADeletedFileResolvesToNothing) {
    Library lib("deleted");
    fs::remove(lib.file);
    EXPECT_FALSE(media::resolveBookmark(lib.bookmark, lib.root));
}

// Deleting first lets the file system hand the old inode number to the newcomer.
TEST(Bookmark, AnotherFileWrittenUnderTheSameNameIsNotTheSameFile) {
    Library lib("replaced");
    fs::remove(lib.file);
    writeFile(lib.file, "other media, other length");
    EXPECT_FALSE(media::resolveBookmark(lib.bookmark, lib.root));
}

TEST(Bookmark, ANewFileThatReusesTheInodeOfADeletedOneIsNotTheSameFile) {
    Library lib("inode-reuse");
    fs::remove(lib.file);
    writeFile(lib.shoot / "unrelated.mov", "a different recording");
    EXPECT_FALSE(media::resolveBookmark(lib.bookmark, lib.root));
}

TEST(Bookmark, ASameSizedReplacementWithAnotherModificationTimeIsNotTheSameFile) {
    Library lib("same-size");
    auto saved = media::decodeBookmark(lib.bookmark);
    fs::remove(lib.file);
    writeFile(lib.file, "ORIGINAL MEDIA BYTES");
    fs::last_write_time(lib.file, fs::last_write_time(lib.file) - std::chrono::hours(1));
    ASSERT_EQ(fs::file_size(lib.file), saved->size);
    EXPECT_FALSE(media::resolveBookmark(lib.bookmark, lib.root));
}

TEST(Bookmark, ACopyWithTheSameNameSizeAndModificationTimeStandsForTheFile) {
    Library lib("lookalike");
    auto copy = lib.root / "library" / "backup" / "take 1.mov";
    fs::create_directories(copy.parent_path());
    fs::copy_file(lib.file, copy);
    fs::last_write_time(copy, fs::last_write_time(lib.file));
    fs::remove(lib.file);
    EXPECT_EQ(media::resolveBookmark(lib.bookmark, std::nullopt), copy);
}

TEST(Bookmark, TheMovedFileItselfWinsOverALookalikeCopy) {
    Library lib("prefer-original");
    auto moved = lib.root / "library" / "selects" / "take 1.mov";
    fs::create_directories(moved.parent_path());
    fs::rename(lib.file, moved);
    // The lookalike sits where the search looks first.
    auto copy = lib.shoot / "archive" / "take 1.mov";
    fs::create_directories(copy.parent_path());
    fs::copy_file(moved, copy);
    fs::last_write_time(copy, fs::last_write_time(moved));
    EXPECT_EQ(media::resolveBookmark(lib.bookmark, std::nullopt), moved);
}

}  // namespace
