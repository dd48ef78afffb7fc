#include "host/native/Emitter.h"

#include <array>
#include <bit>
#include <cstring>

namespace Qx::Host::Native {
namespace {

/// A line that is steeper is none: sums of what this bounds stay within 64 bits.
constexpr std::int64_t steepest = 1 << 20;

/// Numbers beyond this are no places in a picture, and could leave 32 bits.
constexpr std::int64_t farthest = 1 << 30;

LLVMTypeRef functionType(LLVMContextRef context, unsigned numbers, bool gives)
{
    LLVMTypeRef number = LLVMInt32TypeInContext(context);
    std::vector<LLVMTypeRef> types(numbers + 1, number);
    types[0] = LLVMPointerType(LLVMInt8TypeInContext(context), 0);
    return LLVMFunctionType(gives ? number : LLVMVoidTypeInContext(context), types.data(), numbers + 1, 0);
}

} // namespace

Emitter::Emitter(const Source& shader, const Options& options, Purpose forWhat, const char* name,
                 unsigned parameters)
    : source(shader),
      context(shader.context),
      module(shader.module),
      i1(LLVMInt1TypeInContext(context)),
      i8(LLVMInt8TypeInContext(context)),
      i32(LLVMInt32TypeInContext(context)),
      i64(LLVMInt64TypeInContext(context)),
      float32(LLVMFloatTypeInContext(context)),
      bytes(LLVMPointerType(i8, 0)),
      lanes(options.lanes),
      period(options.period),
      gathers(options.gathers),
      isWide(options.wide),
      purpose(forWhat),
      function(
          LLVMAddFunction(module, name, functionType(context, parameters, forWhat == Purpose::Question))),
      items(LLVMCreateBuilderInContext(context)),
      rows(LLVMCreateBuilderInContext(context))
{
}

Emitter::~Emitter()
{
    LLVMDisposeBuilder(items);
    LLVMDisposeBuilder(rows);
}

void Emitter::addIncoming(LLVMValueRef phi, LLVMValueRef value, LLVMBasicBlockRef from)
{
    LLVMAddIncoming(phi, &value, &from, 1);
}

void Emitter::require(const Component& c, bool atLeast, LLVMValueRef bound)
{
    LLVMValueRef base = LLVMBuildSExt(rows, c.base, i64, "");
    LLVMValueRef quotient = LLVMBuildSDiv(rows, LLVMBuildSub(rows, bound, base, ""), wide(c.slope), "");
    if (atLeast) { // the division rounds to zero: one more in any case
        low = larger(low, LLVMBuildAdd(rows, quotient, wide(1), ""));
    } else {
        high = smaller(high, quotient);
    }
    LLVMValueRef isNear = LLVMBuildAnd(rows, LLVMBuildICmp(rows, LLVMIntSLT, base, wide(farthest), ""),
                                       LLVMBuildICmp(rows, LLVMIntSGT, base, wide(-farthest), ""), "");
    high = LLVMBuildSelect(rows, isNear, high, wide(0), "");
}

LLVMTypeRef Emitter::typeOf(ParsedShader::Kind kind) const
{
    switch (kind) {
    case ParsedShader::Kind::Float:
        return float32;
    case ParsedShader::Kind::Whole:
        return i32;
    case ParsedShader::Kind::Truth:
        break;
    }
    return i1;
}

LLVMTypeRef Emitter::elementOf(const Component& c)
{
    LLVMTypeRef type = LLVMTypeOf(c.value);
    return c.varies ? LLVMGetElementType(type) : type;
}

LLVMValueRef Emitter::splat(LLVMValueRef value) const
{
    LLVMTypeRef type = vectorOf(LLVMTypeOf(value));
    LLVMValueRef first = LLVMBuildInsertElement(items, LLVMGetUndef(type), value, number(0), "");
    return LLVMBuildShuffleVector(items, first, LLVMGetUndef(type), LLVMConstNull(vectorOf(i32)), "");
}

LLVMValueRef Emitter::numbers(std::span<const std::uint32_t> all) const
{
    std::vector<LLVMValueRef> list;
    list.reserve(all.size());
    for (const std::uint32_t one : all) {
        list.push_back(number(one));
    }
    return LLVMConstVector(list.data(), static_cast<unsigned>(list.size()));
}

LLVMValueRef Emitter::larger(LLVMValueRef a, LLVMValueRef b) const
{
    return LLVMBuildSelect(rows, LLVMBuildICmp(rows, LLVMIntSGT, a, b, ""), a, b, "");
}

LLVMValueRef Emitter::smaller(LLVMValueRef a, LLVMValueRef b) const
{
    return LLVMBuildSelect(rows, LLVMBuildICmp(rows, LLVMIntSLT, a, b, ""), a, b, "");
}

// ---- what is known

Component Emitter::constant(std::uint32_t bits, LLVMTypeRef type) const
{
    Component c;
    c.constant = bits;
    c.sample = bits;
    c.isOfUniforms = true;
    c.value = type == float32 ? LLVMConstBitCast(number(bits), float32) : LLVMConstInt(type, bits, 0);
    return c;
}

Component Emitter::constant(float value) const
{
    return constant(std::bit_cast<std::uint32_t>(value), float32);
}

Component Emitter::unknown(LLVMTypeRef type, const std::string& why) const
{
    Component c;
    c.value = LLVMConstNull(type);
    c.isUnknown = LLVMConstInt(i1, 1, 0);
    c.why = std::make_shared<const std::string>(why);
    return c;
}

Component Emitter::ofLanes(LLVMValueRef vector) const
{
    Component c;
    c.varies = true;
    c.value = vector;
    return c;
}

LLVMValueRef Emitter::either(LLVMValueRef a, LLVMValueRef b) const
{
    LLVMValueRef always = LLVMConstInt(i1, 1, 0);
    if (a == nullptr || b == nullptr || a == b) {
        return a != nullptr ? a : b;
    }
    return a == always || b == always ? always : LLVMBuildOr(rows, a, b, "");
}

void Emitter::inherit(Component& result, std::initializer_list<const Component*> of) const
{
    result.isOfUniforms = !result.varies;
    for (const Component* const c : of) {
        result.isOfUniforms = result.isOfUniforms && c->isOfUniforms;
        result.isUnknown = either(result.isUnknown, c->isUnknown);
        result.why = result.why != nullptr ? result.why : c->why;
    }
}

// ---- arithmetic

Component Emitter::binary(LLVMOpcode op, const Component& a, const Component& b) const
{
    Component c;
    c.varies = a.varies || b.varies;
    c.value = LLVMBuildBinOp(builderFor(c.varies), op, as(a, c.varies), as(b, c.varies), "");
    inherit(c, {&a, &b});
    return c;
}

Component Emitter::whole(LLVMOpcode op, const Component& a, const Component& b) const
{
    LLVMValueRef x = a.varies ? a.base : a.value;
    LLVMValueRef y = b.varies ? b.base : b.value;
    if (purpose != Purpose::Middle || !(a.varies || b.varies) || x == nullptr || y == nullptr) {
        return binary(op, a, b);
    }
    Component c;
    if (op == LLVMAdd || op == LLVMSub) {
        const std::int64_t slope = a.slope + (op == LLVMAdd ? b.slope : -b.slope);
        LLVMValueRef base = LLVMBuildBinOp(rows, op, x, y, "");
        if (slope > steepest || slope < -steepest) {
            return binary(op, a, b);
        }
        if (slope != 0) {
            c = line(base, slope);
        } else {
            c.value = base;
        }
    } else {
        c = factored(a, b);
        if (c.value == nullptr) {
            return binary(op, a, b);
        }
    }
    inherit(c, {&a, &b});
    return c;
}

/// The product of a line and a constant; nothing for others.
Component Emitter::factored(const Component& a, const Component& b) const
{
    const Component& factor = a.constant ? a : b;
    const Component& other = a.constant ? b : a;
    const std::int64_t times = factor.constant ? static_cast<std::int32_t>(*factor.constant) : 0;
    if (times == 0 || times > steepest || times < -steepest || other.base == nullptr) {
        return {};
    }
    const std::int64_t slope = other.slope * times;
    return slope > steepest || slope < -steepest
               ? Component()
               : line(LLVMBuildMul(rows, other.base, factor.value, ""), slope);
}

Component Emitter::shifted(LLVMOpcode op, const Component& a, const Component& b) const
{
    if (op == LLVMShl && b.constant && *b.constant < 16) {
        return whole(LLVMMul, a, constant(1U << *b.constant, i32));
    }
    return binary(op, a, b.constant && *b.constant < 32 ? b : both(b, constant(31, i32)));
}

Component Emitter::divided(LLVMOpcode op, const Component& a, const Component& b) const
{
    if (b.constant && *b.constant != 0 && *b.constant != 0xFFFFFFFF) {
        return binary(op, a, b);
    }
    const bool isSigned = op == LLVMSDiv || op == LLVMSRem;
    const bool isQuotient = op == LLVMSDiv || op == LLVMUDiv;
    const Component zero = constant(0, i32);
    const Component all = constant(0xFFFFFFFF, i32);
    const Component isZero = compare({false, LLVMIntEQ, 0}, b, zero);
    const Component isMinus = compare({false, LLVMIntEQ, 0}, b, all);
    const Component isBad = isSigned ? binary(LLVMOr, isZero, isMinus) : isZero;
    Component result = binary(op, a, select(isBad, constant(1, i32), b));
    if (isSigned) {
        result = select(isMinus, isQuotient ? binary(LLVMSub, zero, a) : zero, result);
    }
    return select(isZero, op == LLVMSDiv ? zero : all, result);
}

Component Emitter::unary(const Component& a, Build build) const
{
    Component c;
    c.varies = a.varies;
    c.value = build(builderFor(a.varies), a.value, "");
    inherit(c, {&a});
    return c;
}

Component Emitter::cast(LLVMOpcode op, const Component& a, LLVMTypeRef to) const
{
    Component c;
    c.varies = a.varies;
    c.value = LLVMBuildCast(builderFor(a.varies), op, a.value, a.varies ? vectorOf(to) : to, "");
    inherit(c, {&a});
    return c;
}

Component Emitter::bits(const Component& a, LLVMTypeRef to) const
{
    Component c = cast(LLVMBitCast, a, to);
    c.constant = a.constant;
    c.sample = a.sample;
    return c;
}

Component Emitter::call(const char* name, const Component& a) const
{
    LLVMTypeRef type = LLVMTypeOf(a.value);
    const unsigned id = LLVMLookupIntrinsicID(name, std::strlen(name));
    LLVMValueRef intrinsic = LLVMGetIntrinsicDeclaration(module, id, &type, 1);
    LLVMTypeRef functionType = LLVMIntrinsicGetType(context, id, &type, 1);
    LLVMValueRef argument = a.value;
    Component c;
    c.varies = a.varies;
    c.value = LLVMBuildCall2(builderFor(a.varies), functionType, intrinsic, &argument, 1, "");
    inherit(c, {&a});
    return c;
}

Component Emitter::compare(const Comparison& how, const Component& a, const Component& b) const
{
    Component c;
    c.varies = a.varies || b.varies;
    LLVMBuilderRef builder = builderFor(c.varies);
    LLVMValueRef x = as(a, c.varies);
    LLVMValueRef y = as(b, c.varies);
    c.value = how.floats ? LLVMBuildFCmp(builder, static_cast<LLVMRealPredicate>(how.predicate), x, y, "")
                         : LLVMBuildICmp(builder, static_cast<LLVMIntPredicate>(how.predicate), x, y, "");
    inherit(c, {&a, &b});
    return c;
}

Component Emitter::select(const Component& condition, const Component& a, const Component& b) const
{
    if (condition.constant) {
        return *condition.constant != 0 ? a : b;
    }
    Component c;
    c.varies = condition.varies || a.varies || b.varies;
    c.value = LLVMBuildSelect(builderFor(c.varies), condition.value, as(a, c.varies), as(b, c.varies), "");
    inherit(c, {&condition, &a, &b});
    if (condition.isOfUniforms && c.isUnknown != nullptr) { // of the one alone that is taken
        const auto truth = [&](LLVMValueRef is) { return is != nullptr ? is : LLVMConstInt(i1, 0, 0); };
        LLVMValueRef taken =
            LLVMBuildSelect(rows, condition.value, truth(a.isUnknown), truth(b.isUnknown), "");
        c.isUnknown = a.isUnknown == b.isUnknown ? c.isUnknown : either(condition.isUnknown, taken);
    }
    return c;
}

// ---- comparisons

std::optional<Comparison> Comparison::of(spv::Op op)
{
    switch (op) {
    case spv::OpLogicalEqual:
    case spv::OpIEqual:
        return Comparison{false, LLVMIntEQ, 0};
    case spv::OpLogicalNotEqual:
    case spv::OpINotEqual:
        return Comparison{false, LLVMIntNE, 0};
    case spv::OpUGreaterThan:
        return Comparison{false, LLVMIntUGT, 0};
    case spv::OpUGreaterThanEqual:
        return Comparison{false, LLVMIntUGE, 0};
    case spv::OpULessThan:
        return Comparison{false, LLVMIntULT, 0};
    case spv::OpULessThanEqual:
        return Comparison{false, LLVMIntULE, 0};
    case spv::OpSGreaterThan:
        return Comparison{false, LLVMIntSGT, 1};
    case spv::OpSGreaterThanEqual:
        return Comparison{false, LLVMIntSGE, 1};
    case spv::OpSLessThan:
        return Comparison{false, LLVMIntSLT, -1};
    case spv::OpSLessThanEqual:
        return Comparison{false, LLVMIntSLE, -1};
    case spv::OpFOrdEqual:
        return Comparison{true, LLVMRealOEQ, 0};
    case spv::OpFUnordEqual:
        return Comparison{true, LLVMRealUEQ, 0};
    case spv::OpFUnordNotEqual:
        return Comparison{true, LLVMRealUNE, 0};
    case spv::OpFOrdNotEqual:
        return Comparison{true, LLVMRealONE, 0};
    case spv::OpFOrdGreaterThan:
        return Comparison{true, LLVMRealOGT, 1};
    case spv::OpFUnordGreaterThan:
        return Comparison{true, LLVMRealUGT, 1};
    case spv::OpFOrdGreaterThanEqual:
        return Comparison{true, LLVMRealOGE, 1};
    case spv::OpFUnordGreaterThanEqual:
        return Comparison{true, LLVMRealUGE, 1};
    case spv::OpFOrdLessThan:
        return Comparison{true, LLVMRealOLT, -1};
    case spv::OpFUnordLessThan:
        return Comparison{true, LLVMRealULT, -1};
    case spv::OpFOrdLessThanEqual:
        return Comparison{true, LLVMRealOLE, -1};
    case spv::OpFUnordLessThanEqual:
        return Comparison{true, LLVMRealULE, -1};
    default:
        return std::nullopt;
    }
}

} // namespace Qx::Host::Native
