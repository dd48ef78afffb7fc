#include "host/files/ReadFile.h"

#include <array>
#include <fstream>
#include <ios>
#include <system_error>

namespace Qx::Host {

std::optional<std::string> readFile(const std::filesystem::path& path, std::size_t most)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    std::string bytes;
    std::array<char, 1 << 14> buffer;
    while (file && bytes.size() <= most) {
        file.read(buffer.data(), buffer.size());
        bytes.append(buffer.data(), static_cast<std::size_t>(file.gcount()));
    }
    return file.eof() && bytes.size() <= most ? std::optional(std::move(bytes)) : std::nullopt;
}

} // namespace Qx::Host
