#include "host/effects/framework/SourceText.h"

#include <algorithm>
#include <cctype>

namespace Qx::Host::Effects {

std::uint32_t SourceFiles::add(File file)
{
    files_.push_back(std::move(file));
    return static_cast<std::uint32_t>(files_.size() - 1);
}

std::optional<std::uint32_t> SourceFiles::find(const std::filesystem::path& path) const
{
    for (std::uint32_t i = 0; i < size(); ++i) {
        if (files_[i].path.native() == path.native() && !path.empty()) {
            return i;
        }
    }
    return std::nullopt;
}

std::string_view SourceFiles::keep(std::string text)
{
    return kept_.emplace_back(std::move(text));
}

void SourceFiles::noteInput(const std::filesystem::path& path, std::optional<Cache::Digest> content)
{
    if (inputNames_.insert(path.native()).second) {
        inputs_.push_back({path, content});
    }
}

std::uint32_t SourceFiles::addMacroNote(std::string_view macro, Location bodyToken)
{
    notes_.push_back({macro, bodyToken});
    return static_cast<std::uint32_t>(notes_.size() - 1);
}

std::uint32_t SourceFiles::addInclusion(std::uint32_t file, Location includedFrom)
{
    return add({{}, files_[file].name, files_[file].text, false, includedFrom});
}

std::string SourceFiles::describe(Location at) const
{
    return (at.file < files_.size() ? files_[at.file].name : std::string()) + ':' + std::to_string(at.line) +
           ':' + std::to_string(at.column);
}

const SourceFiles::MacroNote* SourceFiles::macroNote(Location at) const
{
    return at.note == 0 || at.note >= notes_.size() ? nullptr : &notes_[at.note];
}

std::string inQuotes(std::string_view text)
{
    constexpr std::size_t longest = 80;
    std::string result = "'";
    for (const char c : text.substr(0, longest)) {
        result += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c;
    }
    result += text.size() > longest ? "...'" : "'";
    return result;
}

bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    // Not std::tolower: keywords are ASCII and the process's locale must not change the language.
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char x, char y) { return lower(x) == lower(y); });
}

} // namespace Qx::Host::Effects
