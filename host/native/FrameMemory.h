#pragma once

#include "host/native/Emitter.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Qx::Host::Native {

/// Writes what reads and writes the memory of a Frame. Every read is within its buffers.
class FrameMemory
{
public:
    explicit FrameMemory(Emitter& emitter);

    /// Reads the frame's members, which the function's first parameter points to. To be called first, with
    /// the builder that is where it is to be done; once.
    void loadFrame(LLVMBuilderRef builder);

    /// Row of the target, computed with the builder: what storeTo() is relative to.
    void beginRow(LLVMBuilderRef builder);
    void storeTo(LLVMValueRef bytesIntoRow, LLVMValueRef value);
    LLVMValueRef width() const { return width_; }

    /// A number of the uniforms at a fixed place.
    Component uniform(std::size_t place, LLVMTypeRef type);

    /// At `place` and so many times `stride` bytes behind it, `index` times, which is less than `count`.
    Component uniform(std::size_t place, std::size_t stride, std::size_t count, const Component& index,
                      LLVMTypeRef type);

    /// One of numbers that all are constants, by an index that is less than their number.
    Component constantOf(const std::vector<std::uint32_t>& bits, const Component& index, LLVMTypeRef type);

    /// The four components of a texel, as whole numbers.
    Value texel(std::size_t buffer, const Component& index);

private:
    LLVMValueRef offset(LLVMBuilderRef builder, LLVMValueRef pointer, LLVMValueRef by) const;
    LLVMValueRef load(LLVMBuilderRef builder, LLVMTypeRef type, LLVMValueRef from,
                      std::uint32_t alignment) const;
    void loadBuffer(LLVMBuilderRef builder, std::size_t number, LLVMValueRef bytes, LLVMValueRef texels);
    Component loadedByLane(LLVMValueRef from, LLVMValueRef places, LLVMTypeRef type) const;

    using Words = std::vector<Component>; ///< of 32 bits, of texels
    Words sameTexel(std::size_t buffer, const Component& index);
    Words texelsInRun(std::size_t buffer, const Component& index);
    Words scatteredTexels(std::size_t buffer, LLVMValueRef indices);
    LLVMValueRef gathered(std::size_t buffer, LLVMValueRef indices, std::uint32_t word);
    Value apart(std::size_t buffer, const Words& words) const;
    Words ofLanes(const std::vector<LLVMValueRef>& vectors) const;
    std::uint32_t texelBytes(std::size_t buffer) const { return emit_.source.texels[buffer].bytes; }
    std::uint32_t texelWords(std::size_t buffer) const { return texelBytes(buffer) / 4; }

    Emitter& emit_;
    std::array<LLVMValueRef, Frame::mostBuffers> buffers_{};
    std::array<LLVMValueRef, Frame::mostBuffers> texelCounts_{};
    LLVMValueRef uniforms_ = nullptr;
    LLVMValueRef target_ = nullptr;
    LLVMValueRef pitch_ = nullptr;
    LLVMValueRef width_ = nullptr;
    LLVMValueRef line_ = nullptr;
};

} // namespace Qx::Host::Native
