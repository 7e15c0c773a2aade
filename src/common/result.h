#pragma once

#include <string>
#include <utility>
#include <variant>

namespace common {

// A failure that ends at the nearest caller able to decide what to do with it.
struct Error {
    std::string message;  // a full sentence, fit to show a user
    int avCode = 0;       // the FFmpeg code behind it, if any
};

// The value of an operation that can fail, or the reason it failed.
template <typename T>
class [[nodiscard]] Result {
  public:
    Result(T value) : v_(std::move(value)) {}
    Result(Error error) : v_(std::move(error)) {}

    bool ok() const noexcept { return v_.index() == 0; }
    explicit operator bool() const noexcept { return ok(); }

    T& value() & { return std::get<0>(v_); }
    const T& value() const& { return std::get<0>(v_); }
    T&& value() && { return std::get<0>(std::move(v_)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    const Error& error() const { return std::get<1>(v_); }

  private:
    std::variant<T, Error> v_;
};

using Status = Result<std::monostate>;

inline Status success() {
    return std::monostate{};
}

}  // namespace common
