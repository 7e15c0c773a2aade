#include "export/movie_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace exporting {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kCopyBlock = 8 << 20;
constexpr std::uint64_t kFreeHeader = 8;

// An open file descriptor, closed when it goes.
class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            if (fd_ >= 0) ::close(fd_);
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

common::Error systemError(const std::string& what, const fs::path& path) {
    return common::Error{what + " " + path.string() + ": " + std::strerror(errno) + "."};
}

common::Status readAt(int fd, std::span<std::uint8_t> into, std::uint64_t offset,
                      const fs::path& path) {
    std::size_t done = 0;
    while (done < into.size()) {
        const ssize_t n =
            ::pread(fd, into.data() + done, into.size() - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return systemError("Cannot read", path);
        if (n == 0) return common::Error{"The file " + path.string() + " ends too early."};
        done += static_cast<std::size_t>(n);
    }
    return common::success();
}

common::Status writeAt(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset,
                       const fs::path& path) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::pwrite(fd, bytes.data() + done, bytes.size() - done,
                                   static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return systemError("Cannot write", path);
        done += static_cast<std::size_t>(n);
    }
    return common::success();
}

struct TopLevelBox {
    FourCC type = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

common::Result<std::vector<TopLevelBox>> scanTopLevel(int fd, std::uint64_t fileSize,
                                                      const fs::path& path) {
    std::vector<TopLevelBox> boxes;
    std::uint64_t at = 0;
    while (at < fileSize) {
        std::uint8_t header[16] = {};
        const std::uint64_t left = fileSize - at;
        const auto want = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof header, left));
        if (auto read = readAt(fd, {header, want}, at, path); !read) return read.error();
        const auto parsed = parseMp4BoxHeader({header, want}, left);
        if (!parsed) {
            return common::Error{"The movie " + path.string() + " has a broken box at byte " +
                                 std::to_string(at) + "."};
        }
        boxes.push_back({parsed->type, at, parsed->size});
        at += parsed->size;
    }
    return boxes;
}

common::Status applyEdits(Mp4Box& moov, std::uint32_t movieTimescale,
                          std::span<const MovieTrackEdits> tracks) {
    Mp4Box* mvhd = findMp4Child(moov, fourCC("mvhd"));
    if (!mvhd) return common::Error{"The movie box has no movie header."};
    std::uint64_t movieDuration = 0;
    for (auto& trak : moov.children) {
        if (trak.type != fourCC("trak")) continue;
        const Mp4Box* mdia = findMp4Child(trak, fourCC("mdia"));
        const Mp4Box* hdlr = mdia ? findMp4Child(*mdia, fourCC("hdlr")) : nullptr;
        if (!hdlr) return common::Error{"A track of the movie has no handler."};
        auto handler = mp4HandlerType(*hdlr);
        if (!handler) return handler.error();
        const auto match = std::find_if(tracks.begin(), tracks.end(),
                                        [&](const auto& t) { return t.handler == *handler; });
        if (match == tracks.end()) return common::Error{"The movie has a track nobody asked for."};
        std::uint64_t duration = 0;
        for (const auto& edit : match->edits) duration += edit.duration;
        if (auto replaced = replaceMp4EditList(trak, match->edits); !replaced) return replaced;
        Mp4Box* tkhd = findMp4Child(trak, fourCC("tkhd"));
        if (auto set = setMp4Duration(*tkhd, duration); !set) return set;
        movieDuration = std::max(movieDuration, duration);
    }
    for (const auto& track : tracks)
        if (!findMp4Track(moov, track.handler))
            return common::Error{"The movie lacks a track it should have."};
    if (auto set = setMp4Timescale(*mvhd, movieTimescale); !set) return set;
    return setMp4Duration(*mvhd, movieDuration);
}

// The movie box with its chunk offsets moved by the shift that `shiftFor` asks for the
// box's own final size. Offsets widening to 64 bits grow the box, which can ask for a
// larger shift, so this goes round until size and shift agree; sizes only grow, and each
// track widens at most once.
template <typename ShiftFor>
common::Result<std::pair<std::vector<std::uint8_t>, std::uint64_t>> relocated(const Mp4Box& moov,
                                                                              ShiftFor shiftFor) {
    std::uint64_t size = mp4BoxSize(moov);
    while (true) {
        const std::uint64_t shift = shiftFor(size);
        Mp4Box moved = moov;
        if (auto shifted = shiftMp4ChunkOffsets(moved, shift); !shifted) return shifted.error();
        const std::uint64_t movedSize = mp4BoxSize(moved);
        if (shiftFor(movedSize) == shift) {
            std::vector<std::uint8_t> bytes;
            bytes.reserve(movedSize);
            appendMp4Box(bytes, moved);
            return std::pair{std::move(bytes), shift};
        }
        size = movedSize;
    }
}

// The movie box at `box`, read and changed by `edit`.
common::Result<Mp4Box> editedMovieBox(int fd, const TopLevelBox& box,
                                      const std::function<common::Status(Mp4Box& moov)>& edit,
                                      const fs::path& path) {
    std::vector<std::uint8_t> bytes(box.size);
    if (auto read = readAt(fd, bytes, box.offset, path); !read) return read.error();
    auto parsed = parseMp4Boxes(bytes);
    if (!parsed)
        return common::Error{"The movie box of " + path.string() + " is broken. " +
                             parsed.error().message};
    Mp4Box moov = std::move(parsed->front());
    if (auto edited = edit(moov); !edited) return edited.error();
    return moov;
}

// Edits the movie box where the muxer wrote it, in front of the media data with the room
// kept for it after it as free boxes; the room takes up what the box gains or loses.
common::Status editInRoom(int fd, const TopLevelBox& moovBox, std::uint64_t room,
                          const std::function<common::Status(Mp4Box& moov)>& edit,
                          const fs::path& path) {
    auto moov = editedMovieBox(fd, moovBox, edit, path);
    if (!moov) return moov.error();
    std::vector<std::uint8_t> bytes;
    appendMp4Box(bytes, *moov);
    if (bytes.size() != room) {
        if (bytes.size() + kFreeHeader > room)
            return common::Error{"The movie box of " + path.string() +
                                 " outgrew the room kept for it."};
        appendMp4BoxHeader(bytes, fourCC("free"), room - bytes.size() - kFreeHeader);
    }
    return writeAt(fd, bytes, moovBox.offset, path);
}

// Opens a hole of `length` bytes at the start of the file without moving data on disk.
bool insertRange(int fd, std::uint64_t length) {
    return ::fallocate(fd, FALLOC_FL_INSERT_RANGE, 0, static_cast<off_t>(length)) == 0;
}

// Moves [from, end) up by `shift` bytes, last block first so nothing is overwritten
// before it has been read.
common::Status shiftUp(int fd, std::uint64_t from, std::uint64_t end, std::uint64_t shift,
                       const fs::path& path) {
    std::vector<std::uint8_t> block(kCopyBlock);
    while (end > from) {
        const auto n = static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, end - from));
        end -= n;
        if (auto read = readAt(fd, {block.data(), n}, end, path); !read) return read;
        if (auto written = writeAt(fd, {block.data(), n}, end + shift, path); !written)
            return written;
    }
    return common::success();
}

}  // namespace

std::uint64_t movieBoxRoom(std::uint64_t videoSamples, std::uint64_t audioSamples,
                           std::uint64_t setupBytes) {
    // Per video sample: time-to-sample, composition offset, size, sync and partial-sync
    // marks, dependency flags, sample group, sample-to-chunk and a 64-bit chunk offset.
    constexpr std::uint64_t kPerVideoSample = 64;
    constexpr std::uint64_t kPerAudioSample = 48;
    // Headers, descriptions, user data and the edit lists, for the movie and two tracks.
    constexpr std::uint64_t kFixed = 16 << 10;
    return kFixed + setupBytes + videoSamples * kPerVideoSample + audioSamples * kPerAudioSample;
}

common::Status markRoomFree(const fs::path& path, std::uint64_t length) {
    FileDescriptor file{::open(path.c_str(), O_RDWR | O_CLOEXEC)};
    if (file.get() < 0) return systemError("Cannot open", path);
    std::uint8_t header[16] = {};
    if (auto read = readAt(file.get(), header, 0, path); !read) return read;
    const auto ftyp = parseMp4BoxHeader(header, UINT64_MAX);
    if (!ftyp || ftyp->type != fourCC("ftyp") || length < kFreeHeader)
        return common::Error{"The movie " + path.string() + " does not start as it was written."};
    std::vector<std::uint8_t> free;
    appendMp4BoxHeader(free, fourCC("free"), length - kFreeHeader);
    return writeAt(file.get(), free, ftyp->size, path);
}

common::Status moveMovieBoxToFront(const fs::path& path,
                                   const std::function<common::Status(Mp4Box& moov)>& edit,
                                   MovieBoxMove move) {
    FileDescriptor file{::open(path.c_str(), O_RDWR | O_CLOEXEC)};
    if (file.get() < 0) return systemError("Cannot open", path);
    struct stat info {};
    if (::fstat(file.get(), &info) != 0) return systemError("Cannot inspect", path);
    const auto fileSize = static_cast<std::uint64_t>(info.st_size);

    auto boxes = scanTopLevel(file.get(), fileSize, path);
    if (!boxes) return boxes.error();
    if (boxes->size() >= 3 && boxes->front().type == fourCC("ftyp") &&
        (*boxes)[1].type == fourCC("moov") && (*boxes)[2].type == fourCC("free")) {
        std::uint64_t room = 0;
        for (auto box = boxes->begin() + 1;
             box != boxes->end() && (box->type == fourCC("moov") || box->type == fourCC("free"));
             ++box)
            room += box->size;
        return editInRoom(file.get(), (*boxes)[1], room, edit, path);
    }
    if (boxes->size() < 2 || boxes->front().type != fourCC("ftyp") ||
        boxes->back().type != fourCC("moov")) {
        return common::Error{"The movie " + path.string() +
                             " does not start with a file type box and end with its movie box."};
    }
    const TopLevelBox ftyp = boxes->front();
    const TopLevelBox moovAtEnd = boxes->back();

    auto edited = editedMovieBox(file.get(), moovAtEnd, edit, path);
    if (!edited) return edited.error();
    const Mp4Box moov = std::move(edited).value();

    // Preferred layout: a hole of whole file-system blocks opens at the start; it takes the
    // file type box, the movie box and a free box that runs up to the old media data,
    // swallowing the old file type box on the way.
    if (move == MovieBoxMove::insertRangeOrCopy) {
        const auto blockSize =
            static_cast<std::uint64_t>(info.st_blksize > 0 ? info.st_blksize : 4096);
        auto placed = relocated(moov, [&](std::uint64_t size) {
            return (size + kFreeHeader + blockSize - 1) / blockSize * blockSize;
        });
        if (!placed) return placed.error();
        const auto& [bytes, shift] = *placed;
        if (insertRange(file.get(), shift)) {
            std::vector<std::uint8_t> head(ftyp.size);
            if (auto read = readAt(file.get(), head, shift + ftyp.offset, path); !read) return read;
            head.insert(head.end(), bytes.begin(), bytes.end());
            appendMp4BoxHeader(head, fourCC("free"), shift - bytes.size() - kFreeHeader);
            if (auto written = writeAt(file.get(), head, 0, path); !written) return written;
            if (::ftruncate(file.get(), static_cast<off_t>(shift + moovAtEnd.offset)) != 0)
                return systemError("Cannot shorten", path);
            return common::success();
        }
    }

    // Anywhere else: everything between the file type box and the old movie box moves up
    // by the movie box's size.
    auto placed = relocated(moov, [](std::uint64_t size) { return size; });
    if (!placed) return placed.error();
    const auto& [bytes, shift] = *placed;
    const std::uint64_t dataStart = ftyp.offset + ftyp.size;
    if (auto moved = shiftUp(file.get(), dataStart, moovAtEnd.offset, shift, path); !moved)
        return moved;
    if (auto written = writeAt(file.get(), bytes, dataStart, path); !written) return written;
    if (::ftruncate(file.get(), static_cast<off_t>(moovAtEnd.offset + shift)) != 0)
        return systemError("Cannot shorten", path);
    return common::success();
}

common::Status finishMovieFile(const fs::path& path, std::uint32_t movieTimescale,
                               std::span<const MovieTrackEdits> tracks, MovieBoxMove move) {
    return moveMovieBoxToFront(
        path,
        [&](Mp4Box& moov) -> common::Status {
            if (auto edited = applyEdits(moov, movieTimescale, tracks); !edited) {
                return common::Error{"Cannot set the edit lists of " + path.string() + ". " +
                                     edited.error().message};
            }
            return common::success();
        },
        move);
}

}  // namespace exporting
