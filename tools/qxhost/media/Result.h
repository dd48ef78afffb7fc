#pragma once

#include <string>
#include <utility>
#include <variant>

namespace Qx::Media {

/// Why something failed: one line for people that names the file and the cause.
struct Error
{
    std::string text;
};

/// Success, or an Error. Nothing in this folder throws for a fault of the input or of the system.
class [[nodiscard]] Status
{
public:
    Status() = default;
    Status(Error error) : text_(std::move(error.text)), failed_(true) {}

    explicit operator bool() const { return !failed_; }
    /// Empty on success.
    const std::string& text() const { return text_; }

private:
    std::string text_;
    bool failed_ = false;
};

/// A T, or an Error.
template <class T>
class [[nodiscard]] Result
{
public:
    Result(T value) : held_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : held_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return held_.index() == 0; }
    /// Only on success.
    T& value() { return *std::get_if<0>(&held_); }
    const T& value() const { return *std::get_if<0>(&held_); }
    /// Only on failure.
    const Error& error() const { return *std::get_if<1>(&held_); }
    const std::string& text() const { return error().text; }

private:
    std::variant<T, Error> held_;
};

} // namespace Qx::Media
