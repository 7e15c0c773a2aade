#include "model/project.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/thread_pool_executor.h"
#include "fake_media_services.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::Project;
using model::ProjectField;
using model::VantrellSnapshotClip;
using model_test::clipAt;
using model_test::FakeMediaServices;
using model_test::Recorder;

// One finished edit, the way every operation makes one.
void edit(Project& p, const std::string& name, std::vector<Clip> clips) {
    p.recordSnapshot(name);
    p.setClips(std::move(clips));
    p.commitEdit();
}

// Derived values.

TEST(Project, TotalDurationIsTheLatestEndOnEitherRow) {
    Project p;
    EXPECT_EQ(p.totalDurationSeconds(), 0);
    Clip video = clipAt(0, 5, true, false);
    Clip audio = clipAt(2, 12, false, true);
    audio.rateMultiplier = 2;  // ends at 2 + 12 / 2
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone.mov", {}, 0, 3, 6});
    p.setClips({video, audio, placeholder});
    EXPECT_DOUBLE_EQ(p.totalDurationSeconds(), 9);
    p.setClips({video, audio});
    EXPECT_DOUBLE_EQ(p.totalDurationSeconds(), 8);
}

TEST(Project, AnyOpenSheetCountsAsPresenting) {
    Project p;
    EXPECT_FALSE(p.isPresentingSheet());
    p.setShowRetimeSheet(true);
    EXPECT_TRUE(p.isPresentingSheet());
    p.setShowRetimeSheet(false);
    p.setShowCropSheet(true);
    EXPECT_TRUE(p.isPresentingSheet());
    p.setShowCropSheet(false);
    p.setExportSheet(model::ExportSheetState{Uuid::random()});
    EXPECT_TRUE(p.isPresentingSheet());
    p.setExportSheet(std::nullopt);
    EXPECT_FALSE(p.isPresentingSheet());
}

// History.

TEST(Project, FortyOneRecordsKeepFortyAndDropTheFirst) {
    Project p;
    std::vector<std::vector<Clip>> states(1);
    for (int i = 1; i <= 41; ++i) {
        auto next = states.back();
        next.push_back(clipAt(i, 1));
        states.push_back(next);
        edit(p, "Edit " + std::to_string(i), next);
    }
    EXPECT_EQ(p.undoCount(), 40u);
    for (int i = 41; i >= 2; --i) {
        EXPECT_EQ(p.undoName(), "Edit " + std::to_string(i));
        p.undo();
    }
    EXPECT_FALSE(p.canUndo());
    EXPECT_EQ(p.clips(), states[1]) << "the state before the first record is out of reach";
}

TEST(Project, UndoAndRedoMoveTheClipsAndTheEntrysNameBetweenTheStacks) {
    Project p;
    Clip a = clipAt(0, 4);
    edit(p, "Import", {a});
    Clip trimmed = a;
    trimmed.inSeconds = 1;
    edit(p, "Trim In", {trimmed});

    p.undo();
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});
    EXPECT_EQ(p.redoName(), "Trim In");
    EXPECT_EQ(p.undoName(), "Import");
    p.redo();
    EXPECT_EQ(p.clips(), std::vector<Clip>{trimmed});
    EXPECT_EQ(p.undoName(), "Trim In");
    EXPECT_EQ(p.redoName(), std::nullopt);
    EXPECT_EQ(p.undoCount(), 2u);
    EXPECT_EQ(p.redoCount(), 0u);
}

TEST(Project, ANewEditAfterUndoLeavesNothingToRedo) {
    Project p;
    edit(p, "Import", {clipAt(0, 4)});
    edit(p, "Split", {clipAt(0, 2), clipAt(2, 2)});
    p.undo();
    ASSERT_TRUE(p.canRedo());
    std::vector<Clip> afterNudge{clipAt(1, 4)};
    edit(p, "Nudge Clip", afterNudge);
    EXPECT_FALSE(p.canRedo());

    auto token = p.compositionToken();
    p.redo();
    EXPECT_EQ(p.clips(), afterNudge);
    EXPECT_EQ(p.compositionToken(), token);
}

TEST(Project, UndoAndRedoOnEmptyStacksDoNothingAtAll) {
    Project p;
    p.setClips({clipAt(0, 2)});
    p.setPlayheadGlobal(50);
    Recorder r(p);
    p.undo();
    p.redo();
    EXPECT_TRUE(r.fields.empty());
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(p.compositionToken(), 0);
    EXPECT_EQ(p.playheadGlobal(), 50) << "no clamp either";
}

TEST(Project, UndoAndRedoEachRaiseTheTokenWhichIsNeverReset) {
    Project p;
    edit(p, "Import", {clipAt(0, 4)});
    EXPECT_EQ(p.compositionToken(), 1);
    p.undo();
    EXPECT_EQ(p.compositionToken(), 2);
    p.redo();
    EXPECT_EQ(p.compositionToken(), 3);
    p.undo();
    EXPECT_EQ(p.compositionToken(), 4);
}

TEST(Project, HistoryLeavesSelectionFramingAndZoomAlone) {
    Project p;
    Clip a = clipAt(0, 10);
    edit(p, "Import", {a});
    p.setSelectedClipID(a.id);
    p.setZoomFactor(3);
    p.setSmallClipMode(model::SmallClipMode::fill);
    p.setCropInsetTop(0.25);
    p.setPlayheadGlobal(2);
    edit(p, "Delete Clip", {});
    p.setPlayheadGlobal(0);

    p.undo();
    EXPECT_EQ(p.selectedClipID(), a.id);
    EXPECT_EQ(p.zoomFactor(), 3);
    EXPECT_EQ(p.smallClipMode(), model::SmallClipMode::fill);
    EXPECT_EQ(p.cropInsetTop(), 0.25);
    EXPECT_EQ(p.playheadGlobal(), 0);
}

TEST(Project, ASelectionNamingAnUndoneClipStaysAsItIs) {
    Project p;
    Clip a = clipAt(0, 4);
    edit(p, "Import", {a});
    p.setSelectedClipID(a.id);
    p.undo();
    EXPECT_TRUE(p.clips().empty());
    EXPECT_EQ(p.selectedClipID(), a.id);
    EXPECT_EQ(p.clip(a.id), nullptr);
}

TEST(Project, HistoryEntriesShareImagesWithTheLiveClips) {
    Project p;
    Clip a = clipAt(0, 4);
    a.thumbnail = std::make_shared<const model::ImageData>();
    a.waveformPeaks = std::make_shared<const std::vector<float>>(1000, 0.5f);
    p.setClips({a});
    p.recordSnapshot("Trim In");
    const Clip& saved = p.undoStack().back().clips.at(0);
    EXPECT_EQ(saved.thumbnail.get(), p.clips()[0].thumbnail.get());
    EXPECT_EQ(saved.waveformPeaks.get(), p.clips()[0].waveformPeaks.get());
}

// The playhead clamp.

TEST(Project, UndoDoesNotMoveThePlayheadForwardAgain) {
    Project p;
    edit(p, "Import", {clipAt(0, 10)});
    p.setPlayheadGlobal(9);
    edit(p, "Trim Out", {clipAt(0, 4)});
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001);
    p.undo();
    EXPECT_DOUBLE_EQ(p.totalDurationSeconds(), 10);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001);
}

TEST(Project, ThePlayheadClampsToZeroWhenTheLastClipGoes) {
    Project p;
    edit(p, "Import", {clipAt(0, 10)});
    p.setPlayheadGlobal(5);
    edit(p, "Delete Clip", {});
    EXPECT_EQ(p.playheadGlobal(), 0);
}

TEST(Project, APlayheadInsideTheTimelineStaysPut) {
    Project p;
    edit(p, "Import", {clipAt(0, 10)});
    p.setPlayheadGlobal(9.998);
    edit(p, "Nudge Clip", {clipAt(0.5, 10)});
    EXPECT_EQ(p.playheadGlobal(), 9.998);
    p.setPlayheadGlobal(10.4);
    p.undo();
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 10 - 0.001);
}

// Live edits.

TEST(Project, CommitEditRaisesTheTokenThenClampsThenClearsTheTrimState) {
    Project p;
    Clip a = clipAt(0, 10);
    p.setClips({a});
    p.setPlayheadGlobal(8);
    p.setTrimReadout(
        model::TrimReadoutInfo{a.id, model::TrimReadoutInfo::Edge::out, 4, 4, 120, true});
    p.setTrimPreview(model::TrimPreviewState{"/media/clip.mov", 4});
    p.setTrimSnappedClipID(a.id);

    p.recordSnapshot("Trim Out");
    Clip trimmed = a;
    trimmed.outSeconds = 4;
    p.setClips({trimmed});

    std::vector<ProjectField> order;
    p.addObserver([&](ProjectField f) { order.push_back(f); });
    double playheadSeenByDidChange = -1;
    bool readoutSeenByDidChange = false;
    p.didChange = [&] {
        playheadSeenByDidChange = p.playheadGlobal();
        readoutSeenByDidChange = p.trimReadout().has_value();
    };
    auto token = p.compositionToken();
    p.commitEdit();

    EXPECT_EQ(p.compositionToken(), token + 1);
    EXPECT_EQ(order, (std::vector<ProjectField>{
                         ProjectField::compositionToken, ProjectField::playheadGlobal,
                         ProjectField::trimReadout, ProjectField::trimSnappedClipID,
                         ProjectField::trimPreview}));
    EXPECT_EQ(playheadSeenByDidChange, 8);
    EXPECT_TRUE(readoutSeenByDidChange);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001);
    EXPECT_FALSE(p.trimReadout());
    EXPECT_FALSE(p.trimPreview());
    EXPECT_FALSE(p.trimSnappedClipID());
}

TEST(Project, WritesDuringADragRaiseNoTokenUntilCommit) {
    Project p;
    Clip a = clipAt(0, 10);
    p.setClips({a});
    p.recordSnapshot("Trim In");
    for (double in : {0.5, 1.0, 1.5}) p.updateClip(a.id, [&](Clip& c) { c.inSeconds = in; });
    EXPECT_EQ(p.compositionToken(), 0);
    p.commitEdit();
    EXPECT_EQ(p.compositionToken(), 1);
    EXPECT_EQ(p.undoCount(), 1u);
    p.undo();
    EXPECT_EQ(p.clips()[0].inSeconds, 0) << "the whole drag is one step";
}

// Observation.

TEST(Project, WritingTheValueAFieldAlreadyHasTellsNothing) {
    Project p;
    Clip a = clipAt(0, 4);
    auto writeAll = [&](const Clip& c) {
        p.setClips({c});
        p.setSelectedClipIDs({a.id});
        p.setSelectionAnchor(a.id);
        p.setSelectedGap(model::GapSelection{true, 1, 2});
        p.setPlayheadGlobal(1.5);
        p.setIsExporting(false);
        p.setExportProgress(0);
        p.setExportMessage("Exporting");
        p.setShowRetimeSheet(false);
        p.setShowCropSheet(false);
        p.setExportSheet(std::nullopt);
        p.setZoomFactor(1.0);
        p.setTrimReadout(
            model::TrimReadoutInfo{a.id, model::TrimReadoutInfo::Edge::in, 1, 1, 30, true});
        p.setTrimPreview(model::TrimPreviewState{"/media/clip.mov", 1});
        p.setTrimSnappedClipID(std::nullopt);
        p.setIsPlaying(false);
        p.setDragLandingX(40);
        p.setFooterHeight(282.0);
    };
    a.waveformPeaks = std::make_shared<const std::vector<float>>(std::vector<float>{0.2f, 0.4f});
    writeAll(a);

    Recorder r(p);
    Clip sameValues = a;
    sameValues.waveformPeaks =
        std::make_shared<const std::vector<float>>(std::vector<float>{0.2f, 0.4f});
    writeAll(sameValues);
    EXPECT_TRUE(r.fields.empty());
    EXPECT_EQ(r.didChangeCalls, 0);
}

TEST(Project, AChangedValueTellsItsFieldOnce) {
    Project p;
    Clip a = clipAt(0, 4);
    const std::vector<std::pair<ProjectField, std::function<void()>>> writes = {
        {ProjectField::clips, [&] { p.setClips({a}); }},
        {ProjectField::selectedClipIDs, [&] { p.setSelectedClipIDs({a.id}); }},
        {ProjectField::selectionAnchor, [&] { p.setSelectionAnchor(a.id); }},
        {ProjectField::selectedGap,
         [&] {
             p.setSelectedGap(model::GapSelection{false, 0, 1});
         }},
        {ProjectField::playheadGlobal, [&] { p.setPlayheadGlobal(2); }},
        {ProjectField::isExporting, [&] { p.setIsExporting(true); }},
        {ProjectField::exportProgress, [&] { p.setExportProgress(0.5); }},
        {ProjectField::exportMessage, [&] { p.setExportMessage("Done"); }},
        {ProjectField::showRetimeSheet, [&] { p.setShowRetimeSheet(true); }},
        {ProjectField::showCropSheet, [&] { p.setShowCropSheet(true); }},
        {ProjectField::exportSheet,
         [&] { p.setExportSheet(model::ExportSheetState{Uuid::random()}); }},
        {ProjectField::zoomFactor, [&] { p.setZoomFactor(2); }},
        {ProjectField::trimSnappedClipID, [&] { p.setTrimSnappedClipID(a.id); }},
        {ProjectField::isPlaying, [&] { p.setIsPlaying(true); }},
        {ProjectField::dragLandingX, [&] { p.setDragLandingX(12); }},
        {ProjectField::footerHeight, [&] { p.setFooterHeight(300); }},
        {ProjectField::cropInsetLeading, [&] { p.setCropInsetLeading(0.1); }},
    };
    for (const auto& [field, write] : writes) {
        std::vector<ProjectField> told;
        auto id = p.addObserver([&](ProjectField f) { told.push_back(f); });
        write();
        EXPECT_EQ(told, std::vector<ProjectField>{field}) << static_cast<int>(field);
        p.removeObserver(id);
    }
}

TEST(Project, ClipsAreComparedOverEveryField) {
    Project p;
    Clip a = clipAt(0, 4);
    p.setClips({a});
    Recorder r(p);
    Clip longer = a;
    longer.outSeconds = 5;
    p.setClips({longer});
    EXPECT_EQ(r.count(ProjectField::clips), 1u);
    p.setClips({longer, a});
    EXPECT_EQ(r.count(ProjectField::clips), 2u);
    p.setClips({a, longer});
    EXPECT_EQ(r.count(ProjectField::clips), 3u) << "order is part of the value";
}

TEST(Project, AnInPlaceClipWriteTellsEveryTime) {
    Project p;
    Clip a = clipAt(0, 4);
    p.setClips({a});
    Recorder r(p);
    EXPECT_TRUE(p.updateClip(a.id, [](Clip&) {}));
    EXPECT_TRUE(p.updateClip(a.id, [](Clip&) {}));
    EXPECT_EQ(r.count(ProjectField::clips), 2u);
    EXPECT_FALSE(p.updateClip(Uuid::random(), [](Clip&) {}));
    EXPECT_EQ(r.count(ProjectField::clips), 2u);
}

TEST(Project, TheExportSheetIsComparedByIdAlone) {
    Project p;
    model::ExportSheetState sheet{
        Uuid::random(), "Holiday", "Lossless", {model::ExportFormat::mp4}};
    p.setExportSheet(sheet);
    Recorder r(p);

    model::ExportSheetState updated = sheet;
    updated.statusLine = "Re-encode";
    p.setExportSheet(updated);
    EXPECT_TRUE(r.fields.empty());
    EXPECT_EQ(p.exportSheet()->statusLine, "Re-encode") << "a quiet write still stores";

    p.setExportSheet(model::ExportSheetState{Uuid::random(), "Holiday"});
    EXPECT_EQ(r.count(ProjectField::exportSheet), 1u);
    p.setExportSheet(std::nullopt);
    EXPECT_EQ(r.count(ProjectField::exportSheet), 2u);
    p.setExportSheet(std::nullopt);
    EXPECT_EQ(r.count(ProjectField::exportSheet), 2u);
}

TEST(Project, TrimReadoutIsComparedOverAllFields) {
    Project p;
    model::TrimReadoutInfo info{Uuid::random(), model::TrimReadoutInfo::Edge::in, 1, 2, 30, true};
    p.setTrimReadout(info);
    Recorder r(p);
    info.cursorX = 31;
    p.setTrimReadout(info);
    info.edge = model::TrimReadoutInfo::Edge::out;
    p.setTrimReadout(info);
    EXPECT_EQ(r.count(ProjectField::trimReadout), 2u);
}

TEST(Project, ARemovedObserverHearsNothingAndOneMayLeaveWhileBeingTold) {
    Project p;
    int first = 0, second = 0;
    Project::ObserverID selfRemoving = 0;
    selfRemoving = p.addObserver([&](ProjectField) {
        ++first;
        p.removeObserver(selfRemoving);
    });
    auto other = p.addObserver([&](ProjectField) { ++second; });
    p.setZoomFactor(2);
    p.setZoomFactor(3);
    p.removeObserver(other);
    p.setZoomFactor(4);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

// didChange.

TEST(Project, ARaisedTokenCallsDidChangeWhileTheOldTokenIsStillInPlace) {
    Project p;
    std::vector<std::int64_t> seen;
    p.didChange = [&] { seen.push_back(p.compositionToken()); };
    p.raiseCompositionToken();
    p.raiseCompositionToken();
    EXPECT_EQ(seen, (std::vector<std::int64_t>{0, 1}));
    EXPECT_EQ(p.compositionToken(), 2);
}

TEST(Project, AnInsetWriteAlwaysCallsDidChangeBeforeStoringAndRaisesNoToken) {
    Project p;
    const std::vector<std::pair<void (Project::*)(double), double (Project::*)() const>> insets = {
        {&Project::setCropInsetTop, &Project::cropInsetTop},
        {&Project::setCropInsetLeading, &Project::cropInsetLeading},
        {&Project::setCropInsetTrailing, &Project::cropInsetTrailing},
        {&Project::setCropInsetBottom, &Project::cropInsetBottom},
    };
    for (const auto& [set, get] : insets) {
        Recorder fields(p);
        std::vector<double> seen;
        p.didChange = [&, get = get] { seen.push_back((p.*get)()); };
        (p.*set)(0.2);
        (p.*set)(0.2);
        EXPECT_EQ(seen, (std::vector<double>{0.0, 0.2}))
            << "the same value still marks the document";
        EXPECT_EQ(fields.fields.size(), 1u);
        EXPECT_EQ((p.*get)(), 0.2);
    }
    EXPECT_EQ(p.compositionToken(), 0);
}

TEST(Project, AFramingModeWriteCallsDidChangeAndOnlyAChangeRaisesTheToken) {
    Project p;
    Recorder r(p);
    p.setSmallClipMode(model::SmallClipMode::proportional);
    EXPECT_EQ(r.didChangeCalls, 1) << "the same mode still marks the document";
    EXPECT_EQ(p.compositionToken(), 0);
    EXPECT_TRUE(r.fields.empty());

    std::vector<model::SmallClipMode> modesSeen;
    p.didChange = [&] { modesSeen.push_back(p.smallClipMode()); };
    p.setSmallClipMode(model::SmallClipMode::centerNative);
    EXPECT_EQ(p.compositionToken(), 1);
    ASSERT_FALSE(modesSeen.empty());
    EXPECT_EQ(modesSeen.front(), model::SmallClipMode::proportional);
    EXPECT_EQ(r.count(ProjectField::smallClipMode), 1u);
    EXPECT_EQ(r.count(ProjectField::compositionToken), 1u);
}

TEST(Project, SelectionPlayheadZoomAndLayoutDoNotMarkTheDocument) {
    Project p;
    Clip a = clipAt(0, 4);
    Recorder r(p);
    p.setClips({a});
    p.setSelectedClipID(a.id);
    p.setSelectedGap(model::GapSelection{false, 4, 5});
    p.setPlayheadGlobal(1);
    p.setZoomFactor(4);
    p.setFooterHeight(200);
    p.setIsPlaying(true);
    p.setShowCropSheet(true);
    p.recordSnapshot("Trim In");
    EXPECT_EQ(r.didChangeCalls, 0);
}

// The selection's accessors.

TEST(Project, SelectedClipIDIsTheSelectedAnchorElseSomeMember) {
    Project p;
    Uuid a = Uuid::random(), b = Uuid::random(), c = Uuid::random();
    p.setSelectionAnchor(a);
    EXPECT_FALSE(p.selectedClipID()) << "an empty selection, whatever the anchor";
    p.setSelectedClipIDs({a, b, c});
    p.setSelectionAnchor(b);
    EXPECT_EQ(p.selectedClipID(), b);

    p.setSelectedClipIDs({a, b});
    p.setSelectionAnchor(Uuid::random());
    auto id = p.selectedClipID();
    ASSERT_TRUE(id);
    EXPECT_TRUE(*id == a || *id == b);
    p.setSelectionAnchor(std::nullopt);
    EXPECT_TRUE(p.selectedClipID());
}

TEST(Project, SettingSelectedClipIDReplacesTheSelectionAndClearsAGap) {
    Project p;
    Uuid a = Uuid::random(), b = Uuid::random(), c = Uuid::random();
    p.setSelectedClipIDs({a, b});
    p.setSelectionAnchor(a);
    p.setSelectedGap(model::GapSelection{true, 1, 2});
    p.setSelectedClipID(c);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{c});
    EXPECT_EQ(p.selectionAnchor(), c);
    EXPECT_FALSE(p.selectedGap());
    {
        Recorder r(p);
        p.setSelectedClipID(c);
        EXPECT_TRUE(r.fields.empty()) << "the same clip again";
    }

    p.setSelectedGap(model::GapSelection{false, 3, 4});
    p.setSelectedClipID(std::nullopt);
    EXPECT_TRUE(p.selectedClipIDs().empty());
    EXPECT_FALSE(p.selectionAnchor());
    EXPECT_FALSE(p.selectedGap());
}

// Saving.

model::VantrellSnapshotClip recordOf(const Project& p, std::size_t i = 0) {
    return p.makeSnapshot().clips.at(i);
}

TEST(Project, ANewProjectSavesOnlyWhatIsRequired) {
    Project p;
    model::VantrellSnapshot s = p.makeSnapshot();
    EXPECT_EQ(s.version, 1);
    EXPECT_TRUE(s.clips.empty());
    EXPECT_EQ(s.playheadGlobal, 0);
    EXPECT_EQ(s.zoomFactor, 1);
    EXPECT_FALSE(s.preferLossless);
    EXPECT_FALSE(s.smallClipMode);
    EXPECT_FALSE(s.cropInsetTop);
    EXPECT_FALSE(s.cropInsetLeading);
    EXPECT_FALSE(s.cropInsetTrailing);
    EXPECT_FALSE(s.cropInsetBottom);
}

TEST(Project, ARateWithinOneTenThousandthOfNormalIsNotSaved) {
    Project p;
    const std::vector<std::pair<double, bool>> rates = {{1.0, false},     {1.00005, false},
                                                        {0.99995, false}, {1.0002, true},
                                                        {0.9998, true},   {2.0, true}};
    for (const auto& [rate, saved] : rates) {
        Clip c = clipAt(0, 4);
        c.rateMultiplier = rate;
        p.setClips({c});
        EXPECT_EQ(recordOf(p).rateMultiplier, saved ? std::optional(rate) : std::nullopt) << rate;
    }
}

TEST(Project, DefaultMaskAndForwardPlayAreNotSaved) {
    Project p;
    Clip c = clipAt(0, 4);
    p.setClips({c});
    EXPECT_FALSE(recordOf(p).streamMask);
    EXPECT_FALSE(recordOf(p).isReversed);

    c.streamMask = model::StreamMask::audioOnly;
    c.isReversed = true;
    c.forwardInSeconds = 0;
    c.forwardOutSeconds = 4;
    c.reversedURL = "/tmp/vantrell-reversed-1.mov";
    p.setClips({c});
    auto r = recordOf(p);
    EXPECT_EQ(r.streamMask, model::StreamMask::audioOnly);
    EXPECT_EQ(r.isReversed, true);
    EXPECT_EQ(r.forwardInSeconds, 0);
    EXPECT_EQ(r.forwardOutSeconds, 4);
    EXPECT_EQ(r.url, "/media/clip.mov") << "a reversed clip saves its forward media";
}

TEST(Project, OnlyNonZeroInsetsAndANonDefaultModeAreSaved) {
    Project p;
    p.setCropInsetTop(0.0001);
    p.setCropInsetBottom(0.0);
    p.setSmallClipMode(model::SmallClipMode::fill);
    auto s = p.makeSnapshot();
    EXPECT_EQ(s.cropInsetTop, 0.0001);
    EXPECT_FALSE(s.cropInsetBottom);
    EXPECT_EQ(s.smallClipMode, model::SmallClipMode::fill);
    p.setSmallClipMode(model::SmallClipMode::proportional);
    EXPECT_FALSE(p.makeSnapshot().smallClipMode);
}

TEST(Project, PreferLosslessFromAnOlderFileIsDroppedOnSave) {
    auto opened = model::decodeSnapshot(
        R"({"version": 1, "clips": [], "playheadGlobal": 0, "zoomFactor": 1, "preferLossless": true})");
    ASSERT_TRUE(opened.ok());
    Project p;
    p.applySnapshotEagerly(*opened);
    auto text = model::encodeSnapshot(p.makeSnapshot());
    ASSERT_TRUE(text.ok());
    EXPECT_EQ(text->find("preferLossless"), std::string::npos);
}

TEST(Project, ApplyingASnapshotSetsViewStateAndLeavesClipsAlone) {
    Project p;
    Clip a = clipAt(0, 4);
    p.setClips({a});
    model::VantrellSnapshot s;
    s.clips = {model::snapshotRecord(clipAt(0, 9))};
    s.playheadGlobal = 12.5;
    s.zoomFactor = 4;
    s.smallClipMode = model::SmallClipMode::centerNative;
    s.cropInsetTop = 0.1;
    s.cropInsetLeading = 0.2;
    s.cropInsetTrailing = 0.3;
    s.cropInsetBottom = 0.4;
    p.applySnapshotEagerly(s);
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});
    EXPECT_EQ(p.playheadGlobal(), 12.5) << "no clamp before the clips arrive";
    EXPECT_EQ(p.zoomFactor(), 4);
    EXPECT_EQ(p.smallClipMode(), model::SmallClipMode::centerNative);
    EXPECT_EQ(p.cropInsetTop(), 0.1);
    EXPECT_EQ(p.cropInsetLeading(), 0.2);
    EXPECT_EQ(p.cropInsetTrailing(), 0.3);
    EXPECT_EQ(p.cropInsetBottom(), 0.4);

    p.applySnapshotEagerly(model::VantrellSnapshot{});
    EXPECT_EQ(p.smallClipMode(), model::SmallClipMode::proportional);
    EXPECT_EQ(p.cropInsetTop(), 0);
    EXPECT_EQ(p.cropInsetBottom(), 0);
}

// Work with media.

class ProjectTest : public model_test::MediaProjectTest {
  protected:
    // Clip writes then come from the edits alone.
    ProjectTest() { media->findNoEnrichment(); }
};

// Import.

TEST_F(ProjectTest, ImportingNothingRecordsNothing) {
    Recorder r(project);
    project.importURLs({});
    executor.drain();
    EXPECT_FALSE(project.canUndo());
    EXPECT_EQ(project.compositionToken(), 0);
    EXPECT_TRUE(r.fields.empty());
    EXPECT_EQ(r.didChangeCalls, 0);
}

TEST_F(ProjectTest, ABatchLandsEndToEndInListOrderAndTheFirstIsSelected) {
    media->add("/m/a.mov", 4);
    media->add("/m/b.wav", 2.5, false, true);
    media->add("/m/c.mov", 1);
    project.importURLs({"/m/a.mov", "/m/b.wav", "/m/c.mov"});
    EXPECT_TRUE(project.clips().empty()) << "nothing lands before the owner runs";
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_EQ(clips[0].displayName, "a.mov");
    EXPECT_EQ(clips[1].displayName, "b.wav");
    EXPECT_EQ(clips[2].displayName, "c.mov");
    EXPECT_EQ(clips[0].startOnTimeline, 0);
    EXPECT_EQ(clips[1].startOnTimeline, 4);
    EXPECT_EQ(clips[2].startOnTimeline, 6.5);
    EXPECT_EQ(clips[0].bookmark, FakeMediaServices::bookmarkFor("/m/a.mov"));
    EXPECT_NE(clips[0].id, clips[1].id);
    EXPECT_NE(clips[1].id, clips[2].id);
    EXPECT_EQ(project.selectedClipID(), clips[0].id);
    EXPECT_EQ(project.compositionToken(), 3);
    EXPECT_EQ(project.undoCount(), 1u);
    EXPECT_EQ(project.undoName(), "Import");
}

TEST_F(ProjectTest, ImportLandsBehindWhateverEndsLastAndLeavesASelectionAlone) {
    media->add("/m/a.mov", 4);
    Clip existing = clipAt(0, 2);
    Clip audioOnly = clipAt(3, 7, false, true);
    project.setClips({existing, audioOnly});
    project.setSelectedClipID(existing.id);
    project.importURLs({"/m/a.mov"});
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(project.clips()[2].startOnTimeline, 10);
    EXPECT_EQ(project.selectedClipID(), existing.id);
}

TEST_F(ProjectTest, AFailingMiddleFileIsLoggedAndLeavesNoGap) {
    media->add("/m/a.mov", 4);
    media->add("/m/c.mov", 2);
    Recorder r(project);
    project.importURLs({"/m/a.mov", "/m/broken file.mov", "/m/c.mov"});
    std::string log = drainCapturingLog();

    EXPECT_EQ(log, "Vantrell: failed to import broken file.mov: " +
                       std::string(FakeMediaServices::kProbeFailure) + "\n");
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.clips()[1].displayName, "c.mov");
    EXPECT_EQ(project.clips()[1].startOnTimeline, 4);
    EXPECT_EQ(project.compositionToken(), 2) << "one token per accepted clip";
    EXPECT_EQ(r.count(ProjectField::compositionToken), 2u);
}

TEST_F(ProjectTest, OneUndoRemovesTheWholeBatch) {
    media->add("/m/a.mov", 4);
    media->add("/m/b.mov", 4);
    Clip existing = clipAt(0, 2);
    project.setClips({existing});
    project.importURLs({"/m/a.mov", "/m/b.mov"});
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    project.undo();
    EXPECT_EQ(project.clips(), std::vector<Clip>{existing});
    EXPECT_FALSE(project.canUndo());
    project.redo();
    EXPECT_EQ(project.clips().size(), 3u);
}

TEST_F(ProjectTest, ABatchWhereEveryFileFailsKeepsItsHistoryEntry) {
    project.importURLs({"/m/x.mov", "/m/y.mov"});
    std::string log = drainCapturingLog();
    EXPECT_NE(log.find("failed to import x.mov"), std::string::npos);
    EXPECT_NE(log.find("failed to import y.mov"), std::string::npos);
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(project.compositionToken(), 0);
    EXPECT_EQ(project.undoName(), "Import");
    project.undo();
    EXPECT_TRUE(project.clips().empty());
}

TEST_F(ProjectTest, EachClipOfABatchSeesTheProjectAsItStandsWhenItArrives) {
    media->add("/m/a.mov", 4);
    media->add("/m/b.mov", 1);
    Clip longClip = clipAt(0, 20);
    bool inserted = false;
    project.addObserver([&](ProjectField f) {
        // The user adds a long clip and selects it once the first import has landed.
        if (f != ProjectField::compositionToken || inserted) return;
        inserted = true;
        auto clips = project.clips();
        clips.push_back(longClip);
        project.setClips(clips);
        project.setSelectedClipID(longClip.id);
    });
    project.importURLs({"/m/a.mov", "/m/b.mov"});
    executor.drain();
    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(project.clips()[2].displayName, "b.mov");
    EXPECT_EQ(project.clips()[2].startOnTimeline, 20);
    EXPECT_EQ(project.selectedClipID(), longClip.id);
}

TEST(ProjectLifetime, AProjectDestroyedBeforeItsWorkLandsIsLeftAlone) {
    const std::vector<std::pair<const char*, std::function<void(Project&)>>> starts = {
        {"import",
         [](Project& p) {
             p.importURLs({"/m/a.mov", "/m/b.mov"});
         }},
        {"hydration",
         [](Project& p) {
             p.hydrateClips({{Uuid::random(), "/m/a.mov", {}, 0, 4, 0}});
         }},
    };
    for (const auto& [name, start] : starts) {
        SCOPED_TRACE(name);
        auto media = std::make_shared<FakeMediaServices>();
        media->add("/m/a.mov", 4);
        common::ThreadPoolExecutor executor(2);
        auto project = std::make_unique<Project>(model::ProjectContext{&executor, media});
        start(*project);
        project.reset();
        executor.drain();
    }
}

// Hydration.

VantrellSnapshotClip record(const std::filesystem::path& url, double in, double out, double start) {
    VantrellSnapshotClip r;
    r.id = Uuid::random();
    r.url = url;
    r.inSeconds = in;
    r.outSeconds = out;
    r.startOnTimeline = start;
    return r;
}

TEST_F(ProjectTest, HydrationAssignsEveryClipInFileOrderInOneStep) {
    media->add("/m/a.mov", 10);
    media->add("/m/b.mov", 10);
    auto ra = record("/m/a.mov", 1, 3, 5);
    auto rb = record("/m/b.mov", 0, 2, 0);
    Recorder r(project);
    project.hydrateClips({ra, rb});
    EXPECT_TRUE(project.clips().empty());
    EXPECT_TRUE(project.isHydrating());
    executor.drain();
    EXPECT_FALSE(project.isHydrating());
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.clips()[0].id, ra.id);
    EXPECT_EQ(project.clips()[1].id, rb.id);
    EXPECT_EQ(r.count(ProjectField::clips), 1u);
    EXPECT_EQ(project.compositionToken(), 1);
}

TEST_F(ProjectTest, HydrationOverwritesEditFieldsFromTheRecord) {
    media->add("/m/a.mov", 3);
    auto rec = record("/m/a.mov", 1, 8, 5);  // the file got shorter since it was saved
    rec.streamMask = model::StreamMask::videoOnly;
    rec.linkGroupID = Uuid::random();
    rec.rateMultiplier = 2;
    rec.isReversed = true;
    rec.forwardInSeconds = 0.5;
    rec.forwardOutSeconds = 2.5;
    project.hydrateClips({rec});
    drainCapturingLog();

    ASSERT_EQ(project.clips().size(), 1u);
    const Clip& c = project.clips()[0];
    EXPECT_FALSE(c.isMissing);
    EXPECT_EQ(c.id, rec.id);
    EXPECT_EQ(c.fullDurationSeconds, 3);
    EXPECT_EQ(c.fingerprint, "v:1635148593:1280x720");
    EXPECT_EQ(c.inSeconds, 1);
    EXPECT_EQ(c.outSeconds, 8);
    EXPECT_EQ(c.startOnTimeline, 5);
    EXPECT_EQ(c.streamMask, model::StreamMask::videoOnly);
    EXPECT_EQ(c.linkGroupID, rec.linkGroupID);
    EXPECT_EQ(c.rateMultiplier, 2);
    EXPECT_TRUE(c.isReversed);
    EXPECT_EQ(c.forwardInSeconds, 0.5);
    EXPECT_EQ(c.forwardOutSeconds, 2.5);
}

TEST_F(ProjectTest, AbsentRecordFieldsHydrateToTheirDefaults) {
    media->add("/m/a.mov", 3);
    auto rec = record("/m/a.mov", 0, 3, 0);
    rec.isReversed = false;
    project.hydrateClips({rec});
    executor.drain();
    const Clip& c = project.clips().at(0);
    EXPECT_EQ(c.streamMask, model::StreamMask::both);
    EXPECT_EQ(c.rateMultiplier, 1.0);
    EXPECT_FALSE(c.isReversed);
    EXPECT_FALSE(recordOf(project).isReversed) << "an explicit false is not written back";
}

TEST_F(ProjectTest, MissingMediaBecomesAPlaceholderWithALogLine) {
    media->add("/m/a.mov", 3);
    auto lost = record("/m/Lost Take.mov", 1, 2, 3);
    lost.bookmark = model::Bytes{'?'};
    lost.isReversed = true;
    lost.forwardInSeconds = 0;
    lost.forwardOutSeconds = 1;
    project.hydrateClips({record("/m/a.mov", 0, 3, 0), lost});
    std::string log = drainCapturingLog();

    EXPECT_EQ(log,
              "Vantrell: missing media for Lost Take.mov \xE2\x80\x94 preserving as placeholder\n");
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_FALSE(project.clips()[0].isMissing);
    EXPECT_EQ(project.clips()[1], Clip::missingPlaceholder(lost));
    EXPECT_EQ(recordOf(project, 1), lost) << "a placeholder saves exactly what it was given";
}

TEST_F(ProjectTest, EveryFileGoneStillOpens) {
    project.hydrateClips({record("/m/x.mov", 0, 0, 0), record("/m/y.mov", 0, 1, 0)});
    drainCapturingLog();
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_TRUE(project.clips()[0].isMissing);
    EXPECT_EQ(project.clips()[0].fullDurationSeconds, 0.01);
    EXPECT_TRUE(project.clips()[1].isMissing);
    EXPECT_EQ(project.compositionToken(), 1);
}

TEST_F(ProjectTest, ABookmarkFindsAMovedFileWhoseNewPlaceIsSavedNext) {
    media->add("/new/a.mov", 5);
    auto rec = record("/old/a.mov", 0, 5, 0);
    rec.bookmark = model::Bytes{'b', 'm'};
    media->moveBookmarkTarget(*rec.bookmark, "/new/a.mov");
    project.hydrateClips({rec});
    executor.drain();
    const Clip& c = project.clips().at(0);
    EXPECT_FALSE(c.isMissing);
    EXPECT_EQ(c.url, "/new/a.mov");
    EXPECT_EQ(c.bookmark, rec.bookmark) << "the stored bookmark goes on unchanged";
    EXPECT_EQ(recordOf(project).url, "/new/a.mov");
}

TEST_F(ProjectTest, AnUnresolvableBookmarkFallsBackToTheStoredURL) {
    media->add("/m/a.mov", 5);
    auto rec = record("/m/a.mov", 0, 5, 0);
    rec.bookmark = model::Bytes{'x'};
    project.setFileLocation("/projects/film/cut.vantrell");
    project.hydrateClips({rec});
    executor.drain();
    EXPECT_FALSE(project.clips().at(0).isMissing);
    EXPECT_EQ(project.clips()[0].url, "/m/a.mov");
    EXPECT_EQ(media->lastProjectFolder(), std::filesystem::path("/projects/film"))
        << "the resolver is offered the project's folder";
}

TEST_F(ProjectTest, TheLogNamesTheResolvedFileButThePlaceholderKeepsTheStoredOne) {
    auto rec = record("/old/a.mov", 0, 5, 0);
    rec.bookmark = model::Bytes{'b', 'm'};
    media->moveBookmarkTarget(*rec.bookmark, "/new/renamed.mov");
    project.hydrateClips({rec});
    std::string log = drainCapturingLog();
    EXPECT_NE(log.find("missing media for renamed.mov "), std::string::npos) << log;
    EXPECT_EQ(project.clips().at(0).url, "/old/a.mov");
}

TEST_F(ProjectTest, HydratingNothingStillRaisesTheTokenOnce) {
    Recorder r(project);
    project.hydrateClips({});
    executor.drain();
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(r.didChangeCalls, 1);
    EXPECT_TRUE(project.clips().empty());
}

TEST_F(ProjectTest, HydrationEmptiesTheHistoryAndReplacesClipsAddedMeanwhile) {
    media->add("/m/a.mov", 5);
    project.hydrateClips({record("/m/a.mov", 0, 5, 0)});
    edit(project, "Paste", {clipAt(0, 9)});
    edit(project, "Nudge Clip", {clipAt(1, 9)});
    project.undo();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 1u);
    EXPECT_EQ(project.clips()[0].url, "/m/a.mov");
    EXPECT_FALSE(project.canUndo());
    EXPECT_FALSE(project.canRedo());
}

TEST_F(ProjectTest, ASaveDuringHydrationWritesTheRecordsNotAnEmptyTimeline) {
    media->add("/m/a.mov", 5);
    auto plain = record("/m/a.mov", 0, 5, 0);
    auto handEdited = record("/m/gone.mov", 1, 2, 5);
    handEdited.streamMask = model::StreamMask::both;
    handEdited.rateMultiplier = 1.00005;
    handEdited.isReversed = false;
    handEdited.bookmark = model::Bytes{1, 2};
    project.hydrateClips({plain, handEdited});

    auto during = project.makeSnapshot().clips;
    auto expected = handEdited;
    expected.streamMask.reset();
    expected.rateMultiplier.reset();
    expected.isReversed.reset();
    EXPECT_EQ(during, (std::vector<VantrellSnapshotClip>{plain, expected}));

    drainCapturingLog();
    EXPECT_EQ(project.makeSnapshot().clips, during) << "the same records once hydrated";
}

TEST_F(ProjectTest, ARateCloseToNormalReopensAsNormal) {
    media->add("/m/a.mov", 5);
    Clip c = clipAt(0, 5);
    c.url = "/m/a.mov";
    c.rateMultiplier = 1.00005;
    Project saved;
    saved.setClips({c});
    auto text = model::encodeSnapshot(saved.makeSnapshot());
    ASSERT_TRUE(text.ok());
    EXPECT_EQ(text->find("rateMultiplier"), std::string::npos);

    auto reopened = model::decodeSnapshot(*text);
    ASSERT_TRUE(reopened.ok());
    project.hydrateClips(reopened->clips);
    executor.drain();
    EXPECT_EQ(project.clips().at(0).rateMultiplier, 1.0);
}

}  // namespace
