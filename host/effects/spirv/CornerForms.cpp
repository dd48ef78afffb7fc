#include "host/effects/spirv/CornerForms.h"

#include <algorithm>
#include <bit>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Effects::Spirv {
namespace {

using Kind = Form::Kind;
using Forms = std::vector<Form>; ///< of the components of a value, a matrix column after column

const Form otherForm{Kind::Other, {}, {}};

bool hasValue(const Form& form, float value)
{
    return form.value && *form.value == value;
}

Form constantForm(float value)
{
    return {Kind::Uniform, value, {}};
}

/// Of a number that is one or the other.
Form formOfEither(const Form& a, const Form& b)
{
    return a == b ? a : Form{std::max(a.kind, b.kind), {}, {}};
}

Form formOfNegation(const Form& a)
{
    return a.value ? constantForm(-*a.value) : Form{a.kind, {}, {}};
}

Form formOfSum(const Form& a, const Form& b)
{
    if (hasValue(a, 0.0F)) {
        return b;
    }
    if (hasValue(b, 0.0F)) {
        return a;
    }
    return a.value && b.value ? constantForm(*a.value + *b.value) : Form{std::max(a.kind, b.kind), {}, {}};
}

Form formOfProduct(const Form& a, const Form& b)
{
    if (hasValue(a, 0.0F) || hasValue(b, 0.0F)) {
        return constantForm(0.0F);
    }
    if (hasValue(a, 1.0F)) {
        return b;
    }
    if (hasValue(b, 1.0F)) {
        return a;
    }
    if (a.value && b.value) {
        return constantForm(*a.value * *b.value);
    }
    const bool both = a.kind != Kind::Uniform && b.kind != Kind::Uniform;
    return both ? otherForm : Form{std::max(a.kind, b.kind), {}, {}};
}

Form formOfQuotient(const Form& a, const Form& b)
{
    if (hasValue(b, 1.0F)) {
        return a;
    }
    return b.kind == Kind::Uniform ? Form{a.kind, {}, {}} : otherForm;
}

class Reader
{
public:
    explicit Reader(const Words& spirv) : spirv_(spirv) {}

    std::map<std::uint32_t, std::array<Form, 4>> run()
    {
        constexpr int most = 8; // rounds; values only come nearer to Other, and each round takes one further
        bool whole = true;
        for (int round = 0; round < most && changed_; ++round) {
            changed_ = false;
            inFunction_ = false;
            whole = forEach(spirv_, [this](const Instruction& instruction) { read(instruction); });
        }
        std::map<std::uint32_t, std::array<Form, 4>> result;
        for (const auto& [variable, location] : locations_) {
            if (outputs_.count(variable) == 0) {
                continue;
            }
            std::array<Form, 4> forms;
            forms.fill(otherForm);
            const auto stored = stored_.find(variable);
            if (whole && !changed_ && !branches_ && stored != stored_.end() && stored->second.size() == 4) {
                std::copy(stored->second.begin(), stored->second.end(), forms.begin());
            }
            result[location] = forms;
        }
        return result;
    }

private:
    struct Type
    {
        std::size_t components = 1;
        bool isFloat = false;
        std::vector<Id> members; ///< of a struct
        Id element = 0;          ///< of a vector, a matrix or an array
    };

    /// A pointer to a variable, or to a component of one.
    struct Pointer
    {
        Id variable = 0;
        std::optional<std::uint32_t> component;
        bool fixed = true; ///< it depends on no input
    };

    void read(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpDecorate:
            if (i[2] == spv::DecorationLocation) {
                locations_[i[1]] = i[3];
            }
            break;
        case spv::OpTypeVoid:
        case spv::OpTypeFloat:
        case spv::OpTypeInt:
        case spv::OpTypeBool:
        case spv::OpTypeImage:
        case spv::OpTypeSampler:
        case spv::OpTypeSampledImage:
            types_[i[1]] = {1, i.op() == spv::OpTypeFloat, {}, 0};
            break;
        case spv::OpTypeVector:
        case spv::OpTypeMatrix:
            addType(i, componentsOf(i[2]) * i[3]);
            break;
        case spv::OpTypeArray:
            addType(i, componentsOf(i[2]) * integers_[i[3]]);
            break;
        case spv::OpTypeStruct:
            addStruct(i);
            break;
        case spv::OpVariable:
            pointers_[i[2]] = {i[2], {}, true};
            if (i[3] == spv::StorageClassInput) {
                inputs_.insert(i[2]);
            } else if (i[3] == spv::StorageClassOutput) {
                outputs_.insert(i[2]);
            } else if (i[3] == spv::StorageClassFunction || i[3] == spv::StorageClassPrivate) {
                memory_.insert(i[2]);
            }
            break;
        case spv::OpAccessChain:
        case spv::OpInBoundsAccessChain:
            follow(i);
            break;
        case spv::OpStore:
            store(i);
            break;
        case spv::OpCopyMemory:
            branches_ = true;
            break;
        case spv::OpBranchConditional:
        case spv::OpSwitch:
            branches_ = branches_ || kindOf(i[1]) != Kind::Uniform;
            break;
        default:
            inFunction_ = inFunction_ || i.op() == spv::OpFunction;
            if ((inFunction_ || isConstant(i.op())) && types_.count(i[1]) != 0 && i.size() > 2) {
                typeOf_[i[2]] = i[1];
                change(forms_[i[2]], valueOf(i));
            }
        }
    }

    static bool isConstant(spv::Op op)
    {
        return op == spv::OpUndef || (op >= spv::OpConstantTrue && op <= spv::OpSpecConstantOp);
    }

    void addType(const Instruction& i, std::size_t components)
    {
        constexpr std::size_t most = 4096;
        branches_ = branches_ || components > most;
        types_[i[1]] = {std::min(components, most), typeNamed(i[2]).isFloat, {}, i[2]};
    }

    void addStruct(const Instruction& i)
    {
        std::size_t components = 0;
        for (std::size_t at = 2; at < i.size(); ++at) {
            components += componentsOf(i[at]);
        }
        addType(i, components);
        types_[i[1]].members.assign(i.words.begin() + 2, i.words.end());
    }

    void follow(const Instruction& i)
    {
        const auto base = pointers_.find(i[3]);
        if (base == pointers_.end()) {
            return;
        }
        Pointer pointer = base->second;
        for (std::size_t at = 4; at < i.size(); ++at) {
            pointer.fixed = pointer.fixed && kindOf(i[at]) == Kind::Uniform;
        }
        const auto index = i.size() == 5 ? integers_.find(i[4]) : integers_.end();
        pointer.component = index == integers_.end() ? std::nullopt : std::optional(index->second);
        pointers_[i[2]] = pointer;
    }

    void store(const Instruction& i)
    {
        const auto pointer = pointers_.find(i[1]);
        const auto value = forms_.find(i[2]);
        if (pointer == pointers_.end() || value == forms_.end()) {
            return;
        }
        const Id variable = pointer->second.variable;
        if (outputs_.count(variable) != 0 && i[1] == variable) {
            change(stored_[variable], value->second);
            return;
        }
        Form all = pointer->second.fixed ? Form{} : otherForm;
        for (const Form& form : value->second) {
            all = {std::max(all.kind, form.kind), {}, {}};
        }
        if (outputs_.count(variable) != 0) {
            all = otherForm; // the optimizer stores an output whole
        }
        Forms& held = stored_[variable];
        change(held, Forms(std::max<std::size_t>(held.size(), 1), all));
    }

    Forms loaded(const Instruction& i) const
    {
        const std::size_t count = componentsOf(i[1]);
        const auto pointer = pointers_.find(i[3]);
        if (pointer == pointers_.end() || !pointer->second.fixed) {
            return Forms(count, otherForm);
        }
        const Pointer& from = pointer->second;
        if (inputs_.count(from.variable) != 0) {
            Forms forms(count, otherForm);
            for (std::uint32_t c = 0; c < count && (from.component || i[3] == from.variable); ++c) {
                forms[c] = {Kind::Affine, {}, from.component.value_or(c)};
            }
            return forms;
        }
        if (memory_.count(from.variable) == 0) {
            return Forms(count, Form{}); // a uniform, or a sampler
        }
        const auto held = stored_.find(from.variable);
        return Forms(count, held == stored_.end() || held->second.empty()
                                ? Form{}
                                : Form{held->second.front().kind, {}, {}});
    }

    Forms valueOf(const Instruction& i)
    {
        const std::size_t count = componentsOf(i[1]);
        switch (i.op()) {
        case spv::OpConstant:
            integers_[i[2]] = i[3];
            return typeNamed(i[1]).isFloat ? Forms{constantForm(std::bit_cast<float>(i[3]))}
                                           : Forms(1, Form{});
        case spv::OpConstantNull:
            return Forms(count, typeNamed(i[1]).isFloat ? constantForm(0.0F) : Form{});
        case spv::OpLoad:
            return loaded(i);
        case spv::OpConstantComposite:
        case spv::OpCompositeConstruct:
            return constructed(i);
        case spv::OpCompositeExtract:
            return extracted(i, count);
        case spv::OpCompositeInsert:
            return inserted(i, count);
        case spv::OpVectorShuffle:
            return shuffled(i);
        case spv::OpCopyObject:
            return of(i[3], count);
        case spv::OpFNegate:
            return each(of(i[3], count), formOfNegation);
        case spv::OpFAdd:
            return each(of(i[3], count), of(i[4], count), formOfSum);
        case spv::OpFSub:
            return each(of(i[3], count), each(of(i[4], count), formOfNegation), formOfSum);
        case spv::OpFMul:
            return each(of(i[3], count), of(i[4], count), formOfProduct);
        case spv::OpFDiv:
            return each(of(i[3], count), of(i[4], count), formOfQuotient);
        case spv::OpVectorTimesScalar:
        case spv::OpMatrixTimesScalar:
            return each(of(i[3], count), Forms(count, of(i[4], 1).front()), formOfProduct);
        case spv::OpDot:
            return dot(i);
        case spv::OpMatrixTimesVector:
            return transformed(i[3], i[4], count, true);
        case spv::OpMatrixTimesMatrix:
            return multiplied(i, count);
        case spv::OpTranspose:
            return transposed(i, count);
        case spv::OpVectorTimesMatrix:
            return transformed(i[4], i[3], count, false);
        case spv::OpSelect:
            return kindOf(i[3]) == Kind::Uniform ? each(of(i[4], count), of(i[5], count), formOfEither)
                                                 : Forms(count, otherForm);
        case spv::OpPhi:
            return phi(i, count);
        case spv::OpExtInst:
            if (i[4] == GLSLstd450FMix) {
                return mixed(i, count);
            }
            return Forms(count, isFixed(i) ? Form{} : otherForm);
        default:
            return Forms(count, isFixed(i) ? Form{} : otherForm);
        }
    }

    Forms constructed(const Instruction& i) const
    {
        Forms forms;
        for (std::size_t at = 3; at < i.size(); ++at) {
            const auto part = forms_.find(i[at]);
            if (part == forms_.end()) {
                return Forms(componentsOf(i[1]), otherForm);
            }
            forms.insert(forms.end(), part->second.begin(), part->second.end());
        }
        forms.resize(componentsOf(i[1]), otherForm);
        return forms;
    }

    /// Where the part of a composite begins that the indices from word `at` on select.
    std::size_t placeOf(Id composite, const Instruction& i, std::size_t at) const
    {
        const auto known = typeOf_.find(composite);
        Type type = known == typeOf_.end() ? Type{} : typeNamed(known->second);
        std::size_t place = 0;
        for (; at < i.size(); ++at) {
            if (type.members.empty()) {
                place += i[at] * componentsOf(type.element);
                type = typeNamed(type.element);
                continue;
            }
            const std::size_t member = std::min<std::size_t>(i[at], type.members.size() - 1);
            for (std::size_t before = 0; before < member; ++before) {
                place += componentsOf(type.members[before]);
            }
            type = typeNamed(type.members[member]);
        }
        return place;
    }

    Forms extracted(const Instruction& i, std::size_t count) const
    {
        const auto whole = forms_.find(i[3]);
        const std::size_t first = placeOf(i[3], i, 4);
        if (whole == forms_.end() || first + count > whole->second.size()) {
            return Forms(count, otherForm);
        }
        const auto begin = whole->second.begin() + static_cast<std::ptrdiff_t>(first);
        return {begin, begin + static_cast<std::ptrdiff_t>(count)};
    }

    Forms inserted(const Instruction& i, std::size_t count) const
    {
        Forms whole = of(i[4], count);
        const auto part = forms_.find(i[3]);
        const std::size_t first = placeOf(i[4], i, 5);
        if (part == forms_.end() || first + part->second.size() > count) {
            return Forms(count, otherForm);
        }
        std::copy(part->second.begin(), part->second.end(),
                  whole.begin() + static_cast<std::ptrdiff_t>(first));
        return whole;
    }

    Forms shuffled(const Instruction& i) const
    {
        constexpr std::uint32_t undefined = 0xFFFFFFFF;
        Forms both;
        for (const std::size_t at : {std::size_t{3}, std::size_t{4}}) {
            const auto found = forms_.find(i[at]);
            if (found == forms_.end()) {
                return Forms(componentsOf(i[1]), otherForm);
            }
            both.insert(both.end(), found->second.begin(), found->second.end());
        }
        Forms forms;
        for (std::size_t at = 5; at < i.size(); ++at) {
            forms.push_back(i[at] == undefined ? Form{} : i[at] >= both.size() ? otherForm : both[i[at]]);
        }
        return forms;
    }

    Forms dot(const Instruction& i) const
    {
        const auto left = forms_.find(i[3]);
        const std::size_t count = left == forms_.end() ? 1 : left->second.size();
        const Forms products = each(of(i[3], count), of(i[4], count), formOfProduct);
        Form result = constantForm(0.0F);
        for (const Form& form : products) {
            result = formOfSum(result, form);
        }
        return {result};
    }

    /// Matrix times vector, or with `byRows` false vector times matrix.
    Forms transformed(Id matrix, Id vector, std::size_t count, bool byRows) const
    {
        const auto left = forms_.find(matrix);
        const auto right = forms_.find(vector);
        if (left == forms_.end() || right == forms_.end() ||
            left->second.size() != count * right->second.size()) {
            return Forms(count, otherForm);
        }
        const std::size_t inner = right->second.size();
        Forms result(count, constantForm(0.0F));
        for (std::size_t at = 0; at < count; ++at) {
            for (std::size_t j = 0; j < inner; ++j) {
                const Form& factor = left->second[byRows ? j * count + at : at * inner + j];
                result[at] = formOfSum(result[at], formOfProduct(factor, right->second[j]));
            }
        }
        return result;
    }

    /// Each column of the second, transformed by the first.
    Forms multiplied(const Instruction& i, std::size_t count) const
    {
        const auto left = forms_.find(i[3]);
        const auto right = forms_.find(i[4]);
        const std::size_t rows = componentsOf(typeNamed(i[1]).element);
        if (left == forms_.end() || right == forms_.end() || left->second.size() % rows != 0 ||
            right->second.size() * rows != left->second.size() / rows * count) {
            return Forms(count, otherForm);
        }
        const std::size_t inner = left->second.size() / rows;
        Forms result(count, constantForm(0.0F));
        for (std::size_t at = 0; at < count; ++at) {
            for (std::size_t k = 0; k < inner; ++k) {
                result[at] = formOfSum(result[at], formOfProduct(left->second[k * rows + at % rows],
                                                                 right->second[at / rows * inner + k]));
            }
        }
        return result;
    }

    Forms transposed(const Instruction& i, std::size_t count) const
    {
        const Forms given = of(i[3], count);
        const std::size_t rows = componentsOf(typeNamed(i[1]).element);
        Forms result(count, otherForm);
        for (std::size_t at = 0; at < count; ++at) {
            result[at] = given[at % rows * (count / rows) + at / rows];
        }
        return result;
    }

    Forms mixed(const Instruction& i, std::size_t count) const
    {
        const auto weight = [](const Form& form) { return Form{form.kind, {}, {}}; };
        const Forms weights = each(of(i[7], count), weight);
        return each(each(of(i[5], count), weights, formOfProduct),
                    each(of(i[6], count), weights, formOfProduct), formOfSum);
    }

    /// What comes around a loop is not known in the first round.
    Forms phi(const Instruction& i, std::size_t count) const
    {
        Forms forms;
        for (std::size_t at = 3; at + 1 < i.size(); at += 2) {
            if (const auto found = forms_.find(i[at]); found != forms_.end()) {
                forms = forms.empty() ? found->second : each(forms, found->second, formOfEither);
            }
        }
        forms.resize(count, otherForm);
        return forms;
    }

    template <class Operation>
    static Forms each(Forms a, Operation operation)
    {
        std::transform(a.begin(), a.end(), a.begin(), operation);
        return a;
    }

    template <class Operation>
    static Forms each(Forms a, const Forms& b, Operation operation)
    {
        std::transform(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(std::min(a.size(), b.size())),
                       b.begin(), a.begin(), operation);
        return a;
    }

    /// Exactly `count`.
    Forms of(Id id, std::size_t count) const
    {
        const auto found = forms_.find(id);
        return found != forms_.end() && found->second.size() == count ? found->second
                                                                      : Forms(count, otherForm);
    }

    Kind kindOf(Id id) const
    {
        const auto found = forms_.find(id);
        Kind kind = Kind::Uniform;
        if (found != forms_.end()) {
            for (const Form& form : found->second) {
                kind = std::max(kind, form.kind);
            }
        }
        return kind;
    }

    /// Whether no operand depends on an input. A literal may look like one that does.
    bool isFixed(const Instruction& i) const
    {
        for (std::size_t at = 3; at < i.size(); ++at) {
            const auto pointer = pointers_.find(i[at]);
            const bool memory = pointer != pointers_.end() && memory_.count(pointer->second.variable) != 0;
            if (kindOf(i[at]) != Kind::Uniform || memory || i.op() == spv::OpFunctionCall) {
                return false;
            }
        }
        return true;
    }

    /// Values never come back from Other, so that the rounds end.
    void change(Forms& held, Forms to)
    {
        if (held.size() == to.size()) {
            to = each(std::move(to), held, formOfEither);
        }
        if (held != to) {
            held = std::move(to);
            changed_ = true;
        }
    }

    Type typeNamed(Id type) const
    {
        const auto found = types_.find(type);
        return found == types_.end() ? Type{} : found->second;
    }

    std::size_t componentsOf(Id type) const { return typeNamed(type).components; }

    const Words& spirv_;
    std::unordered_map<Id, Type> types_;
    std::unordered_map<Id, Id> typeOf_;
    std::unordered_map<Id, std::uint32_t> locations_;
    std::unordered_map<Id, std::uint32_t> integers_;
    std::unordered_map<Id, Pointer> pointers_;
    std::unordered_map<Id, Forms> forms_;
    std::unordered_map<Id, Forms> stored_; ///< to outputs, and what memory may hold
    std::set<Id> inputs_;
    std::set<Id> outputs_;
    std::set<Id> memory_;
    bool branches_ = false; ///< what is computed depends on an input, or is too much to follow
    bool changed_ = true;
    bool inFunction_ = false;
};

} // namespace

std::map<std::uint32_t, std::array<Form, 4>> outputForms(const Words& spirv)
{
    return Reader(spirv).run();
}

} // namespace Qx::Host::Effects::Spirv
