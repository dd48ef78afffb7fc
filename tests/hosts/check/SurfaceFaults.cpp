#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/WrappedOS.h"

#include <platform/GPUService.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace Qx::HostTests {

namespace {

using Image::Surface;

struct RefusesNothing final : Services
{
    bool allocateHost(Surface& surface) override { return Services::allocateHost(surface) || true; }
};

struct KeepsOldPixels final : Services
{
    Surface uploadToGPU(const Surface& surface) override
    {
        Surface result = Services::uploadToGPU(surface);
        result.setDescriptions({});
        return result;
    }
};

/// Rows arrive without what stands between them.
struct DropsPadding final : Services
{
    Surface copyToHost(const Surface& surface) override
    {
        Surface result = Services::copyToHost(surface);
        if (result.getHostImage() && result.getDataFormat() != Image::ARGB) {
            void* const memory = result.getHostImage()->map(iHostImage::Write);
            std::memset(memory, 0, result.getRowPitch());
        }
        return result;
    }
};

struct BottomUpTargets final : Services
{
    Surface createDestARGBGPUSurface(const Surface& surface, iGPUImage::eFormat format) override
    {
        Surface result = Services::createDestARGBGPUSurface(surface, format);
        result.setTopDown(surface.isTopDown());
        return result;
    }
};

struct TargetsOf8Bits final : Services
{
    Surface createDestARGBGPUSurface(const Surface& surface, iGPUImage::eFormat) override
    {
        return Services::createDestARGBGPUSurface(surface, iGPUImage::eARGB8);
    }
};

/// What it did not download itself is not there.
struct LosesHostPixels final : Services
{
    Surface copyToHost(const Surface& surface) override
    {
        Surface result = Services::copyToHost(surface);
        if (!surface.getGPUSurface()) {
            result.setHostImage({});
        }
        return result;
    }
};

struct ATexelForEachPixel final : Services
{
    Surface createDestYUY2GPUSurface(const Surface& surface, iGPUImage::eFormat format) override
    {
        Surface result = Services::createDestYUY2GPUSurface(surface, format);
        result.setGPUSurface(Services::createDestARGBGPUSurface(surface, format).getGPUSurface());
        return result;
    }
};

struct WrapsWithoutDepth final : Services
{
    Surface makeWrapper(Ptr<iGPUImage> image) override
    {
        Surface result = Services::makeWrapper(std::move(image));
        result.setBitsPerComponent(8);
        return result;
    }
};

struct WrapsNothing final : Services
{
    Surface makeWrapper(Ptr<iGPUImage> image) override
    {
        return image ? Services::makeWrapper(image) : Surface(1, 1, Image::ARGB, false, 8, 0, 0);
    }
};

struct UnknownIsRGB final : Services
{
    bool isRGB(Image::Format format) override { return !isYUV(format); }
};

struct TenBitsAreRGB final : Services
{
    bool isYUV(Image::Format format) override { return format != Image::V210 && Services::isYUV(format); }
};

struct RoundsDown final : Services
{
    bool convertImage(const Surface& from, Surface& to) override
    {
        const bool converted = Services::convertImage(from, to);
        if (converted && from.getBitsPerComponent() > to.getBitsPerComponent() &&
            to.getBitsPerComponent() == 8) {
            auto* const codes = static_cast<unsigned char*>(to.getHostImage()->map(iHostImage::Write));
            const auto* const fine =
                static_cast<const unsigned char*>(from.getHostImage()->map(iHostImage::Read));
            for (unsigned i = 0; i < from.getWidth() * 2; ++i) {
                codes[i] = fine[2 * i + 1];
            }
        }
        return converted;
    }
};

struct AllocatesBeforeItRefuses final : Services
{
    bool convertImage(const Surface& from, Surface& to) override
    {
        if (!from.getHostImage()) {
            return false;
        }
        return (to.getHostImage() || to.allocateHost()) && Services::convertImage(from, to);
    }
};

struct BlueVariesFastest final : Services
{
    Ptr<iHostImage3D> loadLUT(const LightweightString<wchar_t>& path) override
    {
        const Ptr<iHostImage3D> table = Services::loadLUT(path);
        if (table && table->getSize() == 2) {
            float* const data = table->getData();
            std::swap_ranges(data + 4, data + 8, data + 16);
            std::swap_ranges(data + 12, data + 16, data + 24);
        }
        return table;
    }
};

struct ReadsDamagedFiles final : Services
{
    Ptr<iHostImage3D> loadLUT(const LightweightString<wchar_t>& path) override
    {
        const Ptr<iHostImage3D> table = Services::loadLUT(path);
        const bool isThere = path.view().find(L"table.cube") != std::wstring_view::npos;
        return table || !isThere ? table : os().gpu().createHostImage3D(2);
    }
};

struct TypesWithDots final : Services
{
    void getSupportedLUTTypes(Vector<LightweightString<wchar_t>>& types) override
    {
        Services::getSupportedLUTTypes(types);
        types.emplace_back(L".look");
    }
};

} // namespace

Faults surfaceFaults()
{
    return {
        {"invalid-descriptions-are-accepted", "Surfaces.RefuseInvalidDescriptions",
         overriding<RefusesNothing>},
        {"uploads-lose-the-description",
         "Surfaces.SurviveTheRoundTrip",
         overriding<KeepsOldPixels>,
         {"Surfaces.KeepRowsAsTheyAre"}},
        {"rows-are-rewritten", "Surfaces.KeepRowsAsTheyAre", overriding<DropsPadding>},
        {"targets-are-bottom-up", "Surfaces.HaveTargetsOfARGB", overriding<BottomUpTargets>},
        {"targets-of-8-bits", "Surfaces.HaveTargetsOfEachDepth", overriding<TargetsOf8Bits>},
        {"copies-lose-host-pixels", "Surfaces.AreCopiedInHostMemory", overriding<LosesHostPixels>},
        {"a-texel-for-each-pixel-of-4-2-2", "Surfaces.HaveTargetsOfYUY2", overriding<ATexelForEachPixel>},
        {"wrappers-have-8-bits", "Surfaces.WrapImagesOfEachDepth", overriding<WrapsWithoutDepth>},
        {"nothing-is-wrapped", "Surfaces.WrapImages", overriding<WrapsNothing>},
        {"unknown-formats-are-rgb", "Formats.OfARGBAreRGB", overriding<UnknownIsRGB>},
        {"v210-is-not-ycbcr", "Formats.AreRGBOrYUV", overriding<TenBitsAreRGB>},
        {"fewer-bits-are-cut-off", "ImageConverter.RoundsToFewerBits", overriding<RoundsDown>},
        {"memory-before-the-refusal", "ImageConverter.RefusesOtherPairs",
         overriding<AllocatesBeforeItRefuses>},
        {"blue-varies-fastest", "LUTs.AreRead", overriding<BlueVariesFastest>},
        {"damaged-luts-are-read", "LUTs.NeedASoundFile", overriding<ReadsDamagedFiles>},
        {"types-of-luts-have-dots", "LUTs.AppendTheirTypes", overriding<TypesWithDots>},
    };
}

} // namespace Qx::HostTests
