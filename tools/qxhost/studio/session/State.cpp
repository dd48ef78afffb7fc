#include "host/effects/TextureSources.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/studio/session/Controls.h"
#include "tools/qxhost/studio/session/NamedLinks.h"
#include "tools/qxhost/studio/session/Worker.h"

#include <algorithm>
#include <chrono>

namespace Qx::Program::Studio {

namespace {

/// For a clip whose end is unknown: JavaScript counts so far exactly.
constexpr std::int64_t largestFrame = std::int64_t{1} << 40;

const char* wordOf(Media::Matrix matrix)
{
    switch (matrix) {
    case Media::Matrix::bt601:
        return "bt601";
    case Media::Matrix::bt2020:
        return "bt2020";
    case Media::Matrix::bt709:
        break;
    }
    return "bt709";
}

Json messagesOf(const LinkError& error)
{
    Json messages = Json::array();
    for (const Host::Diagnostic& each : error.messages) {
        messages.push_back(
            {{"file", each.at.file},
             {"line", each.at.line},
             {"column", each.at.column},
             {"severity", each.severity == Host::Diagnostic::Severity::Error ? "error" : "warning"},
             {"text", each.text}});
    }
    return messages;
}

/// A step that is off needs no file, as in a conversion. `look` is the file of the chain, if it has one.
Json errorOf(const LinkStatus& status, bool isOn, const std::string& look)
{
    if (status.error && status.error->messages.empty() && !isOn) {
        return {};
    }
    if (status.error) {
        const bool isOfFile = !look.empty() && status.error->messages.empty();
        return {{"text", (isOfFile ? look + ": " : "") + status.error->text},
                {"messages", messagesOf(*status.error)}};
    }
    return status.failure ? Json{{"text", *status.failure}, {"messages", Json::array()}} : Json();
}

/// The passes of the technique that is drawn, as the file has them: one that draws several results was
/// compiled to as many, that of the first colour last.
Json passesOf(const LinkStatus& status)
{
    Json passes = Json::array();
    const Host::CompiledEffect::Technique* const technique =
        status.compiled != nullptr ? Host::techniqueNamed(*status.compiled, status.technique) : nullptr;
    if (technique == nullptr) {
        return passes;
    }
    const std::vector<double>& times = status.passMilliseconds;
    const bool isKnown = times.size() == technique->passes.size();
    double milliseconds = 0;
    for (std::size_t i = 0; i < technique->passes.size(); ++i) {
        const Host::CompiledEffect::Pass& pass = technique->passes[i];
        milliseconds += isKnown ? times[i] : 0;
        if (pass.result == 0) {
            passes.push_back({{"name", pass.name}, {"milliseconds", isKnown ? Json(milliseconds) : Json()}});
            milliseconds = 0;
        }
    }
    return passes;
}

Json numberOrNull(const std::optional<std::int64_t>& number)
{
    return number ? Json(*number) : Json();
}

} // namespace

Json Session::Worker::clipState() const
{
    const ClipFrames& clip = projector_.clip();
    const Media::StreamInfo& info = clip.info();
    return {{"name", clip.file().filename().string()},
            {"width", info.width},
            {"height", info.height},
            {"aspect",
             {info.sampleAspect.num > 0 ? info.sampleAspect.num : 1,
              info.sampleAspect.num > 0 ? info.sampleAspect.den : 1}},
            {"frames", numberOrNull(clip.count())},
            {"rate", {info.frameRate.num, info.frameRate.den}},
            {"timeCode", info.timeCode},
            {"bits", info.bitsPerComponent},
            {"matrix", wordOf(clip.colour().matrix)},
            {"range", clip.colour().range == Media::Range::video ? "video" : "full"},
            {"matrixGuessed", clip.colour().matrixGuessed},
            {"rangeGuessed", clip.colour().rangeGuessed},
            {"isRgb", holdsRgb(info)},
            {"unturned", clip.isLeftUnturned()},
            {"still", info.isStill}};
}

Json Session::Worker::linkState(const LookLink& link) const
{
    const LinkStatus& status = projector_.chain().status(link.id);
    Json techniques = Json::array();
    Json parameters = Json::array();
    if (status.compiled != nullptr) {
        for (const Host::CompiledEffect::Technique& technique : status.compiled->techniques) {
            techniques.push_back(technique.name);
        }
        parameters = controlsOf(*status.compiled, link, number());
    }
    const bool isLut = link.kind == LookLink::Kind::lut;
    Json state{{"id", link.id},
               {"kind", isLut ? "lut" : "effect"},
               {"name", std::filesystem::path(link.file).filename().string()},
               {"file", fileOfLink(link).string()},
               {"editable", isEditable(link)},
               {"on", link.on},
               {"technique", isLut ? "" : status.technique},
               {"techniques", isLut ? Json::array() : techniques}};
    state["error"] = errorOf(status, link.on, lookFile_);
    state["warnings"] = status.warnings;
    for (const auto& [name, reason] : status.refused) {
        state["warnings"].push_back(reason);
    }
    state["milliseconds"] = status.milliseconds ? Json(*status.milliseconds) : Json();
    state["passes"] = passesOf(status);
    state["since"] = projector_.chain().isRecursive(link) ? Json(projector_.since()) : Json();
    state["parameters"] = parameters;
    return state;
}

Json Session::Worker::state() const
{
    Json chain = Json::array();
    for (const LookLink& link : editor_.look().links) {
        chain.push_back(linkState(link));
    }
    Json stills = Json::array();
    for (const Still& still : stills_) {
        stills.push_back({{"id", still.id}, {"name", still.name}, {"frame", still.frame}});
    }
    Json problems = projector_.clip().problems();
    if (!losses_.empty()) {
        problems.push_back(losses_);
    }
    if (!problem_.empty() && problem_ != losses_) {
        problems.push_back(problem_);
    }
    Json state{{"is", "state"},
               {"session", start_},
               {"clip", clipState()},
               {"frame", playback_.frame()},
               {"playing", playback_.isPlaying()},
               {"loop", playback_.loops()},
               {"in", playback_.in()},
               {"out", std::min(playback_.out(), largestFrame)},
               {"canUndo", editor_.canUndo()},
               {"canRedo", editor_.canRedo()},
               {"changed", editor_.isChanged()},
               {"look", lookFile_}};
    state["proxy"] = proxy_ ? Json{proxy_->width, proxy_->height} : Json();
    state["device"] = device_;
    state["chain"] = chain;
    state["stills"] = stills;
    state["problems"] = problems;
    return state;
}

void Session::Worker::tell(const Client& client, const Json& message, iWindow::Kind kind)
{
    client.window->send(
        std::make_shared<const std::string>(message.dump(-1, ' ', false, Json::error_handler_t::replace)),
        kind);
}

/// Tells all windows what has changed, if anything has. While it plays, the place alone is told now and then:
/// pictures say it too.
void Session::Worker::sendState(bool always)
{
    constexpr std::chrono::milliseconds placePeriod{250};
    const auto now = std::chrono::steady_clock::now();
    const bool isPlaceDue =
        toldFrame_ != playback_.frame() && (!playback_.isPlaying() || now > toldAt_ + placePeriod);
    if (!always && !isStateNew_ && !isPlaceDue) {
        return;
    }
    isStateNew_ = false;
    toldFrame_ = playback_.frame();
    toldAt_ = now;
    if (clients_.empty()) {
        return;
    }
    const Json message = state();
    for (const Client& client : clients_) {
        tell(client, message, iWindow::Kind::state);
    }
}

} // namespace Qx::Program::Studio
