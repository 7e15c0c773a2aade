#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include "app/crop_sheet.h"
#include "app/export_sheet.h"
#include "app/retime_sheet.h"
#include "app/sheet_controls.h"
#include "support/model_test_support.h"

namespace {

using model_test::clipAt;

TEST(RetimeSheet, TextsFollowTheSelectionAndRate) {
    EXPECT_EQ(app::selectionSummary(0), "0 clips selected");
    EXPECT_EQ(app::selectionSummary(1), "1 clip selected");
    EXPECT_EQ(app::selectionSummary(3), "3 clips selected");
    const std::pair<double, std::string> labels[] = {
        {2.0, "2×"}, {1.999, "2×"}, {1.25, "1.25×"}, {1.98, "1.98×"}, {0.5, "0.50×"}};
    for (const auto& [rate, text] : labels) EXPECT_EQ(app::rateLabel(rate), text) << rate;

    model::Project p;
    auto a = clipAt(0, 4), b = clipAt(4, 6);
    a.rateMultiplier = b.rateMultiplier = 2;
    p.setClips({a, b});
    EXPECT_EQ(app::retimeFooterText(p, 0.5), "Selection length: 0.00s → 0.00s");
    p.setSelectedClipIDs({a.id, b.id});
    EXPECT_EQ(app::retimeFooterText(p, 0.5), "Selection length: 5.00s → 20.00s");
}

TEST(RetimeSheet, OpensAtTheCommonRateStaysWithinItsRangeAndAppliesOnlyOnReturn) {
    model::Project p;
    auto a = clipAt(0, 4), b = clipAt(4, 4);
    a.rateMultiplier = 2;
    p.setClips({a, b});
    p.setSelectedClipIDs({a.id});
    EXPECT_DOUBLE_EQ(app::RetimeSheet(p).rate(), 2.0);
    p.setSelectedClipIDs({a.id, b.id});
    {
        app::RetimeSheet sheet(p);
        EXPECT_DOUBLE_EQ(sheet.rate(), 1.0) << "no common rate";
        EXPECT_TRUE(sheet.applyButton()->isDefault());
        sheet.slider()->setFocus();
        QTest::keyClick(sheet.slider(), Qt::Key_End);
        EXPECT_DOUBLE_EQ(sheet.rate(), 4.0);
        QTest::keyClick(sheet.slider(), Qt::Key_Home);
        EXPECT_DOUBLE_EQ(sheet.rate(), 0.25);
        sheet.setRate(9);
        EXPECT_DOUBLE_EQ(sheet.rate(), 4.0);
        sheet.show();
        QTest::keyClick(&sheet, Qt::Key_Escape);
        EXPECT_EQ(sheet.result(), QDialog::Rejected);
    }
    EXPECT_DOUBLE_EQ(p.clips()[1].rateMultiplier, 1.0);
    EXPECT_FALSE(p.canUndo());
    app::RetimeSheet sheet(p);
    sheet.setRate(3);
    sheet.show();
    QTest::keyClick(&sheet, Qt::Key_Return);
    EXPECT_EQ(sheet.result(), QDialog::Accepted);
    EXPECT_DOUBLE_EQ(p.clips()[0].rateMultiplier, 3.0);
    EXPECT_DOUBLE_EQ(p.clips()[1].rateMultiplier, 3.0);
}

// A project of one 1920×1080 clip.
class CropSheet : public ::testing::Test {
  protected:
    CropSheet() {
        auto c = clipAt(0, 4);
        c.naturalSize = {1920, 1080};
        project.setClips({c});
    }
    model::Project project;
};

TEST_F(CropSheet, CapsAreFortyFivePercentOfEachSideAndResetShowsWhileSomethingIsCropped) {
    app::CropSheet sheet(project);
    EXPECT_EQ(sheet.field(app::CropEdge::leading)->cap(), 864);
    EXPECT_EQ(sheet.field(app::CropEdge::trailing)->cap(), 864);
    EXPECT_EQ(sheet.field(app::CropEdge::top)->cap(), 486);
    EXPECT_EQ(sheet.field(app::CropEdge::bottom)->cap(), 486);
    EXPECT_TRUE(sheet.doneButton()->isDefault());
    EXPECT_EQ(sheet.outputText(), QStringLiteral("1920 × 1080 px"));
    EXPECT_TRUE(sheet.resetButton()->isHidden());
    project.setCropInsetTop(0.0001);  // rounds to 0 px
    EXPECT_TRUE(sheet.resetButton()->isHidden());
    project.setCropInsetTop(0.1);
    EXPECT_FALSE(sheet.resetButton()->isHidden());
    QTest::mouseClick(sheet.resetButton(), Qt::LeftButton);
    EXPECT_DOUBLE_EQ(project.cropInsetTop(), 0);

    model::Project sound;
    sound.setClips({clipAt(0, 4, false, true)});
    EXPECT_EQ(app::CropSheet(sound).field(app::CropEdge::top), nullptr) << "nothing to crop";
}

TEST_F(CropSheet, TypedValuesAndArrowsStayWithinZeroAndTheCapAndAreStoredAsFractions) {
    app::CropSheet sheet(project);
    auto* leading = sheet.field(app::CropEdge::leading);
    QTest::keyClick(leading, Qt::Key_Down);
    EXPECT_EQ(leading->value(), 0);
    leading->selectAll();
    QTest::keyClicks(leading, QStringLiteral("9999"));
    EXPECT_EQ(leading->text(), QStringLiteral("864"));
    EXPECT_DOUBLE_EQ(project.cropInsetLeading(), 864.0 / 1920);
    EXPECT_EQ(sheet.outputText(), QStringLiteral("1056 × 1080 px"));
    EXPECT_FALSE(project.canUndo());
    project.setCropInsetLeading(860.0 / 1920);
    QTest::keyClick(leading, Qt::Key_Up, Qt::ShiftModifier);
    EXPECT_EQ(leading->value(), 864);
    QTest::keyClick(leading, Qt::Key_Up);
    EXPECT_EQ(leading->value(), 864);
    QTest::keyClick(leading, Qt::Key_Down);
    EXPECT_EQ(leading->value(), 863);
}

TEST_F(CropSheet, LockTakesTheTopEdgeForAllFour) {
    project.setCropInsetTop(100.0 / 1080);
    project.setCropInsetBottom(50.0 / 1080);
    app::CropSheet sheet(project);
    EXPECT_FALSE(sheet.isLocked());
    QTest::mouseClick(sheet.lockButton(), Qt::LeftButton);
    EXPECT_TRUE(sheet.isLocked());
    EXPECT_DOUBLE_EQ(project.cropInsetBottom(), 100.0 / 1080);
    EXPECT_DOUBLE_EQ(project.cropInsetLeading(), 100.0 / 1920);
    // While locked, any edge sets all four, past the other edges' own caps.
    auto* leading = sheet.field(app::CropEdge::leading);
    leading->selectAll();
    QTest::keyClicks(leading, QStringLiteral("800"));
    EXPECT_EQ(sheet.field(app::CropEdge::top)->text(), QStringLiteral("800"));
    EXPECT_DOUBLE_EQ(project.cropInsetTop(), 800.0 / 1080);
}

model::ExportSheetState exportState(bool video) {
    model::ExportSheetState state;
    state.suggestedFilename = "intro";
    state.statusLine = "1 clip · 0:04 · Lossless ✓";
    state.availableFormats = video
                                 ? std::vector{model::ExportFormat::mp4, model::ExportFormat::mov}
                                 : std::vector{model::ExportFormat::m4a, model::ExportFormat::wav};
    state.initialFormat = video ? model::ExportFormat::mp4 : model::ExportFormat::m4a;
    return state;
}

TEST(ExportSheet, OffersTheProjectsFormatsRefusesBlankNamesAndTrimsOthers) {
    app::ExportSheet sound(exportState(false));
    EXPECT_EQ(sound.formatMenu()->currentText(), QStringLiteral("M4A (AAC)"));
    EXPECT_EQ(sound.formatMenu()->itemText(1), QStringLiteral("WAV"));
    app::ExportSheet sheet(exportState(true));
    EXPECT_EQ(sheet.formatMenu()->count(), 2);
    EXPECT_EQ(sheet.formatMenu()->currentText(), QStringLiteral("MP4"));
    EXPECT_EQ(sheet.formatMenu()->itemText(1), QStringLiteral("MOV"));
    EXPECT_TRUE(sheet.saveButton()->isDefault());
    std::optional<model::ExportSheetResult> handed;
    sheet.onContinue = [&](const model::ExportSheetResult& r) { handed = r; };
    sheet.show();
    sheet.filenameField()->setText(QStringLiteral("   "));
    EXPECT_FALSE(sheet.saveButton()->isEnabled());
    QTest::keyClick(sheet.filenameField(), Qt::Key_Return);
    EXPECT_FALSE(handed);
    sheet.filenameField()->setText(QStringLiteral("  final cut \n"));
    sheet.formatMenu()->setCurrentIndex(1);
    QTest::keyClick(sheet.filenameField(), Qt::Key_Return);
    ASSERT_TRUE(handed);
    EXPECT_EQ(handed->filename, "final cut");
    EXPECT_EQ(handed->format, model::ExportFormat::mov);
}

}  // namespace
