#include "host/effects/EffectCompiler.h"

#include "host/effects/framework/EffectParser.h"
#include "host/effects/framework/LikelyMistakes.h"
#include "host/effects/framework/MissingTechnique.h"
#include "host/effects/framework/Preprocessor.h"
#include "host/effects/framework/Problems.h"
#include "host/effects/framework/RenderTargets.h"
#include "host/effects/hlsl/HlslHints.h"
#include "host/effects/hlsl/HlslMessage.h"
#include "host/effects/hlsl/ParameterLayout.h"
#include "host/effects/hlsl/PassText.h"
#include "host/effects/hlsl/Remainders.h"
#include "host/effects/hlsl/ShaderCompiler.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <set>
#include <unordered_set>
#include <utility>

namespace Qx::Host {
namespace {

using namespace Effects;

/// One compilation, from the text to the shaders.
class Compilation
{
public:
    explicit Compilation(const CompilationReports& reports) : problems_(files_), reports_(reports) {}

    void run(const std::filesystem::path& file, const EffectCompilerOptions& options)
    {
        try {
            compile(file, options);
        } catch (const CompileError& error) {
            problems_.fail(error, at_);
        } catch (const std::exception& error) {
            problems_.fail({{}, std::string("the effect could not be compiled: ") + error.what()}, at_);
        }
    }

    EffectCompilation result()
    {
        EffectCompilation result;
        result.diagnostics = problems_.take();
        result.messages = messageText(result.diagnostics);
        result.inputs = files_.inputs();
        if (!problems_.failed()) {
            result.effect = std::make_shared<const CompiledEffect>(std::move(effect_));
        }
        return result;
    }

private:
    using PackedShader = CompiledEffect::PackedShader;

    /// A pass of the result, and the index of the text that makes its shader.
    struct PassPlace
    {
        std::size_t technique;
        std::size_t pass;
        std::size_t text;
    };

    /// The stages of a compilation, in their order.
    void compile(const std::filesystem::path& file, const EffectCompilerOptions& options)
    {
        const std::optional<std::vector<Token>> tokens = preprocess(file, options);
        if (!tokens || !parse(*tokens)) {
            return;
        }
        if (options.native) {
            std::erase_if(syntax_.techniques, [&](const EffectSyntax::Technique& technique) {
                return technique.name.text != options.native->technique;
            });
        }
        keepRemainders(syntax_);
        layOutParameters(syntax_, effect_, problems_);
        const PassWriter writer(syntax_, effect_,
                                [](const std::string& hlsl) { return compileShaders({hlsl}).front().spirv; });
        giveIdentities(syntax_, writer.namesOfVertices(), effect_);
        resolveTargets(
            syntax_, effect_, [&writer](const EffectSyntax::Pass& pass) { return resultsOf(writer, pass); },
            problems_);
        writePasses(writer);
        compilePasses(writer);
        checkTargets(syntax_, effect_, problems_);
        if (options.native && !problems_.failed()) {
            addPackedShaders(writer, options.native->depths,
                             options.native->isOwnPlace ? PassWriter::Reads::OwnPlace
                                                        : PassWriter::Reads::AnyPlace,
                             PassWriter::Gives::OneTexel);
        } else if (options.packed && !problems_.failed()) {
            const PassWriter::Gives gives =
                options.singleTexels ? PassWriter::Gives::OneTexel : PassWriter::Gives::PackedTexel;
            for (const PackedShader::Depths depths :
                 {PackedShader::Depths{8, 8}, {16, 16}, {8, 16}, {16, 8}}) {
                addPackedShaders(writer, depths, PassWriter::Reads::AnyPlace, gives);
            }
            for (const PackedShader::Depths depths : {PackedShader::Depths{8, 8}, {16, 16}}) {
                addPackedShaders(writer, depths, PassWriter::Reads::OwnPlace, gives);
            }
        }
        if (!problems_.failed()) {
            warnOfLikelyMistakes(syntax_, effect_, names_, problems_);
        }
    }

    /// Nothing after an error: the tokens then mean nothing.
    std::optional<std::vector<Token>> preprocess(const std::filesystem::path& file,
                                                 const EffectCompilerOptions& options)
    {
        std::vector<Token> tokens = Preprocessor(files_, options, problems_).run(file);
        if (reports_.read) {
            reports_.read(files_.inputs());
        }
        return problems_.failed() ? std::nullopt : std::optional(std::move(tokens));
    }

    /// Returns false if a part of the effect could not be read: looking further would only find consequences.
    bool parse(const std::vector<Token>& tokens)
    {
        syntax_ = EffectParser(tokens, problems_).parse();
        if (!problems_.failed() && syntax_.techniques.empty()) {
            throw CompileError(tokens.back().at, "the effect has no technique" + likelyTechnique());
        }
        return syntax_.complete;
    }

    std::string likelyTechnique() const
    {
        constexpr std::size_t longest = 1900; // what a message shows whole
        const std::string text = missingTechnique(syntax_);
        if (text.empty() && looksLikeGlsl(syntax_)) {
            return "; it looks like GLSL, and an effect's shaders are written in HLSL, as for Direct3D";
        }
        return text.empty() || text.size() > longest ? std::string() : "; add at its end: " + text;
    }

    static std::optional<std::set<std::size_t>> resultsOf(const PassWriter& writer,
                                                          const EffectSyntax::Pass& pass)
    {
        try {
            return writer.resultsOf(pass);
        } catch (const CompileError&) {
            return std::nullopt; // writePasses() reports it
        }
    }

    void writePasses(const PassWriter& writer)
    {
        std::map<std::string, std::size_t> known;
        std::size_t bytes = 0;
        constexpr std::size_t mostBytes = 64U << 20U;
        for (const EffectSyntax::Technique& technique : syntax_.techniques) {
            effect_.techniques.push_back(
                {std::string(technique.name.text), {}, plainAnnotations(technique.annotations)});
            for (const EffectSyntax::Pass& pass : technique.passes) {
                std::vector<CompiledEffect::Pass>& passes = effect_.techniques.back().passes;
                CompiledEffect::Pass& made = passes.emplace_back();
                made.name = pass.name.text;
                made.target = pass.targets.at(pass.result);
                made.result = pass.result;
                at_ = {technique.name.text, pass.name.text};
                reportShader(technique, pass);
                try {
                    PassText text = writer.write(pass);
                    names_.merge(text.names);
                    text.names.clear();
                    made.corners = std::move(text.corners);
                    for (const CompileError& warning : text.warnings) {
                        problems_.warn(warning);
                    }
                    bytes += text.hlsl.size();
                    const auto [place, isNew] = known.emplace(std::move(text.hlsl), texts_.size());
                    if (isNew) {
                        texts_.push_back(place->first);
                        sources_.push_back(std::move(text));
                    }
                    places_.push_back({effect_.techniques.size() - 1, passes.size() - 1, place->second});
                } catch (const CompileError& error) {
                    if (pass.result == 0) { // the pass's other results have the same mistakes
                        problems_.fail(error, at_);
                    }
                }
                if (bytes > mostBytes) {
                    throw LimitError(pass.shader.entry.at,
                                     "the effect is too large: its shaders take more than " +
                                         std::to_string(mostBytes) + " bytes of text");
                }
            }
        }
        at_ = {};
    }

    void reportShader(const EffectSyntax::Technique& technique, const EffectSyntax::Pass& pass) const
    {
        if (reports_.shader) {
            reports_.shader(problems_.placeOf(pass.shader.entry.at), technique.name.text, pass.name.text);
        }
    }

    /// Compiles texts, of which `places` says which pass has each first.
    std::vector<CompiledShader> compileTexts(const std::vector<std::string>& texts,
                                             const std::vector<PassPlace>& places,
                                             std::uint32_t packedSourceBits = 0) const
    {
        return compileShaders(texts, packedSourceBits, [&](std::size_t text) {
            const auto of = std::find_if(places.begin(), places.end(),
                                         [text](const PassPlace& place) { return place.text == text; });
            const EffectSyntax::Technique& technique = syntax_.techniques[of->technique];
            reportShader(technique, technique.passes[of->pass]);
        });
    }

    /// What is wrong with any of a pass's results is said once, after the last of them.
    void compilePasses(const PassWriter& writer)
    {
        const std::vector<CompiledShader> shaders = compileTexts(texts_, places_);
        std::set<std::uint32_t> constants;
        const PassPlace* wrong = nullptr;
        for (const PassPlace& place : places_) {
            const CompiledShader& shader = shaders[place.text];
            CompiledEffect::Pass& pass = effect_.techniques[place.technique].passes[place.pass];
            pass.spirv = shader.spirv;
            pass.samplers = samplersOf(shader);
            constants.insert(shader.constants.begin(), shader.constants.end());
            wrong = shader.error ? &place : wrong;
            if (pass.result != 0) {
                continue;
            }
            refuseMissing(constants, place);
            if (wrong != nullptr && !problems_.enough()) {
                const CompiledShader::Message& error = *shaders[wrong->text].error;
                report(error, *wrong, sources_[wrong->text], texts_[wrong->text]);
                lookFurther(error, *wrong, writer);
            }
            constants.clear();
            wrong = nullptr;
        }
    }

    void refuseMissing(const std::set<std::uint32_t>& constants, const PassPlace& place)
    {
        const std::vector<CompileError>& missing = sources_[place.text].missing;
        const EffectSyntax::Technique& technique = syntax_.techniques[place.technique];
        for (std::size_t i = 0; i < missing.size(); ++i) {
            const bool read = constants.count(static_cast<std::uint32_t>(i + 1)) != 0;
            if (read && !problems_.enough()) {
                problems_.fail(missing[i], {technique.name.text, technique.passes[place.pass].name.text});
            }
        }
    }

    /// A shader that does not compile is left out: no pass needs one.
    void addPackedShaders(const PassWriter& writer, PackedShader::Depths depths, PassWriter::Reads reads,
                          PassWriter::Gives gives)
    {
        std::map<std::string, std::size_t> known;
        std::vector<std::string> texts;
        std::vector<PassPlace> places;
        std::vector<std::vector<std::uint32_t>> ownPlaces; // of each of those
        for (const PassPlace& place : places_) {
            const CompiledEffect::Technique& technique = effect_.techniques[place.technique];
            const EffectSyntax::Pass& pass = syntax_.techniques[place.technique].passes[place.pass];
            const bool own = reads == PassWriter::Reads::OwnPlace;
            const bool wanted = own ? gainsByOwnPlace(technique)
                                    : !depths.areMixed() || says(technique, "MixedDepths", "true");
            if (!wanted || says(technique, "Packed", "false") || drawsTextures(technique) ||
                !writer.canBePacked(pass)) {
                continue;
            }
            PassText text = writer.writePacked(pass, depths, reads, gives);
            if (own && text.places.empty()) {
                continue;
            }
            const auto [found, isNew] = known.emplace(std::move(text.hlsl), texts.size());
            if (isNew) {
                texts.push_back(found->first);
            }
            places.push_back({place.technique, place.pass, found->second});
            ownPlaces.push_back(std::move(text.places));
        }
        const bool single = gives == PassWriter::Gives::OneTexel; // without the passes for wider texels
        const std::vector<CompiledShader> shaders = compileTexts(texts, places, single ? 0 : depths.source);
        for (std::size_t i = 0; i < places.size(); ++i) {
            const CompiledShader& shader = shaders[places[i].text];
            if (shader.error || shader.minglesPixels) {
                continue;
            }
            PackedShader packed{depths, shader.spirv, samplersOf(shader), shader.texelBytes, shader.rows, {}};
            if (single) {
                packed.texelBytes.assign(packed.samplers.size(), depths.source / 2);
            }
            for (const std::uint32_t sampler : packed.samplers) {
                if (!ownPlaces[i].empty()) {
                    packed.places.push_back(ownPlaces[i][sampler]);
                }
            }
            const bool readsThere =
                std::any_of(packed.places.begin(), packed.places.end(),
                            [](std::uint32_t place) { return place != PackedShader::noPlace; });
            if (reads == PassWriter::Reads::OwnPlace && !readsThere) {
                continue; // the optimizer has left the sampler out
            }
            effect_.techniques[places[i].technique].passes[places[i].pass].packed.push_back(
                std::move(packed));
        }
    }

    /// Whether a second shader is worth its compilation. In a long one, what the read of a picture costs is
    /// lost in the rest.
    static bool gainsByOwnPlace(const CompiledEffect::Technique& technique)
    {
        constexpr std::size_t longest = 4000; // words
        return technique.passes.size() == 1 && technique.passes.front().spirv.size() <= longest;
    }

    /// Whether passes draw into textures; they are drawn texel by texel.
    static bool drawsTextures(const CompiledEffect::Technique& technique)
    {
        return std::any_of(technique.passes.begin(), technique.passes.end(), [](const auto& pass) {
            return pass.target != CompiledEffect::Pass::callersTarget;
        });
    }

    /// Whether a technique says that it may read and draw at different depths, or that it is not to be drawn
    /// packed.
    static bool says(const CompiledEffect::Technique& technique, std::string_view name,
                     std::string_view value)
    {
        return std::any_of(technique.annotations.begin(), technique.annotations.end(),
                           [&](const auto& annotation) {
                               return equalIgnoringCase(annotation.name, name) && annotation.value == value;
                           });
    }

    static std::vector<std::uint32_t> samplersOf(const CompiledShader& shader)
    {
        std::vector<std::uint32_t> samplers;
        for (const std::uint32_t binding : shader.bindings) {
            samplers.push_back(binding - 1);
        }
        return samplers;
    }

    /// The HLSL compiler stops at its first error. Errors in other functions show when the function with the
    /// error loses its body.
    void lookFurther(CompiledShader::Message error, const PassPlace& place, const PassWriter& writer)
    {
        constexpr std::size_t mostFunctions = 4; // of a pass; each takes one more compilation
        constexpr std::size_t mostCompilations = 16;
        const EffectSyntax::Pass& pass = syntax_.techniques[place.technique].passes[place.pass];
        if (!lookedAt_.insert(place.text).second) {
            return;
        }
        std::set<std::size_t> left;
        PassText source = sources_[place.text];
        while (left.size() < mostFunctions) {
            const std::optional<std::size_t> piece = source.pieceAt(error.line);
            const bool leavable =
                piece && syntax_.pieces[*piece].function.hasBody && left.insert(*piece).second;
            if (!leavable || ++furtherCompilations_ > mostCompilations) {
                return;
            }
            source = writer.write(pass, left);
            const CompiledShader shader = compileShaders({source.hlsl}).front();
            if (!shader.error || !source.pieceAt(shader.error->line)) {
                return; // no further error, or only that a function has no body
            }
            error = *shader.error;
            report(error, place, source, source.hlsl);
        }
    }

    void report(const CompiledShader::Message& error, const PassPlace& place, const PassText& source,
                const std::string& hlsl)
    {
        const EffectSyntax::Technique& technique = syntax_.techniques[place.technique];
        const EffectSyntax::Pass& pass = technique.passes[place.pass];
        const bool known = error.line > 0 && error.line <= source.lines.size();
        const Location at = known ? source.lines[error.line - 1] : pass.shader.entry.at;
        std::string text = readableMessage(error.text, known ? lineOf(hlsl, error.line) : "");
        text += hintFor(text, syntax_, source.pieceAt(error.line));
        problems_.fail({at, std::move(text)}, {technique.name.text, pass.name.text});
    }

    static std::string_view lineOf(const std::string& text, std::uint32_t number)
    {
        std::size_t begin = 0;
        for (std::uint32_t i = 1; i < number && begin < text.size(); ++i) {
            begin = text.find('\n', begin) + 1;
        }
        return std::string_view(text).substr(begin, text.find('\n', begin) - begin);
    }

    SourceFiles files_;
    Problems problems_;
    const CompilationReports& reports_;
    EffectSyntax syntax_;
    CompiledEffect effect_;
    std::vector<std::string> texts_; ///< each once, however many passes share it
    std::vector<PassText> sources_;  ///< of each text, without the text; from the first pass that has it
    std::vector<PassPlace> places_;
    std::unordered_set<std::string_view> names_; ///< that the passes reach
    std::set<std::size_t> lookedAt_;             ///< texts that lookFurther has seen
    std::size_t furtherCompilations_ = 0;
    Problems::Context at_; ///< of what is thrown
};

} // namespace

EffectCompilation compileEffect(const std::filesystem::path& file, const EffectCompilerOptions& options,
                                const CompilationReports& reports)
{
    try {
        Compilation compilation(reports);
        compilation.run(file, options);
        return compilation.result();
    } catch (...) {
        // Out of memory, even for a message.
        return {};
    }
}

} // namespace Qx::Host
