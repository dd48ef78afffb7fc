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

/// The place of a token in the author's text. A token from a macro's body has the place where the macro is
/// used; `note` then identifies its place in the body.
struct Location
{
    std::uint32_t file = 0;   ///< index into SourceFiles
    std::uint32_t line = 0;   ///< from 1; 0 for the file as a whole
    std::uint32_t column = 0; ///< from 1, in characters
    std::uint32_t note = 0;   ///< index of a macro note; 0 for none
};

/// The files of one compilation. The addresses of texts and names never change, so that tokens may refer to
/// them.
class SourceFiles
{
public:
    struct File
    {
        std::filesystem::path path; ///< as opened; empty for text from no file
        std::string name;           ///< in messages
        std::string_view text;
        bool once = false;       ///< has #pragma once
        Location includedFrom{}; ///< line 0 if no file includes it
    };

    struct MacroNote
    {
        std::string_view macro;
        Location body;
    };

    std::uint32_t add(File file);

    /// Adds an entry without a path for one inclusion of the file.
    std::uint32_t addInclusion(std::uint32_t file, Location includedFrom);

    const File& operator[](std::uint32_t index) const { return files_[index]; }
    File& operator[](std::uint32_t index) { return files_[index]; }
    /// The file of that path, or nothing if it was not added yet.
    std::optional<std::uint32_t> find(const std::filesystem::path& path) const;
    std::uint32_t size() const { return static_cast<std::uint32_t>(files_.size()); }

    /// Keeps text of the preprocessor's. The view is valid as long as this object.
    std::string_view keep(std::string text);

    /// Records the result of the first look-up of a file; ignores later ones.
    void noteInput(const std::filesystem::path& path, std::optional<Cache::Digest> content);
    const std::vector<EffectInput>& inputs() const { return inputs_; }

    std::uint32_t addMacroNote(std::string_view macro, Location bodyToken);

    /// "FILE:LINE:COLUMN".
    std::string describe(Location at) const;

    /// Null for a token that is not from a macro's body.
    const MacroNote* macroNote(Location at) const;

private:
    std::deque<File> files_;
    std::deque<std::string> kept_;
    std::vector<MacroNote> notes_{{}};
    std::vector<EffectInput> inputs_;
    std::unordered_set<std::string> inputNames_;
};

/// An error in an effect, and its place. As an exception it ends the parsing of the item that it is about; it
/// never leaves compileEffect.
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

/// The effect exceeds a limit of the compiler, which stops.
class LimitError : public CompileError
{
public:
    using CompileError::CompileError;
};

/// Text of the author's as a message quotes it; a long text is cut.
std::string inQuotes(std::string_view text);

bool equalIgnoringCase(std::string_view a, std::string_view b);

} // namespace Qx::Host::Effects
