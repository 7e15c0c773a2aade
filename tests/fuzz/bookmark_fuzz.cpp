// The bookmark decoder: a project file's bookmark bytes are whatever the file says.
#include <cstddef>
#include <cstdint>

#include "media/bookmark.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const model::Bytes bytes(data, data + size);
    static_cast<void>(media::decodeBookmark(bytes));
    return 0;
}
