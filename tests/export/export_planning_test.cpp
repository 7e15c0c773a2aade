#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/export_planning.h"
#include "model/project.h"

namespace {

using model::Clip;
using model::ExportFormat;

Clip clip(double start, double length, std::string fingerprint = "v:1635148593:1920x1080",
          bool video = true) {
    Clip c;
    c.id = common::Uuid::random();
    c.displayName = "holiday.mov";
    c.hasVideo = video;
    c.hasAudio = true;
    c.naturalSize = video ? model::Size{1920, 1080} : model::Size{};
    c.frameRate = video ? 30 : 0;
    c.startOnTimeline = start;
    c.outSeconds = length;
    c.fullDurationSeconds = length;
    c.fingerprint = std::move(fingerprint);
    return c;
}

TEST(ExportPlanning, AnEmptyProjectOffersNothing) {
    model::Project p;
    EXPECT_FALSE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::statusLine(p), "Drop clips here");
    EXPECT_EQ(exporting::suggestedFilename(p), "Untitled - trimmed");
    exporting::beginExport(p);
    EXPECT_FALSE(p.exportSheet().has_value());
}

TEST(ExportPlanning, OneClipIsEligibleUnlessCropped) {
    model::Project p;
    p.setClips({clip(0, 61)});
    EXPECT_TRUE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::statusLine(p), "1 clip · 1:01 · Lossless ✓");
    p.setCropInsetTop(0.1);
    EXPECT_FALSE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::reEncodeReason(p), "cropped");
    EXPECT_EQ(exporting::statusLine(p), "1 clip · 1:01 · Re-encode (cropped)");
}

TEST(ExportPlanning, OverlapsBeyondAMillisecondEndEligibility) {
    model::Project p;
    p.setClips({clip(0, 10), clip(9.999, 5)});
    EXPECT_TRUE(exporting::passthroughEligible(p));
    p.setClips({clip(0, 10), clip(9.99, 5)});
    EXPECT_FALSE(exporting::passthroughEligible(p));
    EXPECT_EQ(exporting::reEncodeReason(p), "clips overlap");
}

TEST(ExportPlanning, TheFirstMatchingReasonWins) {
    model::Project p;
    p.setClips({clip(0, 5), clip(5, 5, "v:1752589105:1280x720")});
    p.setCropInsetBottom(0.2);
    EXPECT_EQ(exporting::reEncodeReason(p), "cropped");
}

TEST(ExportPlanning, DifferingFormatsAreCounted) {
    model::Project p;
    p.setClips({clip(0, 5), clip(5, 5, "v:1752589105:1280x720"), clip(10, 5, "missing")});
    EXPECT_EQ(exporting::reEncodeReason(p), "2 of 3 clips differ in format");
    EXPECT_EQ(exporting::statusLine(p),
              "3 clips · 0:15 · Re-encode (2 of 3 clips differ in format)");
}

TEST(ExportPlanning, FormatsFollowWhetherAnyClipHasVideo) {
    model::Project audio;
    audio.setClips({clip(0, 5, "a:1633772320", false)});
    EXPECT_EQ(exporting::availableFormats(audio),
              (std::vector<ExportFormat>{ExportFormat::m4a, ExportFormat::wav}));
    model::Project mixed;
    mixed.setClips({clip(0, 5, "a:1633772320", false), clip(5, 5)});
    EXPECT_EQ(exporting::availableFormats(mixed),
              (std::vector<ExportFormat>{ExportFormat::mp4, ExportFormat::mov}));
}

TEST(ExportPlanning, BeginExportPreparesTheSheet) {
    model::Project p;
    auto c = clip(0, 5);
    c.displayName = "trip.2024.mov";
    p.setClips({c});
    exporting::beginExport(p);
    ASSERT_TRUE(p.exportSheet().has_value());
    EXPECT_EQ(p.exportSheet()->suggestedFilename, "trip.2024 - trimmed");
    EXPECT_EQ(p.exportSheet()->initialFormat, ExportFormat::mp4);
    EXPECT_EQ(p.exportSheet()->statusLine, "1 clip · 0:05 · Lossless ✓");
    EXPECT_TRUE(p.isPresentingSheet());
    auto first = p.exportSheet()->id;
    exporting::beginExport(p);
    EXPECT_NE(p.exportSheet()->id, first);
}

}  // namespace
