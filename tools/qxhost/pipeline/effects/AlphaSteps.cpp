#include "tools/qxhost/pipeline/effects/AlphaSteps.h"

#include "host/core/AsciiCase.h"

namespace Qx::Program {

namespace {

using Media::AlphaKind;

EffectRequest alphaStep(const char* technique)
{
    EffectRequest step;
    step.file = "Alpha.fx";
    step.technique = technique;
    return step;
}

} // namespace

AlphaKind alphaOf(const Media::StreamInfo& info)
{
    return info.codec == "exr" ? AlphaKind::premultiplied : AlphaKind::straight;
}

AlphaKind alphaFor(const std::filesystem::path& output)
{
    return Host::asciiLower(output.extension().native()) == ".exr" ? AlphaKind::premultiplied
                                                                   : AlphaKind::straight;
}

const char* nameOf(AlphaKind kind)
{
    switch (kind) {
    case AlphaKind::straight:
        break;
    case AlphaKind::premultiplied:
        return "premultiplied";
    case AlphaKind::none:
        return "none";
    }
    return "straight";
}

std::vector<std::string> fitAlpha(ConvertOptions& options, const Media::StreamInfo& info)
{
    std::vector<std::string> notes;
    std::vector<EffectRequest>& effects = options.effects;
    const AlphaKind given = options.alpha.value_or(alphaOf(info));
    const AlphaKind wanted = alphaFor(options.namedOutput());
    if (given == wanted && effects.empty()) {
        return notes;
    }
    if (given == AlphaKind::premultiplied) {
        effects.insert(effects.begin(), alphaStep("Unpremultiply"));
        notes.push_back(options.inputName() +
                        ": its colours are taken as multiplied by their alpha, and divided by it" +
                        (options.alpha ? "" : "; --alpha straight leaves them"));
    }
    if (wanted == AlphaKind::premultiplied) {
        effects.push_back(alphaStep("Premultiply"));
        notes.push_back(options.outputName() +
                        ": colours are multiplied by their alpha, as OpenEXR has them" +
                        (given == AlphaKind::straight && !options.alpha
                             ? "; --alpha premultiplied says that they are already"
                             : ""));
    }
    return notes;
}

} // namespace Qx::Program
