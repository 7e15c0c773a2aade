#include "media/local_media_services.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "media/bookmark.h"
#include "media/sample_media.h"
#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
namespace samples = sample_media;
using media::resolveBookmark;

TEST(LocalMediaServices, AFileChangedSinceItWasReadIsReadAgain) {
    media::LocalMediaServices media;
    auto url = testing_support::freshDir("changed-media") / "clip.mp4";
    fs::copy_file(samples::h264Mp4(), url);
    auto before = media.probe(url, std::nullopt, common::Uuid::random());
    ASSERT_TRUE(before && before.value().hasAudio);

    // Same size and path, a later time: read anew.
    fs::last_write_time(url, fs::last_write_time(url) + std::chrono::seconds(5));
    auto touched = media.probe(url, std::nullopt, common::Uuid::random());
    ASSERT_TRUE(touched);
    EXPECT_NE(touched.value().thumbnail, before.value().thumbnail);

    // Other contents: the probe tells the new file.
    fs::copy_file(samples::h264VideoOnlyMp4(), url, fs::copy_options::overwrite_existing);
    auto replaced = media.probe(url, std::nullopt, common::Uuid::random());
    ASSERT_TRUE(replaced);
    EXPECT_FALSE(replaced.value().hasAudio);
}

// Each request answers its own id and bookmark, all from one read of the file.
TEST(LocalMediaServices, RequestsForOneFileAtOnceOrLaterShareOneRead) {
    media::LocalMediaServices media;
    auto url = samples::h264Mp4();
    constexpr int kAtOnce = 4;
    std::vector<common::Result<model::Clip>> probes(kAtOnce + 1, common::Error{"not run"});
    std::vector<std::vector<model::Image>> strips(kAtOnce + 1);
    const auto lastID = common::Uuid::random();
    const auto request = [&](int i) {
        const auto id = i < kAtOnce ? common::Uuid::random() : lastID;
        probes[i] = media.probe(url, model::Bytes{static_cast<std::uint8_t>(i)}, id);
        strips[i] = media.generateFilmstrip(url, 1.0);
    };
    std::latch start(kAtOnce);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kAtOnce; ++i)
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                request(i);
            });
    }
    request(kAtOnce);
    for (int i = 0; i <= kAtOnce; ++i) {
        ASSERT_TRUE(probes[i]);
        EXPECT_EQ(probes[i].value().bookmark, model::Bytes{static_cast<std::uint8_t>(i)});
        EXPECT_EQ(probes[i].value().thumbnail, probes[0].value().thumbnail);
        EXPECT_FALSE(strips[i].empty());
        EXPECT_EQ(strips[i], strips[0]);
    }
    EXPECT_EQ(probes[kAtOnce].value().id, lastID);
    EXPECT_EQ(media.drawWaveform({0.5f}), media.drawWaveform({0.5f}));
}

fs::path writeFile(const fs::path& path, const std::string& contents) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

fs::path moveTo(const fs::path& file, const fs::path& destination) {
    fs::create_directories(destination.parent_path());
    fs::rename(file, destination);
    return destination;
}

// A copy that keeps the original's name, size and modification time.
fs::path lookalikeOf(const fs::path& file, const fs::path& copy) {
    fs::create_directories(copy.parent_path());
    fs::copy_file(file, copy);
    fs::last_write_time(copy, fs::last_write_time(file));
    return copy;
}

// A bookmark of a file made in a fresh folder laid out as root/library/shoot/<name>.
struct Library {
    explicit Library(const std::string& test)
        : root(testing_support::freshDir("bookmark-" + test)),
          shoot(root / "library" / "shoot"),
          file(writeFile(shoot / "take 1.mov", "original media bytes")),
          bookmark(*media::makeBookmark(file)) {}
    fs::path root, shoot, file;
    model::Bytes bookmark;
};

TEST(Bookmark, RecordsTheFilesAbsolutePathAndSizeAndNothingElseDecodes) {
    Library lib("record");
    auto id = media::decodeBookmark(lib.bookmark);
    ASSERT_TRUE(id);
    EXPECT_EQ(id->path, lib.file);
    EXPECT_EQ(id->size, std::string("original media bytes").size());
    EXPECT_FALSE(media::makeBookmark(lib.root / "absent.mov"));
    EXPECT_FALSE(media::makeBookmark(lib.root));
    for (std::string junk :
         {"", "not json", "[1,2]",
          R"({"path":"relative.mov","device":1,"inode":2,"size":3,"modified":4})",
          R"({"path":"/a.mov"})"}) {
        model::Bytes bytes(junk.begin(), junk.end());
        EXPECT_FALSE(media::decodeBookmark(bytes)) << junk;
        EXPECT_FALSE(resolveBookmark(bytes, std::nullopt)) << junk;
    }
}

TEST(Bookmark, FindsTheFileInPlaceRenamedMovedToASiblingOrIntoTheProjectFolderWhenToldIt) {
    Library lib("moves");
    EXPECT_EQ(resolveBookmark(lib.bookmark, std::nullopt), lib.file);
    const auto renamed = moveTo(lib.file, lib.shoot / "best take.mov");
    EXPECT_EQ(resolveBookmark(lib.bookmark, std::nullopt), renamed);
    const auto sibling = moveTo(renamed, lib.root / "library" / "selects" / "take 1.mov");
    EXPECT_EQ(resolveBookmark(lib.bookmark, std::nullopt), sibling);
    // The moved file itself wins over a lookalike where the search looks first.
    lookalikeOf(sibling, lib.shoot / "archive" / "take 1.mov");
    EXPECT_EQ(resolveBookmark(lib.bookmark, std::nullopt), sibling);

    Library far("project-folder");
    const auto project = far.root / "projects" / "film";
    const auto moved = moveTo(far.file, project / "media" / "take 1.mov");
    EXPECT_FALSE(resolveBookmark(far.bookmark, std::nullopt));
    EXPECT_EQ(resolveBookmark(far.bookmark, project), moved);
}

TEST(Bookmark, ACopyWithTheSameNameSizeAndModificationTimeStandsForTheFile) {
    Library lib("lookalike");
    const auto copy = lookalikeOf(lib.file, lib.root / "library" / "backup" / "take 1.mov");
    fs::remove(lib.file);
    EXPECT_EQ(resolveBookmark(lib.bookmark, std::nullopt), copy);
    // Under another name it is some other file.
    Library other("lookalike-renamed");
    lookalikeOf(other.file, other.shoot / "take 2.mov");
    fs::remove(other.file);
    EXPECT_FALSE(resolveBookmark(other.bookmark, other.root));
}

// Deleting first lets the file system hand the old inode number to a newcomer.
TEST(Bookmark, ADeletedFileOrAnotherInItsPlaceResolvesToNothing) {
    const std::vector<std::pair<std::string, std::function<void(const Library&)>>> newcomers{
        {"deleted", [](const Library&) {}},
        {"inode-reuse",
         [](const Library& lib) { writeFile(lib.shoot / "unrelated.mov", "a different take"); }},
        {"same-size",
         [](const Library& lib) {
             writeFile(lib.file, "ORIGINAL MEDIA BYTES");
             fs::last_write_time(lib.file, fs::last_write_time(lib.file) - std::chrono::hours(1));
         }},
    };
    for (const auto& [name, arrive] : newcomers) {
        Library lib(name);
        fs::remove(lib.file);
        arrive(lib);
        EXPECT_FALSE(resolveBookmark(lib.bookmark, lib.root)) << name;
    }
}

}  // namespace
