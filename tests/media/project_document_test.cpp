#include "media/project_document.h"

#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/thread_pool_executor.h"
#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using common::Uuid;
using media::ProjectDocument;
using model::Clip;
using testing_support::contentsOf;

// Makes clips from a table keyed by path and fails for any other path; real probing is
// tested elsewhere. Bookmarks are the path's text and resolve while that path is known.
class FakeMedia final : public model::MediaServices {
  public:
    void add(const fs::path& path, double seconds) {
        std::lock_guard lock(mutex_);
        durations_[path] = seconds;
    }

    std::optional<fs::path> lastProjectFolder() {
        std::lock_guard lock(mutex_);
        return lastProjectFolder_;
    }

    common::Result<Clip> probe(const fs::path& url, const std::optional<model::Bytes>& bookmark,
                               const Uuid& id) override {
        std::lock_guard lock(mutex_);
        auto it = durations_.find(url);
        if (it == durations_.end()) return common::Error{"The file can't be opened as media."};
        Clip c;
        c.id = id;
        c.url = url;
        c.bookmark = bookmark;
        c.displayName = url.filename().string();
        c.hasVideo = c.hasAudio = true;
        c.fullDurationSeconds = c.outSeconds = it->second;
        c.frameRate = 30;
        c.fingerprint = "v:1635148593:640x360";
        return c;
    }

    std::optional<model::Bytes> makeBookmark(const fs::path& url) override {
        std::string s = url.string();
        return model::Bytes(s.begin(), s.end());
    }

    std::optional<fs::path> resolveBookmark(const model::Bytes& bookmark,
                                            const std::optional<fs::path>& folder) override {
        std::lock_guard lock(mutex_);
        lastProjectFolder_ = folder;
        fs::path path(std::string(bookmark.begin(), bookmark.end()));
        if (durations_.contains(path)) return path;
        return std::nullopt;
    }

    // No clip in these tests plays backward.
    std::optional<fs::path> renderReversed(const fs::path&, double, double) override {
        return std::nullopt;
    }

    // Enrichment gives one frame and flat peaks for every file, so that its quiet writes
    // land on every opened clip.
    std::vector<model::Image> generateFilmstrip(const fs::path&, double) override {
        return {std::make_shared<const model::ImageData>()};
    }
    std::optional<std::vector<float>> extractPeaks(const fs::path&, int count) override {
        return std::vector<float>(static_cast<std::size_t>(count), 0.5f);
    }
    model::Image drawWaveform(const std::vector<float>&) override {
        return std::make_shared<const model::ImageData>();
    }

  private:
    std::mutex mutex_;
    std::map<fs::path, double> durations_;
    std::optional<fs::path> lastProjectFolder_;
};

void writeFile(const fs::path& file, const std::string& text) {
    std::ofstream(file, std::ios::binary) << text;
}

class ProjectDocumentTest : public testing::Test {
  protected:
    std::shared_ptr<FakeMedia> media = std::make_shared<FakeMedia>();
    common::ThreadPoolExecutor executor{2};
    fs::path dir = testing_support::freshDir(
        std::string("document-") + testing::UnitTest::GetInstance()->current_test_info()->name());

    model::ProjectContext context() { return {&executor, media}; }

    std::unique_ptr<ProjectDocument> open(const fs::path& file) {
        auto opened = ProjectDocument::open(file, context());
        EXPECT_TRUE(opened.ok()) << (opened.ok() ? "" : opened.error().message);
        return opened.ok() ? std::move(opened).value() : nullptr;
    }

    // Drains with the placeholder log lines kept out of the test output.
    void drainQuietly() {
        testing::internal::CaptureStderr();
        executor.drain();
        testing::internal::GetCapturedStderr();
    }
};

TEST_F(ProjectDocumentTest, EditsMarkTheDocumentAndSavingClearsTheMark) {
    ProjectDocument doc(context());
    EXPECT_FALSE(doc.isModified());
    EXPECT_FALSE(doc.file());
    EXPECT_FALSE(doc.save().ok()) << "a new document has nowhere to save yet";
    int told = 0;
    doc.onModified = [&] { ++told; };

    doc.project().setPlayheadGlobal(3);
    doc.project().setZoomFactor(2);
    doc.project().setSelectedClipID(Uuid::random());
    EXPECT_FALSE(doc.isModified()) << "view state does not make a document dirty";

    doc.project().setCropInsetTop(0);
    EXPECT_TRUE(doc.isModified()) << "an inset write marks it even with the same value";
    EXPECT_EQ(told, 1);

    ASSERT_TRUE(doc.save(dir / "cut.vantrell").ok());
    EXPECT_FALSE(doc.isModified());
    EXPECT_EQ(doc.file(), dir / "cut.vantrell");

    // Saving elsewhere moves the document there.
    ASSERT_TRUE(doc.save(dir / "moved.vantrell").ok());
    doc.project().raiseCompositionToken();
    doc.project().setZoomFactor(5);
    EXPECT_TRUE(doc.isModified());
    ASSERT_TRUE(doc.save().ok());
    EXPECT_FALSE(doc.isModified());
    auto moved = open(dir / "moved.vantrell");
    auto left = open(dir / "cut.vantrell");
    ASSERT_TRUE(moved && left);
    EXPECT_EQ(moved->project().zoomFactor(), 5);
    EXPECT_EQ(left->project().zoomFactor(), 2);
    executor.drain();
}

TEST_F(ProjectDocumentTest, SaveThenOpenBringsBackClipsAndSettings) {
    media->add("/media/a.mov", 6);
    media->add("/media/b c.mov", 4);
    ProjectDocument doc(context());
    model::Project& p = doc.project();
    p.importURLs({"/media/a.mov", "/media/b c.mov"});
    executor.drain();
    ASSERT_EQ(p.clips().size(), 2u);
    const Uuid group = Uuid::random();
    p.updateClip(p.clips()[0].id, [&](Clip& c) {
        c.inSeconds = 1;
        c.outSeconds = 5;
        c.linkGroupID = group;
        c.streamMask = model::StreamMask::videoOnly;
    });
    p.updateClip(p.clips()[1].id, [&](Clip& c) {
        c.rateMultiplier = 2;
        c.startOnTimeline = 10;
    });
    p.setPlayheadGlobal(7.5);
    p.setZoomFactor(3);
    p.setSmallClipMode(model::SmallClipMode::fill);
    p.setCropInsetLeading(0.125);
    const std::vector<Clip> saved = p.clips();
    ASSERT_TRUE(doc.save(dir / "cut.vantrell").ok());

    auto reopened = open(dir / "cut.vantrell");
    ASSERT_TRUE(reopened);
    model::Project& q = reopened->project();
    EXPECT_TRUE(q.clips().empty()) << "the clips arrive with hydration";
    EXPECT_EQ(q.playheadGlobal(), 7.5);
    EXPECT_EQ(q.zoomFactor(), 3);
    EXPECT_EQ(q.smallClipMode(), model::SmallClipMode::fill);
    EXPECT_EQ(q.cropInsetLeading(), 0.125);
    EXPECT_EQ(q.cropInsetTop(), 0);
    EXPECT_FALSE(reopened->isModified()) << "reading a file is not an edit";
    EXPECT_EQ(reopened->file(), dir / "cut.vantrell");

    executor.drain();
    EXPECT_FALSE(reopened->isModified())
        << "neither the end of hydration nor enrichment is an edit";
    ASSERT_EQ(q.clips().size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        const Clip& c = q.clips()[i];
        EXPECT_FALSE(c.isMissing);
        EXPECT_EQ(c.filmstrip.size(), 1u);
        EXPECT_TRUE(c.waveformPeaks);
        EXPECT_EQ(c.id, saved[i].id);
        EXPECT_EQ(c.url, saved[i].url);
        EXPECT_EQ(c.bookmark, saved[i].bookmark);
        EXPECT_EQ(c.inSeconds, saved[i].inSeconds);
        EXPECT_EQ(c.outSeconds, saved[i].outSeconds);
        EXPECT_EQ(c.startOnTimeline, saved[i].startOnTimeline);
        EXPECT_EQ(c.streamMask, saved[i].streamMask);
        EXPECT_EQ(c.linkGroupID, saved[i].linkGroupID);
        EXPECT_EQ(c.rateMultiplier, saved[i].rateMultiplier);
    }
    EXPECT_FALSE(q.canUndo());
}

TEST_F(ProjectDocumentTest, ASaveDuringHydrationKeepsTheClips) {
    media->add("/media/a.mov", 6);
    ProjectDocument doc(context());
    doc.project().importURLs({"/media/a.mov", "/media/gone.mov"});
    drainQuietly();
    ASSERT_TRUE(doc.save(dir / "first.vantrell").ok());

    auto reopened = open(dir / "first.vantrell");
    ASSERT_TRUE(reopened);
    ASSERT_TRUE(reopened->save(dir / "second.vantrell").ok()) << "saved before hydration ends";
    EXPECT_EQ(contentsOf(dir / "second.vantrell"), contentsOf(dir / "first.vantrell"));
    drainQuietly();
}

TEST_F(ProjectDocumentTest, APlaceholderSurvivesASaveAndComesBackLiveWithItsFile) {
    const fs::path lost = "/media/lost take.mov";
    media->add(lost, 8);
    media->add("/media/partner.wav", 8);
    ProjectDocument doc(context());
    doc.project().importURLs({lost, "/media/partner.wav"});
    executor.drain();
    const Uuid group = Uuid::random();
    for (const Clip& c : std::vector<Clip>(doc.project().clips()))
        doc.project().updateClip(c.id, [&](Clip& w) {
            w.linkGroupID = group;
            w.inSeconds = 2;
            w.outSeconds = 6;
        });
    const std::vector<Clip> original = doc.project().clips();
    ASSERT_TRUE(doc.save(dir / "cut.vantrell").ok());

    // The file goes away: opening keeps a placeholder and saving keeps it intact.
    auto gone = std::make_shared<FakeMedia>();
    gone->add("/media/partner.wav", 8);
    auto withoutFile = ProjectDocument::open(dir / "cut.vantrell", {&executor, gone});
    ASSERT_TRUE(withoutFile.ok());
    drainQuietly();
    EXPECT_EQ(gone->lastProjectFolder(), dir) << "the resolver looks near the project";
    const Clip& placeholder = (*withoutFile)->project().clips().at(0);
    EXPECT_TRUE(placeholder.isMissing);
    EXPECT_EQ(placeholder.url, lost);
    ASSERT_TRUE((*withoutFile)->save().ok());

    // The file is back: the clip is live again with all its decisions.
    auto restored = open(dir / "cut.vantrell");
    ASSERT_TRUE(restored);
    executor.drain();
    const auto& clips = restored->project().clips();
    ASSERT_EQ(clips.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_FALSE(clips[i].isMissing);
        EXPECT_EQ(clips[i].id, original[i].id);
        EXPECT_EQ(clips[i].startOnTimeline, original[i].startOnTimeline);
        EXPECT_EQ(clips[i].inSeconds, 2);
        EXPECT_EQ(clips[i].outSeconds, 6);
        EXPECT_EQ(clips[i].linkGroupID, group);
    }
}

TEST_F(ProjectDocumentTest, AFailedSaveLeavesTheOldFileItsPlaceAndTheMarkAsTheyWere) {
    ProjectDocument doc(context());
    ASSERT_TRUE(doc.save(dir / "cut.vantrell").ok());
    const std::string before = contentsOf(dir / "cut.vantrell");

    doc.project().setCropInsetTop(0.1);
    EXPECT_FALSE(doc.save(dir / "missing" / "cut.vantrell").ok());
    EXPECT_FALSE(fs::exists(dir / "missing"));
    EXPECT_EQ(doc.file(), dir / "cut.vantrell");
    EXPECT_TRUE(doc.isModified());

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
    writeFile(dir / "bad.vantrell", "{\"version\": 1, \"clips\": [");
    writeFile(dir / "partial.vantrell", R"({"version": 1, "clips": [], "playheadGlobal": 0})");
    for (const char* name : {"absent.vantrell", "pipe.vantrell", "folder.vantrell", "bad.vantrell",
                             "partial.vantrell"}) {
        auto opened = ProjectDocument::open(dir / name, context());
        ASSERT_FALSE(opened.ok()) << name;
        EXPECT_NE(opened.error().message.find(name), std::string::npos) << name;
    }
}

}  // namespace
