#include "plugins/mlt/Service.h"

#include "host/effects/EffectCompilation.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "plugins/mlt/ModuleHost.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"
#include "tools/qxhost/pipeline/frames/FrameHost.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <utility>

namespace Qx::Mlt {

namespace {

using Program::EffectRequest;
using Program::Failure;
using Program::FrameForm;
using Program::ParameterSetting;

std::string stampOf(const std::string& file)
{
    std::error_code error;
    const auto time = std::filesystem::last_write_time(file, error);
    return error ? "" : std::to_string(time.time_since_epoch().count());
}

/// Tells plans apart: another key needs another processor. A file that was saved anew is another one.
std::string keyOf(const Service::Plan& plan)
{
    const Program::BurnInOptions& text = plan.steps.text;
    std::string key = text.text + '\n' + text.font + '\n' + std::to_string(text.size) + '\n' +
                      plan.steps.clip + '\n' + plan.steps.timeCode + '\n' + plan.second + '\n' +
                      plan.progress + '\n' +
                      (plan.toMatrix ? std::to_string(static_cast<int>(*plan.toMatrix)) : "");
    for (const EffectRequest& request : plan.steps.effects) {
        key += '\n' + request.file + '\n' + stampOf(request.file) + '\n' + request.technique + '\n' +
               request.lut + '\n' + stampOf(request.lut);
        for (const Program::TextureFile& texture : request.textures) {
            key += '\n' + texture.name + '\n' + texture.file.string();
        }
    }
    if (const auto* place = std::get_if<Program::BurnInPlace>(&text.position)) {
        return key + '\n' + std::to_string(place->x) + ' ' + std::to_string(place->y);
    }
    const auto& anchor = std::get<Program::BurnInAnchor>(text.position);
    return key + "\nanchor " + std::to_string(anchor.across) + ' ' + std::to_string(anchor.down);
}

/// The first texture of the technique that nothing gives a picture.
std::string textureWithoutPicture(const EffectRequest& request)
{
    const std::filesystem::path file = Program::effectPath(request.file);
    const LightweightString<char> path(std::string_view(file.native()));
    const Host::EffectCompilation compilation = Host::gpuService().examineEffectFile(fromUTF8(path), {});
    if (!compilation.effect) {
        return {}; // obtaining it tells why
    }
    for (const Host::CompiledEffect::Technique& technique : compilation.effect->techniques) {
        if (!request.technique.empty() && technique.name != request.technique) {
            continue;
        }
        for (const Program::TextureBinding& binding :
             Program::bindingsOf(*compilation.effect, technique, file, request.textures)) {
            if (binding.kind == Program::TextureBinding::Kind::missing) {
                return binding.texture;
            }
        }
        break;
    }
    throw Failure(Program::ExitCode::effect,
                  request.file +
                      ": has no second input: its technique reads no texture but the picture's; choose "
                      "an effect with two, such as qx-dissolve.fx");
}

std::string whole(const Failure& failure)
{
    std::string text = Program::withoutOptions(failure.what());
    if (!failure.details().empty()) {
        text += '\n' + failure.details();
    }
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

} // namespace

Service::Service(mlt_service service, MakePlan makePlan) : service_(service), makePlan_(std::move(makePlan))
{
}

Service::~Service() = default;

void Service::complain(const std::string& text)
{
    constexpr std::size_t most = 64; // texts that change with every frame are said no more then
    const std::lock_guard lock(saidMutex_);
    if (said_.size() < most && said_.insert(text).second) {
        mlt_log_error(service_, "%s\n", text.c_str());
    }
}

void Service::takeSecond(Made& made) const
{
    if (!made.plan.readsSecond) {
        return;
    }
    EffectRequest& request = made.plan.steps.effects.front();
    const std::string texture = made.plan.second.empty() ? textureWithoutPicture(request) : made.plan.second;
    made.second = Program::picturesOfCaller();
    request.textures.push_back({texture, {}, Program::asTexture(made.second)});
}

std::shared_ptr<Service::Made> Service::make(std::string key, Plan plan)
{
    auto made = std::make_shared<Made>();
    made->key = std::move(key);
    made->plan = std::move(plan);
    if (mlt_profile profile = mlt_service_profile(service_)) {
        made->plan.steps.rate = {profile->frame_rate_num, profile->frame_rate_den};
    }
    if (const std::string failure = openDevice(service_); !failure.empty()) {
        complain(failure);
        return made;
    }
    try {
        takeSecond(*made);
        made->processor = std::make_unique<Program::FrameProcessor>(made->plan.steps);
        std::vector<std::string> lines = made->processor->warnings();
        if (!made->plan.steps.effects.empty()) {
            for (std::string& line :
                 likelyMistakes(properties(), made->processor->compiled(0), made->plan.known)) {
                lines.push_back(std::move(line));
            }
        }
        for (const std::string& line : lines) {
            mlt_log_warning(service_, "%s\n", Program::withoutOptions(line).c_str());
        }
    } catch (const Failure& failure) {
        complain(whole(failure));
    }
    return made;
}

std::shared_ptr<Service::Made> Service::obtain()
{
    const std::lock_guard lock(mutex_);
    Plan plan = makePlan_(properties());
    std::string key = keyOf(plan);
    if (!made_ || made_->key != key) {
        made_ = make(std::move(key), std::move(plan));
    }
    return made_;
}

std::vector<Program::EffectSetting> Service::settings(const Made& made, const Moment& moment, double progress)
{
    if (made.plan.steps.effects.empty()) {
        return {};
    }
    const Host::CompiledEffect& effect = made.processor->compiled(0);
    std::vector<std::string> problems;
    std::vector<Program::EffectSetting> settings;
    for (ParameterSetting& value : settingsOf(properties(), effect, moment, problems)) {
        settings.push_back({0, std::move(value)});
    }
    for (const std::string& problem : problems) {
        complain(problem);
    }
    const std::string& name = made.plan.progress;
    const bool isThere = std::any_of(effect.parameters.begin(), effect.parameters.end(),
                                     [&](const auto& each) { return each.name == name; });
    const bool isSet = std::any_of(settings.begin(), settings.end(),
                                   [&](const auto& each) { return each.value.name == name; });
    if (!name.empty() && isThere && !isSet) {
        settings.push_back({0, {name, {static_cast<float>(progress)}}});
    }
    return settings;
}

void Service::process(Made& made, const Input& first, const Input* second, const Moment& moment,
                      double progress)
{
    using Input = Program::FrameProcessor::Input;
    mlt_profile profile = mlt_service_profile(service_);
    const std::optional<FrameForm> form = formOf(first.image, first.frame, profile);
    const std::optional<FrameForm> other =
        second != nullptr ? formOf(second->image, second->frame, profile) : form;
    if (!form || !other) {
        complain("the image has a format that cannot be converted: expected yuv422 or yuv422p16 of an even "
                 "width, or rgba");
        return;
    }
    std::vector<Input> inputs;
    inputs.push_back({*form, [&](void* rows, std::ptrdiff_t pitch) { copyFrom(first.image, rows, pitch); }});
    if (second != nullptr && made.second) {
        inputs.push_back({*other,
                          [&](void* rows, std::ptrdiff_t pitch) { copyFrom(second->image, rows, pitch); },
                          made.second.get()});
    }
    FrameForm result = resultForm(*form);
    result.matrix = made.plan.toMatrix.value_or(result.matrix);
    const double rate = profile != nullptr ? mlt_profile_fps(profile) : 0;
    const Host::FrameFacts facts{.seconds = rate > 0 ? moment.position / rate : 0,
                                 .frameSeconds = rate > 0 ? 1 / rate : 0,
                                 .number = moment.position};
    made.processor->process(
        inputs, result, [&](const void* rows, std::ptrdiff_t pitch) { copyTo(first.image, rows, pitch); },
        facts, settings(made, moment, progress));
    if (form->format.isYCrCb()) {
        mlt_properties frame = MLT_FRAME_PROPERTIES(first.frame);
        mlt_properties_set_int(frame, "full_range", 0);
        mlt_properties_set_int(frame, "colorspace", colourSpaceOf(result.matrix));
    }
}

void Service::draw(const Input& first, const Input* second, const Moment& moment, double progress)
{
    try {
        const std::shared_ptr<Made> made = obtain();
        if (made->processor) {
            process(*made, first, second, moment, progress);
        }
    } catch (const Failure& failure) {
        complain(whole(failure));
    } catch (const std::exception& error) {
        complain(std::string("unforeseen: ") + error.what());
    }
}

} // namespace Qx::Mlt
