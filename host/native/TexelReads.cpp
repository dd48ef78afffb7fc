// How texels are read: all lanes the same one, a run of neighbouring ones, or any.

#include "host/native/FrameMemory.h"
#include "host/native/Shuffles.h"

#include <array>
#include <cstring>

namespace Qx::Host::Native {
namespace {

constexpr std::uint32_t longestRun = 16;  ///< texels from one lane to the next that are read in one run
constexpr std::int64_t mostInOneLoad = 4; ///< of such texels that one load reads

LLVMValueRef calledIntrinsic(const Emitter& emit, const char* name, std::span<LLVMTypeRef> overloads,
                             std::span<LLVMValueRef> arguments)
{
    const unsigned id = LLVMLookupIntrinsicID(name, std::strlen(name));
    LLVMValueRef function = LLVMGetIntrinsicDeclaration(emit.module, id, overloads.data(), overloads.size());
    LLVMTypeRef type = LLVMIntrinsicGetType(emit.context, id, overloads.data(), overloads.size());
    return LLVMBuildCall2(emit.items, type, function, arguments.data(),
                          static_cast<unsigned>(arguments.size()), "");
}

} // namespace

Value FrameMemory::texel(std::size_t buffer, const Component& index)
{
    if (emit_.purpose == Emitter::Purpose::Question) {
        Component c = emit_.constant(0U, emit_.i32);
        c.constant.reset(); // it is not known, and nothing that depends on it may be asked
        c.sample.reset();
        c.isOfUniforms = false;
        c.isUnknown = index.isUnknown;
        c.why = index.why;
        return Value(4, c);
    }
    Words words;
    if (!index.varies) {
        words = sameTexel(buffer, index);
    } else if (index.base != nullptr && index.slope > 0 && index.slope <= longestRun) {
        words = texelsInRun(buffer, index);
    } else {
        words = scatteredTexels(buffer, index.value);
    }
    for (Component& word : words) {
        word.isUnknown = index.isUnknown;
        word.why = index.why;
    }
    return apart(buffer, words);
}

/// Takes the components of texels apart.
Value FrameMemory::apart(std::size_t buffer, const Words& words) const
{
    Value value;
    const std::uint32_t bits = emit_.source.texels[buffer].componentBits;
    for (const Component& word : words) {
        for (std::uint32_t k = 0; k < 32 / bits; ++k) {
            Component c = word;
            c = k == 0 ? c : emit_.binary(LLVMLShr, c, emit_.constant(k * bits, emit_.i32));
            if ((k + 1) * bits < 32) {
                c = emit_.both(c, emit_.constant((1U << bits) - 1U, emit_.i32));
            }
            value.push_back(c);
        }
    }
    value.resize(4, emit_.constant(0U, emit_.i32));
    return value;
}

FrameMemory::Words FrameMemory::ofLanes(const std::vector<LLVMValueRef>& vectors) const
{
    Words words;
    for (LLVMValueRef vector : vectors) {
        words.push_back(emit_.ofLanes(vector));
    }
    return words;
}

FrameMemory::Words FrameMemory::sameTexel(std::size_t buffer, const Component& index)
{
    LLVMBuilderRef rows = emit_.rows;
    LLVMValueRef wide = LLVMBuildZExt(rows, index.value, emit_.i64, "");
    LLVMValueRef isInside = LLVMBuildICmp(rows, LLVMIntULT, wide, texelCounts_.at(buffer), "");
    LLVMValueRef safe = LLVMBuildSelect(rows, isInside, wide, emit_.wide(0), "");
    LLVMValueRef place = LLVMBuildMul(rows, safe, emit_.wide(texelBytes(buffer)), "");
    LLVMValueRef texel = load(rows, LLVMVectorType(emit_.i32, texelWords(buffer)),
                              offset(rows, buffers_.at(buffer), place), 4);
    Words words(texelWords(buffer));
    for (std::uint32_t w = 0; w < words.size(); ++w) {
        words[w].value = LLVMBuildExtractElement(rows, texel, emit_.number(w), "");
    }
    return words;
}

FrameMemory::Words FrameMemory::scatteredTexels(std::size_t buffer, LLVMValueRef indices)
{
    LLVMBuilderRef items = emit_.items;
    LLVMValueRef last = LLVMBuildTrunc(
        emit_.rows, LLVMBuildSub(emit_.rows, texelCounts_.at(buffer), emit_.wide(1), ""), emit_.i32, "");
    LLVMValueRef most = emit_.splat(last);
    LLVMValueRef isInside = LLVMBuildICmp(items, LLVMIntULT, indices, most, "");
    LLVMValueRef safe = LLVMBuildSelect(items, isInside, indices, most, "");
    if (emit_.gathers) {
        std::vector<LLVMValueRef> words;
        for (std::uint32_t w = 0; w < texelWords(buffer); ++w) {
            words.push_back(gathered(buffer, safe, w));
        }
        return ofLanes(words);
    }
    std::vector<LLVMValueRef> each;
    for (std::uint32_t l = 0; l < emit_.lanes; ++l) {
        LLVMValueRef index =
            LLVMBuildZExt(items, LLVMBuildExtractElement(items, safe, emit_.number(l), ""), emit_.i64, "");
        LLVMValueRef place = LLVMBuildMul(items, index, emit_.wide(texelBytes(buffer)), "");
        each.push_back(load(items, LLVMVectorType(emit_.i32, texelWords(buffer)),
                            offset(items, buffers_.at(buffer), place), 4));
    }
    return ofLanes(transposed(emit_, each, texelWords(buffer)));
}

LLVMValueRef FrameMemory::gathered(std::size_t buffer, LLVMValueRef indices, std::uint32_t word)
{
    LLVMBuilderRef items = emit_.items;
    LLVMTypeRef words = emit_.vectorOf(emit_.i32);
    LLVMValueRef places = LLVMBuildMul(items, indices, emit_.splat(emit_.number(texelWords(buffer))), "");
    LLVMValueRef begin = offset(items, buffers_.at(buffer), emit_.wide(std::int64_t{4} * word));
    if (emit_.lanes == 8) {
        std::array<LLVMValueRef, 5> arguments{LLVMGetUndef(words), begin, places, LLVMConstAllOnes(words),
                                              LLVMConstInt(emit_.i8, 4, 0)};
        return calledIntrinsic(emit_, "llvm.x86.avx2.gather.d.d.256", {}, arguments);
    }
    LLVMValueRef typed = LLVMBuildBitCast(items, begin, LLVMPointerType(emit_.i32, 0), "");
    LLVMValueRef pointers = LLVMBuildGEP2(items, emit_.i32, typed, &places, 1, "");
    std::array<LLVMTypeRef, 2> types{words, LLVMTypeOf(pointers)};
    std::array<LLVMValueRef, 4> arguments{pointers, emit_.number(4),
                                          LLVMConstAllOnes(emit_.vectorOf(emit_.i1)), LLVMGetUndef(words)};
    return calledIntrinsic(emit_, "llvm.masked.gather", types, arguments);
}

/// Texels at equal distances are read together: the items for which all are inside are those in the middle.
FrameMemory::Words FrameMemory::texelsInRun(std::size_t buffer, const Component& index)
{
    LLVMBuilderRef items = emit_.items;
    LLVMBuilderRef rows = emit_.rows;
    emit_.require(index, true, emit_.wide(0));
    emit_.require(index, false, LLVMBuildSub(rows, texelCounts_.at(buffer), emit_.wide(index.slope), ""));
    const std::uint32_t count = texelWords(buffer);
    const std::uint32_t bytes = texelBytes(buffer);
    auto distance = static_cast<std::uint32_t>(index.slope) * count;
    LLVMValueRef item = LLVMBuildSExt(items, emit_.item, emit_.i64, "");
    LLVMValueRef begin =
        LLVMBuildMul(rows, LLVMBuildSExt(rows, index.base, emit_.i64, ""), emit_.wide(bytes), "");
    LLVMValueRef place =
        LLVMBuildAdd(items, begin, LLVMBuildMul(items, item, emit_.wide(index.slope * bytes), ""), "");
    LLVMValueRef from = offset(items, buffers_.at(buffer), place);
    if (index.slope > mostInOneLoad) { // each texel by itself
        std::vector<LLVMValueRef> each;
        for (std::uint32_t l = 0; l < emit_.lanes; ++l) {
            each.push_back(load(items, LLVMVectorType(emit_.i32, count),
                                offset(items, from, emit_.wide(std::int64_t{4} * l * distance)), 4));
        }
        return ofLanes(transposed(emit_, each, count));
    }
    LLVMValueRef all = load(items, LLVMVectorType(emit_.i32, emit_.lanes * distance), from, 4);
    if (count == 2 && index.slope > 1 && !emit_.isWide) { // whole texels first: fewer shuffles with AVX2
        const auto slope = static_cast<std::uint32_t>(index.slope);
        LLVMValueRef whole = LLVMBuildBitCast(items, all, LLVMVectorType(emit_.i64, emit_.lanes * slope), "");
        all = LLVMBuildBitCast(items, strided(emit_, whole, 1, slope).front(),
                               LLVMVectorType(emit_.i32, emit_.lanes * 2), "");
        distance = count;
    }
    return ofLanes(strided(emit_, all, count, distance));
}

} // namespace Qx::Host::Native
