#pragma once

#include "tools/qxhost/commands/LutOptions.h"
#include "tools/qxhost/diagnose/MeasureOptions.h"
#include "tools/qxhost/pipeline/ConvertOptions.h"

#include <filesystem>
#include <string>
#include <variant>
#include <vector>

namespace Qx::Program {

/// Text that was asked for: help, or the version.
struct ShowText
{
    std::string text;
};

struct EffectsListOptions
{
    std::string device;
    bool json = false;
};

struct EffectsCheckOptions
{
    std::vector<std::filesystem::path> files;
    std::string device;
    bool json = false;
};

/// What "qxhost black" was asked for.
struct BlackOptions
{
    std::filesystem::path output;
    unsigned width = 0; ///< pixels
    unsigned height = 0;
    bool transparent = false;
    std::optional<PixelFormat> format; ///< of the frames written; empty: the encoder's own
    std::int64_t outputRowBytes = 0;   ///< from a row to the next in a raw file; 0: the format's own
    std::int64_t frames = 1;
    Media::Rational frameRate{25, 1};
    bool force = false;
    std::string device;
    bool quiet = false;
    bool json = false;
};

struct FormatsOptions
{
    bool json = false;
    bool markdown = false;
};

struct EffectsWatchOptions
{
    std::filesystem::path file;   ///< an effect, a directory of effects, or a name; empty: the catalogue
    std::filesystem::path input;  ///< the picture to show the effect on
    std::filesystem::path output; ///< where to; empty: nothing is shown
    std::string technique;
    std::vector<ParameterSetting> settings;
    bool force = false;
    std::string device;
};

struct EffectsDescribeOptions
{
    std::filesystem::path file;
    bool json = false;
};

struct EffectsCacheOptions
{
    enum class Action
    {
        Info,
        Clear
    };
    Action action = Action::Info;
    bool json = false;
};

struct DevicesOptions
{
    bool json = false;
};

using Command = std::variant<ShowText, ConvertOptions, BlackOptions, EffectsListOptions, EffectsCheckOptions,
                             EffectsWatchOptions, EffectsDescribeOptions, EffectsCacheOptions, FormatsOptions,
                             LutOptions, DevicesOptions, DiagnoseOptions, MeasureOptions>;

/// Reads the program's arguments, argv[0] left out. Throws Failure (usage) when they make no sense. It
/// touches neither files nor devices.
Command parseCommandLine(const std::vector<std::string>& arguments);

/// Reads "NAME=VALUE[,VALUE...]", said to that command; throws Failure (usage).
ParameterSetting parseSetting(const std::string& text, const std::string& command);

} // namespace Qx::Program
