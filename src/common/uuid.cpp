#include "common/uuid.h"

#include <mutex>
#include <random>

namespace common {

Uuid Uuid::random() {
    static std::mutex mutex;
    static std::mt19937_64 engine{std::random_device{}()};
    std::array<std::uint8_t, 16> b{};
    {
        std::lock_guard lock(mutex);
        for (int i = 0; i < 2; ++i) {
            auto word = engine();
            for (int j = 0; j < 8; ++j) b[i * 8 + j] = static_cast<std::uint8_t>(word >> (8 * j));
        }
    }
    b[6] = static_cast<std::uint8_t>((b[6] & 0x0F) | 0x40);
    b[8] = static_cast<std::uint8_t>((b[8] & 0x3F) | 0x80);
    return Uuid(b);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    std::array<std::uint8_t, 16> b{};
    std::size_t out = 0;
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return -1;
    };
    for (std::size_t i = 0; i < 36;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        int hi = nibble(text[i]), lo = nibble(text[i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        b[out++] = static_cast<std::uint8_t>(hi * 16 + lo);
        i += 2;
    }
    return Uuid(b);
}

std::string Uuid::toString() const {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string s;
    s.reserve(36);
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) s += '-';
        s += kHex[bytes_[i] >> 4];
        s += kHex[bytes_[i] & 0x0F];
    }
    return s;
}

}  // namespace common
