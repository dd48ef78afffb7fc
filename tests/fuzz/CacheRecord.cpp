#include "host/cache/Record.h"
#include "tests/fuzz/Targets.h"

#include <algorithm>

namespace Qx::Fuzz {
namespace {

using namespace Host::Cache;

void check(const std::vector<std::byte>& record, Kind kind, const Digest& key)
{
    std::vector<std::byte> content = record;
    const Condition condition = unwrapRecord(content, kind, key);
    if (condition == Condition::Whole) {
        promise(writeRecord(kind, key, content) == record, "a record comes back as other bytes");
    } else {
        promise(content == record, "a record that is not whole was changed");
    }
}

} // namespace

void cacheRecord(Input input)
{
    const std::span<const std::byte> bytes = std::as_bytes(input);
    std::vector<std::byte> record(bytes.begin(), bytes.end());
    // The key that the record claims, after the mark and the kind.
    constexpr std::size_t keyAt = 9;
    Digest key{};
    if (record.size() >= keyAt + key.size()) {
        std::copy_n(record.begin() + keyAt, key.size(), key.begin());
    }
    check(record, Kind::Effect, key);
    check(record, Kind::Pipelines, key);
    // No fuzzer finds a digest; with a valid one the rest is covered too.
    const Digest digest = digestOf(record);
    record.insert(record.end(), digest.begin(), digest.end());
    check(record, Kind::Effect, key);
    check(record, Kind::Pipelines, key);
}

} // namespace Qx::Fuzz
