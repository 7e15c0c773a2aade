#include <gtest/gtest.h>

#include <QUrl>

#include "app/content_view.h"
#include "app/crop_math.h"
#include "app/lcd_timecode.h"
#include "app/opened_files.h"
#include "app/path_menu.h"
#include "app/screenshot.h"
#include "app/window_fitting.h"

namespace {

TEST(LcdTimecode, CountsFramesAtThePlayheadsRateAndDimsTheLeadingZerosAndColons) {
    EXPECT_EQ(app::lcdFrameText(3.5, 30), "000105f");
    EXPECT_EQ(app::lcdFrameText(-1, 30), "000000f");
    using Split = std::pair<std::string, std::string>;
    EXPECT_EQ(app::lcdDimSplit("00:00.00"), (Split{"00:00", ".00"}));
    EXPECT_EQ(app::lcdDimSplit("01:02.50"), (Split{"0", "1:02.50"}));
    EXPECT_EQ(app::lcdDimSplit("000105f"), (Split{"000", "105f"}));
    EXPECT_EQ(app::lcdDimSplit("00:00"), (Split{"00:0", "0"}));
}

TEST(WindowFitting, HoldsTheVideoToTheScreenAtItsAspectAndASmallOneToTheMinimum) {
    app::FitInput in{3840, 2160, QRect(100, 100, 800, 882), 30, 282, QRect(0, 0, 1920, 1050)};
    QRect frame = app::fittedWindowFrame(in);
    // Height limited to 1050 - 30 - 282 = 738, width follows the aspect.
    EXPECT_EQ(frame.height(), 738 + 282 + 30);
    EXPECT_EQ(frame.width(), 1312);
    EXPECT_EQ(frame.top(), 0);  // pulled back onto the screen
    EXPECT_EQ(frame.left(), 100);

    in = {320, 240, QRect(0, 0, 800, 882), 30, 282, QRect(0, 0, 1920, 1200)};
    frame = app::fittedWindowFrame(in);
    EXPECT_EQ(frame.height(), 762 + 30);  // minH = 762 - footer, then the footer again
    EXPECT_EQ(frame.width(), 640);        // 480 * 4 / 3 = 640
    in.videoWidth = 240;                  // a narrow video keeps the lower limit of 640
    EXPECT_EQ(app::fittedWindowFrame(in).width(), 640);
}

TEST(PathMenu, ListsTheDocumentThenEachFolderToTheRoot) {
    auto items = app::ancestorPaths("/home/ann/films/cut.vantrell");
    std::vector<std::filesystem::path> expected = {"/home/ann/films/cut.vantrell",
                                                   "/home/ann/films", "/home/ann", "/home", "/"};
    EXPECT_EQ(items, expected);
    EXPECT_EQ(app::pathMenuDisplayName("/home/ann/films"), QStringLiteral("films"));
    EXPECT_FALSE(app::pathMenuDisplayName("/").isEmpty());
}

TEST(OpenedFiles, ProjectsAreToldByTheirLowerCasedExtensionAndDropsTakeEveryLocalFile) {
    using Paths = std::vector<std::filesystem::path>;
    auto sorted = app::sortOpenedFiles({"/a/A.VANTRELL", "/a/b.mp4", "/a/c.wav", "/a/d.vantrell"});
    EXPECT_EQ(sorted.projects, (Paths{"/a/A.VANTRELL", "/a/d.vantrell"}));
    EXPECT_EQ(sorted.media, (Paths{"/a/b.mp4", "/a/c.wav"}));
    EXPECT_EQ(app::droppedFiles({QUrl::fromLocalFile("/m/b.mov"), QUrl("https://example.com/x"),
                                 QUrl::fromLocalFile("/m/a.txt")}),
              (Paths{"/m/b.mov", "/m/a.txt"}));
}

TEST(CropOverlay, FitsTheVideoAndInsetsTheKeptPart) {
    QRectF video = app::fittedVideoRect(QSizeF(1000, 500), 16.0 / 9);
    EXPECT_DOUBLE_EQ(video.width(), 16.0 / 9 * 500);
    EXPECT_DOUBLE_EQ(video.top(), 0);
    EXPECT_EQ(app::croppedRect(video, 0, 0, 0, 0), video);
    EXPECT_EQ(app::croppedRect(QRectF(0, 0, 100, 100), 0.1, 0.1, 0.1, 0.1), QRectF(10, 10, 80, 80));
}

TEST(Screenshot, SizesAreWidthByHeight) {
    EXPECT_EQ(app::parseWindowSize(QStringLiteral("1280x800")), QSize(1280, 800));
    EXPECT_FALSE(app::parseWindowSize(QStringLiteral("1280")).isValid());
}

}  // namespace
