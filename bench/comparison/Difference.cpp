#include "bench/comparison/Difference.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace Qx::Bench {
namespace {

constexpr std::size_t edgePixels = 12;

std::vector<char> bytesOf(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class Tally
{
public:
    void add(unsigned one, unsigned other)
    {
        const unsigned apart = std::max(one, other) - std::min(one, other);
        largest_ = std::max(largest_, apart);
        differing_ += apart != 0 ? 1U : 0U;
        ++all_;
    }

    Difference result() const
    {
        return {largest_, all_ != 0 ? static_cast<double>(differing_) / static_cast<double>(all_) : 0.0};
    }

private:
    unsigned largest_ = 0;
    std::size_t differing_ = 0;
    std::size_t all_ = 0;
};

template <class Value>
Value valueAt(const std::vector<char>& bytes, std::size_t at)
{
    Value value{};
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

Difference packedDifference(const std::vector<char>& ours, const std::vector<char>& theirs)
{
    Tally tally;
    for (std::size_t at = 0; at < ours.size(); at += 4) {
        const auto one = valueAt<std::uint32_t>(ours, at);
        const auto other = valueAt<std::uint32_t>(theirs, at);
        for (const unsigned shift : {0U, 10U, 20U}) {
            tally.add(one >> shift & 1023U, other >> shift & 1023U);
        }
    }
    return tally.result();
}

template <class Component>
Difference componentDifference(const std::vector<char>& ours, const std::vector<char>& theirs,
                               std::size_t row, std::size_t edge)
{
    Tally tally;
    for (std::size_t start = 0; start < ours.size(); start += row) {
        for (std::size_t at = start + edge; at < start + row - edge; at += sizeof(Component)) {
            tally.add(valueAt<Component>(ours, at), valueAt<Component>(theirs, at));
        }
    }
    return tally.result();
}

} // namespace

std::optional<Difference> differenceOf(const Work& work, const std::string& ourFile,
                                       const std::string& theirFile)
{
    const std::vector<char> ours = bytesOf(ourFile);
    const std::vector<char> theirs = bytesOf(theirFile);
    const FrameLayout layout = resultLayout(work.kind);
    if (ours.size() != frameBytes(layout, work.depth) || theirs.size() != ours.size()) {
        return std::nullopt;
    }
    if (layout == FrameLayout::V210) {
        return packedDifference(ours, theirs);
    }
    const std::size_t row = rowBytes(layout, work.depth);
    const bool filtered = work.filter != ChromaFilter::None && work.filter != ChromaFilter::Point;
    const std::size_t edge = filtered ? edgePixels * row / static_cast<std::size_t>(frameWidth) : 0;
    return work.depth == 8 ? componentDifference<std::uint8_t>(ours, theirs, row, edge)
                           : componentDifference<std::uint16_t>(ours, theirs, row, edge);
}

bool isSameResult(const Work& work, const Difference& difference)
{
    const bool deep = work.depth == 16 && resultLayout(work.kind) != FrameLayout::V210;
    return difference.largest <= (deep ? 2U : 1U);
}

} // namespace Qx::Bench
