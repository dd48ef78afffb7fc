#include "host/effects/EffectCompiler.h"

#include "host/core/Printable.h"
#include "host/effects/EffectParser.h"
#include "host/effects/HlslMessage.h"
#include "host/effects/ParameterLayout.h"
#include "host/effects/PassText.h"
#include "host/effects/Preprocessor.h"
#include "host/effects/ShaderCompiler.h"

#include <algorithm>
#include <exception>
#include <map>
#include <new>
#include <utility>

namespace Qx::Host {
namespace {

using namespace Effects;

/// Collects what is to be said. The same text from several techniques is said once.
class Messages
{
public:
    explicit Messages(const SourceFiles& files) : files_(files) {}

    void warn(const CompileError& warning) { add("warning", warning.at(), warning.what(), {}); }

    void fail(Location at, std::string_view text, std::string_view technique)
    {
        failed_ = true;
        add("error", at, text, technique);
    }

    bool failed() const { return failed_; }

    std::string text() const
    {
        std::string result;
        for (const Entry& entry : entries_) {
            result += entry.line;
            if (!entry.technique.empty()) {
                result += " [technique " + inQuotes(entry.technique) +
                          (entry.others == 0 ? "" : " and " + std::to_string(entry.others) + " more") + "]";
            }
            result += '\n';
        }
        return result;
    }

private:
    struct Entry
    {
        std::string line;
        std::string technique; ///< the first of those that have it
        std::size_t others = 0;
    };

    void add(std::string_view kind, Location at, std::string_view text, std::string_view technique)
    {
        std::string line = printable(files_.describe(at)) + ": " + std::string(kind) + ": " +
                           std::string(text) + files_.describeNote(at);
        std::replace(line.begin(), line.end(), '\n', ' ');
        line = printable(line);
        const auto [place, isNew] = known_.emplace(line, entries_.size());
        if (!isNew) {
            entries_[place->second].others += technique.empty() ? 0U : 1U;
            return;
        }
        constexpr std::size_t most = 100;
        if (entries_.size() < most) {
            entries_.push_back({std::move(line), std::string(technique)});
        } else {
            known_.erase(place);
        }
    }

    const SourceFiles& files_;
    std::vector<Entry> entries_;
    std::map<std::string, std::size_t> known_;
    bool failed_ = false;
};

/// One compilation from the text to the shaders.
class Compilation
{
public:
    Compilation() : messages_(files_) {}

    void run(const std::filesystem::path& file, const EffectCompilerOptions& options)
    {
        try {
            const EffectSyntax syntax = read(file, options);
            layOutParameters(syntax, effect_);
            writePasses(syntax);
            if (!messages_.failed()) {
                compilePasses();
            }
        } catch (const CompileError& error) {
            messages_.fail(error.at(), error.what(), technique_);
        } catch (const std::exception& error) {
            messages_.fail({}, std::string("the effect could not be compiled: ") + error.what(), technique_);
        }
    }

    EffectCompilation result()
    {
        EffectCompilation result;
        result.messages = messages_.text();
        result.inputs = files_.inputs();
        if (!messages_.failed()) {
            result.effect = std::make_shared<const CompiledEffect>(std::move(effect_));
        }
        return result;
    }

private:
    /// A pass of the result and the text that makes its shader.
    struct PassPlace
    {
        std::size_t technique;
        std::size_t pass;
        std::size_t text;
        std::vector<Location> lines;
        Location entry;
    };

    EffectSyntax read(const std::filesystem::path& file, const EffectCompilerOptions& options)
    {
        Preprocessor preprocessor(files_, options);
        const std::vector<Token> tokens = preprocessor.run(file);
        for (const CompileError& warning : preprocessor.warnings()) {
            messages_.warn(warning);
        }
        EffectSyntax syntax = EffectParser(tokens).parse();
        for (const CompileError& warning : syntax.warnings) {
            messages_.warn(warning);
        }
        if (syntax.techniques.empty()) {
            throw CompileError(tokens.back().at, "the effect has no technique");
        }
        return syntax;
    }

    void writePasses(const EffectSyntax& syntax)
    {
        const PassWriter writer(syntax, effect_);
        std::map<std::string, std::size_t> known;
        std::size_t bytes = 0;
        constexpr std::size_t mostBytes = 256U << 20U;
        for (const EffectSyntax::Technique& technique : syntax.techniques) {
            effect_.techniques.push_back(
                {std::string(technique.name.text), {}, plainAnnotations(technique.annotations)});
            technique_ = technique.name.text;
            for (const EffectSyntax::Pass& pass : technique.passes) {
                std::vector<CompiledEffect::Pass>& passes = effect_.techniques.back().passes;
                passes.push_back({std::string(pass.name.text), {}, {}});
                try {
                    PassText text = writer.write(pass);
                    const auto [place, isNew] = known.emplace(std::move(text.hlsl), texts_.size());
                    if (isNew) {
                        texts_.push_back(place->first);
                    }
                    bytes += isNew ? place->first.size() : 0;
                    places_.push_back({effect_.techniques.size() - 1, passes.size() - 1, place->second,
                                       std::move(text.lines), pass.entry.at});
                } catch (const CompileError& error) {
                    messages_.fail(error.at(), error.what(), technique_);
                }
                if (bytes > mostBytes) {
                    throw CompileError(pass.entry.at, "the effect is too large: its shaders take more than " +
                                                          std::to_string(mostBytes) + " bytes of text");
                }
            }
        }
        technique_.clear();
    }

    void compilePasses()
    {
        const std::vector<CompiledShader> shaders = compileShaders(texts_);
        for (const PassPlace& place : places_) {
            const CompiledShader& shader = shaders[place.text];
            CompiledEffect::Technique& technique = effect_.techniques[place.technique];
            CompiledEffect::Pass& pass = technique.passes[place.pass];
            if (shader.error) {
                report(*shader.error, place, technique.name);
            }
            pass.spirv = shader.spirv;
            for (const std::uint32_t binding : shader.bindings) {
                pass.samplers.push_back(binding - 1);
            }
        }
    }

    void report(const CompiledShader::Message& error, const PassPlace& place, const std::string& technique)
    {
        const bool known = error.line > 0 && error.line <= place.lines.size();
        const Location at = known ? place.lines[error.line - 1] : place.entry;
        messages_.fail(at, readableMessage(error.text, known ? lineOf(texts_[place.text], error.line) : ""),
                       technique);
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
    Messages messages_;
    CompiledEffect effect_;
    std::vector<std::string> texts_; ///< each once, however many passes share it
    std::vector<PassPlace> places_;
    std::string technique_; ///< at hand, for what is thrown
};

} // namespace

EffectCompilation compileEffect(const std::filesystem::path& file, const EffectCompilerOptions& options)
{
    try {
        Compilation compilation;
        compilation.run(file, options);
        return compilation.result();
    } catch (...) {
        // Even the message could not be made: memory has run out.
        return {};
    }
}

} // namespace Qx::Host
