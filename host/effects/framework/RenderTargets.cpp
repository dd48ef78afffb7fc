#include "host/effects/framework/RenderTargets.h"

#include "host/core/AsciiCase.h"
#include "host/core/Suggestion.h"
#include "host/effects/framework/AnnotationNumbers.h"

#include <algorithm>
#include <array>
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
    if (name.size() > 1 && name[0] == 'd' && name[1] >= '0' && name[1] <= '9') {
        problems.warn({annotation->at, "the format " + inQuotes(annotation->value) +
                                           " is of depth; the texture has that of the target"});
        return TargetFormat::Same;
    }
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
    std::string name;    ///< in lower case
    std::string written; ///< the same as the author wrote it
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
                {asciiLower(name), name, trimmed(command.substr(std::min(equals + 1, command.size())))});
        }
    }
    return commands;
}

/// Runs the scripts of one technique.
class TargetFinder
{
public:
    TargetFinder(EffectSyntax::Technique& syntax, const CompiledEffect& effect, const ResultsOf& resultsOf,
                 Problems& problems)
        : syntax_(syntax), effect_(effect), resultsOf_(resultsOf), problems_(problems)
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
        syntax_.passes = std::move(drawn_);
    }

private:
    using Targets = decltype(EffectSyntax::Pass::targets);

    void runScript(const Annotation& script)
    {
        for (const Command& command : commandsOf(script.value)) {
            if (const std::optional<std::size_t> result = resultIn(command.name, "rendercolortarget")) {
                setTarget(targets_, *result, command.value, script);
            } else if (command.name == "scriptexternal") {
                targets_ = CompiledEffect::Pass::noTargets(); // what was drawn by others is the picture
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
        static constexpr std::array<std::string_view, 16> words{"Pass",
                                                                "Draw",
                                                                "Clear",
                                                                "ClearSetColor",
                                                                "ClearSetDepth",
                                                                "ClearSetStencil",
                                                                "ScriptExternal",
                                                                "ScriptSignature",
                                                                "Technique",
                                                                "RenderColorTarget",
                                                                "RenderColorTarget0",
                                                                "RenderColorTarget1",
                                                                "RenderColorTarget2",
                                                                "RenderColorTarget3",
                                                                "RenderDepthStencilTarget",
                                                                "RenderPort"};
        const bool known = std::any_of(words.begin(), words.end(), [&](std::string_view word) {
            return equalIgnoringCase(word, command.name);
        });
        if (!known) {
            problems_.warn({script.at, "the script has the unknown word " + inQuotes(command.written) +
                                           ", which is ignored" + didYouMean(command.written, words)});
        }
    }

    void startPass(const std::string& name, const Annotation& script)
    {
        std::vector<std::string_view> known;
        for (const EffectSyntax::Pass& pass : syntax_.passes) {
            known.push_back(pass.name.text);
        }
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw CompileError(script.at, "the script draws the pass " + inQuotes(name) +
                                              ", which the technique has not" + didYouMean(name, known));
        }
        if (next_ == syntax_.passes.size() || syntax_.passes[next_].name.text != name) {
            throw CompileError(script.at,
                               "the script draws the pass " + inQuotes(name) +
                                   " out of turn; passes are drawn once each, in the file's order");
        }
        runPass();
    }

    void runPass()
    {
        EffectSyntax::Pass& pass = syntax_.passes[next_];
        named_.fill(nullptr);
        if (const Annotation* script = annotationNamed(pass.annotations, "Script")) {
            runScript(*script);
        }
        pass.targets = targets_;
        for (const Annotation& annotation : pass.annotations) {
            if (const auto result = resultIn(asciiLower(annotation.name.text), "target")) {
                setTarget(pass.targets, *result, annotation.value, annotation);
            }
        }
        ++next_;
        addResults(std::move(pass));
    }

    /// The N of "targetN", 0 of "target".
    static std::optional<std::size_t> resultIn(std::string_view name, std::string_view word)
    {
        if (!name.starts_with(word)) {
            return std::nullopt;
        }
        const std::string_view digit = name.substr(word.size());
        const bool isDigit = digit.size() == 1 && digit[0] >= '0' && digit[0] <= '9';
        return digit.empty() ? std::optional<std::size_t>(0)
               : isDigit     ? std::optional(static_cast<std::size_t>(digit[0] - '0'))
                             : std::nullopt;
    }

    void setTarget(Targets& targets, std::size_t result, const std::string& texture, const Annotation& by)
    {
        if (result < targets.size()) {
            targets.at(result) = texture.empty() ? callersTarget : textureNamed(texture, by);
            named_.at(result) = &by;
        } else if (!texture.empty()) {
            throw CompileError(by.at, "a pass draws into four textures at most, those of COLOR0 to COLOR3; " +
                                          inQuotes(texture) + " would be that of COLOR" +
                                          std::to_string(result));
        }
    }

    /// Each result that has a target is drawn by a pass of its own. A script's target that stays from an
    /// earlier pass is none of a shader that has no such result.
    void addResults(EffectSyntax::Pass pass)
    {
        const Targets named = pass.targets;
        const bool several = std::any_of(named.begin() + 1, named.end(),
                                         [](std::uint32_t target) { return target != callersTarget; });
        const std::optional<std::set<std::size_t>> results =
            several ? resultsOf_(pass) : std::optional<std::set<std::size_t>>();
        for (std::size_t i = 1; i < named.size(); ++i) {
            if (named.at(i) == callersTarget || (results && results->count(i) != 0)) {
                continue;
            }
            pass.targets.at(i) = callersTarget;
            if (results && named_.at(i) != nullptr) {
                problems_.warn({named_.at(i)->at, "nothing is drawn into " +
                                                      inQuotes(effect_.textures[named.at(i)].name) + ": " +
                                                      inQuotes(pass.shader.entry.text) +
                                                      " has no result COLOR" + std::to_string(i)});
            }
        }
        const Targets& drawn = pass.targets;
        for (std::size_t i = 1; i < drawn.size(); ++i) {
            const auto end = drawn.begin() + static_cast<std::ptrdiff_t>(i);
            if (drawn.at(i) != callersTarget && std::find(drawn.begin(), end, drawn.at(i)) != end) {
                throw CompileError(pass.keyword.at, "the pass draws two results into the texture " +
                                                        inQuotes(effect_.textures[drawn.at(i)].name));
            }
        }
        for (std::size_t i = drawn.size() - 1; i > 0; --i) {
            if (drawn.at(i) != callersTarget) {
                drawn_.push_back(pass);
                drawn_.back().result = static_cast<std::uint32_t>(i);
            }
        }
        drawn_.push_back(std::move(pass));
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

    EffectSyntax::Technique& syntax_;
    const CompiledEffect& effect_;
    const ResultsOf& resultsOf_;
    Problems& problems_;
    std::size_t next_ = 0; ///< the pass whose turn it is
    Targets targets_ = CompiledEffect::Pass::noTargets();
    std::array<const Annotation*, CompiledEffect::Pass::results> named_{}; ///< by the pass itself
    std::vector<EffectSyntax::Pass> drawn_;
};

/// Whether both are of one size, whatever the size of the caller's target is.
bool sameSize(const TargetSize& a, const TargetSize& b)
{
    const auto sameSide = [](std::uint32_t texelsA, std::uint32_t texelsB, std::uint32_t ratioA,
                             std::uint32_t ratioB) {
        return texelsA == texelsB && (texelsA != 0 || ratioA == ratioB);
    };
    return sameSide(a.width, b.width, a.ratioX, b.ratioX) && sameSide(a.height, b.height, a.ratioY, b.ratioY);
}

void checkSizes(const EffectSyntax::Technique& technique, const CompiledEffect& effect, Problems& problems)
{
    for (const EffectSyntax::Pass& pass : technique.passes) {
        const std::uint32_t first = pass.targets[0];
        const std::uint32_t other = pass.targets.at(pass.result);
        const TargetSize size = first == callersTarget ? TargetSize() : effect.textures[first].targetSize;
        if (pass.result != 0 && !sameSize(size, effect.textures[other].targetSize)) {
            problems.fail({pass.keyword.at,
                           "the pass draws into " + inQuotes(effect.textures[other].name) + " and into " +
                               (first == callersTarget ? "the caller's target"
                                                       : inQuotes(effect.textures[first].name)) +
                               ", which differ in size; give " +
                               (first == callersTarget ? "the texture that size: ViewportRatio = { 1, 1 }"
                                                       : "both the same ViewportRatio or Dimensions")},
                          {technique.name.text, pass.name.text});
        }
    }
}

} // namespace

void resolveTargets(EffectSyntax& syntax, CompiledEffect& effect, const ResultsOf& resultsOf,
                    Problems& problems)
{
    std::set<std::uint32_t> drawn;
    for (EffectSyntax::Technique& technique : syntax.techniques) {
        const Problems::Context at{technique.name.text, {}};
        const std::vector<EffectSyntax::Pass> asWritten = technique.passes;
        try {
            TargetFinder(technique, effect, resultsOf, problems).run();
        } catch (const CompileError& error) {
            technique.passes = asWritten;
            problems.fail(error, at);
        }
        for (const EffectSyntax::Pass& pass : technique.passes) {
            drawn.insert(pass.targets.at(pass.result));
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
    for (const EffectSyntax::Technique& technique : syntax.techniques) {
        checkSizes(technique, effect, problems);
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
        std::set<std::uint32_t> read; // samplers, by any result of the pass
        for (std::size_t p = 0; p < passes.size(); ++p) {
            const EffectSyntax::Pass& syntaxPass = syntax.techniques[t].passes[p];
            const Problems::Context at{syntax.techniques[t].name.text, syntaxPass.name.text};
            read.insert(passes[p].samplers.begin(), passes[p].samplers.end());
            if (syntaxPass.result != 0) {
                continue;
            }
            const auto draws = [&targets = syntaxPass.targets](std::uint32_t texture) {
                return std::find(targets.begin(), targets.end(), texture) != targets.end();
            };
            const bool isLast = p + 1 == passes.size(); // which draws into none
            for (const std::uint32_t sampler : read) {
                const std::uint32_t texture = effect.samplers[sampler].texture;
                const std::string name = inQuotes(effect.textures[texture].name);
                if (effect.samplers[sampler].dimensions == 3 && drawn.count(texture) != 0) {
                    problems.fail({syntaxPass.keyword.at, "the pass reads the texture " + name +
                                                              " as a volume, and a pass draws it"},
                                  at);
                } else if (draws(texture) && !(isLast && texture == passes[p].target)) {
                    problems.fail({syntaxPass.keyword.at, "the pass reads the texture " + name +
                                                              " that it draws into; draw into another"},
                                  at);
                } else if (!draws(texture) && later.count(texture) != 0) {
                    problems.fail({syntaxPass.keyword.at,
                                   "the pass reads the texture " + name + " before a pass has drawn it"},
                                  at);
                }
            }
            for (const std::uint32_t target : syntaxPass.targets) {
                later.erase(target);
            }
            read.clear();
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
