#include "host/effects/SourceText.h"

#include <algorithm>
#include <cctype>

namespace Qx::Host::Effects {

std::uint32_t SourceFiles::add(File file)
{
    files_.push_back(std::move(file));
    return static_cast<std::uint32_t>(files_.size() - 1);
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
    notes_.emplace_back(macro, bodyToken);
    return static_cast<std::uint32_t>(notes_.size() - 1);
}

std::string SourceFiles::describe(Location at) const
{
    std::string text = at.file < files_.size() ? files_[at.file].name : std::string();
    // Editors need a place to jump to, also for what concerns the whole file.
    text += ':' + std::to_string(std::max(at.line, 1U));
    text += ':' + std::to_string(std::max(at.column, 1U));
    return text;
}

std::string SourceFiles::describeNote(Location at) const
{
    if (at.note == 0 || at.note >= notes_.size()) {
        return {};
    }
    const auto& [macro, body] = notes_[at.note];
    return " (in the expansion of macro " + inQuotes(macro) + ", " + describe(body) + ")";
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
