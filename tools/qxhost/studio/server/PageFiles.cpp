#include "tools/qxhost/studio/server/PageFiles.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <utility>

namespace Qx::Program::Studio {

namespace {

std::string_view typeOf(std::string_view name)
{
    static constexpr std::array types{std::pair{".html", "text/html; charset=utf-8"},
                                      std::pair{".css", "text/css; charset=utf-8"},
                                      std::pair{".js", "text/javascript; charset=utf-8"},
                                      std::pair{".svg", "image/svg+xml"},
                                      std::pair{".png", "image/png"},
                                      std::pair{".txt", "text/plain; charset=utf-8"}};
    for (const auto& [ending, type] : types) {
        if (name.ends_with(ending)) {
            return type;
        }
    }
    return "application/octet-stream";
}

/// A name of files in the directory and in directories in it: no part of it begins with a dot.
bool isPlainName(std::string_view name)
{
    bool begins = true;
    for (const char c : name) {
        const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        const bool isOther = c == '-' || c == '_' || (!begins && (c == '.' || c == '/'));
        if (!isLetter && !isOther) {
            return false;
        }
        begins = c == '/';
    }
    return !begins;
}

std::optional<std::string> readPlain(const std::filesystem::path& file)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        return {};
    }
    std::ifstream in(file, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    return in.good() || in.eof() ? std::optional(std::move(bytes)) : std::nullopt;
}

} // namespace

std::optional<PageFile> PageFiles::find(std::string_view asked) const
{
    const std::string_view name = asked.empty() ? "index.html" : asked;
    if (!directory_.empty() && isPlainName(name)) {
        if (std::optional<std::string> bytes = readPlain(directory_ / name)) {
            return PageFile{std::move(*bytes), typeOf(name)};
        }
    }
    const std::vector<EmbeddedFile>& files = embeddedFiles();
    const auto found =
        std::find_if(files.begin(), files.end(), [&](const EmbeddedFile& file) { return file.name == name; });
    if (found == files.end()) {
        return {};
    }
    return PageFile{std::string(reinterpret_cast<const char*>(found->bytes), found->size), typeOf(name)};
}

} // namespace Qx::Program::Studio
