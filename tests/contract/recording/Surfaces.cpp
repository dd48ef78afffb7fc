#include "tests/contract/recording/Surfaces.h"

#include "QxFxResources/Manager.h"
#include "host/surfaces/RowGeometry.h"
#include "image/TechniqueApplication.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace Qx::Test {

using namespace Image;
using FxResources::Manager;

/// A description in which no attribute has its default.
ImageDescriptions unusualDescriptions()
{
    ImageDescriptions d;
    d.frame.setTransparency(TransparencyType::Premultiplied);
    d.frame.setPixelAspect(1.25F);
    d.frame.setRaster(Raster::LowerField);
    d.frame.setRepeated(255);
    d.frame.frameNumber = 0xFFFFFFFFU;
    d.frame.frameRateNumerator = 30000;
    d.frame.frameRateDenominator = 1001;
    d.frame.dropFrame = true;
    d.signal.setPolarity(Polarity::LowerFieldFirst);
    d.signal.setColourSpace(ColourSpace::BT709);
    d.signal.setGamutScaling(GamutScaling::Video);
    d.signal.setGuessed(1);
    d.signal.colourPrimaries = 9;
    d.signal.transferCharacteristics = 14;
    d.signal.matrixCoefficients = 1;
    d.signal.interlacedChroma = true;
    return d;
}

Surface onGPU(Format format, unsigned bits, unsigned width, unsigned height, bool topDown)
{
    Surface surface(width, height, format, !topDown, static_cast<unsigned short>(bits), 0, 0);
    const auto geometry = Host::rowGeometryOf(surface.getData());
    const XY<int> size = geometry ? geometry->imageSize() : XY<int>{1, 1};
    const iGPUImage::eFormat texels = geometry ? geometry->texels : iGPUImage::eARGB8;
    surface.setGPUSurface(Qx::makePtr<FakeGPUImage>("source", size, texels));
    return surface;
}

void pad(Surface& surface, iGPUImage::eFormat format)
{
    constexpr int texels = 64;
    const XY<int> size = surface.getGPUSurface()->getSize();
    surface.setRowPitch(surface.getRowPitch() + texels * (format == iGPUImage::eARGB16 ? 8 : 4));
    surface.setGPUSurface(Qx::makePtr<FakeGPUImage>("source", XY<int>{size.x + texels, size.y + 8}, format));
}

Surface target(unsigned width, unsigned height, iGPUImage::eFormat format)
{
    return makeWrapper(Qx::makePtr<FakeGPUImage>(
        "target", XY<int>{static_cast<int>(width), static_cast<int>(height)}, format));
}

std::string describe(const Surface& surface)
{
    const auto code = static_cast<std::uint32_t>(surface.getDataFormat());
    std::string result;
    if (code < 0x100) {
        result = std::to_string(code);
    } else {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            result += static_cast<char>(code >> shift & 0xFF);
        }
    }
    result += " " + std::to_string(surface.getWidth()) + "x" + std::to_string(surface.getHeight()) + " " +
              std::to_string(surface.getBitsPerComponent()) + "/" +
              std::to_string(surface.getBitsPerPixel()) + " " + std::to_string(surface.getRowPitch());
    return result + (surface.isTopDown() ? "" : " bottom-up");
}

std::string printedDuring(const std::function<void()>& call)
{
    testing::internal::CaptureStdout();
    call();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

std::string assertionLine(const std::string& condition, int line)
{
    return "assertion failed " + condition + " at QxFxResources/GPUColourConverter line " +
           std::to_string(line) + "\n";
}

void FormatTest::SetUp()
{
    LibraryTest::SetUp();
    convertFx = Qx::makePtr<FakeEffect>("ColourConvert.fx");
    convertFx->haveParameters({"pSourceImageTotalWidthInDWORDs", "DestImageWidth"});
    nullFx = Qx::makePtr<FakeEffect>("null.fx");
    host().addFile(L"/shaders/", L"null.fx");
    host().addFile(L"/shaders/", L"ColourConvert.fx");
    host().makeEffect = [this](const std::wstring& path) -> Qx::Ptr<iShaderEffect> {
        return path == L"/shaders/null.fx" ? nullFx : convertFx;
    };
    getShader(L"null.fx");
    getShader(L"ColourConvert.fx");
    host().journal.clear();
}

void FormatTest::TearDown()
{
    convertFx.reset();
    nullFx.reset();
    LibraryTest::TearDown();
}

void FormatTest::restart()
{
    Manager::shutdown(Shutdown::NormalExit);
    Manager::instance();
    host().journal.clear();
}

void FormatTest::restartWithout(const wchar_t* effect)
{
    host().compileErrors[std::wstring(L"/shaders/") + effect] = "error";
    restart();
}

void FormatTest::watchLock(std::initializer_list<const char*> operations)
{
    for (const std::string operation : operations) {
        host().script.during(operation, [this, operation] {
            lockDepths.push_back(operation + " " + std::to_string(depthOf(Manager::instance().gpuLock())));
        });
    }
}

} // namespace Qx::Test
