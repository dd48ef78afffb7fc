#pragma once

#include "host/effects/framework/EffectInput.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Qx::Host::Effects {

/// Where a token stands in what the author wrote. A token that a macro's body supplied stands where the macro
/// is used; `note` then tells which line of the body it came from.
struct Location
{
    std::uint32_t file = 0;   ///< index into SourceFiles
    std::uint32_t line = 0;   ///< from 1; 0 when the message concerns the file as a whole
    std::uint32_t column = 0; ///< from 1, in characters
    std::uint32_t note = 0;   ///< index of a macro note; 0 for none
};

/// The files of one compilation. Texts and names stay where they are for its whole life, so that tokens may
/// refer into them.
class SourceFiles
{
public:
    struct File
    {
        std::filesystem::path path; ///< as opened; empty for text that came from no file
        std::string name;           ///< as messages write it
        std::string_view text;
        bool once = false;       ///< holds #pragma once
        Location includedFrom{}; ///< line 0 for what no file includes
    };

    struct MacroNote
    {
        std::string_view macro;
        Location body;
    };

    std::uint32_t add(File file);

    /// The file once more, for what stands in it when it is included there: an entry without a path.
    std::uint32_t addInclusion(std::uint32_t file, Location includedFrom);

    const File& operator[](std::uint32_t index) const { return files_[index]; }
    File& operator[](std::uint32_t index) { return files_[index]; }
    /// The file of that path, or nothing when it was not added yet.
    std::optional<std::uint32_t> find(const std::filesystem::path& path) const;
    std::uint32_t size() const { return static_cast<std::uint32_t>(files_.size()); }

    /// Keeps text that the preprocessor made; the view is valid as long as this object.
    std::string_view keep(std::string text);

    /// Remembers the answer to the first look-up of a file.
    void noteInput(const std::filesystem::path& path, std::optional<Cache::Digest> content);
    const std::vector<EffectInput>& inputs() const { return inputs_; }

    std::uint32_t addMacroNote(std::string_view macro, Location bodyToken);

    /// "FILE:LINE:COLUMN".
    std::string describe(Location at) const;

    /// Null for a token that no macro's body supplied.
    const MacroNote* macroNote(Location at) const;

private:
    std::deque<File> files_;
    std::deque<std::string> kept_;
    std::vector<MacroNote> notes_{{}};
    std::vector<EffectInput> inputs_;
    std::unordered_set<std::string> inputNames_;
};

/// What is wrong with an effect, and where. As an exception it ends the reading of the thing that it is about
/// and never leaves compileEffect.
class CompileError : public std::exception
{
public:
    CompileError(Location at, std::string text) : at_(at), text_(std::move(text)) {}

    Location at() const { return at_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Location at_;
    std::string text_;
};

/// An effect that is larger than the compiler takes: reading on would only take longer.
class LimitError : public CompileError
{
public:
    using CompileError::CompileError;
};

/// Text of the author's that a message repeats, cut to a length that a person reads.
std::string inQuotes(std::string_view text);

bool equalIgnoringCase(std::string_view a, std::string_view b);

} // namespace Qx::Host::Effects
