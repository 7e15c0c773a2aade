#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "common/executor.h"
#include "common/uuid.h"
#include "model/clip.h"
#include "model/clip_link_state.h"
#include "model/export_format.h"
#include "model/media_services.h"
#include "model/pasteboard.h"
#include "model/project_types.h"
#include "model/small_clip_mode.h"
#include "model/snapshot.h"

namespace model {

// One step of history: the whole clip array as it was before an edit.
struct UndoEntry {
    std::string name;
    std::vector<Clip> clips;
};

// The stored fields of a project, for observers that want to know what changed.
enum class ProjectField {
    clips = 1,
    selectedClipIDs,
    selectionAnchor,
    selectedGap,
    playheadGlobal,
    isExporting,
    exportProgress,
    exportMessage,
    showRetimeSheet,
    exportSheet,
    showCropSheet,
    compositionToken,
    didChange,
    zoomFactor,
    trimReadout,
    trimPreview,
    trimSnappedClipID,
    isPlaying,
    dragLandingX,
    undoStack,
    redoStack,
    smallClipMode,
    cropInsetTop,
    cropInsetLeading,
    cropInsetTrailing,
    cropInsetBottom,
    footerHeight,
};

// Where a project gets its media work done, and the clipboard it copies to. The executor
// and the media services must outlive the project's last task; the executor's owning
// thread is the project's thread. Without a pasteboard, copy and paste do nothing.
struct ProjectContext {
    common::Executor* executor = nullptr;
    std::shared_ptr<MediaServices> media;
    std::shared_ptr<Pasteboard> pasteboard;
};

// The model of one document: its clips, selection, sheets and edit history. Every edit
// goes through it. Confined to one thread (the executor's owning thread); media work runs
// in the background and comes back to that thread to write.
//
// Observers are told which field was written. A plain write tells them only when the
// value differs; `didChange`, the undo stacks and in-place writes of one clip tell every
// time. `didChange` marks the document as edited.
class Project {
  public:
    using FieldObserver = std::function<void(ProjectField)>;
    using ObserverID = std::uint64_t;

    static constexpr int maxHistory = 40;
    static constexpr double defaultFrameRate = 30.0;
    static constexpr double audioPreviewWindowSeconds = 6.0;

    explicit Project(ProjectContext context = {});
    ~Project();
    Project(const Project&) = delete;
    Project& operator=(const Project&) = delete;

    // Expires when the project is destroyed: work that ends later checks it before
    // writing back.
    std::weak_ptr<const void> lifetime() const { return alive_; }

    ObserverID addObserver(FieldObserver observer);
    void removeObserver(ObserverID id);

    // Called by every write of the token, the framing mode and the insets, before the
    // value is stored, and by the live edits; set by the document.
    std::function<void()> didChange = [] {};

    // Clips, in stacking order (later above earlier).
    const std::vector<Clip>& clips() const { return clips_; }
    void setClips(std::vector<Clip> clips);
    // Writes one clip in place; observers are told every time.
    template <typename F>
    bool updateClip(const common::Uuid& id, F&& write) {
        for (auto& c : clips_) {
            if (c.id == id) {
                write(c);
                notify(ProjectField::clips);
                return true;
            }
        }
        return false;
    }
    const Clip* clip(const common::Uuid& id) const;

    // Selection.
    const std::unordered_set<common::Uuid>& selectedClipIDs() const { return selectedClipIDs_; }
    void setSelectedClipIDs(std::unordered_set<common::Uuid> ids);
    const std::optional<common::Uuid>& selectionAnchor() const { return selectionAnchor_; }
    void setSelectionAnchor(std::optional<common::Uuid> anchor);
    const std::optional<GapSelection>& selectedGap() const { return selectedGap_; }
    void setSelectedGap(std::optional<GapSelection> gap);
    std::optional<common::Uuid> selectedClipID() const;
    void setSelectedClipID(std::optional<common::Uuid> id);

    double playheadGlobal() const { return playheadGlobal_; }
    void setPlayheadGlobal(double seconds);

    bool isExporting() const { return isExporting_; }
    void setIsExporting(bool v);
    double exportProgress() const { return exportProgress_; }
    void setExportProgress(double v);
    const std::string& exportMessage() const { return exportMessage_; }
    void setExportMessage(std::string v);

    bool showRetimeSheet() const { return showRetimeSheet_; }
    void setShowRetimeSheet(bool v);
    const std::optional<ExportSheetState>& exportSheet() const { return exportSheet_; }
    void setExportSheet(std::optional<ExportSheetState> v);
    bool showCropSheet() const { return showCropSheet_; }
    void setShowCropSheet(bool v);
    bool isPresentingSheet() const { return exportSheet_ || showRetimeSheet_ || showCropSheet_; }

    std::int64_t compositionToken() const { return compositionToken_; }
    // Says that the timeline's content changed; the only way the token moves.
    void raiseCompositionToken();

    double zoomFactor() const { return zoomFactor_; }
    void setZoomFactor(double v);
    const std::optional<TrimReadoutInfo>& trimReadout() const { return trimReadout_; }
    void setTrimReadout(std::optional<TrimReadoutInfo> v);
    const std::optional<TrimPreviewState>& trimPreview() const { return trimPreview_; }
    void setTrimPreview(std::optional<TrimPreviewState> v);
    const std::optional<common::Uuid>& trimSnappedClipID() const { return trimSnappedClipID_; }
    void setTrimSnappedClipID(std::optional<common::Uuid> v);
    bool isPlaying() const { return isPlaying_; }
    void setIsPlaying(bool v);
    const std::optional<double>& dragLandingX() const { return dragLandingX_; }
    void setDragLandingX(std::optional<double> v);

    SmallClipMode smallClipMode() const { return smallClipMode_; }
    void setSmallClipMode(SmallClipMode mode);
    double cropInsetTop() const { return cropInsetTop_; }
    double cropInsetLeading() const { return cropInsetLeading_; }
    double cropInsetTrailing() const { return cropInsetTrailing_; }
    double cropInsetBottom() const { return cropInsetBottom_; }
    void setCropInsetTop(double v);
    void setCropInsetLeading(double v);
    void setCropInsetTrailing(double v);
    void setCropInsetBottom(double v);
    double footerHeight() const { return footerHeight_; }
    void setFooterHeight(double v);

    double totalDurationSeconds() const;

    // History.
    void recordSnapshot(std::string name);
    void commitEdit();
    // Gives up a live edit: puts back the clips of the newest history entry and drops that
    // entry, with the token unchanged and the history as it stood before the edit's
    // recordSnapshot (the redo steps it cleared, and any oldest step it pushed out, are
    // back), as if the edit never began.
    void cancelEdit();
    void undo();
    void redo();
    bool canUndo() const { return !undoStack_.empty(); }
    bool canRedo() const { return !redoStack_.empty(); }
    std::optional<std::string> undoName() const;
    std::optional<std::string> redoName() const;
    std::size_t undoCount() const { return undoStack_.size(); }
    std::size_t redoCount() const { return redoStack_.size(); }
    const std::vector<UndoEntry>& undoStack() const { return undoStack_; }

    // Import: probes the files one after the other in the background and places each
    // behind whatever ends last, under one history entry.
    void importURLs(std::vector<std::filesystem::path> urls);

    // The project file.
    VantrellSnapshot makeSnapshot() const;
    void applySnapshotEagerly(const VantrellSnapshot& snapshot);
    // Probes every record in the background and assigns the clips in one step at the end;
    // records whose file can't be probed become placeholders.
    void hydrateClips(std::vector<VantrellSnapshotClip> records);
    bool isHydrating() const { return hydrating_.has_value(); }

    // Where the project file lies, for finding moved media near it.
    void setFileLocation(std::optional<std::filesystem::path> projectFile);

    // Timeline queries: read only, scanned afresh on each call. A clip is at a time t when
    // its start <= t < its timeline end. clipIDAt and frameRateAtPlayhead take the topmost
    // such clip; videoAtPlayhead, naturalSizeAtPlayhead and aspectAtPlayhead the lowest.
    double globalStart(const common::Uuid& id) const;         // 0 for an unknown id
    TimelineRange globalRange(const common::Uuid& id) const;  // empty 0..0 for an unknown id
    std::optional<common::Uuid> clipIDAt(double seconds) const;
    std::vector<GapSelection> gaps(bool isAudioRow) const;  // in time order, between clips only
    bool hasVideoContent() const;
    bool videoAtPlayhead() const;
    bool hasOverlap() const;
    std::optional<Size> videoNaturalSize() const;
    std::optional<Size> naturalSizeAtPlayhead() const;
    std::optional<double> aspectAtPlayhead() const;  // width / height, no fallback
    double frameRateAtPlayhead() const;              // never 0: defaultFrameRate at worst
    std::optional<Size> largestVideoSize() const;    // the output frame
    bool hasCrop() const;
    // Times an edge may snap to, unsorted and with duplicates.
    std::vector<double> snapTargets(std::optional<common::Uuid> excluding) const;

    // Selection writers beside selectedClipID. Only selectGap marks the document edited.
    void toggleSelection(const common::Uuid& id);
    // A plain click: walks down the stack of clips overlapping `id` on one row.
    void cycleSelection(const common::Uuid& id, bool isAudioRow);
    void selectGap(GapSelection gap);

    // The raw writes of a drag, in source seconds (in and out) or timeline seconds (move):
    // they call didChange and write one clip, but record no history and raise no token,
    // so the caller records first and closes the step with commitEdit().
    void setIn(const common::Uuid& id, double seconds);
    void setOut(const common::Uuid& id, double seconds);
    void moveClip(const common::Uuid& id, double seconds);

    // Edit commands: each records its own history entry and raises the token. Split
    // finishes later, once the probe of its right half lands.
    void setInAtPlayhead();
    void setOutAtPlayhead();
    void splitAtPlayhead();
    void nudgeSelectedClipByFrames(int frames);
    // Collapses a selected gap, else deletes the selected clips.
    void deleteSelected();
    // An absent name means the caller has recorded history already (Cut).
    void deleteSelected(std::optional<std::string> snapshotName);
    void collapseSelectedGap();

    // Transport and view; neither history nor a change of the document.
    void nudgePlayheadByFrames(int frames);
    void togglePlayback();
    void setZoom(double factor);

    // Linked audio and video. toggleLinkAV unlinks a linked clip (finishing once the probe
    // of the audio half lands) or relinks a whole pair.
    ClipLinkState linkState(const common::Uuid& id) const;
    void toggleLinkAV(const common::Uuid& id);

    // Retime and reverse act on the whole selection.
    void retimeSelected(double rate);
    std::optional<double> commonRateOfSelection() const;
    void reverseSelected();
    bool allSelectedReversed() const;
    // Renders the clip's forward stretch backward in the background; the result is written,
    // without history, only if the clip is still reversed over the same stretch then.
    void renderReversedAsync(const common::Uuid& id);

    // Points a clip at another file, keeping its id, place, trim (limited to the new file)
    // and speed; finishes once the probe lands, and records history only if it succeeds.
    void relinkClip(const common::Uuid& id, std::filesystem::path file);

    // Fills in the clip's filmstrip, peaks and waveform in the background, from its whole
    // file. Each result is written, in place and quietly (no history, no token, no
    // didChange), into the clip that then has this id and still names the same file;
    // otherwise it is dropped. Every road that makes a live clip ends here.
    void enrichAssetsAsync(const common::Uuid& id);

    // The clipboard. Copy puts the selected clips' records on the pasteboard in timeline
    // order. Paste probes every record's file anew under a new id, places the earliest at
    // the playhead and the rest at their distance from it, gives pairs pasted together a new
    // link group, and skips records whose file is gone; all under one "Paste" entry, with
    // the first pasted clip selected and the token raised once at the end. A pasteboard
    // without clips, or with a damaged payload, does nothing.
    void copySelection();
    void pasteAtPlayhead();

  private:
    void forgetBeforeEdit();
    void notify(ProjectField field);
    template <typename T>
    void assign(T& field, T value, ProjectField which);
    void setCropInset(double& field, double v, ProjectField which);
    void clampPlayhead();
    // Makes `clips` the timeline and hands the clips it had to `previous`, a history entry
    // that nobody reads until it is walked to again.
    void swapInClips(std::vector<Clip> clips, std::vector<Clip>& previous);
    void importNext(std::shared_ptr<const std::vector<std::filesystem::path>> urls,
                    std::size_t index);
    // Assigns the clips probed for the records being hydrated, in their order.
    void finishHydration(
        std::vector<std::pair<std::filesystem::path, common::Result<Clip>>> probed);
    struct PasteRun;
    void pasteNext(std::shared_ptr<PasteRun> run, std::size_t index);
    void writeClipsToPasteboard(const std::vector<Clip>& clips);
    std::optional<std::vector<VantrellSnapshotClip>> readClipsFromPasteboard();
    bool isAtPlayhead(const Clip& clip) const;
    void unlinkAV(const common::Uuid& id);
    void relinkAV(const common::Uuid& id);
    // Runs `work` in the background, then `done` on the owning thread only if this project
    // still exists then. Defined here because every file of the project's edits uses it.
    template <typename Work, typename Done>
    void runMediaTask(Work work, Done done, common::Priority priority = common::Priority::normal) {
        assert(context_.executor && context_.media &&
               "a project that does media work needs a context");
        std::weak_ptr<int> alive = alive_;
        common::runAsync(
            *context_.executor, std::move(work),
            [alive, done = std::move(done)](auto result) mutable {
                // A window closed meanwhile: the project is gone, drop the result.
                if (alive.expired()) return;
                done(std::move(result));
            },
            priority);
    }

    ProjectContext context_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    std::vector<std::pair<ObserverID, FieldObserver>> observers_;
    ObserverID nextObserverID_ = 1;
    std::optional<std::filesystem::path> fileFolder_;
    // The records being hydrated; a save meanwhile writes these, not the empty timeline.
    std::optional<std::vector<VantrellSnapshotClip>> hydrating_;

    std::vector<Clip> clips_;
    std::unordered_set<common::Uuid> selectedClipIDs_;
    std::optional<common::Uuid> selectionAnchor_;
    std::optional<GapSelection> selectedGap_;
    double playheadGlobal_ = 0;
    bool isExporting_ = false;
    double exportProgress_ = 0;
    std::string exportMessage_;
    bool showRetimeSheet_ = false;
    std::optional<ExportSheetState> exportSheet_;
    bool showCropSheet_ = false;
    std::int64_t compositionToken_ = 0;
    double zoomFactor_ = 1.0;
    std::optional<TrimReadoutInfo> trimReadout_;
    std::optional<TrimPreviewState> trimPreview_;
    std::optional<common::Uuid> trimSnappedClipID_;
    bool isPlaying_ = false;
    std::optional<double> dragLandingX_;
    std::vector<UndoEntry> undoStack_;
    std::vector<UndoEntry> redoStack_;
    // What the last recordSnapshot took from the history, for cancelEdit; until the edit ends.
    std::vector<UndoEntry> redoBeforeEdit_;
    std::optional<UndoEntry> oldestBeforeEdit_;
    SmallClipMode smallClipMode_ = SmallClipMode::proportional;
    double cropInsetTop_ = 0;
    double cropInsetLeading_ = 0;
    double cropInsetTrailing_ = 0;
    double cropInsetBottom_ = 0;
    double footerHeight_ = 282.0;
};

// The link state of one clip, from the clip alone; what Project::linkState answers for it.
ClipLinkState linkState(const Clip& clip);

// The record that saves one clip.
VantrellSnapshotClip snapshotRecord(const Clip& clip);

}  // namespace model
