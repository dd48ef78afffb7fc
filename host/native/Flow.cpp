#include "host/native/Flow.h"

#include <algorithm>

namespace Qx::Host::Native {
namespace {

constexpr std::size_t mostSteps = 20000; // instructions, those of each round counted

} // namespace

void Flow::run()
{
    instructions_.begin();
    seen_.clear();
    entries_.clear();
    constructs_.clear();
    phis_.clear();
    mask_.reset();
    isDead_ = false;
    std::size_t steps = 0;
    for (at_ = 0; at_ < shader_.body().size();) {
        if (++steps > mostSteps) {
            refuse("its loops take more than " + std::to_string(mostSteps) + " steps");
        }
        const Instruction& i = shader_.body()[at_++];
        if (i.op() != spv::OpPhi) {
            finishPhis();
        }
        step(i);
    }
}

void Flow::step(const Instruction& i)
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
        constructs_.push_back({i[1], 0, mask_, false, block_});
        return;
    case spv::OpLoopMerge:
        constructs_.push_back({i[1], i[2], mask_, false, block_});
        return;
    case spv::OpPhi:
        phis_.emplace_back(i, phi(i));
        return;
    case spv::OpStore:
        instructions_.store(i, mask_);
        return;
    case spv::OpReturn:
    case spv::OpUnreachable:
    case spv::OpSwitch:
    case spv::OpBranch:
    case spv::OpBranchConditional:
        leaveBlock(i);
        return;
    default:
        instructions_.compute(i);
        return;
    }
}

void Flow::leaveBlock(const Instruction& i)
{
    switch (i.op()) {
    case spv::OpSwitch: // around returns in between
        branch(caseOf(i), mask_);
        return;
    case spv::OpBranch:
        branch(i[1], mask_);
        return;
    case spv::OpBranchConditional: {
        const Component condition = instructions_.value(i[1]).at(0);
        if (condition.constant || i[2] == i[3]) {
            branch(!condition.constant || *condition.constant != 0 ? i[2] : i[3], mask_);
            return;
        }
        const Component inverse = emit_.inverse(condition);
        branch(i[2], mask_ ? emit_.both(*mask_, condition) : condition);
        branch(i[3], mask_ ? emit_.both(*mask_, inverse) : inverse);
        return;
    }
    default: // it returns
        for (Construct& construct : constructs_) {
            construct.isLeft = true;
        }
        return;
    }
}

/// Where a switch over a constant leads.
Id Flow::caseOf(const Instruction& i) const
{
    const std::optional<std::uint32_t> selector = instructions_.value(i[1]).at(0).constant;
    if (!selector) {
        refuse("it has a switch over a number that is computed");
    }
    for (std::size_t k = 3; k + 1 < i.size(); k += 2) {
        if (i[k] == *selector) {
            return i[k + 1];
        }
    }
    return i[2];
}

void Flow::enterBlock(Id id)
{
    const bool isFirst = seen_.empty();
    block_ = id;
    seen_[id] = at_ - 1;
    const auto ended = std::find_if(constructs_.begin(), constructs_.end(),
                                    [&](const Construct& c) { return c.merge == id; });
    const std::optional<Construct> construct =
        ended != constructs_.end() ? std::optional(*ended) : std::nullopt;
    constructs_.erase(ended, constructs_.end());
    const auto found = entries_.find(id);
    isDead_ = !isFirst && found == entries_.end();
    mask_.reset();
    if (found == entries_.end()) {
        return;
    }
    if (construct && !construct->isLeft) {
        mask_ = construct->mask;
        return;
    }
    mask_ = found->second.front().mask;
    for (std::size_t k = 1; k < found->second.size() && mask_; ++k) {
        const Mask& other = found->second[k].mask;
        mask_ = other ? Mask(emit_.binary(LLVMOr, *mask_, *other)) : std::nullopt;
    }
}

void Flow::branch(Id target, const Mask& mask)
{
    leaveTo(target);
    if (seen_.contains(target)) {
        comeRound(target, mask);
    } else {
        entries_[target].push_back({block_, mask});
    }
}

/// Marks the constructs that some lanes leave otherwise than by their end.
void Flow::leaveTo(Id target)
{
    const auto outer = std::find_if(constructs_.rbegin(), constructs_.rend(), [&](const Construct& c) {
        return c.merge == target || c.next == target || c.head == target;
    });
    for (auto inner = constructs_.rbegin(); inner != outer && outer != constructs_.rend(); ++inner) {
        inner->isLeft = true;
    }
}

/// The next round of a loop, for the lanes that began it.
void Flow::comeRound(Id head, const Mask& mask)
{
    const auto loop = std::find_if(constructs_.begin(), constructs_.end(),
                                   [&](const Construct& c) { return c.head == head && c.next != 0; });
    if (loop == constructs_.end()) {
        refuse("it branches back to what is no loop");
    }
    const bool isWhole =
        mask.has_value() == loop->mask.has_value() && (!mask || mask->value == loop->mask->value);
    if (!isWhole) {
        refuse("it has a loop whose rounds depend on what it computes");
    }
    constructs_.erase(loop, constructs_.end());
    const std::size_t first = seen_.at(head);
    for (auto block = seen_.begin(); block != seen_.end();) {
        if (block->second >= first) {
            entries_.erase(block->first);
            block = seen_.erase(block);
        } else {
            ++block;
        }
    }
    entries_[head] = {{block_, mask}};
    at_ = first;
}

Value Flow::phi(const Instruction& i) const
{
    Value value;
    const auto from = entries_.find(block_);
    for (std::size_t k = 3; k + 1 < i.size() && from != entries_.end(); k += 2) {
        const auto entry = std::find_if(from->second.begin(), from->second.end(),
                                        [&](const Entry& e) { return e.from == i[k + 1]; });
        if (entry == from->second.end()) {
            continue;
        }
        const Value& other = instructions_.value(i[k]);
        if (value.empty()) {
            value = other;
            continue;
        }
        for (std::size_t c = 0; c < value.size(); ++c) {
            value[c] = entry->mask ? emit_.select(*entry->mask, other.at(c), value[c]) : other.at(c);
        }
    }
    if (value.empty()) {
        refuse("it has a choice of values that no block leads to");
    }
    return value;
}

void Flow::finishPhis()
{
    for (const auto& [i, value] : phis_) {
        instructions_.setValue(i, value);
    }
    phis_.clear();
}

} // namespace Qx::Host::Native
