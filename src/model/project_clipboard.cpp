#include "model/project.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/clip_edit_fields.h"

// The pasteboard carries only file references and edit decisions, never media: a pasted
// clip is probed anew from its file, which is what lets a payload cross documents and runs.

namespace model {

struct Project::PasteRun {
    std::vector<VantrellSnapshotClip> records;
    double offset = 0;
    // The new group of each source group that more than one record uses.
    std::unordered_map<common::Uuid, common::Uuid> groups;
    std::optional<common::Uuid> firstPasted;
};

namespace {

// Compact, as a default JSON encoder writes it: no wrapper object and no version.
std::optional<Bytes> encodePayload(const std::vector<VantrellSnapshotClip>& records) {
    nlohmann::json array = nlohmann::json::array();
    for (const auto& r : records) {
        auto item = toJson(r);
        if (!item) return std::nullopt;
        array.push_back(std::move(item.value()));
    }
    std::string text = array.dump();
    return Bytes(text.begin(), text.end());
}

// All records or none: one bad record makes the whole payload unusable.
std::optional<std::vector<VantrellSnapshotClip>> decodePayload(const Bytes& bytes) {
    if (bytes.size() > kLargestSnapshotBytes) return std::nullopt;
    auto parsed = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr,
                                        /*allow_exceptions=*/false);
    if (parsed.is_discarded() || !parsed.is_array() || parsed.size() > kMostSnapshotClips)
        return std::nullopt;
    std::vector<VantrellSnapshotClip> records;
    records.reserve(parsed.size());
    for (const auto& item : parsed) {
        auto record = clipFromJson(item);
        if (!record) return std::nullopt;
        records.push_back(std::move(record.value()));
    }
    return records;
}

}  // namespace

void Project::writeClipsToPasteboard(const std::vector<Clip>& clips) {
    std::vector<VantrellSnapshotClip> records;
    records.reserve(clips.size());
    for (const auto& c : clips) records.push_back(snapshotRecord(c));
    auto payload = encodePayload(records);
    if (!payload) return;
    // Copying reports nothing: a pasteboard that can't take the payload is left to itself.
    static_cast<void>(context_.pasteboard->setContents(PasteboardType::vantrellClips, *payload));
}

std::optional<std::vector<VantrellSnapshotClip>> Project::readClipsFromPasteboard() {
    auto bytes = context_.pasteboard->data(PasteboardType::vantrellClips);
    if (!bytes) return std::nullopt;
    return decodePayload(*bytes);
}

void Project::copySelection() {
    // An empty selection leaves the pasteboard as it was.
    if (!context_.pasteboard || selectedClipIDs_.empty()) return;
    std::vector<Clip> chosen;
    for (const auto& c : clips_)
        if (selectedClipIDs_.contains(c.id)) chosen.push_back(c);
    // Ids of clips that are gone select nothing: the empty list that goes out keeps a later
    // paste from bringing back whatever an earlier copy left.
    // Timeline order, whatever the stacking order or the order of selecting.
    std::stable_sort(chosen.begin(), chosen.end(), [](const Clip& a, const Clip& b) {
        return a.startOnTimeline < b.startOnTimeline;
    });
    writeClipsToPasteboard(chosen);
}

void Project::pasteAtPlayhead() {
    if (!context_.pasteboard) return;
    auto records = readClipsFromPasteboard();
    if (!records || records->empty()) return;
    recordSnapshot("Paste");

    auto run = std::make_shared<PasteRun>();
    auto earliest = std::min_element(
        records->begin(), records->end(),
        [](const auto& a, const auto& b) { return a.startOnTimeline < b.startOnTimeline; });
    // Fixed now: the playhead may move while the files are probed.
    run->offset = playheadGlobal_ - earliest->startOnTimeline;
    std::unordered_map<common::Uuid, int> uses;
    for (const auto& r : *records)
        if (r.linkGroupID) ++uses[*r.linkGroupID];
    // A pair pasted together becomes a new pair, apart from the one it was copied from; a
    // lone half loses its link, since its partner was not pasted.
    for (const auto& [group, count] : uses)
        if (count > 1) run->groups.emplace(group, common::Uuid::random());
    run->records = std::move(*records);
    pasteNext(std::move(run), 0);
}

void Project::pasteNext(std::shared_ptr<PasteRun> run, std::size_t index) {
    if (index == run->records.size()) {
        if (run->firstPasted) setSelectedClipID(run->firstPasted);
        // Once for the whole paste, also when every file was gone.
        raiseCompositionToken();
        return;
    }
    VantrellSnapshotClip record = run->records[index];
    runMediaTask(
        [media = context_.media, record, folder = fileFolder_] {
            const auto url = currentLocation(*media, record, folder);
            // A new id, so pasted clips never clash with the ones they were copied from.
            return probeRecordLocation(*media, url, record.bookmark, common::Uuid::random());
        },
        [this, run, index, record](common::Result<Clip> probed) {
            // A file that is gone is skipped without a word or a placeholder.
            if (probed) {
                Clip c = std::move(probed).value();
                applyEditDecisions(record, c);
                c.startOnTimeline = std::max(run->offset + record.startOnTimeline, 0.0);
                c.linkGroupID.reset();
                if (record.linkGroupID)
                    if (auto renewed = run->groups.find(*record.linkGroupID);
                        renewed != run->groups.end())
                        c.linkGroupID = renewed->second;
                auto id = c.id;
                if (!run->firstPasted) run->firstPasted = id;
                // Appended, so pasted clips lie above everything already there.
                auto clips = clips_;
                clips.push_back(std::move(c));
                setClips(std::move(clips));
                enrichAssetsAsync(id);
                if (record.isReversed.value_or(false)) renderReversedAsync(id);
            }
            pasteNext(run, index + 1);
        });
}

}  // namespace model
