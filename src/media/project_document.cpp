#include "media/project_document.h"

#include "media/atomic_file.h"
#include "model/snapshot.h"

namespace media {

ProjectDocument::ProjectDocument(model::ProjectContext context)
    : project_(std::make_unique<model::Project>(std::move(context))) {
    project_->didChange = [this] {
        // The token raised as hydration ends is the last step of opening, not an edit.
        if (awaitingHydration_ && !project_->isHydrating()) {
            awaitingHydration_ = false;
            return;
        }
        modified_ = true;
        onModified();
    };
}

common::Result<std::unique_ptr<ProjectDocument>> ProjectDocument::open(
    const std::filesystem::path& file, model::ProjectContext context) {
    auto text = readRegularFile(file, model::kLargestSnapshotBytes);
    if (!text) return text.error();
    auto snapshot = model::decodeSnapshot(*text);
    if (!snapshot)
        return common::Error{"Can't open " + file.string() + ": " + snapshot.error().message};
    auto document = std::make_unique<ProjectDocument>(std::move(context));
    auto absolute = std::filesystem::absolute(file);
    document->file_ = absolute;
    document->project_->setFileLocation(absolute);
    document->project_->applySnapshotEagerly(*snapshot);
    // Setting the framing and insets calls didChange, but a file just read is not edited.
    document->modified_ = false;
    document->awaitingHydration_ = true;
    document->project_->hydrateClips(std::move(snapshot->clips));
    return document;
}

common::Status ProjectDocument::save(const std::filesystem::path& file) {
    auto text = model::encodeSnapshot(project_->makeSnapshot());
    if (!text) return text.error();
    auto absolute = std::filesystem::absolute(file);
    if (auto written = writeFileAtomically(absolute, *text); !written) return written;
    file_ = absolute;
    project_->setFileLocation(absolute);
    modified_ = false;
    return common::success();
}

common::Status ProjectDocument::save() {
    if (!file_) return common::Error{"The project has no file to save to yet."};
    return save(*file_);
}

}  // namespace media
