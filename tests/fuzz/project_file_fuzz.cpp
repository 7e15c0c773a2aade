// The project file reader: any bytes decode to a snapshot that round-trips, or to a message.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "model/snapshot.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto decoded = model::decodeSnapshot(text);
    if (!decoded) {
        if (decoded.error().message.empty()) std::abort();
        return 0;
    }
    auto encoded = model::encodeSnapshot(*decoded);
    if (!encoded) return 0;
    auto again = model::decodeSnapshot(*encoded);
    if (!again || !(*again == *decoded)) std::abort();
    return 0;
}
