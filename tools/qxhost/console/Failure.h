#pragma once

#include "tools/qxhost/console/ExitCode.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace Qx::Program {

/// Why the program cannot continue: one line for the user that says what is wrong, where, and what to do.
/// Thrown inside the program only, never across a library's border; main() prints it.
class Failure : public std::runtime_error
{
public:
    /// `details` are further lines, such as a compiler's messages.
    Failure(ExitCode code, const std::string& text, std::string details = {})
        : std::runtime_error(text), code_(code), details_(std::move(details))
    {
    }

    ExitCode code() const { return code_; }
    const std::string& details() const { return details_; }

private:
    ExitCode code_;
    std::string details_;
};

/// What an option asks for does not exist. No file that is saved later mends that.
class WrongOption : public Failure
{
public:
    using Failure::Failure;
};

} // namespace Qx::Program
