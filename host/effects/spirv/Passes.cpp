#include "host/effects/spirv/Passes.h"

#include "host/effects/CompiledEffect.h"

namespace Qx::Host::Effects {
namespace {

enum class Result
{
    Done,
    DoneButUntidy, ///< tidyUp has to follow
    Failed
};

enum class Shaders
{
    All,
    Packed ///< those that draw packed texels
};

struct Pass
{
    Shaders shaders;
    Result (*run)(ShaderModule& shader, std::string& problem);
};

constexpr Result doneIf(bool good)
{
    return good ? Result::Done : Result::Failed;
}

constexpr Result untidyIf(bool changed)
{
    return changed ? Result::DoneButUntidy : Result::Done;
}

constexpr Pass passes[] = {
    {Shaders::All, [](ShaderModule& m, std::string&) { return doneIf(useRemaindersOfHlsl(m.words)); }},
    {Shaders::All,
     [](ShaderModule& m, std::string&) {
         keepArithmeticAsWritten(m.words);
         return Result::Done;
     }},
    {Shaders::All, [](ShaderModule& m, std::string&) { return doneIf(rewriteFetches(m.words)); }},
    {Shaders::All, [](ShaderModule& m, std::string& problem) { return doneIf(optimize(m.words, problem)); }},
    {Shaders::All, [](ShaderModule& m, std::string&) { return untidyIf(readCopiedArraysInPlace(m.words)); }},
    {Shaders::All, [](ShaderModule& m, std::string&) { return untidyIf(shareConstantArrays(m.words)); }},
    {Shaders::Packed,
     [](ShaderModule& m, std::string&) { return untidyIf(simplifyColumnArithmetic(m.words)); }},
    {Shaders::Packed,
     [](ShaderModule& m, std::string&) {
         m.widened = widenFetches(m.words, m.packedSourceBits / 2);
         return untidyIf(!m.widened.empty());
     }},
    {Shaders::Packed,
     [](ShaderModule& m, std::string&) {
         leaveBufferFormatsOpen(m.words);
         return Result::Done;
     }},
    {Shaders::Packed,
     [](ShaderModule& m, std::string&) {
         m.rows = passUniformsAsInputs(m.words, CompiledEffect::PackedShader::mostRows);
         return Result::Done;
     }},
};

} // namespace

bool runPasses(ShaderModule& shader, std::string& problem)
{
    for (const Pass& pass : passes) {
        if (pass.shaders == Shaders::Packed && shader.packedSourceBits == 0) {
            continue;
        }
        const Result result = pass.run(shader, problem);
        if (result == Result::Failed || (result == Result::DoneButUntidy && !tidyUp(shader.words, problem))) {
            return false;
        }
    }
    return true;
}

} // namespace Qx::Host::Effects
