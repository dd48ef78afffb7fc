#pragma once

#include "host/effects/framework/Lexer.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Host::Effects {

/// Finds and reads the files of one compilation, and records every look-up in SourceFiles.
class IncludeFiles
{
public:
    /// Both live longer than this object.
    IncludeFiles(SourceFiles& files, const std::vector<std::filesystem::path>& includeDirectories)
        : files_(files), includeDirectories_(includeDirectories)
    {
    }

    /// Reads the effect itself; to be called first. Throws CompileError.
    std::uint32_t openEffect(const std::filesystem::path& effect);

    /// Reads a file that is included at `from`, or returns it if it was read before. Throws CompileError.
    std::uint32_t open(const std::filesystem::path& path, Location from);

    /// Searches for the file of that name that the file `includer` includes at `at`. Directories are
    /// separated by '/' or '\\'. Without a file of the very name, one that differs in case will do. Throws
    /// CompileError.
    std::filesystem::path find(const std::string& written, const Token& at, std::uint32_t includer) const;

private:
    bool mayInclude(const std::filesystem::path& file) const;
    std::vector<std::filesystem::path> searchedDirectories(std::uint32_t includer) const;

    SourceFiles& files_;
    const std::vector<std::filesystem::path>& includeDirectories_;
    std::filesystem::path effectDirectory_;
};

} // namespace Qx::Host::Effects
