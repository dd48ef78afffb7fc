#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Qx::Host::Cache {

/// Appends values to a byte string: numbers little-endian, texts and arrays after their length in 32 bits.
class ByteWriter
{
public:
    template <class Number>
    void number(Number value)
    {
        static_assert(std::is_unsigned_v<Number> && !std::is_same_v<Number, bool>);
        for (std::size_t i = 0; i < sizeof(Number); ++i) {
            bytes_.push_back(static_cast<std::byte>(value >> (8 * i)));
        }
    }

    template <class Enumeration>
    void enumeration(Enumeration value)
    {
        number(static_cast<std::underlying_type_t<Enumeration>>(value));
    }

    void count(std::size_t value) { number(static_cast<std::uint32_t>(value)); }

    void text(std::string_view text)
    {
        count(text.size());
        raw(std::as_bytes(std::span(text)));
    }

    void row(std::span<const std::byte> bytes)
    {
        count(bytes.size());
        raw(bytes);
    }

    void raw(std::span<const std::byte> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

    const std::vector<std::byte>& bytes() const { return bytes_; }
    std::vector<std::byte> take() { return std::move(bytes_); }

private:
    std::vector<std::byte> bytes_;
};

/// Reads what a ByteWriter wrote, or any other bytes: reading never leaves them, and what it allocates is
/// bounded by their number. After the first failure every result is zero or empty.
class ByteReader
{
public:
    /// The bytes must outlive this object.
    explicit ByteReader(std::span<const std::byte> bytes) : rest_(bytes) {}

    bool failed() const { return failed_; }

    /// Whether everything was read without a failure.
    bool finished() const { return !failed_ && rest_.empty(); }

    void fail()
    {
        failed_ = true;
        rest_ = {};
    }

    /// Fails unless the condition holds.
    void require(bool condition)
    {
        if (!condition) {
            fail();
        }
    }

    template <class Number>
    Number number()
    {
        static_assert(std::is_unsigned_v<Number> && !std::is_same_v<Number, bool>);
        Number value = 0;
        const std::span<const std::byte> bytes = raw(sizeof(Number));
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            value = static_cast<Number>(value | static_cast<Number>(std::to_integer<Number>(bytes[i]))
                                                    << (8 * i));
        }
        return value;
    }

    template <class Enumeration>
    Enumeration enumeration(Enumeration last)
    {
        const auto value = number<std::underlying_type_t<Enumeration>>();
        require(value <= static_cast<std::underlying_type_t<Enumeration>>(last));
        return failed_ ? Enumeration{} : static_cast<Enumeration>(value);
    }

    /// A number of items of at least that many bytes each. Fails if the remaining bytes cannot hold them.
    std::size_t count(std::size_t leastBytes)
    {
        const std::size_t value = number<std::uint32_t>();
        require(value <= rest_.size() / leastBytes);
        return failed_ ? 0 : value;
    }

    std::string text()
    {
        const std::span<const std::byte> bytes = raw(count(1));
        std::string text(bytes.size(), '\0');
        if (!bytes.empty()) {
            std::memcpy(text.data(), bytes.data(), bytes.size());
        }
        return text;
    }

    std::vector<std::byte> row()
    {
        const std::span<const std::byte> bytes = raw(count(1));
        return {bytes.begin(), bytes.end()};
    }

    /// That many bytes, in place; none if there are not enough.
    std::span<const std::byte> raw(std::size_t bytes)
    {
        require(bytes <= rest_.size());
        if (failed_) {
            return {};
        }
        const std::span<const std::byte> result = rest_.first(bytes);
        rest_ = rest_.subspan(bytes);
        return result;
    }

private:
    std::span<const std::byte> rest_;
    bool failed_ = false;
};

} // namespace Qx::Host::Cache
