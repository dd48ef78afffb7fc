#pragma once

#include "host/native/Emitter.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Qx::Host::Native {

/// The numbers of two vectors, one after the other, in that order.
LLVMValueRef shuffled(const Emitter& emit, LLVMValueRef a, LLVMValueRef b,
                      std::span<const std::uint32_t> order);
LLVMValueRef shuffled(const Emitter& emit, LLVMValueRef a, std::span<const std::uint32_t> order);

/// Of vectors of `count` words, one for each lane, a vector of each lane's first words, one of the second
/// ones, and so on.
std::vector<LLVMValueRef> transposed(const Emitter& emit, const std::vector<LLVMValueRef>& each,
                                     std::uint32_t count);

/// For each of `count` words of a texel, the words at that place of texels that are `distance` words apart.
std::vector<LLVMValueRef> strided(const Emitter& emit, LLVMValueRef all, std::uint32_t count,
                                  std::uint32_t distance);

/// The first numbers of all vectors, the second ones, and so on. There are 1, 2, 4, ... vectors.
LLVMValueRef interleaved(const Emitter& emit, const std::vector<LLVMValueRef>& vectors);

} // namespace Qx::Host::Native
