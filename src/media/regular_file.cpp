#include "media/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace media {

namespace {

const char* kindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "something other than a file";
}

}  // namespace

common::Result<RegularFile> RegularFile::open(const std::filesystem::path& path) {
    const std::string& name = path.native();
    if (name.find('\0') != std::string::npos)
        return common::Error{"The path " + displayPath(path) +
                             " holds a NUL character, so it names no file."};
    // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer forever.
    const int fd = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return common::Error{"Can't open " + name + ": " + std::strerror(errno) + "."};
    RegularFile file(fd, 0);
    struct stat status {};
    if (::fstat(fd, &status) != 0)
        return common::Error{"Can't read " + name + ": " + std::strerror(errno) + "."};
    if (!S_ISREG(status.st_mode))
        return common::Error{name + " is " + kindOf(status.st_mode) + ", not a regular file."};
    // Reads of a regular file never wait on O_NONBLOCK, but callers may hand the
    // descriptor on, so it goes back to plain blocking reads.
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    file.sizeBytes_ = static_cast<std::uint64_t>(status.st_size);
    return file;
}

RegularFile::RegularFile(RegularFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), sizeBytes_(other.sizeBytes_) {}

RegularFile& RegularFile::operator=(RegularFile&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = std::exchange(other.fd_, -1);
        sizeBytes_ = other.sizeBytes_;
    }
    return *this;
}

RegularFile::~RegularFile() {
    if (fd_ >= 0) ::close(fd_);
}

std::string RegularFile::reopenPath() const {
    return "/proc/self/fd/" + std::to_string(fd_);
}

std::string displayPath(const std::filesystem::path& path) {
    std::string shown;
    for (char c : path.native()) {
        if (c == '\0')
            shown += "%00";
        else
            shown += c;
    }
    return shown;
}

}  // namespace media
