#include "media/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

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

common::Result<std::string> readRegularFile(const std::filesystem::path& file) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(file, ec))
        return common::Error{"The file " + file.string() +
                             " doesn't exist or isn't a regular file."};
    std::ifstream in(file, std::ios::binary);
    if (!in) return systemError("Can't read", file, errno);
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) return systemError("Can't read", file, errno);
    return buffer.str();
}

}  // namespace media
