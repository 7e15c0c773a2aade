#pragma once

#include <cstddef>
#include <random>
#include <string>

namespace testing_support {

// `count` bytes of noise, the same for every run and `seed`.
inline std::string randomBytes(std::size_t count, unsigned seed = 12) {
    std::mt19937 noise(seed);
    std::string bytes(count, '\0');
    for (char& c : bytes) c = static_cast<char>(noise() & 0xff);
    return bytes;
}

}  // namespace testing_support
