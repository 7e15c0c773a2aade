#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "common/version.h"
#include "support/media_fixtures.h"

namespace {

namespace ts = testing_support;
namespace fs = std::filesystem;

class InstallTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        prefix_ = ts::freshDir("install-prefix");
        installed_ = ts::run("cmake --install " + ts::quote(VANTRELL_BUILD_DIR) + " --prefix " +
                             ts::quote(prefix_.string()) + " >/dev/null") == 0;
    }
    static std::string at(const std::string& file) { return ts::quote((prefix_ / file).string()); }
    static fs::path prefix_;
    static bool installed_;
};
fs::path InstallTest::prefix_;
bool InstallTest::installed_ = false;

TEST_F(InstallTest, PutsEveryPieceUnderThePrefixAndEachValidates) {
    ASSERT_TRUE(installed_);
    for (const char* file :
         {"bin/vantrell", "bin/vantrell-cli", "share/applications/com.corvane.vantrell.desktop",
          "share/mime/packages/vantrell.xml", "share/metainfo/com.corvane.vantrell.metainfo.xml",
          "share/icons/hicolor/scalable/apps/vantrell.svg",
          "share/icons/hicolor/48x48/apps/vantrell.png",
          "share/icons/hicolor/256x256/apps/vantrell.png"})
        EXPECT_TRUE(fs::exists(prefix_ / file)) << file;
    bool help = false;
    for (const auto& entry : fs::recursive_directory_iterator(prefix_ / "share/doc"))
        help = help || entry.path().filename() == "README.html";
    EXPECT_TRUE(help);
    // The validators come with scripts/setup.
    EXPECT_EQ(
        ts::run("desktop-file-validate " + at("share/applications/com.corvane.vantrell.desktop")),
        0);
    EXPECT_EQ(ts::run("appstreamcli validate --no-net " +
                      at("share/metainfo/com.corvane.vantrell.metainfo.xml")),
              0);
    ASSERT_EQ(ts::run("update-mime-database " + at("share/mime")), 0);
    EXPECT_NE(
        ts::contentsOf(prefix_ / "share/mime/globs").find("application/x-vantrell:*.vantrell"),
        std::string::npos);
}

TEST_F(InstallTest, BothExecutablesTellTheirVersion) {
    ASSERT_TRUE(installed_);
    std::string version(common::kVersion);
    EXPECT_EQ(ts::outputOf(at("bin/vantrell") + " --version"), "vantrell " + version + "\n");
    EXPECT_EQ(ts::outputOf(at("bin/vantrell-cli") + " --version"),
              "vantrell-cli " + version + "\n");
    EXPECT_NE(ts::outputOf(at("bin/vantrell") + " --help").find("--screenshot"), std::string::npos);
    EXPECT_NE(ts::contentsOf(prefix_ / "share/metainfo/com.corvane.vantrell.metainfo.xml")
                  .find("version=\"" + version + "\""),
              std::string::npos);
}

}  // namespace
