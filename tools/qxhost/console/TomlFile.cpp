#include "tools/qxhost/console/TomlFile.h"

#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <string_view>

namespace Qx::Program {

namespace {

constexpr std::uintmax_t largestToml = 1U << 20U; // bytes

std::string contentsOfToml(const std::filesystem::path& file, const std::string& name, const char* kind,
                           ExitCode code)
{
    const auto fail = [&](const std::string& what) { throw Failure(code, name + ": " + what); };
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        fail(std::filesystem::exists(file, error) ? "is not a file" : "there is no such file");
    }
    if (std::filesystem::file_size(file, error) > largestToml) {
        fail(fmt::format("is too large for {}; expected at most 1 MiB of TOML", kind));
    }
    std::ifstream stream(file, std::ios::binary);
    std::string contents{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (!stream) {
        fail("cannot be read; are you permitted to?");
    }
    return contents;
}

} // namespace

std::vector<TomlEntry> entriesInOrder(const toml::table& table)
{
    std::vector<TomlEntry> entries;
    for (const auto& [key, node] : table) {
        entries.emplace_back(std::string(std::string_view(key)), &node);
    }
    const auto place = [](const TomlEntry& entry) {
        const toml::source_position& begin = entry.second->source().begin;
        return std::pair(begin.line, begin.column);
    };
    std::sort(entries.begin(), entries.end(),
              [&](const TomlEntry& a, const TomlEntry& b) { return place(a) < place(b); });
    return entries;
}

toml::table readToml(const std::filesystem::path& file, const std::string& name, const char* kind,
                     ExitCode code)
{
    return parseToml(contentsOfToml(file, name, kind, code), file, code);
}

toml::table parseToml(const std::string& text, const std::filesystem::path& file, ExitCode code)
{
    try {
        return toml::parse(text, file.string());
    } catch (const toml::parse_error& problem) {
        throw Failure(code,
                      complaintAt(file, problem.source().begin.line, std::string(problem.description())));
    }
}

std::string complaintAt(const std::filesystem::path& file, unsigned line, const std::string& what)
{
    return fmt::format("{}:{}: {}", file.string(), line, what);
}

} // namespace Qx::Program
