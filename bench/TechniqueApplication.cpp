#include "image/TechniqueApplication.h"
#include "bench/Fixture.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <benchmark/benchmark.h>

// The cost of one technique application on the calling thread. The images have two texels, so the device is
// never the bottleneck.

namespace Qx::Bench {
namespace {

using namespace Image;

void applyOnce(benchmark::State& state)
{
    const Qx::Ptr<iShaderEffect> effect = getShader(L"null.fx");
    const Surface source = makeWrapper(OS().gpu().createGPUImage({2, 1}, iGPUImage::eARGB8));
    Surface target = makeWrapper(OS().gpu().createGPUImage({2, 1}, iGPUImage::eARGB8));
    if (!applyTechnique(effect, source, target, "Null", 2.0F)) {
        state.SkipWithError("null.fx cannot be applied");
        return;
    }
    for (auto _ : state) {
        applyTechnique(effect, source, target, "Null", 2.0F);
    }
    finish();
}

} // namespace

void registerTechniqueApplication()
{
    benchmark::RegisterBenchmark("one technique application, CPU", applyOnce)->Unit(benchmark::kMicrosecond);
}

} // namespace Qx::Bench
