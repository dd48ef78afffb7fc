#include "host/core/Printable.h"
#include "host/effects/EffectCompilation.h"
#include "host/effects/Supplies.h"
#include "host/effects/framework/ParameterRange.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace Qx::Program {

namespace {

constexpr const char* describeFooter = R"(Example:
  qxhost effects describe cc3.fx

Shows what an effect holds: techniques and their passes, parameters with type, default, range and label,
textures and samplers. Exit codes: 0 done, 1 the effect has errors, 3 the file is missing.)";

struct DescribeOptions
{
    std::filesystem::path file;
    bool json = false;
};

using Host::CompiledEffect;
using Rows = std::vector<std::vector<std::string>>;

std::string labelOf(const std::vector<CompiledEffect::Annotation>& annotations)
{
    CompiledEffect::Parameter parameter;
    parameter.annotations = annotations;
    return Host::rangeOf(parameter).label;
}

Rows techniqueRows(const CompiledEffect& effect)
{
    Rows rows{{"TECHNIQUE", "PASSES", "LABEL"}};
    for (const CompiledEffect::Technique& technique : effect.techniques) {
        std::vector<std::string> passes;
        for (const CompiledEffect::Pass& pass : technique.passes) {
            if (pass.result == 0) { // its other results are not passes of the file
                passes.push_back(pass.name.empty() ? "(unnamed)" : pass.name);
            }
        }
        rows.push_back(
            {technique.name, fmt::format("{}", fmt::join(passes, ", ")), labelOf(technique.annotations)});
    }
    return rows;
}

std::string defaultText(const CompiledEffect::Parameter& parameter)
{
    if (const std::string filled = filledWith(parameter); !filled.empty()) {
        return "(" + filled + ")";
    }
    if (const std::string_view supplied = Host::meaningOf(Host::supplyOf(parameter)); !supplied.empty()) {
        return fmt::format("({})", supplied);
    }
    constexpr std::size_t most = 16; // numbers: a matrix; longer arrays are cut
    std::vector<std::string> words;
    const std::vector<double> values = defaultOf(parameter);
    for (std::size_t i = 0; i < values.size() && i < most; ++i) {
        const bool isBool = parameter.type == CompiledEffect::ScalarType::Bool;
        words.push_back(isBool ? (values[i] != 0 ? "true" : "false")
                               : fmt::format("{}", static_cast<float>(values[i])));
    }
    return fmt::format("{}{}", fmt::join(words, ", "), values.size() > most ? ", ..." : "");
}

std::string rangeText(const Host::ParameterRange& range)
{
    if (range.least && range.most) {
        return fmt::format("{} to {}", *range.least, *range.most);
    }
    return range.least  ? fmt::format("from {}", *range.least)
           : range.most ? fmt::format("to {}", *range.most)
                        : "";
}

/// Leaves the last column out if no row has anything in it.
Rows withoutEmptyEnd(Rows rows)
{
    const bool isUsed =
        std::any_of(rows.begin() + 1, rows.end(), [](const auto& row) { return !row.back().empty(); });
    for (std::vector<std::string>& row : rows) {
        row.resize(row.size() - (isUsed ? 0 : 1));
    }
    return rows;
}

Rows parameterRows(const CompiledEffect& effect)
{
    Rows rows{{"PARAMETER", "TYPE", "DEFAULT", "RANGE", "LABEL", "REGISTER"}};
    for (const CompiledEffect::Parameter& parameter : effect.parameters) {
        const Host::ParameterRange range = Host::rangeOf(parameter);
        rows.push_back({parameter.name, typeOf(parameter), defaultText(parameter), rangeText(range),
                        range.label, parameter.place});
    }
    return withoutEmptyEnd(std::move(rows));
}

Rows textureRows(const CompiledEffect& effect, const std::filesystem::path& file)
{
    Rows rows{{"TEXTURE", "GIVEN", "LABEL"}};
    for (std::size_t i = 0; i < effect.textures.size(); ++i) {
        rows.push_back(
            {effect.textures[i].name, givenTo(effect, i, file), labelOf(effect.textures[i].annotations)});
    }
    return rows;
}

Rows samplerRows(const CompiledEffect& effect)
{
    Rows rows{{"SAMPLER", "TEXTURE", "FILTER", "ADDRESS", "REGISTER"}};
    for (const CompiledEffect::Sampler& sampler : effect.samplers) {
        const std::string levels =
            sampler.mip == CompiledEffect::Mip::None ? "" : ", levels " + nameOf(sampler.mip);
        rows.push_back({sampler.name, effect.textures[sampler.texture].name, nameOf(sampler.filter) + levels,
                        nameOf(sampler.addressU) + ", " + nameOf(sampler.addressV), registerOf(sampler)});
    }
    return withoutEmptyEnd(std::move(rows));
}

/// A table for each kind of thing that the effect holds.
std::string tables(const CompiledEffect& effect, const std::filesystem::path& file)
{
    std::string text;
    for (const Rows& rows :
         {techniqueRows(effect), parameterRows(effect), textureRows(effect, file), samplerRows(effect)}) {
        if (rows.size() > 1) {
            text += (text.empty() ? "" : "\n") + table(rows);
        }
    }
    return text;
}

ExitCode describe(const DescribeOptions& options, Console& console)
{
    const HostSession host(console);
    std::error_code error;
    const bool isPath = std::filesystem::exists(options.file, error);
    const std::filesystem::path file = isPath ? options.file : effectPath(options.file.string());
    if (!std::filesystem::exists(file, error)) {
        throw Failure(ExitCode::input, file.string() + ": there is no file and no effect of this name");
    }
    const LightweightString<char> path(std::string_view(file.native()));
    const Host::EffectCompilation compilation = Host::gpuService().examineEffectFile(fromUTF8(path), {});
    const bool good = compilation.effect != nullptr;
    if (options.json) {
        Json data{{"file", file.string()}, {"ok", good}};
        if (good) {
            data.update(effectData(*compilation.effect, file));
        }
        data["diagnostics"] = diagnosticsData(compilation.diagnostics);
        console.data(jsonText(data));
    } else if (good) {
        console.data(tables(*compilation.effect, file));
    } else {
        console.error(file.string() + ": does not compile", compilation.messages);
    }
    return good ? ExitCode::ok : ExitCode::failed;
}

class DescribeCommand : public CommandWithOptions<DescribeOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.file, "An effect file, or a name of 'qxhost effects list'")
            ->option_text(" ");
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(describeFooter);
    }

    void check(const CLI::App& app) override { requireValue(app, options_.file, "FILE"); }
    ExitCode run(Console& console) override { return describe(options_, console); }
};

const Registered<DescribeCommand>
    registeredDescribe({.name = "effects describe",
                        .order = 40,
                        .about = "Show an effect's techniques, parameters and textures"});

} // namespace

} // namespace Qx::Program
