#include "media/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "media/regular_file.h"

namespace media {

namespace {

common::Error systemError(const std::string& what, const std::filesystem::path& file, int err) {
    return common::Error{what + " " + file.string() + ": " + std::strerror(err) + "."};
}

// Closes and, unless released, removes the temporary file.
class TemporaryFile {
  public:
    TemporaryFile(int fd, std::filesystem::path path) : fd_(fd), path_(std::move(path)) {}
    ~TemporaryFile() {
        if (fd_ >= 0) ::close(fd_);
        if (!released_) ::unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int fd() const { return fd_; }
    const std::filesystem::path& path() const { return path_; }
    int close() {
        int rc = ::close(fd_);
        fd_ = -1;
        return rc;
    }
    void release() { released_ = true; }

  private:
    int fd_;
    std::filesystem::path path_;
    bool released_ = false;
};

}  // namespace

common::Status writeFileAtomically(const std::filesystem::path& destination,
                                   std::string_view contents) {
    auto folder =
        destination.parent_path().empty() ? std::filesystem::path(".") : destination.parent_path();
    std::string pattern =
        (folder / ("." + destination.filename().string() + ".tmp-XXXXXX")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0) return systemError("Can't write beside", destination, errno);
    TemporaryFile temp(fd, name.data());

    struct stat existing {};
    mode_t mode = 0644;
    if (::stat(destination.c_str(), &existing) == 0) mode = existing.st_mode & 07777;
    ::fchmod(temp.fd(), mode);

    const char* data = contents.data();
    std::size_t left = contents.size();
    while (left > 0) {
        ssize_t n = ::write(temp.fd(), data, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            return systemError("Can't write", destination, errno);
        }
        data += n;
        left -= static_cast<std::size_t>(n);
    }
    if (::fsync(temp.fd()) != 0) return systemError("Can't write", destination, errno);
    if (temp.close() != 0) return systemError("Can't write", destination, errno);
    if (::rename(temp.path().c_str(), destination.c_str()) != 0)
        return systemError("Can't replace", destination, errno);
    temp.release();
    return common::success();
}

common::Result<std::string> readRegularFile(const std::filesystem::path& file,
                                            std::uint64_t largestBytes) {
    auto opened = RegularFile::open(file);
    if (!opened) return opened.error();
    if (opened->sizeBytes() > largestBytes)
        return common::Error{"The file " + file.string() +
                             " is too large to read: " + std::to_string(opened->sizeBytes()) +
                             " bytes, more than " + std::to_string(largestBytes) + "."};
    std::string contents(opened->sizeBytes(), '\0');
    std::size_t filled = 0;
    // The file may grow or shrink while it is read; what is there up to the limit counts.
    for (;;) {
        if (filled == contents.size()) {
            if (contents.size() >= largestBytes) break;
            contents.resize(std::min<std::uint64_t>(contents.size() + 4096, largestBytes));
        }
        const ssize_t n = ::read(opened->fd(), contents.data() + filled, contents.size() - filled);
        if (n < 0) {
            if (errno == EINTR) continue;
            return systemError("Can't read", file, errno);
        }
        if (n == 0) break;
        filled += static_cast<std::size_t>(n);
    }
    contents.resize(filled);
    return contents;
}

}  // namespace media
