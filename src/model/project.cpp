#include "model/project.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <utility>

#include "common/log.h"
#include "model/clip_edit_fields.h"

namespace model {

Project::Project(ProjectContext context) : context_(std::move(context)) {}

Project::~Project() = default;

Project::ObserverID Project::addObserver(FieldObserver observer) {
    observers_.emplace_back(nextObserverID_, std::move(observer));
    return nextObserverID_++;
}

void Project::removeObserver(ObserverID id) {
    std::erase_if(observers_, [id](const auto& entry) { return entry.first == id; });
}

void Project::notify(ProjectField field) {
    // An observer may remove itself while being told, so walk a copy.
    auto observers = observers_;
    for (auto& [id, observer] : observers) observer(field);
}

template <typename T>
void Project::assign(T& field, T value, ProjectField which) {
    if (field == value) return;
    field = std::move(value);
    notify(which);
}

const Clip* Project::clip(const common::Uuid& id) const {
    for (const auto& c : clips_)
        if (c.id == id) return &c;
    return nullptr;
}

void Project::setClips(std::vector<Clip> clips) {
    assign(clips_, std::move(clips), ProjectField::clips);
}

void Project::setSelectedClipIDs(std::unordered_set<common::Uuid> ids) {
    assign(selectedClipIDs_, std::move(ids), ProjectField::selectedClipIDs);
}

void Project::setSelectionAnchor(std::optional<common::Uuid> anchor) {
    assign(selectionAnchor_, anchor, ProjectField::selectionAnchor);
}

void Project::setSelectedGap(std::optional<GapSelection> gap) {
    assign(selectedGap_, gap, ProjectField::selectedGap);
}

std::optional<common::Uuid> Project::selectedClipID() const {
    if (selectionAnchor_ && selectedClipIDs_.contains(*selectionAnchor_)) return selectionAnchor_;
    if (selectedClipIDs_.empty()) return std::nullopt;
    return *selectedClipIDs_.begin();
}

void Project::setSelectedClipID(std::optional<common::Uuid> id) {
    if (id) {
        setSelectedClipIDs({*id});
        setSelectionAnchor(id);
    } else {
        setSelectedClipIDs({});
        setSelectionAnchor(std::nullopt);
    }
    if (selectedGap_) setSelectedGap(std::nullopt);
}

void Project::setPlayheadGlobal(double seconds) {
    assign(playheadGlobal_, seconds, ProjectField::playheadGlobal);
}
void Project::setIsExporting(bool v) {
    assign(isExporting_, v, ProjectField::isExporting);
}
void Project::setExportProgress(double v) {
    assign(exportProgress_, v, ProjectField::exportProgress);
}
void Project::setExportMessage(std::string v) {
    assign(exportMessage_, std::move(v), ProjectField::exportMessage);
}
void Project::setShowRetimeSheet(bool v) {
    assign(showRetimeSheet_, v, ProjectField::showRetimeSheet);
}
void Project::setShowCropSheet(bool v) {
    assign(showCropSheet_, v, ProjectField::showCropSheet);
}

void Project::setExportSheet(std::optional<ExportSheetState> v) {
    // The sheet's identity is its id: a state with the same id is the same sheet.
    bool same = exportSheet_.has_value() == v.has_value() && (!v || exportSheet_->id == v->id);
    exportSheet_ = std::move(v);
    if (!same) notify(ProjectField::exportSheet);
}

void Project::raiseCompositionToken() {
    didChange();
    ++compositionToken_;
    notify(ProjectField::compositionToken);
}

void Project::setZoomFactor(double v) {
    assign(zoomFactor_, v, ProjectField::zoomFactor);
}
void Project::setTrimReadout(std::optional<TrimReadoutInfo> v) {
    assign(trimReadout_, v, ProjectField::trimReadout);
}
void Project::setTrimPreview(std::optional<TrimPreviewState> v) {
    assign(trimPreview_, std::move(v), ProjectField::trimPreview);
}
void Project::setTrimSnappedClipID(std::optional<common::Uuid> v) {
    assign(trimSnappedClipID_, v, ProjectField::trimSnappedClipID);
}
void Project::setIsPlaying(bool v) {
    assign(isPlaying_, v, ProjectField::isPlaying);
}
void Project::setDragLandingX(std::optional<double> v) {
    assign(dragLandingX_, v, ProjectField::dragLandingX);
}
void Project::setFooterHeight(double v) {
    assign(footerHeight_, v, ProjectField::footerHeight);
}

void Project::setSmallClipMode(SmallClipMode mode) {
    didChange();
    if (mode == smallClipMode_) return;
    smallClipMode_ = mode;
    notify(ProjectField::smallClipMode);
    raiseCompositionToken();
}

void Project::setCropInset(double& field, double v, ProjectField which) {
    // Any write marks the document edited, even one that keeps the value.
    didChange();
    assign(field, v, which);
}
void Project::setCropInsetTop(double v) {
    setCropInset(cropInsetTop_, v, ProjectField::cropInsetTop);
}
void Project::setCropInsetLeading(double v) {
    setCropInset(cropInsetLeading_, v, ProjectField::cropInsetLeading);
}
void Project::setCropInsetTrailing(double v) {
    setCropInset(cropInsetTrailing_, v, ProjectField::cropInsetTrailing);
}
void Project::setCropInsetBottom(double v) {
    setCropInset(cropInsetBottom_, v, ProjectField::cropInsetBottom);
}

double Project::totalDurationSeconds() const {
    double end = 0;
    for (const auto& c : clips_) end = std::max(end, c.timelineEnd());
    return end;
}

void Project::clampPlayhead() {
    double bound = std::max(totalDurationSeconds() - 0.001, 0.0);
    if (playheadGlobal_ > bound) setPlayheadGlobal(bound);
}

void Project::recordSnapshot(std::string name) {
    undoStack_.push_back({std::move(name), clips_});
    oldestBeforeEdit_.reset();
    if (undoStack_.size() > static_cast<std::size_t>(maxHistory)) {
        oldestBeforeEdit_ = std::move(undoStack_.front());
        undoStack_.erase(undoStack_.begin());
    }
    notify(ProjectField::undoStack);
    redoBeforeEdit_ = std::exchange(redoStack_, {});
    notify(ProjectField::redoStack);
}

void Project::forgetBeforeEdit() {
    redoBeforeEdit_.clear();
    oldestBeforeEdit_.reset();
}

void Project::commitEdit() {
    forgetBeforeEdit();
    raiseCompositionToken();
    clampPlayhead();
    setTrimReadout(std::nullopt);
    setTrimSnappedClipID(std::nullopt);
    setTrimPreview(std::nullopt);
}

void Project::cancelEdit() {
    if (undoStack_.empty()) return;
    std::vector<Clip> clips = std::move(undoStack_.back().clips);
    undoStack_.pop_back();
    if (oldestBeforeEdit_) undoStack_.insert(undoStack_.begin(), std::move(*oldestBeforeEdit_));
    notify(ProjectField::undoStack);
    redoStack_ = std::move(redoBeforeEdit_);
    notify(ProjectField::redoStack);
    forgetBeforeEdit();
    setClips(std::move(clips));
    clampPlayhead();
    setTrimReadout(std::nullopt);
    setTrimSnappedClipID(std::nullopt);
    setTrimPreview(std::nullopt);
    setDragLandingX(std::nullopt);
}

void Project::undo() {
    if (undoStack_.empty()) return;
    forgetBeforeEdit();
    UndoEntry entry = std::move(undoStack_.back());
    undoStack_.pop_back();
    notify(ProjectField::undoStack);
    redoStack_.push_back({entry.name, {}});
    notify(ProjectField::redoStack);
    swapInClips(std::move(entry.clips), redoStack_.back().clips);
    raiseCompositionToken();
    clampPlayhead();
}

void Project::redo() {
    if (redoStack_.empty()) return;
    forgetBeforeEdit();
    UndoEntry entry = std::move(redoStack_.back());
    redoStack_.pop_back();
    notify(ProjectField::redoStack);
    undoStack_.push_back({entry.name, {}});
    notify(ProjectField::undoStack);
    swapInClips(std::move(entry.clips), undoStack_.back().clips);
    raiseCompositionToken();
    clampPlayhead();
}

void Project::swapInClips(std::vector<Clip> clips, std::vector<Clip>& previous) {
    // Moved, not copied: a long timeline's copy would cost more than the rest of the step.
    bool changed = clips != clips_;
    previous = std::exchange(clips_, std::move(clips));
    if (changed) notify(ProjectField::clips);
}

std::optional<std::string> Project::undoName() const {
    if (undoStack_.empty()) return std::nullopt;
    return undoStack_.back().name;
}

std::optional<std::string> Project::redoName() const {
    if (redoStack_.empty()) return std::nullopt;
    return redoStack_.back().name;
}

void Project::setFileLocation(std::optional<std::filesystem::path> projectFile) {
    fileFolder_.reset();
    if (projectFile) fileFolder_ = projectFile->parent_path();
}

void Project::importURLs(std::vector<std::filesystem::path> urls) {
    if (urls.empty()) return;
    recordSnapshot("Import");
    importNext(std::make_shared<const std::vector<std::filesystem::path>>(std::move(urls)), 0);
}

void Project::importNext(std::shared_ptr<const std::vector<std::filesystem::path>> urls,
                         std::size_t index) {
    if (index >= urls->size()) return;
    auto url = (*urls)[index];
    runMediaTask(
        [media = context_.media, url] {
            auto bookmark = media->makeBookmark(url);
            return media->probe(url, bookmark, common::Uuid::random());
        },
        [this, urls, index, url](common::Result<Clip> probed) {
            if (!probed) {
                common::logLine("Vantrell: failed to import " + url.filename().string() + ": " +
                                probed.error().message);
            } else {
                Clip clip = std::move(probed).value();
                // Read the end now, not when the batch began: the user may have edited since.
                clip.startOnTimeline = totalDurationSeconds();
                auto id = clip.id;
                auto clips = clips_;
                clips.push_back(std::move(clip));
                setClips(std::move(clips));
                if (!selectedClipID()) setSelectedClipID(id);
                raiseCompositionToken();
                enrichAssetsAsync(id);
            }
            importNext(urls, index + 1);
        });
}

VantrellSnapshotClip snapshotRecord(const Clip& c) {
    VantrellSnapshotClip r;
    r.id = c.id;
    r.url = c.url;
    r.bookmark = c.bookmark;
    r.inSeconds = c.inSeconds;
    r.outSeconds = c.outSeconds;
    r.startOnTimeline = c.startOnTimeline;
    if (c.streamMask != StreamMask::both) r.streamMask = c.streamMask;
    r.linkGroupID = c.linkGroupID;
    if (std::abs(c.rateMultiplier - 1.0) >= 0.0001) r.rateMultiplier = c.rateMultiplier;
    if (c.isReversed) r.isReversed = true;
    r.forwardInSeconds = c.forwardInSeconds;
    r.forwardOutSeconds = c.forwardOutSeconds;
    return r;
}

VantrellSnapshot Project::makeSnapshot() const {
    VantrellSnapshot s;
    s.version = 1;
    if (hydrating_) {
        // Written under the same omission rules as live clips, so that a hand-edited
        // "both" or a rate of 1.00005 is dropped by this save too.
        s.clips.reserve(hydrating_->size());
        for (const auto& r : *hydrating_)
            s.clips.push_back(snapshotRecord(Clip::missingPlaceholder(r)));
    } else {
        s.clips.reserve(clips_.size());
        for (const auto& c : clips_) s.clips.push_back(snapshotRecord(c));
    }
    s.playheadGlobal = playheadGlobal_;
    s.zoomFactor = zoomFactor_;
    if (smallClipMode_ != SmallClipMode::proportional) s.smallClipMode = smallClipMode_;
    auto inset = [](double v) { return v == 0.0 ? std::nullopt : std::optional<double>(v); };
    s.cropInsetTop = inset(cropInsetTop_);
    s.cropInsetLeading = inset(cropInsetLeading_);
    s.cropInsetTrailing = inset(cropInsetTrailing_);
    s.cropInsetBottom = inset(cropInsetBottom_);
    return s;
}

void Project::applySnapshotEagerly(const VantrellSnapshot& s) {
    setZoomFactor(s.zoomFactor);
    setPlayheadGlobal(s.playheadGlobal);
    setSmallClipMode(s.smallClipMode.value_or(SmallClipMode::proportional));
    setCropInsetTop(s.cropInsetTop.value_or(0));
    setCropInsetLeading(s.cropInsetLeading.value_or(0));
    setCropInsetTrailing(s.cropInsetTrailing.value_or(0));
    setCropInsetBottom(s.cropInsetBottom.value_or(0));
}

void Project::hydrateClips(std::vector<VantrellSnapshotClip> records) {
    assert(!hydrating_ && "one hydration at a time: both would walk the same records");
    hydrating_ = std::move(records);
    // One job probes the files one after the other and hands back all of them: waking the
    // owning thread between two probes would only wait for it, as nothing shows before the
    // last one.
    runMediaTask(
        [media = context_.media, records = *hydrating_, folder = fileFolder_,
         alive = std::weak_ptr<int>(alive_)] {
            std::vector<std::pair<std::filesystem::path, common::Result<Clip>>> probed;
            probed.reserve(records.size());
            for (const auto& record : records) {
                // The window closed: nobody is left to take the rest.
                if (alive.expired()) break;
                auto url = currentLocation(*media, record, folder);
                probed.emplace_back(url,
                                    probeRecordLocation(*media, url, record.bookmark, record.id));
            }
            return probed;
        },
        [this](std::vector<std::pair<std::filesystem::path, common::Result<Clip>>> probed) {
            finishHydration(std::move(probed));
        });
}

void Project::finishHydration(
    std::vector<std::pair<std::filesystem::path, common::Result<Clip>>> probed) {
    std::vector<Clip> done;
    done.reserve(probed.size());
    for (std::size_t i = 0; i < probed.size(); ++i) {
        const auto& record = (*hydrating_)[i];
        auto& [url, clip] = probed[i];
        if (clip) {
            Clip c = std::move(clip).value();
            applyEditDecisions(record, c);
            done.push_back(std::move(c));
        } else {
            std::string name = url.filename().string();
            // A NUL from a damaged URL would end the log line early.
            std::replace(name.begin(), name.end(), '\0', '?');
            common::logLine("Vantrell: missing media for " + name + " — preserving as placeholder");
            done.push_back(Clip::missingPlaceholder(record));
        }
    }
    hydrating_.reset();
    setClips(std::move(done));
    // A placeholder has no file to read.
    for (const auto& c : clips_) {
        if (c.isMissing) continue;
        enrichAssetsAsync(c.id);
        if (c.isReversed) renderReversedAsync(c.id);
    }
    raiseCompositionToken();
    undoStack_.clear();
    notify(ProjectField::undoStack);
    redoStack_.clear();
    notify(ProjectField::redoStack);
    forgetBeforeEdit();
}

}  // namespace model
