#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// What a catalogue of many effects costs: to load it in a new process, and to draw with it for the first
/// time.
namespace Qx::Bench {

inline constexpr int catalogueFiles = 50;

/// Writes that many effect files of one to three techniques, always the same ones: grades, keys, blurs,
/// wipes, patterns and distortions with constants of their own, with an include that all share.
void writeCatalogue(const std::filesystem::path& directory);

/// The option with which this program runs itself as a new process: loads and draws every effect of a
/// directory, as the environment configures the host, and prints three numbers of milliseconds: the start
/// with everything loaded, and the median and the longest first draw of a technique. 0 when all went well.
inline constexpr std::string_view catalogueOption = "--catalogue=";
int runCatalogue(const std::filesystem::path& directory);

} // namespace Qx::Bench
