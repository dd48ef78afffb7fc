#pragma once

#include "tests/host/gpu/GpuFixture.h"

#include <filesystem>
#include <map>
#include <string>

namespace Qx::GpuTests {

/// What a device draws of the kinds of work that the service does, by name: conversions between 4:2:2 and RGB
/// at 8 and 16 bits, an effect over a part of a picture, a chain through the texels as they lie, images
/// blended, stretched and reduced, a gradient and text. Small, with a row that is no multiple of anything. An
/// entry is empty if the device failed.
std::map<std::string, Bytes> drawnBy(GPUService& gpu, const std::filesystem::path& scratch);

} // namespace Qx::GpuTests
