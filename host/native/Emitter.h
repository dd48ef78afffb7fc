#pragma once

#include "host/native/Component.h"
#include "host/native/ParsedShader.h"
#include "host/native/Translator.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Qx::Host::Native {

/// A comparison of two numbers.
struct Comparison
{
    bool floats;
    int predicate; ///< LLVM's
    int atLeast;   ///< 1 if true for large left operands, -1 if for small ones, 0 for others

    static std::optional<Comparison> of(spv::Op op);
};

/// Writes the arithmetic of components into a function: what is the same for a row before the loop over its
/// items, the rest into the loop.
class Emitter
{
public:
    /// What the function is for.
    enum class Purpose
    {
        Middle, ///< items that are not at a border: what is as it usually is there is taken for granted
        Anywhere,
        Question ///< whether the uniforms suit: it reads nothing else
    };

    /// The function has a pointer to a frame as its parameter, and so many numbers of 32 bits. That with the
    /// purpose Question gives such a number, the others nothing.
    Emitter(const Source& source, const Options& options, Purpose purpose, const char* name,
            unsigned parameters);
    ~Emitter();
    Emitter(const Emitter&) = delete;
    Emitter& operator=(const Emitter&) = delete;

    // ---- the function

    const Source& source;
    LLVMContextRef const context;
    LLVMModuleRef const module;
    LLVMTypeRef const i1, i8, i32, i64, float32, bytes;
    const std::uint32_t lanes;
    const std::uint32_t period;
    const bool gathers;
    const bool isWide;
    const Purpose purpose;
    LLVMValueRef const function;
    LLVMBuilderRef const items; ///< in the loop over items
    LLVMBuilderRef const rows;  ///< before it

    LLVMValueRef parameter(unsigned number) const { return LLVMGetParam(function, number); }
    LLVMBasicBlockRef block() const { return LLVMAppendBasicBlockInContext(context, function, ""); }
    static void addIncoming(LLVMValueRef phi, LLVMValueRef value, LLVMBasicBlockRef from);

    // ---- where it is

    LLVMValueRef row = nullptr;
    LLVMValueRef item = nullptr; ///< the first that is computed together
    std::uint32_t place = 0;     ///< of the texel in its item
    LLVMValueRef low = nullptr;  ///< items that are computed as in the middle: from this one,
    LLVMValueRef high = nullptr; ///< to the one before

    /// From here on only items are computed for which base + slope * item is at least, or at most, that.
    void require(const Component& c, bool atLeast, LLVMValueRef bound);

    // ---- values of LLVM

    LLVMValueRef number(std::uint32_t value) const { return LLVMConstInt(i32, value, 0); }
    LLVMValueRef wide(std::int64_t value) const
    {
        return LLVMConstInt(i64, static_cast<std::uint64_t>(value), 1);
    }
    LLVMTypeRef vectorOf(LLVMTypeRef element) const { return LLVMVectorType(element, lanes); }
    LLVMTypeRef typeOf(ParsedShader::Kind kind) const;
    static LLVMTypeRef elementOf(const Component& c);
    LLVMBuilderRef builderFor(bool varies) const { return varies ? items : rows; }
    LLVMValueRef splat(LLVMValueRef value) const;
    LLVMValueRef spread(const Component& c) const { return c.varies ? c.value : splat(c.value); }
    LLVMValueRef numbers(std::span<const std::uint32_t> all) const;
    LLVMValueRef larger(LLVMValueRef a, LLVMValueRef b) const;  ///< of 64 bits, before the loop
    LLVMValueRef smaller(LLVMValueRef a, LLVMValueRef b) const; ///< of 64 bits, before the loop

    // ---- components

    Component constant(std::uint32_t bits, LLVMTypeRef type) const;
    Component constant(float value) const;
    Component unknown(LLVMTypeRef type, const std::string& why) const;
    Component ofLanes(LLVMValueRef vector) const;

    /// What an instruction gives of these operands: as far as it is known, and of what.
    void inherit(Component& result, std::initializer_list<const Component*> of) const;

    Component binary(LLVMOpcode op, const Component& a, const Component& b) const;
    /// Sums, differences and products of whole numbers; those of lines are lines.
    Component whole(LLVMOpcode op, const Component& a, const Component& b) const;
    /// Quotients and remainders: of a division by 0 as software devices have it, and never a fault.
    Component divided(LLVMOpcode op, const Component& a, const Component& b) const;
    Component shifted(LLVMOpcode op, const Component& a, const Component& b) const;
    using Build = LLVMValueRef (*)(LLVMBuilderRef, LLVMValueRef, const char*);
    Component unary(const Component& a, Build build) const;
    Component cast(LLVMOpcode op, const Component& a, LLVMTypeRef to) const;
    Component bits(const Component& a, LLVMTypeRef to) const;
    Component call(const char* name, const Component& a) const;
    Component both(const Component& a, const Component& b) const { return binary(LLVMAnd, a, b); }
    Component inverse(const Component& a) const { return unary(a, LLVMBuildNot); }
    Component compare(const Comparison& how, const Component& a, const Component& b) const;
    Component select(const Component& condition, const Component& a, const Component& b) const;

    /// A comparison as it is in the middle, if that may be taken for granted: a line beside what is the same
    /// for the row. The items for which it is not are left to the border. `sample` is the usual result.
    std::optional<Component> supposed(const Comparison& how, const Component& a, const Component& b,
                                      std::optional<std::uint32_t> sample);

    /// The operand for which the comparison holds, or else the second.
    Component chosen(spv::Op comparison, const Component& a, const Component& b);

    /// base + slope * item, as whole numbers.
    Component line(LLVMValueRef base, std::int64_t slope) const;

    /// What depends on the item alone. `general` computes those that are no line; it gets the usual value.
    std::size_t tableSize() const;
    Component fromTable(std::vector<std::uint32_t> table, LLVMTypeRef type,
                        const std::function<Component(std::uint32_t sample)>& general);

    /// After how many items the tables that are no lines repeat themselves, but for what is added each time:
    /// the smallest number of each, ascending.
    const std::vector<std::uint32_t>& repetitions() const { return repetitions_; }

private:
    LLVMValueRef as(const Component& c, bool varies) const { return varies ? spread(c) : c.value; }
    LLVMValueRef either(LLVMValueRef a, LLVMValueRef b) const;
    Component factored(const Component& a, const Component& b) const;
    void noteRepetition(const std::vector<std::uint32_t>& table, LLVMTypeRef type);

    std::vector<std::uint32_t> repetitions_;
};

} // namespace Qx::Host::Native
