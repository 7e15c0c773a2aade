#pragma once

#include <optional>
#include <string_view>

#include "common/result.h"
#include "model/snapshot.h"

namespace model {

// The type names that a project puts on a pasteboard.
struct PasteboardType {
    // A JSON array of clip records, in the project file's clip form.
    static constexpr std::string_view vantrellClips = "com.corvane.vantrell.clip-payload";
};

// A store of bytes under a type name that outlives any one document: the desktop
// clipboard in the window, a file for the command line, memory in tests. It holds one
// item at a time. Used only on the owning thread of the project that holds it.
class Pasteboard {
  public:
    virtual ~Pasteboard() = default;

    // Drops whatever the pasteboard held and leaves `data` there under `type` alone. On
    // failure the pasteboard may be left empty, but never holding part of `data`.
    virtual common::Status setContents(std::string_view type, const Bytes& data) = 0;

    // What the pasteboard holds under `type`; none when it holds nothing of that type.
    virtual std::optional<Bytes> data(std::string_view type) = 0;
};

}  // namespace model
