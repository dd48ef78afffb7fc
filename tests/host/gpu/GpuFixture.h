#pragma once

#include "host/gpu/GPUService.h"
#include "platform/GraphicPrimitives.h"
#include "tests/host/gpu/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Qx::GpuTests {

using Host::GPUOptions;
using Host::GPUService;
using Bytes = std::vector<std::uint8_t>;

/// Gives each test a service of its own with validation, any message of which fails the test.
class GpuTest : public testing::Test
{
protected:
    explicit GpuTest(GPUOptions options = {});
    void SetUp() override;
    void TearDown() override;

    GPUService& gpu() { return *gpu_; }

    /// Ends the service and starts another one, as the next run of a program does.
    void restart(GPUOptions options);

    /// Whether the device draws whole pictures by packed texels, which few do; see docs/gpu.md.
    bool drawsPacked() { return !copiesBecause("row by row") && isSoftware(); }

    /// Whether uploads and downloads of small pictures copy nothing.
    bool sharesMemory() { return drawsPacked() && !copiesBecause("shares no memory"); }

    /// A directory for files of the test, removed after it.
    const std::filesystem::path& folder() const { return folder_; }

    /// An image on the device that holds these bytes; empty on failure.
    Qx::Ptr<iGPUImage> upload(XY<int> size, iGPUImage::eFormat format, const Bytes& bytes);

    /// The bytes of an image on the device; empty on failure.
    Bytes download(const Qx::Ptr<iGPUImage>& image);

    /// An effect from its text. A failure to compile fails the test with the messages.
    Qx::Ptr<iShaderEffect> effect(const std::string& text);

    static Host::DeviceDescription chosenDevice(GPUService& service); ///< Empty if none is chosen.

private:
    Host::DeviceDescription device() { return chosenDevice(gpu()); }
    bool isSoftware() { return device().software; }
    bool copiesBecause(const char* reason);

    std::unique_ptr<GPUService> gpu_;
    std::filesystem::path folder_;
    int files_ = 0;
};

/// Bytes without a pattern, the same on every run.
Bytes noise(std::size_t count, std::uint32_t seed = 1);

std::size_t bytesOf(XY<int> size, iGPUImage::eFormat format);

/// An image of one colour, in memory order.
Bytes filled(XY<int> size, const std::vector<std::uint8_t>& texel);

/// Component `c` (in memory order) of a texel of an 8-bit image.
int at(const Bytes& image, XY<int> size, int x, int y, int c);

} // namespace Qx::GpuTests
