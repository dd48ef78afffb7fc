#include "QxFxResources/Manager.h"
#include "platform/Settings.h"

#include <benchmark/benchmark.h>

// The time that a host waits before the first frame.

namespace Qx::Bench {
namespace {

void compileConversions(benchmark::State& state)
{
    const LightweightString<wchar_t> path = getShadersDir() + L"ColourConvert.fx";
    for (auto _ : state) {
        if (!FxResources::Manager::instance().compileFXFile(path).effect) {
            state.SkipWithError("ColourConvert.fx does not compile");
            return;
        }
    }
}

void scanCatalogue(benchmark::State& state)
{
    for (auto _ : state) {
        Qx::Vector<FxResources::ShaderEffectInfo> records;
        FxResources::Manager::getFXFiles(records);
        benchmark::DoNotOptimize(records.data());
    }
}

} // namespace

void registerStartUp()
{
    benchmark::RegisterBenchmark("scan of the effect directories", scanCatalogue)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("compilation of ColourConvert.fx, all techniques", compileConversions)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace Qx::Bench
