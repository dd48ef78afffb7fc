#pragma once

#include "platform/Surface.h"
#include "tests/contract/recording/LibraryTest.h"
#include "tests/contract/recording/RecordingHost.h"

#include <functional>
#include <string>
#include <vector>

namespace Qx::Test {

/// A description in which no attribute has its default.
Image::ImageDescriptions unusualDescriptions();

/// Creates a surface on the GPU as after uploading a frame of that format: its image, named "source", holds
/// its rows.
Image::Surface onGPU(Image::Format format, unsigned bits, unsigned width, unsigned height,
                     bool topDown = true);

/// Replaces a surface's image by one of the same name with 64 texels of padding in each row and 8 more rows,
/// of any depth.
void pad(Image::Surface& surface, iGPUImage::eFormat format);

/// Creates a surface with a new image named "target", one texel per pixel.
Image::Surface target(unsigned width, unsigned height, iGPUImage::eFormat format);

/// Describes a surface, "UYVY 1920x1080 8/16 3840": format, size, bits per component and per pixel, row pitch
/// in bytes, and "bottom-up" if it is.
std::string describe(const Image::Surface& surface);

/// Returns what a call writes to standard output.
std::string printedDuring(const std::function<void()>& call);

/// Returns the line of an assertion of the colour converter.
std::string assertionLine(const std::string& condition, int line);

/// A test of the library with "null.fx" and "ColourConvert.fx", which have every technique and are compiled,
/// and colour conversion set up. The journal is empty.
class FormatTest : public LibraryTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Recreates the manager, so that effects are loaded on first request.
    static void restart();

    /// As above with an effect that does not compile.
    static void restartWithout(const wchar_t* effect);

    /// Records the depth of the library's GPU lock in the following calls of the host's operations, as
    /// "operation depth".
    void watchLock(std::initializer_list<const char*> operations);

    Qx::Ptr<FakeEffect> convertFx;
    Qx::Ptr<FakeEffect> nullFx;
    std::vector<std::string> lockDepths;
};

} // namespace Qx::Test
