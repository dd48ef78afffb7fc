#include "bench/Fixture.h"

#include <deque>

namespace Qx::Bench {

using namespace Image;

void measureOnDevice(benchmark::State& state, const Surface& target, const std::function<bool()>& draw)
{
    constexpr int framesPerIteration = 16;
    const Qx::Ptr<iGPUImage> image = target.getGPUSurface();
    if (!image || !draw()) {
        state.SkipWithError("nothing is drawn");
        return;
    }
    finish();
    for (auto _ : state) {
        for (int i = 0; i < framesPerIteration; ++i) {
            draw();
        }
        finish();
    }
    const XY<int> size = image->getSize();
    state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()) * framesPerIteration,
                                               benchmark::Counter::kIsRate);
    state.counters["bytes"] = static_cast<double>(size.x) * size.y * image->getBitsPerTexel() / 8.0;
}

void measureThereAndBack(benchmark::State& state, const std::function<Qx::Ptr<iHostImage>()>& start)
{
    constexpr int framesInFlight = 3;
    std::deque<Qx::Ptr<iHostImage>> results;
    for (int i = 0; i < framesInFlight; ++i) {
        results.push_back(start());
    }
    for (auto _ : state) {
        if (!results.front() || results.front()->map(iHostImage::Read) == nullptr) {
            state.SkipWithError("no frame came back");
            return;
        }
        results.pop_front();
        results.push_back(start());
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

} // namespace Qx::Bench
