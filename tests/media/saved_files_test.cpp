// The files the app writes whole and reads back, and the atomic write beneath them.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "media/atomic_file.h"
#include "media/file_pasteboard.h"
#include "media/project_document.h"
#include "support/fake_media_services.h"
#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using media::FilePasteboard;
using media::ProjectDocument;
using model::Clip;
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
    fs::create_directories(dir / "cut.vantrell" / "inside");  // a folder can't be replaced
    EXPECT_FALSE(media::writeFileAtomically(dir / "cut.vantrell", "x").ok());
    EXPECT_TRUE(holdsOnly(dir, "cut.vantrell"));
}

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

class ProjectDocumentTest : public model_test::MediaProjectTest {
  protected:
    fs::path dir = freshDir(std::string("document-") +
                            testing::UnitTest::GetInstance()->current_test_info()->name());

    model::ProjectContext context() { return {&executor, media}; }

    std::unique_ptr<ProjectDocument> open(const fs::path& file) {
        auto opened = ProjectDocument::open(file, context());
        EXPECT_TRUE(opened.ok()) << file;
        return opened.ok() ? std::move(opened).value() : nullptr;
    }
};

TEST_F(ProjectDocumentTest, EditsMarkTheDocumentAndSavingClearsTheMarkAndMovesIt) {
    ProjectDocument doc(context());
    EXPECT_FALSE(doc.save().ok());  // nowhere to save yet
    int told = 0;
    doc.onModified = [&] { ++told; };
    doc.project().setZoomFactor(2);
    EXPECT_FALSE(doc.isModified());    // view state
    doc.project().setCropInsetTop(0);  // marks, though the value is the same
    EXPECT_TRUE(doc.isModified());
    EXPECT_EQ(told, 1);

    ASSERT_TRUE(doc.save(dir / "cut.vantrell").ok());
    EXPECT_FALSE(doc.isModified());
    ASSERT_TRUE(doc.save(dir / "moved.vantrell").ok());
    doc.project().raiseCompositionToken();
    doc.project().setZoomFactor(5);
    EXPECT_TRUE(doc.isModified());
    ASSERT_TRUE(doc.save().ok());
    EXPECT_EQ(doc.file(), dir / "moved.vantrell");
    EXPECT_EQ(open(dir / "moved.vantrell")->project().zoomFactor(), 5);
    EXPECT_EQ(open(dir / "cut.vantrell")->project().zoomFactor(), 2);
    executor.drain();
}

TEST_F(ProjectDocumentTest, SaveThenOpenBringsBackClipsPlaceholdersAndSettingsUnmarked) {
    const fs::path lost = "/media/lost take.mov";
    media->add(lost, 8);
    media->add("/media/b c.mov", 4);
    ProjectDocument doc(context());
    model::Project& p = doc.project();
    p.importURLs({lost, "/media/b c.mov", "/media/never.mov"});
    drainCapturingLog();
    ASSERT_EQ(p.clips().size(), 2u);
    p.updateClip(p.clips()[0].id, [&](Clip& c) { c.inSeconds = 2; });
    p.updateClip(p.clips()[1].id, [&](Clip& c) { c.rateMultiplier = 2; });
    p.setZoomFactor(3);
    p.setCropInsetLeading(0.125);
    ASSERT_TRUE(doc.save(dir / "cut.vantrell").ok());

    media->remove(lost);
    auto reopened = open(dir / "cut.vantrell");
    model::Project& q = reopened->project();
    EXPECT_TRUE(q.clips().empty());  // they arrive with hydration
    EXPECT_FALSE(reopened->isModified());
    ASSERT_TRUE(reopened->save(dir / "early.vantrell").ok());
    EXPECT_EQ(contentsOf(dir / "early.vantrell"), contentsOf(dir / "cut.vantrell"));
    drainCapturingLog();
    EXPECT_FALSE(reopened->isModified());
    EXPECT_EQ(media->lastProjectFolder(), dir);
    ASSERT_EQ(q.clips().size(), 2u);
    EXPECT_TRUE(q.clips()[0].isMissing);
    EXPECT_FALSE(q.canUndo());
    ASSERT_TRUE(reopened->save().ok());

    media->add(lost, 8);
    auto restored = open(dir / "cut.vantrell");
    executor.drain();
    EXPECT_FALSE(restored->project().clips().at(0).isMissing);
    EXPECT_EQ(restored->project().makeSnapshot(), p.makeSnapshot());
}

TEST_F(ProjectDocumentTest, AFailedSaveLeavesTheOldFileItsPlaceAndTheMarkAsTheyWere) {
    ProjectDocument doc(context());
    ASSERT_TRUE(doc.save(dir / "cut.vantrell").ok());
    const std::string before = contentsOf(dir / "cut.vantrell");
    doc.project().setCropInsetTop(0.1);
    EXPECT_FALSE(doc.save(dir / "missing" / "cut.vantrell").ok());
    EXPECT_FALSE(fs::exists(dir / "missing"));
    EXPECT_EQ(doc.file(), dir / "cut.vantrell");
    doc.project().setCropInsetTop(std::numeric_limits<double>::quiet_NaN());
    auto status = doc.save();
    ASSERT_FALSE(status.ok());
    EXPECT_NE(status.error().message.find("cropInsetTop"), std::string::npos);
    EXPECT_EQ(contentsOf(dir / "cut.vantrell"), before);
    EXPECT_TRUE(doc.isModified());
}

TEST_F(ProjectDocumentTest, OnlyARegularFileThatDecodesOpens) {
    ASSERT_EQ(::mkfifo((dir / "pipe.vantrell").c_str(), 0600), 0);
    fs::create_directories(dir / "folder.vantrell");
    std::ofstream(dir / "bad.vantrell") << "{\"version\": 1, \"clips\": [";
    // Four gigabytes that take no room on disk: refused unread.
    std::ofstream(dir / "huge.vantrell").close();
    ASSERT_EQ(::truncate((dir / "huge.vantrell").c_str(), off_t{4} << 30), 0);
    for (const char* name :
         {"absent.vantrell", "pipe.vantrell", "folder.vantrell", "bad.vantrell", "huge.vantrell"}) {
        auto opened = ProjectDocument::open(dir / name, context());
        ASSERT_FALSE(opened.ok()) << name;
        EXPECT_NE(opened.error().message.find(name), std::string::npos) << name;
        EXPECT_EQ(name != std::string("huge.vantrell"),
                  opened.error().message.find("too large") == std::string::npos);
    }
}

}  // namespace
