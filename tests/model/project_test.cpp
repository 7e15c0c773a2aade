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

using namespace std::string_literals;
using common::Uuid;
using model::Clip;
using model::Project;
using model::ProjectField;
using model::VantrellSnapshotClip;
using model_test::clipAt;
using model_test::FakeMediaServices;
using model_test::lastStep;
using model_test::Recorder;
using model_test::Step;

// One finished edit, the way every operation makes one.
void edit(Project& p, const std::string& name, std::vector<Clip> clips) {
    p.recordSnapshot(name);
    p.setClips(std::move(clips));
    p.commitEdit();
}

model::VantrellSnapshotClip recordOf(const Project& p, std::size_t i = 0) {
    return p.makeSnapshot().clips.at(i);
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

TEST(Project, UndoAndRedoSwapTheClipsAndEntriesAndEachRaisesTheToken) {
    Project p;
    p.setPlayheadGlobal(50);
    {
        Recorder r(p);
        p.undo();
        p.redo();
        EXPECT_TRUE(r.heardNothing()) << "empty stacks: no token and no clamp either";
    }
    Clip a = clipAt(0, 4);
    edit(p, "Import", {a});
    Clip trimmed = a;
    trimmed.inSeconds = 1;
    edit(p, "Trim In", {trimmed});

    p.undo();
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});
    EXPECT_EQ(lastStep(p), (Step{"Import", 3}));
    EXPECT_EQ(p.redoName(), "Trim In");
    p.redo();
    EXPECT_EQ(p.clips(), std::vector<Clip>{trimmed});
    EXPECT_EQ(lastStep(p), (Step{"Trim In", 4}));
    EXPECT_EQ(p.redoName(), std::nullopt);
    EXPECT_EQ(p.undoCount(), 2u);
    EXPECT_EQ(p.redoCount(), 0u);

    p.undo();
    ASSERT_TRUE(p.canRedo());
    std::vector<Clip> afterNudge{clipAt(1, 4)};
    edit(p, "Nudge Clip", afterNudge);
    EXPECT_FALSE(p.canRedo()) << "a new edit after undo leaves nothing to redo";
    p.redo();
    EXPECT_EQ(p.clips(), afterNudge);
    EXPECT_EQ(p.compositionToken(), 6) << "never reset, and not raised by an empty redo";
}

TEST(Project, HistoryHoldsClipsSharingTheirImagesAndLeavesTheRestAlone) {
    Project p;
    Clip a = clipAt(0, 10);
    a.thumbnail = std::make_shared<const model::ImageData>();
    a.waveformPeaks = std::make_shared<const std::vector<float>>(1000, 0.5f);
    edit(p, "Import", {a});
    p.setSelectedClipID(a.id);
    p.setZoomFactor(3);
    p.setSmallClipMode(model::SmallClipMode::fill);
    p.setCropInsetTop(0.25);
    p.setPlayheadGlobal(2);
    p.recordSnapshot("Delete Clip");
    const Clip& saved = p.undoStack().back().clips.at(0);
    EXPECT_EQ(saved.thumbnail.get(), p.clips()[0].thumbnail.get());
    EXPECT_EQ(saved.waveformPeaks.get(), p.clips()[0].waveformPeaks.get());
    p.setClips({});
    p.commitEdit();
    p.setPlayheadGlobal(0);

    p.undo();
    EXPECT_EQ(p.selectedClipID(), a.id);
    EXPECT_EQ(p.zoomFactor(), 3);
    EXPECT_EQ(p.smallClipMode(), model::SmallClipMode::fill);
    EXPECT_EQ(p.cropInsetTop(), 0.25);
    EXPECT_EQ(p.playheadGlobal(), 0);
    p.undo();
    EXPECT_TRUE(p.clips().empty());
    EXPECT_EQ(p.selectedClipID(), a.id) << "a selection naming an undone clip stays";
}

TEST(Project, EditsAndUndoClampThePlayheadBackwardOnly) {
    Project p;
    edit(p, "Import", {clipAt(0, 10)});
    p.setPlayheadGlobal(9.998);
    edit(p, "Nudge Clip", {clipAt(0.5, 10)});
    EXPECT_EQ(p.playheadGlobal(), 9.998) << "inside the timeline it stays put";
    p.setPlayheadGlobal(10.4);
    p.undo();
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 10 - 0.001);

    p.setPlayheadGlobal(9);
    edit(p, "Trim Out", {clipAt(0, 4)});
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001);
    p.undo();
    EXPECT_DOUBLE_EQ(p.totalDurationSeconds(), 10);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001) << "undo does not move it forward again";

    edit(p, "Delete Clip", {});
    EXPECT_EQ(p.playheadGlobal(), 0);
}

// Live edits.

TEST(Project, ADragIsOneStepAndCommitRaisesTheTokenThenClampsThenClearsTheTrimState) {
    Project p;
    Clip a = clipAt(0, 10);
    p.setClips({a});
    p.setPlayheadGlobal(8);
    p.setTrimReadout(
        model::TrimReadoutInfo{a.id, model::TrimReadoutInfo::Edge::out, 4, 4, 120, true});
    p.setTrimPreview(model::TrimPreviewState{"/media/clip.mov", 4});
    p.setTrimSnappedClipID(a.id);
    p.recordSnapshot("Trim Out");
    for (double out : {6, 5, 4}) p.updateClip(a.id, [&](Clip& c) { c.outSeconds = out; });
    EXPECT_EQ(p.compositionToken(), 0);

    std::vector<ProjectField> order;
    p.addObserver([&](ProjectField f) { order.push_back(f); });
    double playheadSeenByDidChange = -1;
    bool readoutSeenByDidChange = false;
    p.didChange = [&] {
        playheadSeenByDidChange = p.playheadGlobal();
        readoutSeenByDidChange = p.trimReadout().has_value();
    };
    p.commitEdit();

    EXPECT_EQ(order, (std::vector<ProjectField>{
                         ProjectField::compositionToken, ProjectField::playheadGlobal,
                         ProjectField::trimReadout, ProjectField::trimSnappedClipID,
                         ProjectField::trimPreview}));
    EXPECT_EQ(playheadSeenByDidChange, 8);
    EXPECT_TRUE(readoutSeenByDidChange);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001);
    EXPECT_FALSE(p.trimReadout() || p.trimPreview() || p.trimSnappedClipID());
    EXPECT_EQ(lastStep(p), (Step{"Trim Out", 1}));
    p.undo();
    EXPECT_EQ(p.clips()[0].outSeconds, 10) << "the whole drag is one step";
}

TEST(Project, ACancelledDragPutsTheClipsBackAndLeavesNoStep) {
    Project p;
    Clip a = clipAt(0, 10);
    edit(p, "Import", {a});
    p.recordSnapshot("Trim Out");
    p.setOut(a.id, 4);
    p.setTrimReadout(
        model::TrimReadoutInfo{a.id, model::TrimReadoutInfo::Edge::out, 4, 4, 120, true});
    p.setDragLandingX(30);
    auto token = p.compositionToken();

    p.cancelEdit();

    EXPECT_EQ(p.clips()[0].outSeconds, 10);
    EXPECT_EQ(lastStep(p), (Step{"Import", 1}));
    EXPECT_FALSE(p.canRedo());
    EXPECT_EQ(p.compositionToken(), token);
    EXPECT_FALSE(p.trimReadout() || p.dragLandingX());
}

// Observation.

TEST(Project, AWriteTellsItsFieldOnlyWhenTheValueChangesAndMarksNothing) {
    using F = ProjectField;
    Project p;
    Clip a = clipAt(0, 4);
    Clip longer = a;
    longer.outSeconds = 5;
    // Equal peaks in a buffer of their own are the same value.
    auto fresh = [&] {
        Clip c = a;
        c.waveformPeaks = std::make_shared<const std::vector<float>>(std::vector{0.2f, 0.4f});
        return c;
    };
    model::TrimReadoutInfo readout{a.id, model::TrimReadoutInfo::Edge::in, 1, 2, 30, true};
    model::TrimReadoutInfo moved = readout;
    moved.cursorX = 31;
    model::TrimReadoutInfo otherEdge = moved;
    otherEdge.edge = model::TrimReadoutInfo::Edge::out;
    model::ExportSheetState sheet{Uuid::random()};
    model::GapSelection gap{false, 0, 1};
    model::TrimPreviewState preview{"/a", 1};
    const std::vector<std::pair<F, std::function<void()>>> writes = {
        {F::clips, [&] { p.setClips({fresh()}); }},
        {F::clips,
         [&] {
             p.setClips(std::vector{fresh(), longer});
         }},
        {F::clips,
         [&] {
             p.setClips(std::vector{longer, fresh()});
         }},
        {F::selectedClipIDs, [&] { p.setSelectedClipIDs({a.id}); }},
        {F::selectionAnchor, [&] { p.setSelectionAnchor(a.id); }},
        {F::selectedGap, [&] { p.setSelectedGap(gap); }},
        {F::playheadGlobal, [&] { p.setPlayheadGlobal(2); }},
        {F::isExporting, [&] { p.setIsExporting(true); }},
        {F::exportProgress, [&] { p.setExportProgress(0.5); }},
        {F::exportMessage, [&] { p.setExportMessage("Done"); }},
        {F::showRetimeSheet, [&] { p.setShowRetimeSheet(true); }},
        {F::showCropSheet, [&] { p.setShowCropSheet(true); }},
        {F::exportSheet, [&] { p.setExportSheet(sheet); }},
        {F::zoomFactor, [&] { p.setZoomFactor(2); }},
        {F::trimReadout, [&] { p.setTrimReadout(readout); }},
        {F::trimReadout, [&] { p.setTrimReadout(moved); }},
        {F::trimReadout, [&] { p.setTrimReadout(otherEdge); }},
        {F::trimPreview, [&] { p.setTrimPreview(preview); }},
        {F::trimSnappedClipID, [&] { p.setTrimSnappedClipID(a.id); }},
        {F::isPlaying, [&] { p.setIsPlaying(true); }},
        {F::dragLandingX, [&] { p.setDragLandingX(12); }},
        {F::footerHeight, [&] { p.setFooterHeight(300); }},
    };
    Recorder r(p);
    for (std::size_t i = 0; i < writes.size(); ++i) {
        r.fields.clear();
        writes[i].second();
        writes[i].second();
        EXPECT_EQ(r.fields, std::vector<F>{writes[i].first}) << "write " << i;
    }
    p.recordSnapshot("Trim In");
    EXPECT_EQ(r.didChangeCalls, 0) << "none of these marks the document";

    r.fields.clear();
    EXPECT_TRUE(p.updateClip(a.id, [](Clip&) {}));
    EXPECT_TRUE(p.updateClip(a.id, [](Clip&) {}));
    EXPECT_FALSE(p.updateClip(Uuid::random(), [](Clip&) {}));
    EXPECT_EQ(r.fields, std::vector<F>(2, F::clips)) << "an in-place write tells every time";
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
    p.setExportSheet(std::nullopt);
    p.setExportSheet(std::nullopt);
    EXPECT_EQ(r.count(ProjectField::exportSheet), 2u);
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

    std::vector<std::pair<model::SmallClipMode, std::int64_t>> seen;
    p.didChange = [&] { seen.emplace_back(p.smallClipMode(), p.compositionToken()); };
    p.setSmallClipMode(model::SmallClipMode::centerNative);
    EXPECT_EQ(p.compositionToken(), 1);
    // Before the mode is stored, and again as the token rises, before it moves.
    EXPECT_EQ(seen, (decltype(seen){{model::SmallClipMode::proportional, 0},
                                    {model::SmallClipMode::centerNative, 0}}));
    EXPECT_EQ(r.count(ProjectField::smallClipMode), 1u);
    EXPECT_EQ(r.count(ProjectField::compositionToken), 1u);
}

// The selection's accessors.

TEST(Project, SelectedClipIDIsTheSelectedAnchorElseSomeMemberAndSettingItReplacesAll) {
    Project p;
    Uuid a = Uuid::random(), b = Uuid::random(), c = Uuid::random();
    p.setSelectionAnchor(a);
    EXPECT_FALSE(p.selectedClipID()) << "an empty selection, whatever the anchor";
    p.setSelectedClipIDs({a, b});
    p.setSelectionAnchor(b);
    EXPECT_EQ(p.selectedClipID(), b);
    p.setSelectionAnchor(c);
    auto id = p.selectedClipID();
    EXPECT_TRUE(id == a || id == b);
    p.setSelectionAnchor(std::nullopt);
    EXPECT_TRUE(p.selectedClipID());

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
    EXPECT_FALSE(p.selectionAnchor() || p.selectedGap());
}

// Saving.

TEST(Project, ANewProjectSavesOnlyWhatIsRequiredAndDefaultsAreNotSaved) {
    Project p;
    model::VantrellSnapshot required;
    required.version = 1;
    required.playheadGlobal = 0;
    required.zoomFactor = 1;
    EXPECT_EQ(p.makeSnapshot(), required);

    p.setCropInsetTop(0.0001);
    p.setCropInsetBottom(0.0);
    p.setSmallClipMode(model::SmallClipMode::fill);
    Clip c = clipAt(0, 4);
    p.setClips({c});
    auto s = p.makeSnapshot();
    EXPECT_EQ(s.cropInsetTop, 0.0001);
    EXPECT_FALSE(s.cropInsetBottom);
    EXPECT_EQ(s.smallClipMode, model::SmallClipMode::fill);
    EXPECT_FALSE(s.clips[0].streamMask || s.clips[0].isReversed);
    p.setSmallClipMode(model::SmallClipMode::proportional);
    EXPECT_FALSE(p.makeSnapshot().smallClipMode);

    c.streamMask = model::StreamMask::audioOnly;
    c.isReversed = true;
    c.forwardInSeconds = 0;
    c.forwardOutSeconds = 4;
    c.reversedURL = "/tmp/vantrell-reversed-1.mov";
    p.setClips({c});
    VantrellSnapshotClip saved{c.id, "/media/clip.mov", {}, 0, 4, 0};  // the forward media
    saved.streamMask = model::StreamMask::audioOnly;
    saved.isReversed = true;
    saved.forwardInSeconds = 0;
    saved.forwardOutSeconds = 4;
    EXPECT_EQ(recordOf(p), saved);
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

TEST(Project, ApplyingASnapshotSetsViewStateAndLeavesClipsAlone) {
    Project p;
    Clip a = clipAt(0, 4);
    p.setClips({a});
    model::VantrellSnapshot s;
    s.clips = {model::snapshotRecord(clipAt(0, 9))};
    s.playheadGlobal = 12.5;  // past the clips: no clamp before they arrive
    s.zoomFactor = 4;
    s.preferLossless = true;  // from an older file
    s.smallClipMode = model::SmallClipMode::centerNative;
    s.cropInsetTop = 0.1;
    s.cropInsetLeading = 0.2;
    s.cropInsetTrailing = 0.3;
    s.cropInsetBottom = 0.4;
    p.applySnapshotEagerly(s);
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});
    s.clips = {model::snapshotRecord(a)};
    s.preferLossless.reset();
    EXPECT_EQ(p.makeSnapshot(), s) << "preferLossless is dropped on save";

    p.applySnapshotEagerly(model::VantrellSnapshot{});
    model::VantrellSnapshot reset;
    reset.clips = s.clips;
    EXPECT_EQ(p.makeSnapshot(), reset);
}

// Work with media.

class ProjectTest : public model_test::MediaProjectTest {
  protected:
    // Clip writes then come from the edits alone.
    ProjectTest() { media->findNoEnrichment(); }
};

// Import.

TEST_F(ProjectTest, ImportPlacesEachFileBehindWhateverEndsLastUnderOneEntryPerBatch) {
    media->add("/m/a.mov", 4);
    media->add("/m/b.wav", 2.5, false, true);
    media->add("/m/c.mov", 1);
    Recorder r(project);
    project.importURLs({});
    EXPECT_TRUE(r.heardNothing()) << "importing nothing records nothing";
    project.importURLs({"/m/a.mov", "/m/broken file.mov", "/m/b.wav"});
    EXPECT_TRUE(project.clips().empty()) << "nothing lands before the owner runs";
    EXPECT_EQ(drainCapturingLog(), "Vantrell: failed to import broken file.mov: " +
                                       std::string(FakeMediaServices::kProbeFailure) + "\n");
    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 2u);
    EXPECT_EQ(std::pair(clips[0].displayName, clips[0].startOnTimeline), std::pair("a.mov"s, 0.0));
    EXPECT_EQ(std::pair(clips[1].displayName, clips[1].startOnTimeline), std::pair("b.wav"s, 4.0))
        << "a failing file leaves no gap";
    EXPECT_NE(clips[0].id, clips[1].id);
    EXPECT_EQ(clips[0].bookmark, FakeMediaServices::bookmarkFor("/m/a.mov"));
    EXPECT_EQ(project.selectedClipID(), clips[0].id);
    EXPECT_EQ(lastStep(project), (Step{"Import", 2})) << "one token per accepted clip";
    EXPECT_EQ(r.count(ProjectField::compositionToken), 2u);

    Clip audioOnly = clipAt(3, 7, false, true);
    project.setClips({clips[0], clips[1], audioOnly});
    project.importURLs({"/m/c.mov"});
    executor.drain();
    ASSERT_EQ(project.clips().size(), 4u);
    EXPECT_EQ(project.clips()[3].startOnTimeline, 10);
    EXPECT_EQ(project.selectedClipID(), project.clips()[0].id) << "a selection is left alone";
    project.undo();
    project.undo();
    EXPECT_TRUE(project.clips().empty()) << "one undo per batch";
    EXPECT_FALSE(project.canUndo());
    project.redo();
    EXPECT_EQ(project.clips().size(), 3u);

    auto token = project.compositionToken();
    project.importURLs({"/m/x.mov", "/m/y.mov"});
    std::string log = drainCapturingLog();
    EXPECT_NE(log.find("failed to import x.mov"), std::string::npos);
    EXPECT_NE(log.find("failed to import y.mov"), std::string::npos);
    EXPECT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(lastStep(project), (Step{"Import", token})) << "every file failed: the entry stays";
    EXPECT_EQ(project.undoCount(), 2u);
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
    Clip reversed = clipAt(0, 4);
    reversed.isReversed = true;
    const std::vector<std::pair<const char*, std::function<void(Project&)>>> starts = {
        {"import",
         [](Project& p) {
             p.importURLs({"/m/a.mov", "/m/b.mov"});
         }},
        {"hydration",
         [](Project& p) {
             p.hydrateClips({{Uuid::random(), "/m/a.mov"}});
         }},
        {"render",
         [&](Project& p) {
             p.setClips({reversed});
             testing::internal::CaptureStderr();
             p.renderReversedAsync(reversed.id);
             testing::internal::GetCapturedStderr();
         }},
    };
    for (const auto& [name, start] : starts) {
        SCOPED_TRACE(name);
        auto media = std::make_shared<FakeMediaServices>();
        media->add("/m/a.mov", 4);
        media->setRenderResult("/tmp/vantrell-reversed-1.mov");
        common::ThreadPoolExecutor executor(2);
        auto project = std::make_unique<Project>(model::ProjectContext{&executor, media});
        start(*project);
        project.reset();
        executor.drain();
    }
}

// Hydration.

VantrellSnapshotClip record(const std::filesystem::path& url, double in, double out, double start) {
    return {Uuid::random(), url, {}, in, out, start};
}

TEST_F(ProjectTest, HydrationProbesEveryRecordAndAssignsTheClipsInOneStep) {
    Recorder r(project);
    project.hydrateClips({});
    executor.drain();
    EXPECT_EQ(project.compositionToken(), 1) << "hydrating nothing still raises the token";
    EXPECT_EQ(r.didChangeCalls, 1);

    media->add("/m/a.mov", 3);
    media->add("/new/b.mov", 5);
    auto edited = record("/m/a.mov", 1, 8, 5);  // the file got shorter since it was saved
    edited.streamMask = model::StreamMask::videoOnly;
    edited.linkGroupID = Uuid::random();
    edited.rateMultiplier = 2;
    edited.isReversed = true;
    edited.forwardInSeconds = 0.5;
    edited.forwardOutSeconds = 2.5;
    auto plain = record("/m/a.mov", 0, 3, 0);
    plain.isReversed = false;
    plain.bookmark = model::Bytes{'x'};  // resolves nowhere: the stored URL is tried
    auto lost = record("/m/Lost Take.mov", 1, 2, 3);
    lost.isReversed = true;
    lost.forwardInSeconds = 0;
    lost.forwardOutSeconds = 1;
    auto moved = record("/old/b.mov", 0, 5, 0);
    moved.bookmark = model::Bytes{'b'};
    media->moveBookmarkTarget(*moved.bookmark, "/new/b.mov");
    auto movedAway = record("/old/c.mov", 0, 5, 0);
    movedAway.bookmark = model::Bytes{'c'};
    media->moveBookmarkTarget(*movedAway.bookmark, "/new/renamed.mov");
    project.setFileLocation("/projects/film/cut.vantrell");
    project.hydrateClips({edited, plain, lost, moved, movedAway});
    EXPECT_TRUE(project.isHydrating());
    EXPECT_EQ(project.clips().size(), 0u);
    std::string log = drainCapturingLog();
    // Each miss names the file looked for, the resolved one; the reversed clip's render
    // logs only after them.
    EXPECT_TRUE(log.starts_with(
        "Vantrell: missing media for Lost Take.mov \xE2\x80\x94 preserving as placeholder\n"
        "Vantrell: missing media for renamed.mov \xE2\x80\x94 preserving as placeholder\n"))
        << log;
    EXPECT_FALSE(project.isHydrating());
    EXPECT_EQ(r.count(ProjectField::clips), 1u);
    EXPECT_EQ(project.compositionToken(), 2);

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 5u);
    EXPECT_EQ(clips[0].fullDurationSeconds, 3) << "the media from the file";
    EXPECT_EQ(clips[0].fingerprint, "v:1635148593:1280x720");
    EXPECT_EQ(recordOf(project, 0), edited) << "the edit fields from the record";
    EXPECT_EQ(clips[1].streamMask, model::StreamMask::both);
    EXPECT_EQ(clips[1].rateMultiplier, 1.0);
    EXPECT_FALSE(clips[1].isReversed || clips[1].isMissing);
    EXPECT_FALSE(recordOf(project, 1).isReversed) << "an explicit false is not written back";
    EXPECT_EQ(clips[2], Clip::missingPlaceholder(lost));
    EXPECT_EQ(recordOf(project, 2), lost) << "a placeholder saves exactly what it was given";
    EXPECT_EQ(clips[3].url, "/new/b.mov");
    EXPECT_EQ(clips[3].bookmark, moved.bookmark) << "the stored bookmark goes on unchanged";
    EXPECT_EQ(recordOf(project, 3).url, "/new/b.mov") << "the new place is saved next";
    EXPECT_EQ(clips[4].url, "/old/c.mov") << "the placeholder keeps the stored file";
    EXPECT_EQ(media->lastProjectFolder(), std::filesystem::path("/projects/film"));
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
    EXPECT_FALSE(project.canUndo() || project.canRedo());
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

}  // namespace
