#pragma once

#include "host/cache/Bytes.h"
#include "host/cache/Sha256.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace Qx::Host::Archive {

// A record is written and read by one list of its fields, which its own namespace has:
//
//     template <class Visit>
//     void fields(Visit& visit, Archive::Of<Visit, Record>& record)
//     {
//         visit(record.name, record.count);
//     }
//
// Fields are unsigned numbers, enumerations, texts, paths, bytes, digests that may be absent, other records,
// and vectors of all of these. An enumeration E comes with `constexpr E lastOf(E)`.

/// A record as its list of fields gets it.
template <class Visit, class Record>
using Of = std::conditional_t<Visit::writes, const Record, Record>;

template <class Field>
concept Number = std::is_unsigned_v<Field> && !std::is_same_v<Field, bool>;

/// Appends fields to bytes.
class FieldWriter
{
public:
    static constexpr bool writes = true;

    /// `to` lives longer than this object.
    explicit FieldWriter(Cache::ByteWriter& to) : to_(to) {}

    template <class... Fields>
    void operator()(const Fields&... values)
    {
        (visit(values), ...);
    }

    /// See FieldReader.
    void require(bool) {}

private:
    template <class Field>
    void visit(const Field& value)
    {
        if constexpr (Number<Field>) {
            to_.number(value);
        } else if constexpr (std::is_enum_v<Field>) {
            to_.enumeration(value);
        } else {
            fields(*this, value);
        }
    }

    void visit(const std::string& text) { to_.text(text); }
    void visit(const std::filesystem::path& path) { to_.text(path.native()); }
    void visit(const std::vector<std::byte>& bytes) { to_.row(bytes); }

    void visit(const std::optional<Cache::Digest>& digest)
    {
        to_.number(static_cast<std::uint8_t>(digest ? 1 : 0));
        if (digest) {
            to_.raw(*digest);
        }
    }

    template <class Item>
    void visit(const std::vector<Item>& items)
    {
        to_.count(items.size());
        for (const Item& item : items) {
            visit(item);
        }
    }

    Cache::ByteWriter& to_;
};

/// The fewest bytes that a field takes, which bounds how many of them a row of bytes can hold.
template <class Field>
std::size_t leastBytes()
{
    static const std::size_t least = [] {
        Cache::ByteWriter bytes;
        FieldWriter write(bytes);
        write(Field{});
        return bytes.bytes().size();
    }();
    return least;
}

/// Reads what a FieldWriter wrote, or anything else: see Cache::ByteReader.
class FieldReader
{
public:
    static constexpr bool writes = false;

    /// `from` lives longer than this object.
    explicit FieldReader(Cache::ByteReader& from) : from_(from) {}

    template <class... Fields>
    void operator()(Fields&... values)
    {
        (visit(values), ...);
    }

    /// Fails unless the condition on the fields before holds.
    void require(bool condition) { from_.require(condition); }

private:
    template <class Field>
    void visit(Field& value)
    {
        if constexpr (Number<Field>) {
            value = from_.number<Field>();
        } else if constexpr (std::is_enum_v<Field>) {
            value = from_.enumeration(lastOf(Field{}));
        } else {
            fields(*this, value);
        }
    }

    void visit(std::string& text) { text = from_.text(); }
    void visit(std::filesystem::path& path) { path = from_.text(); }
    void visit(std::vector<std::byte>& bytes) { bytes = from_.row(); }

    void visit(std::optional<Cache::Digest>& digest)
    {
        const auto present = from_.number<std::uint8_t>();
        from_.require(present <= 1);
        if (present == 1) {
            digest.emplace();
            const std::span<const std::byte> bytes = from_.raw(digest->size());
            std::copy(bytes.begin(), bytes.end(), digest->begin());
        }
    }

    template <class Item>
    void visit(std::vector<Item>& items)
    {
        for (std::size_t left = from_.count(leastBytes<Item>()); left > 0 && !from_.failed(); --left) {
            visit(items.emplace_back());
        }
    }

    Cache::ByteReader& from_;
};

} // namespace Qx::Host::Archive
