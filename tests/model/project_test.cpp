#include "model/project.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/thread_pool_executor.h"
#include "support/fake_media_services.h"
#include "support/model_test_support.h"

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::Project;
using model::ProjectField;
using model::StreamMask;
using model::VantrellSnapshotClip;

// One finished edit, the way every operation makes one.
void edit(Project& p, const std::string& name, std::vector<Clip> clips) {
    p.recordSnapshot(name);
    p.setClips(std::move(clips));
    p.commitEdit();
}

TEST(Project, UndoAndRedoSwapClipsRaiseTheTokenAndClampThePlayheadBackwardOnly) {
    Project p;
    p.setPlayheadGlobal(50);
    Clip a = clipAt(0, 10), trimmed = clipAt(0, 4);
    trimmed.id = a.id;
    edit(p, "Import", {a});
    edit(p, "Trim Out", {trimmed});
    p.undo();
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});
    EXPECT_EQ(lastStep(p), (Step{"Import", 3}));
    EXPECT_EQ(p.redoName(), "Trim Out");
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001) << "undo does not move it forward";
    p.setPlayheadGlobal(9.4);
    p.redo();
    EXPECT_EQ(lastStep(p), (Step{"Trim Out", 4}));
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001);
    edit(p, "Nudge Clip", {clipAt(1, 4)});
    p.undo();
    edit(p, "Delete Clip", {});
    EXPECT_FALSE(p.canRedo());
    p.setPlayheadGlobal(20);
    p.undo();
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 4 - 0.001);

    for (int i = 1; i <= 41; ++i) edit(p, "Edit " + std::to_string(i), {clipAt(i, 1)});
    EXPECT_EQ(p.undoCount(), 40u);
    // A cancelled drag brings back the step its entry pushed out.
    p.recordSnapshot("Trim Out");
    p.cancelEdit();
    EXPECT_EQ(p.undoStack().front().name, "Edit 2");
    while (p.canUndo()) p.undo();
    EXPECT_DOUBLE_EQ(p.clips().at(0).startOnTimeline, 1) << "the state before Edit 1 is gone";
}

TEST(Project, ADragIsOneStepThatCommitsInOrderOrCancelsWithoutTrace) {
    Project p;
    Clip a = clipAt(0, 10);
    edit(p, "Import", {a});
    p.setPlayheadGlobal(8);
    const model::TrimReadoutInfo readout{a.id, model::TrimReadoutInfo::Edge::out, 4, 4, 120, true};
    p.setTrimReadout(readout);
    p.setTrimPreview(model::TrimPreviewState{"/media/clip.mov", 4});
    p.setTrimSnappedClipID(a.id);
    p.recordSnapshot("Trim Out");
    for (double out : {6, 5, 4}) p.updateClip(a.id, [&](Clip& c) { c.outSeconds = out; });
    std::vector<ProjectField> order;
    auto id = p.addObserver([&](ProjectField f) { order.push_back(f); });
    double playheadSeenByDidChange = -1;
    p.didChange = [&] { playheadSeenByDidChange = p.playheadGlobal(); };
    p.commitEdit();
    p.removeObserver(id);
    EXPECT_EQ(order, (std::vector<ProjectField>{
                         ProjectField::compositionToken, ProjectField::playheadGlobal,
                         ProjectField::trimReadout, ProjectField::trimSnappedClipID,
                         ProjectField::trimPreview}));
    EXPECT_EQ(playheadSeenByDidChange, 8);
    EXPECT_EQ(lastStep(p), (Step{"Trim Out", 2}));
    p.undo();
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});

    p.setTrimReadout(readout);
    p.setDragLandingX(30);
    p.recordSnapshot("Trim In");
    p.setIn(a.id, 2);
    p.cancelEdit();
    EXPECT_EQ(p.clips(), std::vector<Clip>{a});
    EXPECT_EQ(lastStep(p), (Step{"Import", 3}));
    EXPECT_EQ(p.redoName(), "Trim Out");
    EXPECT_FALSE(p.trimReadout() || p.dragLandingX());
}

TEST(Project, AWriteTellsItsFieldOnlyWhenTheValueChangesAndOnlyInsetsAndFramingMarkTheDocument) {
    using F = ProjectField;
    Project p;
    Clip a = clipAt(0, 4);
    // Equal peaks in a buffer of their own are the same value.
    auto fresh = [&] {
        Clip c = a;
        c.waveformPeaks = std::make_shared<const std::vector<float>>(std::vector{0.2f, 0.4f});
        return c;
    };
    const std::vector<std::pair<F, std::function<void()>>> writes = {
        {F::clips, [&] { p.setClips({fresh()}); }},
        {F::selectedClipIDs, [&] { p.setSelectedClipIDs({a.id}); }},
        {F::playheadGlobal, [&] { p.setPlayheadGlobal(2); }},
        {F::dragLandingX, [&] { p.setDragLandingX(12); }},
    };
    Recorder r(p);
    for (const auto& [field, write] : writes) {
        r.fields.clear();
        write();
        write();
        EXPECT_EQ(r.fields, std::vector<F>{field}) << static_cast<int>(field);
    }
    EXPECT_EQ(r.didChangeCalls, 0);

    // The export sheet's identity is its id: a state with the same id is the same sheet.
    model::ExportSheetState sheet{Uuid::random(), "Holiday"};
    p.setExportSheet(sheet);
    sheet.statusLine = "Re-encode";
    p.setExportSheet(sheet);
    EXPECT_EQ(p.exportSheet()->statusLine, "Re-encode");
    p.setExportSheet(model::ExportSheetState{Uuid::random()});
    EXPECT_EQ(r.count(F::exportSheet), 2u);

    int heard = 0;
    Project::ObserverID selfRemoving = p.addObserver([&](ProjectField) {
        ++heard;
        p.removeObserver(selfRemoving);
    });
    p.setZoomFactor(2);
    p.setZoomFactor(3);
    EXPECT_EQ(heard, 1);

    std::vector<double> seen;
    p.didChange = [&] { seen.push_back(p.cropInsetLeading()); };
    p.setCropInsetLeading(0.2);
    p.setCropInsetLeading(0.2);
    EXPECT_EQ(seen, (std::vector<double>{0.0, 0.2}));

    std::vector<std::pair<model::SmallClipMode, std::int64_t>> modes;
    p.didChange = [&] { modes.emplace_back(p.smallClipMode(), p.compositionToken()); };
    p.setSmallClipMode(model::SmallClipMode::proportional);
    p.setSmallClipMode(model::SmallClipMode::fill);
    // Before the mode is stored, and again as the token rises, before it moves.
    EXPECT_EQ(modes, (decltype(modes){{model::SmallClipMode::proportional, 0},
                                      {model::SmallClipMode::proportional, 0},
                                      {model::SmallClipMode::fill, 0}}));
    EXPECT_EQ(p.compositionToken(), 1);
}

TEST(Project, ASnapshotSavesViewStateButNoDefaultAndTheForwardMediaOfAReversedClip) {
    Project p;
    Clip c = clipAt(0, 4);
    c.streamMask = model::StreamMask::audioOnly;
    c.isReversed = true;
    c.forwardOutSeconds = 4;
    c.reversedURL = "/tmp/vantrell-reversed-1.mov";
    p.setClips({c});
    model::VantrellSnapshot s;
    s.version = 1;
    s.clips = {{c.id, "/media/clip.mov", {}, 0, 4, 0}};
    s.clips[0].streamMask = model::StreamMask::audioOnly;
    s.clips[0].isReversed = true;
    s.clips[0].forwardOutSeconds = 4;
    p.applySnapshotEagerly(s);
    EXPECT_EQ(p.makeSnapshot(), s);

    s.playheadGlobal = 12.5;  // past the clips: no clamp before they arrive
    s.zoomFactor = 4;
    s.smallClipMode = model::SmallClipMode::centerNative;
    s.cropInsetTop = 0.1;
    s.preferLossless = true;  // from an older file, dropped on save
    p.applySnapshotEagerly(s);
    s.preferLossless.reset();
    EXPECT_EQ(p.makeSnapshot(), s);

    for (auto [rate, kept] : {std::pair{1.00005, false}, {0.99995, false}, {1.0002, true}}) {
        p.updateClip(c.id, [&](Clip& w) { w.rateMultiplier = rate; });
        EXPECT_EQ(p.makeSnapshot().clips[0].rateMultiplier,
                  kept ? std::optional(rate) : std::nullopt)
            << rate;
    }
}

class ProjectTest : public MediaProjectTest {};

TEST_F(ProjectTest, ImportPlacesEachFileBehindWhateverEndsLastAsItArrivesUnderOneEntry) {
    media->add("/m/a.mov", 4);
    media->add("/m/b.wav", 2.5, false, true);
    media->add("/m/c.mov", 1);
    bool inserted = false;
    project.addObserver([&](ProjectField f) {
        // The user adds a long clip once the first import has landed.
        if (f != ProjectField::compositionToken || inserted) return;
        inserted = true;
        project.setClips({project.clips()[0], clipAt(0, 20)});
    });
    project.importURLs({"/m/a.mov", "/m/broken file.mov", "/m/b.wav"});
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(drainCapturingLog(), "Vantrell: failed to import broken file.mov: " +
                                       std::string(FakeMediaServices::kProbeFailure) + "\n");
    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_EQ(placement(clips[0]), (Placement{0, 4, 0}));
    EXPECT_EQ(placement(clips[2]), (Placement{0, 2.5, 20}));
    EXPECT_EQ(clips[0].filmstrip.size(), FakeMediaServices::kFilmstripFrames);
    EXPECT_EQ(project.selectedClipID(), clips[0].id);
    EXPECT_EQ(lastStep(project), (Step{"Import", 2})) << "one token per accepted clip";

    project.importURLs({"/m/c.mov", "/m/x.mov"});
    drainCapturingLog();
    project.undo();
    EXPECT_EQ(project.clips().size(), 3u) << "one undo per batch";
}

// All background work comes back through one guard, so one kind of work stands for all.
TEST_F(ProjectTest, AProjectDestroyedBeforeItsWorkLandsIsLeftAlone) {
    media->add("/m/a.mov", 4);
    auto doomed = std::make_unique<Project>(model::ProjectContext{&executor, media});
    doomed->importURLs({"/m/a.mov", "/m/a.mov"});
    doomed.reset();
    executor.drain();
}

TEST_F(ProjectTest, HydrationProbesEveryRecordAndAssignsTheClipsInOneStep) {
    media->add("/m/a.mov", 3);
    media->add("/new/b.mov", 5);
    // The file got shorter since it was saved.
    VantrellSnapshotClip edited{Uuid::random(), "/m/a.mov", {}, 1, 8, 5};
    edited.streamMask = model::StreamMask::videoOnly;
    edited.linkGroupID = Uuid::random();
    edited.rateMultiplier = 2;
    VantrellSnapshotClip lost{Uuid::random(), "/m/Lost Take.mov", {}, 1, 2, 3};
    lost.isReversed = true;
    VantrellSnapshotClip moved{Uuid::random(), "/old/b.mov", {}, 0, 5, 0};
    moved.bookmark = model::Bytes{'b'};
    media->moveBookmarkTarget(*moved.bookmark, "/new/b.mov");
    VantrellSnapshotClip movedAway{Uuid::random(), "/old/c.mov", {}, 0, 5, 0};
    movedAway.bookmark = model::Bytes{'c'};
    media->moveBookmarkTarget(*movedAway.bookmark, "/new/renamed.mov");
    // A NUL decoded from a damaged URL must not cut the path short.
    VantrellSnapshotClip damaged{Uuid::random(), std::string("/m/a\0b.mov", 10), {}, 0, 3, 2};
    media->add("/m/a", 9);
    project.setFileLocation("/projects/film/cut.vantrell");
    Recorder r(project);
    project.hydrateClips({edited, lost, moved, movedAway, damaged});
    EXPECT_TRUE(project.isHydrating());
    edit(project, "Paste", {clipAt(0, 9)});
    edit(project, "Nudge Clip", {clipAt(1, 9)});
    project.undo();
    // A save meanwhile writes the records, not the timeline.
    EXPECT_EQ(project.makeSnapshot().clips,
              (std::vector<VantrellSnapshotClip>{edited, lost, moved, movedAway, damaged}));
    // Each miss names the file looked for, the resolved one.
    EXPECT_EQ(drainCapturingLog(),
              "Vantrell: missing media for Lost Take.mov \xE2\x80\x94 preserving as placeholder\n"
              "Vantrell: missing media for renamed.mov \xE2\x80\x94 preserving as placeholder\n"
              "Vantrell: missing media for a?b.mov \xE2\x80\x94 preserving as placeholder\n");
    EXPECT_FALSE(project.isHydrating() || project.canUndo() || project.canRedo());
    EXPECT_EQ(r.count(ProjectField::compositionToken), 4u) << "three steps and the hydration";

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 5u);
    EXPECT_EQ(clips[0].fullDurationSeconds, 3);
    EXPECT_EQ(project.makeSnapshot().clips[0], edited);
    EXPECT_EQ(clips[1], Clip::missingPlaceholder(lost));
    EXPECT_EQ(std::pair(clips[2].url, clips[2].bookmark),
              std::pair(std::filesystem::path("/new/b.mov"), moved.bookmark));
    EXPECT_EQ(clips[3].url, "/old/c.mov");
    EXPECT_EQ(clips[4], Clip::missingPlaceholder(damaged));
    EXPECT_EQ(media->lastProjectFolder(), std::filesystem::path("/projects/film"));
}

TEST_F(ProjectTest, ARelinkedClipKeepsItsIdentityPlaceAndSpeedAndTakesTheNewFile) {
    media->add("/m/found.mov", 12);
    VantrellSnapshotClip record{Uuid::random(), "/gone/a.mov", {}, 1, 6, 4};
    record.streamMask = StreamMask::videoOnly;
    record.linkGroupID = Uuid::random();
    record.rateMultiplier = 2;
    Clip old = Clip::missingPlaceholder(record);
    Clip sameFile = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 4, 8, 4});
    project.setClips({old, sameFile});
    project.relinkClip(old.id, "/m/found.mov");
    EXPECT_FALSE(project.canUndo()) << "history waits for the probe";
    executor.drain();

    EXPECT_EQ(project.clips()[1], sameFile) << "other placeholders of the file stay missing";
    Clip live = project.clips()[0];
    EXPECT_EQ(live.filmstrip.size(), FakeMediaServices::kFilmstripFrames) << "enriched";
    EXPECT_EQ(live.bookmark, FakeMediaServices::bookmarkFor("/m/found.mov"));
    // Pictures aside, it is the new file's probe with the old clip's identity, place and speed.
    Clip expected = media->probe("/m/found.mov", live.bookmark, old.id).value();
    std::tie(expected.inSeconds, expected.outSeconds, expected.startOnTimeline) =
        std::tuple(1, 6, 4);
    std::tie(expected.streamMask, expected.linkGroupID, expected.rateMultiplier) =
        std::tuple(StreamMask::videoOnly, record.linkGroupID, 2);
    std::tie(expected.filmstrip, expected.waveform, expected.waveformPeaks) =
        std::tuple(live.filmstrip, live.waveform, live.waveformPeaks);
    EXPECT_EQ(live, expected);
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", 1}));
    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{old, sameFile}));

    // The trim is held inside the new file.
    for (auto [in, out, fileSeconds, heldIn, heldOut] :
         {std::tuple{2., 8., 5., 2., 5.}, {7., 8., 5., 5., 5.}, {-1., 3., 30., 0., 3.}}) {
        media->add("/m/found.mov", fileSeconds);
        Clip a = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, in, out, 0});
        project.setClips({a});
        project.relinkClip(a.id, "/m/found.mov");
        executor.drain();
        EXPECT_EQ(placement(project.clips()[0]), (Placement{heldIn, heldOut, 0})) << in;
    }
}

TEST_F(ProjectTest, RelinkingToAFileThatCannotBeProbedChangesNothingAnEditMeanwhileIsReplaced) {
    media->add("/m/found.mov", 12);
    Clip a = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 4, 1});
    place(project, {a}, a.id);
    Recorder r(project);
    project.relinkClip(Uuid::random(), "/m/found.mov");
    project.relinkClip(a.id, "/m/broken.mov");
    EXPECT_EQ(drainCapturingLog(), "Vantrell: relink failed for broken.mov\n");
    EXPECT_TRUE(r.heardNothing());

    media->hold(FakeMediaServices::probes);
    project.relinkClip(a.id, "/m/found.mov");
    ASSERT_TRUE(media->waitFor(FakeMediaServices::probes, 2));
    project.moveClip(a.id, 9);
    media->release();
    executor.drain();
    EXPECT_EQ(project.clip(a.id)->startOnTimeline, 1);

    project.relinkClip(a.id, "/m/found.mov");
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty()) << "a clip gone meanwhile stays gone";
    EXPECT_EQ(lastStep(project), (Step{"Relink Clip", token + 1}));
}

// Filmstrips and waveforms are caches: written in place, without history, token or didChange.
class EnrichmentTest : public MediaProjectTest {
  protected:
    // Starts enrichment of `id`; both tasks reach the hold only if neither waits for the other.
    void startHeld(const Uuid& id) {
        std::size_t filmstrips = media->filmstripCalls().size();
        std::size_t peaks = media->peakCalls().size();
        media->hold(FakeMediaServices::filmstrips);
        media->hold(FakeMediaServices::peaks);
        project.enrichAssetsAsync(id);
        ASSERT_TRUE(media->waitFor(FakeMediaServices::filmstrips, filmstrips + 1));
        ASSERT_TRUE(media->waitFor(FakeMediaServices::peaks, peaks + 1));
    }

    void finish() {
        media->release();
        executor.drain();
    }

    bool isEnriched(const Uuid& id) {
        const Clip& c = *project.clip(id);
        return c.filmstrip.size() == FakeMediaServices::kFilmstripFrames && c.waveform &&
               c.waveformPeaks;
    }
};

TEST_F(EnrichmentTest, ResultsGoInPlaceOnlyToTheClipThatStillShowsTheFileWhenTheyLand) {
    Clip c = liveClip("/m/a.mov", 10);
    place(project, {c}, c.id);
    startHeld(c.id);
    media->remove("/m/a.mov");
    finish();
    EXPECT_EQ(*project.clip(c.id), c) << "a file that fails leaves the clip untouched";

    media->add("/m/a.mov", 10);
    Recorder r(project);
    startHeld(c.id);
    finish();
    EXPECT_TRUE(isEnriched(c.id));
    EXPECT_EQ(*project.clip(c.id)->waveformPeaks,
              std::vector<float>(2000, FakeMediaServices::kPeakLevel));
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(r.fields, (std::vector{model::ProjectField::clips, model::ProjectField::clips}));

    project.setClips({c});
    startHeld(c.id);
    project.deleteSelected();
    project.undo();
    finish();
    EXPECT_TRUE(isEnriched(c.id)) << "a clip brought back by undo takes them";

    Clip relinked = liveClip("/m/b.mov", 10);
    relinked.id = c.id;
    startHeld(c.id);
    project.setClips({relinked});
    finish();
    EXPECT_FALSE(project.clip(c.id)->waveformPeaks) << "pictures of a file it no longer names";
    media->failWaveformImages();
    project.enrichAssetsAsync(c.id);
    executor.drain();
    EXPECT_TRUE(project.clip(c.id)->waveformPeaks) << "a waveform that can't be drawn keeps them";
}

}  // namespace
