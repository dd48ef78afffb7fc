#include "host/native/FrameMemory.h"

#include <cstring>

namespace Qx::Host::Native {
namespace {

/// What is read of a buffer that has none.
LLVMValueRef emptyTexel(const Emitter& emit)
{
    constexpr const char* name = "empty";
    LLVMValueRef known = LLVMGetNamedGlobal(emit.module, name);
    if (known != nullptr) {
        return known;
    }
    LLVMTypeRef type = LLVMArrayType(emit.i32, 4);
    LLVMValueRef made = LLVMAddGlobal(emit.module, type, name);
    LLVMSetInitializer(made, LLVMConstNull(type));
    LLVMSetGlobalConstant(made, 1);
    LLVMSetLinkage(made, LLVMPrivateLinkage);
    LLVMSetAlignment(made, 16);
    return made;
}

} // namespace

FrameMemory::FrameMemory(Emitter& emitter) : emit_(emitter) {}

LLVMValueRef FrameMemory::offset(LLVMBuilderRef builder, LLVMValueRef pointer, LLVMValueRef by) const
{
    return LLVMBuildGEP2(builder, emit_.i8, pointer, &by, 1, "");
}

LLVMValueRef FrameMemory::load(LLVMBuilderRef builder, LLVMTypeRef type, LLVMValueRef from,
                               std::uint32_t alignment) const
{
    LLVMValueRef typed = LLVMBuildBitCast(builder, from, LLVMPointerType(type, 0), "");
    LLVMValueRef value = LLVMBuildLoad2(builder, type, typed, "");
    LLVMSetAlignment(value, alignment);
    return value;
}

void FrameMemory::loadFrame(LLVMBuilderRef builder)
{
    LLVMValueRef frame = emit_.parameter(0);
    const auto member = [&](LLVMTypeRef type, std::size_t place) {
        return load(builder, type, offset(builder, frame, LLVMConstInt(emit_.i64, place, 0)), 4);
    };
    for (std::size_t b = 0; b < emit_.source.texels.size(); ++b) {
        const std::size_t place = offsetof(Frame, buffers) + b * sizeof(Frame::Buffer);
        loadBuffer(builder, b, member(emit_.bytes, place + offsetof(Frame::Buffer, bytes)),
                   member(emit_.i64, place + offsetof(Frame::Buffer, texels)));
    }
    uniforms_ = member(emit_.bytes, offsetof(Frame, uniforms));
    target_ = member(emit_.bytes, offsetof(Frame, target));
    pitch_ = member(emit_.i64, offsetof(Frame, pitch));
    width_ = member(emit_.i32, offsetof(Frame, width));
}

void FrameMemory::loadBuffer(LLVMBuilderRef builder, std::size_t number, LLVMValueRef bytes,
                             LLVMValueRef texels)
{
    LLVMValueRef isEmpty = LLVMBuildICmp(builder, LLVMIntEQ, texels, emit_.wide(0), "");
    LLVMValueRef empty = LLVMBuildBitCast(builder, emptyTexel(emit_), emit_.bytes, "");
    buffers_.at(number) = LLVMBuildSelect(builder, isEmpty, empty, bytes, "");
    LLVMValueRef most = emit_.wide(1 << 29); // places are numbers of 32 bits, in words
    LLVMValueRef isMany = LLVMBuildICmp(builder, LLVMIntUGT, texels, most, "");
    LLVMValueRef count = LLVMBuildSelect(builder, isMany, most, texels, "");
    texelCounts_.at(number) = LLVMBuildSelect(builder, isEmpty, emit_.wide(1), count, "");
}

void FrameMemory::beginRow(LLVMBuilderRef builder)
{
    LLVMValueRef row = LLVMBuildZExt(builder, emit_.row, emit_.i64, "");
    line_ = offset(builder, target_, LLVMBuildMul(builder, row, pitch_, ""));
}

void FrameMemory::storeTo(LLVMValueRef bytesIntoRow, LLVMValueRef value)
{
    LLVMValueRef to = offset(emit_.items, line_, bytesIntoRow);
    LLVMValueRef typed = LLVMBuildBitCast(emit_.items, to, LLVMPointerType(LLVMTypeOf(value), 0), "");
    LLVMSetAlignment(LLVMBuildStore(emit_.items, value, typed), 4);
}

// ---- uniforms and constants

Component FrameMemory::uniform(std::size_t place, LLVMTypeRef type)
{
    std::uint32_t likely = 0;
    if (place > emit_.source.likely.size() || emit_.source.likely.size() - place < sizeof likely) {
        refuse("it reads uniforms at byte " + std::to_string(place) + " of " +
               std::to_string(emit_.source.likely.size()));
    }
    std::memcpy(&likely, emit_.source.likely.data() + place, sizeof likely);
    Component c;
    c.isOfUniforms = true;
    c.sample = likely;
    c.value = load(emit_.rows, type, offset(emit_.rows, uniforms_, LLVMConstInt(emit_.i64, place, 0)), 4);
    return c;
}

Component FrameMemory::uniform(std::size_t place, std::size_t stride, std::size_t count,
                               const Component& index, LLVMTypeRef type)
{
    uniform(place + (count - 1) * stride, type); // refuses what is beyond them
    LLVMValueRef from = offset(emit_.rows, uniforms_, LLVMConstInt(emit_.i64, place, 0));
    const Component places =
        emit_.binary(LLVMMul, index, emit_.constant(static_cast<std::uint32_t>(stride), emit_.i32));
    Component c;
    if (index.varies) {
        c = loadedByLane(from, places.value, type);
    } else {
        LLVMValueRef wide = LLVMBuildZExt(emit_.rows, places.value, emit_.i64, "");
        c.value = load(emit_.rows, type, offset(emit_.rows, from, wide), 4);
    }
    emit_.inherit(c, {&index});
    return c;
}

Component FrameMemory::loadedByLane(LLVMValueRef from, LLVMValueRef places, LLVMTypeRef type) const
{
    LLVMValueRef all = LLVMGetUndef(emit_.vectorOf(type));
    for (std::uint32_t l = 0; l < emit_.lanes; ++l) {
        LLVMValueRef place = LLVMBuildExtractElement(emit_.items, places, emit_.number(l), "");
        LLVMValueRef wide = LLVMBuildZExt(emit_.items, place, emit_.i64, "");
        LLVMValueRef one = load(emit_.items, type, offset(emit_.items, from, wide), 4);
        all = LLVMBuildInsertElement(emit_.items, all, one, emit_.number(l), "");
    }
    return emit_.ofLanes(all);
}

Component FrameMemory::constantOf(const std::vector<std::uint32_t>& bits, const Component& index,
                                  LLVMTypeRef type)
{
    std::vector<LLVMValueRef> list;
    list.reserve(bits.size());
    for (const std::uint32_t one : bits) {
        list.push_back(emit_.number(one));
    }
    const auto count = static_cast<unsigned>(list.size());
    LLVMValueRef global = LLVMAddGlobal(emit_.module, LLVMArrayType(emit_.i32, count), "constants");
    LLVMSetInitializer(global, LLVMConstArray(emit_.i32, list.data(), count));
    LLVMSetGlobalConstant(global, 1);
    LLVMSetLinkage(global, LLVMPrivateLinkage);
    LLVMValueRef from = LLVMConstBitCast(global, emit_.bytes);
    const Component places = emit_.binary(LLVMMul, index, emit_.constant(4U, emit_.i32));
    Component c;
    if (index.varies) {
        c = loadedByLane(from, places.value, emit_.i32);
    } else {
        LLVMValueRef wide = LLVMBuildZExt(emit_.rows, places.value, emit_.i64, "");
        c.value = load(emit_.rows, emit_.i32, offset(emit_.rows, from, wide), 4);
    }
    emit_.inherit(c, {&index});
    return type == emit_.i32 ? c
           : type == emit_.i1
               ? emit_.compare(*Comparison::of(spv::OpINotEqual), c, emit_.constant(0U, emit_.i32))
               : emit_.bits(c, type);
}

} // namespace Qx::Host::Native
