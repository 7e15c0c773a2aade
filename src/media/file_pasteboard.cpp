#include "media/file_pasteboard.h"

#include <cassert>
#include <string>
#include <utility>

#include "media/atomic_file.h"

namespace media {

FilePasteboard::FilePasteboard(std::filesystem::path file) : file_(std::move(file)) {}

common::Status FilePasteboard::setContents(std::string_view type, const model::Bytes& data) {
    assert(type.find('\n') == std::string_view::npos && "a type name is one line");
    std::string contents(type);
    contents += '\n';
    contents.append(data.begin(), data.end());
    auto written = writeFileAtomically(file_, contents);
    if (written)
        lastWriteFailure_.reset();
    else
        lastWriteFailure_ = written.error();
    return written;
}

std::optional<model::Bytes> FilePasteboard::data(std::string_view type) {
    // The type line comes on top of a payload of the largest size a paste reads.
    auto contents = readRegularFile(file_, model::kLargestSnapshotBytes + 4096);
    if (!contents) return std::nullopt;
    std::string_view text = *contents;
    auto end = text.find('\n');
    if (end == std::string_view::npos || text.substr(0, end) != type) return std::nullopt;
    text.remove_prefix(end + 1);
    return model::Bytes(text.begin(), text.end());
}

}  // namespace media
