#include "media/bookmark.h"

#include <sys/stat.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

namespace media {

namespace {

// Folders of media are small; this bounds a search through an unexpectedly huge one.
constexpr std::size_t kMaxEntriesSearched = 20000;

// The file system hands a freed inode number to the next new file at once, so an inode
// names the same file only while size and modification time agree too; a move or a
// rename keeps all four.
bool sameFile(const FileIdentity& a, const FileIdentity& b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size &&
           a.modifiedNanoseconds == b.modifiedNanoseconds;
}

bool sameContentsByLook(const FileIdentity& a, const FileIdentity& b) {
    return a.path.filename() == b.path.filename() && a.size == b.size &&
           a.modifiedNanoseconds == b.modifiedNanoseconds;
}

class Search {
  public:
    explicit Search(const FileIdentity& wanted) : wanted_(wanted) {}

    // Looks through `folder` and its direct subfolders; true once the file itself is found.
    bool scan(const std::filesystem::path& folder, int depth) {
        std::error_code ec;
        std::filesystem::directory_iterator it(folder, ec), end;
        std::vector<std::filesystem::path> subfolders;
        for (; !ec && it != end; it.increment(ec)) {
            if (++seen_ > kMaxEntriesSearched) return false;
            const auto& entry = *it;
            std::error_code typeError;
            if (entry.is_directory(typeError)) {
                if (depth > 0 && !entry.is_symlink(typeError)) subfolders.push_back(entry.path());
                continue;
            }
            auto id = fileIdentity(entry.path());
            if (!id) continue;
            if (sameFile(*id, wanted_)) {
                found_ = id->path;
                return true;
            }
            if (!lookalike_ && sameContentsByLook(*id, wanted_)) lookalike_ = id->path;
        }
        for (const auto& sub : subfolders)
            if (scan(sub, depth - 1)) return true;
        return false;
    }

    std::optional<std::filesystem::path> result() const { return found_ ? found_ : lookalike_; }

  private:
    const FileIdentity& wanted_;
    std::size_t seen_ = 0;
    std::optional<std::filesystem::path> found_;
    std::optional<std::filesystem::path> lookalike_;
};

}  // namespace

std::optional<FileIdentity> fileIdentity(const std::filesystem::path& file) {
    struct stat st {};
    if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    FileIdentity id;
    id.path = file;
    id.device = static_cast<std::uint64_t>(st.st_dev);
    id.inode = static_cast<std::uint64_t>(st.st_ino);
    id.size = static_cast<std::uint64_t>(st.st_size);
    id.modifiedNanoseconds =
        static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec;
    return id;
}

std::optional<model::Bytes> makeBookmark(const std::filesystem::path& file) {
    std::error_code ec;
    auto absolute = std::filesystem::absolute(file, ec);
    if (ec) return std::nullopt;
    auto id = fileIdentity(absolute);
    if (!id) return std::nullopt;
    nlohmann::json j = {{"path", absolute.string()},
                        {"device", id->device},
                        {"inode", id->inode},
                        {"size", id->size},
                        {"modified", id->modifiedNanoseconds}};
    std::string text = j.dump();
    return model::Bytes(text.begin(), text.end());
}

std::optional<FileIdentity> decodeBookmark(const model::Bytes& bookmark) {
    auto j = nlohmann::json::parse(bookmark.begin(), bookmark.end(), nullptr, false);
    if (j.is_discarded() || !j.is_object()) return std::nullopt;
    // The library converts any number to the type asked for, and a fraction out of that
    // type's range is undefined behaviour; only whole numbers that fit are taken.
    auto whole = [&j](const char* key) -> std::optional<std::uint64_t> {
        auto it = j.find(key);
        if (it == j.end() || !it->is_number_unsigned()) return std::nullopt;
        return it->get<std::uint64_t>();
    };
    auto path = j.find("path");
    auto device = whole("device"), inode = whole("inode"), size = whole("size");
    auto modified = j.find("modified");
    if (path == j.end() || !path->is_string() || !device || !inode || !size ||
        modified == j.end() || !modified->is_number_integer())
        return std::nullopt;
    if (modified->is_number_unsigned() &&
        modified->get<std::uint64_t>() > std::numeric_limits<std::int64_t>::max())
        return std::nullopt;
    FileIdentity id;
    id.path = path->get<std::string>();
    id.device = *device;
    id.inode = *inode;
    id.size = *size;
    id.modifiedNanoseconds = modified->get<std::int64_t>();
    if (!id.path.is_absolute()) return std::nullopt;
    return id;
}

std::optional<std::filesystem::path> resolveBookmark(
    const model::Bytes& bookmark, const std::optional<std::filesystem::path>& projectFolder) {
    auto wanted = decodeBookmark(bookmark);
    if (!wanted) return std::nullopt;
    if (auto there = fileIdentity(wanted->path))
        if (sameFile(*there, *wanted) || sameContentsByLook(*there, *wanted)) return wanted->path;

    Search search(*wanted);
    std::vector<std::filesystem::path> folders{wanted->path.parent_path(),
                                               wanted->path.parent_path().parent_path()};
    if (projectFolder) folders.push_back(*projectFolder);
    for (const auto& folder : folders)
        if (search.scan(folder, 1)) break;
    return search.result();
}

}  // namespace media
