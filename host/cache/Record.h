#pragma once

#include "host/cache/Sha256.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Qx::Host::Cache {

/// The kind of an entry's content; the suffix of its file's name.
enum class Kind : std::uint8_t
{
    Effect,
    Pipelines,
};

/// The bytes of a record in addition to its content.
std::size_t recordOverhead();

/// The file of an entry: a magic number, the kind, the key, the length of the content, the content, and a
/// SHA-256 of all of that.
std::vector<std::byte> writeRecord(Kind kind, const Digest& key, std::span<const std::byte> content);

enum class Condition
{
    Whole,
    OtherFormat, ///< of another version of this system
    Damaged      ///< or it belongs to another entry
};

/// Reduces a valid record of that kind and key to its content; leaves any other bytes as they are. Safe for
/// bytes of any origin.
Condition unwrapRecord(std::vector<std::byte>& record, Kind kind, const Digest& key);

} // namespace Qx::Host::Cache
