#include "bench/Catalogue.h"

#include "host/Host.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>
#include <vector>

namespace Qx::Bench {
namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

std::vector<std::filesystem::path> effectsIn(const std::filesystem::path& directory)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().extension() == ".fx") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// Blocks until all drawing into an image has finished. Unlike finish(), it needs none of the library's
/// effects.
void waitFor(Image::Surface& target)
{
    if (const Qx::Ptr<iHostImage> image = OS().gpu().downloadImage(target.getGPUSurface())) {
        image->map(iHostImage::Read);
    }
}

/// Returns the time of each technique's first draw until the device has finished, or an empty result if one
/// fails.
std::vector<double> drawAll(const std::vector<Qx::Ptr<iShaderEffect>>& effects)
{
    constexpr XY<int> size{64, 64};
    const auto image = [&] { return Image::makeWrapper(OS().gpu().createGPUImage(size, iGPUImage::eARGB8)); };
    const Image::Surface source = image();
    Image::Surface target = image();
    waitFor(target); // excludes the cost of the device's first use
    std::vector<double> times;
    for (const Qx::Ptr<iShaderEffect>& effect : effects) {
        for (const LightweightString<char>& technique : effect->getTechniqueNames()) {
            const Clock::time_point begin = Clock::now();
            if (!Image::applyTechnique(effect, source, target, technique, static_cast<float>(size.x))) {
                return {};
            }
            waitFor(target);
            times.push_back(millisecondsSince(begin));
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

} // namespace

int runCatalogue(const std::filesystem::path& directory)
{
    const Clock::time_point begin = Clock::now();
    Host::StartOptions options;
    options.quiet = true;
    Host::start(options);
    std::vector<Qx::Ptr<iShaderEffect>> effects;
    for (const std::filesystem::path& file : effectsIn(directory)) {
        effects.push_back(OS().gpu().loadEffectFile(fromUTF8(file.c_str()), {}));
    }
    const double load = millisecondsSince(begin);
    const bool loaded = !effects.empty() && std::all_of(effects.begin(), effects.end(),
                                                        [](const auto& effect) { return bool(effect); });
    const std::vector<double> draws = loaded ? drawAll(effects) : std::vector<double>();
    effects.clear();
    Host::stop();
    if (draws.empty()) {
        std::fprintf(stderr, "the catalogue in %s could not be %s\n", directory.c_str(),
                     loaded ? "drawn" : "loaded");
        return 1;
    }
    std::printf("%.3f %.3f %.3f\n", load, draws[draws.size() / 2], draws.back());
    return 0;
}

} // namespace Qx::Bench
