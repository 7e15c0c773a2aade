#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

#include "common/result.h"
#include "export/mp4_boxes.h"

namespace exporting {

// The edit list one track of a finished movie gets. `handler` ('vide', 'soun') picks the
// track; edit durations are in the movie timescale given to finishMovieFile.
struct MovieTrackEdits {
    FourCC handler = 0;
    std::vector<Mp4Edit> edits;
};

// How the movie box gets in front of the media data. Inserting a range moves no data but
// needs a file system that can (ext4, XFS); copying shifts every byte and works anywhere.
enum class MovieBoxMove { insertRangeOrCopy = 1, copy };

// The most bytes the movie box libavformat writes can take for tracks of these many
// samples and this much codec set-up, with the edit lists finishMovieFile puts in: every
// table of the sample index at its widest, a chunk per sample with 64-bit offsets. Asking
// the muxer to keep this much room in front of the media data (its "moov_size") puts the
// movie box there without moving a byte of media afterwards.
std::uint64_t movieBoxRoom(std::uint64_t videoSamples, std::uint64_t audioSamples,
                           std::uint64_t setupBytes);

// Makes the `length` bytes after the file type box, room the muxer kept for a movie box
// that did not go there after all, a free box.
common::Status markRoomFree(const std::filesystem::path& path, std::uint64_t length);

// Puts the movie box of an MP4/QuickTime/M4A file that libavformat wrote in front of the
// media data, once `edit` has changed what it wants in it. A box already in front, in room
// kept for it, is edited where it stands; one written last moves in front with every chunk
// offset shifted to match. Leaves the file as it was on errors found before any byte is
// written, `edit`'s among them.
common::Status moveMovieBoxToFront(const std::filesystem::path& path,
                                   const std::function<common::Status(Mp4Box& moov)>& edit,
                                   MovieBoxMove move);

// Finishes an MP4/QuickTime/M4A file that libavformat wrote: each
// track gets its edit list, the movie gets `movieTimescale`, the track and movie durations
// become the sums of the edits, and the movie box moves in front of the media data with
// every chunk offset shifted to match. A track whose handler has no entry in `tracks` is
// an error. Leaves the file as it was on errors found before any byte is written.
common::Status finishMovieFile(const std::filesystem::path& path, std::uint32_t movieTimescale,
                               std::span<const MovieTrackEdits> tracks, MovieBoxMove move);

}  // namespace exporting
