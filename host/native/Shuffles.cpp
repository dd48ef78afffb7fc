#include "host/native/Shuffles.h"

#include <array>
#include <numeric>

namespace Qx::Host::Native {
namespace {

/// The vectors one after the other. There are 1, 2, 4, ... of them, of `size` numbers each.
LLVMValueRef joined(const Emitter& emit, std::vector<LLVMValueRef> each, std::uint32_t size)
{
    for (; each.size() > 1; size *= 2) {
        std::vector<std::uint32_t> order(std::size_t{2} * size);
        std::iota(order.begin(), order.end(), 0U);
        std::vector<LLVMValueRef> next;
        for (std::size_t k = 0; k + 1 < each.size(); k += 2) {
            next.push_back(shuffled(emit, each[k], each[k + 1], order));
        }
        each = next;
    }
    return each.front();
}

/// Of each four numbers of both vectors, those that the pattern names: 0 to 3 of the first, 4 to 7 of the
/// second.
LLVMValueRef merged(const Emitter& emit, LLVMValueRef a, LLVMValueRef b,
                    const std::array<std::uint32_t, 4>& pattern)
{
    std::vector<std::uint32_t> order;
    for (std::uint32_t block = 0; block < emit.lanes; block += 4) {
        for (const std::uint32_t p : pattern) {
            order.push_back(block + (p & 3U) + (p >= 4 ? emit.lanes : 0));
        }
    }
    return shuffled(emit, a, b, order);
}

std::vector<LLVMValueRef> transposedFours(const Emitter& emit, const std::vector<LLVMValueRef>& each)
{
    std::array<LLVMValueRef, 4> rows{}; // of lanes j, 4 + j, 8 + j, ...
    for (std::uint32_t j = 0; j < 4; ++j) {
        std::vector<LLVMValueRef> some;
        for (std::uint32_t l = j; l < emit.lanes; l += 4) {
            some.push_back(each[l]);
        }
        rows.at(j) = joined(emit, some, 4);
    }
    constexpr std::array<std::uint32_t, 4> low{0, 4, 1, 5};
    constexpr std::array<std::uint32_t, 4> high{2, 6, 3, 7};
    constexpr std::array<std::uint32_t, 4> first{0, 1, 4, 5};
    constexpr std::array<std::uint32_t, 4> second{2, 3, 6, 7};
    LLVMValueRef a = merged(emit, rows[0], rows[1], low);
    LLVMValueRef b = merged(emit, rows[2], rows[3], low);
    LLVMValueRef c = merged(emit, rows[0], rows[1], high);
    LLVMValueRef d = merged(emit, rows[2], rows[3], high);
    return {merged(emit, a, b, first), merged(emit, a, b, second), merged(emit, c, d, first),
            merged(emit, c, d, second)};
}

} // namespace

LLVMValueRef shuffled(const Emitter& emit, LLVMValueRef a, LLVMValueRef b,
                      std::span<const std::uint32_t> order)
{
    return LLVMBuildShuffleVector(emit.items, a, b, emit.numbers(order), "");
}

LLVMValueRef shuffled(const Emitter& emit, LLVMValueRef a, std::span<const std::uint32_t> order)
{
    return shuffled(emit, a, LLVMGetUndef(LLVMTypeOf(a)), order);
}

std::vector<LLVMValueRef> transposed(const Emitter& emit, const std::vector<LLVMValueRef>& each,
                                     std::uint32_t count)
{
    return count == 4 ? transposedFours(emit, each) : strided(emit, joined(emit, each, count), count, count);
}

std::vector<LLVMValueRef> strided(const Emitter& emit, LLVMValueRef all, std::uint32_t count,
                                  std::uint32_t distance)
{
    std::vector<LLVMValueRef> result;
    for (std::uint32_t w = 0; w < count; ++w) {
        std::vector<std::uint32_t> order;
        for (std::uint32_t l = 0; l < emit.lanes; ++l) {
            order.push_back(l * distance + w);
        }
        result.push_back(shuffled(emit, all, order));
    }
    return result;
}

LLVMValueRef interleaved(const Emitter& emit, const std::vector<LLVMValueRef>& vectors)
{
    if (vectors.size() == 1) {
        return vectors.front();
    }
    std::vector<LLVMValueRef> even;
    std::vector<LLVMValueRef> odd;
    for (std::size_t k = 0; k < vectors.size(); ++k) {
        (k % 2 == 0 ? even : odd).push_back(vectors[k]);
    }
    LLVMValueRef a = interleaved(emit, even);
    LLVMValueRef b = interleaved(emit, odd);
    const unsigned size = LLVMGetVectorSize(LLVMTypeOf(a));
    std::vector<std::uint32_t> order;
    for (std::uint32_t k = 0; k < size; ++k) {
        order.push_back(k);
        order.push_back(size + k);
    }
    return shuffled(emit, a, b, order);
}

} // namespace Qx::Host::Native
