#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_job.h"
#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using exporting::ExportJob;
using exporting::ExportRoads;

// Roads that write a marker file or fail, so the job's own logic can be watched.
struct ScriptedRoads {
    std::vector<std::string> taken;
    bool passthroughFails = false;
    bool reencodeFails = false;
    std::vector<fs::path> filesWritten;

    ExportRoads roads() {
        auto road = [this](std::string name, bool* fails) {
            return [this, name, fails](const composition::Composition&, const ExportJob&,
                                       const fs::path& file,
                                       const exporting::ProgressCallback& progress,
                                       std::stop_token) -> common::Status {
                taken.push_back(name);
                progress(0.5);
                // A road that fails may have written part of the file.
                std::ofstream(file) << name;
                filesWritten.push_back(file);
                if (fails && *fails) return common::Error{name + " refused"};
                progress(1.0);
                return common::success();
            };
        };
        ExportRoads r;
        r.passthrough = road("passthrough", &passthroughFails);
        r.reencode = road("reencode", &reencodeFails);
        r.crop = road("crop", nullptr);
        r.build = [](const std::vector<model::Clip>&) { return composition::Composition{}; };
        return r;
    }
};

model::Clip videoClip() {
    model::Clip c;
    c.id = common::Uuid::random();
    c.hasVideo = true;
    c.naturalSize = {640, 360};
    c.outSeconds = 1;
    c.fullDurationSeconds = 1;
    return c;
}

class ExportJobTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = testing_support::freshDir(
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        job.clips = {videoClip()};
        job.destination = dir / "out.mp4";
    }

    common::Status run() {
        return exporting::runExportJob(job, scripted.roads(),
                                       [this](double f, const std::string& m) {
                                           std::lock_guard lock(mutex);
                                           reports.emplace_back(f, m);
                                       },
                                       {});
    }

    std::string destinationText() {
        std::ifstream in(job.destination);
        std::string s;
        std::getline(in, s);
        return s;
    }

    fs::path dir;
    ExportJob job;
    ScriptedRoads scripted;
    std::mutex mutex;
    std::vector<std::pair<double, std::string>> reports;
};

TEST_F(ExportJobTest, EligibleProjectsAreCopiedAndMovedIntoPlace) {
    job.passthroughEligible = true;
    ASSERT_TRUE(run());
    EXPECT_EQ(scripted.taken, std::vector<std::string>{"passthrough"});
    EXPECT_EQ(destinationText(), "passthrough");
    EXPECT_EQ(reports.back(), std::make_pair(1.0, std::string("Done")));
    ASSERT_EQ(scripted.filesWritten.size(), 1u);
    EXPECT_EQ(scripted.filesWritten[0].parent_path(), fs::temp_directory_path());
    EXPECT_TRUE(scripted.filesWritten[0].filename().string().starts_with("vantrell-export-"));
    EXPECT_EQ(scripted.filesWritten[0].extension(), ".mp4");
    EXPECT_FALSE(fs::exists(scripted.filesWritten[0]));
}

TEST_F(ExportJobTest, ARefusedCopyFallsBackToReencodingAndSaysSo) {
    job.passthroughEligible = true;
    scripted.passthroughFails = true;
    ASSERT_TRUE(run());
    EXPECT_EQ(scripted.taken, (std::vector<std::string>{"passthrough", "reencode"}));
    EXPECT_EQ(destinationText(), "reencode");
    bool saidReencoding = false;
    for (const auto& [f, m] : reports)
        if (m == "Re-encoding…") saidReencoding = f == 0;
    EXPECT_TRUE(saidReencoding);
}

TEST_F(ExportJobTest, InsetsTakeTheCropRoadWithoutFallbackUnlessThereIsNoPicture) {
    job.passthroughEligible = true;
    job.cropTop = 0.1;
    ASSERT_TRUE(run());
    EXPECT_EQ(scripted.taken, std::vector<std::string>{"crop"});

    scripted.taken.clear();
    job.passthroughEligible = false;
    job.clips[0].naturalSize = {0, 0};
    ASSERT_TRUE(run());
    EXPECT_EQ(scripted.taken, std::vector<std::string>{"reencode"});
}

TEST_F(ExportJobTest, FailuresKeepTheOldDestinationAndLeaveNoTemporaryFile) {
    std::ofstream(job.destination) << "older";
    scripted.reencodeFails = true;
    auto status = run();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().message, "Failed: reencode refused");
    EXPECT_EQ(destinationText(), "older");
    ASSERT_EQ(scripted.filesWritten.size(), 1u);
    EXPECT_FALSE(fs::exists(scripted.filesWritten[0]));
}

TEST_F(ExportJobTest, NoClipsIsAFailureWithItsOwnWords) {
    job.clips.clear();
    auto status = run();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().message, "Failed: No clips to export.");
    EXPECT_TRUE(scripted.taken.empty());
}

TEST_F(ExportJobTest, AnUnwritableDestinationIsAFailedMove) {
    job.destination = dir / "missing-folder" / "out.mp4";
    auto status = run();
    ASSERT_FALSE(status);
    EXPECT_TRUE(status.error().message.starts_with("Failed to move output: "))
        << status.error().message;
    EXPECT_FALSE(fs::exists(job.destination));
}

}  // namespace
