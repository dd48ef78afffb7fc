#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Bench {

/// A program that can take part.
struct Program
{
    const char* name;  ///< short name: in Contender, for --only, and in the list of packages
    const char* file;  ///< beside this program
    const char* title; ///< for people
};

/// All programs; the library's own is the first.
const std::vector<Program>& programs();

/// Returns the Debian packages that a participant needs, separated by spaces: the lines of a list between "#
/// NAME" and the next such line. Empty if the list has no such line.
std::string packagesFor(const std::string& name, const std::filesystem::path& list);

} // namespace Qx::Bench
