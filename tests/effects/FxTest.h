#pragma once

#include "host/effects/EffectCompiler.h"
#include "tests/TemporaryDirectory.h"

#include <filesystem>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Host::Tests {

/// A test of the effect compiler as a text file; see README.md beside this header.
struct FxTest
{
    struct Section
    {
        std::string kind; ///< the first word in the brackets
        std::string argument;
        std::vector<std::string> lines; ///< without empty ones at the end
        int line = 0;                   ///< of the section header in the test file
    };

    std::string name; ///< of the file, and of the case if the file has several
    std::vector<Section> sections;

    /// The first section of that kind; null if there is none.
    const Section* find(const std::string& kind) const;
};

/// For GoogleTest.
void PrintTo(const FxTest& test, std::ostream* stream);

/// The tests of one file. Throws std::runtime_error if it has none, or one without an effect.
std::vector<FxTest> readFxTests(const std::filesystem::path& file);

/// All tests below cases/, by name.
std::vector<FxTest> readAllFxTests();

/// The compiler options with the definitions of the test.
EffectCompilerOptions optionsOf(const FxTest& test);

/// Writes the test's files below `directory`; returns the path of the effect, "effect.fx" there.
std::filesystem::path writeFiles(const FxTest& test, const std::filesystem::path& directory);

/// Describes a compiled effect, one fact a line.
std::vector<std::string> describe(const CompiledEffect& effect);

/// Messages name files as opened; a test names them relative to its directory. Returns the text with such
/// names.
std::string withoutDirectory(std::string text, const std::string& directory);

/// A shader as text, with friendly names.
std::string disassemble(const std::vector<std::uint32_t>& spirv);

using Qx::Test::TemporaryDirectory;

} // namespace Qx::Host::Tests
