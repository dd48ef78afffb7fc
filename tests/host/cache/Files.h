#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Qx::CacheTests {

void writeFile(const std::filesystem::path& file, std::string_view bytes);
std::string readFile(const std::filesystem::path& file);

} // namespace Qx::CacheTests
