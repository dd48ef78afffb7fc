#include "host/native/Target.h"

#include "host/native/Shuffles.h"

namespace Qx::Host::Native {

void Target::add(const std::array<Component, 4>& codes)
{
    const std::uint32_t bits = emit_.source.targetBits;
    const std::uint32_t perWord = 32 / bits;
    for (std::uint32_t first = 0; first < codes.size(); first += perWord) {
        Component word;
        for (std::uint32_t k = 0; k < perWord; ++k) {
            Component c = codes.at(first + k);
            if (c.value == nullptr) {
                refuse("it does not always have a result");
            }
            c = k == 0 ? c : emit_.binary(LLVMShl, c, emit_.constant(k * bits, emit_.i32));
            word = k == 0 ? c : emit_.binary(LLVMOr, word, c);
        }
        words_.push_back(emit_.spread(word));
    }
}

LLVMValueRef Target::placeOfItem() const
{
    const auto bytes = static_cast<std::int64_t>(4 * words_.size());
    LLVMValueRef item = LLVMBuildZExt(emit_.items, emit_.item, emit_.i64, "");
    return LLVMBuildMul(emit_.items, item, emit_.wide(bytes), "");
}

void Target::storeAll()
{
    const std::size_t count = words_.size();
    LLVMValueRef to = placeOfItem();
    std::size_t group = 1; // words that are stored together for each lane
    while (group < 4 && count % (group * 2) == 0) {
        group *= 2;
    }
    for (std::size_t first = 0; first < count; first += group) {
        const auto begin = words_.begin() + static_cast<std::ptrdiff_t>(first);
        LLVMValueRef all = interleaved(emit_, {begin, begin + static_cast<std::ptrdiff_t>(group)});
        if (group == count) {
            memory_.storeTo(to, all);
            break;
        }
        for (std::uint32_t l = 0; l < emit_.lanes; ++l) {
            std::vector<std::uint32_t> order;
            for (std::size_t k = 0; k < group; ++k) {
                order.push_back(static_cast<std::uint32_t>(l * group + k));
            }
            const auto place = static_cast<std::int64_t>(4 * (l * count + first));
            memory_.storeTo(LLVMBuildAdd(emit_.items, to, emit_.wide(place), ""),
                            shuffled(emit_, all, order));
        }
    }
}

void Target::storeBefore(LLVMValueRef end)
{
    const auto count = static_cast<std::uint32_t>(words_.size());
    LLVMValueRef to = placeOfItem();
    LLVMValueRef all = interleaved(emit_, words_);
    for (std::uint32_t l = 0; l < emit_.lanes; ++l) {
        LLVMBasicBlockRef one = emit_.block();
        LLVMBasicBlockRef next = emit_.block();
        LLVMValueRef texel = LLVMBuildAdd(emit_.items, emit_.item, emit_.number(l), "");
        LLVMBuildCondBr(emit_.items, LLVMBuildICmp(emit_.items, LLVMIntULT, texel, end, ""), one, next);
        LLVMPositionBuilderAtEnd(emit_.items, one);
        std::vector<std::uint32_t> order;
        for (std::uint32_t k = 0; k < count; ++k) {
            order.push_back(l * count + k);
        }
        const std::int64_t place = std::int64_t{4} * l * count;
        memory_.storeTo(LLVMBuildAdd(emit_.items, to, emit_.wide(place), ""), shuffled(emit_, all, order));
        LLVMBuildBr(emit_.items, next);
        LLVMPositionBuilderAtEnd(emit_.items, next);
    }
}

} // namespace Qx::Host::Native
