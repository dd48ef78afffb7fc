#include "QxFxResources/Manager.h"
#include "gputests/GPUTests.h"
#include "gputests/TimedLoop.h"
#include "platform/Clock.h"
#include "platform/GPUService.h"
#include "platform/GraphicPrimitives.h"
#include "platform/OS.h"

using Qx::FxResources::Manager;
using Qx::FxResources::ShaderEffectInfo;

namespace {

constexpr int ownLayer = 1;

const ShaderEffectInfo& testEffect()
{
    return Manager::instance().findEffect(L"cc3.fx");
}

/// Draws the source over the whole target through the effect's current shader, which a recompilation may have
/// replaced.
ImageDescriptionEx testDrawing(const Qx::Ptr<iGPUImage>& source, const ShaderEffectInfo& effect)
{
    const XY<int> size = GPUTests::testImageSize();
    const RectangleOf<float> whole{0.0F, 0.0F, static_cast<float>(size.x), static_cast<float>(size.y)};
    ImageDescriptionEx drawing;
    drawing.image = source;
    drawing.effect = effect.getShader();
    drawing.source = whole;
    drawing.destination = whole;
    drawing.blend = false;
    return drawing;
}

Qx::Ptr<iGPUImage> createTestImage()
{
    return OS().gpu().createGPUImage(GPUTests::testImageSize(), iGPUImage::eARGB8);
}

void measureDraws(LoggerBase& log, const ShaderEffectInfo& effect)
{
    constexpr int draws = 2000;
    const Qx::Ptr<iGPUImage> target = createTestImage();
    const Qx::Ptr<iGPUImage> source = createTestImage();
    const auto renderer =
        target && source ? target->getPrimitivesRenderer(ownLayer) : Qx::Ptr<iGraphicPrimitivesRenderer>();
    if (!renderer) {
        log.logLine(L"Failed to create test images", Qx::GPUTestLog::failure);
        return;
    }
    const ImageDescriptionEx drawing = testDrawing(source, effect);
    const double start = service_get_msecs_precise();
    for (int i = 0; i < draws; ++i) {
        renderer->draw(drawing, ownLayer);
    }
    Qx::GPUTestLog::logRate(log, draws, service_get_msecs_precise() - start);
}

/// Returns false if the target has no renderer.
bool drawOnce(const Qx::TimedIteration& images, const ShaderEffectInfo& effect)
{
    const Qx::Ptr<iGraphicPrimitivesRenderer> renderer = images.target->getPrimitivesRenderer(ownLayer);
    if (!renderer) {
        return false;
    }
    renderer->draw(testDrawing(images.source, effect), ownLayer);
    return true;
}

void measureFrames(LoggerBase& log, const ShaderEffectInfo& effect, bool readBack)
{
    const Qx::Ptr<iHostImage> frame = OS().gpu().createHostImage(GPUTests::testImageSize());
    if (!frame) {
        log.logLine(L"Failed to create test images", Qx::GPUTestLog::failure);
        return;
    }
    Qx::runTimedLoop(log, [&] {
        Qx::TimedIteration iteration;
        iteration.source = OS().gpu().uploadImage(frame, 0);
        iteration.target = createTestImage();
        iteration.failed = !iteration.source || !iteration.target || !drawOnce(iteration, effect);
        if (readBack && !iteration.failed) {
            OS().gpu().downloadImage(iteration.target);
        }
        return iteration;
    });
}

/// Runs `measure(effect)` if the test's effect is available, and ends the test.
template <class Measure>
void testDrawingWith(LoggerBase& log, Measure measure)
{
    const ShaderEffectInfo& effect = testEffect();
    if (effect.getShader()) {
        measure(effect);
    } else {
        log.logLine(L"Failed to load shader", Qx::GPUTestLog::failure);
    }
    log.endTest();
}

} // namespace

void GPUTests::shaderPerformanceTest(LoggerBase& log) noexcept
{
    log.logLine(L"Testing shader performance", Qx::GPUTestLog::heading);
    testDrawingWith(log, [&log](const ShaderEffectInfo& effect) { measureDraws(log, effect); });
}

void GPUTests::combinedTest(LoggerBase& log, bool readBack) noexcept
{
    log.logLine(readBack ? L"Testing render performance" : L"Testing playback performance",
                Qx::GPUTestLog::heading);
    testDrawingWith(log, [&](const ShaderEffectInfo& effect) { measureFrames(log, effect, readBack); });
}

void GPUTests::combinedTestWithReadBack(LoggerBase& log) noexcept
{
    combinedTest(log, true);
}

void GPUTests::combinedTestWithoutReadback(LoggerBase& log) noexcept
{
    combinedTest(log, false);
}
