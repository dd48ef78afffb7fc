#pragma once

#include "Qx/XY.h"

#include <array>
#include <string_view>

namespace Qx::Diagnosis {

struct FrameSize
{
    std::string_view id;
    std::string_view name;
    int width;
    int height;

    XY<int> size() const { return {width, height}; }
    double pixels() const { return static_cast<double>(width) * height; }
};

inline constexpr std::array frameSizes{
    FrameSize{"sd", "SD, 720 x 576", 720, 576},
    FrameSize{"hd", "HD, 1920 x 1080", 1920, 1080},
    FrameSize{"uhd", "UHD, 3840 x 2160", 3840, 2160},
    FrameSize{"8k", "8K, 7680 x 4320", 7680, 4320},
};

inline constexpr const FrameSize& hd = frameSizes[1];
inline constexpr const FrameSize& uhd = frameSizes[2];

} // namespace Qx::Diagnosis
