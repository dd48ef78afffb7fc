#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// Options of "qxhost convert" that are kept in a TOML file. docs/qxhost.md describes the format.
struct Preset
{
    /// An option as on the command line.
    struct Option
    {
        std::string name; ///< with its dashes
        std::string word; ///< "--name=value", or the name alone of a flag
        unsigned line;    ///< of the file, from 1
    };

    std::filesystem::path file;
    std::string about;           ///< one line; may be empty
    std::vector<Option> options; ///< effects and LUTs, and then texts, at the end and in their order
};

/// The directories of presets that have a name: the user's come before the installed ones.
std::vector<std::filesystem::path> presetDirectories();

/// The files of presets, without those that a directory before has by the same name.
std::vector<std::filesystem::path> listedPresets();

/// The file of a preset: a path if the word has a "/" or ends in ".toml", else a name of listedPresets().
/// Throws Failure (usage) if there is none.
std::filesystem::path presetFile(const std::string& word);

/// Reads a preset. Paths in it that exist beside it are made absolute. Throws Failure (usage), which names
/// the file and the line.
Preset readPreset(const std::filesystem::path& file);

/// Throws Failure (usage) for something wrong at a line of a preset.
[[noreturn]] void complainOfPreset(const std::filesystem::path& file, unsigned line, const std::string& what);

/// Without the options that give way to those of the command line, by their names: --quality to --bitrate.
std::vector<Preset::Option> givingWayTo(const std::vector<std::string>& given,
                                        std::vector<Preset::Option> options);

} // namespace Qx::Program
