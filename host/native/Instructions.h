#pragma once

#include "host/native/Emitter.h"
#include "host/native/FrameMemory.h"
#include "host/native/ParsedShader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Qx::Host::Native {

/// The number of that index; the first or last for one outside.
Component picked(const Emitter& emit, std::span<const Component> from, const Component& index);

/// Why what the instruction gives is not known.
std::string reasonOf(const Instruction& i);

/// Writes what the instructions of a shader compute for one item. What cannot be computed is unknown, which
/// matters only if the result depends on it.
class Instructions
{
public:
    Instructions(const ParsedShader& shader, Emitter& emitter, FrameMemory& memory)
        : shader_(shader), emit_(emitter), memory_(memory)
    {
    }

    /// Forgets the last item and computes the shader's constants.
    void begin();

    /// Computes an instruction other than those of control flow.
    void compute(const Instruction& i);

    /// Stores for those lanes for which the mask holds; for all without.
    void store(const Instruction& i, const std::optional<Component>& mask);

    const Value& value(Id id) const;
    /// What a phi gives.
    void setValue(const Instruction& i, Value value);

    /// The codes of a texel. Components that were not stored have no value.
    const std::array<Component, 4>& output() const { return output_; }

private:
    using Operands = std::vector<const Component*>;

    /// What a pointer points to. In a buffer the place is in bytes, else in numbers of the variable.
    struct Pointer
    {
        Id variable = 0;
        Id type = 0; ///< of the pointee
        std::size_t place = 0;
        std::optional<Component> index{}; ///< at so many times `stride` behind it; it is less than `count`
        std::size_t stride = 0;
        std::size_t count = 0;
    };

    bool compose(const Instruction& i);
    bool reach(const Instruction& i);
    void takePart(const Instruction& i);
    void computeEach(const Instruction& i);
    void setUnknown(const Instruction& i);
    Value inserted(const Value& into, const Component& what, const Component& index) const;
    Component dot(const Value& a, const Value& b) const;
    Value nullOf(Id type) const;
    Component number(Id id) const { return value(id).at(0); }

    Pointer pointerTo(Id id) const;
    Pointer followed(const Instruction& i);
    Component clamped(const Component& index, std::size_t count);
    void loadFrom(const Instruction& i);
    Value loaded(const Pointer& from);
    Value position(const Pointer& from);
    Value ofUniforms(const Pointer& from);
    Value ofLocal(const Pointer& from);
    void storeToLocal(const Pointer& to, const Value& value, const std::optional<Component>& mask);
    void fetch(const Instruction& i);

    Component folded(const Instruction& i, const Operands& of);
    std::optional<Component> foldedWhole(const Instruction& i, const Operands& of);
    Component result(const Instruction& i, const Operands& of, std::optional<std::uint32_t> sample);
    std::optional<Component> ofWholes(const Instruction& i, const Operands& of);
    Component ofOthers(const Instruction& i, const Operands& of);
    Component ofFunction(const Instruction& i, const Operands& of);
    std::optional<Component> ofLimits(std::uint32_t function, const Operands& of);
    Component signOf(const Component& a) const;
    LLVMTypeRef elementOf(Id type) const { return emit_.typeOf(shader_.kindOf(type)); }

    const ParsedShader& shader_;
    Emitter& emit_;
    FrameMemory& memory_;
    std::map<Id, Value> values_;
    std::map<Id, Id> types_; ///< of the values
    std::map<Id, Pointer> pointers_;
    std::map<Id, std::uint32_t> images_; ///< their bindings
    std::map<Id, Value> locals_;
    std::array<Component, 4> output_{};
};

} // namespace Qx::Host::Native
