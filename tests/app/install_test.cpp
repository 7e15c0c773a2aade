#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "common/version.h"
#include "support/media_fixtures.h"

namespace {

namespace ts = testing_support;
namespace fs = std::filesystem;

bool haveTool(const std::string& tool) {
    return ts::run("command -v " + tool + " >/dev/null 2>&1") == 0;
}

class InstallTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        prefix_ = ts::freshDir("install-prefix");
        installed_ = ts::run("cmake --install " + ts::quote(VANTRELL_BUILD_DIR) + " --prefix " +
                             ts::quote(prefix_.string()) + " >/dev/null") == 0;
    }
    static fs::path prefix_;
    static bool installed_;
};
fs::path InstallTest::prefix_;
bool InstallTest::installed_ = false;

TEST_F(InstallTest, PutsEveryPieceUnderThePrefix) {
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
}

TEST_F(InstallTest, DesktopEntryValidates) {
    ASSERT_TRUE(installed_);
    if (!haveTool("desktop-file-validate"))
        GTEST_SKIP() << "desktop-file-validate is not installed";
    EXPECT_EQ(
        ts::run("desktop-file-validate " +
                ts::quote((prefix_ / "share/applications/com.corvane.vantrell.desktop").string())),
        0);
}

TEST_F(InstallTest, MetainfoValidates) {
    ASSERT_TRUE(installed_);
    if (!haveTool("appstreamcli")) GTEST_SKIP() << "appstreamcli is not installed";
    EXPECT_EQ(
        ts::run("appstreamcli validate --no-net " +
                ts::quote((prefix_ / "share/metainfo/com.corvane.vantrell.metainfo.xml").string())),
        0);
}

TEST_F(InstallTest, MimeTypeRegistersTheProjectExtension) {
    ASSERT_TRUE(installed_);
    if (!haveTool("update-mime-database")) GTEST_SKIP() << "update-mime-database is not installed";
    ASSERT_EQ(ts::run("update-mime-database " + ts::quote((prefix_ / "share/mime").string())), 0);
    EXPECT_NE(
        ts::contentsOf(prefix_ / "share/mime/globs").find("application/x-vantrell:*.vantrell"),
        std::string::npos);
}

TEST_F(InstallTest, BothExecutablesTellTheirVersion) {
    ASSERT_TRUE(installed_);
    std::string version(common::kVersion);
    EXPECT_EQ(ts::outputOf(ts::quote((prefix_ / "bin/vantrell").string()) + " --version"),
              "vantrell " + version + "\n");
    EXPECT_EQ(ts::outputOf(ts::quote((prefix_ / "bin/vantrell-cli").string()) + " --version"),
              "vantrell-cli " + version + "\n");
    EXPECT_NE(ts::outputOf(ts::quote((prefix_ / "bin/vantrell").string()) + " --help")
                  .find("--screenshot"),
              std::string::npos);
    EXPECT_NE(ts::contentsOf(prefix_ / "share/metainfo/com.corvane.vantrell.metainfo.xml")
                  .find("version=\"" + version + "\""),
              std::string::npos);
}

}  // namespace
