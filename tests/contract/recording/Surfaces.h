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

/// A surface on the GPU as a frame of that format is uploaded: its image, named "source", holds its rows.
Image::Surface onGPU(Image::Format format, unsigned bits, unsigned width, unsigned height,
                     bool topDown = true);

/// A surface around a new image named "target", one texel a pixel.
Image::Surface target(unsigned width, unsigned height, iGPUImage::eFormat format);

/// "UYVY 1920x1080 8/16 3840": format, size, bits per component and per pixel, row pitch in bytes; and
/// "bottom-up" when it is.
std::string describe(const Image::Surface& surface);

/// What a call writes to standard output.
std::string printedDuring(const std::function<void()>& call);

/// The line of an assertion of the colour converter.
std::string assertionLine(const std::string& condition, int line);

/// A test of the library with "null.fx" and "ColourConvert.fx", both of which have every technique, compiled
/// and colour conversion set up; the journal is empty.
class FormatTest : public LibraryTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Makes the manager anew, so that effects are loaded when they are first asked for.
    static void restart();

    /// The same with an effect that does not compile.
    static void restartWithout(const wchar_t* effect);

    /// Depths of the library's GPU lock in calls of the host's operations from now on, as "operation depth".
    void watchLock(std::initializer_list<const char*> operations);

    Qx::Ptr<FakeEffect> convertFx;
    Qx::Ptr<FakeEffect> nullFx;
    std::vector<std::string> lockDepths;
};

} // namespace Qx::Test
