#pragma once

#include "platform/ImageFormat.h"
#include "tools/qxhost/media/MediaTypes.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program {

/// One "--set NAME=VALUE[,VALUE...]".
struct ParameterSetting
{
    std::string name;
    std::vector<float> values; ///< at least one, all finite
};

/// One "--effect FILE" with what was said about it.
struct EffectRequest
{
    std::string file;      ///< a name of the catalogue, or a path
    std::string technique; ///< empty: the file's first
    std::vector<ParameterSetting> settings;
};

/// What "qxhost convert" was asked for.
struct ConvertOptions
{
    std::filesystem::path input;
    std::filesystem::path output;

    std::optional<Media::Range> range; ///< of the input, instead of what its tags say
    std::optional<Media::Matrix> matrix;
    std::optional<Media::Range> outputRange; ///< of the RGB that leaves the conversion
    Image::Filter filter = Image::Filter::CatmullRom;
    std::optional<Media::Depth> depth;
    std::vector<EffectRequest> effects; ///< in the order in which they run

    std::int64_t start = 0;  ///< frames to leave out at the beginning
    std::int64_t frames = 0; ///< frames to convert at most; 0: all

    std::string codec;
    std::string pixelFormat;
    bool audio = true;
    bool force = false;
    std::string device;
    bool quiet = false;
    bool json = false;
};

} // namespace Qx::Program
