#include "host/files/Stamp.h"

#include "Qx/LightweightString.h"
#include "host/core/EffectIncludes.h"
#include "host/files/ReadFile.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace Qx::Host {

namespace {

/// More than any effect has. Beyond these limits the hash is of size, times and identity.
constexpr std::size_t mostFiles = 256;
constexpr std::size_t largestFile = 16U << 20;

/// FNV-1a, 64 bits: http://www.isthe.com/chongo/tech/comp/fnv/
class Hash
{
public:
    void add(std::string_view bytes)
    {
        for (const char c : bytes) {
            value_ = (value_ ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
        }
    }
    void add(std::uint64_t number) { add({reinterpret_cast<const char*>(&number), sizeof number}); }
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xcbf29ce484222325ULL;
};

void addStatus(Hash& hash, const struct stat& status)
{
    hash.add(static_cast<std::uint64_t>(status.st_dev));
    hash.add(static_cast<std::uint64_t>(status.st_ino));
    hash.add(static_cast<std::uint64_t>(status.st_size));
    for (const timespec& time : {status.st_mtim, status.st_ctim}) {
        hash.add(static_cast<std::uint64_t>(time.tv_sec));
        hash.add(static_cast<std::uint64_t>(time.tv_nsec));
    }
}

/// The names in the text's `#include "..."` and `#include <...>` lines. Those in comments and inactive
/// branches are among them, which makes a stamp change once too often at worst.
std::vector<std::string> includedNames(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r";
    std::vector<std::string> names;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        std::string_view line = text.substr(begin, end - begin);
        begin = end + 1;
        const auto skip = [&](std::string_view what) {
            line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
            const bool found = line.starts_with(what);
            line.remove_prefix(found ? what.size() : 0);
            return found;
        };
        if (!skip("#") || !skip("include")) {
            continue;
        }
        const char close = skip("<") ? '>' : '"';
        if (close == '"' && !skip("\"")) {
            continue;
        }
        if (const std::size_t length = line.find(close); length != std::string_view::npos) {
            names.emplace_back(line.substr(0, length));
        }
    }
    return names;
}

/// The included file as the effect compiler finds it: beside the including one, or in an include directory.
std::filesystem::path findInclude(const std::filesystem::path& from, const std::string& name)
{
    std::error_code error;
    std::filesystem::path beside = (from.parent_path() / name).lexically_normal();
    if (std::filesystem::is_regular_file(beside, error)) {
        return beside;
    }
    for (const std::filesystem::path& directory : effectIncludeDirectories()) {
        if (std::filesystem::is_regular_file(directory / name, error)) {
            return (directory / name).lexically_normal();
        }
    }
    return beside;
}

void addEffect(Hash& hash, const std::filesystem::path& effect)
{
    std::vector<std::filesystem::path> toRead{effect};
    std::set<std::filesystem::path> seen{effect};
    for (std::size_t i = 0; i < toRead.size(); ++i) {
        const std::optional<std::string> contents = readFile(toRead[i], largestFile);
        if (!contents) {
            hash.add("missing");
            struct stat status = {};
            if (stat(toRead[i].c_str(), &status) == 0) {
                addStatus(hash, status);
            }
            continue;
        }
        hash.add(contents->size());
        hash.add(*contents);
        for (const std::string& name : includedNames(*contents)) {
            const std::filesystem::path included = findInclude(toRead[i], name);
            if (toRead.size() < mostFiles && seen.insert(included).second) {
                toRead.push_back(included);
            }
        }
    }
}

} // namespace

std::uint64_t fileStamp(const std::filesystem::path& file, const struct stat& status)
{
    Hash hash;
    std::string extension = file.extension().string();
    for (char& c : extension) {
        c = foldCase(c);
    }
    if (extension == ".fx" && S_ISREG(status.st_mode)) {
        addEffect(hash, file);
    } else {
        addStatus(hash, status);
    }
    return hash.value();
}

} // namespace Qx::Host
