#include "host/effects/framework/RenderTargets.h"

#include "host/core/AsciiCase.h"
#include "host/core/Suggestion.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <set>

namespace Qx::Host::Effects {
namespace {

using Annotation = EffectSyntax::Annotation;
using TargetFormat = CompiledEffect::TargetFormat;
using TargetSize = CompiledEffect::TargetSize;

constexpr std::uint32_t callersTarget = CompiledEffect::Pass::callersTarget;

const Annotation* annotationNamed(const std::vector<Annotation>& annotations, std::string_view name)
{
    const auto found = std::find_if(annotations.begin(), annotations.end(), [name](const auto& annotation) {
        return equalIgnoringCase(annotation.name.text, name);
    });
    return found == annotations.end() ? nullptr : &*found;
}

/// The numbers of "{ 0.5, 1.0 / 4 }", "float2(256, 128)" or "0.5".
std::vector<double> numbersIn(std::string_view text)
{
    std::vector<double> numbers;
    bool divides = false;
    for (const char *at = text.data(), *const end = at + text.size(); at != end;) {
        double value = 0;
        if (std::isalpha(static_cast<unsigned char>(*at)) != 0) {
            while (at != end && std::isalnum(static_cast<unsigned char>(*at)) != 0) {
                ++at;
            }
            continue;
        }
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc()) {
            divides = *at == '/' || (divides && *at == ' ');
            ++at;
            continue;
        }
        if (divides && !numbers.empty()) {
            numbers.back() /= value;
        } else {
            numbers.push_back(value);
        }
        divides = false;
        at = next;
    }
    return numbers;
}

/// The last number of too few.
double numberFrom(const Annotation& annotation, std::size_t index)
{
    const std::vector<double> numbers = numbersIn(annotation.value);
    return numbers.empty() ? 0 : numbers[std::min(index, numbers.size() - 1)];
}

std::uint32_t texelsFrom(const Annotation& annotation, std::size_t index)
{
    constexpr double most = 32768;
    const double texels = numberFrom(annotation, index);
    if (!(texels >= 1 && texels <= most)) {
        throw CompileError(annotation.at, "annotation " + inQuotes(annotation.name.text) +
                                              " has numbers of texels, from 1 to 32768; found " +
                                              annotation.value);
    }
    return static_cast<std::uint32_t>(std::lround(texels));
}

/// In 65536ths.
std::uint32_t ratioFrom(const Annotation& annotation, std::size_t index)
{
    constexpr double most = 16;
    const double ratio = numberFrom(annotation, index);
    if (!(ratio * TargetSize::whole >= 1 && ratio <= most)) {
        throw CompileError(annotation.at,
                           "annotation " + inQuotes(annotation.name.text) +
                               " has parts of the target's size, from 1 / 65536 to 16; found " +
                               annotation.value);
    }
    return static_cast<std::uint32_t>(std::lround(ratio * TargetSize::whole));
}

TargetSize sizeFrom(const EffectSyntax::Texture& texture)
{
    const std::vector<Annotation>& annotations = texture.annotations;
    TargetSize size;
    if (const Annotation* dimensions = annotationNamed(annotations, "Dimensions")) {
        size.width = texelsFrom(*dimensions, 0);
        size.height = texelsFrom(*dimensions, 1);
    }
    if (const Annotation* width = annotationNamed(annotations, "Width")) {
        size.width = texelsFrom(*width, 0);
    }
    if (const Annotation* height = annotationNamed(annotations, "Height")) {
        size.height = texelsFrom(*height, 0);
    }
    constexpr std::uint64_t most = 67108864; // 512 MiB at 16 bits per component
    if (std::uint64_t{size.width} * size.height > most) {
        throw CompileError(texture.name.at, "the texture " + inQuotes(texture.name.text) + " has " +
                                                std::to_string(size.width) + " x " +
                                                std::to_string(size.height) +
                                                " texels; a texture that a pass draws into has at most " +
                                                std::to_string(most) + ", such as 8192 x 8192");
    }
    if (const Annotation* ratio = annotationNamed(annotations, "ViewportRatio")) {
        size.ratioX = ratioFrom(*ratio, 0);
        size.ratioY = ratioFrom(*ratio, 1);
    }
    return size;
}

TargetFormat formatFrom(const std::vector<Annotation>& annotations, Problems& problems)
{
    const Annotation* annotation = annotationNamed(annotations, "Format");
    if (annotation == nullptr) {
        return TargetFormat::Same;
    }
    std::string name = asciiLower(annotation->value);
    if (name.starts_with("d3dfmt_")) {
        name.erase(0, 7);
    }
    const auto has = [&](std::string_view part) { return name.find(part) != std::string::npos; };
    if (name.ends_with('f') || has("float") || has("half")) {
        return TargetFormat::Half;
    }
    if (has("16") || has("10") || has("8")) {
        return has("16") ? TargetFormat::Bits16 : has("10") ? TargetFormat::Bits10 : TargetFormat::Bits8;
    }
    problems.warn({annotation->at, "the format " + inQuotes(annotation->value) +
                                       " is unknown; the texture has that of the target"});
    return TargetFormat::Same;
}

/// One "NAME=VALUE;" of a script.
struct Command
{
    std::string name; ///< in lower case
    std::string value;
};

std::vector<Command> commandsOf(std::string_view script)
{
    std::vector<Command> commands;
    const auto trimmed = [](std::string_view text) {
        constexpr std::string_view blanks = " \t\r\n";
        const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
        return std::string(text.substr(begin, text.find_last_not_of(blanks) + 1 - begin));
    };
    while (!script.empty()) {
        const std::size_t end = std::min(script.find(';'), script.size());
        const std::string_view command = script.substr(0, end);
        script.remove_prefix(std::min(end + 1, script.size()));
        const std::size_t equals = std::min(command.find('='), command.size());
        const std::string name = trimmed(command.substr(0, equals));
        if (!name.empty()) {
            commands.push_back(
                {asciiLower(name), trimmed(command.substr(std::min(equals + 1, command.size())))});
        }
    }
    return commands;
}

/// Runs the scripts of one technique.
class TargetFinder
{
public:
    TargetFinder(const EffectSyntax::Technique& syntax, const CompiledEffect& effect,
                 CompiledEffect::Technique& technique, Problems& problems)
        : syntax_(syntax), effect_(effect), technique_(technique), problems_(problems)
    {
    }

    void run()
    {
        if (const Annotation* script = annotationNamed(syntax_.annotations, "Script")) {
            runScript(*script);
            if (next_ != syntax_.passes.size() && next_ != 0) {
                throw CompileError(script->at, "the script leaves passes out; it has to draw all of them");
            }
        }
        while (next_ < syntax_.passes.size()) {
            runPass();
        }
    }

private:
    void runScript(const Annotation& script)
    {
        for (const Command& command : commandsOf(script.value)) {
            if (command.name == "rendercolortarget" || command.name == "rendercolortarget0") {
                target_ = command.value.empty() ? callersTarget : textureNamed(command.value, script);
            } else if (command.name.starts_with("rendercolortarget") && !command.value.empty()) {
                throw CompileError(script.at, "a pass draws into one texture; " + inQuotes(command.value) +
                                                  " would be a second");
            } else if (command.name == "scriptexternal") {
                target_ = callersTarget; // what was drawn by others is the picture
            } else if (command.name == "pass") {
                startPass(command.value, script);
            } else if (command.name.starts_with("loop")) {
                throw CompileError(script.at, "loops in scripts are not supported; write the passes out");
            } else if (command.name == "draw" && equalIgnoringCase(command.value, "geometry")) {
                throw CompileError(script.at, "the pass draws a mesh, and there is none: an effect draws one "
                                              "rectangle; write Draw=Buffer");
            } else {
                warnOfUnknown(command, script);
            }
        }
    }

    void warnOfUnknown(const Command& command, const Annotation& script)
    {
        // Those that are read above, and those that mean nothing for one rectangle over a new target.
        static constexpr std::array<std::string_view, 14> words{"pass",
                                                                "draw",
                                                                "clear",
                                                                "clearsetcolor",
                                                                "clearsetdepth",
                                                                "clearsetstencil",
                                                                "scriptexternal",
                                                                "scriptsignature",
                                                                "technique",
                                                                "rendercolortarget",
                                                                "rendercolortarget0",
                                                                "rendercolortarget1",
                                                                "renderdepthstenciltarget",
                                                                "renderport"};
        const bool known = std::find(words.begin(), words.end(), command.name) != words.end() ||
                           command.name.starts_with("rendercolortarget");
        if (!known) {
            problems_.warn({script.at, "the script has the unknown word " + inQuotes(command.name) +
                                           ", which is ignored" + didYouMean(command.name, words)});
        }
    }

    void startPass(const std::string& name, const Annotation& script)
    {
        if (next_ == syntax_.passes.size() || syntax_.passes[next_].name.text != name) {
            throw CompileError(script.at,
                               "the script draws the pass " + inQuotes(name) +
                                   " out of turn; passes are drawn once each, in the file's order");
        }
        runPass();
    }

    void runPass()
    {
        const EffectSyntax::Pass& pass = syntax_.passes[next_];
        if (const Annotation* script = annotationNamed(pass.annotations, "Script")) {
            runScript(*script);
        }
        const Annotation* target = annotationNamed(pass.annotations, "Target");
        technique_.passes[next_].target = target != nullptr ? textureNamed(target->value, *target) : target_;
        ++next_;
    }

    std::uint32_t textureNamed(std::string_view name, const Annotation& annotation) const
    {
        std::vector<std::string_view> known;
        for (std::uint32_t i = 0; i < effect_.textures.size(); ++i) {
            if (effect_.textures[i].name == name) {
                return i;
            }
            known.push_back(effect_.textures[i].name);
        }
        throw CompileError(annotation.at, "there is no texture " + inQuotes(name) + " to draw into" +
                                              didYouMean(name, known));
    }

    const EffectSyntax::Technique& syntax_;
    const CompiledEffect& effect_;
    CompiledEffect::Technique& technique_;
    Problems& problems_;
    std::size_t next_ = 0; ///< the pass whose turn it is
    std::uint32_t target_ = callersTarget;
};

} // namespace

void resolveTargets(const EffectSyntax& syntax, CompiledEffect& effect, Problems& problems)
{
    std::set<std::uint32_t> drawn;
    for (std::size_t t = 0; t < effect.techniques.size(); ++t) {
        const Problems::Context at{syntax.techniques[t].name.text, {}};
        try {
            TargetFinder(syntax.techniques[t], effect, effect.techniques[t], problems).run();
        } catch (const CompileError& error) {
            problems.fail(error, at);
        }
        for (const CompiledEffect::Pass& pass : effect.techniques[t].passes) {
            drawn.insert(pass.target);
        }
    }
    drawn.erase(callersTarget);
    for (const std::uint32_t texture : drawn) {
        try {
            effect.textures[texture].targetSize = sizeFrom(syntax.textures[texture]);
            effect.textures[texture].targetFormat =
                formatFrom(syntax.textures[texture].annotations, problems);
        } catch (const CompileError& error) {
            problems.fail(error);
        }
    }
}

void checkTargets(const EffectSyntax& syntax, const CompiledEffect& effect, Problems& problems)
{
    for (std::size_t t = 0; t < effect.techniques.size(); ++t) {
        const std::vector<CompiledEffect::Pass>& passes = effect.techniques[t].passes;
        std::set<std::uint32_t> later; // textures that this pass or one after it draws first
        for (const CompiledEffect::Pass& pass : passes) {
            later.insert(pass.target);
        }
        const std::set<std::uint32_t> drawn = later;
        for (std::size_t p = 0; p < passes.size(); ++p) {
            const EffectSyntax::Pass& syntaxPass = syntax.techniques[t].passes[p];
            const Problems::Context at{syntax.techniques[t].name.text, syntaxPass.name.text};
            for (const std::uint32_t sampler : passes[p].samplers) {
                const std::uint32_t texture = effect.samplers[sampler].texture;
                const std::string name = inQuotes(effect.textures[texture].name);
                if (effect.samplers[sampler].dimensions == 3 && drawn.count(texture) != 0) {
                    problems.fail({syntaxPass.keyword.at, "the pass reads the texture " + name +
                                                              " as a volume, and a pass draws it"},
                                  at);
                } else if (texture == passes[p].target && p + 1 < passes.size()) { // the last draws into none
                    problems.fail({syntaxPass.keyword.at, "the pass reads the texture " + name +
                                                              " that it draws into; draw into another"},
                                  at);
                } else if (texture != passes[p].target && later.count(texture) != 0) {
                    problems.fail({syntaxPass.keyword.at,
                                   "the pass reads the texture " + name + " before a pass has drawn it"},
                                  at);
                }
            }
            later.erase(passes[p].target);
        }
        if (!passes.empty() && passes.back().target != callersTarget) {
            problems.fail({syntax.techniques[t].passes.back().keyword.at,
                           "the last pass draws into the texture " +
                               inQuotes(effect.textures[passes.back().target].name) +
                               ", so the technique has no result; let it draw without a target, after "
                               "'RenderColorTarget0=;' in a script"},
                          {syntax.techniques[t].name.text, syntax.techniques[t].passes.back().name.text});
        }
    }
}

} // namespace Qx::Host::Effects
