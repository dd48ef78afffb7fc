#include "host/native/Translator.h"

#include "host/native/Emitter.h"
#include "host/native/Flow.h"
#include "host/native/FrameMemory.h"
#include "host/native/Instructions.h"
#include "host/native/Target.h"

#include <array>

namespace Qx::Host::Native {
namespace {

constexpr std::uint32_t borderLanes = 4;

/// A function that is written.
struct Writing
{
    Emitter emit;
    FrameMemory memory{emit};
    Instructions instructions;
    Flow flow;
    Target target{emit, memory};

    Writing(const Source& source, const Options& options, Emitter::Purpose purpose, const char* name,
            unsigned parameters)
        : emit(source, options, purpose, name, parameters),
          instructions(source.shader, emit, memory),
          flow(source.shader, emit, instructions)
    {
    }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

    void at(LLVMBasicBlockRef where) const { LLVMPositionBuilderAtEnd(emit.items, where); }

    void computeItem(std::uint32_t place)
    {
        emit.place = place;
        flow.run();
        target.add(instructions.output());
    }
};

void callBorder(const Emitter& emit, LLVMBuilderRef builder, LLVMValueRef first, LLVMValueRef end)
{
    LLVMValueRef border = LLVMGetNamedFunction(emit.module, "border");
    std::array<LLVMTypeRef, 4> types{emit.bytes, emit.i32, emit.i32, emit.i32};
    LLVMTypeRef type = LLVMFunctionType(LLVMVoidTypeInContext(emit.context), types.data(), 4, 0);
    std::array<LLVMValueRef, 4> arguments{emit.parameter(0), emit.row, first, end};
    LLVMBuildCall2(builder, type, border, arguments.data(), 4, "");
}

/// The loop over the items in the middle of a row. What it does not compute is left to "border".
struct MiddleLoop
{
    Emitter& emit;
    LLVMValueRef endSlot; ///< holds the item after the last: it is written before it is known
    LLVMBasicBlockRef head;
    LLVMBasicBlockRef body;
    LLVMBasicBlockRef end;
    LLVMValueRef next = nullptr;

    LLVMValueRef endItem() const { return LLVMBuildLoad2(emit.items, emit.i32, endSlot, ""); }

    /// Begins with the first item that is computed with the others.
    void begin()
    {
        LLVMPositionBuilderAtEnd(emit.items, head);
        next = LLVMBuildPhi(emit.items, emit.i32, "");
        LLVMBuildCondBr(emit.items, LLVMBuildICmp(emit.items, LLVMIntULT, next, endItem(), ""), body, end);
        LLVMPositionBuilderAtEnd(emit.items, body);
        LLVMValueRef last = LLVMBuildSub(emit.items, endItem(), emit.number(emit.lanes), "");
        LLVMValueRef isBefore = LLVMBuildICmp(emit.items, LLVMIntULT, next, last, "");
        emit.item = LLVMBuildSelect(emit.items, isBefore, next, last, "");
    }

    void finish() const
    {
        LLVMValueRef aligned = LLVMBuildAnd(emit.items, next, emit.number(~(emit.lanes - 1)), "");
        LLVMValueRef following = LLVMBuildAdd(emit.items, aligned, emit.number(emit.lanes), "");
        Emitter::addIncoming(next, following, LLVMGetInsertBlock(emit.items));
        LLVMBuildBr(emit.items, head);
    }

    /// Ends the row's part before the loop: what is computed as in the middle is from emit.low to emit.high.
    void enter(LLVMBasicBlockRef from) const
    {
        LLVMBuilderRef rows = emit.rows;
        LLVMValueRef low = emit.larger(emit.low, emit.wide(0));
        LLVMValueRef least = LLVMBuildAdd(rows, low, emit.wide(emit.lanes), "");
        LLVMValueRef fits = LLVMBuildICmp(rows, LLVMIntSGE, emit.high, least, "");
        LLVMValueRef zero = emit.number(0);
        const auto ifItFits = [&](LLVMValueRef item) {
            return LLVMBuildSelect(rows, fits, LLVMBuildTrunc(rows, item, emit.i32, ""), zero, "");
        };
        LLVMValueRef first = ifItFits(low);
        LLVMBuildStore(rows, ifItFits(emit.high), endSlot);
        callBorder(emit, rows, zero, LLVMBuildMul(rows, first, emit.number(emit.period), ""));
        LLVMBuildBr(rows, head);
        Emitter::addIncoming(next, first, from);
    }
};

} // namespace

void writeDraws(const Source& source)
{
    Writing writing(source, {borderLanes}, Emitter::Purpose::Question, "draws", 0);
    Emitter& emit = writing.emit;
    LLVMBasicBlockRef block = emit.block();
    writing.at(block);
    LLVMPositionBuilderAtEnd(emit.rows, block);
    emit.row = emit.number(0);
    emit.item = emit.number(0);
    writing.memory.loadFrame(emit.rows);
    writing.flow.run();
    Component all;
    for (const Component& c : writing.instructions.output()) {
        emit.inherit(all, {&c});
    }
    LLVMValueRef always = LLVMConstInt(emit.i1, 1, 0);
    if (all.isUnknown == always) {
        refuse(*all.why);
    }
    LLVMValueRef isUnknown = all.isUnknown != nullptr ? all.isUnknown : LLVMConstInt(emit.i1, 0, 0);
    LLVMValueRef isKnown = LLVMBuildNot(emit.rows, isUnknown, "");
    LLVMBuildRet(emit.rows, LLVMBuildZExt(emit.rows, isKnown, emit.i32, ""));
}

void writeBorder(const Source& source)
{
    Writing writing(source, {borderLanes}, Emitter::Purpose::Anywhere, "border", 3);
    Emitter& emit = writing.emit;
    LLVMBasicBlockRef entry = emit.block();
    LLVMBasicBlockRef head = emit.block();
    LLVMBasicBlockRef body = emit.block();
    LLVMBasicBlockRef done = emit.block();
    LLVMPositionBuilderAtEnd(emit.rows, entry);
    emit.row = emit.parameter(1);
    LLVMValueRef end = emit.parameter(3);
    writing.memory.loadFrame(emit.rows);
    writing.memory.beginRow(emit.rows);

    writing.at(head);
    emit.item = LLVMBuildPhi(emit.items, emit.i32, "");
    Emitter::addIncoming(emit.item, emit.parameter(2), entry);
    LLVMBuildCondBr(emit.items, LLVMBuildICmp(emit.items, LLVMIntULT, emit.item, end, ""), body, done);
    writing.at(body);
    writing.computeItem(0);
    writing.target.storeBefore(end);
    LLVMValueRef next = LLVMBuildAdd(emit.items, emit.item, emit.number(emit.lanes), "");
    Emitter::addIncoming(emit.item, next, LLVMGetInsertBlock(emit.items));
    LLVMBuildBr(emit.items, head);
    LLVMBuildBr(emit.rows, head);
    writing.at(done);
    LLVMBuildRetVoid(emit.items);
}

std::vector<std::uint32_t> writeDraw(const Source& source, const Options& options)
{
    Writing writing(source, options, Emitter::Purpose::Middle, "draw", 2);
    Emitter& emit = writing.emit;
    LLVMBasicBlockRef entry = emit.block();
    LLVMBasicBlockRef rowHead = emit.block();
    LLVMBasicBlockRef rowBody = emit.block();
    MiddleLoop loop{emit, nullptr, emit.block(), emit.block(), emit.block()};
    LLVMBasicBlockRef done = emit.block();
    writing.at(entry);
    loop.endSlot = LLVMBuildAlloca(emit.items, emit.i32, "");
    writing.memory.loadFrame(emit.items);
    LLVMBuildBr(emit.items, rowHead);
    writing.at(rowHead);
    emit.row = LLVMBuildPhi(emit.items, emit.i32, "");
    Emitter::addIncoming(emit.row, emit.parameter(1), entry);
    LLVMValueRef isRow = LLVMBuildICmp(emit.items, LLVMIntULT, emit.row, emit.parameter(2), "");
    LLVMBuildCondBr(emit.items, isRow, rowBody, done);

    LLVMPositionBuilderAtEnd(emit.rows, rowBody);
    writing.memory.beginRow(emit.rows);
    LLVMValueRef width = LLVMBuildZExt(emit.rows, writing.memory.width(), emit.i64, "");
    emit.low = emit.wide(0);
    emit.high = emit.smaller(LLVMBuildUDiv(emit.rows, width, emit.wide(emit.period), ""),
                             emit.wide(static_cast<std::int64_t>(emit.tableSize())));
    loop.begin();
    for (std::uint32_t k = 0; k < emit.period; ++k) {
        writing.computeItem(k);
    }
    writing.target.storeAll();
    loop.finish();
    loop.enter(rowBody);

    writing.at(loop.end);
    LLVMValueRef drawn = LLVMBuildMul(emit.items, loop.endItem(), emit.number(emit.period), "");
    callBorder(emit, emit.items, drawn, writing.memory.width());
    Emitter::addIncoming(emit.row, LLVMBuildAdd(emit.items, emit.row, emit.number(1), ""), loop.end);
    LLVMBuildBr(emit.items, rowHead);
    writing.at(done);
    LLVMBuildRetVoid(emit.items);
    return emit.repetitions();
}

} // namespace Qx::Host::Native
