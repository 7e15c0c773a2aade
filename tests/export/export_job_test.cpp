#include <algorithm>
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

// Roads that write their name to the file they are given and may then fail.
class ExportJobTest : public ::testing::Test {
  protected:
    void SetUp() override {
        job.clips.resize(1);
        job.clips[0].hasVideo = true;
        job.destination = dir / "out.mp4";
    }

    common::Status run() {
        taken.clear();
        written.clear();
        reports.clear();
        const auto road = [this](std::string name) {
            return [this, name](const composition::Composition&, const ExportJob&,
                                const fs::path& file, const exporting::ProgressCallback& progress,
                                std::stop_token) -> common::Status {
                taken.push_back(name);
                written.push_back(file);
                progress(0.5);
                std::ofstream(file) << name;  // a road that fails may have written a part
                if (name == failing) return common::Error{name + " refused"};
                progress(1.0);
                return common::success();
            };
        };
        const exporting::ExportRoads roads{road("passthrough"), road("reencode"), road("crop"),
                                           [](const auto&) { return composition::Composition{}; }};
        return exporting::runExportJob(job, roads,
                                       [this](double f, const std::string& m) {
                                           std::lock_guard lock(mutex);
                                           reports.emplace_back(f, m);
                                       },
                                       {});
    }

    fs::path dir =
        testing_support::freshDir(testing::UnitTest::GetInstance()->current_test_info()->name());
    ExportJob job;
    std::string failing;
    std::vector<std::string> taken;
    std::vector<fs::path> written;
    std::mutex mutex;
    std::vector<std::pair<double, std::string>> reports;
};

// Only a complete temporary "vantrell-export-UUID.EXT" replaces the destination; none stays.
TEST_F(ExportJobTest, TakesTheRoadThatFitsAndMovesOnlyACompleteFileIntoPlace) {
    struct Row {
        bool eligible;
        double cropTop;
        double width;  // of the one clip's picture
        std::string failing;
        std::vector<std::string> taken;
        std::string destination;
    };
    const Row rows[] = {
        {true, 0, 640, "", {"passthrough"}, "passthrough"},
        {true, 0, 640, "passthrough", {"passthrough", "reencode"}, "reencode"},
        {true, 0.1, 640, "", {"crop"}, "crop"},         // no fallback from a crop
        {false, 0.1, 0, "", {"reencode"}, "reencode"},  // nothing to crop
        {false, 0, 640, "reencode", {"reencode"}, "older"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        std::ofstream(job.destination) << "older";
        job.passthroughEligible = row.eligible;
        job.cropTop = row.cropTop;
        job.clips[0].naturalSize = {row.width, row.width / 2};
        failing = row.failing;
        const auto status = run();
        EXPECT_EQ(taken, row.taken);
        EXPECT_EQ(testing_support::contentsOf(job.destination), row.destination);
        for (const auto& file : written) {
            EXPECT_EQ(file.parent_path(), fs::temp_directory_path());
            EXPECT_TRUE(file.filename().string().starts_with("vantrell-export-")) << file;
            EXPECT_EQ(file.extension(), ".mp4");
            EXPECT_FALSE(fs::exists(file));
        }
        if (row.destination == "older") {
            EXPECT_EQ(status.error().message, "Failed: reencode refused");
        } else {
            EXPECT_TRUE(status);
            EXPECT_EQ(reports.back(), std::make_pair(1.0, std::string("Done")));
        }
        const bool fellBack = row.taken.size() > 1;
        EXPECT_EQ(
            std::count(reports.begin(), reports.end(), std::pair(0.0, std::string("Re-encoding…"))),
            fellBack);
    }
}

TEST_F(ExportJobTest, NoClipsOrAnUnwritableDestinationFailInTheirOwnWords) {
    job.clips.clear();
    auto status = run();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().message, "Failed: No clips to export.");
    EXPECT_TRUE(written.empty());

    job.clips.resize(1);
    job.destination = dir / "missing-folder" / "out.mp4";
    status = run();
    ASSERT_FALSE(status);
    EXPECT_TRUE(status.error().message.starts_with("Failed to move output: "))
        << status.error().message;
    EXPECT_FALSE(fs::exists(job.destination));
    ASSERT_EQ(written.size(), 1u);
    EXPECT_FALSE(fs::exists(written[0]));
}

}  // namespace
