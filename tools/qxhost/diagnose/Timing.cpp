#include "tools/qxhost/diagnose/Timing.h"

#include "host/gpu/GPUService.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <utility>

namespace Qx::Diagnosis {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t mostSamples = 400;
constexpr double millisecondsPerSecond = 1000;

double millisecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

bool order(const std::function<bool()>& frame, int frames)
{
    for (int i = 0; i < frames; ++i) {
        if (!frame()) {
            return false;
        }
    }
    return true;
}

/// One block by the process's clock: so many frames, and the wait for the last.
std::optional<double> timeBlock(Probe& probe, const std::function<bool()>& frame, int frames)
{
    const Clock::time_point begin = Clock::now();
    const bool done = order(frame, frames) && probe.finish();
    return done ? std::optional(millisecondsSince(begin) / frames) : std::nullopt;
}

bool hasTimer()
{
    const std::vector<Host::DeviceDescription> devices = Host::gpuService().listDevices();
    return std::any_of(devices.begin(), devices.end(),
                       [](const auto& device) { return device.chosen && device.hasTimer; });
}

/// One block by the device's clock.
std::optional<double> timeBlockOnDevice(const std::function<bool()>& frame, int frames)
{
    if (!Host::gpuService().startTimer()) {
        return std::nullopt;
    }
    const bool ordered = order(frame, frames);
    const std::optional<Host::GPUTime> time = Host::gpuService().stopTimer();
    return ordered && time && time->batches > 0 ? std::optional(time->busyMilliseconds / frames)
                                                : std::nullopt;
}

/// Calls `sample` until the budget is used up or a sample is missing.
template <class Sample>
Timing collect(Probe& probe, Basis basis, Sample sample)
{
    Timing timing;
    timing.basis = basis;
    const Clock::time_point end = Clock::now() + probe.budget();
    do {
        const std::optional<double> milliseconds = sample();
        if (!milliseconds) {
            timing.failed = true;
            return timing;
        }
        timing.samples.push_back(*milliseconds);
    } while (Clock::now() < end && timing.samples.size() < mostSamples);
    return timing;
}

Timing failure()
{
    Timing timing;
    timing.failed = true;
    return timing;
}

Figure figureOf(std::string id, std::string group, std::string title, const Timing& timing, const char* unit,
                Better better)
{
    Figure figure;
    figure.id = std::move(id);
    figure.group = std::move(group);
    figure.title = std::move(title);
    figure.unit = unit;
    figure.better = better;
    figure.basis = timing.basis;
    figure.samples = timing.samples;
    figure.failed = timing.failed;
    if (timing.failed) {
        figure.note = timing.samples.empty()
                          ? "the device refused the first frames"
                          : "the device refused a frame, or did not finish it, after others had gone well";
    }
    return figure;
}

} // namespace

std::optional<double> Timing::milliseconds() const
{
    if (failed || samples.empty()) {
        return std::nullopt;
    }
    std::vector<double> sorted = samples;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    return *middle;
}

namespace {

/// How many frames make a block, after a warm-up; empty when the device refuses. Long blocks would have more
/// images under way than caches hold, which no editor has.
std::optional<int> blockLength(Probe& probe, const std::function<bool()>& frame)
{
    constexpr double blockMilliseconds = 12;
    constexpr double mostFrames = 32;
    // The first frame pays for what is made at first use. When even it is long, a second one tells no more.
    std::optional<double> one = timeBlock(probe, frame, 1);
    if (one && *one < blockMilliseconds) {
        one = timeBlock(probe, frame, 1);
    }
    if (!one) {
        return std::nullopt;
    }
    const int frames =
        static_cast<int>(std::clamp(blockMilliseconds / std::max(*one, 1e-3), 1.0, mostFrames));
    // The first block pays for as many images as it has under way.
    const bool warm = frames == 1 || timeBlock(probe, frame, frames);
    return warm ? std::optional(frames) : std::nullopt;
}

} // namespace

Timing timeFrames(Probe& probe, const std::function<bool()>& frame)
{
    const std::optional<int> frames = blockLength(probe, frame);
    return frames ? collect(probe, Basis::waited, [&] { return timeBlock(probe, frame, *frames); })
                  : failure();
}

Timing timeDrawing(Probe& probe, const std::function<bool()>& frame)
{
    const std::optional<int> frames = blockLength(probe, frame);
    if (!frames) {
        return failure();
    }
    const Basis basis = hasTimer() ? Basis::device : Basis::waited;
    return collect(probe, basis, [&] {
        return basis == Basis::device ? timeBlockOnDevice(frame, *frames) : timeBlock(probe, frame, *frames);
    });
}

Timing timeWork(Probe& probe, const std::function<bool()>& frame, Basis basis)
{
    const auto once = [&]() -> std::optional<double> {
        const Clock::time_point begin = Clock::now();
        return frame() ? std::optional(millisecondsSince(begin)) : std::nullopt;
    };
    return collect(probe, basis, once);
}

Figure rateFigure(std::string id, std::string group, std::string title, const Timing& timing)
{
    Figure figure =
        figureOf(std::move(id), std::move(group), std::move(title), timing, "frames/s", Better::higher);
    if (const auto time = timing.milliseconds()) {
        figure.value = millisecondsPerSecond / *time;
    }
    return figure;
}

Figure bandwidthFigure(std::string id, std::string group, std::string title, const Timing& timing,
                       double bytes)
{
    Figure figure =
        figureOf(std::move(id), std::move(group), std::move(title), timing, "GB/s", Better::higher);
    constexpr double bytesPerMillisecond = 1e6;
    if (const auto time = timing.milliseconds()) {
        figure.value = bytes / *time / bytesPerMillisecond;
    }
    return figure;
}

Figure durationFigure(std::string id, std::string group, std::string title, const Timing& timing)
{
    Figure figure = figureOf(std::move(id), std::move(group), std::move(title), timing, "ms", Better::lower);
    figure.value = timing.milliseconds();
    return figure;
}

Figure notMeasured(std::string id, std::string group, std::string title, std::string unit, std::string why)
{
    Figure figure;
    figure.id = std::move(id);
    figure.group = std::move(group);
    figure.title = std::move(title);
    figure.unit = std::move(unit);
    figure.basis = Basis::counted;
    figure.note = std::move(why);
    return figure;
}

} // namespace Qx::Diagnosis
