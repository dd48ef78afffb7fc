#include "tests/host/gpu/GpuFixture.h"

#include "host/gpu/FloatImages.h"
#include "platform/Text.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>

namespace Qx::GpuTests {

GpuTest::GpuTest(GPUOptions options)
{
    options.validation = true;
    gpu_ = std::make_unique<GPUService>(options);
}

void GpuTest::SetUp()
{
    takeLog();
    ASSERT_TRUE(gpu().start()) << gpu().failure();
    ASSERT_TRUE(gpu().isValidating());
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    folder_ =
        std::filesystem::temp_directory_path() / ("qx-gpu-" + std::to_string(getpid()) + "-" + test->name());
    std::filesystem::create_directories(folder_);
}

void GpuTest::restart(GPUOptions options)
{
    gpu().shutdown();
    EXPECT_EQ(gpu().statistics().validationMessages, 0U) << takeLog();
    options.validation = true;
    gpu_ = std::make_unique<GPUService>(options);
    files_ = 0;
    ASSERT_TRUE(gpu().start()) << gpu().failure();
}

void GpuTest::TearDown()
{
    gpu().shutdown();
    EXPECT_EQ(gpu().statistics().validationMessages, 0U) << takeLog();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

Host::DeviceDescription GpuTest::chosenDevice(GPUService& service)
{
    const std::vector<Host::DeviceDescription> devices = service.listDevices();
    const auto chosen =
        std::find_if(devices.begin(), devices.end(), [](const auto& each) { return each.chosen; });
    return chosen != devices.end() ? *chosen : Host::DeviceDescription();
}

bool GpuTest::copiesBecause(const char* reason)
{
    const std::vector<std::string> ways = device().nextWays;
    return std::any_of(ways.begin(), ways.end(),
                       [&](const std::string& way) { return way.find(reason) != std::string::npos; });
}

Qx::Ptr<iGPUImage> GpuTest::upload(XY<int> size, iGPUImage::eFormat format, const Bytes& bytes)
{
    const Qx::Ptr<iHostImage> host = gpu().createHostImage(size, format);
    void* memory = host ? host->map(iHostImage::Write) : nullptr;
    if (memory == nullptr || bytes.size() != bytesOf(size, format)) {
        return {};
    }
    std::memcpy(memory, bytes.data(), bytes.size());
    return gpu().uploadImage(host, 0);
}

Bytes GpuTest::download(const Qx::Ptr<iGPUImage>& image)
{
    const Qx::Ptr<iHostImage> host = gpu().downloadImage(image);
    const auto* memory = host ? static_cast<const std::uint8_t*>(host->map(iHostImage::Read)) : nullptr;
    if (memory == nullptr) {
        return {};
    }
    return Bytes(memory, memory + bytesOf(host->getSize(), host->getFormat()));
}

Qx::Ptr<iShaderEffect> GpuTest::effect(const std::string& text)
{
    const std::filesystem::path file = folder_ / (std::to_string(files_++) + ".fx");
    std::ofstream(file) << text;
    const EffectCompileResult result = gpu().compileEffectFile(fromUTF8(file.c_str()), {});
    EXPECT_TRUE(result.effect) << result.errors.c_str();
    return result.effect;
}

Bytes noise(std::size_t count, std::uint32_t seed)
{
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random() >> 8U);
    }
    return bytes;
}

std::size_t bytesOf(XY<int> size, iGPUImage::eFormat format)
{
    return static_cast<std::size_t>(size.x) * static_cast<std::size_t>(size.y) *
           (format == Host::floatTexels    ? 16U
            : format == iGPUImage::eARGB16 ? 8U
                                           : 4U);
}

Bytes filled(XY<int> size, const std::vector<std::uint8_t>& texel)
{
    Bytes bytes;
    for (int i = 0; i < size.x * size.y; ++i) {
        bytes.insert(bytes.end(), texel.begin(), texel.end());
    }
    return bytes;
}

int at(const Bytes& image, XY<int> size, int x, int y, int c)
{
    return image.at(
        (static_cast<std::size_t>(y) * static_cast<std::size_t>(size.x) + static_cast<std::size_t>(x)) * 4 +
        static_cast<std::size_t>(c));
}

} // namespace Qx::GpuTests
