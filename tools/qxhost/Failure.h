#pragma once

#include "tools/qxhost/ExitCode.h"

#include <stdexcept>
#include <string>

namespace Qx::Program {

/// Why the program cannot go on: one line for a person that names what it is about, what is wrong and what to
/// do. Thrown inside the program alone, never across a library's border; main() prints it.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}

    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

} // namespace Qx::Program
