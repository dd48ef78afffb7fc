#include "bench/Fixture.h"
#include "fonts/GPUFontCache.h"
#include "platform/GPUService.h"

#include <string>

// The cost of text: a font from the cache, shaping, and lines drawn into a 1080p frame with the glyphs
// already on the device. The counter "glyphs/s" is their rate.

namespace Qx::Bench {
namespace {

using benchmark::State;
using Text = LightweightString<wchar_t>;

constexpr int linesPerIteration = 100;
const FontDefinition timeCodeFont{L"DejaVu Sans Mono", 54.0F, 0};
const FontDefinition textFont{L"DejaVu Sans", 24.0F, 0};

Text numbered(int i)
{
    const std::wstring two = std::to_wstring(10 + i % 50);
    return Text(std::wstring_view(L"01:" + two + L":" + two + L":" + two));
}

Text sentence(int i)
{
    return Text(std::wstring_view(L"Take " + std::to_wstring(i) +
                                  L": the quick brown fox jumps over the lazy dog, again and again."));
}

using MakeText = Text (*)(int);

void cachedFont(State& state)
{
    const auto kept = GPUFontCache::instance().getFont(timeCodeFont);
    if (!kept->value()) {
        state.SkipWithError("there is no font");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(GPUFontCache::instance().getFont(timeCodeFont));
    }
}

void countGlyphs(State& state, MakeText make)
{
    std::size_t glyphs = 0;
    for (int i = 0; i < linesPerIteration; ++i) {
        glyphs += make(i).length();
    }
    state.counters["glyphs/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * static_cast<double>(glyphs), benchmark::Counter::kIsRate);
}

void measuring(State& state, const FontDefinition& definition, MakeText make)
{
    const auto font = GPUFontCache::instance().getFont(definition);
    for (auto _ : state) {
        for (int i = 0; i < linesPerIteration; ++i) {
            benchmark::DoNotOptimize(font->value()->measure(make(i)));
        }
    }
    countGlyphs(state, make);
}

void drawing(State& state, const FontDefinition& definition, MakeText make, iGPUImage::eFormat depth)
{
    const auto font = GPUFontCache::instance().getFont(definition);
    const Qx::Ptr<iGPUImage> frame = makePicture(depth).getGPUSurface();
    const auto drawAll = [&] {
        bool drawn = true;
        for (int i = 0; i < linesPerIteration; ++i) {
            drawn = drawn && font->value()->draw(frame, make(i), {20 + i, 9 * i}, {1, 1, 1, 1});
        }
        finish();
        return drawn;
    };
    if (!frame || !font->value() || !drawAll()) {
        state.SkipWithError("nothing is drawn");
        return;
    }
    for (auto _ : state) {
        drawAll();
    }
    countGlyphs(state, make);
}

template <class Function, class... Args>
void add(const std::string& name, benchmark::TimeUnit unit, Function function, Args... args)
{
    benchmark::RegisterBenchmark(name.c_str(), function, args...)->UseRealTime()->Unit(unit);
}

} // namespace

void registerText()
{
    add("a font that the cache has", benchmark::kNanosecond, cachedFont);
    const auto unit = benchmark::kMillisecond;
    add("100 sentences of 24 pixels measured", unit, measuring, textFont, sentence);
    for (const iGPUImage::eFormat depth : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        const std::string bits = std::string(depthName(depth)) + " bits";
        add("100 time codes of 54 pixels drawn, " + bits, unit, drawing, timeCodeFont, numbered, depth);
        add("100 sentences of 24 pixels drawn, " + bits, unit, drawing, textFont, sentence, depth);
    }
}

} // namespace Qx::Bench
