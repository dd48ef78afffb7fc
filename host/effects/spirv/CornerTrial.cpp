#include "host/effects/spirv/CornerTrial.h"

#include "host/effects/spirv/NumberOperations.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <unordered_map>
#include <utility>
#include <vector>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Effects::Spirv {
namespace {

/// What ends a run without a result.
struct UnknownResult
{
};
struct NoEnd
{
};

/// A number of 32 bits.
struct Cell
{
    std::uint32_t bits = 0;
    bool written = true;
    bool ofParameters = false; ///< it depends on the uniform buffer
};

/// The numbers of a value, those of a matrix column after column.
using Cells = std::vector<Cell>;

float numberIn(const Cell& cell)
{
    return std::bit_cast<float>(cell.bits);
}

/// The ways that branches go which depend on the uniform buffer: the first ones as given, further ones, which
/// are added, as the numbers say.
using Ways = std::vector<bool>;

/// A probe, read once and run for several corners.
class Probe
{
public:
    Probe(const Words& spirv, std::span<const std::byte> uniforms) : uniforms_(uniforms)
    {
        constexpr std::uint32_t mostIds = 1U << 20U;
        if (spirv.size() < headerWords || spirv[boundWord] > mostIds) {
            throw UnknownResult();
        }
        types_.resize(spirv[boundWord]);
        values_.resize(spirv[boundWord]);
        pointers_.resize(spirv[boundWord]);
        typeOf_.resize(spirv[boundWord]);
        const bool isWhole = forEach(spirv, [this](const Instruction& i) { declare(i); });
        if (!isWhole || functions_ != 1) {
            throw UnknownResult();
        }
    }

    /// The position. Without `ways` each branch goes as the numbers say. `steps` are those that are left.
    Cells run(const std::array<float, 4>& corner, Ways* ways, std::size_t& steps)
    {
        memory_ = initial_;
        ways_ = ways;
        way_ = 0;
        for (const auto& [variable, storage] : storage_) {
            if (storage != spv::StorageClassInput) {
                continue;
            }
            Cells& cells = memory_.at(variable);
            for (std::size_t c = 0; c < cells.size(); ++c) {
                cells[c] = {bitsOf(corner.at(std::min<std::size_t>(c, corner.size() - 1)))};
            }
        }
        done_ = false;
        for (at_ = 0; !done_ && at_ < body_.size();) {
            if (steps-- == 0) {
                throw NoEnd();
            }
            step(body_[at_++]);
        }
        for (const auto& [variable, storage] : storage_) {
            const auto location = locations_.find(variable);
            if (storage == spv::StorageClassOutput && location != locations_.end() && location->second == 0) {
                if (memory_.at(variable).size() != 4) {
                    throw UnknownResult();
                }
                return memory_.at(variable);
            }
        }
        return Cells(4, Cell{0, false, false}); // nothing writes it: newer optimizers leave it out
    }

    bool readsParameters() const { return readsParameters_; }

private:
    struct Type
    {
        spv::Op op = spv::OpNop;
        Id element = 0;
        std::size_t count = 0;      ///< of elements
        std::size_t components = 0; ///< numbers of 32 bits
        std::vector<Id> members;
        std::size_t arrayStride = 0;
    };

    struct Member
    {
        std::size_t offset = 0;
        std::size_t matrixStride = 16;
        bool rowMajor = false;
    };

    struct Pointer
    {
        Id variable = 0;
        Id type = 0;           ///< of what it points to
        std::size_t place = 0; ///< in cells, or in bytes of the uniform buffer
        std::size_t step = 4;  ///< bytes from a component to the next
        Member matrix;
        bool inUniforms = false;
        bool ofParameters = false;
        bool written = true; ///< its indices have a value
    };

    void declare(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpDecorate:
            if (i[2] == spv::DecorationLocation) {
                locations_[i[1]] = i[3];
            } else if (i[2] == spv::DecorationArrayStride) {
                types_.at(i[1]).arrayStride = i[3];
            }
            return;
        case spv::OpMemberDecorate: {
            Member& member = members_[std::uint64_t{i[1]} << 32U | i[2]];
            if (i[3] == spv::DecorationOffset) {
                member.offset = i[4];
            } else if (i[3] == spv::DecorationMatrixStride) {
                member.matrixStride = i[4];
            } else if (i[3] == spv::DecorationRowMajor) {
                member.rowMajor = true;
            }
            return;
        }
        case spv::OpVariable:
            addVariable(i);
            return;
        case spv::OpFunction:
            ++functions_;
            return;
        case spv::OpLabel:
            labels_[i[1]] = body_.size();
            break;
        default:
            if (isType(i.op())) {
                addType(i);
                return;
            }
            if (functions_ == 0) {
                if (isSpecialization(i.op())) {
                    throw UnknownResult(); // an input that nothing gives
                }
                if (isConstant(i.op())) {
                    compute(i);
                }
                return;
            }
        }
        body_.push_back(i);
    }

    static bool isConstant(spv::Op op)
    {
        return op == spv::OpUndef || (op >= spv::OpConstantTrue && op <= spv::OpConstantNull);
    }

    static bool isSpecialization(spv::Op op)
    {
        return op >= spv::OpSpecConstantTrue && op <= spv::OpSpecConstantOp;
    }

    void addType(const Instruction& i)
    {
        constexpr std::size_t most = 1U << 16U; // numbers
        Type& type = types_.at(i[1]);
        type.op = i.op();
        switch (i.op()) {
        case spv::OpTypeFloat:
        case spv::OpTypeInt:
            if (i[2] != 32) {
                throw UnknownResult();
            }
            type.components = 1;
            break;
        case spv::OpTypeBool:
            type.components = 1;
            break;
        case spv::OpTypeVector:
        case spv::OpTypeMatrix:
            type.element = i[2];
            type.count = i[3];
            break;
        case spv::OpTypeArray:
            type.element = i[2];
            type.count = values_.at(i[3]).at(0).bits;
            break;
        case spv::OpTypePointer:
            type.element = i[3];
            return;
        case spv::OpTypeStruct:
            for (std::size_t at = 2; at < i.size(); ++at) {
                type.members.push_back(i[at]);
                type.components += types_.at(i[at]).components;
            }
            break;
        default:
            return;
        }
        if (type.element != 0) {
            const std::size_t each = types_.at(type.element).components;
            type.components = type.count > most || each > most ? most + 1 : type.count * each;
        }
        if (type.components > most) {
            throw UnknownResult();
        }
    }

    void addVariable(const Instruction& i)
    {
        const Id type = types_.at(i[1]).element;
        storage_[i[2]] = i[3];
        Pointer& pointer = pointers_.at(i[2]);
        pointer.variable = i[2];
        pointer.type = type;
        pointer.inUniforms = i[3] == spv::StorageClassUniform;
        if (i[3] == spv::StorageClassUniform || i[3] == spv::StorageClassUniformConstant) {
            return;
        }
        Cells& cells = initial_[i[2]];
        cells.assign(types_.at(type).components, Cell{0, false, false});
        if (i.size() > 4) {
            cells = values_.at(i[4]);
        }
    }

    void step(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpLabel:
            before_ = block_;
            block_ = i[1];
            return;
        case spv::OpNop:
        case spv::OpLine:
        case spv::OpNoLine:
        case spv::OpSelectionMerge:
        case spv::OpLoopMerge:
            return;
        case spv::OpBranch:
            at_ = labels_.at(i[1]);
            return;
        case spv::OpBranchConditional:
            at_ = labels_.at(i[way(values_.at(i[1]).at(0)) ? 2 : 3]);
            return;
        case spv::OpSwitch: {
            Id to = i[2];
            for (std::size_t at = 3; at + 1 < i.size(); at += 2) {
                to = i[at] == values_.at(i[1]).at(0).bits ? i[at + 1] : to;
            }
            at_ = labels_.at(to);
            return;
        }
        case spv::OpReturn:
        case spv::OpFunctionEnd:
            done_ = true;
            return;
        case spv::OpStore:
            store(pointers_.at(i[1]), values_.at(i[2]));
            return;
        case spv::OpPhi:
            phi(i);
            return;
        default:
            compute(i);
        }
    }

    bool way(const Cell& condition)
    {
        constexpr std::size_t mostWays = 16;
        bool yes = condition.bits != 0;
        if (condition.ofParameters && ways_ != nullptr) {
            if (way_ < ways_->size()) {
                yes = (*ways_)[way_];
            } else if (ways_->size() < mostWays) {
                ways_->push_back(yes);
            }
            ++way_;
        }
        return yes;
    }

    /// The phis of a block are evaluated together.
    void phi(const Instruction& first)
    {
        std::vector<std::pair<Id, Cells>> taken;
        for (Instruction i = first;; i = body_.at(at_++)) {
            for (std::size_t at = 3; at + 1 < i.size(); at += 2) {
                if (i[at + 1] == before_) {
                    taken.emplace_back(i[2], values_.at(i[at]));
                    typeOf_.at(i[2]) = i[1];
                }
            }
            if (body_.at(at_).op() != spv::OpPhi) {
                break;
            }
        }
        for (auto& [id, value] : taken) {
            values_.at(id) = std::move(value);
        }
    }

    void compute(const Instruction& i)
    {
        if (i.op() == spv::OpAccessChain || i.op() == spv::OpInBoundsAccessChain) {
            pointers_.at(i[2]) = follow(i);
            return;
        }
        if (types_.at(i[1]).components == 0) {
            throw UnknownResult(); // of an image, or what it reads
        }
        Cells value = valueOf(i);
        if (value.size() != types_.at(i[1]).components) {
            throw UnknownResult();
        }
        values_.at(i[2]) = std::move(value);
        typeOf_.at(i[2]) = i[1];
    }

    Cells valueOf(const Instruction& i)
    {
        const std::size_t count = types_.at(i[1]).components;
        switch (i.op()) {
        case spv::OpConstantTrue:
            return {Cell{1}};
        case spv::OpConstantFalse:
            return {Cell{0}};
        case spv::OpConstant:
            return {Cell{i[3]}};
        case spv::OpConstantNull:
            return Cells(count);
        case spv::OpUndef:
            return Cells(count, Cell{0, false, false});
        case spv::OpLoad:
            return load(pointers_.at(i[3]));
        case spv::OpConstantComposite:
        case spv::OpCompositeConstruct: {
            Cells value;
            for (std::size_t at = 3; at < i.size(); ++at) {
                const Cells& part = values_.at(i[at]);
                value.insert(value.end(), part.begin(), part.end());
            }
            return value;
        }
        case spv::OpCompositeExtract: {
            return part(values_.at(i[3]), placeOf(typeOf_.at(i[3]), i, 4), count);
        }
        case spv::OpCompositeInsert: {
            Cells whole = values_.at(i[4]);
            const Cells& part = values_.at(i[3]);
            const std::size_t first = placeOf(i[1], i, 5);
            if (first + part.size() > whole.size()) {
                throw UnknownResult();
            }
            std::copy(part.begin(), part.end(), whole.begin() + static_cast<std::ptrdiff_t>(first));
            return whole;
        }
        case spv::OpVectorShuffle:
            return shuffled(i);
        case spv::OpVectorExtractDynamic: {
            const Cell& index = values_.at(i[4]).at(0);
            return {joined(values_.at(i[3]).at(index.bits), index)};
        }
        case spv::OpVectorInsertDynamic: {
            Cells whole = values_.at(i[3]);
            const Cell& index = values_.at(i[5]).at(0);
            whole.at(index.bits) = joined(values_.at(i[4]).at(0), index);
            return whole;
        }
        case spv::OpAny:
        case spv::OpAll:
            return {anyOrAll(values_.at(i[3]), i.op() == spv::OpAll)};
        case spv::OpDot:
            return {dot(values_.at(i[3]), values_.at(i[4]))};
        case spv::OpMatrixTimesVector:
            return columnsTimes(values_.at(i[3]), values_.at(i[4]));
        case spv::OpVectorTimesMatrix:
            return timesColumns(values_.at(i[3]), values_.at(i[4]));
        case spv::OpMatrixTimesMatrix: {
            const Cells& left = values_.at(i[3]);
            const Cells& right = values_.at(i[4]);
            const std::size_t inner = left.size() / rowsOf(i[1]);
            Cells value;
            for (std::size_t column = 0; inner != 0 && column < right.size() / inner; ++column) {
                const Cells some = columnsTimes(left, part(right, column * inner, inner));
                value.insert(value.end(), some.begin(), some.end());
            }
            return value;
        }
        case spv::OpTranspose: {
            const Cells& given = values_.at(i[3]);
            const std::size_t rows = rowsOf(i[1]);
            Cells value(count);
            for (std::size_t at = 0; at < count; ++at) {
                value[at] = given.at(at % rows * (count / rows) + at / rows);
            }
            return value;
        }
        case spv::OpExtInst:
            return extended(i, count);
        default:
            return each(i, 3, count, [&](const Operands& of) { return resultOf(i.op(), of); });
        }
    }

    std::size_t rowsOf(Id matrix) const
    {
        return std::max<std::size_t>(types_.at(types_.at(matrix).element).components, 1);
    }

    static Cells part(const Cells& whole, std::size_t first, std::size_t count)
    {
        if (first > whole.size() || count > whole.size() - first) {
            throw UnknownResult();
        }
        const auto begin = whole.begin() + static_cast<std::ptrdiff_t>(first);
        return {begin, begin + static_cast<std::ptrdiff_t>(count)};
    }

    /// A number that depends on another, too.
    static Cell joined(Cell cell, const Cell& other)
    {
        cell.written = cell.written && other.written;
        cell.ofParameters = cell.ofParameters || other.ofParameters;
        return cell;
    }

    /// Where the part of a composite begins that the literals from word `at` on select.
    std::size_t placeOf(Id typeName, const Instruction& i, std::size_t at) const
    {
        std::size_t place = 0;
        for (; at < i.size(); ++at) {
            const Type& type = types_.at(typeName);
            if (type.members.empty()) {
                place += i[at] * types_.at(type.element).components;
                typeName = type.element;
                continue;
            }
            for (std::size_t before = 0; before < i[at]; ++before) {
                place += types_.at(type.members.at(before)).components;
            }
            typeName = type.members.at(i[at]);
        }
        return place;
    }

    Cells shuffled(const Instruction& i) const
    {
        constexpr std::uint32_t undefined = 0xFFFFFFFF;
        Cells both = values_.at(i[3]);
        const Cells& second = values_.at(i[4]);
        both.insert(both.end(), second.begin(), second.end());
        Cells value;
        for (std::size_t at = 5; at < i.size(); ++at) {
            value.push_back(i[at] == undefined ? Cell{0, false, false} : both.at(i[at]));
        }
        return value;
    }

    static Cell anyOrAll(const Cells& cells, bool all)
    {
        Cell result{bitsOf(all)};
        for (const Cell& cell : cells) {
            result = joined(result, cell);
            result.bits =
                bitsOf(all ? result.bits != 0 && cell.bits != 0 : result.bits != 0 || cell.bits != 0);
        }
        return result;
    }

    static Cell dot(const Cells& left, const Cells& right)
    {
        Cell sum;
        for (std::size_t c = 0; c < left.size(); ++c) {
            const Cell& factor = right.at(c);
            sum = joined(joined(sum, left[c]), factor);
            sum.bits = bitsOf(numberIn(sum) + numberIn(left[c]) * numberIn(factor));
        }
        return sum;
    }

    static Cells columnsTimes(const Cells& matrix, const Cells& vector)
    {
        const std::size_t rows = matrix.size() / std::max<std::size_t>(vector.size(), 1);
        Cells result;
        for (std::size_t row = 0; row < rows; ++row) {
            Cells line;
            for (std::size_t column = 0; column < vector.size(); ++column) {
                line.push_back(matrix.at(column * rows + row));
            }
            result.push_back(dot(line, vector));
        }
        return result;
    }

    static Cells timesColumns(const Cells& vector, const Cells& matrix)
    {
        Cells result;
        for (std::size_t at = 0; !vector.empty() && at < matrix.size(); at += vector.size()) {
            result.push_back(dot(vector, part(matrix, at, vector.size())));
        }
        return result;
    }

    /// Component by component, of the operands from word `first` on; a single number counts for all.
    template <class Operation>
    Cells each(const Instruction& i, std::size_t first, std::size_t count, Operation&& operation)
    {
        std::array<const Cells*, 3> operands{};
        const std::size_t given = i.size() - std::min(i.size(), first);
        if (given == 0 || given > operands.size()) {
            throw UnknownResult();
        }
        for (std::size_t k = 0; k < given; ++k) {
            operands.at(k) = &values_.at(i[first + k]);
            if (operands.at(k)->empty()) {
                throw UnknownResult();
            }
        }
        const bool selects = i.op() == spv::OpSelect;
        Cells value(count);
        for (std::size_t c = 0; c < count; ++c) {
            const auto of = [&](std::size_t k) -> const Cell& {
                const Cells& operand = *operands.at(k < given ? k : 0);
                return operand[std::min(c, operand.size() - 1)];
            };
            if (selects) { // what is not chosen does not count
                value[c] = joined(of(way(of(0)) ? 1 : 2), of(0));
                continue;
            }
            for (std::size_t k = 0; k < given; ++k) {
                value[c] = joined(value[c], of(k));
            }
            const std::optional<std::uint32_t> bits = operation({of(0).bits, of(1).bits, of(2).bits});
            if (!bits) {
                throw UnknownResult();
            }
            value[c].bits = *bits;
        }
        return value;
    }

    Cells extended(const Instruction& i, std::size_t count)
    {
        const auto lengthOf = [](const Cells& cells) {
            Cell length = dot(cells, cells);
            length.bits = bitsOf(std::sqrt(numberIn(length)));
            return length;
        };
        switch (i[4]) {
        case GLSLstd450Length:
            return {lengthOf(values_.at(i[5]))};
        case GLSLstd450Distance: {
            Cells difference = values_.at(i[5]);
            const Cells& other = values_.at(i[6]);
            for (std::size_t c = 0; c < difference.size(); ++c) {
                difference[c].bits = bitsOf(numberIn(difference[c]) - numberIn(other.at(c)));
                difference[c] = joined(difference[c], other[c]);
            }
            return {lengthOf(difference)};
        }
        case GLSLstd450Normalize: {
            Cells cells = values_.at(i[5]);
            const Cell length = lengthOf(cells);
            for (Cell& cell : cells) {
                cell = joined(cell, length);
                cell.bits = bitsOf(numberIn(cell) / numberIn(length));
            }
            return cells;
        }
        case GLSLstd450Cross: {
            const Cells& a = values_.at(i[5]);
            const Cells& b = values_.at(i[6]);
            Cells cells(count);
            for (std::size_t c = 0; c < count; ++c) {
                const std::size_t d = (c + 1) % 3;
                const std::size_t e = (c + 2) % 3;
                cells[c] = joined(joined(a.at(d), a.at(e)), joined(b.at(d), b.at(e)));
                cells[c].bits = bitsOf(numberIn(a[d]) * numberIn(b[e]) - numberIn(a[e]) * numberIn(b[d]));
            }
            return cells;
        }
        default:
            return each(i, 5, count, [&](const Operands& of) { return extendedResultOf(i[4], of); });
        }
    }

    Pointer follow(const Instruction& i) const
    {
        Pointer pointer = pointers_.at(i[3]);
        for (std::size_t at = 4; at < i.size(); ++at) {
            const Cell& cell = values_.at(i[at]).at(0);
            const std::size_t index = cell.bits;
            const Type& type = types_.at(pointer.type);
            pointer.ofParameters = pointer.ofParameters || cell.ofParameters;
            pointer.written = pointer.written && cell.written;
            if (type.op == spv::OpTypeStruct) {
                const auto member = members_.find(std::uint64_t{pointer.type} << 32U | index);
                if (pointer.inUniforms && member != members_.end()) {
                    pointer.matrix = member->second;
                    pointer.place += member->second.offset;
                }
                for (std::size_t before = 0; !pointer.inUniforms && before < index; ++before) {
                    pointer.place += types_.at(type.members.at(before)).components;
                }
                pointer.type = type.members.at(index);
                continue;
            }
            if (index >= type.count) {
                throw UnknownResult();
            }
            pointer.place +=
                index * (pointer.inUniforms ? stepOf(type, pointer) : types_.at(type.element).components);
            if (type.op == spv::OpTypeMatrix && pointer.matrix.rowMajor) {
                pointer.step = pointer.matrix.matrixStride;
            }
            pointer.type = type.element;
        }
        return pointer;
    }

    /// Bytes from one element to the next.
    static std::size_t stepOf(const Type& type, const Pointer& pointer)
    {
        if (type.op == spv::OpTypeArray) {
            return type.arrayStride;
        }
        if (type.op == spv::OpTypeMatrix) {
            return pointer.matrix.rowMajor ? 4 : pointer.matrix.matrixStride;
        }
        return pointer.step;
    }

    void store(const Pointer& to, const Cells& value)
    {
        const auto found = memory_.find(to.variable);
        if (found == memory_.end() || to.place + value.size() > found->second.size()) {
            throw UnknownResult();
        }
        for (std::size_t c = 0; c < value.size(); ++c) {
            Cell cell = value[c];
            cell.ofParameters = cell.ofParameters || to.ofParameters;
            cell.written = cell.written && to.written;
            found->second[to.place + c] = cell;
        }
    }

    Cells load(const Pointer& from)
    {
        if (from.inUniforms) {
            Cells cells;
            read(from, cells);
            readsParameters_ = true;
            return cells;
        }
        const auto found = memory_.find(from.variable);
        if (found == memory_.end()) {
            throw UnknownResult();
        }
        Cells cells = part(found->second, from.place, types_.at(from.type).components);
        for (Cell& cell : cells) {
            cell.ofParameters = cell.ofParameters || from.ofParameters;
            cell.written = cell.written && from.written;
        }
        return cells;
    }

    void read(const Pointer& from, Cells& cells) const
    {
        const Type& type = types_.at(from.type);
        if (type.op == spv::OpTypeStruct) {
            for (std::size_t m = 0; m < type.members.size(); ++m) {
                Pointer member = from;
                member.type = type.members[m];
                if (const auto found = members_.find(std::uint64_t{from.type} << 32U | m);
                    found != members_.end()) {
                    member.matrix = found->second;
                    member.place += found->second.offset;
                }
                read(member, cells);
            }
            return;
        }
        for (std::size_t e = 0; e < type.count; ++e) {
            Pointer element = from;
            element.type = type.element;
            element.place += e * stepOf(type, from);
            if (type.op == spv::OpTypeMatrix && from.matrix.rowMajor) {
                element.step = from.matrix.matrixStride;
            }
            read(element, cells);
        }
        if (type.count != 0) {
            return;
        }
        if (from.place + sizeof(std::uint32_t) > uniforms_.size()) {
            throw UnknownResult();
        }
        Cell cell{0, from.written, true};
        std::memcpy(&cell.bits, uniforms_.data() + from.place, sizeof cell.bits);
        cells.push_back(cell);
    }

    const std::span<const std::byte> uniforms_;
    std::vector<Type> types_;
    std::vector<Cells> values_;
    std::vector<Pointer> pointers_;
    std::unordered_map<std::uint64_t, Member> members_; ///< by the struct and the number
    std::vector<Id> typeOf_;
    std::unordered_map<Id, std::uint32_t> storage_;
    std::unordered_map<Id, std::uint32_t> locations_;
    std::unordered_map<Id, std::size_t> labels_;
    std::unordered_map<Id, Cells> initial_; ///< what variables hold first
    std::unordered_map<Id, Cells> memory_;
    std::vector<Instruction> body_;
    std::size_t functions_ = 0;
    bool readsParameters_ = false;
    std::size_t at_ = 0;
    bool done_ = false;
    Id block_ = 0;
    Id before_ = 0;
    Ways* ways_ = nullptr;
    std::size_t way_ = 0;
};

constexpr std::array<std::array<float, 4>, 4> rectangle{{{-1.0F, 1.0F, 0.0F, 0.0F},
                                                         {1.0F, 1.0F, 1.0F, 0.0F},
                                                         {-1.0F, -1.0F, 0.0F, 1.0F},
                                                         {1.0F, -1.0F, 1.0F, 1.0F}}};

unsigned unwrittenIn(const Cells& place)
{
    unsigned components = 0;
    for (std::size_t c = 0; c < place.size(); ++c) {
        components |= place[c].written ? 0U : 1U << c;
    }
    return components;
}

/// Goes every way that the uniform buffer may choose, as far as a run's steps suffice for all of them.
void findUnwritten(Probe& probe, CornerTrial& trial, std::size_t steps)
{
    for (const std::array<float, 4>& corner : rectangle) {
        unsigned always = 0xFU;
        std::vector<Ways> open{{}};
        while (!open.empty()) {
            const Ways ways = std::move(open.back());
            open.pop_back();
            Ways gone = ways;
            try {
                const unsigned unwritten = unwrittenIn(probe.run(corner, &gone, steps));
                always &= unwritten;
                trial.unwrittenInBranches |= unwritten;
            } catch (const NoEnd&) {
                return;
            }
            for (std::size_t i = ways.size(); i < gone.size(); ++i) {
                open.emplace_back(gone.begin(), gone.begin() + static_cast<std::ptrdiff_t>(i));
                open.back().push_back(!gone[i]);
            }
        }
        trial.unwritten |= always;
    }
}

bool isFinite(const std::array<float, 4>& place)
{
    return std::isfinite(place[0]) && std::isfinite(place[1]) && std::isfinite(place[3]);
}

/// Twice the area of a triangle, times the product of its w.
double areaOf(const std::array<float, 4>& a, const std::array<float, 4>& b, const std::array<float, 4>& c)
{
    const auto minor = [&](std::size_t one, std::size_t other) {
        return static_cast<double>(b.at(one)) * c.at(other) - static_cast<double>(b.at(other)) * c.at(one);
    };
    return a[0] * minor(1, 3) - a[1] * minor(0, 3) + a[3] * minor(0, 1);
}

} // namespace

CornerTrial tryCorners(const Words& spirv, std::span<const std::byte> uniforms, std::size_t most)
{
    CornerTrial trial;
    try {
        Probe probe(spirv, uniforms);
        try {
            for (std::size_t i = 0; i < rectangle.size(); ++i) {
                std::size_t steps = most;
                const Cells place = probe.run(rectangle.at(i), nullptr, steps);
                std::transform(place.begin(), place.end(), trial.places.at(i).begin(), numberIn);
            }
            trial.end = CornerTrial::End::Known;
            findUnwritten(probe, trial, most);
        } catch (const NoEnd&) {
            trial.end = CornerTrial::End::Endless;
        }
        trial.readsParameters = probe.readsParameters();
    } catch (const UnknownResult&) {
        trial = {};
    } catch (const std::out_of_range&) {
        trial = {};
    }
    return trial;
}

const char* complaintOf(const CornerTrial& trial, std::size_t count, bool inPixels)
{
    if (trial.end == CornerTrial::End::Endless) {
        return "does not end: a loop of it goes on for ever";
    }
    const auto first = trial.places.begin();
    const auto last = first + static_cast<std::ptrdiff_t>(count);
    if (trial.end != CornerTrial::End::Known) {
        return "";
    }
    if (!std::all_of(first, last, isFinite)) {
        return "gives a position that is no finite number, as a division by zero does: nothing is drawn";
    }
    const auto& [a, b, c, d] = trial.places;
    // Less than a pixel of the largest target, or less than rounding leaves.
    constexpr double smallest = 1e-10;
    const double largest = std::max({std::abs(a[3]), std::abs(b[3]), std::abs(c[3])});
    const auto isFlat = [&](double area) {
        return std::abs(area) <= (inPixels ? 0.0 : smallest * largest * largest * largest);
    };
    if (isFlat(areaOf(a, b, c)) && (count < rectangle.size() || isFlat(areaOf(d, c, b)))) {
        return "places all corners at one point, or in one line: nothing is drawn";
    }
    if (std::all_of(first, last, [](const auto& place) { return place[3] <= 0.0F; })) {
        return "places all corners behind the viewer, at a w that is not above 0: nothing is drawn";
    }
    const auto beyond = [&](std::size_t axis, float sign) {
        return std::all_of(first, last, [&](const auto& place) { return place.at(axis) * sign >= place[3]; });
    };
    const bool inFront = std::all_of(first, last, [](const auto& place) { return place[3] > 0.0F; });
    if (!inPixels && inFront && count == rectangle.size() &&
        (beyond(0, 1.0F) || beyond(0, -1.0F) || beyond(1, 1.0F) || beyond(1, -1.0F))) {
        return "places all corners beyond one edge of the target: nothing is drawn";
    }
    return "";
}

} // namespace Qx::Host::Effects::Spirv
