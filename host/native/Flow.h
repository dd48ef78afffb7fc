#pragma once

#include "host/native/Instructions.h"

#include <cstddef>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace Qx::Host::Native {

/// Writes the control flow of a shader: every block is computed, for all lanes, and what they lead to is
/// chosen. Loops are written out; those whose rounds are not known are refused.
class Flow
{
public:
    Flow(const ParsedShader& shader, Emitter& emitter, Instructions& instructions)
        : shader_(shader), emit_(emitter), instructions_(instructions)
    {
    }

    /// Computes one item.
    void run();

private:
    using Mask = std::optional<Component>; ///< for which lanes; for all without

    struct Entry
    {
        Id from;
        Mask mask;
    };

    /// What ends at one block, where all lanes meet again that were there at its beginning, unless some have
    /// left.
    struct Construct
    {
        Id merge;
        Id next; ///< the block for the next round of a loop, or 0
        Mask mask;
        bool isLeft;
        Id head; ///< where it begins
    };

    void step(const Instruction& i);
    void enterBlock(Id id);
    void leaveBlock(const Instruction& i);
    void branch(Id target, const Mask& mask);
    void comeRound(Id head, const Mask& mask);
    void leaveTo(Id target);
    Id caseOf(const Instruction& i) const;
    Value phi(const Instruction& i) const;
    void finishPhis();

    const ParsedShader& shader_;
    Emitter& emit_;
    Instructions& instructions_;
    std::size_t at_ = 0; ///< the next instruction
    Id block_ = 0;
    bool isDead_ = false; ///< no lane comes here
    Mask mask_;
    std::map<Id, std::size_t> seen_; ///< blocks, by where they begin
    std::map<Id, std::vector<Entry>> entries_;
    std::vector<Construct> constructs_;               ///< those that are open, inner ones last
    std::vector<std::pair<Instruction, Value>> phis_; ///< of a block, which are computed together
};

} // namespace Qx::Host::Native
