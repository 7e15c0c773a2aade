#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "common/result.h"
#include "model/pasteboard.h"

namespace media {

// A pasteboard kept in one file, so that separate runs of the command line share it as
// programs share the desktop clipboard. The file holds the type name on its first line and
// the data after it; a file that is missing or has no such line is an empty pasteboard.
// Each write replaces the whole file atomically, so a reader never sees half a payload.
// Used on one thread.
class FilePasteboard final : public model::Pasteboard {
  public:
    explicit FilePasteboard(std::filesystem::path file);

    common::Status setContents(std::string_view type, const model::Bytes& data) override;
    std::optional<model::Bytes> data(std::string_view type) override;

    const std::filesystem::path& file() const { return file_; }
    // Why the last write failed, if it did: the project drops that answer, since copying
    // reports nothing, but a command line wants to say so.
    const std::optional<common::Error>& lastWriteFailure() const { return lastWriteFailure_; }

  private:
    std::filesystem::path file_;
    std::optional<common::Error> lastWriteFailure_;
};

}  // namespace media
