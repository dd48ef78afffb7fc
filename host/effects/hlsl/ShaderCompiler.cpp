#include "host/effects/hlsl/ShaderCompiler.h"

#include "host/effects/spirv/Passes.h"
#include "host/effects/spirv/ShaderChecks.h"

#include <glslang/Public/ResourceLimits.h>
#include <glslang/Public/ShaderLang.h>
#include <glslang/SPIRV/GlslangToSpv.h>
#include <spirv-tools/libspirv.hpp>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <mutex>
#include <pthread.h>
#include <set>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

namespace Qx::Host::Effects {
namespace {

/// Creates glslang's process-wide tables on first use and keeps them: another module of the process may still
/// use them.
void startGlslang()
{
    static const bool started = glslang::InitializeProcess();
    static_cast<void>(started);
}

/// The first line with a place, such as "ERROR: 0:12: 'gain' : undeclared identifier", or else the first
/// line.
std::optional<CompiledShader::Message> firstError(const std::string& log)
{
    constexpr std::string_view mark = "ERROR: ";
    constexpr std::string_view place = "0:";
    std::optional<CompiledShader::Message> placeless;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, mark.size(), mark) != 0) {
            continue;
        }
        line.erase(0, mark.size());
        CompiledShader::Message message;
        if (line.compare(0, place.size(), place) == 0) {
            const char* const end = line.data() + line.size();
            const char* const rest = std::from_chars(line.data() + place.size(), end, message.line).ptr;
            line.erase(0, static_cast<std::size_t>(rest - line.data()));
            line.erase(0, line.find_first_not_of(": "));
        }
        message.text = line;
        if (message.line != 0 && !message.text.empty()) {
            return message;
        }
        if (!placeless) {
            placeless = message;
        }
    }
    return placeless;
}

/// Empty after an error.
std::vector<std::uint32_t> translate(const std::string& hlsl, std::optional<CompiledShader::Message>& error)
{
    glslang::TShader shader(EShLangFragment);
    const char* const text = hlsl.c_str();
    const int length = static_cast<int>(hlsl.size());
    shader.setStringsWithLengths(&text, &length, 1);
    shader.setEntryPoint("main");
    shader.setSourceEntryPoint("main");
    shader.setEnvInput(glslang::EShSourceHlsl, EShLangFragment, glslang::EShClientVulkan, 100);
    shader.setEnvClient(glslang::EShClientVulkan, glslang::EShTargetVulkan_1_1);
    shader.setEnvTarget(glslang::EShTargetSpv, glslang::EShTargetSpv_1_3);
    const auto messages = static_cast<EShMessages>(EShMsgSpvRules | EShMsgVulkanRules | EShMsgReadHlsl |
                                                   EShMsgHlslDX9Compatible | EShMsgSuppressWarnings);
    constexpr int version = 100;
    glslang::TProgram program;
    bool good = shader.parse(GetDefaultResources(), version, false, messages);
    if (good) {
        program.addShader(&shader);
        good = program.link(messages);
    }
    if (!good) {
        error = firstError(std::string(shader.getInfoLog()) + '\n' + program.getInfoLog());
        error = error.value_or(CompiledShader::Message{0, "the HLSL compiler refused the shader"});
        return {};
    }
    std::vector<std::uint32_t> spirv;
    glslang::SpvOptions options;
    options.disableOptimizer = true; // it is one of our passes
    glslang::GlslangToSpv(*program.getIntermediate(EShLangFragment), spirv, &options);
    return spirv;
}

CompiledShader compileShader(const std::string& hlsl, std::uint32_t packedSourceBits)
{
    CompiledShader shader;
    ShaderModule module;
    module.packedSourceBits = packedSourceBits;
    module.words = translate(hlsl, shader.error);
    if (module.words.empty()) {
        return shader;
    }
    if (!samplersFitCalls(module.words)) {
        shader.error = {0,
                        "a sampler2D is given to a function that takes a sampler3D, or the other way round"};
        return shader;
    }
    std::string problem;
    if (!runPasses(module, problem) || !validate(module.words, problem) ||
        !needsOnlyCore(module.words, problem)) {
        shader.error = {
            0, choosesSamplers(module.words)
                   ? "a sampler cannot be chosen by '?:', 'if' or a variable; read each of them, and "
                     "choose between the colours"
                   : "the shader does not become valid SPIR-V: " + problem};
        return shader;
    }
    shader.bindings = samplerBindings(module.words);
    shader.constants = specializationConstants(module.words);
    shader.minglesPixels = minglesPixels(module.words);
    if (packedSourceBits != 0) {
        for (const std::uint32_t binding : shader.bindings) {
            const auto found = module.widened.find(binding);
            shader.texelBytes.push_back(found != module.widened.end() ? found->second : packedSourceBits / 2);
        }
        shader.rows = std::move(module.rows);
    }
    shader.spirv = std::move(module.words);
    return shader;
}

/// The work that the threads of one compileShaders share: each takes the next text until none is left.
struct Work
{
    const std::vector<std::string>& hlsl;
    const std::uint32_t packedSourceBits;
    std::vector<CompiledShader>& shaders;
    const std::function<void(std::size_t)>& reports;
    std::atomic<std::size_t> next{0};
    std::mutex mutex{};
    std::set<std::size_t> inWork{}; ///< what was begun first has the lowest number
    std::size_t told = SIZE_MAX;

    template <class Change>
    void tell(Change change)
    {
        const std::lock_guard lock(mutex);
        change();
        if (reports && !inWork.empty() && *inWork.begin() != told) {
            told = *inWork.begin();
            reports(told);
        }
    }

    void run()
    {
        for (std::size_t i = next++; i < hlsl.size(); i = next++) {
            tell([&] { inWork.insert(i); });
            compile(i);
            tell([&] { inWork.erase(i); });
        }
    }

    void compile(std::size_t i)
    {
        try {
            shaders[i] = compileShader(hlsl[i], packedSourceBits);
        } catch (const std::exception& error) {
            shaders[i].spirv.clear();
            shaders[i].error = {0, std::string("the shader compiler failed: ") + error.what()};
        }
    }
};

void* runWork(void* work)
{
    static_cast<Work*>(work)->run();
    return nullptr;
}

} // namespace

std::vector<CompiledShader> compileShaders(const std::vector<std::string>& hlsl,
                                           std::uint32_t packedSourceBits,
                                           const std::function<void(std::size_t)>& reports)
{
    constexpr std::size_t stackBytes = 256U << 20U; // address space; memory only as far as it is used
    constexpr std::size_t mostThreads = 4;
    startGlslang();
    std::vector<CompiledShader> shaders(hlsl.size());
    Work work{hlsl, packedSourceBits, shaders, reports};
    const std::size_t count =
        std::min({mostThreads, hlsl.size(),
                  static_cast<std::size_t>(std::max(std::thread::hardware_concurrency(), 1U))});
    std::vector<pthread_t> threads;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
    while (threads.size() < count) {
        pthread_t thread{};
        if (pthread_create(&thread, &attributes, &runWork, &work) != 0) {
            break;
        }
        threads.push_back(thread);
    }
    pthread_attr_destroy(&attributes);
    for (const pthread_t thread : threads) {
        pthread_join(thread, nullptr);
    }
    for (std::size_t i = 0; i < shaders.size(); ++i) {
        if (shaders[i].spirv.empty() && !shaders[i].error) {
            shaders[i].error = {0, "no thread could be started to compile the shader"};
        }
    }
    return shaders;
}

std::string shaderCompilerVersion()
{
    const glslang::Version version = glslang::GetVersion();
    return "glslang " + std::to_string(version.major) + '.' + std::to_string(version.minor) + '.' +
           std::to_string(version.patch) + version.flavor + ", " + spvSoftwareVersionDetailsString();
}

} // namespace Qx::Host::Effects
