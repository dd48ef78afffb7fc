#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// The cost of a catalogue of many effects: loading it in a new process, and the first draws with it.
namespace Qx::Bench {

inline constexpr int catalogueFiles = 50;

/// Writes that many effect files of one to three techniques, always the same: grades, keys, blurs, wipes,
/// patterns and distortions with their own constants, and one shared include.
void writeCatalogue(const std::filesystem::path& directory);

/// The option with which this program runs itself as a new process. It loads and draws every effect of a
/// directory with the host configured by the environment, and prints three times in milliseconds: the start
/// until everything is loaded, and the median and the longest first draw of a technique. The exit code is 0
/// on success.
inline constexpr std::string_view catalogueOption = "--catalogue=";
int runCatalogue(const std::filesystem::path& directory);

} // namespace Qx::Bench
