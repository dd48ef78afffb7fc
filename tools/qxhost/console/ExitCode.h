#pragma once

namespace Qx::Program {

/// Exit codes of the program.
enum class ExitCode : int
{
    ok = 0,
    failed = 1, ///< an effect has errors (effects check), or something unforeseen
    usage = 2,  ///< the command line makes no sense
    input = 3,  ///< the input is missing or damaged, or its colours need a decision
    output = 4, ///< the output cannot be written, or exists
    device = 5, ///< no usable GPU device, or it was lost
    effect = 6, ///< an effect, technique, parameter, LUT or font is not available
    interrupted = 130,
};

} // namespace Qx::Program
