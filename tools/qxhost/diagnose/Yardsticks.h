#pragma once

#include "tools/qxhost/diagnose/FrameSizes.h"
#include "tools/qxhost/diagnose/Timing.h"

#include <map>
#include <optional>

namespace Qx::Diagnosis {

/// What plain copies make on this machine, to hold other figures against. Each is measured when it is first
/// asked for, after a warm-up.
class Yardsticks
{
public:
    explicit Yardsticks(Probe& probe) : probe_(probe) {}

    /// A copy between two images of 1920 x 1080 on the device; 8 or 16 bits a component.
    const Timing& deviceCopy(iGPUImage::eFormat format);

    /// A copy in memory by one thread, of as many bytes as an image of that size with 8 bits a component.
    const Timing& memoryCopy(const FrameSize& size);

    /// Gives a rate of frames on the device what copying as many bytes would make. `bytes`: read and written
    /// for a frame.
    void compareWithDevice(Figure& figure, double bytes, iGPUImage::eFormat format);

    /// The same for a bandwidth between memory and the device.
    void compareWithMemory(Figure& figure, const FrameSize& size);

private:
    Probe& probe_;
    std::map<iGPUImage::eFormat, Timing> device_;
    std::map<double, Timing> memory_;
};

/// Bytes of an image with that many bits a component.
double bytesOf(const FrameSize& size, iGPUImage::eFormat format);

} // namespace Qx::Diagnosis
