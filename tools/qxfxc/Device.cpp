#include "tools/qxfxc/Device.h"

#include "host/gpu/effects/EffectProgram.h"
#include "host/gpu/effects/Prewarm.h"

#include <algorithm>
#include <chrono>

namespace Qx::Host::Worker {

namespace {

using Vulkan::EffectProgram;

/// The host enforces the limits.
constexpr std::chrono::milliseconds unlimited{24 * 3'600'000};
constexpr std::chrono::milliseconds shutdownLimit{1000};

/// The passes of a technique, which one draw draws: "P0, P1 or number 3".
std::string passesOf(const CompiledEffect::Technique& technique)
{
    std::string text;
    const std::size_t count = technique.passes.size();
    for (std::size_t i = 0; i < count; ++i) {
        const std::string& name = technique.passes[i].name;
        text += i == 0 ? "" : i + 1 == count ? " or " : ", ";
        text += name.empty() && count > 1 ? "number " + std::to_string(i + 1) : name;
    }
    return text;
}

} // namespace

std::unique_ptr<TrialDevice> TrialDevice::open(const DeviceUUID& uuid, bool validation, std::string& problem)
{
    auto instance = Vulkan::Instance::create(validation, problem);
    if (instance == nullptr) {
        return nullptr;
    }
    const std::vector<Vulkan::PhysicalDevice> all = instance->physicalDevices(problem);
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Vulkan::PhysicalDevice& each) { return each.uuid == uuid; });
    if (found == all.end()) {
        problem = problem.empty() ? "it does not see the host's GPU" : problem;
        return nullptr;
    }
    auto device = Vulkan::Device::create(*found, problem);
    if (device == nullptr) {
        return nullptr;
    }
    GPUOptions options;
    options.stallLimit = unlimited;
    auto context = Vulkan::Context::create(std::move(instance), std::move(device), options, problem);
    return context != nullptr ? std::unique_ptr<TrialDevice>(new TrialDevice(std::move(context))) : nullptr;
}

TrialDevice::~TrialDevice()
{
    context_->shutdown(shutdownLimit);
}

bool TrialDevice::isLost() const
{
    return context_->device().isLost();
}

void TrialDevice::tryOut(EffectCompilation& compilation, const std::filesystem::path& file,
                         const std::function<void(const Step&)>& step)
{
    const std::shared_ptr<const CompiledEffect> effect = compilation.effect;
    const std::vector<CompiledEffect::Technique>& techniques = effect->techniques;
    Vulkan::PassRefusal refusal;
    const auto program = EffectProgram::create(context_, effect, refusal);
    const auto tell = [&](std::size_t technique, std::size_t pass) {
        step({Stage::CreatingPipelines, techniques[technique].name, techniques[technique].passes[pass].name});
    };
    if (program == nullptr || !program->createPipelines(refusal, tell)) {
        refuse(compilation, {file.native()}, refusal.text, refusal.technique, refusal.pass);
        return;
    }
    using Form = Vulkan::Prewarm::Form;
    Vulkan::Prewarm trial(program);
    const auto draw = [&](std::size_t technique, iGPUImage::eFormat format, Form form) {
        step({Stage::Drawing, techniques[technique].name, passesOf(techniques[technique])});
        if (trial.draw(technique, format, form)) {
            return true;
        }
        refuse(compilation, {file.native()},
               std::string("the GPU cannot draw it") + (isLost() ? "; the device was lost" : ""),
               techniques[technique].name, passesOf(techniques[technique]));
        return false;
    };
    for (const iGPUImage::eFormat format : Vulkan::Prewarm::formats) {
        for (std::size_t i = 0; i < techniques.size(); ++i) {
            if (!draw(i, format, Form::Whole) ||
                (trial.hasForm(i, Form::MixedDepths) && !draw(i, format, Form::MixedDepths))) {
                return;
            }
        }
    }
    for (std::size_t i = 0; i < techniques.size(); ++i) {
        if (trial.hasForm(i, Form::Part) && !draw(i, iGPUImage::eARGB16, Form::Part)) {
            return;
        }
    }
}

} // namespace Qx::Host::Worker
