#include "tests/effects/FxTest.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include <spirv-tools/libspirv.hpp>

namespace Qx::Host::Tests {
namespace {

std::string typeOf(const CompiledEffect::Parameter& parameter)
{
    const char* const names[] = {"float", "int", "bool"};
    std::string text = names[static_cast<std::size_t>(parameter.type)];
    if (parameter.rows > 1) {
        text += std::to_string(parameter.rows) + 'x' + std::to_string(parameter.columns);
    } else if (parameter.columns > 1) {
        text += std::to_string(parameter.columns);
    }
    return parameter.elements == 0 ? text : text + '[' + std::to_string(parameter.elements) + ']';
}

/// Every 4 bytes of the default as a number; padding that is zero as "_".
std::string defaultOf(const CompiledEffect::Parameter& parameter)
{
    std::ostringstream text;
    const bool strided = parameter.rows > 1 || parameter.elements > 0;
    for (std::size_t at = 0; at + 4 <= parameter.defaultValue.size(); at += 4) {
        std::int32_t integer = 0;
        float number = 0.0F;
        std::memcpy(&integer, &parameter.defaultValue[at], sizeof integer);
        std::memcpy(&number, &parameter.defaultValue[at], sizeof number);
        text << (at == 0 ? "" : " ");
        if (strided && at % 16 / 4 >= parameter.columns) {
            text << (integer == 0 ? "_" : "?");
        } else if (parameter.type == CompiledEffect::ScalarType::Float) {
            text << number;
        } else {
            text << integer;
        }
    }
    return text.str();
}

void addAnnotations(std::vector<std::string>& lines, const std::string& owner,
                    const std::vector<CompiledEffect::Annotation>& annotations)
{
    for (const CompiledEffect::Annotation& annotation : annotations) {
        lines.push_back(owner + " < " + annotation.type + ' ' + annotation.name + " = " + annotation.value +
                        " >");
    }
}

void addParameter(std::vector<std::string>& lines, const CompiledEffect::Parameter& parameter)
{
    const char* const semantics[] = {
        "", "TextureSize", "TextureMaxCode", "TargetSize", "TargetMaxCode", "Identity", "ShaderNumber"};
    const std::string owner = "parameter " + parameter.name;
    lines.push_back(owner + " : " + typeOf(parameter) + " at " + std::to_string(parameter.offset) + " + " +
                    std::to_string(parameter.bytes) + " = " + defaultOf(parameter));
    if (parameter.semantic != CompiledEffect::Semantic::None) {
        lines.push_back(owner + " is " + semantics[static_cast<std::size_t>(parameter.semantic)] +
                        (parameter.semanticTexture.empty() ? "" : " of " + parameter.semanticTexture));
    }
    if (!parameter.place.empty()) {
        lines.push_back(owner + " has register " + parameter.place);
    }
    addAnnotations(lines, owner, parameter.annotations);
}

} // namespace

const FxTest::Section* FxTest::find(const std::string& kind) const
{
    for (const Section& section : sections) {
        if (section.kind == kind) {
            return &section;
        }
    }
    return nullptr;
}

void PrintTo(const FxTest& test, std::ostream* stream)
{
    *stream << test.name;
}

std::vector<FxTest> readFxTests(const std::filesystem::path& file)
{
    std::vector<FxTest> tests(1);
    tests[0].name = file.stem().string();
    std::ifstream stream(file);
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        // An attribute in an effect has brackets too, but is never alone on an unindented line.
        if (line.size() <= 2 || line.front() != '[' || line.back() != ']') {
            if (!tests.back().sections.empty()) {
                tests.back().sections.back().lines.push_back(line);
            }
            continue;
        }
        std::istringstream head(line.substr(1, line.size() - 2));
        FxTest::Section section;
        head >> section.kind >> std::ws;
        std::getline(head, section.argument);
        section.line = number;
        if (section.kind == "case") {
            tests.push_back({file.stem().string() + '_' + section.argument, {}});
        } else {
            tests.back().sections.push_back(std::move(section));
        }
    }
    if (tests.size() > 1 && tests[0].sections.empty()) {
        tests.erase(tests.begin());
    }
    for (FxTest& test : tests) {
        for (FxTest::Section& section : test.sections) {
            while (!section.lines.empty() && section.lines.back().empty()) {
                section.lines.pop_back();
            }
        }
        if (test.find("effect") == nullptr) {
            throw std::runtime_error(file.string() + ": test " + test.name + " has no [effect]");
        }
    }
    return tests;
}

std::vector<FxTest> readAllFxTests()
{
    std::vector<FxTest> tests;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(QX_FXTEST_CASES)) {
        if (entry.path().extension() == ".fxtest") {
            const std::vector<FxTest> some = readFxTests(entry.path());
            tests.insert(tests.end(), some.begin(), some.end());
        }
    }
    std::sort(tests.begin(), tests.end(), [](const FxTest& a, const FxTest& b) { return a.name < b.name; });
    return tests;
}

EffectCompilerOptions optionsOf(const FxTest& test)
{
    EffectCompilerOptions options;
    if (const FxTest::Section* const definitions = test.find("definitions")) {
        for (const std::string& line : definitions->lines) {
            const std::size_t blank = line.find(' ');
            options.definitions.emplace_back(line.substr(0, blank),
                                             blank == std::string::npos ? "" : line.substr(blank + 1));
        }
    }
    return options;
}

std::filesystem::path writeFiles(const FxTest& test, const std::filesystem::path& directory)
{
    for (const FxTest::Section& section : test.sections) {
        if (section.kind != "effect" && section.kind != "file") {
            continue;
        }
        const std::filesystem::path path =
            directory / (section.kind == "effect" ? "effect.fx" : section.argument);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream stream(path, std::ios::binary);
        for (const std::string& line : section.lines) {
            stream << line << '\n';
        }
    }
    return directory / "effect.fx";
}

std::vector<std::string> describe(const CompiledEffect& effect)
{
    const char* const filters[] = {"Point", "Linear"};
    const char* const mips[] = {"", ", levels Point", ", levels Linear"};
    const char* const addresses[] = {"Clamp", "Wrap", "Mirror", "Border"};
    std::vector<std::string> lines;
    for (const CompiledEffect::Texture& texture : effect.textures) {
        lines.push_back("texture " + texture.name +
                        (texture.levels == 1 ? "" : " has " + std::to_string(texture.levels) + " levels"));
        addAnnotations(lines, "texture " + texture.name, texture.annotations);
    }
    for (const CompiledEffect::Sampler& sampler : effect.samplers) {
        lines.push_back("sampler " + sampler.name + " of " + effect.textures.at(sampler.texture).name + ", " +
                        filters[static_cast<std::size_t>(sampler.filter)] + ", " +
                        addresses[static_cast<std::size_t>(sampler.addressU)] + ' ' +
                        addresses[static_cast<std::size_t>(sampler.addressV)] +
                        (sampler.registerIndex == CompiledEffect::Sampler::noRegister
                             ? ""
                             : ", register " + std::to_string(sampler.registerIndex)) +
                        mips[static_cast<std::size_t>(sampler.mip)]);
    }
    for (const CompiledEffect::Parameter& parameter : effect.parameters) {
        addParameter(lines, parameter);
    }
    lines.push_back("uniforms take " + std::to_string(effect.uniformBytes));
    for (const CompiledEffect::Technique& technique : effect.techniques) {
        lines.push_back("technique " + technique.name);
        addAnnotations(lines, "technique " + technique.name, technique.annotations);
        for (const CompiledEffect::Pass& pass : technique.passes) {
            std::string line = "pass " + technique.name + '/' + pass.name + " reads";
            for (const std::uint32_t sampler : pass.samplers) {
                line += ' ' + effect.samplers.at(sampler).name;
            }
            lines.push_back(pass.samplers.empty() ? line + " nothing" : line);
        }
    }
    return lines;
}

std::string disassemble(const std::vector<std::uint32_t>& spirv)
{
    std::string text;
    const spvtools::SpirvTools tools(SPV_ENV_VULKAN_1_1);
    if (!tools.Disassemble(spirv, &text, SPV_BINARY_TO_TEXT_OPTION_FRIENDLY_NAMES)) {
        text = "not SPIR-V";
    }
    return text;
}

std::string withoutDirectory(std::string text, const std::string& directory)
{
    for (std::size_t at = text.find(directory); at != std::string::npos; at = text.find(directory)) {
        const bool whole = text.compare(at + directory.size(), 1, "/") == 0;
        text.replace(at, directory.size() + (whole ? 1 : 0), whole ? "" : ".");
    }
    return text;
}

} // namespace Qx::Host::Tests
