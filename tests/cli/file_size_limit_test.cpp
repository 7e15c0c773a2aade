#include <string>

#include "cli_under.h"

namespace cli_testing {
namespace {

// Runs vantrell-cli under a file-size limit of `blocks` × 512 bytes (the unit of the
// system shell's ulimit), as a full disk would stop it, with its temporary files in
// `temporary`.
CliRun cliLimited(int blocks, const fs::path& temporary, const std::string& args,
                  const fs::path& workDir) {
    return cliUnder(
        "ulimit -f " + std::to_string(blocks) + " && TMPDIR=" + quote(temporary.string()) + " exec",
        args, workDir);
}

class FileSizeLimitTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        project = dir / "p.vantrell";
        ASSERT_EQ(cli("new " + quote(project.string()) + " " + quote(movie.string()) + " " +
                          quote(tone.string()),
                      dir)
                      .status,
                  0);
        temporary = dir / "tmp";
        fs::create_directory(temporary);
        output = dir / "out";
        fs::create_directory(output);
    }

    fs::path project, temporary, output;
};

TEST_F(FileSizeLimitTest, AnExportPastTheLimitLeavesTheDestinationAsItWas) {
    const auto destination = output / "cut.mp4";
    std::ofstream(destination) << "an older export";
    auto r =
        cliLimited(64, temporary,
                   "export " + quote(project.string()) + " -o " + quote(destination.string()), dir);
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("File too large"), std::string::npos) << r.err;
    EXPECT_EQ(testing_support::contentsOf(destination), "an older export");
    EXPECT_TRUE(fs::is_empty(temporary)) << "the partial export is removed";
    EXPECT_EQ(std::distance(fs::directory_iterator(output), fs::directory_iterator()), 1);
}

TEST_F(FileSizeLimitTest, ASavePastTheLimitLeavesTheProjectAsItWas) {
    const std::string before = testing_support::contentsOf(project);
    auto r = cliLimited(1, temporary, "edit " + quote(project.string()) + " 'playhead 1.5'", dir);
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("File too large"), std::string::npos) << r.err;
    EXPECT_EQ(testing_support::contentsOf(project), before);
    for (const auto& entry : fs::directory_iterator(dir))
        EXPECT_EQ(entry.path().filename().string().find(".p.vantrell.tmp"), std::string::npos)
            << "a partial save is left: " << entry.path();
}

}  // namespace
}  // namespace cli_testing
