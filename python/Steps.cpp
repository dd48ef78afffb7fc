#include "python/Steps.h"

#include "host/effects/Supplies.h"
#include "host/effects/framework/ParameterRange.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"
#include "tools/qxhost/pipeline/frames/FrameHost.h"

#include <utility>

namespace Qx::Python {

namespace {

using Program::ExitCode;
using Program::Failure;
using Program::FrameProcessor;

std::string whole(const Failure& failure)
{
    std::string text = Program::withoutOptions(failure.what());
    return failure.details().empty() ? text : text + '\n' + failure.details();
}

FrameProcessor::Fill filling(const Frame& frame)
{
    return
        [&frame](void* rows, std::ptrdiff_t pitch) { frame.layout.scatter(frame.bytes.data(), rows, pitch); };
}

} // namespace

void translating(const std::function<void()>& work)
{
    try {
        work();
    } catch (const Failure& failure) {
        switch (failure.code()) {
        case ExitCode::effect:
        case ExitCode::input:
            throw EffectError(whole(failure));
        case ExitCode::device: {
            // The interpreter ends, and a thread goes on: the device has nothing to do with it.
            const std::string stopped = Program::startFrameHost({});
            throw DeviceError(stopped.empty() ? whole(failure) : stopped);
        }
        case ExitCode::usage:
            throw std::invalid_argument(whole(failure));
        default:
            throw Error(whole(failure));
        }
    }
}

void openDevice(const std::string& name)
{
    if (const std::string failure = Program::openFrameDevice(name); !failure.empty()) {
        throw DeviceError(failure);
    }
}

Chain::Chain(Program::FrameSteps steps) : steps_(std::move(steps))
{
    openDevice({});
    for (Program::EffectRequest& request : steps_.effects) {
        for (Program::TextureFile& texture : request.textures) {
            if (texture.file.empty()) {
                auto& pictures = pictures_[texture.name];
                pictures = pictures != nullptr ? pictures : Program::picturesOfCaller();
                texture.pictures = Program::asTexture(pictures);
            }
        }
    }
    for (const auto& [name, pictures] : pictures_) {
        inputs.push_back(name);
    }
    translating([&] { processor_ = std::make_unique<FrameProcessor>(steps_); });
    for (const std::string& line : processor_->warnings()) {
        warnings_.push_back(Program::withoutOptions(line));
    }
}

std::vector<std::string> Chain::techniques(std::size_t effect) const
{
    std::vector<std::string> names;
    for (const auto& technique : processor_->compiled(effect).techniques) {
        names.push_back(technique.name);
    }
    return names;
}

std::vector<Parameter> Chain::parameters(std::size_t effect) const
{
    std::vector<Parameter> list;
    for (const Host::CompiledEffect::Parameter& each : processor_->compiled(effect).parameters) {
        if (each.semantic == Host::CompiledEffect::Semantic::None &&
            Host::supplyOf(each) == Host::Supply::None) {
            const Host::ParameterRange range = Host::rangeOf(each);
            list.push_back({each.name, Program::typeOf(each), Program::defaultOf(each), range.least,
                            range.most, range.label});
        }
    }
    return list;
}

void Chain::set(std::size_t effect, const std::string& name, std::vector<float> values)
{
    translating([&] { processor_->set({effect, {name, std::move(values)}}); });
}

std::shared_ptr<Frame> Chain::process(const Frame& frame, const std::vector<std::shared_ptr<Frame>>& more,
                                      const Program::FrameForm& to, const Moment& moment)
{
    auto result = std::make_shared<Frame>(makeFrame(to));
    std::vector<FrameProcessor::Input> given;
    given.push_back({frame.form, filling(frame)});
    for (std::size_t i = 0; i < more.size(); ++i) {
        given.push_back({more[i]->form, filling(*more[i]), pictures_.at(inputs[i]).get()});
    }
    translating([&] {
        processor_->process(
            given, to,
            [&](const void* rows, std::ptrdiff_t pitch) {
                result->layout.gather(rows, pitch, result->bytes.data());
            },
            {.seconds = moment.seconds, .frameSeconds = moment.frameSeconds, .number = moment.number});
    });
    return result;
}

} // namespace Qx::Python
