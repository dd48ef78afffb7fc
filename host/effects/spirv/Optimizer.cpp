#include "host/effects/spirv/Passes.h"
#include "host/effects/spirv/Tools.h"

#include <utility>

#include <spirv-tools/optimizer.hpp>

namespace Qx::Host::Effects {
namespace {

bool run(spvtools::Optimizer& optimizer, Spirv::Words& spirv, std::string& problem)
{
    optimizer.SetMessageConsumer(collectInto(problem));
    spvtools::OptimizerOptions options;
    options.set_run_validator(false); // the result is validated
    Spirv::Words optimized;
    if (!optimizer.Run(spirv.data(), spirv.size(), &optimized, options)) {
        return false;
    }
    spirv = std::move(optimized);
    return true;
}

} // namespace

bool optimize(Spirv::Words& spirv, std::string& problem)
{
    spvtools::Optimizer optimizer(targetEnvironment);
    optimizer.RegisterLegalizationPasses().RegisterPerformancePasses();
    optimizer.RegisterPass(spvtools::CreateStripDebugInfoPass());
    return run(optimizer, spirv, problem);
}

bool tidyUp(Spirv::Words& spirv, std::string& problem)
{
    spvtools::Optimizer optimizer(targetEnvironment);
    optimizer.RegisterPass(spvtools::CreateCCPPass())
        .RegisterPass(spvtools::CreateSimplificationPass())
        .RegisterPass(spvtools::CreateDeadBranchElimPass())
        .RegisterPass(spvtools::CreateBlockMergePass())
        .RegisterPass(spvtools::CreateRedundancyEliminationPass())
        .RegisterPass(spvtools::CreateAggressiveDCEPass());
    return run(optimizer, spirv, problem);
}

} // namespace Qx::Host::Effects
