#include "host/effects/spirv/Passes.h"

#include <utility>

namespace Qx::Host::Effects {

using namespace Spirv;

bool useRemaindersOfHlsl(Words& spirv)
{
    if (spirv.size() < headerWords) {
        return false;
    }
    ModuleWriter writer(spirv);
    const bool whole = forEach(spirv, [&writer](const Instruction& i) {
        const Id type = i[1];
        if (i.op() == spv::OpSMod) {
            const Id quotient = writer.emit(spv::OpSDiv, type, {i[3], i[4]});
            const Id product = writer.emit(spv::OpIMul, type, {quotient, i[4]});
            writer.write(spv::OpISub, {type, i[2], i[3], product});
        } else if (i.op() == spv::OpFMod) {
            writer.write(spv::OpFRem, {type, i[2], i[3], i[4]});
        } else {
            writer.copy(i);
        }
    });
    if (whole) {
        spirv = writer.take();
    }
    return whole;
}

} // namespace Qx::Host::Effects
