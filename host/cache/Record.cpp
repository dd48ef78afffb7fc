#include "host/cache/Record.h"

#include "host/cache/Bytes.h"

#include <algorithm>

namespace Qx::Host::Cache {
namespace {

constexpr std::uint64_t recordMark = 0x3145484341435851; // "QXCACHE1": a change of the format changes it
constexpr std::size_t headerBytes = 8 + 1 + std::tuple_size_v<Digest> + 8;
constexpr std::size_t digestBytes = std::tuple_size_v<Digest>;

} // namespace

std::size_t recordOverhead()
{
    return headerBytes + digestBytes;
}

std::vector<std::byte> writeRecord(Kind kind, const Digest& key, std::span<const std::byte> content)
{
    ByteWriter to;
    to.number(recordMark);
    to.enumeration(kind);
    to.raw(key);
    to.number(static_cast<std::uint64_t>(content.size()));
    to.raw(content);
    to.raw(digestOf(to.bytes()));
    return to.take();
}

Condition unwrapRecord(std::vector<std::byte>& record, Kind kind, const Digest& key)
{
    ByteReader from(record);
    if (from.number<std::uint64_t>() != recordMark) {
        return record.size() >= sizeof recordMark ? Condition::OtherFormat : Condition::Damaged;
    }
    if (record.size() < headerBytes + digestBytes) {
        return Condition::Damaged;
    }
    const std::span<const std::byte> all(record);
    const Digest digest = digestOf(all.first(all.size() - digestBytes));
    const auto storedKind = from.number<std::uint8_t>();
    const std::span<const std::byte> storedKey = from.raw(key.size());
    const auto length = from.number<std::uint64_t>();
    if (!std::equal(digest.begin(), digest.end(), all.end() - digestBytes) ||
        storedKind != static_cast<std::uint8_t>(kind) ||
        !std::equal(key.begin(), key.end(), storedKey.begin()) ||
        length != record.size() - headerBytes - digestBytes) {
        return Condition::Damaged;
    }
    record.erase(record.begin(), record.begin() + headerBytes);
    record.resize(static_cast<std::size_t>(length));
    return Condition::Whole;
}

} // namespace Qx::Host::Cache
