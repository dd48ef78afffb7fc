#include "gputests/GPUTests.h"
#include "gputests/TimedLoop.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

namespace {

/// Measures how often `transfer(image)` returns an image. The test ends before the image is released.
template <class Image, class Transfer>
void testTransfer(LoggerBase& log, const Qx::Ptr<Image>& image, Transfer transfer)
{
    if (image) {
        Qx::runTimedLoop(log, [&] {
            Qx::TimedIteration iteration;
            iteration.failed = !transfer(image);
            return iteration;
        });
    } else {
        log.logLine(L"Failed to create test image", Qx::GPUTestLog::failure);
    }
    log.endTest();
}

} // namespace

void GPUTests::hostToGPUTransferTest(LoggerBase& log) noexcept
{
    log.logLine(L"Testing host to GPU transfer", Qx::GPUTestLog::heading);
    testTransfer(log, OS().gpu().createHostImage(testImageSize()),
                 [](const Qx::Ptr<iHostImage>& image) { return OS().gpu().uploadImage(image, 0); });
}

void GPUTests::GPUToHostTransferTest(LoggerBase& log) noexcept
{
    log.logLine(L"Testing GPU to host transfer", Qx::GPUTestLog::heading);
    testTransfer(log, OS().gpu().createGPUImage(testImageSize(), iGPUImage::eARGB8),
                 [](const Qx::Ptr<iGPUImage>& image) { return OS().gpu().downloadImage(image); });
}
