#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "common/result.h"
#include "common/uuid.h"
#include "model/clip.h"
#include "model/image.h"
#include "model/snapshot.h"

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

    // Enrichment. Each covers the whole file, whatever a clip's trim, and blocks while it
    // decodes, so it is only called in the background.

    // A few small upright frames spread over the file, in time order; empty without video
    // or on any failure, and shorter when some frames can't be served.
    virtual std::vector<Image> generateFilmstrip(const std::filesystem::path& url,
                                                 double fullDurationSeconds) = 0;

    // Exactly `targetPeakCount` audio levels in 0...1 over the file's first audio stream,
    // in time order; none without audio or when decoding fails anywhere, never a part.
    virtual std::optional<std::vector<float>> extractPeaks(const std::filesystem::path& url,
                                                           int targetPeakCount) = 0;

    // The picture of `peaks` for the audio row; null if it can't be drawn.
    virtual Image drawWaveform(const std::vector<float>& peaks) = 0;
};

// Where a saved or copied record's file is now: where its bookmark leads, else its url.
inline std::filesystem::path currentLocation(
    MediaServices& media, const VantrellSnapshotClip& record,
    const std::optional<std::filesystem::path>& projectFolder) {
    if (record.bookmark)
        if (auto resolved = media.resolveBookmark(*record.bookmark, projectFolder))
            return *resolved;
    return record.url;
}

// The probe of `url`, where a saved or copied record's file is now. A record may hold any
// text as its url, and one that names no local file (not absolute, or holding a NUL that
// would cut the path short) fails here without reaching the media.
inline common::Result<Clip> probeRecordLocation(MediaServices& media,
                                                const std::filesystem::path& url,
                                                const std::optional<Bytes>& bookmark,
                                                const common::Uuid& id) {
    if (!url.is_absolute() || url.native().find('\0') != std::string::npos)
        return common::Error{"The clip's URL names no local file."};
    return media.probe(url, bookmark, id);
}

}  // namespace model
