#pragma once

namespace Qx::Program {

/// What the program answers to the shell.
enum class ExitCode : int
{
    ok = 0,
    failed = 1, ///< an effect has errors (effects check), or something unforeseen
    usage = 2,  ///< the command line makes no sense
    input = 3,  ///< the input is missing, broken, damaged in parts, or of colours that need a decision
    output = 4, ///< the output cannot be written, or exists
    device = 5, ///< no usable GPU device, or it was lost
    effect = 6, ///< an effect, technique, parameter or font that cannot be had
    interrupted = 130,
};

} // namespace Qx::Program
