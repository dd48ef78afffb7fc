#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/look/LookFile.h"
#include "tools/qxhost/pipeline/look/LookKeys.h"

#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* lookFooter = R"(Example:
  qxhost look describe warm.look.toml

Shows a look's steps in their order, with the values and key frames of their parameters. Needs no
device. Exit codes: 0 done, 3 the file is missing or wrong.)";

struct LookDescribeOptions
{
    std::filesystem::path file;
    bool json = false;
};

const char* kindOf(const LookLink& link)
{
    return link.kind == LookLink::Kind::lut ? "lut" : "effect";
}

bool isMissing(const std::filesystem::path& file)
{
    std::error_code error;
    return file.has_parent_path() && !std::filesystem::is_regular_file(file, error);
}

/// With the digits that a person has written: 0.8, not the float's 0.800000011920929.
Json describe(const std::vector<float>& numbers)
{
    Json list = Json::array();
    for (const float number : numbers) {
        list.push_back(Json::parse(fmt::format("{}", number)));
    }
    return list;
}

Json describe(const KeyFrame& key)
{
    return {{"at", key.timeCode.empty() ? Json(key.frame) : Json(key.timeCode)},
            {"value", describe(key.values)},
            {"curve", std::string(wordOf(key.curve))}};
}

Json describe(const LookLink& link)
{
    Json step{
        {"kind", kindOf(link)}, {"file", link.file}, {"missing", isMissing(link.file)}, {"on", link.on}};
    step["technique"] = link.technique.empty() ? Json() : Json(link.technique);
    step["set"] = Json::object();
    step["keys"] = Json::object();
    for (const LookParameter& parameter : link.parameters) {
        if (parameter.keys.empty()) {
            step["set"][parameter.name] = describe(parameter.values);
        }
        for (const KeyFrame& key : parameter.keys) {
            step["keys"][parameter.name].push_back(describe(key));
        }
    }
    step["textures"] = Json::object();
    for (const LookTexture& texture : link.textures) {
        step["textures"][texture.name] = texture.file.string();
    }
    return step;
}

Json describe(const Look& look)
{
    Json described{{"about", look.about}};
    described["steps"] = Json::array();
    for (const LookLink& link : look.links) {
        described["steps"].push_back(describe(link));
    }
    return described;
}

std::string numbersText(const std::vector<float>& numbers)
{
    return fmt::format("{}", fmt::join(numbers, ", "));
}

std::string textOf(const LookParameter& parameter)
{
    if (parameter.keys.empty()) {
        return fmt::format("   {} = {}\n", parameter.name, numbersText(parameter.values));
    }
    std::string text = fmt::format("   {}\n", parameter.name);
    for (const KeyFrame& key : parameter.keys) {
        text += fmt::format("     {}: {}{}\n",
                            key.timeCode.empty() ? fmt::format("frame {}", key.frame) : key.timeCode,
                            numbersText(key.values),
                            key.curve == KeyCurve::linear ? "" : fmt::format(", {}", wordOf(key.curve)));
    }
    return text;
}

std::string textOf(const Look& look)
{
    std::string text = look.about.empty() ? "" : look.about + "\n";
    for (std::size_t i = 0; i < look.links.size(); ++i) {
        const LookLink& link = look.links[i];
        text += fmt::format("{}. {} {}{}{}{}\n", i + 1, kindOf(link), link.file,
                            link.technique.empty() ? "" : ", technique " + link.technique,
                            link.on ? "" : ", off", isMissing(link.file) ? ", which is missing" : "");
        for (const LookParameter& parameter : link.parameters) {
            text += textOf(parameter);
        }
        for (const LookTexture& texture : link.textures) {
            text += fmt::format("   texture {} = {}{}\n", texture.name, texture.file.string(),
                                isMissing(texture.file) ? ", which is missing" : "");
        }
    }
    return text.empty() ? "no steps\n" : text;
}

class LookDescribeCommand : public CommandWithOptions<LookDescribeOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.file, "A look, a .look.toml file")->option_text(" ");
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(lookFooter);
    }

    void check(const CLI::App& app) override { requireValue(app, options_.file, "FILE"); }

    ExitCode run(Console& console) override
    {
        const Look look = readLook(options_.file);
        console.data(options_.json ? jsonText(describe(look)) : textOf(look));
        return ExitCode::ok;
    }
};

const Registered<LookDescribeCommand> registeredLookDescribe(
    {.name = "look describe", .order = 10, .about = "Show a look's steps, values and key frames"});

} // namespace

} // namespace Qx::Program
