#pragma once

#include "host/gpu/DeviceSharing.h"
#include "tests/host/gpu/GpuFixture.h"

#include <filesystem>
#include <string>

namespace Qx::GpuTests {

constexpr XY<int> sharedSize{61, 37};

/// Tests of images whose memory is passed on as a file descriptor.
class ExchangeTest : public GpuTest
{
protected:
    using GpuTest::GpuTest;

    Host::ImageSharing sharing() { return Host::ImageSharing(gpu()); }

    /// Why this device shares no such memory; empty if it does.
    std::string reason(Host::MemoryHandle handle);

    /// What the service says when it refuses the import.
    std::string refusal(const Host::ExportedImage& bad);

    /// An exportable image that holds these bytes.
    Qx::Ptr<iGPUImage> exportable(iGPUImage::eFormat format, const Bytes& bytes, Host::MemoryHandle handle);

    static Bytes contentOf(GPUService& service, const Qx::Ptr<iGPUImage>& image, std::size_t count);

    /// Another device of the process reads what was exported, and returns it.
    void passToAnotherDevice(iGPUImage::eFormat format, Host::MemoryHandle handle);

    /// Another process reads what was exported, draws into it, and returns it.
    void passToAnotherProcess(Host::MemoryHandle handle);
};

/// A descriptor that is closed at the end.
class Closing
{
public:
    explicit Closing(int descriptor) : descriptor_(descriptor) {}
    ~Closing();
    Closing(const Closing&) = delete;
    Closing& operator=(const Closing&) = delete;

private:
    int descriptor_;
};

} // namespace Qx::GpuTests
