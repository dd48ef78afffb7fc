#include "tools/qxhost/studio/picture/ChainDrawing.h"

#include "host/effects/EffectCompilation.h"
#include "host/gpu/GPUService.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/look/LookSteps.h"
#include "tools/qxhost/studio/picture/FileStamp.h"

#include <algorithm>
#include <utility>

namespace Qx::Program::Studio {

namespace {

bool isSameMake(const LookLink& one, const LookLink& other)
{
    return one.kind == other.kind && one.file == other.file && one.technique == other.technique &&
           one.textures == other.textures;
}

std::filesystem::path fileOf(const LookLink& link)
{
    return link.kind == LookLink::Kind::lut ? lutPath(link.file) : effectPath(link.file);
}

const Host::CompiledEffect::Parameter* parameterOf(const Host::CompiledEffect& effect,
                                                   const std::string& name)
{
    const auto found = std::find_if(effect.parameters.begin(), effect.parameters.end(),
                                    [&](const auto& each) { return each.name == name; });
    return found == effect.parameters.end() ? nullptr : &*found;
}

std::vector<float> defaultValues(const Host::CompiledEffect::Parameter& parameter)
{
    std::vector<float> values;
    for (const double value : defaultOf(parameter)) {
        values.push_back(static_cast<float>(value));
    }
    return values;
}

/// Measures what the device does while it lives.
class DeviceTime
{
public:
    explicit DeviceTime(bool measures) : isRunning_(measures && Host::gpuService().startPassTimer()) {}
    ~DeviceTime() { static_cast<void>(end()); }
    DeviceTime(const DeviceTime&) = delete;
    DeviceTime& operator=(const DeviceTime&) = delete;

    /// Nothing if it cannot be measured.
    std::optional<Host::GPUPassTimes> end()
    {
        return std::exchange(isRunning_, false) ? Host::gpuService().stopPassTimer() : std::nullopt;
    }

private:
    bool isRunning_;
};

void takeTime(LinkStatus& status, std::optional<Host::GPUPassTimes> times)
{
    status.milliseconds = times ? std::optional(times->whole.busyMilliseconds) : std::nullopt;
    status.passMilliseconds = times ? std::move(times->milliseconds) : std::vector<double>();
}

/// What the step is compiled from: its parameters are set later. Names without a folder are the catalogue's.
std::vector<EffectRequest> requestsOf(LookLink link)
{
    link.parameters.clear();
    std::vector<EffectRequest> requests{effectRequest(link)};
    requests.front().look = "the look";
    settleNamesOfLooks(requests);
    requests.front().look.clear();
    return requests;
}

} // namespace

/// Asks the compiler for its messages, and which files it reads.
void ChainDrawing::examine(Link& link)
{
    const std::string file = fileOf(link.made).string();
    link.inputs.clear();
    link.stamp = stampOf(file);
    link.status.error.reset();
    link.status.failure.reset();
    link.status.warnings.clear();
    link.status.refused.clear();
    if (link.stamp == 0 && std::filesystem::path(link.made.file).is_absolute()) {
        link.status.error =
            LinkError{link.made.file + ": there is no such file; put it there, or take the step away", {}};
        return;
    }
    if (link.made.kind == LookLink::Kind::lut) {
        return;
    }
    Host::EffectCompilation compilation = Host::gpuService().examineEffectFile(wide(file), {});
    link.inputs = std::move(compilation.inputs);
    if (!compilation.effect && link.stamp != 0) {
        link.status.error = LinkError{file + ": does not compile", std::move(compilation.diagnostics)};
        return;
    }
    for (const Host::Diagnostic& each : compilation.diagnostics) {
        link.status.warnings.push_back(each.at.file + ":" + std::to_string(each.at.line) + ":" +
                                       std::to_string(each.at.column) + ": " + each.text);
    }
}

void ChainDrawing::compile(Link& link, const LookLink& wanted) const
{
    link.made = wanted;
    link.made.parameters.clear();
    link.isSure = true;
    examine(link);
    if (link.status.error) {
        return;
    }
    try {
        auto chain = std::make_unique<EffectChain>(requestsOf(wanted), std::nullopt,
                                                   EffectChain::Parameters::own, input_);
        link.chain = std::move(chain);
        link.applied.clear();
        link.status.compiled = &link.chain->compiled(0);
        link.status.technique =
            wanted.technique.empty() ? link.status.compiled->techniques.front().name : wanted.technique;
        for (const std::string& warning : link.chain->warnings()) {
            link.status.warnings.push_back(warning);
        }
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::device) {
            throw;
        }
        link.status.error = LinkError{asInLooks(failure.what(), "to the step in the look's file"), {}};
    }
    // The files are read twice. Who writes in between would else see what they held before.
    link.isSure = areFilesSame(link);
}

bool ChainDrawing::areFilesSame(const Link& link)
{
    if (link.inputs.empty()) {
        return stampOf(fileOf(link.made)) == link.stamp;
    }
    return std::all_of(link.inputs.begin(), link.inputs.end(), [](const Host::EffectInput& input) {
        return Host::isUnchanged(input, std::filesystem::path());
    });
}

void ChainDrawing::fit(const Look& look)
{
    std::erase_if(links_, [&](const auto& each) { return look.link(each.first) == nullptr; });
    for (const LookLink& wanted : look.links) {
        const auto [found, isNew] = links_.try_emplace(wanted.id);
        if (isNew || !isSameMake(found->second.made, wanted)) {
            compile(found->second, wanted);
        }
    }
}

bool ChainDrawing::recompileChanged()
{
    bool changed = false;
    for (auto& [id, link] : links_) {
        if (!link.isSure || !areFilesSame(link)) {
            compile(link, LookLink(link.made));
            changed = true;
        }
    }
    return changed;
}

/// Sets a parameter, which the file may have lost since the look has a value for it: the rest is drawn then.
void ChainDrawing::set(Link& link, const std::string& name, const std::vector<float>& values)
{
    try {
        link.chain->set(0, {name, values});
        news_ += link.status.refused.erase(name);
    } catch (const WrongOption& refusal) {
        news_ += link.status.refused.emplace(name, refusal.what()).second ? 1U : 0U;
    }
}

/// Gives the parameters their values in that frame.
void ChainDrawing::apply(Link& link, const LookLink& wanted, std::int64_t frame)
{
    for (const auto& [name, values] : std::map(link.applied)) {
        if (wanted.parameter(name) != nullptr) {
            continue;
        }
        const Host::CompiledEffect::Parameter* const parameter = parameterOf(*link.status.compiled, name);
        if (parameter != nullptr && Host::supplyOf(*parameter) != Host::Supply::None) {
            compile(link, LookLink(link.made)); // the host fills it again
            break;
        }
        if (parameter != nullptr) {
            set(link, name, defaultValues(*parameter));
        }
        news_ += link.status.refused.erase(name);
        link.applied.erase(name);
    }
    for (const LookParameter& parameter : wanted.parameters) {
        std::vector<float> values = parameter.valuesAt(frame);
        std::vector<float>& applied = link.applied[parameter.name];
        if (applied != values) {
            set(link, parameter.name, values);
            applied = std::move(values);
        }
    }
}

Image::Surface ChainDrawing::draw(const Look& look, const Image::Surface& picture,
                                  const Host::FrameFacts& facts, bool measures)
{
    Image::Surface current = picture;
    for (const LookLink& wanted : look.links) {
        Link& link = links_.at(wanted.id);
        if (!wanted.on || !link.chain) {
            continue;
        }
        try {
            apply(link, wanted, facts.number);
            DeviceTime time(measures);
            current = link.chain->apply(current, current.getGPUSurface()->getFormat(), facts);
            if (measures) {
                takeTime(link.status, time.end());
            }
            news_ += link.status.failure ? 1U : 0U;
            link.status.failure.reset();
        } catch (const Failure& failure) {
            if (failure.code() == ExitCode::device) {
                throw;
            }
            news_ += link.status.failure == failure.what() ? 0U : 1U;
            link.status.failure = failure.what();
        }
    }
    return current;
}

int ChainDrawing::framesBefore(const Look& look) const
{
    int frames = 0;
    for (const LookLink& link : look.links) {
        const auto found = links_.find(link.id);
        frames +=
            link.on && found != links_.end() && found->second.chain ? found->second.chain->framesBefore() : 0;
    }
    return frames;
}

bool ChainDrawing::isRecursive(const Look& look) const
{
    return std::any_of(look.links.begin(), look.links.end(),
                       [this](const LookLink& link) { return isRecursive(link); });
}

bool ChainDrawing::isRecursive(const LookLink& link) const
{
    const auto found = links_.find(link.id);
    return link.on && found != links_.end() && found->second.chain &&
           !found->second.chain->recursiveEffect().empty();
}

void ChainDrawing::forgetFrames()
{
    for (auto& [id, link] : links_) {
        if (link.chain) {
            link.chain->forgetFrames();
        }
    }
}

bool ChainDrawing::isDrawn(std::uint64_t id) const
{
    const Link& link = links_.at(id);
    return link.chain && !link.status.error && !link.status.failure;
}

const LinkStatus& ChainDrawing::status(std::uint64_t id) const
{
    return links_.at(id).status;
}

} // namespace Qx::Program::Studio
