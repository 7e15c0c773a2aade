#pragma once

#include <filesystem>
#include <optional>

#include "common/result.h"
#include "common/uuid.h"
#include "model/clip.h"

namespace model {

// What a project needs from the media layer. The media library implements it; tests
// may substitute their own. Every member may be called from any background thread at
// once, so implementations keep no unguarded state.
class MediaServices {
  public:
    virtual ~MediaServices() = default;

    // The probe: reads a file and makes a live clip with every field filled in.
    virtual common::Result<Clip> probe(const std::filesystem::path& url,
                                       const std::optional<Bytes>& bookmark,
                                       const common::Uuid& id) = 0;

    // A durable reference to a file that survives a move or a rename; none if the file
    // can't be read.
    virtual std::optional<Bytes> makeBookmark(const std::filesystem::path& url) = 0;

    // Finds the file behind a bookmark. `projectFolder` is the folder of the project
    // file, where a moved file may also be looked for.
    virtual std::optional<std::filesystem::path> resolveBookmark(
        const Bytes& bookmark, const std::optional<std::filesystem::path>& projectFolder) = 0;

    // Renders the stretch `fromSeconds` to `toSeconds` of `url`'s picture backward into a
    // new temporary file and answers that file, or none on any failure. Takes as long as
    // the render does, so it is only called in the background.
    virtual std::optional<std::filesystem::path> renderReversed(const std::filesystem::path& url,
                                                                double fromSeconds,
                                                                double toSeconds) = 0;
};

}  // namespace model
