#pragma once

#include "host/native/FrameMemory.h"

#include <array>
#include <vector>

namespace Qx::Host::Native {

/// Writes what stores the texels that lanes have computed.
class Target
{
public:
    Target(Emitter& emitter, FrameMemory& memory) : emit_(emitter), memory_(memory) {}

    /// Adds a texel to the item that each lane computes.
    void add(const std::array<Component, 4>& codes);

    /// Stores what all lanes have computed, item after item.
    void storeAll();

    /// Stores the texels before `end`, of items of one texel.
    void storeBefore(LLVMValueRef end);

private:
    LLVMValueRef placeOfItem() const;

    Emitter& emit_;
    FrameMemory& memory_;
    std::vector<LLVMValueRef> words_; ///< of an item, each a vector of all lanes
};

} // namespace Qx::Host::Native
