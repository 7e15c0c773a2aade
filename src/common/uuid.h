#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace common {

// A 128-bit identifier. Its text form is 36 upper-case hexadecimal characters
// grouped 8-4-4-4-12, which is also the only form parse() accepts besides lower case.
class Uuid {
  public:
    Uuid() = default;  // the nil UUID
    explicit Uuid(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

    // A new version-4 UUID; safe to call from any thread.
    static Uuid random();
    static std::optional<Uuid> parse(std::string_view text);

    std::string toString() const;
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend auto operator<=>(const Uuid&, const Uuid&) = default;

  private:
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace common

template <>
struct std::hash<common::Uuid> {
    std::size_t operator()(const common::Uuid& u) const noexcept {
        std::size_t h = 0;
        for (auto b : u.bytes()) h = h * 131 + b;
        return h;
    }
};
