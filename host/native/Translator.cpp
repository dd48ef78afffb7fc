#include "host/native/Translator.h"

#include "host/effects/spirv/SpirvModule.h"
#include "host/native/Evaluation.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Native {
namespace {

using Effects::Spirv::Id;
using Effects::Spirv::Instruction;

constexpr std::uint32_t mostColumns = 1U << 14U; ///< of targets that "draw" computes; wider ones are border
constexpr std::uint32_t longestRun = 16; ///< texels from one lane to the next that are read in one run
constexpr std::uint32_t borderLanes = 4;

[[noreturn]] void refuse(const std::string& what)
{
    throw std::runtime_error(what);
}

/// Values by the number of an item, which is what a lane computes.
using Table = std::shared_ptr<const std::vector<std::uint32_t>>;

/// One component of a value: the same for all items of a row, or one for each lane.
struct Component
{
    LLVMValueRef value = nullptr;
    bool varies = false;
    std::optional<std::uint32_t> constant{}; ///< its bits
    std::optional<std::uint32_t> sample{};   ///< its bits in the middle of a usual frame
    Table table{};                           ///< if it depends on the item alone
    /// Of a whole number that varies: it is base + slope * item, if the slope is not 0. Of a float: the same,
    /// and `base` is a whole number too.
    std::int64_t slope = 0;
    LLVMValueRef base = nullptr;
};

using Value = std::vector<Component>;

struct Pointer
{
    Id variable = 0;
    Id type = 0;              ///< of the pointee
    std::uint32_t offset = 0; ///< in bytes
};

class Translator
{
public:
    Translator(const Source& source, const Options& options, bool isInner)
        : source_(source),
          context_(source.context),
          module_(source.module),
          lanes_(options.lanes),
          period_(options.period),
          isInner_(isInner),
          gathers_(options.gathers),
          isWide_(options.wide),
          builder_(LLVMCreateBuilderInContext(context_)),
          rows_(LLVMCreateBuilderInContext(context_)),
          i1_(LLVMInt1TypeInContext(context_)),
          i8_(LLVMInt8TypeInContext(context_)),
          i32_(LLVMInt32TypeInContext(context_)),
          i64_(LLVMInt64TypeInContext(context_)),
          float_(LLVMFloatTypeInContext(context_)),
          bytes_(LLVMPointerType(i8_, 0))
    {
        if (!Effects::Spirv::forEach(source.spirv, [this](const Instruction& i) { declare(i); })) {
            refuse("not a module");
        }
    }
    ~Translator()
    {
        LLVMDisposeBuilder(builder_);
        LLVMDisposeBuilder(rows_);
    }
    Translator(const Translator&) = delete;
    Translator& operator=(const Translator&) = delete;

    void writeBorder()
    {
        begin("border", 4);
        LLVMBasicBlockRef entry = block();
        LLVMBasicBlockRef head = block();
        LLVMBasicBlockRef body = block();
        LLVMBasicBlockRef done = block();
        LLVMPositionBuilderAtEnd(rows_, entry);
        row_ = LLVMGetParam(function_, 1);
        LLVMValueRef first = LLVMGetParam(function_, 2);
        LLVMValueRef end = LLVMGetParam(function_, 3);
        loadFrame(rows_);
        line_ = lineOf(rows_);

        at(head);
        item_ = LLVMBuildPhi(builder_, i32_, "");
        addIncoming(item_, first, entry);
        LLVMBuildCondBr(builder_, LLVMBuildICmp(builder_, LLVMIntULT, item_, end, ""), body, done);
        at(body);
        computeItem(0);
        storeSome(end);
        addIncoming(item_, LLVMBuildAdd(builder_, item_, number(lanes_), ""), LLVMGetInsertBlock(builder_));
        LLVMBuildBr(builder_, head);
        LLVMBuildBr(rows_, head);
        at(done);
        LLVMBuildRetVoid(builder_);
    }

    void writeDraw()
    {
        begin("draw", 3);
        LLVMBasicBlockRef entry = block();
        LLVMBasicBlockRef rowHead = block();
        LLVMBasicBlockRef rowBody = block();
        LLVMBasicBlockRef head = block();
        LLVMBasicBlockRef body = block();
        LLVMBasicBlockRef rowEnd = block();
        LLVMBasicBlockRef done = block();
        at(entry);
        endSlot_ = LLVMBuildAlloca(builder_, i32_, "");
        loadFrame(builder_);
        LLVMBuildBr(builder_, rowHead);
        at(rowHead);
        row_ = LLVMBuildPhi(builder_, i32_, "");
        addIncoming(row_, LLVMGetParam(function_, 1), entry);
        LLVMBuildCondBr(builder_, LLVMBuildICmp(builder_, LLVMIntULT, row_, LLVMGetParam(function_, 2), ""),
                        rowBody, done);

        LLVMPositionBuilderAtEnd(rows_, rowBody);
        line_ = lineOf(rows_);
        LLVMValueRef items =
            LLVMBuildUDiv(rows_, LLVMBuildZExt(rows_, width_, i64_, ""), wide64(period_), "");
        low_ = wide64(0);
        high_ = smaller64(items, wide64(mostColumns / period_));
        at(head);
        LLVMValueRef next = LLVMBuildPhi(builder_, i32_, "");
        LLVMBuildCondBr(builder_, LLVMBuildICmp(builder_, LLVMIntULT, next, read(endSlot_), ""), body,
                        rowEnd);
        at(body);
        LLVMValueRef last = LLVMBuildSub(builder_, read(endSlot_), number(lanes_), "");
        item_ =
            LLVMBuildSelect(builder_, LLVMBuildICmp(builder_, LLVMIntULT, next, last, ""), next, last, "");
        for (std::uint32_t k = 0; k < period_; ++k) {
            computeItem(k);
        }
        storeAll();
        LLVMValueRef aligned = LLVMBuildAnd(builder_, next, number(~(lanes_ - 1)), "");
        addIncoming(next, LLVMBuildAdd(builder_, aligned, number(lanes_), ""), LLVMGetInsertBlock(builder_));
        LLVMBuildBr(builder_, head);
        finishRow(next, rowBody, head);

        at(rowEnd);
        callBorder(LLVMBuildMul(builder_, read(endSlot_), number(period_), ""), width_);
        addIncoming(row_, LLVMBuildAdd(builder_, row_, number(1), ""), rowEnd);
        LLVMBuildBr(builder_, rowHead);
        at(done);
        LLVMBuildRetVoid(builder_);
    }

private:
    // ---- functions and blocks

    void begin(const char* name, unsigned parameters)
    {
        std::array<LLVMTypeRef, 4> types{bytes_, i32_, i32_, i32_};
        LLVMTypeRef type = LLVMFunctionType(LLVMVoidTypeInContext(context_), types.data(), parameters, 0);
        function_ = LLVMGetNamedFunction(module_, name);
        if (function_ == nullptr) {
            function_ = LLVMAddFunction(module_, name, type);
        }
    }

    LLVMValueRef read(LLVMValueRef slot) { return LLVMBuildLoad2(builder_, i32_, slot, ""); }

    LLVMBasicBlockRef block() { return LLVMAppendBasicBlockInContext(context_, function_, ""); }
    void at(LLVMBasicBlockRef where) { LLVMPositionBuilderAtEnd(builder_, where); }
    static void addIncoming(LLVMValueRef phi, LLVMValueRef value, LLVMBasicBlockRef from)
    {
        LLVMAddIncoming(phi, &value, &from, 1);
    }
    LLVMValueRef number(std::uint32_t value) const { return LLVMConstInt(i32_, value, 0); }
    LLVMValueRef wide64(std::int64_t value) const
    {
        return LLVMConstInt(i64_, static_cast<std::uint64_t>(value), 1);
    }
    LLVMTypeRef vectorOf(LLVMTypeRef element) const { return LLVMVectorType(element, lanes_); }

    /// Ends the row's part before the loop: what is computed as in the middle is from low_ to high_.
    void finishRow(LLVMValueRef phi, LLVMBasicBlockRef rowBody, LLVMBasicBlockRef head)
    {
        LLVMValueRef low = larger64(low_, wide64(0));
        LLVMValueRef fits =
            LLVMBuildICmp(rows_, LLVMIntSGE, high_, LLVMBuildAdd(rows_, low, wide64(lanes_), ""), "");
        LLVMValueRef zero = number(0);
        LLVMValueRef low32 = LLVMBuildSelect(rows_, fits, LLVMBuildTrunc(rows_, low, i32_, ""), zero, "");
        LLVMValueRef high32 = LLVMBuildSelect(rows_, fits, LLVMBuildTrunc(rows_, high_, i32_, ""), zero, "");
        LLVMBuildStore(rows_, high32, endSlot_);
        LLVMValueRef left = LLVMBuildMul(rows_, low32, number(period_), "");
        LLVMBuilderRef builder = builder_;
        builder_ = rows_;
        callBorder(zero, left);
        builder_ = builder;
        LLVMBuildBr(rows_, head);
        addIncoming(phi, low32, rowBody);
    }

    void callBorder(LLVMValueRef first, LLVMValueRef end)
    {
        LLVMValueRef border = LLVMGetNamedFunction(module_, "border");
        std::array<LLVMTypeRef, 4> types{bytes_, i32_, i32_, i32_};
        LLVMTypeRef type = LLVMFunctionType(LLVMVoidTypeInContext(context_), types.data(), 4, 0);
        std::array<LLVMValueRef, 4> arguments{LLVMGetParam(function_, 0), row_, first, end};
        LLVMBuildCall2(builder_, type, border, arguments.data(), 4, "");
    }

    LLVMValueRef lineOf(LLVMBuilderRef builder)
    {
        LLVMValueRef place = LLVMBuildMul(builder, LLVMBuildZExt(builder, row_, i64_, ""), pitch_, "");
        return LLVMBuildGEP2(builder, i8_, target_, &place, 1, "");
    }

    LLVMValueRef compared64(LLVMIntPredicate is, LLVMValueRef a, LLVMValueRef b)
    {
        return LLVMBuildSelect(rows_, LLVMBuildICmp(rows_, is, a, b, ""), a, b, "");
    }
    LLVMValueRef larger64(LLVMValueRef a, LLVMValueRef b) { return compared64(LLVMIntSGT, a, b); }
    LLVMValueRef smaller64(LLVMValueRef a, LLVMValueRef b) { return compared64(LLVMIntSLT, a, b); }

    /// From here on only items are computed for which base + slope * item is at least, or at most, that.
    void require(const Component& c, bool atLeast, LLVMValueRef bound)
    {
        LLVMValueRef distance = LLVMBuildSub(rows_, bound, LLVMBuildSExt(rows_, c.base, i64_, ""), "");
        LLVMValueRef quotient = LLVMBuildSDiv(rows_, distance, wide64(c.slope), "");
        if (atLeast) { // the division rounds to zero: one more in any case
            low_ = larger64(low_, LLVMBuildAdd(rows_, quotient, wide64(1), ""));
        } else {
            high_ = smaller64(high_, quotient);
        }
    }

    void computeItem(std::uint32_t k)
    {
        place_ = k;
        values_.clear();
        images_.clear();
        seen_.clear();
        entries_.clear();
        isDead_ = false;
        isFirst_ = true;
        output_ = {};
        for (const Instruction& i : constants_) {
            compute(i);
        }
        for (const Instruction& i : body_) {
            step(i);
        }
        addWords();
    }

    // ---- the module

    void declare(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpDecorate:
            decorations_[{i[1], i[2]}] = i[3];
            return;
        case spv::OpMemberDecorate:
            if (i[3] == spv::DecorationOffset) {
                offsets_[{i[1], i[2]}] = i[4];
            }
            return;
        case spv::OpConstant:
        case spv::OpConstantTrue:
        case spv::OpConstantFalse:
        case spv::OpConstantComposite:
        case spv::OpConstantNull:
            constants_.push_back(i);
            return;
        case spv::OpUndef:
            (inFunction_ ? body_ : constants_).push_back(i);
            return;
        case spv::OpVariable:
            if (inFunction_) {
                refuse("a variable of a function");
            }
            pointers_[i[2]] = {i[2], types_.at(i[1])[3], 0};
            classes_[i[2]] = i[3];
            return;
        case spv::OpFunction:
            if (inFunction_) {
                refuse("several functions");
            }
            inFunction_ = true;
            return;
        case spv::OpFunctionEnd:
            return;
        default:
            if (Effects::Spirv::isType(i.op())) {
                types_.emplace(i[1], i);
            } else if (inFunction_) {
                body_.push_back(i);
            }
            return;
        }
    }

    spv::Op scalarOf(Id type) const
    {
        const Instruction& i = types_.at(type);
        return i.op() == spv::OpTypeVector ? scalarOf(i[2]) : i.op();
    }
    bool isFloat(Id type) const { return scalarOf(type) == spv::OpTypeFloat; }
    bool isBool(Id type) const { return scalarOf(type) == spv::OpTypeBool; }
    std::size_t componentsOf(Id type) const
    {
        const Instruction& i = types_.at(type);
        return i.op() == spv::OpTypeVector ? i[3] : 1;
    }
    LLVMTypeRef elementOf(Id type) const { return isFloat(type) ? float_ : isBool(type) ? i1_ : i32_; }

    // ---- memory of the frame

    static LLVMValueRef offset(LLVMBuilderRef builder, LLVMTypeRef byte, LLVMValueRef pointer,
                               LLVMValueRef bytes)
    {
        return LLVMBuildGEP2(builder, byte, pointer, &bytes, 1, "");
    }
    LLVMValueRef load(LLVMBuilderRef builder, LLVMTypeRef type, LLVMValueRef bytes, std::uint32_t alignment)
    {
        LLVMValueRef typed = LLVMBuildBitCast(builder, bytes, LLVMPointerType(type, 0), "");
        LLVMValueRef value = LLVMBuildLoad2(builder, type, typed, "");
        LLVMSetAlignment(value, alignment);
        return value;
    }
    void storeTo(LLVMValueRef bytes, LLVMValueRef value)
    {
        LLVMValueRef typed = LLVMBuildBitCast(builder_, bytes, LLVMPointerType(LLVMTypeOf(value), 0), "");
        LLVMSetAlignment(LLVMBuildStore(builder_, value, typed), 4);
    }

    void loadFrame(LLVMBuilderRef builder)
    {
        LLVMValueRef frame = LLVMGetParam(function_, 0);
        const auto member = [&](LLVMTypeRef type, std::size_t place) {
            return load(builder, type, offset(builder, i8_, frame, LLVMConstInt(i64_, place, 0)), 4);
        };
        for (std::size_t b = 0; b < Frame::mostBuffers; ++b) {
            const std::size_t place = offsetof(Frame, buffers) + b * sizeof(Frame::Buffer);
            buffers_[b] = member(bytes_, place + offsetof(Frame::Buffer, bytes));
            texelCounts_[b] = member(i64_, place + offsetof(Frame::Buffer, texels));
        }
        uniforms_ = member(bytes_, offsetof(Frame, uniforms));
        target_ = member(bytes_, offsetof(Frame, target));
        pitch_ = member(i64_, offsetof(Frame, pitch));
        width_ = member(i32_, offsetof(Frame, width));
    }

    // ---- components

    LLVMBuilderRef of(bool varies) const { return varies ? builder_ : rows_; }

    LLVMValueRef splat(LLVMValueRef value)
    {
        LLVMTypeRef type = vectorOf(LLVMTypeOf(value));
        LLVMValueRef first = LLVMBuildInsertElement(builder_, LLVMGetUndef(type), value, number(0), "");
        return LLVMBuildShuffleVector(builder_, first, LLVMGetUndef(type), LLVMConstNull(vectorOf(i32_)), "");
    }
    LLVMValueRef spread(const Component& c) { return c.varies ? c.value : splat(c.value); }
    LLVMValueRef as(const Component& c, bool varies) { return varies ? spread(c) : c.value; }

    LLVMValueRef numbers(std::span<const std::uint32_t> all) const
    {
        std::vector<LLVMValueRef> list;
        list.reserve(all.size());
        for (const std::uint32_t one : all) {
            list.push_back(number(one));
        }
        return LLVMConstVector(list.data(), static_cast<unsigned>(list.size()));
    }

    LLVMValueRef shuffled(LLVMValueRef a, LLVMValueRef b, std::span<const std::uint32_t> order)
    {
        return LLVMBuildShuffleVector(builder_, a, b, numbers(order), "");
    }
    LLVMValueRef shuffled(LLVMValueRef a, std::span<const std::uint32_t> order)
    {
        return shuffled(a, LLVMGetUndef(LLVMTypeOf(a)), order);
    }

    Component constant(std::uint32_t bits, LLVMTypeRef type) const
    {
        Component c;
        c.constant = bits;
        c.sample = bits;
        c.value = type == float_ ? LLVMConstBitCast(number(bits), float_) : LLVMConstInt(type, bits, 0);
        return c;
    }

    /// base + slope * item, as whole numbers.
    Component line(LLVMValueRef base, std::int64_t slope)
    {
        Component c;
        c.varies = true;
        c.base = base;
        c.slope = slope;
        LLVMValueRef first = LLVMBuildAdd(
            builder_, base, LLVMBuildMul(builder_, item_, number(static_cast<std::uint32_t>(slope)), ""), "");
        std::vector<std::uint32_t> steps;
        for (std::uint32_t l = 0; l < lanes_; ++l) {
            steps.push_back(static_cast<std::uint32_t>(l * slope));
        }
        c.value = LLVMBuildAdd(builder_, splat(first), numbers(steps), "");
        return c;
    }

    std::uint32_t items() const { return mostColumns / period_; }

    /// What depends on the item alone. `general` computes it for those tables that are no line.
    template <class General>
    Component fromTable(std::vector<std::uint32_t> table, LLVMTypeRef type, General&& general)
    {
        if (std::all_of(table.begin(), table.end(), [&](std::uint32_t v) { return v == table[0]; })) {
            return constant(table[0], type);
        }
        const auto whole = [&](std::size_t i) -> std::optional<std::int64_t> {
            if (type != float_) {
                return static_cast<std::int32_t>(table[i]);
            }
            const auto value = std::bit_cast<float>(table[i]);
            const bool isWhole = std::abs(value) < 8388608.0F && value == std::trunc(value);
            return isWhole ? std::optional(static_cast<std::int64_t>(value)) : std::nullopt;
        };
        const std::optional<std::int64_t> first = whole(0);
        const std::optional<std::int64_t> second = whole(1);
        bool isLine = type != i1_ && first && second && *first != *second;
        for (std::size_t i = 2; i < table.size() && isLine; ++i) {
            isLine = whole(i) == *first + static_cast<std::int64_t>(i) * (*second - *first);
        }
        const std::uint32_t sample =
            table[std::min<std::size_t>(source_.likelyWidth / period_ / 2, table.size() - 1)];
        Component c;
        if (isLine) {
            c = line(number(static_cast<std::uint32_t>(*first)), *second - *first);
            if (type == float_) {
                c.value = LLVMBuildSIToFP(builder_, c.value, vectorOf(float_), "");
            }
        } else {
            c = general(sample);
            if (c.constant) {
                return c;
            }
        }
        c.sample = sample;
        c.table = std::make_shared<const std::vector<std::uint32_t>>(std::move(table));
        return c;
    }

    // ---- control flow: every block is computed, and what they lead to is chosen

    struct Entry
    {
        Id from;
        std::optional<Component> mask; ///< for which lanes; for all without
    };

    void step(const Instruction& i)
    {
        if (i.op() == spv::OpLabel) {
            enterBlock(i[1]);
            return;
        }
        if (isDead_) {
            return;
        }
        switch (i.op()) {
        case spv::OpSelectionMerge:
        case spv::OpLoopMerge: // one that comes round is refused by branch()
        case spv::OpReturn:
            return;
        case spv::OpSwitch: // around returns in between
            branch(caseOf(i), mask_);
            return;
        case spv::OpBranch:
            branch(i[1], mask_);
            return;
        case spv::OpBranchConditional: {
            const Component condition = values_.at(i[1]).at(0);
            if (condition.constant) {
                branch(*condition.constant != 0 ? i[2] : i[3], mask_);
                return;
            }
            Component inverse = condition;
            inverse.value = LLVMBuildNot(of(condition.varies), condition.value, "");
            branch(i[2], mask_ ? both(*mask_, condition) : condition);
            branch(i[3], mask_ ? both(*mask_, inverse) : inverse);
            return;
        }
        case spv::OpPhi:
            phi(i);
            return;
        case spv::OpStore:
            store(i);
            return;
        default:
            compute(i);
            return;
        }
    }

    /// Where a switch over a constant leads.
    Id caseOf(const Instruction& i) const
    {
        const std::optional<std::uint32_t> selector = values_.at(i[1]).at(0).constant;
        if (!selector) {
            refuse("a switch over a number that is computed");
        }
        for (std::size_t k = 3; k + 1 < i.size(); k += 2) {
            if (i[k] == *selector) {
                return i[k + 1];
            }
        }
        return i[2];
    }

    Component both(const Component& a, const Component& b) { return binary(LLVMAnd, a, b); }

    void enterBlock(Id id)
    {
        block_ = id;
        seen_.push_back(id);
        mask_.reset();
        const auto found = entries_.find(id);
        isDead_ = !isFirst_ && found == entries_.end();
        isFirst_ = false;
        if (isDead_ || found == entries_.end()) {
            return;
        }
        mask_ = found->second.front().mask;
        for (std::size_t k = 1; k < found->second.size() && mask_; ++k) {
            const std::optional<Component>& other = found->second[k].mask;
            mask_ = other ? std::optional(binary(LLVMOr, *mask_, *other)) : std::nullopt;
        }
    }

    void branch(Id target, const std::optional<Component>& mask)
    {
        if (std::find(seen_.begin(), seen_.end(), target) != seen_.end()) {
            refuse("a loop");
        }
        entries_[target].push_back({block_, mask});
    }

    void phi(const Instruction& i)
    {
        Value value;
        const auto& from = entries_.at(block_);
        for (std::size_t k = 3; k + 1 < i.size(); k += 2) {
            const auto entry =
                std::find_if(from.begin(), from.end(), [&](const Entry& e) { return e.from == i[k + 1]; });
            if (entry == from.end()) {
                continue;
            }
            const Value& other = values_.at(i[k]);
            if (value.empty()) {
                value = other;
                continue;
            }
            for (std::size_t c = 0; c < value.size(); ++c) {
                value[c] = entry->mask ? select(*entry->mask, other[c], value[c]) : other[c];
            }
        }
        values_[i[2]] = value;
    }

    void store(const Instruction& i)
    {
        const Pointer& to = pointers_.at(i[1]);
        const Value& value = values_.at(i[2]);
        if (classes_.at(to.variable) != spv::StorageClassOutput) {
            refuse("a store elsewhere");
        }
        for (std::size_t c = 0; c < value.size(); ++c) {
            Component& out = output_.at(to.offset / 4 + c);
            out = mask_ && out.value != nullptr ? select(*mask_, value[c], out) : value[c];
        }
    }

    // ---- values

    Component binary(LLVMOpcode op, const Component& a, const Component& b)
    {
        Component c;
        c.varies = a.varies || b.varies;
        c.value = LLVMBuildBinOp(of(c.varies), op, as(a, c.varies), as(b, c.varies), "");
        return c;
    }

    static LLVMValueRef baseOf(const Component& c) { return c.varies ? c.base : c.value; }

    /// Sums, differences and products of whole numbers that are lines are lines.
    Component whole(LLVMOpcode op, const Component& a, const Component& b)
    {
        LLVMValueRef x = baseOf(a);
        LLVMValueRef y = baseOf(b);
        if (!isInner_ || !(a.varies || b.varies) || x == nullptr || y == nullptr) {
            return binary(op, a, b);
        }
        if (op == LLVMAdd || op == LLVMSub) {
            const std::int64_t slope = a.slope + (op == LLVMAdd ? b.slope : -b.slope);
            LLVMValueRef base = LLVMBuildBinOp(rows_, op, x, y, "");
            if (slope != 0) {
                return line(base, slope);
            }
            Component c;
            c.value = base;
            return c;
        }
        const Component& factor = a.constant ? a : b;
        const Component& other = a.constant ? b : a;
        if (op == LLVMMul && factor.constant && *factor.constant != 0) {
            return line(LLVMBuildMul(rows_, x, y, ""),
                        other.slope * static_cast<std::int32_t>(*factor.constant));
        }
        if (op == LLVMShl && b.constant && *b.constant < 16) {
            return line(LLVMBuildShl(rows_, x, y, ""), a.slope * (std::int64_t{1} << *b.constant));
        }
        return binary(op, a, b);
    }

    Component unary(const Component& a, LLVMValueRef (*build)(LLVMBuilderRef, LLVMValueRef, const char*))
    {
        Component c;
        c.varies = a.varies;
        c.value = build(of(a.varies), a.value, "");
        return c;
    }

    Component cast(LLVMOpcode op, const Component& a, LLVMTypeRef to)
    {
        Component c;
        c.varies = a.varies;
        c.value = LLVMBuildCast(of(a.varies), op, a.value, a.varies ? vectorOf(to) : to, "");
        return c;
    }

    struct Comparison
    {
        bool floats;
        int predicate;
        int atLeast; ///< 1 if true for large left operands, -1 if for small ones, 0 for others
        bool orEqual;
    };

    static std::optional<Comparison> comparisonOf(spv::Op op)
    {
        switch (op) {
        case spv::OpLogicalEqual:
        case spv::OpIEqual:
            return Comparison{false, LLVMIntEQ, 0, true};
        case spv::OpLogicalNotEqual:
        case spv::OpINotEqual:
            return Comparison{false, LLVMIntNE, 0, false};
        case spv::OpUGreaterThan:
            return Comparison{false, LLVMIntUGT, 0, false};
        case spv::OpUGreaterThanEqual:
            return Comparison{false, LLVMIntUGE, 0, true};
        case spv::OpULessThan:
            return Comparison{false, LLVMIntULT, 0, false};
        case spv::OpULessThanEqual:
            return Comparison{false, LLVMIntULE, 0, true};
        case spv::OpSGreaterThan:
            return Comparison{false, LLVMIntSGT, 1, false};
        case spv::OpSGreaterThanEqual:
            return Comparison{false, LLVMIntSGE, 1, true};
        case spv::OpSLessThan:
            return Comparison{false, LLVMIntSLT, -1, false};
        case spv::OpSLessThanEqual:
            return Comparison{false, LLVMIntSLE, -1, true};
        case spv::OpFOrdEqual:
            return Comparison{true, LLVMRealOEQ, 0, true};
        case spv::OpFUnordNotEqual:
            return Comparison{true, LLVMRealUNE, 0, false};
        case spv::OpFOrdNotEqual:
            return Comparison{true, LLVMRealONE, 0, false};
        case spv::OpFOrdGreaterThan:
            return Comparison{true, LLVMRealOGT, 1, false};
        case spv::OpFOrdGreaterThanEqual:
            return Comparison{true, LLVMRealOGE, 1, true};
        case spv::OpFOrdLessThan:
            return Comparison{true, LLVMRealOLT, -1, false};
        case spv::OpFOrdLessThanEqual:
            return Comparison{true, LLVMRealOLE, -1, true};
        default:
            return std::nullopt;
        }
    }

    /// A line beside what is the same for the row is taken to be as it is in the middle; the items for which
    /// it is not are left to the border.
    std::optional<Component> supposed(const Comparison& how, const Component& a, const Component& b,
                                      std::optional<std::uint32_t> sample)
    {
        const bool left = a.varies;
        const Component& moving = left ? a : b;
        const Component& fixed = left ? b : a;
        if (!isInner_ || how.atLeast == 0 || !sample || fixed.varies || moving.base == nullptr ||
            moving.slope <= 0) {
            return std::nullopt;
        }
        const bool isTrue = *sample != 0;
        const bool atLeast = ((how.atLeast > 0) == left) == isTrue;
        LLVMValueRef bound = nullptr;
        if (how.floats) { // up to two away from where it changes
            LLVMValueRef most = LLVMConstReal(float_, 1 << 30);
            LLVMValueRef least = LLVMConstReal(float_, -(1 << 30));
            LLVMValueRef f = fixed.value;
            f = LLVMBuildSelect(rows_, LLVMBuildFCmp(rows_, LLVMRealOLT, f, most, ""), f, most, "");
            f = LLVMBuildSelect(rows_, LLVMBuildFCmp(rows_, LLVMRealOGT, f, least, ""), f, least, "");
            LLVMValueRef near = LLVMBuildFPToSI(rows_, f, i64_, "");
            bound = LLVMBuildAdd(rows_, near, wide64(atLeast ? 2 : -2), "");
        } else {
            bound = LLVMBuildAdd(rows_, LLVMBuildSExt(rows_, fixed.value, i64_, ""), wide64(atLeast ? 1 : -1),
                                 "");
        }
        require(moving, atLeast, bound);
        return constant(*sample, i1_);
    }

    Component compare(const Comparison& how, const Component& a, const Component& b)
    {
        Component c;
        c.varies = a.varies || b.varies;
        LLVMValueRef x = as(a, c.varies);
        LLVMValueRef y = as(b, c.varies);
        c.value = how.floats
                      ? LLVMBuildFCmp(of(c.varies), static_cast<LLVMRealPredicate>(how.predicate), x, y, "")
                      : LLVMBuildICmp(of(c.varies), static_cast<LLVMIntPredicate>(how.predicate), x, y, "");
        return c;
    }

    Component select(const Component& condition, const Component& a, const Component& b)
    {
        if (condition.constant) {
            return *condition.constant != 0 ? a : b;
        }
        Component c;
        c.varies = condition.varies || a.varies || b.varies;
        c.value = LLVMBuildSelect(of(c.varies), condition.value, as(a, c.varies), as(b, c.varies), "");
        return c;
    }

    /// The operand for which the comparison holds, or else the second.
    Component chosen(spv::Op op, const Component& a, const Component& b)
    {
        const Comparison how = *comparisonOf(op);
        std::optional<std::uint32_t> sample;
        if (a.sample && b.sample) {
            const std::array<std::uint32_t, 1> word{1U << spv::WordCountShift |
                                                    static_cast<std::uint32_t>(op)};
            sample = evaluated(Instruction{word}, {*a.sample, *b.sample, 0});
        }
        const std::optional<Component> known = supposed(how, a, b, sample);
        return select(known ? *known : compare(how, a, b), a, b);
    }

    Component call(const char* name, const Component& a)
    {
        LLVMTypeRef type = LLVMTypeOf(a.value);
        const unsigned id = LLVMLookupIntrinsicID(name, std::strlen(name));
        LLVMValueRef function = LLVMGetIntrinsicDeclaration(module_, id, &type, 1);
        LLVMTypeRef functionType = LLVMIntrinsicGetType(context_, id, &type, 1);
        LLVMValueRef argument = a.value;
        Component c;
        c.varies = a.varies;
        c.value = LLVMBuildCall2(of(a.varies), functionType, function, &argument, 1, "");
        return c;
    }

    Component bits(const Component& a, LLVMTypeRef to)
    {
        Component c;
        c.varies = a.varies;
        c.constant = a.constant;
        c.sample = a.sample;
        c.value = LLVMBuildBitCast(of(a.varies), a.value, a.varies ? vectorOf(to) : to, "");
        return c;
    }

    void compute(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpConstant:
            values_[i[2]] = {constant(i[3], elementOf(i[1]))};
            return;
        case spv::OpConstantTrue:
        case spv::OpConstantFalse:
            values_[i[2]] = {constant(i.op() == spv::OpConstantTrue ? 1 : 0, i1_)};
            return;
        case spv::OpConstantNull:
        case spv::OpUndef:
            values_[i[2]] = Value(componentsOf(i[1]), constant(0, elementOf(i[1])));
            return;
        case spv::OpConstantComposite:
        case spv::OpCompositeConstruct: {
            Value value;
            for (std::size_t k = 3; k < i.size(); ++k) {
                const Value& part = values_.at(i[k]);
                value.insert(value.end(), part.begin(), part.end());
            }
            values_[i[2]] = value;
            return;
        }
        case spv::OpCompositeExtract:
            values_[i[2]] = {values_.at(i[3]).at(i[4])};
            return;
        case spv::OpCompositeInsert: {
            Value value = values_.at(i[4]);
            value.at(i[5]) = values_.at(i[3]).at(0);
            values_[i[2]] = value;
            return;
        }
        case spv::OpVectorShuffle: {
            Value parts = values_.at(i[3]);
            const Value& second = values_.at(i[4]);
            parts.insert(parts.end(), second.begin(), second.end());
            Value value;
            for (std::size_t k = 5; k < i.size(); ++k) {
                value.push_back(parts.at(i[k] == 0xFFFFFFFF ? 0 : i[k]));
            }
            values_[i[2]] = value;
            return;
        }
        case spv::OpAccessChain:
            pointers_[i[2]] = follow(i);
            return;
        case spv::OpLoad:
            if (types_.at(i[1]).op() == spv::OpTypeImage) {
                images_[i[2]] = decorations_.at({i[3], spv::DecorationBinding});
            } else {
                values_[i[2]] = loaded(pointers_.at(i[3]));
            }
            return;
        case spv::OpImageFetch:
            values_[i[2]] = fetch(images_.at(i[3]), values_.at(i[4]).at(0), isFloat(i[1]));
            return;
        case spv::OpDot: {
            const Value& a = values_.at(i[3]);
            const Value& b = values_.at(i[4]);
            Component sum = binary(LLVMFMul, a[0], b[0]);
            for (std::size_t c = 1; c < a.size(); ++c) {
                sum = binary(LLVMFAdd, sum, binary(LLVMFMul, a[c], b[c]));
            }
            values_[i[2]] = {sum};
            return;
        }
        default:
            computeEach(i);
            return;
        }
    }

    void computeEach(const Instruction& i)
    {
        const bool extended = i.op() == spv::OpExtInst;
        std::vector<const Value*> operands;
        for (std::size_t k = extended ? 5 : 3; k < i.size(); ++k) {
            operands.push_back(&values_.at(i[k]));
        }
        Value value(componentsOf(i[1]));
        for (std::size_t c = 0; c < value.size(); ++c) {
            std::vector<const Component*> of;
            for (const Value* operand : operands) {
                of.push_back(&operand->at(std::min(c, operand->size() - 1)));
            }
            value[c] = folded(i, of);
        }
        values_[i[2]] = value;
    }

    using Operands = std::vector<const Component*>;

    /// As much as is known is computed here.
    Component folded(const Instruction& i, const Operands& of)
    {
        LLVMTypeRef type = elementOf(i[1]);
        bool isKnown = of.size() <= 3;
        bool isTable = false;
        bool isSampled = of.size() <= 3;
        for (const Component* c : of) {
            isKnown = isKnown && (c->constant || c->table);
            isTable = isTable || c->table;
            isSampled = isSampled && c->sample;
        }
        if (isKnown) {
            std::vector<std::uint32_t> table(isTable ? items() : 1);
            for (std::size_t n = 0; n < table.size() && isKnown; ++n) {
                std::array<std::uint32_t, 3> bits{};
                for (std::size_t k = 0; k < of.size(); ++k) {
                    bits.at(k) = of[k]->constant ? *of[k]->constant : (*of[k]->table)[n];
                }
                const std::optional<std::uint32_t> result = evaluated(i, bits);
                isKnown = result.has_value();
                table[n] = result.value_or(0);
            }
            if (isKnown) {
                return isTable ? fromTable(std::move(table), type,
                                           [&](std::uint32_t sample) { return result(i, of, sample); })
                               : constant(table[0], type);
            }
        }
        std::optional<std::uint32_t> sample;
        if (isSampled) {
            std::array<std::uint32_t, 3> bits{};
            for (std::size_t k = 0; k < of.size(); ++k) {
                bits.at(k) = *of[k]->sample;
            }
            sample = evaluated(i, bits);
        }
        Component c = result(i, of, sample);
        if (!c.constant) {
            c.sample = sample;
        }
        return c;
    }

    Component result(const Instruction& i, const Operands& of, std::optional<std::uint32_t> sample)
    {
        if (const std::optional<Comparison> how = comparisonOf(i.op())) {
            const std::optional<Component> known = supposed(*how, *of[0], *of[1], sample);
            return known ? *known : compare(*how, *of[0], *of[1]);
        }
        switch (i.op()) {
        case spv::OpExtInst:
            return resultOfFunction(i[4], of);
        case spv::OpCopyObject:
            return *of[0];
        case spv::OpBitcast:
            return elementOf(i[1]) == i32_ && (!of[0]->varies || of[0]->base != nullptr) &&
                           LLVMGetTypeKind(elementType(*of[0])) == LLVMIntegerTypeKind
                       ? *of[0]
                       : bits(*of[0], elementOf(i[1]));
        case spv::OpIAdd:
            return whole(LLVMAdd, *of[0], *of[1]);
        case spv::OpISub:
            return whole(LLVMSub, *of[0], *of[1]);
        case spv::OpIMul:
            return whole(LLVMMul, *of[0], *of[1]);
        case spv::OpSDiv:
            return binary(LLVMSDiv, *of[0], *of[1]);
        case spv::OpUDiv:
            return binary(LLVMUDiv, *of[0], *of[1]);
        case spv::OpShiftLeftLogical:
            return whole(LLVMShl, *of[0], *of[1]);
        case spv::OpShiftRightLogical:
            return binary(LLVMLShr, *of[0], *of[1]);
        case spv::OpShiftRightArithmetic:
            return binary(LLVMAShr, *of[0], *of[1]);
        case spv::OpBitwiseAnd:
        case spv::OpLogicalAnd:
            return binary(LLVMAnd, *of[0], *of[1]);
        case spv::OpBitwiseOr:
        case spv::OpLogicalOr:
            return binary(LLVMOr, *of[0], *of[1]);
        case spv::OpBitwiseXor:
            return binary(LLVMXor, *of[0], *of[1]);
        case spv::OpLogicalNot:
        case spv::OpNot:
            return unary(*of[0], LLVMBuildNot);
        case spv::OpSNegate:
            return unary(*of[0], LLVMBuildNeg);
        case spv::OpFNegate:
            return unary(*of[0], LLVMBuildFNeg);
        case spv::OpSelect:
            return select(*of[0], *of[1], *of[2]);
        case spv::OpConvertFToS:
            return cast(LLVMFPToSI, *of[0], i32_);
        case spv::OpConvertFToU:
            return cast(LLVMFPToUI, *of[0], i32_);
        case spv::OpConvertSToF:
            return cast(LLVMSIToFP, *of[0], float_);
        case spv::OpConvertUToF:
            return cast(LLVMUIToFP, *of[0], float_);
        case spv::OpFAdd:
            return binary(LLVMFAdd, *of[0], *of[1]);
        case spv::OpFSub:
            return binary(LLVMFSub, *of[0], *of[1]);
        case spv::OpFMul:
        case spv::OpVectorTimesScalar:
            return binary(LLVMFMul, *of[0], *of[1]);
        case spv::OpFDiv:
            return binary(LLVMFDiv, *of[0], *of[1]);
        default:
            refuse("instruction " + std::to_string(i.op()));
        }
    }

    static LLVMTypeRef elementType(const Component& c)
    {
        LLVMTypeRef type = LLVMTypeOf(c.value);
        return c.varies ? LLVMGetElementType(type) : type;
    }

    Component resultOfFunction(std::uint32_t function, const Operands& of)
    {
        switch (function) {
        case GLSLstd450Round: // drivers choose the even one of two equally near
        case GLSLstd450RoundEven:
            return call("llvm.nearbyint", *of[0]);
        case GLSLstd450Fract:
            return binary(LLVMFSub, *of[0], call("llvm.floor", *of[0]));
        case GLSLstd450FSign: {
            const Component zero = constant(0, float_);
            const Component one = constant(std::bit_cast<std::uint32_t>(1.0F), float_);
            const Component minus = constant(std::bit_cast<std::uint32_t>(-1.0F), float_);
            const Component signOf =
                select(compare(*comparisonOf(spv::OpFOrdLessThan), *of[0], zero), minus, one);
            return select(compare(*comparisonOf(spv::OpFOrdEqual), *of[0], zero), zero, signOf);
        }
        case GLSLstd450SSign: {
            const Component most = chosen(spv::OpSGreaterThan, *of[0], constant(0xFFFFFFFF, i32_));
            return chosen(spv::OpSLessThan, most, constant(1, i32_));
        }
        case GLSLstd450Trunc:
            return call("llvm.trunc", *of[0]);
        case GLSLstd450Floor:
            return call("llvm.floor", *of[0]);
        case GLSLstd450Ceil:
            return call("llvm.ceil", *of[0]);
        case GLSLstd450Sqrt:
            return call("llvm.sqrt", *of[0]);
        case GLSLstd450FAbs:
            return call("llvm.fabs", *of[0]);
        case GLSLstd450FMin:
        case GLSLstd450NMin:
            return chosen(spv::OpFOrdLessThan, *of[0], *of[1]);
        case GLSLstd450FMax:
        case GLSLstd450NMax:
            return chosen(spv::OpFOrdGreaterThan, *of[0], *of[1]);
        case GLSLstd450UMin:
            return chosen(spv::OpULessThan, *of[0], *of[1]);
        case GLSLstd450SMin:
            return chosen(spv::OpSLessThan, *of[0], *of[1]);
        case GLSLstd450UMax:
            return chosen(spv::OpUGreaterThan, *of[0], *of[1]);
        case GLSLstd450SMax:
            return chosen(spv::OpSGreaterThan, *of[0], *of[1]);
        case GLSLstd450FClamp:
        case GLSLstd450NClamp:
            return chosen(spv::OpFOrdLessThan, chosen(spv::OpFOrdGreaterThan, *of[0], *of[1]), *of[2]);
        case GLSLstd450SClamp:
            return chosen(spv::OpSLessThan, chosen(spv::OpSGreaterThan, *of[0], *of[1]), *of[2]);
        default:
            refuse("function " + std::to_string(function));
        }
    }

    // ---- memory

    Pointer follow(const Instruction& i) const
    {
        Pointer pointer = pointers_.at(i[3]);
        for (std::size_t k = 4; k < i.size(); ++k) {
            const std::optional<std::uint32_t> index = values_.at(i[k])[0].constant;
            if (!index) {
                refuse("a computed place in memory");
            }
            const Instruction& type = types_.at(pointer.type);
            if (type.op() == spv::OpTypeStruct) {
                pointer.offset += offsets_.at({pointer.type, *index});
                pointer.type = type[2 + *index];
            } else if (type.op() == spv::OpTypeArray) {
                pointer.offset += *index * decorations_.at({pointer.type, spv::DecorationArrayStride});
                pointer.type = type[2];
            } else {
                pointer.offset += *index * 4;
                pointer.type = type[2];
            }
        }
        return pointer;
    }

    Value loaded(const Pointer& pointer)
    {
        const auto storage = classes_.at(pointer.variable);
        if (storage == spv::StorageClassInput) {
            return position(pointer);
        }
        if (storage != spv::StorageClassUniform) {
            refuse("a load from elsewhere");
        }
        Value value(componentsOf(pointer.type));
        for (std::size_t c = 0; c < value.size(); ++c) {
            const std::size_t place = pointer.offset + 4 * c;
            value[c].value = load(rows_, elementOf(pointer.type),
                                  offset(rows_, i8_, uniforms_, LLVMConstInt(i64_, place, 0)), 4);
            std::uint32_t likely = 0;
            if (place + sizeof likely <= source_.likely.size()) {
                std::memcpy(&likely, source_.likely.data() + place, sizeof likely);
                value[c].sample = likely;
            }
        }
        return value;
    }

    Value position(const Pointer& pointer)
    {
        if (decorations_.count({pointer.variable, spv::DecorationBuiltIn}) == 0 ||
            decorations_.at({pointer.variable, spv::DecorationBuiltIn}) != spv::BuiltInFragCoord) {
            refuse("an input that is not known");
        }
        LLVMValueRef half = LLVMConstReal(float_, 0.5);
        Component column = line(number(place_), period_);
        Component x;
        x.varies = true;
        x.value = LLVMBuildFAdd(builder_, LLVMBuildSIToFP(builder_, column.value, vectorOf(float_), ""),
                                splat(half), "");
        if (isInner_) {
            std::vector<std::uint32_t> table(items());
            for (std::uint32_t n = 0; n < table.size(); ++n) {
                table[n] = std::bit_cast<std::uint32_t>(static_cast<float>(n * period_ + place_) + 0.5F);
            }
            x = fromTable(std::move(table), float_, [&](std::uint32_t) { return x; });
        }
        Component y;
        y.value = LLVMBuildFAdd(rows_, LLVMBuildUIToFP(rows_, row_, float_, ""), half, "");
        y.sample = std::bit_cast<std::uint32_t>(100.5F);
        const Value all{x, y, constant(0, float_), constant(std::bit_cast<std::uint32_t>(1.0F), float_)};
        const auto first = static_cast<std::ptrdiff_t>(pointer.offset / 4);
        return {all.begin() + first,
                all.begin() + first + static_cast<std::ptrdiff_t>(componentsOf(pointer.type))};
    }

    Value fetch(std::uint32_t binding, const Component& index, bool floats)
    {
        if (binding == 0 || binding - 1 >= source_.texels.size() || source_.texels[binding - 1].bytes == 0) {
            refuse("an image that is not a buffer");
        }
        const Texels& texels = source_.texels[binding - 1];
        std::vector<Component> words;
        if (!index.varies) {
            words = sameTexel(binding - 1, texels, index);
        } else if (index.base != nullptr && index.slope > 0 && index.slope <= longestRun) {
            words = texelsInRun(binding - 1, texels, index);
        } else {
            words = scatteredTexels(binding - 1, texels, index.value);
        }
        Value value = apart(texels, words);
        if (floats) {
            for (Component& c : value) {
                c = bits(c, float_);
            }
        }
        return value;
    }

    /// Takes the components of texels apart: `words` are those of 32 bits that a texel has, for each lane.
    Value apart(const Texels& texels, const std::vector<Component>& words)
    {
        Value value;
        const std::uint32_t bits = texels.componentBits;
        for (const Component& word : words) {
            for (std::uint32_t k = 0; k < 32 / bits; ++k) {
                Component c = word;
                c = k == 0 ? c : binary(LLVMLShr, c, constant(k * bits, i32_));
                if ((k + 1) * bits < 32) {
                    c = binary(LLVMAnd, c, constant((1U << bits) - 1U, i32_));
                }
                value.push_back(c);
            }
        }
        value.resize(4, constant(0, i32_));
        return value;
    }

    std::vector<Component> sameTexel(std::size_t buffer, const Texels& texels, const Component& index)
    {
        LLVMTypeRef type = LLVMVectorType(i32_, texels.bytes / 4);
        LLVMValueRef wide = LLVMBuildZExt(rows_, index.value, i64_, "");
        LLVMValueRef isInside = LLVMBuildICmp(rows_, LLVMIntULT, wide, texelCounts_[buffer], "");
        LLVMValueRef safe = LLVMBuildSelect(rows_, isInside, wide, wide64(0), "");
        LLVMValueRef texel = load(
            rows_, type,
            offset(rows_, i8_, buffers_[buffer], LLVMBuildMul(rows_, safe, wide64(texels.bytes), "")), 4);
        std::vector<Component> words(texels.bytes / 4);
        for (std::uint32_t w = 0; w < words.size(); ++w) {
            words[w].value = LLVMBuildExtractElement(rows_, texel, number(w), "");
        }
        return words;
    }

    Component lanesOf(LLVMValueRef vector)
    {
        Component c;
        c.varies = true;
        c.value = vector;
        return c;
    }

    std::vector<Component> scatteredTexels(std::size_t buffer, const Texels& texels, LLVMValueRef indices)
    {
        LLVMValueRef last =
            LLVMBuildTrunc(rows_, LLVMBuildSub(rows_, texelCounts_[buffer], wide64(1), ""), i32_, "");
        LLVMValueRef most = splat(last);
        LLVMValueRef safe = LLVMBuildSelect(builder_, LLVMBuildICmp(builder_, LLVMIntULT, indices, most, ""),
                                            indices, most, "");
        const std::uint32_t count = texels.bytes / 4;
        std::vector<Component> words;
        if (gathers_) {
            for (std::uint32_t w = 0; w < count; ++w) {
                words.push_back(lanesOf(gathered(buffer, safe, count, w)));
            }
            return words;
        }
        std::vector<LLVMValueRef> each;
        for (std::uint32_t l = 0; l < lanes_; ++l) {
            LLVMValueRef index =
                LLVMBuildZExt(builder_, LLVMBuildExtractElement(builder_, safe, number(l), ""), i64_, "");
            LLVMValueRef place = LLVMBuildMul(builder_, index, wide64(texels.bytes), "");
            each.push_back(load(builder_, LLVMVectorType(i32_, count),
                                offset(builder_, i8_, buffers_[buffer], place), 4));
        }
        for (LLVMValueRef word : count == 4 ? transposedFours(each) : joined(each, count)) {
            words.push_back(lanesOf(word));
        }
        return words;
    }

    LLVMValueRef gathered(std::size_t buffer, LLVMValueRef indices, std::uint32_t count, std::uint32_t word)
    {
        LLVMValueRef places = LLVMBuildMul(builder_, indices, splat(number(count)), "");
        LLVMValueRef begin = offset(builder_, i8_, buffers_[buffer], wide64(4 * word));
        const auto declared = [&](const char* name, std::span<LLVMTypeRef> overloads,
                                  std::span<LLVMValueRef> arguments) {
            const unsigned id = LLVMLookupIntrinsicID(name, std::strlen(name));
            LLVMValueRef function =
                LLVMGetIntrinsicDeclaration(module_, id, overloads.data(), overloads.size());
            LLVMTypeRef type = LLVMIntrinsicGetType(context_, id, overloads.data(), overloads.size());
            return LLVMBuildCall2(builder_, type, function, arguments.data(),
                                  static_cast<unsigned>(arguments.size()), "");
        };
        if (lanes_ == 8) {
            std::array<LLVMValueRef, 5> arguments{LLVMGetUndef(vectorOf(i32_)), begin, places,
                                                  LLVMConstAllOnes(vectorOf(i32_)), LLVMConstInt(i8_, 4, 0)};
            return declared("llvm.x86.avx2.gather.d.d.256", {}, arguments);
        }
        LLVMValueRef typed = LLVMBuildBitCast(builder_, begin, LLVMPointerType(i32_, 0), "");
        LLVMValueRef pointers = LLVMBuildGEP2(builder_, i32_, typed, &places, 1, "");
        std::array<LLVMTypeRef, 2> types{vectorOf(i32_), LLVMTypeOf(pointers)};
        std::array<LLVMValueRef, 4> arguments{pointers, number(4), LLVMConstAllOnes(vectorOf(i1_)),
                                              LLVMGetUndef(vectorOf(i32_))};
        return declared("llvm.masked.gather", types, arguments);
    }

    /// Joins the vectors of all lanes and picks component after component.
    std::vector<LLVMValueRef> joined(std::vector<LLVMValueRef> each, std::uint32_t count)
    {
        LLVMValueRef all = joinedWhole(std::move(each), count);
        return strided(all, count, count);
    }

    LLVMValueRef joinedWhole(std::vector<LLVMValueRef> each, std::uint32_t count)
    {
        for (std::uint32_t size = count; each.size() > 1; size *= 2) {
            std::vector<LLVMValueRef> next;
            std::vector<std::uint32_t> order(2 * size);
            for (std::uint32_t k = 0; k < order.size(); ++k) {
                order[k] = k;
            }
            for (std::size_t k = 0; k + 1 < each.size(); k += 2) {
                next.push_back(shuffled(each[k], each[k + 1], order));
            }
            each = next;
        }
        return each.front();
    }

    /// Vectors of four words, one for each lane, become four vectors of a word for each lane.
    std::vector<LLVMValueRef> transposedFours(const std::vector<LLVMValueRef>& each)
    {
        std::array<LLVMValueRef, 4> rows{}; // of lanes j, 4 + j, 8 + j, ...
        for (std::uint32_t j = 0; j < 4; ++j) {
            std::vector<LLVMValueRef> some;
            for (std::uint32_t l = j; l < lanes_; l += 4) {
                some.push_back(each[l]);
            }
            rows.at(j) = joinedWhole(some, 4);
        }
        const auto merged = [&](LLVMValueRef a, LLVMValueRef b, std::array<std::uint32_t, 4> pattern) {
            std::vector<std::uint32_t> order;
            for (std::uint32_t block = 0; block < lanes_; block += 4) {
                for (const std::uint32_t p : pattern) {
                    order.push_back(block + (p & 3U) + (p >= 4 ? lanes_ : 0));
                }
            }
            return shuffled(a, b, order);
        };
        constexpr std::array<std::uint32_t, 4> low{0, 4, 1, 5};
        constexpr std::array<std::uint32_t, 4> high{2, 6, 3, 7};
        constexpr std::array<std::uint32_t, 4> first{0, 1, 4, 5};
        constexpr std::array<std::uint32_t, 4> second{2, 3, 6, 7};
        LLVMValueRef a = merged(rows[0], rows[1], low);
        LLVMValueRef b = merged(rows[2], rows[3], low);
        LLVMValueRef c = merged(rows[0], rows[1], high);
        LLVMValueRef d = merged(rows[2], rows[3], high);
        return {merged(a, b, first), merged(a, b, second), merged(c, d, first), merged(c, d, second)};
    }

    /// For each of `count` words of a texel, the words at that place of texels that are `distance` words
    /// apart.
    std::vector<LLVMValueRef> strided(LLVMValueRef all, std::uint32_t count, std::uint32_t distance)
    {
        std::vector<LLVMValueRef> result;
        for (std::uint32_t w = 0; w < count; ++w) {
            std::vector<std::uint32_t> order;
            for (std::uint32_t l = 0; l < lanes_; ++l) {
                order.push_back(l * distance + w);
            }
            result.push_back(shuffled(all, order));
        }
        return result;
    }

    /// Texels at equal distances are read together: the items for which all are inside are those in the
    /// middle.
    std::vector<Component> texelsInRun(std::size_t buffer, const Texels& texels, const Component& index)
    {
        require(index, true, wide64(0));
        require(index, false, LLVMBuildSub(rows_, texelCounts_[buffer], wide64(index.slope), ""));
        const std::uint32_t count = texels.bytes / 4;
        auto distance = static_cast<std::uint32_t>(index.slope) * count;
        LLVMValueRef item = LLVMBuildSExt(builder_, item_, i64_, "");
        LLVMValueRef begin =
            LLVMBuildMul(rows_, LLVMBuildSExt(rows_, index.base, i64_, ""), wide64(texels.bytes), "");
        LLVMValueRef place = LLVMBuildAdd(
            builder_, begin, LLVMBuildMul(builder_, item, wide64(index.slope * texels.bytes), ""), "");
        LLVMValueRef from = offset(builder_, i8_, buffers_[buffer], place);
        std::vector<Component> words;
        if (index.slope > 4) { // each texel by itself
            std::vector<LLVMValueRef> each;
            for (std::uint32_t l = 0; l < lanes_; ++l) {
                each.push_back(load(builder_, LLVMVectorType(i32_, count),
                                    offset(builder_, i8_, from, wide64(std::int64_t{4} * l * distance)), 4));
            }
            for (LLVMValueRef word : count == 4 ? transposedFours(each) : joined(each, count)) {
                words.push_back(lanesOf(word));
            }
            return words;
        }
        LLVMValueRef all = load(builder_, LLVMVectorType(i32_, lanes_ * distance), from, 4);
        if (count == 2 && index.slope > 1 && !isWide_) { // whole texels first: fewer shuffles with AVX2
            const auto slope = static_cast<std::uint32_t>(index.slope);
            LLVMValueRef whole = LLVMBuildBitCast(builder_, all, LLVMVectorType(i64_, lanes_ * slope), "");
            all = LLVMBuildBitCast(builder_, strided(whole, 1, slope).front(),
                                   LLVMVectorType(i32_, lanes_ * 2), "");
            distance = count;
        }
        for (LLVMValueRef word : strided(all, count, distance)) {
            words.push_back(lanesOf(word));
        }
        return words;
    }

    // ---- the target

    std::uint32_t wordsOfTexel() const { return source_.targetBits / 8; }

    /// The codes of a texel as words of the target.
    void addWords()
    {
        const std::uint32_t bits = source_.targetBits;
        const std::uint32_t perWord = 32 / bits;
        for (std::uint32_t w = 0; w < wordsOfTexel(); ++w) {
            Component word;
            for (std::uint32_t k = 0; k < perWord; ++k) {
                Component c = output_.at(w * perWord + k);
                if (c.value == nullptr) {
                    refuse("no result");
                }
                c = k == 0 ? c : binary(LLVMShl, c, constant(k * bits, i32_));
                word = k == 0 ? c : binary(LLVMOr, word, c);
            }
            targetWords_.push_back(spread(word));
        }
    }

    LLVMValueRef interleaved(const std::vector<LLVMValueRef>& vectors)
    {
        if (vectors.size() == 1) {
            return vectors.front();
        }
        std::vector<LLVMValueRef> even;
        std::vector<LLVMValueRef> odd;
        for (std::size_t k = 0; k < vectors.size(); ++k) {
            (k % 2 == 0 ? even : odd).push_back(vectors[k]);
        }
        LLVMValueRef a = interleaved(even);
        LLVMValueRef b = interleaved(odd);
        const unsigned size = LLVMGetVectorSize(LLVMTypeOf(a));
        std::vector<std::uint32_t> order;
        for (std::uint32_t k = 0; k < size; ++k) {
            order.push_back(k);
            order.push_back(size + k);
        }
        return shuffled(a, b, order);
    }

    /// Stores what all lanes have computed, item after item.
    void storeAll()
    {
        const std::size_t count = targetWords_.size();
        LLVMValueRef place = LLVMBuildMul(builder_, LLVMBuildZExt(builder_, item_, i64_, ""),
                                          wide64(static_cast<std::int64_t>(4 * count)), "");
        LLVMValueRef to = offset(builder_, i8_, line_, place);
        std::size_t group = 1; // words that are stored together for each lane
        while (group < 4 && count % (group * 2) == 0) {
            group *= 2;
        }
        for (std::size_t first = 0; first < count; first += group) {
            const auto begin = targetWords_.begin() + static_cast<std::ptrdiff_t>(first);
            LLVMValueRef all = interleaved({begin, begin + static_cast<std::ptrdiff_t>(group)});
            if (group == count) {
                storeTo(to, all);
                break;
            }
            for (std::uint32_t l = 0; l < lanes_; ++l) {
                std::vector<std::uint32_t> order;
                for (std::uint32_t k = 0; k < group; ++k) {
                    order.push_back(static_cast<std::uint32_t>(l * group + k));
                }
                storeTo(offset(builder_, i8_, to, wide64(static_cast<std::int64_t>(4 * (l * count + first)))),
                        shuffled(all, order));
            }
        }
    }

    /// Stores the texels before `end`.
    void storeSome(LLVMValueRef end)
    {
        const std::uint32_t count = wordsOfTexel();
        LLVMValueRef place = LLVMBuildMul(builder_, LLVMBuildZExt(builder_, item_, i64_, ""),
                                          wide64(std::int64_t{4} * count), "");
        LLVMValueRef to = offset(builder_, i8_, line_, place);
        LLVMValueRef all = interleaved(targetWords_);
        for (std::uint32_t l = 0; l < lanes_; ++l) {
            LLVMBasicBlockRef one = block();
            LLVMBasicBlockRef next = block();
            LLVMValueRef texel = LLVMBuildAdd(builder_, item_, number(l), "");
            LLVMBuildCondBr(builder_, LLVMBuildICmp(builder_, LLVMIntULT, texel, end, ""), one, next);
            at(one);
            std::vector<std::uint32_t> order;
            for (std::uint32_t k = 0; k < count; ++k) {
                order.push_back(l * count + k);
            }
            storeTo(offset(builder_, i8_, to, wide64(std::int64_t{4} * l * count)), shuffled(all, order));
            LLVMBuildBr(builder_, next);
            at(next);
        }
    }

    const Source& source_;
    LLVMContextRef context_;
    LLVMModuleRef module_;
    const std::uint32_t lanes_;
    const std::uint32_t period_;
    const bool isInner_; ///< computes what is not at a border
    const bool gathers_;
    const bool isWide_;
    LLVMBuilderRef builder_; ///< in the loop over items
    LLVMBuilderRef rows_;    ///< before it
    LLVMTypeRef i1_, i8_, i32_, i64_, float_, bytes_;

    std::map<std::pair<Id, std::uint32_t>, std::uint32_t> decorations_;
    std::map<std::pair<Id, std::uint32_t>, std::uint32_t> offsets_;
    std::map<Id, Instruction> types_;
    std::map<Id, std::uint32_t> classes_; ///< of variables
    std::map<Id, Pointer> pointers_;
    std::vector<Instruction> constants_;
    std::vector<Instruction> body_;
    bool inFunction_ = false;

    std::uint32_t place_ = 0; ///< of the texel in its item
    std::map<Id, Value> values_;
    std::map<Id, std::uint32_t> images_; ///< their bindings
    Id block_ = 0;
    bool isDead_ = false;
    bool isFirst_ = true;
    std::optional<Component> mask_;
    std::vector<Id> seen_;
    std::map<Id, std::vector<Entry>> entries_;
    std::array<Component, 4> output_{};
    std::vector<LLVMValueRef> targetWords_;

    LLVMValueRef function_ = nullptr;
    std::array<LLVMValueRef, Frame::mostBuffers> buffers_{};
    std::array<LLVMValueRef, Frame::mostBuffers> texelCounts_{};
    LLVMValueRef uniforms_ = nullptr;
    LLVMValueRef target_ = nullptr;
    LLVMValueRef pitch_ = nullptr;
    LLVMValueRef width_ = nullptr;
    LLVMValueRef row_ = nullptr;
    LLVMValueRef item_ = nullptr;
    LLVMValueRef line_ = nullptr;
    LLVMValueRef low_ = nullptr;     ///< items that are computed here: from this one,
    LLVMValueRef high_ = nullptr;    ///< to the one before
    LLVMValueRef endSlot_ = nullptr; ///< high_, for the loop, which is written before it is known
};

} // namespace

void writeBorder(const Source& source)
{
    Translator(source, {borderLanes}, false).writeBorder();
}

void writeDraw(const Source& source, const Options& options)
{
    Translator(source, options, true).writeDraw();
}

} // namespace Qx::Host::Native
