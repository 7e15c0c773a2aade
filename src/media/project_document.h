#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "common/result.h"
#include "model/project.h"

namespace media {

// A project and the file it lives in. Opening is two stages: open() decodes the file and
// applies zoom, playhead and framing at once, then hydration probes the media in the
// background and fills the timeline in one step. The modified flag is the document's
// dirty state, raised by the project's didChange and cleared by a save.
// Confined to the project's owning thread.
class ProjectDocument {
  public:
    explicit ProjectDocument(model::ProjectContext context);
    // The project's didChange holds `this`, so the document stays where it was made.
    ProjectDocument(const ProjectDocument&) = delete;
    ProjectDocument& operator=(const ProjectDocument&) = delete;

    // Fails when the file can't be read or doesn't decode; nothing is changed then.
    static common::Result<std::unique_ptr<ProjectDocument>> open(const std::filesystem::path& file,
                                                                 model::ProjectContext context);

    // Writes the project to `file` without ever leaving a partial file there; on failure
    // the old file stays as it was.
    common::Status save(const std::filesystem::path& file);
    common::Status save();

    model::Project& project() { return *project_; }
    const model::Project& project() const { return *project_; }
    const std::optional<std::filesystem::path>& file() const { return file_; }
    bool isModified() const { return modified_; }

    // Told each time the document becomes modified; the window marks itself with it.
    std::function<void()> onModified = [] {};

  private:
    std::unique_ptr<model::Project> project_;
    std::optional<std::filesystem::path> file_;
    bool modified_ = false;
    bool awaitingHydration_ = false;
};

}  // namespace media
