#include "media/project_document.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/fake_media_services.h"
#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using common::Uuid;
using media::ProjectDocument;
using model::Clip;
using model_test::FakeMediaServices;
using testing_support::contentsOf;

class ProjectDocumentTest : public testing::Test {
  protected:
    std::shared_ptr<FakeMediaServices> media = std::make_shared<FakeMediaServices>();
    common::ThreadPoolExecutor executor{2};
    fs::path dir = testing_support::freshDir(
        std::string("document-") + testing::UnitTest::GetInstance()->current_test_info()->name());

    model::ProjectContext context() { return {&executor, media}; }

    std::unique_ptr<ProjectDocument> open(const fs::path& file) {
        auto opened = ProjectDocument::open(file, context());
        EXPECT_TRUE(opened.ok()) << file;
        return opened.ok() ? std::move(opened).value() : nullptr;
    }

    void drainQuietly() {
        testing::internal::CaptureStderr();
        executor.drain();
        testing::internal::GetCapturedStderr();
    }
};

TEST_F(ProjectDocumentTest, EditsMarkTheDocumentAndSavingClearsTheMarkAndMovesIt) {
    ProjectDocument doc(context());
    EXPECT_FALSE(doc.save().ok());  // nowhere to save yet
    int told = 0;
    doc.onModified = [&] { ++told; };
    doc.project().setPlayheadGlobal(3);
    doc.project().setZoomFactor(2);
    doc.project().setSelectedClipID(Uuid::random());
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
    drainQuietly();
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
    EXPECT_EQ(q.cropInsetLeading(), 0.125);
    EXPECT_FALSE(reopened->isModified());
    ASSERT_TRUE(reopened->save(dir / "early.vantrell").ok());
    EXPECT_EQ(contentsOf(dir / "early.vantrell"), contentsOf(dir / "cut.vantrell"));
    drainQuietly();
    EXPECT_FALSE(reopened->isModified());
    EXPECT_EQ(media->lastProjectFolder(), dir);
    ASSERT_EQ(q.clips().size(), 2u);
    EXPECT_TRUE(q.clips()[0].isMissing);
    EXPECT_EQ(q.clips()[1].filmstrip.size(), FakeMediaServices::kFilmstripFrames);
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
    std::ofstream(dir / "partial.vantrell")
        << R"({"version": 1, "clips": [], "playheadGlobal": 0})";
    // Four gigabytes that take no room on disk: refused unread.
    std::ofstream(dir / "huge.vantrell").close();
    ASSERT_EQ(::truncate((dir / "huge.vantrell").c_str(), off_t{4} << 30), 0);
    for (const char* name : {"absent.vantrell", "pipe.vantrell", "folder.vantrell", "bad.vantrell",
                             "partial.vantrell", "huge.vantrell"}) {
        auto opened = ProjectDocument::open(dir / name, context());
        ASSERT_FALSE(opened.ok()) << name;
        EXPECT_NE(opened.error().message.find(name), std::string::npos) << name;
        EXPECT_EQ(name != std::string("huge.vantrell"),
                  opened.error().message.find("too large") == std::string::npos);
    }
}

}  // namespace
