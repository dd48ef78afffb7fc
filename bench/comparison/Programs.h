#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Bench {

/// A program that can take part.
struct Program
{
    const char* name;  ///< in Contender, for --only, and in the list of packages
    const char* file;  ///< beside this program
    const char* title; ///< for people
};

/// The library's own comes first.
const std::vector<Program>& programs();

/// The Debian packages that a participant needs, a space between them: what a list has between the line
/// "# NAME" and the next such line. Empty when the list has no such line.
std::string packagesFor(const std::string& name, const std::filesystem::path& list);

} // namespace Qx::Bench
