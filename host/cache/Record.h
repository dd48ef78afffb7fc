#pragma once

#include "host/cache/Sha256.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Qx::Host::Cache {

/// What an entry holds: the end of its file's name.
enum class Kind : std::uint8_t
{
    Effect,
    Pipelines,
};

/// Bytes of a record beside its content.
std::size_t recordOverhead();

/// The file of an entry: a mark, the kind, the key, the content behind its length, and a SHA-256 of all that.
std::vector<std::byte> writeRecord(Kind kind, const Digest& key, std::span<const std::byte> content);

enum class Condition
{
    Whole,
    OtherFormat, ///< of another version of this system
    Damaged      ///< or the record of another entry
};

/// Leaves of a whole record of that kind and key its content alone; others stay as they are. Bytes of any
/// origin are safe to give.
Condition unwrapRecord(std::vector<std::byte>& record, Kind kind, const Digest& key);

} // namespace Qx::Host::Cache
