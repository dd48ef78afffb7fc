#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <limits>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace Qx::Host::Effects::Spirv {

/// The numbers that a value of a shader may be; of a vector, those of all its components together.
struct Range
{
    double least = -std::numeric_limits<double>::infinity();
    double most = std::numeric_limits<double>::infinity();
    bool isWhole = false; ///< none has a fraction

    bool isWithin(double low, double high) const { return least >= low && most <= high; }
};

/// What is known about the range of a shader's numbers. To be shown its instructions in their order. NaN is
/// not considered: a value in a range is NaN or in it.
class FloatRanges
{
public:
    void visit(const Instruction& instruction);

    /// Everything, if nothing is known.
    Range of(Id id) const;

private:
    void visitDeclaration(const Instruction& instruction);
    std::optional<Range> resultOf(const Instruction& instruction) const;
    std::optional<Range> resultOfWholeNumbers(const Instruction& instruction) const;
    std::optional<Range> resultOfFunction(const Instruction& instruction) const;
    std::optional<Range> hull(const Instruction& instruction, std::size_t first, std::size_t end) const;

    std::unordered_map<Id, Range> ranges_;
    std::unordered_set<Id> wholeTypes_;   ///< of whole numbers, and vectors of them
    std::unordered_set<Id> wholeNumbers_; ///< whose ranges are known
    std::unordered_set<Id> floatTypes_;   ///< of 32 bits
    std::unordered_set<Id> places_; ///< the fragment's position: the variable, and pointers to its parts
    Id functions_ = 0;              ///< GLSL.std.450
};

} // namespace Qx::Host::Effects::Spirv
