#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Host::Native {

using Effects::Spirv::Id;
using Effects::Spirv::Instruction;

/// Why there is no native code of a shader: a phrase that follows "it has no native code: ".
class Refusal : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] void refuse(const std::string& why);

/// The name of an instruction, such as "OpFAdd".
std::string nameOf(spv::Op op);

/// A shader of one function, by its parts. Values, vectors and larger ones alike, are counted in numbers:
/// floats and whole numbers of 32 bits, and truths.
///
/// Every function throws a Refusal for what is not there or not supported.
class ParsedShader
{
public:
    /// `spirv` must outlive this.
    explicit ParsedShader(const std::vector<std::uint32_t>& spirv);

    enum class Kind
    {
        Float,
        Whole,
        Truth
    };

    struct Variable
    {
        Id type = 0; ///< of what it holds
        spv::StorageClass storage{};
        Id initial = 0; ///< the constant that it holds at first, or 0
    };

    /// Something that a larger type consists of.
    struct Part
    {
        Id type = 0;
        std::size_t number = 0; ///< its first, among those of the larger one
        std::size_t place = 0;  ///< in bytes, where the larger one is in a buffer
    };

    const std::vector<Instruction>& constants() const { return constants_; }
    const std::vector<Instruction>& body() const { return body_; }

    const Instruction& type(Id type) const;
    Kind kindOf(Id scalarOrVector) const;
    std::size_t sizeOf(Id type) const; ///< in numbers

    /// How many parts the type has.
    std::size_t partsOf(Id type) const;
    /// Of arrays and vectors all parts are alike.
    bool hasLikeParts(Id type) const { return this->type(type).op() != spv::OpTypeStruct; }
    bool hasMatrix(Id type) const;
    Part part(Id type, std::uint32_t index) const;

    /// Calls `visit` for all numbers of a type, with their places in a buffer.
    using Visit = std::function<void(Kind, std::size_t place)>;
    void forEachNumber(Id type, const Visit& visit, std::size_t place = 0) const;

    const Variable& variable(Id id) const;
    /// All that are the function's own.
    const std::vector<Id>& locals() const { return locals_; }

    /// Of a decoration with one operand.
    std::optional<std::uint32_t> decoration(Id id, spv::Decoration decoration) const;

private:
    void declare(const Instruction& i);
    void declareVariable(const Instruction& i);
    std::size_t lengthOf(const Instruction& array) const;
    std::size_t placeOf(Id type, std::uint32_t index) const;

    std::map<std::pair<Id, std::uint32_t>, std::uint32_t> decorations_;
    std::map<std::pair<Id, std::uint32_t>, std::uint32_t> offsets_; ///< of members
    std::map<Id, Instruction> types_;
    std::map<Id, std::uint32_t> numbers_; ///< constants
    std::map<Id, Variable> variables_;
    std::vector<Id> locals_;
    std::vector<Instruction> constants_;
    std::vector<Instruction> body_;
    bool inFunction_ = false;
};

} // namespace Qx::Host::Native
