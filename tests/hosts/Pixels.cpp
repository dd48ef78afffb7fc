#include "Pixels.h"

#include <platform/GPUService.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace Qx::HostTests {

std::size_t rowBytes(XY<int> size, iGPUImage::eFormat format)
{
    return static_cast<std::size_t>(size.x) * (format == iGPUImage::eARGB16 ? 8 : 4);
}

std::vector<unsigned char> pattern(std::size_t bytes, unsigned seed)
{
    std::vector<unsigned char> result(bytes);
    for (std::size_t i = 0; i < bytes; ++i) {
        result[i] = static_cast<unsigned char>((i * 37 + i / 251 + seed * 101) & 0xff);
    }
    return result;
}

bool fill(iHostImage& image, unsigned seed)
{
    void* const memory = image.map(iHostImage::Write);
    EXPECT_NE(memory, nullptr) << "map(Write) fails";
    if (memory == nullptr) {
        return false;
    }
    const auto bytes = pattern(image.getPitch() * static_cast<std::size_t>(image.getSize().y), seed);
    std::memcpy(memory, bytes.data(), bytes.size());
    return true;
}

std::vector<unsigned char> bytesOf(iHostImage& image)
{
    const auto* const memory = static_cast<const unsigned char*>(image.map(iHostImage::Read));
    EXPECT_NE(memory, nullptr) << "map(Read) fails";
    if (memory == nullptr) {
        return {};
    }
    return {memory, memory + image.getPitch() * static_cast<std::size_t>(image.getSize().y)};
}

std::vector<unsigned char> downloaded(const Kit& kit, const Ptr<iGPUImage>& image)
{
    const Ptr<iHostImage> back = image ? kit.services.os().gpu().downloadImage(image) : Ptr<iHostImage>();
    EXPECT_TRUE(back) << "the download fails";
    return back ? bytesOf(*back) : std::vector<unsigned char>();
}

Ptr<iGPUImage> uploaded(const Kit& kit, XY<int> size, const std::vector<unsigned char>& bytes)
{
    const Ptr<iHostImage> image = kit.services.os().gpu().createHostImage(size, iGPUImage::eARGB8);
    void* const memory = image ? image->map(iHostImage::Write) : nullptr;
    EXPECT_NE(memory, nullptr);
    if (memory == nullptr) {
        return {};
    }
    std::memcpy(memory, bytes.data(),
                std::min(bytes.size(), rowBytes(size, iGPUImage::eARGB8) * static_cast<std::size_t>(size.y)));
    return kit.services.os().gpu().uploadImage(image, 0);
}

void expectTexel(const std::vector<unsigned char>& bytes, std::size_t index, std::array<int, 4> expected,
                 std::string_view what)
{
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(bytes.at(index * 4 + i), expected[i], 1)
            << "component " << i << " of texel " << index << ": " << what;
    }
}

} // namespace Qx::HostTests
